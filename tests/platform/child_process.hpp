// SPDX-License-Identifier: Apache-2.0
//
// Runs part of a test in a new process of the same executable, for settings that
// a process reads only once. The test program's main() calls
// run_child_body() first.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/temp_dir.hpp"

using ChildBodies = std::map<std::string, std::function<void()>>;

struct ChildResult {
    int status;
    std::string out;
    std::string err;
};

// Runs the body of that name with the given settings ("NAME=value") added to
// the environment.
inline ChildResult run_child(const std::string &body, const std::vector<std::string> &settings = {}) {
    const TempDir dir;
    const std::string out = dir.path("out");
    const std::string err = dir.path("err");
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        for (const std::string &setting : settings) {
            const size_t equals = setting.find('=');
            setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
        }
        setenv("AAA_TEST_CHILD", body.c_str(), 1);
        dup2(open(out.c_str(), O_WRONLY | O_CREAT, 0600), 1);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT, 0600), 2);
        execl("/proc/self/exe", "child", static_cast<char *>(nullptr));
        _exit(127);
    }
    ChildResult result{};
    waitpid(pid, &result.status, 0);
    result.out = dir.read("out");
    result.err = dir.read("err");
    EXPECT_EQ(0, result.status) << result.err;
    return result;
}

// First statement of main(): true when this process was one of the above.
inline bool run_child_body(const ChildBodies &bodies) {
    const char *name = std::getenv("AAA_TEST_CHILD");
    if (name == nullptr) {
        return false;
    }
    bodies.at(name)();
    std::fflush(nullptr);
    return true;
}

inline std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> out;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        out.push_back(line);
    }
    return out;
}
