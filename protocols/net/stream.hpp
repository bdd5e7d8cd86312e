// SPDX-License-Identifier: Apache-2.0
//
// A connection to a server over TCP, with or without TLS, on a loop.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "net/address.hpp"
#include "net/loop.hpp"

struct ssl_ctx_st;

namespace net {

// How servers are checked and what this side shows them.
struct TlsSettings {
    std::string ca_file;            // certificates that may sign the server's; empty: the system's
    std::string certificate_file;   // this side's certificate chain; empty: none
    std::string key_file;           // its private key
    std::string crl_file = {};      // lists of revoked certificates; empty: revocation is not checked
    bool version_1_3_only = false;  // else TLS 1.2 and later
};

// Settings that were read and checked. It can be used for any number of streams.
class TlsContext {
  public:
    // Null when a file cannot be read or does not fit; `error` then says which and why.
    static std::shared_ptr<const TlsContext> make(const TlsSettings &settings, std::string &error);
    ~TlsContext();
    TlsContext(const TlsContext &) = delete;
    TlsContext &operator=(const TlsContext &) = delete;

  private:
    friend class Stream;
    explicit TlsContext(ssl_ctx_st *context) : context_(context) {}
    ssl_ctx_st *context_;
};

// With whom a TLS stream must be talking. The server's certificate has to hold the name
// among its alternative names, as a name of a host or as an address; the common name of
// the subject does not count (RFC 9525).
struct TlsPeer {
    std::shared_ptr<const TlsContext> context;
    std::string name;
};

class Stream {
  public:
    // Called by the loop's thread. Each may destroy the stream.
    struct Calls {
        std::function<void()> connected;                       // TLS has been agreed on, too
        std::function<void(std::string_view bytes)> received;  // bytes, valid for the call
        std::function<void(std::string_view reason)> closed;   // at most once, and last
    };

    // Begins to connect, from the local address and over the device if they are given. A failure is always
    // reported through closed(), from the loop. With a null peer.context the stream is
    // plain TCP. There is no limit of time: the caller destroys a stream that takes too long.
    Stream(Loop &loop, const Address &server, TlsPeer peer, Calls calls,
           const std::optional<Address> &local = std::nullopt, const std::string &device = {});
    // Closes without calling closed(). What waits to be sent is wiped. TLS is ended properly
    // as far as that does not block.
    ~Stream();
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    // Sends bytes once connected, in order; with TLS each call is a record of its own, for
    // servers that expect a packet in each. What the server does not take yet is kept.
    // False, and nothing is kept, when more than kMaxPending bytes would wait, or after closed().
    [[nodiscard]] bool send(std::string_view bytes);
    // Bytes that wait to be sent.
    std::size_t pending() const;
    bool is_connected() const;

    static constexpr std::size_t kMaxPending = 1 << 20;

  private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace net
