// SPDX-License-Identifier: Apache-2.0

#include "control/connection.hpp"

#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/log.hpp"
#include "control/json.hpp"

namespace service {

namespace {

constexpr std::size_t kMostRequest = 4096;
constexpr std::size_t kMostBuffered = std::size_t{64} * 1024;
// What a socket takes for a reader that has been given up: what is left of the last frames, and the end.
constexpr int kLastBytes = int{4} * kMostBuffered;

}  // namespace

ControlConnection::ControlConnection(const Host &host, net::Descriptor socket, Peer peer)
    : host_(host),
      socket_(std::move(socket)),
      peer_(std::move(peer)),
      watch_(host.sources.loop, socket_.get(), EPOLLIN, [this](std::uint32_t events) { on_events(events); }),
      patience_(host.sources.loop, [this] { give_up(); }) {
    wait_for_events();
}

// A capture may hold passwords and keys.
ControlConnection::~ControlConnection() {
    out_.resize(out_.capacity());
    explicit_bzero(out_.data(), out_.size());
}

void ControlConnection::give_up() {
    if (capture_ != nullptr) {
        give_up_capture();
    } else if (!out_.empty()) {
        log(Level::kInfo, "CONTROL_STOPPED",
            "client %d of user %u of the control socket reads nothing and is dropped", peer_.pid, peer_.uid);
    }
    host_.remove(this);
}

// The reader may go on one day: its file must then say what is missing, and why. The socket is full, so it
// is made larger for the end.
void ControlConnection::give_up_capture() {
    capture_->drop_queued();
    log(Level::kNotice, "CAPTURE",
        "the capture of client %d of user %u is ended: its reader took nothing for %lld s; it misses %llu "
        "frames",
        peer_.pid, peer_.uid, static_cast<long long>(host_.patience / net::kSecond),
        static_cast<unsigned long long>(capture_->dropped()));
    capture_->finish("the service has ended the capture, because its reader took nothing for " +
                     std::to_string(host_.patience / net::kSecond) + " s");
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &kLastBytes, sizeof kLastBytes);
    write_some();
}

void ControlConnection::on_events(std::uint32_t events) {
    bool goes_on = true;
    if ((events & (EPOLLHUP | EPOLLERR)) != 0 && (events & EPOLLIN) == 0) {
        goes_on = false;
    } else if ((events & EPOLLIN) != 0) {
        goes_on = read_some();
    }
    if (goes_on && write_some()) {
        wait_for_events();
    } else {
        host_.remove(this);
    }
}

void ControlConnection::on_news() {
    if ((follower_ == nullptr && capture_ == nullptr) || out_.size() >= kMostBuffered) {
        return;
    }
    if (write_some()) {
        wait_for_events();
    } else {
        host_.remove(this);
    }
}

