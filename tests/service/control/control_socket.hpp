// SPDX-License-Identifier: Apache-2.0
//
// A client of the control socket.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "aaactl/support/json_document.hpp"

namespace control_test {

using aaactl_test::JsonDocument;

class ControlSocket {
  public:
    explicit ControlSocket(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        error_ = connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
    }
    ~ControlSocket() { close(fd_); }
    ControlSocket(const ControlSocket &) = delete;
    ControlSocket &operator=(const ControlSocket &) = delete;

    int error() const { return error_; }  // of connecting
    // False when the service has closed the connection.
    bool send(const std::string &bytes) const {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    void end_of_requests() const { shutdown(fd_, SHUT_WR); }
    // The next line; empty at the end.
    std::string line() {
        std::size_t end;
        while ((end = in_.find('\n')) == std::string::npos) {
            char bytes[65536];
            const ssize_t got = recv(fd_, bytes, sizeof bytes, 0);
            if (got <= 0) {
                return "";
            }
            in_.append(bytes, static_cast<std::size_t>(got));
        }
        const std::string line = in_.substr(0, end);
        in_.erase(0, end + 1);
        return line;
    }
    JsonDocument next() { return JsonDocument::parse(line()); }
    JsonDocument ask(const std::string &request) {
        EXPECT_TRUE(send(request + "\n"));
        return next();
    }
    // What the service remembers.
    std::vector<JsonDocument> kept() {
        std::vector<JsonDocument> events;
        EXPECT_EQ(ask(R"({"request":"trace","live":false})")["reply"], "trace");
        for (JsonDocument event = next(); event["event"] != "end"; event = next()) {
            if (!event.valid()) {
                ADD_FAILURE() << "the trace has no end";
                break;
            }
            events.push_back(event);
        }
        return events;
    }

  private:
    int fd_;
    int error_ = 0;
    std::string in_;
};

}  // namespace control_test
