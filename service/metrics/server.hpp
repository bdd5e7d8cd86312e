// SPDX-License-Identifier: Apache-2.0
//
// Serves the figures on a Unix stream socket, as HTTP/1.0: GET /metrics. A collector on
// the machine reads it, for example
//
//   curl --unix-socket /run/aaa/metrics.sock http://aaa/metrics
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <list>
#include <string>

#include "metrics/registry.hpp"
#include "net/descriptor.hpp"
#include "net/loop.hpp"

namespace metrics {

struct ServerSettings {
    std::string path;
    mode_t mode = 0660;                     // of the socket; who may connect may read the figures
    std::size_t connections = 16;           // at a time; the oldest makes room for a new one
    net::Time patience = 5 * net::kSecond;  // for a request and its answer
};

inline constexpr std::size_t kMaxRequest = 4096;

class Server {
  public:
    Server(net::Loop &loop, const Registry &registry, ServerSettings settings);
    // Removes the socket.
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Replaces the socket of a service that died. False: `error` says what to do.
    bool open(std::string &error);
    std::size_t connections() const { return connections_.size(); }

  private:
    struct Connection {
        explicit Connection(net::Loop &loop, std::function<void()> late) : timer(loop, std::move(late)) {}
        net::Descriptor socket;
        net::Watch watch;
        net::Timer timer;
        std::string request, answer;
    };
    using Place = std::list<Connection>::iterator;

    bool bind_socket(std::string &error);
    void accept_all();
    void add(net::Descriptor socket);
    void ready(Place connection);
    bool read_request(Connection &connection);
    bool write_answer(Connection &connection);
    std::string answer_to(const std::string &request) const;

    net::Loop &loop_;
    const Registry &registry_;
    ServerSettings settings_;
    net::Descriptor socket_;
    net::Watch watch_;
    bool bound_ = false;
    net::Timer pause_;
    std::list<Connection> connections_;
};

}  // namespace metrics
