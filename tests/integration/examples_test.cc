// SPDX-License-Identifier: Apache-2.0
//
// The example programs as a user runs them, and with malformed messages: the
// server answers each message and goes on, and the client ends with an error.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "support/send_signal.hpp"
#include "support/sysdb.hpp"
#include "support/temp_dir.hpp"
#include "support/transport.hpp"

namespace {

using Bytes = std::vector<unsigned char>;
using transport_test::accept_from;
using transport_test::connect_to;
using transport_test::listen_at;
using transport_test::Transport;

std::string example(const std::string &name) {
    return std::string(AAA_EXAMPLES_DIR) + "/" + name;
}

// Runs a program to its end; its output and its exit status.
struct Outcome {
    int status = -1;
    std::string output;
};

Outcome run(const std::vector<std::string> &args, const std::string &input) {
    int in[2], out[2];
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(out[1], 2);
        std::vector<char *> argv;
        for (const std::string &arg : args) {
            argv.push_back(const_cast<char *>(arg.c_str()));
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    close(in[1]);
    Outcome result;
    char buffer[4096];
    for (ssize_t n = read(out[0], buffer, sizeof buffer); n > 0; n = read(out[0], buffer, sizeof buffer)) {
        result.output.append(buffer, static_cast<size_t>(n));
    }
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

// The example server with its own database and files.
class ExampleServer : public testing::Test {
  protected:
    void SetUp() override { start(); }

    // Returns when the server is ready.
    void start() {
        int out[2];
        ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], 1);
            dup2(open("/dev/null", O_WRONLY), 2);
            const std::string program = example("aaa_server");
            execl(program.c_str(), program.c_str(), socket_.c_str(), AAA_SOURCE_DIR "/examples/users.conf",
                  dir_.path("accounting").c_str(), nullptr);
            _exit(127);
        }
        close(out[1]);
        out_ = out[0];
        char ready[6] = "";
        ASSERT_EQ(read(out_, ready, 5), 5);
        ASSERT_STREQ(ready, "ready");
    }

    void TearDown() override {
        aaatest::send_signal(pid_, SIGTERM);
        int status = -1;
        waitpid(pid_, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "the server died with status " << status;
        close(out_);
    }

    Outcome login(const std::string &user, const std::string &password, bool session = false) {
        std::vector<std::string> args = {example("login_client"), socket_, user};
        if (session) {
            args.emplace_back("--session");
        }
        return run(args, password + "\n");
    }

    // Sends one message on a new connection. Returns the answer, empty when the server closed the connection.
    Bytes exchange(const Bytes &message) {
        const Transport client = connect_to(socket_);
        const int fd = aaa_transport_descriptor(client.get());
        EXPECT_EQ(send(fd, message.data(), message.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(message.size()));
        const auto answer = std::make_unique<aaa_transport_msg_t>();
        const cerrno rc = aaa_transport_receive(client.get(), answer.get(), aaa_transport_deadline(60000));
        EXPECT_NE(rc, AAA_ERR_TIMEOUT) << "no answer";
        return {answer->u.bytes, answer->u.bytes + answer->len};
    }

    DatabaseSandbox sandbox_;
    TempDir dir_;
    std::string socket_ = dir_.path("socket");
    pid_t pid_ = -1;
    int out_ = -1;
};

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// An authentication request as it is sent.
Bytes well_formed(bool session) {
    char name[] = "alice", password[] = "wonderland", tty[] = "vty0", address[] = "192.0.2.10";
    aaa_usercred_t cred = {};
    cred.username = name;
    cred.password = password;
    cred.ttyname = tty;
    cred.remote_addr = address;
    cred.tty_mnemonic = tty;
    char buffer[4096];
    iov_t *iov = nullptr;
    uint32_t count = 0;
    aaa_sess_request_t record = {};
    EXPECT_EQ(aaa_util_msg_authen_compose(&record, 0, AAA_SVC_LOGIN, "default", 0, &cred, nullptr, nullptr,
                                          &iov, &count, buffer, sizeof buffer, nullptr, session),
              AAA_OK);
    const TempDir dir;
    const Transport listener = listen_at(dir.path("socket"));
    const Transport sender = connect_to(dir.path("socket"));
    const Transport receiver = accept_from(listener);
    EXPECT_EQ(session ? aaa_transport_send_packet(sender.get(), &record, sizeof record, AAA_TRANSPORT_NEVER)
                      : aaa_transport_send(sender.get(), iov, count, AAA_TRANSPORT_NEVER),
              AAA_OK);
    free(iov);
    const auto sent = std::make_unique<aaa_transport_msg_t>();
    EXPECT_EQ(aaa_transport_receive(receiver.get(), sent.get(), AAA_TRANSPORT_NEVER), AAA_OK);
    return {sent->u.bytes, sent->u.bytes + sent->len};
}

// Addresses of a process's heap and stack.
std::vector<std::pair<uint64_t, uint64_t>> heap_and_stack(pid_t pid) {
    std::vector<std::pair<uint64_t, uint64_t>> regions;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        uint64_t first = 0;
        uint64_t end = 0;
        if ((contains(line, "[heap]") || contains(line, "[stack]")) &&
            std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64, &first, &end) == 2) {
            regions.emplace_back(first, end);
        }
    }
    return regions;
}

