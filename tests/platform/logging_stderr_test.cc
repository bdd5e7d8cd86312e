// SPDX-License-Identifier: Apache-2.0
//
// Descriptor 2 that is not standard error but a file of the program, which had closed
// its standard error: no message may get into it. Each case is a process of its own.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "child_process.hpp"
#include "message_record.hpp"
#include "platform/logging.h"
#include "support/temp_dir.hpp"

namespace {

void log_error() {
    const kel_msg_rec_t record = make_record("%s", "DEBUG_ERROR", 3);
    kel_errmsg(&record, 3, "text");
}

// Prints what arrives at the other end of a descriptor that became the second one.
void print_arrived(int end) {
    char bytes[256];
    const ssize_t n = recv(end, bytes, sizeof bytes, MSG_DONTWAIT);
    std::printf("%.*s", n > 0 ? static_cast<int>(n) : 0, bytes);
}

void log_into_file() {
    dup2(open(std::getenv("AAA_TEST_FILE"), std::atoi(std::getenv("AAA_TEST_FLAGS")) | O_CLOEXEC), 2);
    log_error();
}

void log_into_network_connection() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *const any = reinterpret_cast<sockaddr *>(&address);
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, any, length) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, any, &length) != 0 || connect(client, any, length) != 0) {
        std::printf("no connection");
        return;
    }
    dup2(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), 2);
    log_error();
    shutdown(2, SHUT_WR);
    char byte = 0;
    recv(client, &byte, 1, MSG_PEEK);  // a byte, or the end
    print_arrived(client);
}

void log_into_local_socket() {
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    dup2(ends[0], 2);
    log_error();
    print_arrived(ends[1]);
}

void log_into_pipe() {
    int ends[2];
    char bytes[256] = "";
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
        const int reading_end = fcntl(ends[0], F_DUPFD_CLOEXEC, 3);  // it may be 2
        dup2(ends[1], 2);
        log_error();
        const ssize_t n = read(reading_end, bytes, sizeof bytes - 1);
        std::printf("%.*s", n > 0 ? static_cast<int>(n) : 0, bytes);
    }
}

void log_without_reader(int reading_end, int writing_end) {
    signal(SIGPIPE, SIG_DFL);
    dup2(writing_end, 2);
    close(writing_end);
    close(reading_end);
    log_error();
    sigset_t pending;
    sigpending(&pending);
    std::printf(sigismember(&pending, SIGPIPE) == 0 ? "goes on" : "the signal waits");
}

void log_into_pipe_without_reader() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == 0) {
        log_without_reader(ends[0], ends[1]);
    }
}

void log_into_socket_without_reader() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0) {
        log_without_reader(ends[0], ends[1]);
    }
}

// As a daemon that is started without standard error.
void start_without_standard_error() {
    setenv("AAA_TEST_CHILD", std::getenv("AAA_TEST_NEXT"), 1);
    close(2);
    execl("/proc/self/exe", "child", static_cast<char *>(nullptr));
}

const ChildBodies kBodies = {
    {"file", log_into_file},
    {"network", log_into_network_connection},
    {"local", log_into_local_socket},
    {"pipe", log_into_pipe},
    {"without", start_without_standard_error},
    {"gone_pipe", log_into_pipe_without_reader},
    {"gone_socket", log_into_socket_without_reader},
};

constexpr char kLine[] = "%AAA-SECURITY-3-DEBUG_ERROR : text\n";

const std::vector<std::string> kNoLogService = {"AAA_LOG=syslog", "AAA_SYSLOG_SOCKET=/nonexistent/socket"};

std::vector<std::string> operator+(std::vector<std::string> all, const std::vector<std::string> &more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

// What a file with these contents contains after a message.
std::string file_after(int flags, const std::vector<std::string> &settings,
                       const std::string &body = "file") {
    const TempDir dir;
    const std::string file = dir.write("data", "data");
    run_child(body, settings + std::vector<std::string>{"AAA_TEST_FILE=" + file, "AAA_TEST_NEXT=file",
                                                        "AAA_TEST_FLAGS=" + std::to_string(flags)});
    return dir.read("data");
}

}  // namespace

// The message overwrote the beginning of the program's data.
TEST(StandardError, DataThatIsReadAndWrittenGetsNoMessage) {
    EXPECT_EQ("data", file_after(O_RDWR, kNoLogService));
}

TEST(StandardError, FileThatIsOnlyWrittenOrAppendedToIsARedirection) {
    EXPECT_EQ(kLine, file_after(O_WRONLY | O_TRUNC, kNoLogService));
    EXPECT_EQ(std::string("data") + kLine, file_after(O_WRONLY | O_APPEND, kNoLogService));
    EXPECT_EQ(std::string("data") + kLine, file_after(O_RDWR | O_APPEND, kNoLogService));
}

// With standard error as the chosen place a test may collect it in a temporary file.
TEST(StandardError, FileThatIsReadAndWrittenGetsWhatWasAskedFor) {
    EXPECT_EQ(kLine, file_after(O_RDWR | O_TRUNC, {"AAA_LOG=stderr"}));
}

// What such a program opens as 2 is its own.
TEST(StandardError, FilesOfAProgramThatWasStartedWithoutItGetNoMessage) {
    for (const int flags : {O_RDWR, O_WRONLY, O_WRONLY | O_APPEND}) {
        EXPECT_EQ("data", file_after(flags, kNoLogService, "without")) << flags;
        EXPECT_EQ("data", file_after(flags, {"AAA_LOG=stderr"}, "without")) << flags;
    }
}

TEST(StandardError, PipesAndLocalSocketsGetTheMessage) {
    for (const char *kind : {"pipe", "local"}) {
        EXPECT_EQ(kLine, run_child(kind, kNoLogService).out) << kind;
    }
}

// The peer of a protocol on the machine received the message.
TEST(StandardError, PipesAndSocketsOfAProgramThatWasStartedWithoutItGetNoMessage) {
    for (const char *kind : {"pipe", "local"}) {
        const std::vector<std::string> next = {std::string("AAA_TEST_NEXT=") + kind};
        EXPECT_EQ("", run_child("without", kNoLogService + next).out) << kind;
        EXPECT_EQ("", run_child("without", std::vector<std::string>{"AAA_LOG=stderr"} + next).out) << kind;
    }
}

// The first message ended the process with SIGPIPE.
TEST(StandardError, AReaderThatHasGoneDoesNotEndTheProgram) {
    EXPECT_EQ("goes on", run_child("gone_pipe", kNoLogService).out);
    EXPECT_EQ("goes on", run_child("gone_socket", kNoLogService).out);
}

// The peer of a protocol is sent nothing that does not belong to it.
TEST(StandardError, NetworkConnectionsGetNoMessage) {
    EXPECT_EQ("", run_child("network", kNoLogService).out);
}

int main(int argc, char **argv) {
    if (run_child_body(kBodies)) {
        return 0;
    }
    unsetenv("JOURNAL_STREAM");
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
