// SPDX-License-Identifier: Apache-2.0
//
// Questions of the TACACS+ client to a server on loopback, over one shared connection:
// one at a time, and 32 in flight. The server is a thread that uncovers each request and
// sends a prepared answer, so the figures are the client's, the system's and little else.

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <thread>

#include "tacacs/client.hpp"
#include "tacacs/reader.hpp"

namespace {

constexpr char kSecret[] = "a secret of the usual length";

// What the server answers: passed, passed without arguments, recorded.
std::string answer_to(tacacs::Type type) {
    switch (type) {
        case tacacs::Type::kAuthentication:
            return std::string("\1\0\0\0\0\0", 6);
        case tacacs::Type::kAuthorization:
            return std::string("\1\0\0\0\0\0", 6);
        default:
            return std::string("\0\0\0\0\1", 5);
    }
}

class Responder {
  public:
    Responder() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const net::Address any = *net::Address::parse("127.0.0.1", 0);
        sockaddr_storage bound = {};
        socklen_t size = sizeof bound;
        if (bind(listener_.get(), any.get(), any.size()) != 0 || listen(listener_.get(), 8) != 0 ||
            getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&bound), &size) != 0) {
            return;
        }
        const auto *const address = reinterpret_cast<const unsigned char *>(&bound);
        port_ = static_cast<std::uint16_t>(address[2] << 8 | address[3]);
        thread_ = std::thread([this] { serve(); });
    }
    ~Responder() {
        shutdown(listener_.get(), SHUT_RDWR);
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    std::uint16_t port() const { return port_; }

  private:
    void serve() {
        for (;;) {
            const net::Descriptor connection(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!connection) {
                return;
            }
            // Otherwise each answer waits until the client's system acknowledges the one before.
            const int on = 1;
            setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            tacacs::PacketReader reader;
            std::array<char, 16384> buffer;
            for (ssize_t size = 0; (size = recv(connection.get(), buffer.data(), buffer.size(), 0)) > 0;) {
                reader.add({buffer.data(), static_cast<std::size_t>(size)});
                std::string answers, packet;
                while (reader.next(packet) == tacacs::Fault::kNone && !packet.empty()) {
                    answers += answer(packet);
                }
                static_cast<void>(send(connection.get(), answers.data(), answers.size(), MSG_NOSIGNAL));
            }
        }
    }

    std::string answer(std::string &packet) const {
        tacacs::Head head;
        static_cast<void>(tacacs::read_head(packet, head));
        static_cast<void>(protection_.combine(head, packet.data() + tacacs::kHeadSize, head.length));
        std::string body = answer_to(head.type);
        ++head.sequence;
        static_cast<void>(protection_.combine(head, body.data(), body.size()));
        std::string bytes = packet.substr(0, tacacs::kHeadSize);
        bytes[2] = static_cast<char>(head.sequence);
        bytes[3] = tacacs::kFlagSingleConnection;
        bytes[10] = 0;
        bytes[11] = static_cast<char>(body.size());
        return bytes + body;
    }

    const tacacs::Protection protection_ = tacacs::Protection::secret(kSecret);
    net::Descriptor listener_;
    std::uint16_t port_ = 0;
    std::thread thread_;
};

class Asker {
  public:
    explicit Asker(std::uint16_t port) {
        tacacs::ServerSettings settings;
        settings.address = *net::Address::parse("127.0.0.1", port);
        settings.secret = tacacs::SecretBytes(kSecret);
        settings.timeout = 60 * net::kSecond;
        std::string error;
        client_ = tacacs::Client::make(loop_, settings, error);
    }

    // Asks that many questions at once. False when not all were answered.
    bool ask(tacacs::Type type, int count) {
        answers_ = outcomes_ = 0;
        for (int i = 0; i < count; ++i) {
            ask(type);
        }
        while (outcomes_ < count) {
            loop_.run_once(INT64_MAX);
        }
        return answers_ == count;
    }

  private:
    void ask(tacacs::Type type) {
        const auto done = [this](const tacacs::Outcome &outcome) {
            ++outcomes_;
            answers_ += outcome.result == tacacs::Result::kAnswer ? 1 : 0;
        };
        const tacacs::Subject subject = {.user = "alice",
                                         .port = "tty0",
                                         .remote_address = "192.0.2.7",
                                         .privilege = 15,
                                         .type = tacacs::AuthenticationType::kPap};
        switch (type) {
            case tacacs::Type::kAuthentication:
                client_->authenticate({.subject = subject, .data = "wonderland"}, INT64_MAX, done);
                break;
            case tacacs::Type::kAuthorization:
                client_->authorize(subject, show_, INT64_MAX, done);
                break;
            case tacacs::Type::kAccounting:
                client_->account(tacacs::Record::kStop, subject, stop_, INT64_MAX, done);
                break;
        }
    }

    const std::vector<std::string> show_ = {"service=shell", "cmd=show", "cmd-arg=version", "cmd-arg=<cr>"};
    const std::vector<std::string> stop_ = {"task_id=7", "service=shell", "elapsed_time=12"};
    net::Loop loop_;
    std::unique_ptr<tacacs::Client> client_;
    int outcomes_ = 0;
    int answers_ = 0;
};

void tacacs_questions(benchmark::State &state, tacacs::Type type, int in_flight) {
    Responder responder;
    Asker asker(responder.port());
    if (!asker.ask(type, 1)) {  // from here on the connection is shared
        state.SkipWithError("the first question was not answered");
        return;
    }
    for (auto _ : state) {
        if (!asker.ask(type, in_flight)) {
            state.SkipWithError("a question was not answered");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * in_flight);
}

constexpr tacacs::Type kPap = tacacs::Type::kAuthentication;
constexpr tacacs::Type kAuthorization = tacacs::Type::kAuthorization;
constexpr tacacs::Type kAccounting = tacacs::Type::kAccounting;

BENCHMARK_CAPTURE(tacacs_questions, pap, kPap, 1)->Name("TacacsPap/1")->UseRealTime();
BENCHMARK_CAPTURE(tacacs_questions, pap32, kPap, 32)->Name("TacacsPap/32")->UseRealTime();
BENCHMARK_CAPTURE(tacacs_questions, author, kAuthorization, 1)->Name("TacacsAuthorization/1")->UseRealTime();
BENCHMARK_CAPTURE(tacacs_questions, author32, kAuthorization, 32)
    ->Name("TacacsAuthorization/32")
    ->UseRealTime();
BENCHMARK_CAPTURE(tacacs_questions, acct, kAccounting, 1)->Name("TacacsAccounting/1")->UseRealTime();
BENCHMARK_CAPTURE(tacacs_questions, acct32, kAccounting, 32)->Name("TacacsAccounting/32")->UseRealTime();

}  // namespace
