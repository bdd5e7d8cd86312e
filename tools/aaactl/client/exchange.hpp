// SPDX-License-Identifier: Apache-2.0
//
// A conversation with an AAA server over its socket: requests go out as the
// library composed them, replies come in through the checked entry points.

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "aaa/aaautil.h"
#include "aaa/cpp/list.hpp"
#include "aaa/transport.h"

namespace aaactl {

struct FreeTransport {
    void operator()(aaa_transport_t *transport) const { aaa_transport_free(transport); }
};

struct Reply {
    cerrno result = AAA_OK;  // what the header says about the processing of the request
    aaa::list list;          // an empty handle when the reply carries none
};

// What a compose routine of the library writes into and gives out.
struct Composition {
    union {
        aaa_req_hdr_t header;
        aaa_sess_request_t packet;
    } record{};
    iov_t *iov = nullptr;
    uint32_t count = 0;
    char buffer[16384] = {};
    uint32_t session = 0;

    Composition() = default;
    ~Composition();  // wipes: the packed list may hold a password
    Composition(const Composition &) = delete;
    Composition &operator=(const Composition &) = delete;
};

class Exchange {
  public:
    // Failure(unavailable) when no server listens. `seconds` limits connecting, sending and each reply; 0
    // means no limit.
    Exchange(std::string socket, unsigned seconds, bool session);
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;

    // Sends what `compose` composes, a request of the given type, and gives back the reply to it.
    // Failure(unavailable): no reply. Failure(bad_input): one that is malformed, and where.
    Reply ask(uint32_t type, const std::function<cerrno(Composition &)> &compose);

  private:
    void send(Composition &composed);
    Reply receive(uint32_t type);
    int64_t deadline() const;
    [[noreturn]] void unreachable(const std::string &what, cerrno rc) const;

    std::string socket_;
    unsigned seconds_;
    bool session_;
    std::unique_ptr<aaa_transport_t, FreeTransport> transport_;
};

// The text of an attribute up to its NUL or its end; "" without one.
std::string text_attribute(const aaa::list &list, uint32_t type);
// A four-byte number; nullopt without one.
std::optional<uint32_t> number_attribute(const aaa::list &list, uint32_t type);

}  // namespace aaactl
