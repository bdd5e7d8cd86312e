// SPDX-License-Identifier: Apache-2.0
//
// The names of syslog() come before libpam's: lines are kept instead of being sent.

#include "pam/host.hpp"
#include "support/machine.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

std::mutex log_mutex;
std::vector<std::string> log_lines;

[[gnu::format(printf, 1, 0)]] void keep_line(const char *format, va_list arguments) {
    char line[4096];
    std::vsnprintf(line, sizeof line, format, arguments);
    const std::lock_guard lock(log_mutex);
    log_lines.emplace_back(line);
}

// An answer for the module; a text after "~" has its bytes inverted, so that the test has no copy.
char *copy_of(const std::string &answer) {
    if (answer == "(null)") {
        return nullptr;
    }
    char *copy = strdup(answer.c_str() + (answer[0] == '~' ? 1 : 0));
    for (char *c = copy; answer[0] == '~' && *c != '\0'; ++c) {
        *c = static_cast<char>(~*c);
    }
    return copy;
}

int talk(int count, const pam_message **messages, pam_response **responses, void *data) {
    auto *person = static_cast<pam_test::Person *>(data);
    auto *made = static_cast<pam_response *>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
    for (int i = 0; i < count; ++i) {
        const int style = messages[i]->msg_style;
        person->heard.push_back({style, messages[i]->msg});
        if (style != PAM_PROMPT_ECHO_ON && style != PAM_PROMPT_ECHO_OFF) {
            continue;
        }
        ++person->asked;
        if (person->answers.empty()) {
            std::free(made);
            return PAM_CONV_ERR;
        }
        person->before_answer();
        made[i].resp = copy_of(person->answers.front());
        person->answers.erase(person->answers.begin());
    }
    *responses = made;
    return PAM_SUCCESS;
}

}  // namespace

extern "C" {

[[gnu::format(printf, 2, 3)]] void syslog(int, const char *format, ...);
void syslog(int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_line(format, arguments);
    va_end(arguments);
}

// What callers get that were compiled with checks of formats.
[[gnu::format(printf, 3, 4)]] void __syslog_chk(int, int, const char *format, ...);
void __syslog_chk(int, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_line(format, arguments);
    va_end(arguments);
}
}

namespace pam_test {

std::vector<std::string> take_log() {
    const std::lock_guard lock(log_mutex);
    return std::exchange(log_lines, {});
}

std::string login_text(uint32_t number) {
    char text[20];
    std::snprintf(text, sizeof text, "%08llx", static_cast<unsigned long long>(geteuid()) << 32 | number);
    return text;
}

bool logged(const std::string &text) {
    const std::lock_guard lock(log_mutex);
    for (const std::string &line : log_lines) {
        if (line.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

namespace {

Lines all_phases(const std::string &options) {
    Lines lines;
    for (const char *phase : {"auth", "account", "session", "password"}) {
        lines.text += std::string(phase) + " required " AAA_PAM_MODULE " " + options + "\n";
    }
    return lines;
}

}  // namespace

Login::Login(const TempDir &dir, const Lines &lines, const char *user, const std::string &service)
    : conversation_{talk, &person_} {
    dir.write(service, lines.text, 0644);
    dir.write("other", "auth required pam_deny.so\naccount required pam_deny.so\n",
              0644);  // or libpam complains
    const std::string directory = dir.path("");
    EXPECT_EQ(pam_start_confdir(service.c_str(), user, &conversation_, directory.c_str(), &handle_),
              PAM_SUCCESS);
}

Login::Login(const TempDir &dir, const std::string &options, const char *user, const std::string &service)
    : Login(dir, all_phases(options), user, service) {}

Login::~Login() {
    EXPECT_EQ(pam_end(handle_, PAM_SUCCESS), PAM_SUCCESS);
}

Login &Login::item(int item, const char *value) {
    EXPECT_EQ(pam_set_item(handle_, item, value), PAM_SUCCESS);
    return *this;
}

int Login::authenticate(std::vector<std::string> answers, int flags) {
    person_.answers = std::move(answers);
    return pam_authenticate(handle_, flags);
}

int Login::account(int flags) {
    return pam_acct_mgmt(handle_, flags);
}

int Login::open(int flags) {
    return pam_open_session(handle_, flags);
}

int Login::close(int flags) {
    return pam_close_session(handle_, flags);
}

int Login::change(std::vector<std::string> answers, int flags) {
    person_.answers = std::move(answers);
    return pam_chauthtok(handle_, flags);
}

std::string Login::variable(const char *name) {
    const char *value = pam_getenv(handle_, name);
    return value != nullptr ? value : "";
}

void PamTest::SetUp() {
    take_log();
    SKIP_WITHOUT_ROOT("a service that does not run as root is refused: run the tests as root");
}

}  // namespace pam_test
