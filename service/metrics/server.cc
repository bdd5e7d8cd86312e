// SPDX-License-Identifier: Apache-2.0
//
// A small HTTP server.
#include "metrics/server.hpp"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

namespace metrics {

namespace {

constexpr int kBacklog = 16;
constexpr std::size_t kAcceptsAtOnce = 16;

net::Descriptor stream_socket() {
    return net::Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool in_use(const sockaddr_un &address) {
    const net::Descriptor probe = stream_socket();
    const auto *name = reinterpret_cast<const sockaddr *>(&address);
    return !probe || connect(probe.get(), name, sizeof address) == 0 || errno != ECONNREFUSED;
}

std::string response(const char *status, const std::string &type, const std::string &body) {
    return std::string("HTTP/1.0 ") + status + "\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

std::string plain(const char *status) {
    return response(status, "text/plain; charset=utf-8", std::string(status) + "\n");
}

}  // namespace

Server::Server(net::Loop &loop, const Registry &registry, ServerSettings settings)
    : loop_(loop),
      registry_(registry),
      settings_(std::move(settings)),
      pause_(loop, [this] { watch_.want(EPOLLIN); }) {}

Server::~Server() {
    if (bound_) {
        unlink(settings_.path.c_str());
    }
}

bool Server::bind_socket(std::string &error) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (settings_.path.empty() || settings_.path.size() >= sizeof address.sun_path) {
        error = "the path of the metrics socket has to have 1 to " +
                std::to_string(sizeof address.sun_path - 1) + " bytes: \"" + settings_.path + "\"";
        return false;
    }
    settings_.path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto *name = reinterpret_cast<const sockaddr *>(&address);
    // The mode of the socket is that of the name, which so never has a wider one.
    fchmod(socket_.get(), settings_.mode);
    if (bind(socket_.get(), name, sizeof address) == 0) {
        return true;
    }
    struct stat status;
    if (errno == EADDRINUSE && lstat(settings_.path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) {
        error = settings_.path + " exists and is no socket; move it away";
        return false;
    }
    if (errno == EADDRINUSE && in_use(address)) {
        error = settings_.path + " is in use by another process";
        return false;
    }
    if (errno == ECONNREFUSED && unlink(settings_.path.c_str()) == 0 &&
        bind(socket_.get(), name, sizeof address) == 0) {
        return true;
    }
    error = "cannot make the metrics socket " + settings_.path + ": " + std::strerror(errno);
    return false;
}

bool Server::open(std::string &error) {
    socket_ = stream_socket();
    if (!socket_) {
        error = std::string("no socket for metrics: ") + std::strerror(errno);
        return false;
    }
    if (!bind_socket(error)) {
        return false;
    }
    bound_ = true;
    watch_ = net::Watch(loop_, socket_.get(), EPOLLIN, [this](std::uint32_t) { accept_all(); });
    if (listen(socket_.get(), kBacklog) != 0 || !watch_.usable()) {
        error = "cannot listen at " + settings_.path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

void Server::accept_all() {
    for (std::size_t i = 0; i < kAcceptsAtOnce; ++i) {
        net::Descriptor socket(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket && (errno == EINTR || errno == ECONNABORTED)) {
            continue;
        }
        if (!socket) {
            if (errno != EAGAIN) {
                // No descriptors: the connection stays in the queue, and would wake the
                // loop again at once.
                watch_.want(0);
                pause_.set(loop_.now() + net::kSecond);
            }
            return;
        }
        add(std::move(socket));
    }
}

void Server::add(net::Descriptor socket) {
    if (connections_.size() >= settings_.connections) {
        connections_.pop_front();
    }
    const auto place = std::make_shared<Place>();
    connections_.emplace_back(loop_, [this, place] { connections_.erase(*place); });
    *place = std::prev(connections_.end());
    Connection &connection = connections_.back();
    connection.socket = std::move(socket);
    connection.watch = net::Watch(loop_, connection.socket.get(), EPOLLIN,
                                  [this, at = *place](std::uint32_t) { ready(at); });
    if (!connection.watch.usable()) {
        connections_.pop_back();
        return;
    }
    connection.timer.set(loop_.now() + settings_.patience);
}

void Server::ready(Place connection) {
    const bool goes_on = connection->answer.empty() ? read_request(*connection) : write_answer(*connection);
    if (!goes_on) {
        connections_.erase(connection);
    }
}

// False when the connection is over.
bool Server::read_request(Connection &connection) {
    char bytes[1024];
    const ssize_t got = recv(connection.socket.get(), bytes, sizeof bytes, 0);
    if (got <= 0) {
        return got < 0 && (errno == EAGAIN || errno == EINTR);
    }
    connection.request.append(bytes, static_cast<std::size_t>(got));
    const bool whole = connection.request.find("\r\n\r\n") != std::string::npos ||
                       connection.request.find("\n\n") != std::string::npos;
    if (!whole && connection.request.size() <= kMaxRequest) {
        return true;
    }
    connection.answer = whole ? answer_to(connection.request) : plain("413 Request Entity Too Large");
    connection.watch.want(EPOLLOUT);
    return write_answer(connection);
}

bool Server::write_answer(Connection &connection) {
    const ssize_t sent =
        send(connection.socket.get(), connection.answer.data(), connection.answer.size(), MSG_NOSIGNAL);
    if (sent < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    connection.answer.erase(0, static_cast<std::size_t>(sent));
    return !connection.answer.empty();
}

std::string Server::answer_to(const std::string &request) const {
    const std::string line = request.substr(0, request.find_first_of("\r\n"));
    const std::size_t first = line.find(' ');
    const std::size_t second = line.find(' ', first + 1);
    if (first == std::string::npos || second == std::string::npos ||
        line.compare(second + 1, 7, "HTTP/1.") != 0) {
        return plain("400 Bad Request");
    }
    if (line.substr(0, first) != "GET") {
        return plain("405 Method Not Allowed");
    }
    const std::string target = line.substr(first + 1, second - first - 1);
    if (target.substr(0, target.find('?')) != "/metrics") {
        return plain("404 Not Found");
    }
    return response("200 OK", "text/plain; version=0.0.4; charset=utf-8", registry_.text());
}

}  // namespace metrics
