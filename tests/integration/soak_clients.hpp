// SPDX-License-Identifier: Apache-2.0
//
// Clients for the soak of the example server: those that ask rightly and check
// every answer, and those that do what no client should.
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
    // False when the server has hung up.
    bool send(const Bytes &message) const;
    // Waits for the next message; empty when the server has hung up.
    Bytes receive() const;

  private:
    transport_test::Transport transport_;
};

// What a request must be answered with.
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

// A request of any kind in either form, from a user who is known or not, with
// a password that is right or not, for a command that is allowed or not.
// Accounting requests carry the given session id.
Request make_request(Random &random, uint32_t accounting_id);
// An authentication that passes, in a form by chance.
Request make_login(Random &random);
// A request that costs the server as little as can be.
Request make_ping();

// Sends the request and checks the answer.
void expect_answered(const Connection &connection, const Request &request);

enum class Mischief {
    garbage,       // random bytes, some with a header that looks right
    half,          // a request cut off anywhere
    lie,           // a request with a word overwritten, length fields among them
    long_message,  // longer than the server takes
    no_message,    // nothing in it
    descriptors,   // a good request, with open files attached
    hang_up,       // connects and goes
    no_patience,   // a good request, and goes before the answer
    half_way,      // one good exchange, then half a message, and goes
    deaf,          // sends and sends and never reads
    silent,        // connects and says nothing
    count
};

// The silent clients' connections: the latest ones stay open.
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

// Does it once, and checks that the server answers or hangs up where it should.
void misbehave(Mischief what, const std::string &path, Random &random, Parking &parking);

}  // namespace soak
