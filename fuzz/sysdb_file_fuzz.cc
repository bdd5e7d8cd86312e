// SPDX-License-Identifier: Apache-2.0
//
// A file of the system database with any bytes overwritten. It must be refused, or it
// can be read, listed, watched, changed and emptied without a crash or a hang. Stored
// values are read back, and a changed file passes the same check again.
//
// The check of its head and pages, in memory, comes first. A process that opens the file
// must refuse what the check refuses; while fuzzing, this and the use of an accepted file
// are tried for a part of the inputs only, because they take a hundred times as long.
//
// The input is a sequence of patches to a sound file: page (2 bytes), offset
// in it (2 bytes), width and mode (1 byte), value (8 bytes, little-endian).
// Bit 7 of the mode truncates the file there instead.

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "database.hpp"
#include "fuzz_input.hpp"
#include "host_process.hpp"
#include "page_check.hpp"
#include "platform/sysdb_provider.h"
#include "watch_table.hpp"

namespace {

// The provider checks once a second whether its file has been replaced.
constinit std::atomic<std::time_t> g_coarse_seconds{1};

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    if (clock == CLOCK_MONOTONIC_COARSE) {
        *now = {g_coarse_seconds.load(std::memory_order_relaxed), 0};
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
}

namespace {

using namespace sysdb_lmdb;

constexpr char kTop[] = "/oper/";
constexpr std::size_t kPage = 4096;
constexpr int kNewItems = 24;

const sysdb_provider_t *g_provider = nullptr;
std::string g_sound;  // a file as the provider writes it
std::string g_line;   // that the provider has logged last

void keep_line(uint32_t, const char *, const char *text) {
    g_line = text;
}
int any_value(uint32_t, const void *, uint32_t) {
    return 1;
}
constexpr sysdb_host_t kHost = {SYSDB_PROVIDER_ABI, sizeof(sysdb_host_t), keep_line, any_value};

std::string file_name() {
    return fuzz::HostProcess::instance().path("run/oper.mdb");
}

// Whether a code reports a damaged or a full file.
bool is_refusal(cerrno rc) {
    static const std::set<cerrno> codes{SYSDB_ERR_CORRUPT, SYSDB_ERR_STORAGE, SYSDB_ERR_FULL, SYSDB_ERR_BUSY};
    return codes.count(rc) != 0;
}

// ---- a process that uses the database -------------------------------------------------

class User {
  public:
    User() { bound_ = g_provider->bind(&conn_, kTop, SYSDB_BIND_PRIVATE); }
    ~User() {
        if (bound_ == 0) {
            g_provider->unbind(conn_);
        }
    }
    User(const User &) = delete;
    User &operator=(const User &) = delete;

    [[nodiscard]] cerrno bound() const { return bound_; }

    void list(const std::string &directory, unsigned depth) {
        uint32_t count = 0;
        sysdb_list_t list = nullptr;
        if (!succeeds(g_provider->list(conn_, directory.c_str(), "", &count, &list, 0))) {
            return;
        }
        REQUIRE(count <= g_sound.size());
        char *name = nullptr;
        uint32_t type = 0;
        while (g_provider->list_next(list, &name, &type, 0) == 0) {
            const std::string path = directory + name;
            if (type != SYSDB_TYPE_DIRECTORY) {
                get(path);
            } else if (depth > 0) {
                this->list(path, depth - 1);
            }
        }
        g_provider->list_free(list);
        if (succeeds(g_provider->directory_get_last(conn_, directory.c_str(), &name, &type, 0))) {
            std::free(name);
        }
    }

    void watch_everything() {
        uint64_t id = 0;
        const auto ignore = [](const void *, void *, void *) -> int32_t { return 0; };
        succeeds(g_provider->register_notification(conn_, "", 6, 3, ignore, nullptr, nullptr, &id));
    }

    void change() {
        for (int i = 0; i < kNewItems; ++i) {
            set("new/" + std::to_string(i * 37 % kNewItems),
                std::string(static_cast<std::size_t>(i) * 13, 'n'));
        }
        set("big/0", std::string(3 * kPage, 'b'));
        succeeds(g_provider->dispatch(conn_));
        succeeds(g_provider->item_delete(conn_, "fill/0x3/item", 0));
        for (const char *directory : {"new", "fill", "big", ""}) {
            succeeds(g_provider->item_delete(conn_, directory, SYSDB_DELETE_TREE));
        }
        set("last", "word");
        succeeds(g_provider->dispatch(conn_));
        sweep_watchers();
    }

    // A file that was accepted and then changed without an error must be sound.
    void check_file() const {
        const int fd = open(file_name().c_str(), O_RDONLY | O_CLOEXEC);
        bool stale = false;
        const char *fault = nullptr;
        const cerrno rc = Database::instance().read(Tree::kOper, [&](const ReadTxn &txn) -> cerrno {
            fault = find_page_fault(fd, mdb_txn_id(txn.get()), stale);
            return 0;
        });
        close(fd);
        if (fault != nullptr) {
            std::fprintf(stderr, "after the changes: %s\n", fault);
        }
        REQUIRE(complained_ || rc != 0 || (fault == nullptr && !stale));
    }

  private:
    bool succeeds(cerrno rc) {
        REQUIRE(rc == 0 || rc == SYSDB_ERR_NOT_FOUND || rc == SYSDB_ERR_BAD_VALUE ||
                rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG || is_refusal(rc));
        complained_ = complained_ || is_refusal(rc);
        return rc == 0;
    }

    std::string get(const std::string &path) {
        uint32_t type = SYSDB_TYPE_ANY;
        void *value = nullptr;
        uint32_t length = 0;
        if (!succeeds(g_provider->item_get(conn_, path.c_str(), &type, &value, &length, 0))) {
            return "";
        }
        const std::unique_ptr<void, void (*)(void *)> owner(value, std::free);
        return {static_cast<const char *>(value), length};
    }

