// SPDX-License-Identifier: Apache-2.0
//
// Result-code registry. A registration finds the table of a facility in the
// object that exports it as cerr_data, and copies the texts: the object may be
// unloaded, but texts that were returned remain valid. Readers take no lock: the
// library's worker and signal handlers ask for texts too.

#include "platform/cerr.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aaa/result_codes.h"
#include "loaded_objects.hpp"
#include "platform_codes.hpp"

namespace aaaplatform {

namespace {

constexpr uint32_t kFacilityMask = 0x3fff;
constexpr uint32_t kIndexLimit = 64;  // six bits of a code
constexpr uint32_t kTableVersion = 2;
constexpr cerrno kErrnoLimit = 4096;  // the kernel's bound of errno values
constexpr std::size_t kMaxTables = 32;
constexpr std::size_t kMaxText = 512;

constexpr uint32_t facility_of(cerrno code) {
    return code >> 15 & kFacilityMask;
}
constexpr uint32_t index_of(cerrno code) {
    return code >> 9 & (kIndexLimit - 1);
}

// The texts of one facility; they follow this head in the same block. Never
// freed: a replaced table remains on the chain of its successor.
struct Table {
    uint32_t facility;
    const char *text[kIndexLimit];
    const Table *replaced;
};

// A used slot keeps its facility; registering again replaces the table.
constinit std::array<std::atomic<const Table *>, kMaxTables> g_tables{};
constinit pthread_mutex_t g_register_mutex = PTHREAD_MUTEX_INITIALIZER;

struct OwnCode {
    cerrno code;
    const char *text;
};

constexpr OwnCode kOwnCodes[] = {
#define PLATFORM_CODE(name, code, text) {code, text},
#include "platform_codes.def"
};

// ---- registration ------------------------------------------------------------

bool well_formed(const aaa_cerr_data_t &data) {
    if (data.version != kTableVersion || data.table == nullptr || data.rows > kIndexLimit) {
        return false;
    }
    for (uint32_t row = 0; row < data.rows; ++row) {
        if (data.table[row].index >= kIndexLimit || data.table[row].text == nullptr) {
            return false;
        }
    }
    return true;
}

Table *copy_table(const aaa_cerr_data_t &data) {
    std::size_t size = sizeof(Table);
    for (uint32_t row = 0; row < data.rows; ++row) {
        size += strnlen(data.table[row].text, kMaxText) + 1;
    }
    auto *table = static_cast<Table *>(std::calloc(1, size));
    if (table == nullptr) {
        return nullptr;
    }
    table->facility = data.facility;
    char *at = reinterpret_cast<char *>(table + 1);
    for (uint32_t row = 0; row < data.rows; ++row) {
        const std::size_t len = strnlen(data.table[row].text, kMaxText);
        std::memcpy(at, data.table[row].text, len);
        table->text[data.table[row].index] = at;
        at += len + 1;
    }
    return table;
}

bool same_texts(const Table &a, const Table &b) {
    for (uint32_t i = 0; i < kIndexLimit; ++i) {
        if ((a.text[i] == nullptr) != (b.text[i] == nullptr) ||
            (a.text[i] != nullptr && std::strcmp(a.text[i], b.text[i]) != 0)) {
            return false;
        }
    }
    return true;
}

// Called with the registration mutex held. Repeated loads of the same library
// must not accumulate copies of the same texts.
cerrno publish(Table *table) {
    for (auto &slot : g_tables) {
        const Table *present = slot.load(std::memory_order_relaxed);
        if (present != nullptr && present->facility != table->facility) {
            continue;
        }
        if (present != nullptr && same_texts(*present, *table)) {
            std::free(table);
            return 0;
        }
        table->replaced = present;
        slot.store(table, std::memory_order_release);
        return 0;
    }
    std::free(table);
    return HOST_TOO_MANY_TABLES;
}

struct Search {
    uint32_t facility;
    Table *table;
    cerrno result;
};

// A cerr_data of another facility belongs to another library: continue.
bool take_table(void *symbol, void *context) {
    auto *search = static_cast<Search *>(context);
    const auto *data = static_cast<const aaa_cerr_data_t *>(symbol);
    if (data->facility != search->facility) {
        return false;
    }
    if (!well_formed(*data)) {
        search->result = HOST_BAD_CODE_TABLE;
        return false;
    }
    search->table = copy_table(*data);
    search->result = search->table != nullptr ? cerrno{0} : cerrno{HOST_NO_MEMORY};
    return true;
}

// ---- texts -------------------------------------------------------------------

const char *registered_text(cerrno code) {
    for (const auto &slot : g_tables) {
        const Table *table = slot.load(std::memory_order_acquire);
        if (table == nullptr) {
            return nullptr;
        }
        if (table->facility == facility_of(code)) {
            return table->text[index_of(code)];
        }
    }
    return nullptr;
}

const char *own_text(cerrno code) {
    for (const OwnCode &row : kOwnCodes) {
        if (facility_of(row.code) == facility_of(code) && index_of(row.code) == index_of(code)) {
            return row.text;
        }
    }
    return nullptr;
}

// The text is valid until the thread's next unknown code. A plain array: the
// first use of a thread-local with a destructor takes the loader's lock.
const char *unknown_text(cerrno code) {
    static thread_local char text[32];
    std::snprintf(text, sizeof text, "Unknown error 0x%08x", code);
    return text;
}

const char *text_of(cerrno code) {
    if (code < kErrnoLimit) {
        return code == 0 ? "Success" : strerrordesc_np(static_cast<int>(code));
    }
    const char *text = registered_text(code);
    return text != nullptr ? text : own_text(code);
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

cerrno cerr_register_dll(uint32_t facility, const char *dll_name) {
    if (facility == 0 || facility > kFacilityMask || dll_name == nullptr || *dll_name == '\0') {
        return HOST_INVALID_ARG;
    }
    // The name need not be a file: the table is found by its facility.
    Search search{facility, nullptr, HOST_NO_CODE_TABLE};
    visit_symbol(__builtin_return_address(0), "cerr_data", take_table, &search);
    if (search.table == nullptr) {
        return search.result;
    }
    pthread_mutex_lock(&g_register_mutex);
    const cerrno result = publish(search.table);
    pthread_mutex_unlock(&g_register_mutex);
    return result;
}

const char *cerr_strerror(cerrno code) {
    const char *text = text_of(code);
    return text != nullptr ? text : unknown_text(code);
}

}  // extern "C"
