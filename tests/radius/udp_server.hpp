// SPDX-License-Identifier: Apache-2.0
//
// A RADIUS server on a loopback socket that does what a test says, on the loop of the
// client under test, and the client's outcomes.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "net/address.hpp"
#include "net/descriptor.hpp"
#include "net/loop.hpp"
#include "radius/bytes.hpp"
#include "radius/client.hpp"

namespace radius_test {

inline constexpr char kSecret[] = "testing123";

struct Packet {
    std::string bytes;
    sockaddr_storage from;
    socklen_t from_size;

    int code() const { return static_cast<unsigned char>(bytes.at(0)); }
    std::uint8_t id() const { return static_cast<std::uint8_t>(bytes.at(1)); }
    int port() const { return ntohs(reinterpret_cast<const sockaddr_in *>(&from)->sin_port); }
    std::string_view authenticator() const { return std::string_view(bytes).substr(4, 16); }
    radius::Attributes attributes() const {
        return radius::Attributes(std::string_view(bytes).substr(radius::kHeadSize));
    }
    std::optional<std::uint32_t> number(radius::Type type) const {
        const auto found = attributes().find(type);
        return found ? found->number() : std::nullopt;
    }
    std::string text(radius::Type type) const { return attributes().joined(type); }
};

class UdpServer {
  public:
    explicit UdpServer(net::Loop &loop, const char *host = "127.0.0.1", std::uint16_t port = 0)
        : loop_(loop) {
        const net::Address any = *net::Address::parse(host, port);
        socket_ = net::Descriptor(::socket(any.family(), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        EXPECT_EQ(bind(socket_.get(), any.get(), any.size()), 0);
        sockaddr_storage bound = {};
        socklen_t size = sizeof bound;
        EXPECT_EQ(getsockname(socket_.get(), reinterpret_cast<sockaddr *>(&bound), &size), 0);
        address_ = *net::Address::parse(host, ntohs(reinterpret_cast<sockaddr_in *>(&bound)->sin_port));
        const int most = 8 << 20;  // thousands of packets in one round
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &most, sizeof most);
        watch_ = net::Watch(loop, socket_.get(), EPOLLIN, [this](std::uint32_t) { receive(); });
    }

    const net::Address &address() const { return address_; }
    radius::ServerSettings settings() const {
        radius::ServerSettings settings;
        settings.address = address_;
        settings.secret = radius::Secret(kSecret);
        settings.timeout = settings.longest_timeout = 50 * net::kMillisecond;
        return settings;
    }

    // Without an end of the wait.
    radius::ServerSettings patient_settings() const {
        radius::ServerSettings patient = settings();
        patient.timeout = patient.longest_timeout = 3600 * net::kSecond;
        return patient;
    }

    // The next request. The loop runs only if none is there.
    Packet next() {
        receive();
        while (packets_.empty()) {
            loop_.run_once(INT64_MAX);
        }
        Packet packet = std::move(packets_.front());
        packets_.pop_front();
        return packet;
    }
    // Whether a request is there.
    bool has_one() {
        receive();
        return !packets_.empty();
    }
    void send(const Packet &to, std::string_view bytes) {
        EXPECT_EQ(sendto(socket_.get(), bytes.data(), bytes.size(), 0,
                         reinterpret_cast<const sockaddr *>(&to.from), to.from_size),
                  static_cast<ssize_t>(bytes.size()));
    }
    // A valid answer with Message-Authenticator.
    void answer(const Packet &request, radius::Code code = radius::Code::kAccessAccept,
                std::string_view attributes = {}) {
        send(request, radius_test::answer(static_cast<int>(code), request.bytes,
                                          message_authenticator().append(attributes), kSecret));
    }
    // The port is closed from now on.
    void close() {
        watch_.reset();
        socket_.reset();
    }

  private:
    void receive() {
        std::array<char, 65536> buffer;
        for (;;) {
            Packet packet;
            packet.from_size = sizeof packet.from;
            const ssize_t size = recvfrom(socket_.get(), buffer.data(), buffer.size(), 0,
                                          reinterpret_cast<sockaddr *>(&packet.from), &packet.from_size);
            if (size < 0) {
                return;
            }
            packet.bytes.assign(buffer.data(), static_cast<std::size_t>(size));
            packets_.push_back(std::move(packet));
        }
    }

    net::Loop &loop_;
    net::Descriptor socket_;
    net::Address address_;
    net::Watch watch_;
    std::deque<Packet> packets_;
};

// The outcome of a question, when it has come.
class Result {
  public:
    explicit Result(net::Loop &loop) : loop_(loop) {}

    radius::Client::Done done() {
        return [outcome = outcome_](const radius::Outcome &got) {
            EXPECT_FALSE(*outcome) << "called twice";
            *outcome = got;
        };
    }
    bool is_there() const { return outcome_->has_value(); }
    // The loop runs until it has come.
    const radius::Outcome &wait() {
        while (!is_there()) {
            loop_.run_once(INT64_MAX);
        }
        return **outcome_;
    }

  private:
    net::Loop &loop_;
    std::shared_ptr<std::optional<radius::Outcome>> outcome_ =
        std::make_shared<std::optional<radius::Outcome>>();
};

inline std::unique_ptr<radius::Client> make_client(net::Loop &loop, radius::ServerSettings settings) {
    std::string error;
    auto client = radius::Client::make(loop, std::move(settings), error);
    EXPECT_NE(client, nullptr) << error;
    return client;
}

inline radius::Question login(std::string_view user = "alice", std::string_view password = "wonderland") {
    radius::Question question = radius::Question::access();
    EXPECT_TRUE(question.add(radius::Type::kUserName, user));
    question.set_password(password);
    return question;
}

}  // namespace radius_test
