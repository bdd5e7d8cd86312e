// SPDX-License-Identifier: Apache-2.0
//
// The process of a fuzzer that runs against the host platform: a private directory for
// every file that the platform reads or writes, removed at the end, and a check of the
// platform's log.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "fuzz_input.hpp"

namespace fuzz {

class HostProcess {
  public:
    // Made on first use, before the platform reads its settings.
    static HostProcess &instance() {
        static HostProcess process;
        return process;
    }
    // Null before the first use and at the end of the process, when libraries may still log.
    static const HostProcess *current() { return current_; }

    ~HostProcess() {
        current_ = nullptr;
        if (getpid() == owner_) {
            std::error_code ignored;
            std::filesystem::remove_all(root_, ignored);
        }
    }
    HostProcess(const HostProcess &) = delete;
    HostProcess &operator=(const HostProcess &) = delete;

    [[nodiscard]] std::string path(const std::string &name) const { return root_ + "/" + name; }

    // A file with these bytes and no rights for others.
    static void write(const std::string &file, const std::string &bytes) {
        const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        REQUIRE(fd >= 0);
        REQUIRE(::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
        close(fd);
    }

    // No line of the log may contain a control character, which could make it look like
    // two. Returns whether this is the address of the log.
    [[nodiscard]] bool takes_log_line(const sockaddr *address, const void *line, std::size_t size) const {
        const auto *name = reinterpret_cast<const sockaddr_un *>(address);
        if (address == nullptr || address->sa_family != AF_UNIX || path("log") != name->sun_path) {
            return false;
        }
        const std::string_view text(static_cast<const char *>(line), size);
        for (const char c : text) {
            REQUIRE(std::iscntrl(static_cast<unsigned char>(c)) == 0);
        }
        return true;
    }

  private:
    HostProcess() : root_(temporary_root()), owner_(getpid()) {
        current_ = this;
        set("AAA_MASTER_KEYS", path("master.keys"));
        set("AAA_LINES_CONF", path("lines.conf"));
        set("AAA_UTMP", path("utmp"));
        set("AAA_SYSDB_CFG_DIR", path("cfg"));
        set("AAA_SYSDB_RUN_DIR", path("run"));
        set("AAA_SYSDB_MAP_MIB", "1");
#ifdef AAA_SYSDB_PROVIDER_FILE
        set("AAA_SYSDB_PROVIDER", AAA_SYSDB_PROVIDER_FILE);
#endif
        set("AAA_LOG", "syslog");
        set("AAA_SYSLOG_SOCKET", path("log"));
        REQUIRE(path("log").size() < sizeof sockaddr_un{}.sun_path);
    }

    static void set(const char *name, const std::string &value) {
        setenv(name, value.c_str(), 1);
    }

    // In memory, because it is faster than a disk.
    static std::string temporary_root() {
        const char *base = std::getenv("TMPDIR");
        if (base == nullptr || *base == '\0') {
            base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        }
        std::string name = std::string(base) + "/aaa-fuzz.XXXXXX";
        REQUIRE(mkdtemp(name.data()) != nullptr);
        return name;
    }

    static inline const HostProcess *current_ = nullptr;
    const std::string root_;
    const pid_t owner_;
};

}  // namespace fuzz

// Takes precedence over the C library's. A socket that receives the log would be full
// after ten lines, and the platform would wait for its reader. Not inline: the definition
// would be weak, and clang's address sanitizer has a weak one too, which would be taken.
extern "C" [[gnu::used]] ssize_t sendto(int fd, const void *data, std::size_t size, int flags,
                                        const sockaddr *address, socklen_t length) {
    const fuzz::HostProcess *process = fuzz::HostProcess::current();
    if (process != nullptr && process->takes_log_line(address, data, size)) {
        return static_cast<ssize_t>(size);
    }
    return syscall(SYS_sendto, fd, data, size, flags, address, length);
}
