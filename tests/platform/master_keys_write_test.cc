// SPDX-License-Identifier: Apache-2.0
//
// Writing the file of master keys: killed before and after every call that changes a
// file, with every such call failing, and what a reader makes of a damaged file.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <sstream>

#include "master_key_file.hpp"
#include "support/system_calls.h"

namespace {

constexpr cerrno kUnusable = 0xa2581000u;
constexpr cerrno kExists = 0xa2581200u;
constexpr cerrno kInvalidArg = 0xa2580200u;
constexpr char kAdvice[] =
    "; restore the file from a backup; or, if you have changed it by hand, delete its line \"#check\"";

// ---- calls that fail or end the process

bool g_without_unnamed = false;  // as on file systems that have no files without a name
int g_calls_left = 0;            // until g_at_last_call is done
std::function<int(const char *)> g_at_last_call;

int count_call(const char *function) {
    if (g_without_unnamed && std::strcmp(function, "unnamed") == 0) {
        return EOPNOTSUPP;
    }
    return --g_calls_left == 0 ? g_at_last_call(function) : 0;
}

// Counts calls in its scope.
class CountedCalls {
  public:
    CountedCalls(int calls, std::function<int(const char *)> at_last) {
        g_calls_left = calls;
        g_at_last_call = std::move(at_last);
        before_system_call = count_call;
    }
    ~CountedCalls() { before_system_call = nullptr; }
    CountedCalls(const CountedCalls &) = delete;
    CountedCalls &operator=(const CountedCalls &) = delete;
    // Whether the last call was made.
    static bool reached() { return g_calls_left <= 0; }
};

struct Change {
    const char *name;
    std::function<cerrno(const char *)> make;
};

const Change kRotate = {"rotate",
                        [](const char *path) { return aaa_platform_master_keys_rotate(path, nullptr); }};
const Change kRetire = {"retire", [](const char *path) { return aaa_platform_master_keys_retire(path, 1); }};
const Change kCreate = {"create", aaa_platform_master_keys_create};

class KeysWrite : public MasterKeyFile, public testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        MasterKeyFile::SetUp();
        g_without_unnamed = GetParam();
    }
    void TearDown() override {
        g_without_unnamed = false;
        MasterKeyFile::TearDown();
    }

    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto &entry :
             std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
            names.insert(entry.path().filename());
        }
        return names;
    }
    uint32_t count() const {
        uint32_t keys = 0;
        EXPECT_EQ(0u, aaa_platform_master_keys_list(path.c_str(), nullptr, 0, &keys));
        return keys;
    }
    // The state that each change starts from: two keys, or no file.
    std::string prepare(const Change &change) {
        unlink(path.c_str());
        if (change.name == kCreate.name) {
            return "";
        }
        EXPECT_EQ(0u, aaa_platform_master_keys_create(path.c_str()));
        rotate();
        return contents();
    }
    // The file is as it was, or changed as a whole.
    void expect_old_or_new(const Change &change, const std::string &before) {
        if (access(path.c_str(), F_OK) != 0) {
            EXPECT_EQ(before, "") << "the file is gone";
            return;
        }
        struct stat st {};
        ASSERT_EQ(0, stat(path.c_str(), &st));
        EXPECT_EQ(0600u, st.st_mode & 07777u);
        if (contents() != before) {
            EXPECT_EQ(change.name == kRotate.name ? 3u : 1u, count());
        }
    }
};

TEST_P(KeysWrite, AreWholeWheneverTheProcessIsKilled) {
    int killed_at = 0;
    for (const Change &change : {kRotate, kRetire, kCreate}) {
        bool ended = false;
        for (int call = 1; !ended; ++call) {
            const std::string before = prepare(change);
            const pid_t pid = fork();
            if (pid == 0) {
                const CountedCalls calls(call, [](const char *) { return raise(SIGKILL); });
                change.make(path.c_str());
                _exit(0);
            }
            int status = 0;
            ASSERT_EQ(pid, waitpid(pid, &status, 0));
            ended = WIFEXITED(status);
            killed_at += ended ? 0 : 1;
            SCOPED_TRACE(std::string(change.name) + ", call " + std::to_string(call));
            expect_old_or_new(change, before);
            // The next change leaves one file.
            const bool there = access(path.c_str(), F_OK) == 0;
            EXPECT_EQ(there ? kExists : 0u, aaa_platform_master_keys_create(path.c_str()));
            EXPECT_EQ(files(), std::set<std::string>{"master.keys"});
        }
    }
    EXPECT_GT(killed_at, 15) << "the calls were not counted";
}

