// SPDX-License-Identifier: Apache-2.0
//
// A connection to a server over TCP, with or without TLS.
#include "net/stream.hpp"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/crypto.h>
#include <sys/epoll.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>

#include "net/device.hpp"
#include "net/tls.hpp"
#include "net/wire.hpp"

namespace net {

namespace {

constexpr std::size_t kReadSize = 16384;  // the most that a record of TLS holds
constexpr int kReadsPerRound = 8;         // then other descriptors have their turn

}  // namespace

class Stream::Impl : public std::enable_shared_from_this<Stream::Impl> {
  public:
    Impl(Loop &loop, TlsPeer peer, Calls calls)
        : loop_(loop), peer_(std::move(peer)), calls_(std::move(calls)), socket_(loop), later_(loop, [this] {
              on_later();
          }) {}
    ~Impl() { wipe_pending(); }

    void start(const Address &server, const std::optional<Address> &local, const std::string &device);
    // Ends it without a call.
    void abandon();

    bool send(std::string_view bytes);
    std::size_t pending() const { return pending_; }
    bool is_connected() const { return state_ == State::kOpen; }

  private:
    enum class State { kConnecting, kAgreeing, kOpen, kClosed };

    void fail_later(std::string reason);
    void on_later();
    void on_events(std::uint32_t events);
    void on_tcp_connected();
    void agree();
    void become_open();
    void read();
    void write();
    void want();
    void close(std::string_view reason);
    TlsSession::Result read_some(char *buffer, std::size_t &taken);
    TlsSession::Result write_some(std::string_view bytes, std::size_t &sent);
    void wipe_pending();

    Loop &loop_;
    TlsPeer peer_;
    Calls calls_;
    State state_ = State::kConnecting;
    Wire socket_;
    std::unique_ptr<TlsSession> tls_;
    Watch watch_;
    Timer later_;
    std::string failure_;  // to be reported by the loop
    std::string error_;    // why read_some() or write_some() failed

    std::deque<std::string> queue_;  // an element for each send()
    std::size_t first_sent_ = 0;     // bytes of the first element that were sent
    std::size_t pending_ = 0;
    bool read_wants_write_ = false;  // TLS cannot read before it has written, and the reverse
    bool write_wants_read_ = false;
};

void Stream::Impl::start(const Address &server, const std::optional<Address> &local,
                         const std::string &device) {
    socket_.use(Descriptor(socket(server.family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)), server);
    if (!socket_) {
        return fail_later(std::string("socket: ") + std::strerror(errno));
    }
    // A request is one small write that the server has to answer before the next.
    const int on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (const std::string fault = tie_to_device(socket_.get(), device); !fault.empty()) {
        return fail_later(fault);
    }
    if (local && bind(socket_.get(), local->get(), local->size()) != 0) {
        return fail_later("local address " + local->text() + ": " + std::strerror(errno));
    }
    if (connect(socket_.get(), server.get(), server.size()) != 0 && errno != EINPROGRESS) {
        return fail_later(std::strerror(errno));
    }
    watch_ = Watch(loop_, socket_.get(), EPOLLOUT, [this](std::uint32_t events) { on_events(events); });
    if (!watch_.usable()) {
        return fail_later(std::string("epoll: ") + std::strerror(errno));
    }
}

void Stream::Impl::abandon() {
    if (state_ != State::kClosed && tls_ != nullptr) {
        tls_->shut_down();
    }
    state_ = State::kClosed;
    later_.cancel();
    watch_.reset();
    tls_.reset();
    socket_.close();
    wipe_pending();
}

void Stream::Impl::close(std::string_view reason) {
    if (state_ == State::kClosed) {
        return;
    }
    const std::string text(reason);  // it may belong to what is released now
    abandon();
    if (calls_.closed) {
        calls_.closed(text);
    }
}

void Stream::Impl::fail_later(std::string reason) {
    failure_ = std::move(reason);
    later_.set(loop_.now());
}

void Stream::Impl::on_later() {
    const auto self = shared_from_this();
    if (!failure_.empty()) {
        close(failure_);
    } else if (state_ == State::kOpen) {
        read();
    }
}

void Stream::Impl::on_events(std::uint32_t events) {
    const auto self = shared_from_this();  // a call may destroy the stream
    switch (state_) {
        case State::kConnecting:
            on_tcp_connected();
            break;
        case State::kAgreeing:
            agree();
            break;
        case State::kOpen:
            if (events & EPOLLOUT || write_wants_read_) {
                write();
            }
            if (state_ == State::kOpen && (events & ~std::uint32_t{EPOLLOUT} || read_wants_write_)) {
                read();
            }
            break;
        case State::kClosed:
            break;
    }
}

void Stream::Impl::on_tcp_connected() {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
        return close(std::strerror(error));
    }
    socket_.connected();
    if (peer_.context == nullptr) {
        return become_open();
    }
    tls_ = std::make_unique<TlsSession>(peer_.context->context_, socket_, peer_.name);
    state_ = State::kAgreeing;
    agree();
}

void Stream::Impl::agree() {
    switch (tls_->connect()) {
        case TlsSession::Result::kDone:
            return become_open();
        case TlsSession::Result::kWantRead:
            return watch_.want(EPOLLIN);
        case TlsSession::Result::kWantWrite:
            return watch_.want(EPOLLOUT);
        case TlsSession::Result::kEnded:
            return close("the server has closed the connection");
        case TlsSession::Result::kFailed:
            return close(tls_->reason());
    }
}

