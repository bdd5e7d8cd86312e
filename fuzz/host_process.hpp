// SPDX-License-Identifier: Apache-2.0
//
// The process of a fuzzer that runs against the host platform: a private directory for
// every file that the platform reads or writes, removed at the end, and a socket that
// receives the platform's log.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
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

    ~HostProcess() {
        close(log_);
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

    // Reads and drops the log; no message may contain a control character, which could
    // make one line look like two. Returns the number of lines.
    std::size_t check_log() const {
        char line[8192];
        std::size_t lines = 0;
        for (ssize_t n; (n = recv(log_, line, sizeof line, MSG_DONTWAIT)) >= 0; ++lines) {
            for (ssize_t i = 0; i < n; ++i) {
                REQUIRE(std::iscntrl(static_cast<unsigned char>(line[i])) == 0);
            }
        }
        return lines;
    }

  private:
    HostProcess() : root_(temporary_root()), owner_(getpid()) {
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
        log_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string name = path("log");
        REQUIRE(name.size() < sizeof address.sun_path);
        std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
        REQUIRE(bind(log_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
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

    const std::string root_;
    const pid_t owner_;
    int log_ = -1;
};

}  // namespace fuzz
