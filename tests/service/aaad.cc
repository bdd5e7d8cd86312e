// SPDX-License-Identifier: Apache-2.0

#include "service/aaad.hpp"
#include "support/send_signal.hpp"

#include <arpa/inet.h>
#include <crypt.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace aaad_test {

namespace {

constexpr int kPatience = 60000;  // ms that a busy machine may take

}  // namespace

std::string hash_of(const std::string &password) {
    crypt_data data{};
    return crypt_r(password.c_str(), "$5$rounds=1000$aaadtest$", &data);
}

std::string slow_hash(unsigned rounds) {
    return "$6$rounds=" + std::to_string(rounds) + "$aaadtest$" + std::string(86, 'x');
}

// ---- server

Aaad::Aaad() : socket_(dir_.path("aaad.sock")) {
    if (getenv("NO_DLLMAIN") == nullptr) {
        // The load hook has opened the machine's own database: the test must not write there.
        std::fprintf(stderr, "run this test with ctest, or with NO_DLLMAIN=1 in the environment\n");
        std::abort();
    }
    settings("");
    users("alice:" + hash_of("wonderland") + ":15:show *\nbob:" + hash_of("looking-glass") + ":1\n");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, dir_.path("notify").c_str(), sizeof address.sun_path - 1);
    states_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(states_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    config_ = std::make_unique<Bound>("/cfg/gl/aaa/");
    EXPECT_EQ(config_->code(), AAA_OK);
}

std::string Aaad::fate() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, WNOHANG) != pid_) {
        return pid_ > 0 ? "aaad runs" : "aaad was ended by the test, or had ended before";
    }
    pid_ = -1;
    return WIFSIGNALED(status) ? std::string("aaad was ended by the signal ") + strsignal(WTERMSIG(status))
                               : "aaad has ended with status " + std::to_string(WEXITSTATUS(status));
}

Aaad::~Aaad() {
    const std::string end = testing::Test::HasFailure() ? fate() : "";
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(states_);
    if (testing::Test::HasFailure()) {
        printf("---- %s; its log\n%s----\n", end.c_str(), log().c_str());
    }
}

void Aaad::settings(const std::string &text) {
    const auto unless_set = [&](const std::string &word, const std::string &value) {
        return ("\n" + text).find("\n" + word + " ") == std::string::npos ? word + " " + value + "\n" : "";
    };
    // After the test's own lines, whose numbers faults name.
    dir_.write("aaad.conf", "users " + dir_.path("users") + "\nsocket " + socket_ + "\n" + text + "\n" +
                                unless_set("journal", dir_.path("accounting")) +
                                unless_set("log-unknown-names", "yes") +
                                unless_set("metrics-socket", dir_.path("metrics.sock")));
}

void Aaad::users(const std::string &text) {
    dir_.write("users.new", text);
    EXPECT_EQ(rename(dir_.path("users.new").c_str(), dir_.path("users").c_str()), 0);
}

void Aaad::list(const std::string &path, std::vector<Method> methods, std::vector<int32_t> leading) {
    methods.resize(4, Method(uint32_t{AAA_METHOD_NOTSET}));
    void *tuple = nullptr;
    uint32_t length = 0;
    if (leading.empty()) {
        ASSERT_EQ(
            sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%s%s%s%s", methods[0].number, methods[1].number,
                             methods[2].number, methods[3].number, methods[0].group.c_str(),
                             methods[1].group.c_str(), methods[2].group.c_str(), methods[3].group.c_str()),
            AAA_OK);
    } else {
        ASSERT_EQ(sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%d%d%d%s%s%s%s", leading[0], leading[1],
                                   leading[2], methods[0].number, methods[1].number, methods[2].number,
                                   methods[3].number, methods[0].group.c_str(), methods[1].group.c_str(),
                                   methods[2].group.c_str(), methods[3].group.c_str()),
                  AAA_OK);
    }
    EXPECT_EQ(sysdb_item_set(config_->handle(), path.c_str(), SYSDB_TYPE_TUPLE, tuple, length, 0), AAA_OK);
    free(tuple);
}

void Aaad::text(const std::string &path, const std::string &value) {
    EXPECT_EQ(set_text(config_->handle(), path, value), AAA_OK);
}

void Aaad::number(const std::string &path, uint32_t value) {
    EXPECT_EQ(set_number(config_->handle(), path, value), AAA_OK);
}

void Aaad::remove(const std::string &path) {
    EXPECT_EQ(sysdb_item_delete(config_->handle(), path.c_str(), path.ends_with('/') ? SYSDB_DELETE_TREE : 0),
              AAA_OK);
}

pid_t Aaad::spawn(const std::vector<std::string> &arguments, int output) const {
    std::vector<std::string> all = {AAAD_PROGRAM, "--config", dir_.path("aaad.conf")};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &argument : all) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const std::string notify = dir_.path("notify");
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("NOTIFY_SOCKET", notify.c_str(), 1);
        unsetenv("NO_DLLMAIN");
        dup2(output, 1);
        dup2(output, 2);
        if (before_exec_) {
            before_exec_();
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

void Aaad::start(std::vector<std::string> arguments) {
    const int output = open(dir_.path("log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    arguments.insert(arguments.begin(), "--foreground");
    pid_ = spawn(arguments, output);
    close(output);
    wait_for_state("READY=1");
}

void Aaad::wait_for_state(const std::string &state) {
    for (;;) {
        pollfd polled = {states_, POLLIN, 0};
        const int ready = poll(&polled, 1, 100);
        if (ready > 0) {
            char text[512] = "";
            if (recv(states_, text, sizeof text - 1, 0) > 0 &&
                std::string(text).find(state) != std::string::npos) {
                return;
            }
        } else if (ready == 0 && pid_ > 0) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                FAIL() << "aaad has ended before it said " << state << "\n" << log();
            }
        }
    }
}

void Aaad::signal(int number) const {
    EXPECT_EQ(aaatest::send_signal(pid_, number), 0);
}

int Aaad::wait() {
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int Aaad::stop() {
    signal(SIGTERM);
    return wait();
}

void Aaad::reload() {
    signal(SIGHUP);
    wait_for_state("RELOADING=1");
    wait_for_state("READY=1");
}

bool Aaad::wait_for_log(const std::string &text) {
    for (int waited = 0; waited < kPatience; waited += 10) {
        const std::string all = log();
        const size_t found = all.find(text, log_read_);
        if (found != std::string::npos) {
            log_read_ = found + text.size();
            return true;
        }
        poll(nullptr, 0, 10);
    }
    return false;
}

void Aaad::wait_for_login(const Ask &ask, const std::function<bool(const Reply &)> &wanted) const {
    for (int attempt = 0; attempt < 20000; ++attempt) {
        if (wanted(login(ask))) {
            return;
        }
        sched_yield();
    }
    FAIL() << "the change has no effect";
}

std::pair<int, std::string> Aaad::run(const std::vector<std::string> &arguments) const {
    const std::string path = dir_.path("output");
    const int output = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const pid_t pid = spawn(arguments, output);
    close(output);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, dir_.read("output")};
}

}  // namespace aaad_test
