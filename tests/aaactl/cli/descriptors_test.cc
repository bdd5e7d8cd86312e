// SPDX-License-Identifier: Apache-2.0
//
// aaactl started without its standard descriptors, with the load hooks of its libraries:
// nothing that is opened takes their numbers, and lost output is an error.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "aaactl/support/database_fixture.hpp"

namespace {

namespace fs = std::filesystem;

// The words run by a shell as its last command, so that it has the descriptors that the redirections leave.
aaactl_test::Run run_redirected(const std::string &words, const std::string &redirections) {
    aaactl_test::Run run;
    const std::string command = "env -u NO_DLLMAIN AAA_SYSDB_PROVIDER=" AAACTL_PROVIDER
                                " AAA_LOG=none " AAACTL_PROGRAM " " +
                                words + " " + redirections;
    const int status = std::system(command.c_str());
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

class Descriptors : public aaactl_test::DatabaseTest {
  protected:
    void SetUp() override { put("/cfg/a", "string", "kept"); }
    std::string output() const { return dir().read("out"); }
};

TEST_F(Descriptors, LostOutputIsAnError) {
    const std::string errors = "2>" + dir().path("out");
    for (const std::string words : {"sysdb get /cfg/a", "sysdb tree --json", "attr list", "--help"}) {
        EXPECT_EQ(run_redirected(words, ">&- <&- " + errors).status, 6) << words;
        EXPECT_EQ(output().substr(0, 25), "aaactl: standard output: ") << words;
    }
    const std::string message = dir().write("message", "name = \"x\"\n");
    EXPECT_EQ(run_redirected("encode -o /dev/stdout " + message, ">&- " + errors).status, 6) << output();
    EXPECT_EQ(run_redirected("sysdb get /cfg/none", ">&- 2>&- <&-").status, 4);
    EXPECT_EQ(value_of("/cfg/a"), "kept");
}

TEST_F(Descriptors, ClosedInputIsEmpty) {
    EXPECT_EQ(run_redirected("key seal", "<&- >" + dir().path("out") + " 2>&1").status, 2);
    EXPECT_EQ(output(), "aaactl: standard input is empty\n");
    EXPECT_EQ(run_redirected("sysdb load -", "<&- >" + dir().path("out") + " 2>&1").status, 3);
    EXPECT_EQ(run_redirected("encode", "<&- >" + dir().path("out") + " 2>&1").status, 3) << output();
    EXPECT_EQ(value_of("/cfg/a"), "kept");
}

TEST_F(Descriptors, WritesReachTheDatabaseOnly) {
    for (const std::string redirections : {"<&- >&- 2>&-", "<&- >&-", ">&- 2>&-", "2>&-"}) {
        run_redirected("sysdb del /cfg/none", redirections);
        run_redirected("sysdb set /cfg/a x --no-such-option", redirections);
        run_redirected("sysdb tree", redirections);
        EXPECT_EQ(value_of("/cfg/a"), "kept") << redirections;
    }
    EXPECT_EQ(run_redirected("sysdb del /cfg/a", ">&- 2>&- <&-").status, 0);
    EXPECT_EQ(value_of("/cfg/a"), "");
}

// What a running aaactl has open, by number.
std::map<int, std::string> open_files(pid_t pid) {
    std::map<int, std::string> files;
    const std::string directory = "/proc/" + std::to_string(pid) + "/fd/";
    for (const auto &entry : fs::directory_iterator(directory)) {
        std::error_code gone;
        files[std::atoi(entry.path().filename().c_str())] = fs::read_symlink(entry.path(), gone);
    }
    return files;
}

TEST_F(Descriptors, TheirNumbersAreTakenBeforeTheLibrariesLoad) {
    const std::string pipe = dir().path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        unsetenv("NO_DLLMAIN");
        setenv("AAA_SYSDB_PROVIDER", AAACTL_PROVIDER, 1);
        for (int fd = 0; fd <= 2; ++fd) {
            close(fd);
        }
        execl(AAACTL_PROGRAM, "aaactl", "decode", pipe.c_str(), nullptr);
        _exit(127);
    }
    // Succeeds when aaactl has opened the pipe, which it reads until this end is closed.
    const int writer = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    const auto files = open_files(pid);
    EXPECT_GT(files.size(), 4u) << "the libraries have opened files of their own";
    for (int fd = 0; fd <= 2; ++fd) {
        EXPECT_EQ(files.contains(fd) ? files.at(fd) : "", "/") << fd;
    }
    close(writer);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(WEXITSTATUS(status), 3) << "an empty message";
}

}  // namespace
