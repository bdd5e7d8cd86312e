// SPDX-License-Identifier: Apache-2.0
//
// Connections to a server over TLS.

#include "radius/radsec_connection.hpp"

#include <utility>

namespace radius {
namespace {

// RFC 6613, 2.6.5: this identifier is the watchdog's.
constexpr std::uint8_t kWatchdogId = 0;

std::string seconds(net::Time time) {
    return std::to_string((time + net::kSecond - 1) / net::kSecond) + " s";
}

}  // namespace

RadsecConnection::RadsecConnection(net::Loop &loop, const ServerSettings &settings, Calls calls)
    : settings_(settings), calls_(std::move(calls)), timer_(loop, [this] { due(); }) {
    static_cast<void>(ids.take(0));  // kWatchdogId, which is the first
    stream_ = std::make_unique<net::Stream>(
        loop, settings.address, settings.tls,
        net::Stream::Calls{.connected = [this] { connected(); },
                           .received = [this](std::string_view bytes) { received(bytes); },
                           .closed = [this](std::string_view reason) { close(reason); }},
        settings.local, settings.device);
    timer_.set(net::Loop::clock() + settings.connect_timeout);
}

void RadsecConnection::connected() {
    is_open_ = true;
    timer_.cancel();
    calls_.opened(*this);
}

void RadsecConnection::send(std::string_view packet) {
    if (is_closed_) {
        return;
    }
    if (!timer_.is_set()) {  // nothing was waited for
        heard_ = net::Loop::clock();
        timer_.set(heard_ + settings_.watchdog);
    }
    // One packet in each record: servers are known that read no more than one.
    if (!stream_->send(packet)) {
        close("the server does not read what it is sent");
    }
}

void RadsecConnection::received(std::string_view bytes) {
    heard_ = net::Loop::clock();
    packets_.add(bytes);
    for (std::string_view packet = packets_.next(); !packet.empty() && !is_closed_;
         packet = packets_.next()) {
        if (static_cast<std::uint8_t>(packet[1]) != kWatchdogId) {
            calls_.received(*this, packet);
            continue;
        }
        Reply reply;
        if (watchdog_ != nullptr && Reply::read(packet, *watchdog_, settings_.secret.view(),
                                                MessageAuthenticator::kOptional, reply) == Fault::kNone) {
            watchdog_.reset();
            note_answer();
        }
    }
    if (packets_.is_damaged()) {
        close("the server has sent bytes that are no RADIUS packet");
    }
}

void RadsecConnection::abandon(std::uint8_t id) {
    slots[id] = {};
    abandoned_.set(id);
}

bool RadsecConnection::take_abandoned(std::uint8_t id) {
    if (!abandoned_.test(id)) {
        return false;
    }
    abandoned_.reset(id);
    ids.release(id);
    return true;
}

// Requests that were abandoned keep the watchdog running: they may have been because the
// server is gone.
void RadsecConnection::due() {
    const net::Time now = net::Loop::clock();
    if (!is_open_) {
        close("no connection within " + seconds(settings_.connect_timeout));
    } else if (ids.taken() == 1) {
        return;  // send() starts it again
    } else if (now < heard_ + settings_.watchdog) {
        timer_.set(heard_ + settings_.watchdog);
    } else if (watchdog_ != nullptr) {
        close("the server has sent nothing for " + seconds(now - heard_) +
              ", and no answer to Status-Server");
    } else {
        send_watchdog();
    }
}

void RadsecConnection::send_watchdog() {
    std::string error;
    watchdog_ = make_request(Question::status(), kWatchdogId, settings_.secret.view(), 0, error);
    if (watchdog_ == nullptr) {
        close(error);
        return;
    }
    heard_ = net::Loop::clock();
    timer_.set(heard_ + settings_.watchdog);
    send(watchdog_->bytes());
}

void RadsecConnection::close(std::string_view reason) {
    if (is_closed_) {
        return;
    }
    const std::string text(reason);  // it may belong to what is released now
    is_closed_ = true;
    timer_.cancel();
    stream_.reset();
    calls_.closed(*this, text);
}

}  // namespace radius
