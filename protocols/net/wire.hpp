// SPDX-License-Identifier: Apache-2.0
//
// A socket of a TCP connection to a server, and the loop's tap of what it sends and receives.
#pragma once

#include <sys/types.h>

#include <string_view>

#include "net/descriptor.hpp"
#include "net/loop.hpp"
#include "net/tap.hpp"

namespace net {

class Wire {
  public:
    explicit Wire(Loop &loop) : loop_(loop) {}
    ~Wire() { close(); }
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    // Takes over a socket that is being connected.
    void use(Descriptor socket, const Address &server);
    int get() const { return socket_.get(); }
    explicit operator bool() const { return static_cast<bool>(socket_); }
    void connected();
    // As send() without SIGPIPE, and recv(); errno is that of the call.
    ssize_t send(std::string_view bytes);
    ssize_t receive(char *buffer, std::size_t size);
    void close();

    Loop &loop() const { return loop_; }

  private:
    Tap::Path path() const;
    void show(Tap::Way way, std::string_view bytes) const;

    Loop &loop_;
    Descriptor socket_;
    Address server_;
    bool is_connected_ = false;
    bool has_ended_ = false;  // the server has closed its side
};

}  // namespace net