    void set(const std::string &path, const std::string &value) {
        if (succeeds(g_provider->item_set(conn_, path.c_str(), 7, value.data(),
                                          static_cast<uint32_t>(value.size()), 1)) &&
            !complained_) {
            REQUIRE(get(path) == value || complained_);
        }
    }

    sysdb_conn_t conn_ = 0;
    cerrno bound_;
    bool complained_ = false;
};

// ---- files ------------------------------------------------------------------------

// Replaces the file as an administrator does: writes another one, then renames it.
void put_in_place(const std::string &bytes) {
    const std::string temporary = file_name() + ".new";
    fuzz::HostProcess::write(temporary, bytes);
    REQUIRE(std::rename(temporary.c_str(), file_name().c_str()) == 0);
    g_coarse_seconds.fetch_add(2, std::memory_order_relaxed);
}

void store(sysdb_conn_t conn, const std::string &path, const std::string &value) {
    REQUIRE(g_provider->item_set(conn, path.c_str(), 7, value.data(), static_cast<uint32_t>(value.size()),
                                 1) == 0);
}

// Pages of every kind: branches, values on overflow pages, keys with few
// and with many values, pages that are free again.
void make_sound_file() {
    sysdb_conn_t conn = 0;
    REQUIRE(g_provider->bind(&conn, kTop, SYSDB_BIND_PRIVATE) == 0);
    for (int i = 0; i < 60; ++i) {
        store(conn, "fill/0x" + std::to_string(i) + "/item", std::string(100, 'x'));
    }
    store(conn, "big/0", std::string(2 * kPage, 'B'));
    store(conn, "big/1", std::string(5 * kPage, 'C'));
    store(conn, "gone", std::string(3 * kPage, 'g'));
    REQUIRE(g_provider->item_delete(conn, "gone", 0) == 0);
    for (unsigned i = 0; i < 150; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "%u.%08x", 1000000000 + i, i);
        REQUIRE(add_watch("/oper/many", name) == 0);
        REQUIRE(i > 4 || add_watch("/oper/few", name) == 0);
    }
    REQUIRE(g_provider->unbind(conn) == 0);
    std::ostringstream bytes;
    bytes << std::ifstream(file_name(), std::ios::binary).rdbuf();
    g_sound = bytes.str();
    REQUIRE(g_sound.size() > 20 * kPage);
}

// The sound file with an input's patches, until the next input.
class PatchedFile {
  public:
    explicit PatchedFile(fuzz::Input input) : size_(bytes().size()) {
        while (!input.empty()) {
            const std::size_t page = input.number(2) % (g_sound.size() / kPage + 1);
            const std::size_t at = page * kPage + input.number(2) % kPage;
            const uint8_t mode = input.byte();
            const uint64_t value = input.number(8);
            const std::size_t width = std::size_t{1} << (mode & 3);
            if ((mode & 0x80) != 0) {
                size_ = std::min(size_, at);
            } else if (at + width <= size_) {
                bytes().replace(at, width, reinterpret_cast<const char *>(&value), width);
                patches_.emplace_back(at, width);
            }
        }
    }
    ~PatchedFile() {
        for (const auto &[at, width] : patches_) {
            bytes().replace(at, width, g_sound, at, width);
        }
    }
    PatchedFile(const PatchedFile &) = delete;
    PatchedFile &operator=(const PatchedFile &) = delete;

    [[nodiscard]] std::string_view view() const { return std::string_view(bytes()).substr(0, size_); }

  private:
    // Copied once: most inputs change a few bytes of a hundred thousand.
    static std::string &bytes() {
        static std::string copy = g_sound;
        return copy;
    }

    std::size_t size_;
    std::vector<std::pair<std::size_t, std::size_t>> patches_;
};

// The reason for which a file cannot be used; none when the line was logged recently.
std::string reason_in(const std::string &line) {
    static const std::string before = " cannot be used: ";
    const std::size_t at = line.find(before);
    return at != std::string::npos ? line.substr(at + before.size(), line.find(';', at) - at - before.size())
                                   : "";
}

// Opens the file as a process does, and uses it unless it is refused.
void open_and_use(std::string_view file, const char *fault) {
    static const std::set<std::string> of_pages{"it is truncated", "a page is damaged",
                                                "a page is used twice", "its head is damaged",
                                                "the list of free pages is damaged"};
    put_in_place(std::string(file));
    g_line.clear();
    User user;
    REQUIRE(user.bound() == 0 || is_refusal(user.bound()));
    REQUIRE(fault == nullptr || user.bound() != 0);
    REQUIRE(file != g_sound || user.bound() == 0);
    const std::string reason = reason_in(g_line);
    REQUIRE(fault != nullptr ? reason.empty() || reason == fault : of_pages.count(reason) == 0);
    if (user.bound() == 0) {
        user.watch_everything();
        user.list("", 4);
        user.change();
        user.list("", 4);
        user.check_file();
    }
}

void prepare() {
    fuzz::HostProcess::instance();
    g_provider = sysdb_provider_table(SYSDB_PROVIDER_ABI, &kHost);
    make_sound_file();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const bool prepared = (prepare(), true);
    static_cast<void>(prepared);
    const PatchedFile file({data, size});
    // An empty file is new, not truncated.
    const char *fault = file.view().empty() ? nullptr : find_fault(file.view());
    REQUIRE(fault == nullptr || size != 0);
    if (fuzz::Sample(data, size).one_in(fault != nullptr ? 256 : 64)) {
        open_and_use(file.view(), fault);
    }
    return 0;
}
