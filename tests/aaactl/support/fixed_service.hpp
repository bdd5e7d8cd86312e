// SPDX-License-Identifier: Apache-2.0
//
// A service at a control socket that says what a test wants.

#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <utility>

namespace aaactl_test {

// Sends fixed bytes to the one client that comes, and closes the connection.
class FixedService {
  public:
    FixedService(const std::string &path, std::string bytes) : bytes_(std::move(bytes)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd_, 1), 0);
        thread_ = std::thread([this] { serve(); });
    }
    ~FixedService() {
        shutdown(fd_, SHUT_RDWR);  // maybe no one has come
        thread_.join();
        close(fd_);
    }
    FixedService(const FixedService &) = delete;
    FixedService &operator=(const FixedService &) = delete;

  private:
    void serve() const {
        const int client = accept(fd_, nullptr, nullptr);
        char request[4096];
        if (client >= 0 && recv(client, request, sizeof request, 0) > 0) {
            for (size_t sent = 0; sent < bytes_.size();) {
                const ssize_t n = send(client, bytes_.data() + sent, bytes_.size() - sent, MSG_NOSIGNAL);
                if (n < 0) {
                    break;
                }
                sent += static_cast<size_t>(n);
            }
        }
        close(client);
    }

    std::string bytes_;
    int fd_;
    std::thread thread_;
};

}  // namespace aaactl_test
