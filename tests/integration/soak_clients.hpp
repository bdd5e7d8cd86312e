// SPDX-License-Identifier: Apache-2.0
//
// Clients for the soak of the example server: correct ones, which check every
// answer, and misbehaving ones.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "support/transport.hpp"

namespace soak {

using Bytes = std::vector<unsigned char>;
using Random = std::mt19937;

// A connection that is closed at the end of its scope.
class Connection {
  public:
    explicit Connection(const std::string &path);

    int fd() const { return transport_test::descriptor(transport_); }
    // False when the server has closed the connection.
    bool send(const Bytes &message) const;
    // Waits for the next message; empty when the server has closed the connection.
    Bytes receive() const;

  private:
    transport_test::Transport transport_;
};

// The answer that a request must get.
struct Expected {
    enum class Kind { verdict, status_only } kind = Kind::verdict;
    uint32_t status = 0;
    uint32_t level = 0;
    std::string message{};  // empty for none
};

struct Request {
    bool session = false;
    uint32_t type = 0;
    Bytes bytes;
    Expected expected;
};

// A random request in either form: known or unknown user, right or wrong
// password, allowed or forbidden command.
// Accounting requests carry the given session id.
Request make_request(Random &random, uint32_t accounting_id);
// An authentication that passes, in a random form.
Request make_login(Random &random);
// The request that costs the server least.
Request make_ping();

// Sends the request and checks the answer.
void expect_answered(const Connection &connection, const Request &request);

enum class Mischief {
    garbage,       // random bytes, some with a valid header
    half,          // a truncated request
    lie,           // a request with one word overwritten, which may be a length
    long_message,  // longer than the server accepts
    no_message,    // an empty message
    descriptors,   // a valid request, with open files attached
    hang_up,       // connects and disconnects
    no_patience,   // a valid request, then disconnects before the answer
    half_way,      // one valid exchange, then half a message, then disconnects
    deaf,          // keeps sending and never reads
    silent,        // connects and sends nothing
    count
};

// Connections of silent clients; the latest ones stay open.
class Parking {
  public:
    explicit Parking(std::size_t room) : room_(room) {}
    void take(Connection connection);
    void clear();

  private:
    std::mutex lock_;
    std::size_t room_;
    std::deque<Connection> parked_;
};

// Misbehaves once, and checks that the server answers or closes the connection as it should.
void misbehave(Mischief what, const std::string &path, Random &random, Parking &parking);

}  // namespace soak