TEST_P(KeysWrite, AreUnchangedWhenACallFails) {
    for (const Change &change : {kRotate, kRetire, kCreate}) {
        for (int call = 1;; ++call) {
            const std::string before = prepare(change);
            std::string failed;
            cerrno rc = 0;
            {
                const CountedCalls calls(call, [&](const char *function) {
                    failed = function;
                    return ENOSPC;
                });
                rc = change.make(path.c_str());
            }
            if (failed.empty()) {
                break;
            }
            SCOPED_TRACE(std::string(change.name) + ", " + failed);
            const auto log = g_log->take();
            if (rc == 0) {  // a file without a name is made otherwise
                EXPECT_EQ(failed, "unnamed");
                continue;
            }
            EXPECT_EQ(static_cast<cerrno>(ENOSPC), rc);
            ASSERT_EQ(1u, log.size());
            if (log[0].find("cannot be synced") != std::string::npos) {
                EXPECT_EQ(failed, "fsync");
                EXPECT_NE(before, contents());
            } else {
                EXPECT_EQ("%AAA-PLATFORM-3-MASTER_KEYS : " + path +
                              ": it cannot be written: No space left on device; the keys are unchanged",
                          log[0]);
                EXPECT_EQ(before, contents());
            }
            EXPECT_EQ(files(), before.empty() && contents().empty() ? std::set<std::string>{}
                                                                    : std::set<std::string>{"master.keys"});
        }
    }
}

TEST_P(KeysWrite, HaveTheirModeWhateverTheUmask) {
    const mode_t before = umask(0777);
    rotate();
    umask(before);
    struct stat st {};
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777u);
    EXPECT_EQ(2u, count());
}

TEST_P(KeysWrite, RemoveWhatAKilledChangeHasLeft) {
    dir.write("master.keys.unfinished", contents());
    rotate();
    EXPECT_EQ(files(), std::set<std::string>{"master.keys"});
    dir.write("elsewhere", "kept");
    ASSERT_EQ(0, symlink("elsewhere", dir.path("master.keys.unfinished").c_str()));
    rotate();
    EXPECT_EQ(dir.read("elsewhere"), "kept");
    EXPECT_EQ(files(), (std::set<std::string>{"elsewhere", "master.keys"}));
    ASSERT_EQ(0, mkdir(dir.path("master.keys.unfinished").c_str(), 0700));
    const std::string whole = contents();
    EXPECT_EQ(static_cast<cerrno>(EISDIR), aaa_platform_master_keys_rotate(path.c_str(), nullptr));
    EXPECT_EQ("%AAA-PLATFORM-3-MASTER_KEYS : " + path +
                  ": it cannot be written: Is a directory; the keys are unchanged",
              g_log->take_one());
    EXPECT_EQ(whole, contents());
}

INSTANTIATE_TEST_SUITE_P(FileSystems, KeysWrite, testing::Bool(),
                         [](const auto &tested) { return tested.param ? "WithNames" : "WithoutNames"; });

// ---- the count and the checksum

class KeysCheck : public MasterKeyFile {
  protected:
    uint32_t checked() const {
        uint32_t value = 99;
        EXPECT_EQ(0u, aaa_platform_master_keys_checked(path.c_str(), &value));
        return value;
    }
    static std::string without_check(std::string text) {
        const size_t at = text.find("#check");
        return text.erase(at, text.find('\n', at) + 1 - at);
    }
};

