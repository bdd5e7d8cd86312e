// SPDX-License-Identifier: Apache-2.0
//
// HTTP requests on an event loop: libcurl's transfers, which never block the loop's thread.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "net/loop.hpp"

namespace sysdb_etcd {

// How connections to the servers are made. Empty: not used.
struct TlsFiles {
    std::string authorities;  // PEM, of those who sign the servers' certificates
    std::string certificate;  // this node's, PEM
    std::string key;
};

// How a request ended.
struct HttpResult {
    enum class Kind {
        kReply,    // status and body are the server's
        kNotSent,  // no server has seen the request
        kLost      // it may have been carried out
    };
    Kind kind = Kind::kNotSent;
    long status = 0;
    std::string body;
    std::string reason;  // of a request without reply, for people
    bool too_large = false;
};

class Transfer;

class Transfers {
  public:
    // A reply that is larger is given up.
    static constexpr std::size_t kMostBytes = std::size_t{64} << 20;

    Transfers(net::Loop &loop, TlsFiles tls);
    ~Transfers();
    Transfers(const Transfers &) = delete;
    Transfers &operator=(const Transfers &) = delete;

    bool usable() const { return multi_ != nullptr; }

    struct Request {
        std::string url;
        std::string body;  // posted
        std::string token;
        net::Time timeout = 0;  // for all of it; 0: without end, once it is connected
        net::Time connect_timeout = 2 * net::kSecond;
        // For a reply that comes in parts. The transfer ends, with `done`, when it returns false.
        std::function<bool(std::string_view)> part;
        bool leader_needed = false;  // the server ends a stream when it sees no leader
    };
    using Done = std::function<void(HttpResult)>;

    // Calls `done` once, later, unless the transfer is cancelled before. 0: it cannot be started,
    // and `done` is not called.
    std::uint64_t start(Request request, Done done);
    // Ends it without a call of `done`. May be called in a call of its own.
    void cancel(std::uint64_t id);

  private:
    friend class Transfer;

    static int on_socket(CURL *easy, curl_socket_t socket, int what, void *self, void *data);
    static int on_timer(CURLM *multi, long milliseconds, void *self);
    void act(curl_socket_t socket, int events);
    void deliver_parts();
    void finish(std::uint64_t id, CURLcode code);
    void finish_ended();
    void prepare(CURL *easy, Transfer &transfer) const;
    void release_ended();

    net::Loop &loop_;
    const TlsFiles tls_;
    CURLM *multi_ = nullptr;
    net::Timer timer_;
    std::unordered_map<curl_socket_t, net::Watch> sockets_;
    std::map<std::uint64_t, std::unique_ptr<Transfer>> transfers_;
    std::uint64_t last_id_ = 0;
    bool acting_ = false;  // libcurl is at work, and takes no call for its own work
    std::vector<std::uint64_t> with_parts_;
    std::vector<std::unique_ptr<Transfer>> ended_;
};

}  // namespace sysdb_etcd