TEST_F(ExampleServer, TellsRightWrongAndUnknownApart) {
    for (const bool session : {false, true}) {
        const Outcome right = login("alice", "wonderland", session);
        EXPECT_EQ(right.status, 0) << right.output;
        EXPECT_TRUE(contains(right.output, "=> PASS, privilege 15, message \"Welcome\"")) << right.output;
        const Outcome wrong = login("alice", "rabbit", session);
        EXPECT_EQ(wrong.status, 1);
        EXPECT_TRUE(contains(wrong.output, "=> FAIL, privilege 0, message \"Password is wrong\""))
            << wrong.output;
        const Outcome unknown = login("mallory", "wonderland", session);
        EXPECT_EQ(unknown.status, 1);
        EXPECT_TRUE(contains(unknown.output, "=> GETUSER, privilege 0, message \"User is not known here\""));
    }
}

TEST_F(ExampleServer, NeverShowsAPassword) {
    for (const bool session : {false, true}) {
        const Outcome result = login("alice", "wonderland", session);
        EXPECT_FALSE(contains(result.output, "wonderland"));
        EXPECT_FALSE(contains(result.output, "s3cret"));
        EXPECT_TRUE(contains(result.output, "copy ftp://backup:*@192.0.2.7/config startup-config"));
        EXPECT_TRUE(contains(result.output, "AAA_PASSWORD_ATTR (258/11) * *"));
    }
}

TEST_F(ExampleServer, AuthorizesOneCommandAndRefusesTheOther) {
    const Outcome result = login("alice", "wonderland");
    const size_t first = result.output.find("show running-config");
    const size_t second = result.output.find("copy ftp:");
    ASSERT_NE(first, std::string::npos);
    ASSERT_NE(second, std::string::npos);
    EXPECT_TRUE(contains(result.output.substr(first, second - first), "=> PASS"));
    EXPECT_TRUE(
        contains(result.output.substr(second), "=> FAIL, privilege 0, message \"Command is not allowed\""));
}

TEST_F(ExampleServer, RecordsStartUpdateAndStop) {
    login("alice", "wonderland");
    login("bob", "looking-glass", true);
    const std::string records = dir_.read("accounting");
    std::vector<std::string> lines;
    for (size_t at = 0, end = 0; (end = records.find('\n', at)) != std::string::npos; at = end + 1) {
        lines.push_back(records.substr(at, end - at));
    }
    ASSERT_EQ(lines.size(), 6u) << records;
    const char *const kinds[] = {"ACCT START", "ACCT UPDATE", "ACCT STOP"};
    for (size_t i = 0; i < 6; i++) {
        EXPECT_TRUE(contains(lines[i], kinds[i % 3])) << lines[i];
        EXPECT_TRUE(contains(lines[i], i < 3 ? "user=alice" : "user=bob")) << lines[i];
        EXPECT_TRUE(contains(lines[i], "session=4711")) << lines[i];
    }
}

TEST_F(ExampleServer, AppliesConfiguration) {
    for (const std::string form : {"", "--session"}) {
        std::vector<std::string> args = {example("config_client"), socket_, "branch", "192.0.2.40"};
        if (!form.empty()) {
            args.push_back(form);
        }
        const Outcome result = run(args, "");
        EXPECT_EQ(result.status, 0) << result.output;
        EXPECT_FALSE(contains(result.output, "not")) << result.output;
    }
}

