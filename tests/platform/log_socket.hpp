// SPDX-License-Identifier: Apache-2.0
//
// The receiving end of a log: a datagram socket from which the test takes the
// messages. A message is available once the call that logged it has returned; at
// most ten wait at a time.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/temp_dir.hpp"

class LogSocket {
  public:
    LogSocket() : path_(dir_.path("log")), fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path_.c_str());
        EXPECT_EQ(0, bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    }
    ~LogSocket() { close(fd_); }
    LogSocket(const LogSocket &) = delete;
    LogSocket &operator=(const LogSocket &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }

    // All waiting messages, unchanged.
    std::vector<std::string> take() {
        std::vector<std::string> out;
        std::vector<char> buffer(65536);
        ssize_t n;
        while ((n = recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT)) >= 0) {
            out.emplace_back(buffer.data(), static_cast<size_t>(n));
        }
        return out;
    }

    // The texts of waiting syslog messages, without "<priority>program[pid]: ".
    std::vector<std::string> take_texts() {
        std::vector<std::string> out = take();
        for (std::string &message : out) {
            const size_t at = message.find("]: ");
            message.erase(0, at == std::string::npos ? 0 : at + 3);
        }
        return out;
    }

  private:
    TempDir dir_;
    std::string path_;
    int fd_;
};

// Sends what this process logs to a LogSocket. Make it before the process logs
// for the first time: the kind of log is chosen then and kept.
class CapturedLog {
  public:
    CapturedLog() {
        setenv("AAA_LOG", "syslog", 1);
        setenv("AAA_SYSLOG_SOCKET", socket_.path().c_str(), 1);
    }
    std::vector<std::string> take() { return socket_.take_texts(); }

    // The only waiting message, or a text that says why there is not exactly one.
    std::string take_one() {
        const std::vector<std::string> all = take();
        return all.size() == 1 ? all[0] : std::to_string(all.size()).append(" messages");
    }

  private:
    LogSocket socket_;
};

// The log of a program whose main() is this.
inline CapturedLog *g_log = nullptr;

inline int run_with_captured_log(int argc, char **argv) {
    CapturedLog log;
    g_log = &log;
    testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    return rc;
}
