// SPDX-License-Identifier: Apache-2.0
//
// Requests to a cluster: one of several servers is asked, and the next one after a failure; a
// token is fetched with name and password, and renewed when a server does not know it any more.
//
// A request that is lost is not repeated here: only its sender knows whether that is safe.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gateway/messages.hpp"
#include "gateway/transfers.hpp"

namespace sysdb_etcd {

struct ClusterAddress {
    std::vector<std::string> endpoints;  // "https://10.0.0.1:2379"
    TlsFiles tls;
    std::string user;  // empty: without a token
    std::string password;
};

struct Reply {
    enum class Kind {
        kOk,
        kRefused,  // by the cluster, which has changed nothing
        kNotSent,
        kLost  // it may have been carried out
    };
    Kind kind = Kind::kNotSent;
    std::string body;
    int code = 0;        // of gRPC, of a refusal
    std::string reason;  // for people
    bool too_large = false;
};

class Client {
  public:
    static constexpr net::Time kTimeout = 2 * net::kSecond;

    Client(net::Loop &loop, ClusterAddress address);
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    using Done = std::function<void(Reply)>;

    // Calls `done` once, later; not after this object has gone. Asks the present server.
    void call(const char *path, std::string body, Done done, net::Time timeout = kTimeout);
    // The same for one server.
    void call_at(std::size_t endpoint, const char *path, std::string body, Done done,
                 net::Time timeout = kTimeout);

    // A stream of lines from the present server.
    struct Stream {
        std::function<bool(std::string_view)> line;  // the stream ends when it returns false
        std::function<void(Reply)> ended;            // not after cancel()
    };
    // 0: it cannot be started now, and nothing is called.
    std::uint64_t open_stream(const char *path, std::string body, Stream stream);
    void cancel(std::uint64_t stream) { transfers_.cancel(stream); }

    // The server that is asked at present, and the next one.
    std::size_t endpoint() const { return present_; }
    const std::string &endpoint_name() const { return address_.endpoints[present_]; }
    const std::vector<std::string> &endpoints() const { return address_.endpoints; }
    void next_endpoint() { present_ = (present_ + 1) % address_.endpoints.size(); }
    // Unless another request has done so already.
    void leave_endpoint(std::size_t failed);

    // The server has refused a stream that it had begun: the next request may need another token.
    void take_refusal(const std::string &reason);

    // A token is needed and not there yet.
    bool needs_token() const { return !address_.user.empty() && token_.empty(); }
    void fetch_token(std::function<void(Reply)> done);

  private:
    struct Call {
        std::size_t endpoint;
        const char *path;
        std::string body;
        Done done;
        net::Time until;
        bool may_renew = true;
    };
    using CallPtr = std::shared_ptr<Call>;

    void send(const CallPtr &call);
    void answer(const CallPtr &call, HttpResult result, const std::string &token);
    void send_with_new_token(const CallPtr &call);
    void on_token(Reply reply);

    net::Loop &loop_;
    const ClusterAddress address_;
    Transfers transfers_;
    std::size_t present_ = 0;
    std::string token_;
    bool fetching_ = false;
    std::vector<std::function<void(Reply)>> waiting_for_token_;
    // Posted work asks it whether this object is still there.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// Of text from another machine, what may be printed: at most 200 characters of ASCII.
std::string printable(std::string_view text);

// What an HTTP result means.
Reply reply_of(HttpResult result);

}  // namespace sysdb_etcd
