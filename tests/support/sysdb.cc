// SPDX-License-Identifier: Apache-2.0

#include "support/sysdb.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

std::string code_text(cerrno rc) {
    char text[16];
    std::snprintf(text, sizeof text, "!%08x", rc);
    return text;
}

// Memory is faster than a disk, and these tests do not test the disk.
std::string temporary_root() {
    const char *base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    std::string name = std::string(base) + "/aaa-sysdb-test.XXXXXX";
    EXPECT_NE(nullptr, mkdtemp(name.data()));
    return name;
}

[[noreturn]] void run_body(const std::function<void()> &body) {
    body();
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
}

}  // namespace

DatabaseSandbox::DatabaseSandbox() : root_(temporary_root()), owner_(getpid()) {
    setenv("AAA_SYSDB_CFG_DIR", (root_ + "/cfg").c_str(), 1);
    setenv("AAA_SYSDB_RUN_DIR", (root_ + "/run").c_str(), 1);
    setenv("AAA_LOG", "stderr", 1);
}

DatabaseSandbox::~DatabaseSandbox() {
    if (getpid() == owner_) {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
}

Bound::Bound(const std::string &path, uint32_t flags) : code_(_sysdb_bind(&handle_, path.c_str(), flags)) {}

Bound::~Bound() {
    unbind();
}

void Bound::unbind() {
    if (handle_ != 0) {
        _sysdb_unbind(handle_);
    }
    handle_ = 0;
}

cerrno set_number(sysdb_conn_t conn, const std::string &path, uint32_t value) {
    return sysdb_item_set(conn, path.c_str(), SYSDB_TYPE_U32, &value, sizeof value, 1);
}

cerrno set_text(sysdb_conn_t conn, const std::string &path, const std::string &value) {
    const auto length = static_cast<uint32_t>(value.size() + 1);
    return sysdb_item_set(conn, path.c_str(), SYSDB_TYPE_STRING, value.c_str(), length, 1);
}

int64_t get_number(sysdb_conn_t conn, const std::string &path) {
    uint32_t type = SYSDB_TYPE_U32;
    void *value = nullptr;
    uint32_t length = 0;
    const cerrno rc = sysdb_item_get(conn, path.c_str(), &type, &value, &length, 0);
    if (rc != 0) {
        return -static_cast<int64_t>(rc);
    }
    uint32_t number = 0;
    EXPECT_EQ(sizeof number, length);
    std::memcpy(&number, value, sizeof number);
    free(value);
    return number;
}

std::string get_text(sysdb_conn_t conn, const std::string &path) {
    uint32_t type = SYSDB_TYPE_STRING;
    void *value = nullptr;
    uint32_t length = 0;
    const cerrno rc = sysdb_item_get(conn, path.c_str(), &type, &value, &length, 0);
    if (rc != 0) {
        return code_text(rc);
    }
    std::string text = static_cast<char *>(value);
    EXPECT_EQ(text.size() + 1, length);
    free(value);
    return text;
}

cerrno existence(sysdb_conn_t conn, const std::string &path) {
    return sysdb_item_get(conn, path.c_str(), nullptr, nullptr, nullptr, 0);
}

std::vector<std::string> names_in(sysdb_conn_t conn, const std::string &path, const std::string &pattern) {
    uint32_t count = 0;
    sysdb_list_t list = nullptr;
    const cerrno rc = sysdb_list(conn, path.c_str(), pattern.c_str(), &count, &list, 0);
    if (rc != 0) {
        return {code_text(rc)};
    }
    std::vector<std::string> names;
    EXPECT_EQ(0u, sysdb_list_start(list));
    char *name = nullptr;
    uint32_t type = 0;
    while (sysdb_list_next(list, &name, &type, 0) == 0) {
        names.emplace_back(name);
        EXPECT_EQ(names.back().back() == '/', type == SYSDB_TYPE_DIRECTORY) << name;
    }
    EXPECT_EQ(count, names.size());
    sysdb_list_free(list);
    return names;
}

std::string last_in(sysdb_conn_t conn, const std::string &path) {
    char *name = nullptr;
    uint32_t type = 0;
    const cerrno rc = sysdb_directory_get_last(conn, path.c_str(), &name, &type, 0);
    if (rc != 0) {
        return code_text(rc);
    }
    std::string text = name;
    free(name);
    return text;
}

bool wait_readable(int channel, int milliseconds) {
    pollfd ready = {channel, POLLIN, 0};
    return poll(&ready, 1, milliseconds) == 1;
}

int channel_of(sysdb_conn_t conn) {
    int32_t channel = -1;
    EXPECT_EQ(0u, sysdb_conn_to_coid(conn, &channel));
    return channel;
}

std::string run_forked(const std::function<void()> &body) {
    int errors[2];
    EXPECT_EQ(0, pipe2(errors, O_CLOEXEC));
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(errors[1], STDERR_FILENO);
        close(errors[0]);
        close(errors[1]);
        run_body(body);
    }
    close(errors[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = read(errors[0], buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(n));
    }
    close(errors[0]);
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_EQ(0, status) << text;
    return text;
}

ForkedProcess::ForkedProcess(const std::function<void()> &body) {
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        run_body(body);
    }
}

ForkedProcess::~ForkedProcess() {
    kill_now();
}

void ForkedProcess::kill_now() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

int ForkedProcess::wait() {
    int status = 0;
    EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Pipe::Pipe() {
    EXPECT_EQ(0, pipe2(ends_, O_CLOEXEC));
}

Pipe::~Pipe() {
    close_reading();
    close_writing();
}

void Pipe::close_reading() {
    if (ends_[0] >= 0) {
        close(ends_[0]);
    }
    ends_[0] = -1;
}

void Pipe::close_writing() {
    if (ends_[1] >= 0) {
        close(ends_[1]);
    }
    ends_[1] = -1;
}

void Pipe::put(char byte) {
    EXPECT_EQ(1, write(ends_[1], &byte, 1));
}

bool Pipe::take(int milliseconds) {
    char byte = 0;
    return wait_readable(ends_[0], milliseconds) && read(ends_[0], &byte, 1) == 1;
}

unsigned repetitions(const char *variable, unsigned usual) {
    const char *value = std::getenv(variable);
    return value != nullptr && std::atoi(value) > 0 ? static_cast<unsigned>(std::atoi(value)) : usual;
}