TEST_F(ExampleServer, AnswersConnectPingAndDisconnect) {
    aaa_req_hdr_t header = {};
    iov_t *iov = nullptr;
    uint32_t count = 0;
    const Transport client = connect_to(socket_);
    static aaa_transport_msg_t reply;
    const auto ask = [&] {
        const cerrno rc = aaa_transport_ask(client.get(), iov, count, &reply, AAA_TRANSPORT_NEVER);
        free(iov);
        return rc;
    };
    for (const auto compose : {aaa_util_msg_ping_compose, aaa_util_msg_disconn_compose}) {
        ASSERT_EQ(compose(&header, &iov, &count, 0), AAA_OK);
        ASSERT_EQ(ask(), AAA_OK);
        EXPECT_EQ(aaa_transport_kind_of(&reply), AAA_TRANSPORT_CLASSIC);
        EXPECT_EQ(reply.len, offsetof(aaa_reply_hdr_t, status));
    }
    aaa_conn_msg_t connect = {};
    ASSERT_EQ(aaa_util_msg_conn_compose(&connect, 1, 2, 3, 4, 5, 6, "a", "b", &iov, &count, 0), AAA_OK);
    ASSERT_EQ(ask(), AAA_OK);
    EXPECT_EQ(reply.len, sizeof(aaa_reply_hdr_t));
    EXPECT_EQ(reply.u.bytes[offsetof(aaa_reply_hdr_t, second) + 3], 2u) << "protocol version, network order";
}

// A session reply carried the address of the server's list.
TEST_F(ExampleServer, SessionRepliesTellNoAddress) {
    const Bytes reply = exchange(well_formed(true));
    ASSERT_GT(reply.size(), sizeof(aaa_sess_hdr_t)) << "the packed list follows";
    aaa_sess_hdr_t header = {};
    std::memcpy(&header, reply.data(), sizeof header);
    EXPECT_EQ(header.list, 0u);
    // Nor are any other eight bytes an address of the server's heap or stack.
    const auto regions = heap_and_stack(pid_);
    ASSERT_FALSE(regions.empty());
    for (size_t at = 0; at + 8 <= reply.size(); ++at) {
        uint64_t value = 0;
        std::memcpy(&value, reply.data() + at, sizeof value);
        for (const auto &[first, end] : regions) {
            EXPECT_FALSE(value >= first && value < end) << "byte " << at;
        }
    }
}

// The socket of a server that was killed was in the way of the next one.
TEST_F(ExampleServer, StartsAgainAfterItWasKilled) {
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(aaatest::send_signal(pid_, SIGKILL), 0);
        ASSERT_EQ(waitpid(pid_, nullptr, 0), pid_);
        close(out_);
        start();
        EXPECT_EQ(login("alice", "wonderland").status, 0);
    }
    const Outcome second = run(
        {example("aaa_server"), socket_, AAA_SOURCE_DIR "/examples/users.conf", dir_.path("accounting")}, "");
    EXPECT_EQ(second.status, 1);
    EXPECT_TRUE(contains(second.output, "Address already in use")) << second.output;
    EXPECT_EQ(login("alice", "wonderland").status, 0) << "the first one goes on";
}

// ---- malformed messages --------------------------------------------------------------

void fix_length(Bytes &message) {
    const auto length = static_cast<uint32_t>(message.size());
    if (message.size() >= 8) {
        std::memcpy(message.data() + 4, &length, sizeof length);
    }
}

TEST_F(ExampleServer, AnswersEveryTruncation) {
    for (const bool session : {false, true}) {
        const Bytes whole = well_formed(session);
        ASSERT_GT(exchange(whole).size(), 24u);
        for (size_t length = 1; length < whole.size(); length += 7) {
            Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
            EXPECT_FALSE(exchange(cut).empty()) << length;
            if (!session) {
                fix_length(cut);
                EXPECT_FALSE(exchange(cut).empty()) << length;
            }
        }
    }
    EXPECT_EQ(login("alice", "wonderland").status, 0);
}

TEST_F(ExampleServer, AnswersEveryFlippedWord) {
    for (const bool session : {false, true}) {
        const Bytes whole = well_formed(session);
        for (size_t at = 0; at + 4 <= whole.size(); at += 4) {
            for (const unsigned char with : {uint8_t{0x00}, uint8_t{0x7f}, uint8_t{0xff}}) {
                Bytes lie = whole;
                std::fill_n(lie.begin() + static_cast<ptrdiff_t>(at), 4, with);
                EXPECT_FALSE(exchange(lie).empty()) << at;
            }
        }
    }
    EXPECT_EQ(login("alice", "wonderland").status, 0);
}

