// SPDX-License-Identifier: Apache-2.0

#include "main/notify.hpp"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "net/descriptor.hpp"

namespace service {

Notify::Notify() {
    if (const char *path = std::getenv("NOTIFY_SOCKET")) {
        path_ = path;
        unsetenv("NOTIFY_SOCKET");
    }
}

void Notify::send(const std::string &state) const {
    sockaddr_un address{};
    if (path_.empty() || (path_[0] != '/' && path_[0] != '@') || path_.size() >= sizeof address.sun_path) {
        return;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path_.data(), path_.size());
    if (path_[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path_.size());
    const net::Descriptor fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (fd) {
        sendto(fd.get(), state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
               reinterpret_cast<const sockaddr *>(&address), size);
    }
}

void Notify::ready() const {
    send("READY=1\nSTATUS=Answering requests");
}

void Notify::reloading() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    send("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(now.tv_sec * 1000000 + now.tv_nsec / 1000) +
         "\nSTATUS=Reading the configuration again");
}

void Notify::stopping() const {
    send("STOPPING=1\nSTATUS=Answering what is under way");
}

}  // namespace service
