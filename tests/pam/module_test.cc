// SPDX-License-Identifier: Apache-2.0
//
// The module as a guest: services that are not there or do not behave, and what is left in
// the process of the program.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "pam/host.hpp"
#include "support/memory_search.hpp"

using namespace pam_test;

namespace {

class Module : public PamTest {};

// ---- services that are not there

TEST_F(Module, GivesUpBeforeItAsksWithoutAService) {
    const std::vector<std::string> sockets{"/nonexistent/socket", dir_.path("plain-file"),
                                           "/" + std::string(200, 'x')};
    for (const std::string &socket : sockets) {
        dir_.write("plain-file", "");
        Login login(dir_, "nodelay socket=" + socket);
        EXPECT_EQ(login.authenticate({"x"}), PAM_AUTHINFO_UNAVAIL) << socket;
        EXPECT_EQ(login.asked(), 0);
        EXPECT_EQ(login.account(), PAM_AUTHINFO_UNAVAIL);
        EXPECT_EQ(login.open(), PAM_SESSION_ERR);
        EXPECT_TRUE(logged("the AAA service is not available: " + socket.substr(0, 30)));
    }
}

// ---- ids of logins

TEST_F(Module, LogsTheIdThatTheServiceGets) {
    service_.set([](const Request &request) {
        return status(request.type == AAA_REQ_AUTHEN ? AAA_STAT_FAIL : AAA_STAT_PASS);
    });
    Login login(dir_, options("debug log_unknown_names"));
    EXPECT_EQ(login.authenticate({"x"}), PAM_AUTH_ERR);
    const uint32_t first = service_.requests().back().login;
    EXPECT_NE(first, 0u);
    EXPECT_TRUE(logged("[" + login_text(first) + "] authentication failure: user=alice"));
    EXPECT_TRUE(logged("[" + login_text(first) + "] result: "));
    EXPECT_EQ(login.variable("AAA_LOGIN_ID"), login_text(first));
    service_.set(agree);
    EXPECT_EQ(login.authenticate({"x"}), PAM_SUCCESS);
    const uint32_t second = service_.requests().back().login;
    EXPECT_NE(second, first) << "each authentication is a login of its own";
    EXPECT_EQ(login.account(), PAM_SUCCESS);
    EXPECT_EQ(login.open(), PAM_SUCCESS);
    EXPECT_EQ(login.close(), PAM_SUCCESS);
    for (std::size_t i = 2; i < service_.requests().size(); ++i) {
        EXPECT_EQ(service_.requests()[i].login, second) << i;
    }
    EXPECT_EQ(service_.requests().size(), 5u);
}

// sshd authenticates in another process, and brings only the PAM environment back.
TEST_F(Module, TakesTheIdOfTheProcessThatAuthenticated) {
    Login login(dir_, options());
    ASSERT_EQ(pam_putenv(login.handle(), "AAA_LOGIN_ID=4f1c00a7"), PAM_SUCCESS);
    EXPECT_EQ(login.account(), PAM_SUCCESS);
    EXPECT_EQ(service_.requests().back().login, 0x4f1c00a7u);
    ASSERT_EQ(pam_putenv(login.handle(), "AAA_LOGIN_ID=00000001"), PAM_SUCCESS);
    EXPECT_EQ(login.open(), PAM_SUCCESS);
    EXPECT_EQ(service_.requests().back().login, 0x4f1c00a7u) << "the first one stays";
}

TEST_F(Module, DoesNotTakeAnIdThatIsNone) {
    for (const char *wrong :
         {"", "4f1c00a", "4f1c00ag", "00000000", "-4f1c00a7", " 4f1c00a7", "4f1c00a74f1c00a74f1c00a7"}) {
        Login login(dir_, options());
        ASSERT_EQ(pam_putenv(login.handle(), (std::string("AAA_LOGIN_ID=") + wrong).c_str()), PAM_SUCCESS);
        EXPECT_EQ(login.account(), PAM_SUCCESS);
        const uint32_t number = service_.requests().back().login;
        EXPECT_NE(number, 0u) << wrong;
        EXPECT_NE(number, 0x4f1c00a7u) << wrong;
        EXPECT_EQ(login.variable("AAA_LOGIN_ID"), login_text(number));
    }
}

// A socket file that no one listens at any more.
TEST_F(Module, FindsADeadService) {
    const std::string path = dir_.path("dead.sock");
    { const auto listener = transport_test::listen_at(path); }
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(Login(dir_, "nodelay socket=" + path).authenticate({"x"}), PAM_AUTHINFO_UNAVAIL);
    EXPECT_TRUE(logged("Connection refused"));
}

// Whoever may write the directory could listen there: the password is not sent.
TEST_F(Module, SendsNothingToAServiceOfAnotherUser) {
    const std::string path = dir_.path("theirs.sock");
    ASSERT_EQ(chmod(dir_.path("").c_str(), 0777), 0);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) {
            _exit(1);
        }
        const auto listener = transport_test::listen_at(path);
        (void)!write(ready[1], "r", 1);
        const auto client = transport_test::accept_from(listener);
        auto msg = std::make_unique<aaa_transport_msg_t>();
        _exit(aaa_transport_receive(client.get(), msg.get(), AAA_TRANSPORT_NEVER) == AAA_OK ? 7 : 0);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    ASSERT_EQ(chmod(path.c_str(), 0777), 0);
    Login login(dir_, "nodelay socket=" + path);
    EXPECT_EQ(login.authenticate({"secret"}), PAM_AUTHINFO_UNAVAIL);
    EXPECT_EQ(login.asked(), 0);
    EXPECT_TRUE(logged("runs as user 65534, not as root or aaad"));
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the other user's process got a message";
    close(ready[0]);
    close(ready[1]);
}