// False when the client has closed both directions.
bool ControlConnection::read_some() {
    char bytes[kMostRequest];
    const ssize_t got = recv(socket_.get(), bytes, sizeof bytes, 0);
    if (got < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (got == 0) {
        reads_ = false;  // it may still read what it has asked for
        if (capture_ != nullptr) {
            capture_->finish();
        }
        return true;
    }
    in_.append(bytes, static_cast<std::size_t>(got));
    take_lines();
    return true;
}

// Requests wait while their answers cannot be sent.
void ControlConnection::take_lines() {
    while (reads_ && out_.size() < kMostBuffered) {
        const std::size_t end = in_.find('\n');
        if (std::min(end, in_.size()) > kMostRequest) {
            out_ += error_line("too-long", "a request has at most 4096 bytes");
            in_.clear();
            reads_ = false;
        } else if (end == std::string::npos) {
            return;
        } else {
            const std::string line = in_.substr(0, end);
            in_.erase(0, end + 1);
            handle(line);
        }
    }
}

void ControlConnection::handle(std::string_view line) {
    using Kind = ControlRequest::Kind;
    if (capture_ != nullptr) {
        return;  // a line of JSON among the blocks would end the capture
    }
    std::string error;
    auto request = read_control_request(line, error);
    if (!request) {
        out_ += error_line("bad-request", error);
        return;
    }
    if (follower_ != nullptr) {  // an answer follows the steps until now
        follower_->append_to(out_, kMostBuffered);
    }
    switch (request->kind) {
        case Kind::kStatus:
            out_ += status_line(host_.sources, host_.clients());
            break;
        case Kind::kServers:
            out_ += servers_line(host_.sources);
            break;
        case Kind::kSessions:
        case Kind::kAccounting:
            out_ += figures_line(host_.sources, request->kind);
            break;
        case Kind::kTrace:
            start_trace(*std::move(request));
            break;
        case Kind::kCapture:
            start_capture(*request);
            break;
    }
}

// A second trace takes the place of the first.
void ControlConnection::start_trace(ControlRequest request) {
    out_ += trace_line(host_.sources);
    follower_ = std::make_unique<TraceFollower>(host_.sources.trace, std::move(request), peer_.pid,
                                                net::Loop::clock());
}

// Operators may see messages. Passwords, and what deciphers them, are for root, as files of keys are.
void ControlConnection::start_capture(const ControlRequest &request) {
    if ((request.secrets || request.servers || request.keys) && peer_.uid != 0 && peer_.uid != geteuid()) {
        out_ += error_line("not-allowed",
                           "only root may capture secrets, the traffic with servers and keys; use sudo");
        return;
    }
    if (host_.sources.capture.readers() >= Capture::kMostReaders) {
        out_ += error_line("too-many", "too many captures run already; end one, and try again");
        return;
    }
    // A name may be bytes that JSON cannot have.
    CaptureOptions options{request.user, request.secrets, request.servers, request.keys, as_utf8};
    log(request.secrets || request.keys ? Level::kWarning : Level::kNotice, "CAPTURE",
        "client %d of user %u captures messages%s%s%s", peer_.pid, peer_.uid,
        request.secrets ? " with their secrets" : "", request.servers ? ", traffic with servers" : "",
        request.keys ? ", the keys of servers" : "");
    follower_.reset();
    out_ += capture_line(options);
    capture_ = std::make_unique<CaptureReader>(host_.sources.capture, std::move(options));
}

void ControlConnection::end_capture() {
    if (capture_ != nullptr) {
        capture_->finish("the service has ended");
        on_news();
    }
}

void ControlConnection::append_new() {
    if (follower_ != nullptr) {
        follower_->append_to(out_, kMostBuffered);
        if (follower_->has_ended()) {
            follower_.reset();
        }
    }
    if (capture_ != nullptr) {
        capture_->append_to(out_, kMostBuffered);
        if (capture_->has_ended()) {
            log(Level::kNotice, "CAPTURE", "the capture of client %d of user %u has ended", peer_.pid,
                peer_.uid);
            capture_.reset();
            reads_ = false;
        }
    }
}

bool ControlConnection::write_some() {
    for (;;) {
        append_new();
        if (out_.empty()) {
            return !is_done();
        }
        const ssize_t sent = send(socket_.get(), out_.data(), out_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        patience_.cancel();  // it reads
        out_.erase(0, static_cast<std::size_t>(sent));
        take_lines();
    }
}

bool ControlConnection::is_done() const {
    return !reads_ && follower_ == nullptr && capture_ == nullptr;
}

void ControlConnection::wait_for_events() {
    const bool reads = reads_ && out_.size() < kMostBuffered && in_.size() <= kMostRequest;
    watch_.want((reads ? EPOLLIN : 0u) | (out_.empty() ? 0u : EPOLLOUT));
    if (out_.empty() && (follower_ != nullptr || capture_ != nullptr)) {
        patience_.cancel();  // a user who is watched may be quiet for days
    } else if (!patience_.is_set()) {
        patience_.set(host_.sources.loop.now() + host_.patience);
    }
}

}  // namespace service
