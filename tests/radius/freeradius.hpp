// SPDX-License-Identifier: Apache-2.0
//
// Debian's FreeRADIUS server on loopback for one test, with a configuration of its own. It
// is another implementation of the protocol, so it finds what client and test server of
// this tree would get wrong together.
//
//   user    password                 answer
//   alice   wonderland               accept: Reply-Message in two parts, Service-Type 6,
//                                    Session-Timeout 3600, two Class, a vendor's attributes
//   bob     any                      reject: "Account locked"
//   carol   any, then 123456         challenge: "Code: ", then accept
//   sleepy  any                      accept after a second
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "net/certificates.hpp"
#include "net/descriptor.hpp"
#include "radius/client.hpp"
#include "support/temp_dir.hpp"

namespace radius_test {

class FreeRadius {
  public:
    // Whether the server is installed, and why not: for GTEST_SKIP().
    static bool is_installed();
    static constexpr char kMissing[] = "freeradius is not installed; run \"scripts/setup test\"";

    // Starts it, and waits until it is ready. With `message_authenticator` it sends the
    // attribute in its answers, which it does not do by itself.
    explicit FreeRadius(bool message_authenticator = true);
    ~FreeRadius();
    FreeRadius(const FreeRadius &) = delete;
    FreeRadius &operator=(const FreeRadius &) = delete;

    bool usable() const { return usable_; }
    radius::ServerSettings authentication() const { return settings(authentication_port_); }
    radius::ServerSettings accounting() const { return settings(accounting_port_); }
    // Over TLS. The server demands a certificate of this side.
    radius::ServerSettings tls(bool with_certificate = true) const;

    std::uint16_t tls_port() const { return tls_port_; }
    // One of the files for TLS: ca.pem, client.pem, client.key.
    std::string file(const std::string &name) const { return directory_.path(name); }

    // It stays, but answers nothing.
    void pause();
    void resume();
    void stop();
    // Starts it again at the same ports, after stop().
    bool start_again() { return start(); }
    // The records of accounting, as text.
    std::string detail() const { return directory_.read("detail"); }
    // What it has printed.
    std::string log();

  private:
    radius::ServerSettings settings(std::uint16_t port) const;
    void write_certificates();
    void write_configuration(bool message_authenticator);
    bool start();
    void read_output();

    TempDir directory_;
    std::uint16_t authentication_port_ = 0, accounting_port_ = 0, tls_port_ = 0;
    pid_t process_ = -1;
    bool usable_ = false;

    net::Descriptor output_;
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string log_;
    bool ended_ = false;
};

}  // namespace radius_test