// A file that was cut at the end of a line was taken for a whole one.
TEST_F(KeysCheck, RefusesAFileThatWasCut) {
    rotate();
    rotate();
    const std::string whole = contents();
    for (size_t length = 0; length + 1 < whole.size(); ++length) {
        replace(whole.substr(0, length));
        uint32_t count = 0;
        EXPECT_EQ(kUnusable, aaa_platform_master_keys_list(path.c_str(), nullptr, 0, &count)) << length;
        EXPECT_EQ(1u, g_log->take().size());
    }
    replace(whole.substr(0, whole.size() - 1));
    EXPECT_EQ(1u, checked()) << "the last line feed may be missing";
    replace(whole.substr(0, whole.rfind("\n03 ") + 1));
    expect_no_keys(std::string("it is damaged: it holds 2 of its 3 keys") + kAdvice);
}

TEST_F(KeysCheck, RefusesAnyChangedKey) {
    rotate();
    const std::string whole = contents();
    for (size_t at = whole.find("\n01 ") + 1; at < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] = changed[at] == '5' ? '6' : '5';
        replace(changed);
        uint32_t count = 0;
        EXPECT_EQ(kUnusable, aaa_platform_master_keys_list(path.c_str(), nullptr, 0, &count)) << at;
        EXPECT_EQ(1u, g_log->take().size());
    }
    const size_t first = whole.find("\n01 ") + 1;
    const size_t second = whole.find("\n02 ") + 1;
    replace(whole.substr(0, first) + whole.substr(second) + whole.substr(first, second - first));
    expect_no_keys(std::string("it is damaged: its keys do not have the checksum that it holds") + kAdvice);
}

TEST_F(KeysCheck, RefusesALineThatItCannotRead) {
    const std::string whole = contents();
    const std::string keys = whole.substr(whole.find("\n01 ") + 1);
    const std::string sum = whole.substr(whole.find("#check 1 ") + 9, 32);
    for (const std::string &line :
         {std::string("#check "), "#check 0 " + sum, "#check 101 " + sum, "#check -1 " + sum,
          "#check 1" + sum, "#check 1 " + sum + "0", "#check 1 " + sum.substr(1), "#check  1 " + sum,
          "#check x " + sum, "#check 99999999999999999999 " + sum}) {
        replace("aaa-master-keys 1\n" + line + "\n" + keys);
        expect_no_keys("line 2 is not valid; restore the file from a backup");
    }
    replace(whole + "#check 1 " + sum + "\n");
    expect_no_keys("line 4 is not valid; restore the file from a backup");
    replace("aaa-master-keys 1\n# comment\n\n#check 1 " + sum + "\n" + keys);
    EXPECT_EQ(1u, checked()) << "comments are not part of it";
}

TEST_F(KeysCheck, OlderFilesAreReadAndGetItAtTheNextChange) {
    EXPECT_EQ(1u, checked());
    const std::string sealed = encrypt("secret");
    const std::string old = without_check(contents());
    replace(old);
    EXPECT_EQ(0u, checked());
    EXPECT_EQ("secret", decrypt(sealed));
    rotate();
    EXPECT_EQ(1u, checked());
    EXPECT_EQ("secret", decrypt(sealed));
    replace(without_check(contents()));
    ASSERT_EQ(0u, aaa_platform_master_keys_retire(path.c_str(), 1));
    EXPECT_EQ(1u, checked());
}

// It looks like a comment.
TEST_F(KeysCheck, OlderVersionsReadTheNewFile) {
    rotate();
    unsigned keys = 0;
    std::istringstream lines(contents());
    for (std::string line; std::getline(lines, line);) {
        keys += line.empty() || line[0] == '#' || line == "aaa-master-keys 1" ? 0 : 1;
    }
    EXPECT_EQ(2u, keys);
}

TEST_F(KeysCheck, CallsWithoutAnAnswerAreRefused) {
    EXPECT_EQ(kInvalidArg, aaa_platform_master_keys_checked(path.c_str(), nullptr));
    uint32_t value = 99;
    EXPECT_EQ(kUnusable, aaa_platform_master_keys_checked(dir.path("none").c_str(), &value));
    EXPECT_EQ(99u, value);
    EXPECT_EQ(1u, g_log->take().size());
    EXPECT_EQ(0u, aaa_platform_master_keys_checked(nullptr, &value));
    EXPECT_EQ(1u, value);
}

}  // namespace

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