TEST_F(ExampleServer, AnswersRandomBytesOfEveryType) {
    std::mt19937 random(20240229);
    for (int round = 0; round < 400; round++) {
        Bytes message(1 + random() % 600);
        for (unsigned char &byte : message) {
            byte = static_cast<unsigned char>(random());
        }
        if (round % 2 == 0 && message.size() >= offsetof(aaa_req_hdr_t, param)) {
            const uint32_t fields[2] = {AAA_TRANSPORT_MAGIC, static_cast<uint32_t>(message.size())};
            const auto type = static_cast<uint32_t>(random() % 30);
            std::memcpy(message.data(), fields, sizeof fields);
            std::memcpy(message.data() + offsetof(aaa_req_hdr_t, type), &type, sizeof type);
        }
        EXPECT_FALSE(exchange(message).empty()) << round;
    }
    EXPECT_EQ(login("alice", "wonderland").status, 0);
}

TEST_F(ExampleServer, OutlivesMessagesThatAreTooLongAndClientsThatVanish) {
    EXPECT_FALSE(exchange(Bytes(AAA_TRANSPORT_MAX + 4096, 'x')).empty());
    for (int i = 0; i < 300; i++) {
        const Transport client = connect_to(socket_);
        if (i % 3 == 0) {
            const Bytes whole = well_formed(i % 2 == 0);
            EXPECT_GT(send(aaa_transport_descriptor(client.get()), whole.data(), whole.size(), MSG_NOSIGNAL),
                      0);
        }
    }
    EXPECT_EQ(login("alice", "wonderland").status, 0);
}

// ---- a client that is answered with garbage ----------------------------------------------

TEST(ExampleClient, EndsWithAnErrorWhateverItIsAnswered) {
    const TempDir dir;
    const std::string path = dir.path("socket");
    const Transport listener = listen_at(path);
    const std::vector<std::pair<std::string, Bytes>> answers = {
        {"one byte", Bytes(1, 'x')},
        {"zeroes", Bytes(100, 0)},
        {"text", Bytes(500, 'A')},
        {"session marker",
         [] {
             Bytes b(400, 0xff);
             b[0] = 16;
             b[1] = b[2] = b[3] = 0;
             return b;
         }()},
        {"classic without a list",
         [] {
             Bytes b(30, 0xff);
             const uint32_t fields[2] = {AAA_TRANSPORT_MAGIC, 30};
             std::memcpy(b.data(), fields, sizeof fields);
             std::memset(b.data() + offsetof(aaa_reply_hdr_t, status), 0, 4);
             return b;
         }()},
        {"nothing", {}},
    };
    for (const auto &[what, answer] : answers) {
        const Bytes &bytes = answer;  // a structured binding cannot be captured
        std::thread server([&] {
            const Transport client = accept_from(listener);
            static aaa_transport_msg_t request;
            EXPECT_EQ(aaa_transport_receive(client.get(), &request, AAA_TRANSPORT_NEVER), AAA_OK);
            const std::string sent(reinterpret_cast<const char *>(request.u.bytes), request.len);
            EXPECT_TRUE(contains(sent, "alice"));
            if (!bytes.empty()) {
                EXPECT_GT(
                    send(aaa_transport_descriptor(client.get()), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                    0);
            }
        });
        const Outcome result = run({example("login_client"), path, "alice"}, "wonderland\n");
        server.join();
        EXPECT_EQ(result.status, 1) << what << ": " << result.output;
        EXPECT_FALSE(contains(result.output, "=> PASS")) << what << ": " << result.output;
    }
}

// A message of the server acted on the terminal of its reader.
TEST(ExampleClient, ShowsAMessageOfTheServerAsVisibleText) {
    const TempDir dir;
    const Transport listener = listen_at(dir.path("socket"));
    const std::string hostile =
        "\033]0;title\a\033[2J\n => PASS\u202e\u00ad\u0085\U000e0041\xff\\ gr\u00fc\u00df";
    std::thread server([&] {
        const Transport client = accept_from(listener);
        static aaa_transport_msg_t request;
        EXPECT_EQ(aaa_transport_receive(client.get(), &request, AAA_TRANSPORT_NEVER), AAA_OK);
        aaa_reply_hdr_t header = {};
        iov_t *iov = nullptr;
        uint32_t count = 0;
        char buffer[1024];
        avlist *list = nullptr;
        EXPECT_EQ(aaa_avpair_create_list("re\033[2Jply", &list), AAA_OK);
        EXPECT_EQ(aaa_util_avlist_status_add(AAA_STAT_FAIL, 4, list), AAA_OK);
        EXPECT_EQ(aaa_util_avpair_add_attr(list, AAA_REPLYMSG_ATTR, hostile.c_str(),
                                           static_cast<uint32_t>(hostile.size()) + 1, 0),
                  AAA_OK);
        EXPECT_EQ(aaa_util_reply_compose(&header, &iov, &count, buffer, sizeof buffer, list, 0, nullptr),
                  AAA_OK);
        EXPECT_EQ(aaa_transport_send(client.get(), iov, count, AAA_TRANSPORT_NEVER), AAA_OK);
        aaa_avpair_free_list(list);
        free(iov);
    });
    const Outcome result = run({example("login_client"), dir.path("socket"), "alice"}, "wonderland\n");
    server.join();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.output,
                         "message \"\\x1b]0;title\\x07\\x1b[2J\\n => PASS\\xe2\\x80\\xae\\xc2\\xad\\xc2\\x85"
                         "\\xf3\\xa0\\x81\\x81\\xff\\\\ gr\u00fc\u00df\""))
        << result.output;
    for (const char *hidden : {"\033", "\a", "\u202e", "\u00ad", "\u0085", "\U000e0041", "\xff"}) {
        EXPECT_FALSE(contains(result.output, hidden)) << result.output;
    }
}