void Stream::Impl::become_open() {
    state_ = State::kOpen;
    if (calls_.connected) {
        calls_.connected();
    }
    if (state_ == State::kOpen) {
        write();
    }
    if (state_ == State::kOpen) {
        read();  // TLS may have taken the server's first bytes from the socket already
    }
}

TlsSession::Result Stream::Impl::read_some(char *buffer, std::size_t &taken) {
    if (tls_ != nullptr) {
        const TlsSession::Result result = tls_->read(buffer, kReadSize, taken);
        error_ = tls_->reason();
        return result;
    }
    const ssize_t count = socket_.receive(buffer, kReadSize);
    taken = count > 0 ? static_cast<std::size_t>(count) : 0;
    if (count >= 0) {
        return count > 0 ? TlsSession::Result::kDone : TlsSession::Result::kEnded;
    }
    if (errno == EAGAIN || errno == EINTR) {
        return TlsSession::Result::kWantRead;
    }
    error_ = std::strerror(errno);
    return TlsSession::Result::kFailed;
}

void Stream::Impl::read() {
    std::array<char, kReadSize> buffer;
    read_wants_write_ = false;
    for (int i = 0; i < kReadsPerRound; ++i) {
        std::size_t taken = 0;
        switch (read_some(buffer.data(), taken)) {
            case TlsSession::Result::kDone:
                if (calls_.received) {
                    calls_.received(std::string_view(buffer.data(), taken));
                }
                OPENSSL_cleanse(buffer.data(), taken);
                if (state_ != State::kOpen) {
                    return;
                }
                break;
            case TlsSession::Result::kWantRead:
                return want();
            case TlsSession::Result::kWantWrite:
                read_wants_write_ = true;
                return want();
            case TlsSession::Result::kEnded:
                return close("the server has closed the connection");
            case TlsSession::Result::kFailed:
                return close(error_);
        }
    }
    if (tls_ != nullptr) {
        later_.set(loop_.now());  // bytes that TLS has taken already do not make the socket readable
    }
    want();
}

TlsSession::Result Stream::Impl::write_some(std::string_view bytes, std::size_t &sent) {
    if (tls_ != nullptr) {
        const TlsSession::Result result = tls_->write(bytes);
        sent = result == TlsSession::Result::kDone ? bytes.size() : 0;
        error_ = tls_->reason();
        return result;
    }
    const ssize_t count = socket_.send(bytes);
    sent = count > 0 ? static_cast<std::size_t>(count) : 0;
    if (count >= 0) {
        return TlsSession::Result::kDone;
    }
    if (errno == EAGAIN || errno == EINTR) {
        return TlsSession::Result::kWantWrite;
    }
    error_ = std::strerror(errno);
    return TlsSession::Result::kFailed;
}

void Stream::Impl::write() {
    write_wants_read_ = false;
    while (!queue_.empty()) {
        std::size_t sent = 0;
        switch (write_some(std::string_view(queue_.front()).substr(first_sent_), sent)) {
            case TlsSession::Result::kDone:
                first_sent_ += sent;
                pending_ -= sent;
                if (first_sent_ == queue_.front().size()) {
                    OPENSSL_cleanse(queue_.front().data(), queue_.front().size());
                    queue_.pop_front();
                    first_sent_ = 0;
                }
                break;
            case TlsSession::Result::kWantRead:
                write_wants_read_ = true;
                return want();
            case TlsSession::Result::kWantWrite:
                return want();
            case TlsSession::Result::kEnded:
                return close("the server has closed the connection");
            case TlsSession::Result::kFailed:
                return close(error_);
        }
    }
    want();
}

void Stream::Impl::want() {
    const bool to_write = (!queue_.empty() && !write_wants_read_) || read_wants_write_;
    watch_.want(EPOLLIN | (to_write ? std::uint32_t{EPOLLOUT} : 0U));
}

bool Stream::Impl::send(std::string_view bytes) {
    if (state_ == State::kClosed || bytes.size() > kMaxPending - pending_) {
        return false;
    }
    if (bytes.empty()) {
        return true;
    }
    std::size_t sent = 0;
    if (state_ == State::kOpen && queue_.empty() && failure_.empty()) {
        switch (write_some(bytes, sent)) {
            case TlsSession::Result::kFailed:
            case TlsSession::Result::kEnded:
                // The caller does not expect closed() to be called from here.
                fail_later(error_.empty() ? "the server has closed the connection" : error_);
                return true;
            case TlsSession::Result::kWantRead:
                write_wants_read_ = true;
                break;
            default:
                break;
        }
    }
    if (sent < bytes.size()) {
        queue_.emplace_back(bytes.substr(sent));
        pending_ += bytes.size() - sent;
        if (state_ == State::kOpen) {
            want();
        }
    }
    return true;
}

void Stream::Impl::wipe_pending() {
    for (std::string &bytes : queue_) {
        OPENSSL_cleanse(bytes.data(), bytes.size());
    }
    queue_.clear();
    pending_ = 0;
    first_sent_ = 0;
}

Stream::Stream(Loop &loop, const Address &server, TlsPeer peer, Calls calls,
               const std::optional<Address> &local, const std::string &device)
    : impl_(std::make_shared<Impl>(loop, std::move(peer), std::move(calls))) {
    impl_->start(server, local, device);
}

Stream::~Stream() {
    impl_->abandon();
}

bool Stream::send(std::string_view bytes) {
    return impl_->send(bytes);
}

std::size_t Stream::pending() const {
    return impl_->pending();
}

bool Stream::is_connected() const {
    return impl_->is_connected();
}

}  // namespace net
