// SPDX-License-Identifier: Apache-2.0
//
// Making the stage, and starting programs on it.

#include "stage.hpp"

#include <fcntl.h>
#include <grp.h>
#include <lmdb.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/machine.hpp"
#include "support/time_limit.h"

namespace adversary {
namespace {

namespace fs = std::filesystem;

constexpr char kPrecious[] = "root's only copy\n";
constexpr int kPatience = 30000;  // ms

uid_t user_of(Role role) {
    return role == Role::kMember ? kMemberId : role == Role::kOutsider ? kOutsiderId : 0;
}

// A failure ends the process: it must not go on with the rights of root.
void become(Role role) {
    if (role == Role::kRoot) {
        return;
    }
    const uid_t user = user_of(role);
    const gid_t group = kGroup;
    if (setgroups(role == Role::kMember ? 1 : 0, &group) != 0 || setresgid(user, user, user) != 0 ||
        setresuid(user, user, user) != 0) {
        _exit(126);
    }
}

bool mount_tmpfs(const std::string &at, const char *options) {
    return mount("tmpfs", at.c_str(), "tmpfs", 0, options) == 0;
}

bool others_may_pass(const fs::path &directory) {
    struct stat status {};
    return stat(directory.c_str(), &status) == 0 && (status.st_mode & S_IXOTH) != 0;
}

// The built libraries are loaded from the build tree by every role. A parent directory
// that only root may pass is covered, in this namespace, by one that all may.
bool open_up(const fs::path &tree) {
    fs::path parent;
    for (const fs::path &part : tree.parent_path()) {
        parent /= part;
        if (others_may_pass(parent)) {
            continue;
        }
        const int fd = open(tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        const bool covered = fd >= 0 && mount_tmpfs(parent, "mode=0755") && fs::create_directories(tree) &&
                             mount(("/proc/self/fd/" + std::to_string(fd)).c_str(), tree.c_str(), nullptr,
                                   MS_BIND | MS_REC, nullptr) == 0;
        close(fd);
        return covered;
    }
    return true;
}

bool copy_program(const std::string &to, gid_t group, mode_t mode) {
    std::error_code error;
    return fs::copy_file(ADVERSARY_VICTIM, to, error) && chown(to.c_str(), 0, group) == 0 &&
           chmod(to.c_str(), mode) == 0;
}

bool make_directory(const std::string &path, gid_t group, mode_t mode) {
    return mkdir(path.c_str(), mode) == 0 && chown(path.c_str(), 0, group) == 0 &&
           chmod(path.c_str(), mode) == 0;
}

bool make_empty_file(const std::string &path) {
    const int fd = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0660);
    const bool made = fd >= 0 && fchown(fd, 0, kGroup) == 0 && fchmod(fd, 0660) == 0;
    close(fd);
    return made;
}

bool make_empty(const std::string &database) {
    return make_empty_file(database) && make_empty_file(database + "-lock") &&
           make_empty_file(database + "-state");
}

// As packaging/common/tmpfiles.conf has them.
bool make_directories() {
    return make_directory("/var/lib/aaa", 0, 0755) && make_directory(kCfg, kGroup, 02770) &&
           make_empty(kCfg + "/cfg.mdb") && make_directory("/run/aaa", 0, 0755) &&
           make_directory(kRun, kGroup, 02770) && make_empty(kRun + "/oper.mdb") &&
           make_directory(kRun + "/w", kGroup, 02770);
}

// Null, or why there is no stage. Once for the process.
const char *enter() {
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_PRIVATE | MS_REC, nullptr) != 0) {
        return "needs a mount namespace";
    }
    return open_up(fs::path(AAA_BUILD_DIR)) ? nullptr : "needs to open the build directory to all users";
}

// For each test. What another one has left is covered.
bool build() {
    umask(022);
    return mount_tmpfs("/var/lib", "mode=0755") && mount_tmpfs("/run", "mode=0755") && make_directories() &&
           make_directory(kHome, 0, 0755) && copy_program(kVictim, 0, 0755) &&
           copy_program(kSetUserId, 0, 04755) && copy_program(kSetGroupId, kGroup, 02755);
}

std::string read_all(int fd) {
    std::string all;
    char buffer[4096];
    for (ssize_t n = 0; (n = read(fd, buffer, sizeof buffer)) > 0;) {
        all.append(buffer, static_cast<size_t>(n));
    }
    return all;
}

std::vector<char *> pointers(const std::vector<std::string> &texts) {
    std::vector<char *> all;
    for (const std::string &text : texts) {
        all.push_back(const_cast<char *>(text.c_str()));
    }
    all.push_back(nullptr);
    return all;
}

[[noreturn]] void execute(const Start &start) {
    std::vector<std::string> arguments{start.name};
    arguments.insert(arguments.end(), start.arguments.begin(), start.arguments.end());
    signal(SIGXFSZ, SIG_DFL);
    umask(start.umask);
    for (const auto &[resource, limit] : start.limits) {
        setrlimit(static_cast<__rlimit_resource>(resource), &limit);
    }
    become(start.role);
    for (const int fd : start.closed) {
        close(fd);
    }
    execve(start.program.c_str(), pointers(arguments).data(), pointers(start.environment).data());
    _exit(127);
}