// ---- services that do not behave

TEST_F(Module, GivesUpOnASilentServiceAtTheDeadline) {
    service_.set([](const Request &) { return Action{}; });
    Login login(dir_, options("timeout=1"));
    EXPECT_EQ(login.authenticate({"x"}), PAM_AUTHINFO_UNAVAIL);
    EXPECT_TRUE(logged("timed out"));
}

// Each function would wait for its own time limit, so a login would take minutes.
TEST_F(Module, DoesNotWaitAgainInALoginWhoseServiceWasSilent) {
    service_.set([](const Request &) { return Action{}; });
    const std::string module = " required " AAA_PAM_MODULE " " + options();
    Login login(dir_, Lines{"auth" + module + "timeout=1\naccount" + module + "timeout=3600\nsession" +
                            module + "timeout=3600\n"});
    EXPECT_EQ(login.authenticate({"x"}), PAM_AUTHINFO_UNAVAIL);
    EXPECT_EQ(login.account(), PAM_AUTHINFO_UNAVAIL);
    EXPECT_NE(login.open(), PAM_SUCCESS);
}

TEST_F(Module, SurvivesAServiceThatEndsInTheMiddle) {
    service_.set([](const Request &) { return Action{"", true}; });
    Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"x"}), PAM_AUTHINFO_UNAVAIL);
    EXPECT_EQ(login.account(), PAM_AUTHINFO_UNAVAIL);
}

TEST_F(Module, TakesGarbageForNoAnswer) {
    const std::string good = status(AAA_STAT_PASS).bytes;
    std::vector<std::string> bad{"x", std::string(65536, '\xff'), std::string(24, '\0')};
    for (size_t length = 1; length < good.size(); ++length) {
        bad.push_back(good.substr(0, length));
        bad.push_back(replies::with_length(good.substr(0, length)));
    }
    for (const std::string &bytes : bad) {
        service_.set([&](const Request &) { return Action{bytes}; });
        Login login(dir_, options());
        EXPECT_EQ(login.authenticate({"x"}), PAM_AUTHINFO_UNAVAIL) << bytes.size() << " bytes";
        EXPECT_NE(login.account(), PAM_SUCCESS);
    }
}

// Any byte of an answer may be wrong. What is left may be an answer, but the module ends.
TEST_F(Module, SurvivesAnswersWithWrongBytes) {
    const std::string good = say(AAA_STAT_FAIL, "No, said the service.").bytes;
    for (size_t at = 0; at < good.size(); ++at) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(~bytes[at]);
        service_.set([&](const Request &) { return Action{bytes}; });
        EXPECT_NE(Login(dir_, options()).authenticate({"x"}), PAM_SUCCESS) << "byte " << at;
    }
}

TEST_F(Module, CutsTextsThatAreTooLong) {
    service_.set([](const Request &) { return say(AAA_STAT_FAIL, std::string(1500, 'a')); });
    Login cut(dir_, options());
    EXPECT_EQ(cut.authenticate({"x"}), PAM_AUTH_ERR);
    EXPECT_EQ(cut.heard().at(1).text, std::string(511, 'a'));
    service_.set([](const Request &) { return say(AAA_STAT_FAIL, std::string(30000, 'a')); });
    Login none(dir_, options());
    EXPECT_EQ(none.authenticate({"x"}), PAM_AUTH_ERR);
    EXPECT_EQ(none.heard().size(), 1u);
}

TEST_F(Module, NoticesThatTheServiceLeftWhileTheUserTyped) {
    service_.set([](const Request &) { return Action{status(AAA_STAT_GETDATA).bytes, true}; });
    Login login(dir_, options("max_challenge=2"));
    size_t questions = 0;  // the first one is the module's own
    login.before_each_answer([&] { service_.wait_for_hang_ups(questions++); });
    EXPECT_EQ(login.authenticate({"x", "y", "z", "a"}), PAM_MAXTRIES);
    EXPECT_EQ(service_.connections(), 3u);
}

// It closes a connection at the moment at which the request arrives. Taken for no service, that
// would have the next module decide.
TEST_F(Module, AsksAgainWhenTheServiceClosesTheConnectionInsteadOfAnswering) {
    for (const uint32_t decision : {AAA_STAT_PASS, AAA_STAT_ABORT}) {
        service_.set([&](const Request &) {
            return service_.requests().size() % 2 == 1 ? Action{"", true} : status(decision);
        });
        Login login(dir_, options());
        EXPECT_EQ(login.authenticate({"x"}), decision == AAA_STAT_PASS ? PAM_SUCCESS : PAM_MAXTRIES);
    }
    ASSERT_EQ(service_.requests().size(), 4u);
    EXPECT_EQ(service_.requests()[1].password, "x");
    EXPECT_EQ(service_.connections(), 4u);
}

