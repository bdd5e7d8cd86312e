// SPDX-License-Identifier: Apache-2.0
//
// One TLS session over a socket that does not block.
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct ssl_ctx_st;
struct ssl_st;
struct x509_store_ctx_st;

namespace net {

class Wire;

class TlsSession {
  public:
    // What a step came to. After kFailed, reason() says why, and the session is of no more use.
    enum class Result { kDone, kWantRead, kWantWrite, kEnded, kFailed };

    // The socket stays the caller's. Without memory the first step fails.
    TlsSession(ssl_ctx_st *context, Wire &socket, const std::string &name);
    ~TlsSession();
    TlsSession(const TlsSession &) = delete;
    TlsSession &operator=(const TlsSession &) = delete;

    // Agrees on keys and checks the server's certificate.
    Result connect();
    // Fills the buffer with at most `size` bytes; `taken` receives how many.
    Result read(char *buffer, std::size_t size, std::size_t &taken);
    // Sends all the bytes, as one record as long as they have no more than 16384. After
    // kWantRead and kWantWrite it must be called again with the same bytes.
    Result write(std::string_view bytes);
    // Has new sessions of a context show their keys to the taps of their loops.
    static void show_keys(ssl_ctx_st *context);
    // Tells the server that nothing more will be sent.
    void shut_down();

    const std::string &reason() const { return reason_; }

  private:
    static int on_verified(int is_good, x509_store_ctx_st *store);
    Result result_of(int rc);
    std::string openssl_failure() const;
    const char *oldest_version() const;
    std::string guess() const;

    Wire &socket_;
    ssl_st *ssl_;
    bool connected_ = false;
    bool received_ = false;  // something, after TLS was agreed on
    const std::string name_;
    std::string mismatch_;  // of the server's names and the expected one
    std::string reason_;
};

}  // namespace net