bool has_stopped_itself(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, WUNTRACED) == pid && WIFSTOPPED(status);
}

int status_of(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Running::Running(const Start &start) {
    int in[2], out[2], err[2];
    EXPECT_EQ(pipe2(in, O_CLOEXEC) + pipe2(out, O_CLOEXEC) + pipe2(err, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        execute(start);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    in_ = in[1];
    out_ = out[0];
    err_ = err[0];
}

Running::~Running() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        end();
    }
}

bool Running::has_stopped() {
    const bool stopped = has_stopped_itself(pid_);
    pid_ = stopped ? pid_ : -1;
    return stopped;
}

std::string Running::line() {
    std::string text;
    pollfd ready{out_, POLLIN, 0};
    for (char c = 0; poll(&ready, 1, kPatience) == 1 && read(out_, &c, 1) == 1 && c != '\n';) {
        text += c;
    }
    return text;
}

// Outputs are shorter than a pipe, so they are read one after the other.
Result Running::end() {
    close(in_);
    Result result;
    result.out = read_all(out_);
    result.err = read_all(err_);
    close(out_);
    close(err_);
    result.status = status_of(pid_);
    pid_ = -1;
    return result;
}

Result run(const Start &start) {
    return Running(start).end();
}

void as(Role role, const std::function<void()> &body) {
    fflush(nullptr);
    const bool failed = testing::Test::HasFailure();
    const pid_t pid = fork();
    if (pid == 0) {
        become(role);
        body();
        fflush(nullptr);
        _exit(!failed && testing::Test::HasFailure() ? 1 : 0);
    }
    EXPECT_EQ(status_of(pid), 0);
}

Stopped::Stopped(Role role, const std::function<void()> &body) {
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        set_time_limit("the process that is to stop itself");
        become(role);
        body();
        lift_time_limit();
        raise(SIGSTOP);
        _exit(0);
    }
    EXPECT_TRUE(has_stopped_itself(pid_));
}

Stopped::~Stopped() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

namespace {

MDB_env *open_database(const std::string &database) {
    MDB_env *env = nullptr;
    const bool is_open =
        mdb_env_create(&env) == 0 && mdb_env_open(env, database.c_str(), MDB_NOSUBDIR | MDB_NOTLS, 0660) == 0;
    EXPECT_TRUE(is_open) << database;
    return is_open ? env : nullptr;
}

// "pid thread txnid", without a txnid when the reader is idle.
int look_for(const char *line, void *pid) {
    int number = 0;
    unsigned long txnid = 0;
    const bool reads = std::sscanf(line, "%d %*x %lu", &number, &txnid) == 2;
    return reads && number == *static_cast<pid_t *>(pid) ? -1 : 0;
}

}  // namespace

void begin_read(const std::string &database) {
    MDB_txn *txn = nullptr;
    MDB_env *env = open_database(database);
    EXPECT_TRUE(env != nullptr && mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn) == 0);
}

bool is_reading(const std::string &database, pid_t pid) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        MDB_env *env = open_database(database);
        _exit(env != nullptr && mdb_reader_list(env, look_for, &pid) < 0 ? 0 : 1);
    }
    return status_of(child) == 0;
}

void Adversary::SetUp() {
    SKIP_WITHOUT_ROOT("needs the rights of several users");
    static const char *const missing = enter();
    SKIP_WITHOUT("mounts", missing == nullptr, missing);
    entered_ = true;
    SKIP_WITHOUT("mounts", build(), "needs to mount file systems with set-user-ID programs");
}

// Programs of the test may not have ended yet: the file systems go with the last of them.
// After a skipped test these would be the machine's own.
void Adversary::TearDown() {
    if (!entered_) {
        return;
    }
    umount2("/run", MNT_DETACH);
    umount2("/var/lib", MNT_DETACH);
}

Start Adversary::root(std::vector<std::string> arguments) {
    Start start;
    start.arguments = std::move(arguments);
    return start;
}

Start Adversary::set_user_id(std::vector<std::string> arguments) {
    Start start;
    start.role = Role::kOutsider;
    start.program = kSetUserId;
    start.arguments = std::move(arguments);
    return start;
}

void Adversary::expect_usable(const char *tree) {
    const std::string path = std::string(tree) + "/usable";
    const Result stored = run(root({"set", path, "4711"}));
    EXPECT_EQ(stored.out, "0x00000000\n") << stored.err;
    EXPECT_EQ(run(root({"get", path})).out, "4711\n");
}

std::string Adversary::precious() {
    const std::string path = kHome + "/precious";
    const int fd = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    EXPECT_EQ(write(fd, kPrecious, strlen(kPrecious)), static_cast<ssize_t>(strlen(kPrecious)));
    close(fd);
    return path;
}

void Adversary::expect_unharmed() {
    std::ifstream file(kHome + "/precious");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), kPrecious);
    EXPECT_EQ(mode_of(kHome + "/precious"), "0 0 600");
}

std::string mode_of(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return "missing";
    }
    char text[64];
    std::snprintf(text, sizeof text, "%u %u %o", status.st_uid, status.st_gid, status.st_mode & 07777);
    return text;
}

bool exists(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

bool succeeded(const Result &result) {
    return result.status == 0 && result.out == "0x00000000\n";
}

}  // namespace adversary
