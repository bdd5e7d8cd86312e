// SPDX-License-Identifier: Apache-2.0
//
// Servers that answer what a test wants.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "gateway/client.hpp"

namespace etcd_test {

// A server that answers each request with the bytes that a function gives; none: it keeps silent.
class Server {
  public:
    using Answer = std::function<std::string(const std::string &request)>;

    explicit Server(Answer answer) : answer_(std::move(answer)) {
        listening_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(0, bind(listening_, reinterpret_cast<sockaddr *>(&address), size));
        EXPECT_EQ(0, getsockname(listening_, reinterpret_cast<sockaddr *>(&address), &size));
        EXPECT_EQ(0, listen(listening_, 16));
        url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        accepting_ = std::thread([this] { accept_all(); });
    }
    ~Server() {
        shutdown(listening_, SHUT_RDWR);
        accepting_.join();
        {
            const std::lock_guard lock(mutex_);
            for (const int fd : open_) {
                shutdown(fd, SHUT_RDWR);
            }
        }
        for (std::thread &each : serving_) {
            each.join();
        }
        close(listening_);
    }
    const std::string &url() const { return url_; }
    int requests() const { return requests_; }

  private:
    void accept_all() {
        for (int fd; (fd = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            const std::lock_guard lock(mutex_);
            open_.push_back(fd);
            serving_.emplace_back([this, fd] { serve(fd); });
        }
    }
    void serve(int fd) {
        std::string bytes;
        char buffer[65536];
        for (ssize_t count; (count = recv(fd, buffer, sizeof buffer, 0)) > 0;) {
            bytes.append(buffer, static_cast<std::size_t>(count));
            const std::size_t head = bytes.find("\r\n\r\n");
            const std::size_t length = bytes.find("Content-Length: ");
            if (head == std::string::npos || length == std::string::npos ||
                bytes.size() < head + 4 + std::stoul(bytes.substr(length + 16))) {
                continue;
            }
            ++requests_;
            const std::string answer = answer_(bytes);
            bytes.clear();
            for (std::size_t sent = 0; sent < answer.size();) {
                const ssize_t part = send(fd, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
                if (part <= 0) {
                    break;
                }
                sent += static_cast<std::size_t>(part);
            }
            if (answer.find("Connection: close") != std::string::npos) {
                break;
            }
        }
        const std::lock_guard lock(mutex_);
        std::erase(open_, fd);
        close(fd);
    }

    Answer answer_;
    int listening_;
    std::string url_;
    std::atomic<int> requests_ = 0;
    std::mutex mutex_;
    std::vector<int> open_;
    std::vector<std::thread> serving_;
    std::thread accepting_;
};

inline std::string http(const std::string &status, const std::string &body, const std::string &more = "") {
    return "HTTP/1.1 " + status + "\r\n" + more + "Content-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

inline sysdb_etcd::ClusterAddress address_of(const std::vector<std::string> &endpoints) {
    sysdb_etcd::ClusterAddress address;
    address.endpoints = endpoints;
    return address;
}

// A port on which no one listens.
inline std::string nowhere() {
    return Server([](const std::string &) { return std::string(); }).url();
}

}  // namespace etcd_test