// Their numbers went to the files of the libraries.
TEST_F(ExampleServer, ClosedStandardDescriptorsAreNotUsedForFiles) {
    for (const char *program : {"login_client", "db_load"}) {
        const std::string command =
            "exec env -u NO_DLLMAIN " + example(program) + " " + socket_ + " alice <&- >&- 2>&-";
        EXPECT_NE(std::system(command.c_str()), 0) << program;
    }
    TearDown();
    const pid_t pid = fork();
    if (pid == 0) {
        unsetenv("NO_DLLMAIN");
        for (int fd = 0; fd <= 2; ++fd) {
            close(fd);
        }
        const std::string program = example("aaa_server");
        execl(program.c_str(), program.c_str(), socket_.c_str(), AAA_SOURCE_DIR "/examples/users.conf",
              dir_.path("accounting").c_str(), nullptr);
        _exit(127);
    }
    while (access(socket_.c_str(), F_OK) != 0) {  // it prints nothing
        ASSERT_EQ(waitpid(pid, nullptr, WNOHANG), 0);
        sched_yield();
    }
    for (int fd = 0; fd <= 2; ++fd) {
        char target[64] = "";
        const std::string link = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
        EXPECT_EQ(readlink(link.c_str(), target, sizeof target - 1), 1);
        EXPECT_STREQ(target, "/");
    }
    aaatest::send_signal(pid, SIGTERM);
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    start();
}

TEST(ExampleClient, SendsNoPasswordOfAnAddressInACommand) {
    const TempDir dir;
    const std::string path = dir.path("socket");
    const Transport listener = listen_at(path);
    std::string wire;
    std::thread server([&] {
        const Transport client = accept_from(listener);
        static aaa_transport_msg_t request;
        // Accepts everything, so that the client goes on to its commands.
        while (aaa_transport_receive(client.get(), &request, AAA_TRANSPORT_NEVER) == AAA_OK) {
            wire.append(reinterpret_cast<const char *>(request.u.bytes), request.len);
            aaa_reply_hdr_t header = {};
            iov_t *iov = nullptr;
            uint32_t count = 0;
            char buffer[512];
            avlist *list = nullptr;
            EXPECT_EQ(aaa_avpair_create_list("reply", &list), AAA_OK);
            EXPECT_EQ(aaa_util_avlist_status_add(AAA_STAT_PASS, 4, list), AAA_OK);
            EXPECT_EQ(aaa_util_reply_compose(&header, &iov, &count, buffer, sizeof buffer, list, 0, nullptr),
                      AAA_OK);
            EXPECT_EQ(aaa_transport_send(client.get(), iov, count, AAA_TRANSPORT_NEVER), AAA_OK);
            aaa_avpair_free_list(list);
            free(iov);
        }
    });
    run({example("login_client"), path, "alice"}, "wonderland\n");
    server.join();
    EXPECT_TRUE(contains(wire, "copy ftp://backup:*@192.0.2.7/config"));
    EXPECT_FALSE(contains(wire, "s3cret"));
}

}  // namespace