// ---- what is left in the process

size_t entries(const char *directory) {
    size_t count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(directory)) {
        ++count;
    }
    return count;
}

void cycle(const TempDir &dir, const std::string &options, bool fork_to_close) {
    Login login(dir, options);
    ASSERT_EQ(login.authenticate({"x"}), PAM_SUCCESS);
    ASSERT_EQ(login.account(), PAM_SUCCESS);
    ASSERT_EQ(login.open(), PAM_SUCCESS);
    if (!fork_to_close) {
        ASSERT_EQ(login.close(), PAM_SUCCESS);
        return;
    }
    const pid_t child = fork();
    if (child == 0) {
        _exit(login.close() == PAM_SUCCESS ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
}

TEST_F(Module, LeavesNothingAfterFiveHundredLogins) {
    cycle(dir_, options(), true);  // libpam and libc keep some memory of the first
    const size_t descriptors = entries("/proc/self/fd");
    const size_t threads = entries("/proc/self/task");
#ifndef __SANITIZE_ADDRESS__
    const size_t bytes = mallinfo2().uordblks;
#endif
    size_t requests = service_.requests().size();
    for (int i = 0; i < 500; ++i) {
        cycle(dir_, options(), i % 10 == 9);
    }
    EXPECT_EQ(service_.requests().size() - requests, 2000u);
    EXPECT_EQ(entries("/proc/self/task"), threads);
    // The service closes its end of the last connections when it gets to it.
    EXPECT_LE(entries("/proc/self/fd"), descriptors + 1);
    take_log();
#ifndef __SANITIZE_ADDRESS__
    // The test's service keeps each request; one leaked block of each login would be as much.
    constexpr size_t kKept = 2000 * (sizeof(Request) + 64) * 2;
    EXPECT_LE(mallinfo2().uordblks, bytes + kKept);
#endif
    EXPECT_EQ(dlopen(AAA_PAM_MODULE, RTLD_NOLOAD | RTLD_LAZY), nullptr) << "the module is still loaded";
}

TEST_F(Module, ServesManyThreads) {
    std::vector<std::thread> threads;
    std::vector<TempDir> dirs(4);
    for (TempDir &dir : dirs) {
        threads.emplace_back([&] {
            for (int i = 0; i < 25; ++i) {
                cycle(dir, options(), false);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(service_.requests().size(), 400u);
}

TEST_F(Module, WorksWithoutStandardDescriptorsAndTouchesNone) {
    const pid_t child = fork();
    if (child == 0) {
        // The output of the test itself is gone here: the result is the exit status.
        Login login(dir_, options());
        close(0);
        close(1);
        close(2);
        const bool passed = login.authenticate({"x"}) == PAM_SUCCESS && login.account() == PAM_SUCCESS &&
                            login.open() == PAM_SUCCESS && login.close() == PAM_SUCCESS;
        _exit(!passed                                                                         ? 1
              : fcntl(0, F_GETFD) != -1 || fcntl(1, F_GETFD) != -1 || fcntl(2, F_GETFD) != -1 ? 2
                                                                                              : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(Module, LeavesNoPasswordInMemory) {
    constexpr Inverted kSecret("n0-0ne-sh0uld-f1nd-this");
    // Releasing a block overwrites its beginning, so the secret is further in.
    const std::string answer =
        "~" + std::string(64, static_cast<char>(~'p')) + std::string(kSecret.bytes, sizeof kSecret.bytes);
    const pid_t child = fork();  // the service, which is in this process, has the password
    if (child == 0) {
        std::string copy(kSecret.bytes, sizeof kSecret.bytes);
        for (char &c : copy) {
            c = static_cast<char>(~c);
        }
        const bool seen = copies_in_memory(kSecret) == 1;
        explicit_bzero(copy.data(), copy.size());
        Login login(dir_, options());
        if (!seen || login.authenticate({answer}) != PAM_SUCCESS) {
            _exit(100);
        }
        _exit(static_cast<int>(copies_in_memory(kSecret)));
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "copies, or 100: no login";
    EXPECT_EQ(service_.requests().at(0).password.substr(64), "n0-0ne-sh0uld-f1nd-this");
}

// The environment belongs to the caller of a set-user-ID program.
TEST_F(Module, BelievesNoEnvironment) {
    const ScopedEnv connection("SSH_CONNECTION", "203.0.113.66 1 2 3");
    const ScopedEnv debug("AAA_DEBUG", "all");
    const ScopedEnv user("USER", "mallory");
    Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"x"}), PAM_SUCCESS);
    const Request request = service_.requests().at(0);
    EXPECT_EQ(request.address, "");
    EXPECT_EQ(request.terminal, "");
    EXPECT_EQ(request.user, "alice");
}

}  // namespace
