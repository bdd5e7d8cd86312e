// SPDX-License-Identifier: Apache-2.0
//
// The stage of the adversary: a mount namespace of this process with the database's
// directories as the packages make them, and programs that start with the rights of
// root, of a member of the group, of an outsider, or as set-user-ID programs.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/types.h>

namespace adversary {

inline constexpr gid_t kGroup = 54321;  // of the AAA processes
inline constexpr uid_t kMemberId = 54322;
inline constexpr uid_t kOutsiderId = 54323;

inline const std::string kCfg = "/var/lib/aaa/sysdb";
inline const std::string kRun = "/run/aaa/sysdb";
inline const std::string kHome = "/run/stage";  // root's, readable for all

enum class Role { kRoot, kMember, kOutsider };

// The victim: as an ordinary program, and owned by root with the set-user-ID bit, or of
// the group with the set-group-ID bit.
inline const std::string kVictim = kHome + "/victim";
inline const std::string kSetUserId = kHome + "/victim-suid";
inline const std::string kSetGroupId = kHome + "/victim-sgid";

struct Start {
    Role role = Role::kRoot;
    std::string program = kVictim;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::vector<int> closed;                     // descriptors
    std::vector<std::pair<int, rlimit>> limits;  // of setrlimit()
    mode_t umask = 022;
    std::string name = "victim";  // argv[0]
};

struct Result {
    int status = -1;  // exit status, or 128 + the signal's number
    std::string out;
    std::string err;
};

// A program that runs until it ends or is killed; the destructor kills it.
class Running {
  public:
    explicit Running(const Start &start);
    ~Running();
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    pid_t pid() const { return pid_; }
    // Waits until the process has stopped. False when it has ended instead.
    bool has_stopped();
    // One line of its output without the line feed; empty at the end or after 30 s.
    std::string line();
    // Closes its input and waits for its end.
    Result end();

  private:
    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    int err_ = -1;
};

Result run(const Start &start);

// Runs a body as that role, in a child; its failed expectations fail the test.
void as(Role role, const std::function<void()> &body);

// A process of a role that runs a body and stops itself. The destructor kills it.
class Stopped {
  public:
    Stopped(Role role, const std::function<void()> &body);
    ~Stopped();
    Stopped(const Stopped &) = delete;
    Stopped &operator=(const Stopped &) = delete;

    pid_t pid() const { return pid_; }

  private:
    pid_t pid_;
};

// With LMDB itself, as another program may use it: in a process that ends without closing.
void begin_read(const std::string &database);
// Whether the table of readers has an entry of this process with a state that it reads.
bool is_reading(const std::string &database, pid_t pid);

// A stage for each test. Skips it where the process is not root or may not have a mount
// namespace.
class Adversary : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    static Start root(std::vector<std::string> arguments);
    static Start set_user_id(std::vector<std::string> arguments);

    // Root stores and reads an item within the limit: no one is locked out.
    static void expect_usable(const char *tree = "/cfg");
    // A file of root that only root may read or write, and a check that it is as it was.
    static std::string precious();
    static void expect_unharmed();

  private:
    bool entered_ = false;
};

std::string mode_of(const std::string &path);  // "USER GROUP MODE", or "missing"
bool exists(const std::string &path);
bool succeeded(const Result &result);

}  // namespace adversary
