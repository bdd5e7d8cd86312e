// SPDX-License-Identifier: Apache-2.0
//
// A program that uses PAM: libpam loads the built module with the configuration of a test,
// and what the module says and logs is kept.
#pragma once

#include <security/pam_appl.h>

#include <string>
#include <vector>

#include "pam/service.hpp"
#include "support/temp_dir.hpp"

namespace pam_test {

// Something the module said to the user.
struct Said {
    int style;
    std::string text;
    bool operator==(const Said &) const = default;
};

// The lines that libpam and the module have logged since the last call.
std::vector<std::string> take_log();
// Whether one of the lines contains the text.
bool logged(const std::string &text);

// The id of a login as log lines show it, from the number that the service got.
std::string login_text(uint32_t number);

// The user at the other end of the conversation.
struct Person {
    std::vector<std::string> answers;  // to the prompts, in order; the conversation fails after the last
    std::vector<Said> heard;
    int asked = 0;
    std::function<void()> before_answer = [] {};
};

// The lines of a service file.
struct Lines {
    std::string text;
};

class Login {
  public:
    Login(const TempDir &dir, const Lines &lines, const char *user = "alice",
          const std::string &service = "test");
    // The service file has a line for each phase, with these options of the module.
    Login(const TempDir &dir, const std::string &options, const char *user = "alice",
          const std::string &service = "test");
    ~Login();
    Login(const Login &) = delete;
    Login &operator=(const Login &) = delete;

    Login &item(int item, const char *value);
    int authenticate(std::vector<std::string> answers = {}, int flags = 0);
    int account(int flags = 0);
    int open(int flags = 0);
    int close(int flags = 0);
    int change(std::vector<std::string> answers, int flags = 0);

    void before_each_answer(std::function<void()> action) { person_.before_answer = std::move(action); }
    [[nodiscard]] pam_handle_t *handle() const { return handle_; }
    [[nodiscard]] const std::vector<Said> &heard() const { return person_.heard; }
    [[nodiscard]] int asked() const { return person_.asked; }
    std::string variable(const char *name);

  private:
    Person person_;
    pam_conv conversation_;
    pam_handle_t *handle_ = nullptr;
};

// A directory with a service in it.
class PamTest : public testing::Test {
  protected:
    void SetUp() override;
    // Options that name the socket of the service.
    [[nodiscard]] std::string options(const std::string &more = "") const {
        return "socket=" + dir_.path("aaad.sock") + " nodelay " + more;
    }

    TempDir dir_;
    Service service_{dir_.path("aaad.sock"), agree};
};

}  // namespace pam_test
