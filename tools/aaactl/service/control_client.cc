// SPDX-License-Identifier: Apache-2.0

#include "service/control_client.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "service/control_answers.hpp"

namespace aaactl {
namespace {

constexpr size_t kLongestLine = size_t{16} << 20;

std::string what_to_do(int error, const std::string &socket) {
    const std::string elsewhere =
        socket == kControlSocket ? "; where control-socket in aaad.conf names another path: --socket PATH"
                                 : "";
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return "the service does not run, or its socket was removed; restart it: systemctl restart "
                   "aaad" +
                   elsewhere;
        case EACCES:
        case EPERM:
            return "only root and members of the group aaa may ask; use sudo";
        default:
            return std::strerror(error);
    }
}

using Clock = std::chrono::steady_clock;

}  // namespace

void add_control_options(Command sub, ControlOptions &options) {
    sub.option("--socket", options.socket, "The control socket of the service").type("PATH").shows_default();
    sub.option("--timeout", options.seconds, "Seconds to wait for the service")
        .type("SECONDS")
        .between(1, 86400)
        .shows_default();
}

ControlClient::ControlClient(ControlOptions options) : options_(std::move(options)) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        throw Failure(ExitCode::failed, std::string("no socket: ") + std::strerror(errno));
    }
    try {
        connect();
    } catch (...) {
        close(fd_);
        throw;
    }
}

ControlClient::~ControlClient() {
    close(fd_);
}

void ControlClient::silent() const {
    throw Failure(ExitCode::unavailable, escaped(options_.socket) + ": the service does not answer within " +
                                             std::to_string(options_.seconds) +
                                             " s; it is stopped or overloaded, see: systemctl status aaad");
}

// A service that is stopped accepts no one: when its queue is full, connecting waits.
void ControlClient::connect() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (options_.socket.empty() || options_.socket.size() >= sizeof address.sun_path) {
        throw Failure(ExitCode::usage,
                      "--socket: a path has 1 to " + std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    options_.socket.copy(address.sun_path, sizeof address.sun_path - 1);
    const timeval patience{static_cast<time_t>(options_.seconds), 0};
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    if (::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno == EAGAIN || errno == EINPROGRESS) {
            silent();
        }
        throw Failure(ExitCode::unavailable,
                      escaped(options_.socket) + ": " + what_to_do(errno, options_.socket));
    }
}

void ControlClient::send(const Json &request) {
    const std::string line = request.dump() + "\n";
    const ssize_t sent = ::send(fd_, line.data(), line.size(), MSG_NOSIGNAL);
    // A service that turns this client away has closed the connection, and said why.
    if (sent < 0 && errno != EPIPE && errno != ECONNRESET) {
        silent();
    }
}

void ControlClient::end_requests() {
    shutdown(fd_, SHUT_WR);
}

bool ControlClient::read_some() {
    char bytes[65536];
    const ssize_t got = recv(fd_, bytes, sizeof bytes, MSG_DONTWAIT);
    if (got < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    in_.append(bytes, static_cast<size_t>(got));
    if (in_.size() > kLongestLine && in_.find('\n') == std::string::npos) {
        throw Failure(ExitCode::bad_input, escaped(options_.socket) +
                                               ": the answer is a line without end; check that this is the "
                                               "control-socket of aaad.conf, or name it: "
                                               "--socket PATH");
    }
    return got > 0;
}

std::optional<Json> ControlClient::take_line() {
    const size_t end = in_.find('\n');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    const std::string line = in_.substr(0, end);
    in_.erase(0, end + 1);
    Json document = parsed_answer(line, options_.socket);
    if (document.contains("error")) {
        const std::string code = text_of(document, "code");
        throw Failure(code == "bad-request" ? ExitCode::failed : ExitCode::unavailable,
                      escaped(options_.socket) + ": " + escaped(text_of(document, "error")));
    }
    return document;
}

void ControlClient::wait_for_line() {
    const auto end = Clock::now() + std::chrono::seconds(options_.seconds);
    while (in_.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd ready{fd_, POLLIN, 0};
        const int n = left > 0 ? poll(&ready, 1, static_cast<int>(left) + 1) : 0;
        if (n == 0) {
            silent();
        }
        if (n > 0 && !read_some() && in_.find('\n') == std::string::npos) {
            throw Failure(ExitCode::unavailable,
                          escaped(options_.socket) + ": the service has ended the connection");
        }
    }
}

Json ControlClient::reply(std::string_view request) {
    wait_for_line();
    Json document = *take_line();
    check_reply(document, request, options_.socket);
    return document;
}

Json ControlClient::event_or_reply(std::string_view request) {
    wait_for_line();
    Json document = *take_line();
    if (document.contains("event")) {
        check_event(document, options_.socket);
    } else {
        check_reply(document, request, options_.socket);
    }
    return document;
}

std::optional<Json> ControlClient::next_event() {
    std::optional<Json> event = take_line();
    if (event) {
        check_event(*event, options_.socket);
    }
    return event;
}

Json ControlClient::ask(const std::string &request) {
    send({{"version", 1}, {"request", request}});
    return reply(request);
}

Json shown(const Json &document) {
    if (document.is_string()) {
        return escaped(document.text());
    }
    if (document.is_array()) {
        Json copy = Json::array();
        for (const Json &element : document.elements()) {
            copy.push_back(shown(element));
        }
        return copy;
    }
    if (document.is_object()) {
        Json copy = Json::object();
        for (const Json::Member &member : document.members()) {
            copy[escaped(member.name)] = shown(member.value);
        }
        return copy;
    }
    return document;
}

std::string text_of(const Json &document, std::string_view name) {
    const Json &value = document[name];
    return value.is_string() ? value.text() : "";
}

uint64_t number_of(const Json &document, std::string_view name) {
    const Json &value = document[name];
    return value.is_natural() ? value.natural() : 0;
}

std::string milliseconds(const Json &document, std::string_view name) {
    if (!document.contains(name)) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(number_of(document, name)) / 1000);
    return text;
}

namespace {

std::string formatted(uint64_t seconds, const char *format) {
    const auto time = static_cast<time_t>(seconds);
    tm parts{};
    char text[64] = "?";
    if (localtime_r(&time, &parts) != nullptr) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::strftime(text, sizeof text, format, &parts);
#pragma GCC diagnostic pop
    }
    return text;
}

}  // namespace

std::string date_and_time(uint64_t seconds) {
    return formatted(seconds, "%Y-%m-%d %H:%M:%S");
}

std::string when(uint64_t microseconds) {
    const uint64_t seconds = microseconds / 1000000;
    const char *day = "%Y-%m-%d";
    const auto now = static_cast<uint64_t>(std::time(nullptr));
    return formatted(seconds, formatted(seconds, day) == formatted(now, day) ? "%H:%M:%S" : day);
}

std::string date_of(uint64_t microseconds) {
    return formatted(microseconds / 1000000, "%A, %Y-%m-%d");
}

std::string time_of_day(uint64_t microseconds) {
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03u", static_cast<unsigned>(microseconds / 1000 % 1000));
    return formatted(microseconds / 1000000, "%H:%M:%S") + fraction;
}

}  // namespace aaactl
