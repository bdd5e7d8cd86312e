// SPDX-License-Identifier: Apache-2.0
//
// The report of a broken invariant: one line in one write, also without memory.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "aaa/avpair.h"
#include "aaa/result_codes.h"
#include "support/assertion_report.hpp"
#include "support/avlist_model.hpp"
#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using aaatest::ListPtr;

// Two messages of a socket that keeps the bounds of each write, and the signal
// that ended the writer.
struct End {
    std::string first, second;
    int signal = 0;
};

// A process that compares a list whose count contradicts its buffers.
End stopped_process(bool without_memory) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        ListPtr list = aaatest::make_list("damaged");
        aaa_avpair_add(1, 0, "one", 0, 4, list.get());
        list->av_cnt = 0;
        void *value = nullptr;
        const auto find = [&] { return aaa_avpair_find_type(1, nullptr, &value, nullptr, 0, list.get()); };
        fake::FailAlloc fail(1);
        _exit(static_cast<int>(without_memory ? fail.run(find) : find()) != 0 ? 1 : 0);
    }
    close(ends[1]);
    End end;
    char message[4096];
    const auto read_one = [&] {
        const ssize_t length = recv(ends[0], message, sizeof message, 0);
        return length > 0 ? std::string(message, static_cast<size_t>(length)) : std::string();
    };
    end.first = read_one();
    end.second = read_one();
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    end.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return end;
}

TEST(AssertionReport, IsOneLineInOneWriteBeforeTheProcessAborts) {
    const End end = stopped_process(false);
    EXPECT_EQ(end.signal, SIGABRT);
    EXPECT_EQ(end.first.find("aaa/"), 0u) << end.first;
    EXPECT_NE(end.first.find(": Assertion `"), std::string::npos) << end.first;
    EXPECT_EQ(end.first.find('\n'), end.first.size() - 1) << end.first;
    EXPECT_EQ(end.second, "");
}

TEST(AssertionReport, NeedsNoMemory) {
    const End end = stopped_process(true);
    EXPECT_EQ(end.signal, SIGABRT);
    EXPECT_EQ(end.first, stopped_process(false).first);
}

}  // namespace
