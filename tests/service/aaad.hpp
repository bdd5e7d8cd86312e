// SPDX-License-Identifier: Apache-2.0
//
// The program aaad for one test: in a directory of its own, with a database of its own, and
// clients that send what the library composes.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "support/sysdb.hpp"
#include "support/temp_dir.hpp"
#include "support/transport.hpp"

namespace aaad_test {

using transport_test::Transport;

// A hash that is checked quickly.
std::string hash_of(const std::string &password);

// A hash that no password has, and that takes as long to check as the number of rounds says.
std::string slow_hash(unsigned rounds);

// A list as it is stored: methods by number, groups by name.
struct Method {
    uint32_t number;
    std::string group;

    Method(uint32_t method) : number(method) {}                                 // NOLINT
    Method(const char *name) : number(AAA_METHOD_SERVER_GROUP), group(name) {}  // NOLINT
};

struct Reply {
    cerrno result = 0;  // of the exchange, or of the header
    int error = 0;      // errno of an exchange that failed
    uint32_t status = 0;
    std::string text;  // the message
    std::string prompt;
    std::string state;
    std::optional<uint32_t> privilege;
    std::optional<uint32_t> method;
    std::optional<uint32_t> echo;
    std::optional<uint32_t> type;     // AAA_MT_...
    std::optional<uint32_t> timeout;  // of the session
};

struct Ask {
    std::string user = "alice";
    std::optional<std::string> password = "wonderland";
    std::string list = "default";
    int32_t service = AAA_SVC_LOGIN;
    uint32_t option = AAA_AO_ASCII_LOGIN;
    std::string remote = "192.0.2.10";
    std::string command;
    std::string state;
    uint32_t privilege = 0;
    uint32_t session = 0;  // form of the message
    uint32_t authen_method = AAA_METHOD_LOCAL;
    uint32_t record = AAA_ACCT_START_OPT;
    uint32_t number = 4711;  // of the accounting session
    uint32_t type = 0;       // AAA_MT_... of an authentication that is no usual login
    int64_t deadline = AAA_TRANSPORT_NEVER;
};

class Client {
  public:
    explicit Client(const std::string &path) : transport_(transport_test::connect_to(path)) {}

    Reply authenticate(const Ask &ask = {});
    Reply authorize(const Ask &ask);
    Reply account(const Ask &ask);
    Reply ping(uint32_t session = 0);
    // Configuration messages of the types 17 to 23; action 1 deletes.
    cerrno configure_server(const std::string &address, const std::string &key, uint32_t action,
                            uint32_t session);
    cerrno configure_group(const std::string &group, uint32_t action, uint32_t session);
    cerrno configure_server_in_group(const std::string &group, const std::string &address, uint32_t action,
                                     uint32_t session);
    cerrno configure_vrf(const std::string &group, const std::string &vrf, uint32_t action, uint32_t session);
    cerrno configure_source(const std::string &group, const std::string &interface, const std::string &vrf,
                            uint32_t action, uint32_t session);
    cerrno configure_list(bool authentication, const std::string &name, std::vector<Method> methods,
                          uint32_t action, uint32_t session);
    aaa_transport_t *get() { return transport_.get(); }
    // Sends an authentication and does not wait for the answer.
    void send_authentication(const Ask &ask);
    // The same, by a client that may have been turned away.
    cerrno try_to_send_authentication(const Ask &ask);
    Reply receive(uint32_t type);

  private:
    struct Composed;
    Reply exchange(Composed &composed, uint32_t type, const Ask &ask);
    static void compose_authentication(Composed &composed, const Ask &ask);

    Transport transport_;
};

class Aaad {
  public:
    // Does not start it.
    Aaad();
    ~Aaad();
    Aaad(const Aaad &) = delete;
    Aaad &operator=(const Aaad &) = delete;

    // The files, in place of the usual ones. The settings that the tests need are added.
    void settings(const std::string &text);
    void users(const std::string &text);
    // Stores a list at "authentication/login/default" and the like.
    void list(const std::string &path, std::vector<Method> methods, std::vector<int32_t> leading = {});
    void text(const std::string &path, const std::string &value);
    void number(const std::string &path, uint32_t value);
    void remove(const std::string &path);

    // Starts it and waits until it says that it is ready.
    void start(std::vector<std::string> arguments = {});
    // Sends SIGTERM and waits for its end. Returns the exit status, or minus the signal.
    int stop();
    int wait();
    void signal(int number) const;
    // Waits for a state that it tells its service manager.
    void wait_for_state(const std::string &state);
    // Sends SIGHUP and waits until all is read.
    void reload();
    // Waits until the log has a text, from the end of the last wait on.
    bool wait_for_log(const std::string &text);
    std::string log() const { return dir_.read("log"); }

    const std::string &socket() const { return socket_; }
    Client client() const { return Client(socket_); }
    Reply login(const Ask &ask = {}) const { return client().authenticate(ask); }
    // Logs in until the result is as wanted: a change of the configuration takes effect at an
    // unknown time.
    void wait_for_login(const Ask &ask, const std::function<bool(const Reply &)> &wanted) const;
    pid_t pid() const { return pid_; }
    // Whether it runs, or how it has ended: for the messages of a test that fails.
    std::string fate();
    const TempDir &dir() const { return dir_; }
    // Runs the program to its end: exit status and output.
    std::pair<int, std::string> run(const std::vector<std::string> &arguments) const;
    void before_exec(std::function<void()> call) { before_exec_ = std::move(call); }

  private:
    pid_t spawn(const std::vector<std::string> &arguments, int output) const;

    DatabaseSandbox database_;
    TempDir dir_;
    std::string socket_;
    std::unique_ptr<Bound> config_;
    int states_ = -1;
    pid_t pid_ = -1;
    size_t log_read_ = 0;
    std::function<void()> before_exec_;
};

}  // namespace aaad_test
