// SPDX-License-Identifier: Apache-2.0

#include "net/wire.hpp"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace net {

void Wire::use(Descriptor socket, const Address &server) {
    socket_ = std::move(socket);
    server_ = server;
}

Tap::Path Wire::path() const {
    return {Address::local_of(socket_.get()), server_};
}

void Wire::show(Tap::Way way, std::string_view bytes) const {
    const int error = errno;
    loop_.tap()->bytes(path(), way, bytes);
    errno = error;
}

void Wire::connected() {
    is_connected_ = true;
    if (loop_.tap() != nullptr) {
        loop_.tap()->opened(path());
    }
}

ssize_t Wire::send(std::string_view bytes) {
    const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0 && loop_.tap() != nullptr) {
        show(Tap::Way::kSent, bytes.substr(0, static_cast<std::size_t>(sent)));
    }
    return sent;
}

ssize_t Wire::receive(char *buffer, std::size_t size) {
    const ssize_t taken = recv(socket_.get(), buffer, size, 0);
    if (taken > 0 && loop_.tap() != nullptr) {
        show(Tap::Way::kReceived, {buffer, static_cast<std::size_t>(taken)});
    }
    has_ended_ = has_ended_ || taken == 0;
    return taken;
}

void Wire::close() {
    if (socket_ && is_connected_ && loop_.tap() != nullptr) {
        loop_.tap()->closed(path(), has_ended_ ? Tap::Way::kReceived : Tap::Way::kSent);
    }
    is_connected_ = false;
    socket_.reset();
}

}  // namespace net
