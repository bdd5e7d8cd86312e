// SPDX-License-Identifier: Apache-2.0

extern "C" {
#include "bindings/python/native/show.h"
}

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "aaa/result_codes.h"
#include "cli/output.hpp"
#include "dictionary/attributes.hpp"
#include "message/hex_input.hpp"
#include "message/message.hpp"
#include "message/message_json.hpp"
#include "message/message_text.hpp"
#include "platform/cerr.h"

namespace {

using aaactl::Failure;

// The last row has no name.
constexpr aaapy_advice_t kAdvice[] = {
#define AAACTL_ADVICE(name, by_library, cause, remedy) {name, by_library, #name, cause, remedy},
#include "dictionary/result_code_advice.def"
#define AAACTL_PLATFORM_ADVICE(name, code, cause, remedy) {code, 0, #name, cause, remedy},
#include "dictionary/platform_code_advice.def"
    {0, 0, nullptr, nullptr, nullptr},
};

aaapy_text_t text_of(std::string_view bytes, bool failed) {
    auto *copy = static_cast<char *>(std::malloc(bytes.size() + 1));
    if (copy != nullptr) {
        std::memcpy(copy, bytes.data(), bytes.size());
        copy[bytes.size()] = '\0';
    }
    return {copy, copy != nullptr ? bytes.size() : 0, failed ? 1u : 0u};
}

// No exception may pass through the interpreter.
template <typename Make>
aaapy_text_t guarded(Make make) noexcept {
    try {
        return text_of(make(), false);
    } catch (const std::bad_alloc &) {
        return {nullptr, 0, 1};
    } catch (const std::exception &failure) {
        return text_of(failure.what(), true);
    }
}

}  // namespace

extern "C" {

void aaapy_text_free(aaapy_text_t *text) {
    if (text != nullptr && text->bytes != nullptr) {
        explicit_bzero(text->bytes, text->length);
        std::free(text->bytes);
        *text = {};
    }
}

aaapy_text_t aaapy_show(const char *message, size_t length, const char *kind, uint32_t show_secrets,
                        uint32_t as_text) {
    return guarded([&] {
        const auto read = aaactl::read_message({message, length}, kind);
        return as_text != 0 ? aaactl::to_text(read, show_secrets != 0)
                            : aaactl::to_json(read, show_secrets != 0).dump();
    });
}

aaapy_text_t aaapy_read(const char *text, size_t length) {
    return guarded([&] {
        const std::string_view all(text, length);
        const size_t begin = all.find_first_not_of(" \t\r\n");
        const bool json = begin != std::string_view::npos && (all[begin] == '{' || all[begin] == '[');
        return aaactl::write_message(json ? aaactl::from_json(aaactl::Json::parse(all))
                                          : aaactl::from_text(all));
    });
}

aaapy_text_t aaapy_unhex(const char *text, size_t length) {
    return guarded([&] { return aaactl::bytes_of_hex({text, length}); });
}

uint32_t aaapy_looks_like_text(const char *bytes, size_t length) {
    return aaactl::looks_like_text({bytes, length}) ? 1 : 0;
}

const char *aaapy_kind(uint32_t n) {
    const auto kinds = aaactl::message_kinds();
    return n < kinds.size() ? kinds[n].name.data() : nullptr;
}

uint32_t aaapy_secret(uint32_t n) {
    for (uint32_t type = 1; type < AAA_ATTR_MAX; ++type) {
        if (aaactl::is_secret(type) && n-- == 0) {
            return type;
        }
    }
    return 0;
}

uint32_t aaapy_attribute_type(const char *name, uint32_t *type) {
    const auto found = aaactl::attribute_type(name);
    *type = found.value_or(0);
    return found ? 1 : 0;
}

aaapy_text_t aaapy_meant_attribute(const char *name) {
    return guarded([&] { return aaactl::meant_attribute(name); });
}

const aaapy_advice_t *aaapy_advice_row(uint32_t n) {
    return n + 1 < std::size(kAdvice) ? &kAdvice[n] : nullptr;
}

cerrno aaapy_register_codes(void) {
    return cerr_register_dll(AAA_FACILITY, "cerrno/libaaa_error.dll");
}

}  // extern "C"
