// SPDX-License-Identifier: Apache-2.0
//
// What login and acct share: the options that describe a client, the
// credentials made of them, and how replies are judged and shown.

#pragma once

#include <string>
#include <vector>

#include "cli/command_line.hpp"
#include "client/exchange.hpp"

namespace aaactl {

struct ClientOptions {
    std::string socket;
    std::string user;
    std::string service;
    std::string list = "default";
    std::string line;
    std::string remote_addr;
    unsigned seconds = 30;
    bool session = false;
};

// All options except SOCKET and USER, whose order differs between the commands. `service` is the default.
void add_client_options(Command sub, ClientOptions &options, const std::string &service);

// Failure(usage) for values that the library would silently leave out of a request.
void check_client(const ClientOptions &options);

// The service's number; Failure(usage) for an unknown word.
int32_t service_of(const ClientOptions &options);

// A record that points at the texts of the options: they must outlive it unchanged.
class Credentials {
  public:
    explicit Credentials(ClientOptions &options);
    ~Credentials();  // releases a remote address that the library has found
    Credentials(const Credentials &) = delete;
    Credentials &operator=(const Credentials &) = delete;

    aaa_usercred_t *operator->() { return &record_; }
    aaa_usercred_t *get() { return &record_; }

  private:
    aaa_usercred_t record_{};
    const char *given_addr_;
};

enum class Verdict { accepted, denied, asked, failed };

// One request, the reply and what it means.
struct Step {
    std::string request;  // "authentication", "authorization", "accounting start", ...
    std::string subject;  // the user, or the command
    Reply reply;
    Verdict verdict = Verdict::failed;
    uint32_t status = 0;  // where the reply has one
    bool has_status = false;
};

// For replies with a status. Failure(bad_input) when there is none.
void judge(Step &step, uint32_t type);
// For replies to accounting, which say only whether the record was taken.
void judge_record(Step &step);

ExitCode exit_code(Verdict verdict);
std::string verdict_word(Verdict verdict);
// "PASS", or why the server could not process the request.
std::string outcome(const Step &step);

Json step_json(const Output &out, const Step &step);
// The first members of the documents of login and acct: server, user, service and form.
Json client_json(const ClientOptions &options);
void print_step(Output &out, const Step &step);

}  // namespace aaactl
