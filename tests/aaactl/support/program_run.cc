// SPDX-License-Identifier: Apache-2.0
//
// Running aaactl as a process.

#include "aaactl/support/program_run.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "aaactl/support/json_schema.hpp"

namespace aaactl_test {

JsonDocument Run::json() const {
    auto document = JsonDocument::parse(out);
    EXPECT_TRUE(document.valid()) << "not JSON: " << out << err;
    return document;
}

// At once, so that neither side waits for the other.
void exchange(int in, int out, int err, const std::string &input, Run &run) {
    size_t written = 0;
    pollfd fds[3] = {{in, POLLOUT, 0}, {out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string *texts[3] = {nullptr, &run.out, &run.err};
    const auto finish = [&](pollfd &fd) {
        close(fd.fd);
        fd.fd = -1;
    };
    if (input.empty()) {
        finish(fds[0]);
    }
    while (fds[1].fd >= 0 || fds[2].fd >= 0) {
        if (poll(fds, 3, -1) < 0) {
            continue;
        }
        if (fds[0].fd >= 0 && fds[0].revents != 0) {
            const ssize_t n = write(fds[0].fd, input.data() + written, input.size() - written);
            written += n > 0 ? static_cast<size_t>(n) : 0;
            if (n < 0 || written == input.size()) {
                finish(fds[0]);
            }
        }
        for (int i = 1; i < 3; ++i) {
            char buffer[65536];
            if (fds[i].fd >= 0 && fds[i].revents != 0) {
                const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
                if (n <= 0) {
                    finish(fds[i]);
                } else {
                    texts[i]->append(buffer, static_cast<size_t>(n));
                }
            }
        }
    }
    if (fds[0].fd >= 0) {
        finish(fds[0]);
    }
}

namespace {

Run run_program(const std::vector<std::string> &args, const std::string &input) {
    signal(SIGPIPE, SIG_IGN);  // a program need not read its input
    int in[2], out[2], err[2];
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
    std::vector<char *> argv;
    for (const std::string &arg : args) {
        argv.push_back(const_cast<char *>(arg.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        unsetenv("NO_DLLMAIN");                            // as users run it
        setenv("AAA_SYSDB_PROVIDER", AAACTL_PROVIDER, 0);  // a test may have set its own
        setenv("AAA_LOG", "none", 0);
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    Run run;
    exchange(in[1], out[0], err[0], input, run);
    int status = 0;
    waitpid(pid, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

}  // namespace

Run aaactl(const std::vector<std::string> &args, const std::string &input) {
    std::vector<std::string> all{AAACTL_PROGRAM};
    all.insert(all.end(), args.begin(), args.end());
    Run run = run_program(all, input);
    expect_documented(args, run.out);
    return run;
}

Run in_shell(const std::string &line) {
    const std::string program = AAACTL_PROGRAM;
    return run_program({"/bin/sh", "-c", "PATH=" + program.substr(0, program.rfind('/')) + ":$PATH; " + line},
                       "");
}

}  // namespace aaactl_test
