// SPDX-License-Identifier: Apache-2.0
//
// A login with all that the server asks on the way, and then commands.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/client.hpp"

namespace aaactl {

struct LoginOptions : ClientOptions {
    std::vector<std::string> commands;
    bool no_password = false;
};

class Login {
  public:
    // Called with each reply, before the user is asked what it asks for.
    using OnStep = std::function<void(const Step &)>;

    // The replies are appended to `steps`, which keep them when a later request fails.
    Login(LoginOptions &options, std::vector<Step> &steps, OnStep on_step = nullptr);
    ~Login();
    Login(const Login &) = delete;
    Login &operator=(const Login &) = delete;

    // Asks for the password, if one is to be sent.
    Verdict run();

  private:
    void ask_password();
    Verdict authenticate();
    Verdict authorize(const std::string &command);
    Reply request_authentication();
    bool answer(const Step &step);
    void keep_state(const aaa::list &list);

    // Stores the reply before it is judged, so that a malformed one is shown too.
    Step &judged(Step step, uint32_t type);

    LoginOptions &options_;
    std::vector<Step> &steps_;
    OnStep on_step_;
    Exchange exchange_;
    std::string password_;
    aaa::list state_;  // what the server expects back with the answer
};

// "alice: accepted; 1 of 2 commands: reload denied"
std::string verdict_text(const Output &out, const LoginOptions &options, const std::vector<Step> &steps);
// The members "verdict", of the login and all commands together, "login" and "refused_commands".
void add_verdict(Json &document, Verdict verdict, const std::vector<Step> &steps);

}  // namespace aaactl
