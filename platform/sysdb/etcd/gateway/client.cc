// SPDX-License-Identifier: Apache-2.0

#include "gateway/client.hpp"

#include <algorithm>
#include <utility>

namespace sysdb_etcd {
namespace {

// Codes of gRPC.
constexpr int kUnknown = 2;
constexpr int kDeadlineExceeded = 4;
constexpr int kInternal = 13;
constexpr int kUnavailable = 14;
constexpr int kUnauthenticated = 16;
constexpr int kCancelled = 1;

// The member has passed the request on, and does not know what became of it.
bool leaves_outcome_open(int code) {
    return code == kCancelled || code == kUnknown || code == kDeadlineExceeded || code == kInternal ||
           code == kUnavailable;
}

bool wants_another_token(const Reply &reply) {
    return reply.kind != Reply::Kind::kOk &&
           (reply.code == kUnauthenticated || reply.reason.find("invalid auth token") != std::string::npos ||
            reply.reason.find("revision of auth store is old") != std::string::npos);
}

const std::string kMostText = std::to_string(Transfers::kMostBytes >> 20) + " MiB";

}  // namespace

std::string printable(std::string_view text) {
    constexpr std::size_t kMost = 200;
    std::string result(text.substr(0, kMost));
    for (char &c : result) {
        c = c < ' ' || c > '~' ? '?' : c;
    }
    return result;
}

Reply reply_of(HttpResult result) {
    Reply reply;
    reply.too_large = result.too_large;
    if (result.kind != HttpResult::Kind::kReply) {
        reply.kind = result.kind == HttpResult::Kind::kLost ? Reply::Kind::kLost : Reply::Kind::kNotSent;
        reply.reason =
            result.too_large ? "the server's reply has more than " + kMostText : printable(result.reason);
        return reply;
    }
    reply.reason = excess_of(result.body);
    if (!reply.reason.empty()) {
        reply.kind = Reply::Kind::kLost;
        return reply;
    }
    if (result.status == 200) {
        reply.kind = Reply::Kind::kOk;
        reply.body = std::move(result.body);
        return reply;
    }
    ErrorReply error;
    if (!parse_error(result.body, error)) {
        // Of something between this node and the server, perhaps after the server was asked.
        reply.kind = Reply::Kind::kLost;
        reply.reason = "HTTP status " + std::to_string(result.status);
        return reply;
    }
    reply.kind = leaves_outcome_open(error.code) ? Reply::Kind::kLost : Reply::Kind::kRefused;
    reply.code = error.code;
    reply.reason = printable(error.message);
    return reply;
}

Client::Client(net::Loop &loop, ClusterAddress address)
    : loop_(loop), address_(std::move(address)), transfers_(loop, address_.tls) {}

Client::~Client() {
    *alive_ = false;
}

void Client::take_refusal(const std::string &reason) {
    Reply reply;
    reply.reason = reason;
    if (wants_another_token(reply)) {
        token_.clear();
    }
}

void Client::leave_endpoint(std::size_t failed) {
    if (present_ == failed) {
        next_endpoint();
    }
}

void Client::call(const char *path, std::string body, Done done, net::Time timeout) {
    call_at(present_, path, std::move(body), std::move(done), timeout);
}

void Client::call_at(std::size_t endpoint, const char *path, std::string body, Done done, net::Time timeout) {
    const auto call = std::make_shared<Call>(
        Call{endpoint, path, std::move(body), std::move(done), net::Loop::clock() + timeout});
    if (needs_token()) {
        send_with_new_token(call);
    } else {
        send(call);
    }
}

void Client::send(const CallPtr &call) {
    Transfers::Request request;
    request.url = address_.endpoints[call->endpoint] + call->path;
    request.body = call->body;
    request.token = token_;
    request.timeout = std::max(call->until - net::Loop::clock(), net::kMillisecond);
    request.connect_timeout = request.timeout;
    const std::uint64_t id = transfers_.start(
        std::move(request),
        [this, call, token = token_](HttpResult result) { answer(call, std::move(result), token); });
    if (id == 0) {
        loop_.post([call, alive = alive_] {
            if (*alive) {
                Reply reply;
                reply.reason = "no memory for a request";
                call->done(std::move(reply));
            }
        });
    }
}

void Client::answer(const CallPtr &call, HttpResult result, const std::string &token) {
    Reply reply = reply_of(std::move(result));
    if (wants_another_token(reply) && !address_.user.empty()) {
        if (token == token_) {  // else it was renewed meanwhile
            token_.clear();
        }
        // A member refuses an unknown token before it does anything else.
        if (call->may_renew && net::Loop::clock() < call->until) {
            call->may_renew = false;
            if (needs_token()) {
                send_with_new_token(call);
            } else {
                send(call);
            }
            return;
        }
        reply.kind = Reply::Kind::kRefused;
    }
    if (reply.kind == Reply::Kind::kNotSent || reply.kind == Reply::Kind::kLost) {
        leave_endpoint(call->endpoint);
    }
    call->done(std::move(reply));
}

void Client::send_with_new_token(const CallPtr &call) {
    fetch_token([this, call](Reply reply) {
        if (reply.kind == Reply::Kind::kOk) {
            send(call);
        } else {
            if (reply.kind == Reply::Kind::kLost) {
                reply.kind = Reply::Kind::kNotSent;  // the request itself
            }
            call->done(std::move(reply));
        }
    });
}

// One request for all who wait.
void Client::fetch_token(std::function<void(Reply)> done) {
    waiting_for_token_.push_back(std::move(done));
    if (std::exchange(fetching_, true)) {
        return;
    }
    Transfers::Request request;
    const std::size_t endpoint = present_;
    request.url = address_.endpoints[endpoint] + kAuthenticatePath;
    request.body = authenticate_request(address_.user, address_.password);
    request.timeout = kTimeout;
    const std::uint64_t id = transfers_.start(std::move(request), [this, endpoint](HttpResult result) {
        Reply reply = reply_of(std::move(result));
        if (reply.kind == Reply::Kind::kOk && !parse_token(reply.body, token_)) {
            reply.kind = Reply::Kind::kRefused;
            reply.reason = "the server sent no token";
        }
        if (reply.kind == Reply::Kind::kNotSent || reply.kind == Reply::Kind::kLost) {
            leave_endpoint(endpoint);
        }
        on_token(std::move(reply));
    });
    if (id == 0) {
        loop_.post([this, alive = alive_] {
            if (*alive) {
                Reply reply;
                reply.reason = "no memory for a request";
                on_token(std::move(reply));
            }
        });
    }
}

void Client::on_token(Reply reply) {
    fetching_ = false;
    const auto alive = alive_;
    for (const auto &done : std::exchange(waiting_for_token_, {})) {
        if (!*alive) {
            return;
        }
        done(reply);
    }
}

std::uint64_t Client::open_stream(const char *path, std::string body, Stream stream) {
    Transfers::Request request;
    request.url = address_.endpoints[present_] + path;
    request.body = std::move(body);
    request.token = token_;
    request.leader_needed = true;
    const auto buffer = std::make_shared<std::string>();
    const auto fault = std::make_shared<std::string>();
    request.part = [buffer, fault, line = std::move(stream.line)](std::string_view data) {
        std::size_t searched = buffer->size();
        if (data.size() > Transfers::kMostBytes - buffer->size()) {
            return false;
        }
        *buffer += data;
        std::size_t begin = 0;
        for (std::size_t end; (end = buffer->find('\n', searched)) != std::string::npos; searched = begin) {
            const std::string_view one(buffer->data() + begin, end - begin);
            begin = end + 1;
            *fault = excess_of(one);
            if (!fault->empty() || (!one.empty() && !line(one))) {
                return false;
            }
        }
        buffer->erase(0, begin);
        return true;
    };
    return transfers_.start(std::move(request), [this, buffer, fault, token = token_,
                                                 ended = std::move(stream.ended)](HttpResult result) {
        const bool full = buffer->size() > Transfers::kMostBytes / 2;
        Reply reply = reply_of(std::move(result));
        reply.too_large = reply.too_large || full;
        if (reply.too_large) {
            reply.reason = "a line of the server's stream has more than " + kMostText;
        } else if (!fault->empty()) {
            reply.reason = *fault;
        }
        if (wants_another_token(reply) && token == token_) {
            token_.clear();
        }
        ended(std::move(reply));
    });
}

}  // namespace sysdb_etcd
