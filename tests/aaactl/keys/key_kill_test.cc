// SPDX-License-Identifier: Apache-2.0
//
// key rotate, retire and new-master killed at any moment: the file of master keys is the
// old one or the new one, and no other file with keys is left.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <set>

#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::Started;
using std::chrono::steady_clock;

constexpr int kKills = 150;

class KeyKill : public aaactl_test::DatabaseTest {
  protected:
    KeyKill() : masters_("AAA_MASTER_KEYS", dir().path("keys/master.keys")) {}
    void SetUp() override { ASSERT_EQ(mkdir(dir().path("keys").c_str(), 0700), 0); }

    // Waits less long than the command took when it was not disturbed, and kills it. A command that is
    // faster has ended: the test needs no order of the two.
    void kill_at_random(const std::vector<std::string> &args, std::chrono::nanoseconds usual) {
        Started run(args);
        const auto until =
            steady_clock::now() + std::chrono::nanoseconds(random_() % static_cast<uint64_t>(usual.count()));
        while (steady_clock::now() < until) {
        }
        run.end(SIGKILL);
    }
    static std::chrono::nanoseconds time_of(const std::vector<std::string> &args) {
        const auto start = steady_clock::now();
        EXPECT_EQ(aaactl(args).status, 0);
        return steady_clock::now() - start;
    }
    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(dir().path("keys"))) {
            names.insert(entry.path().filename());
        }
        return names;
    }
    static size_t generations() {
        const auto run = aaactl({"key", "masters", "--json"});
        EXPECT_EQ(run.status, 0) << run.err;
        return run.status == 0 ? run.json()["masters"].size() : 0;
    }
    void expect_closed() const {
        struct stat status {};
        ASSERT_EQ(stat(dir().path("keys/master.keys").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0600u);
    }
    void expect_one_file() const {
        EXPECT_EQ(files(), std::set<std::string>{"master.keys"});
        expect_closed();
    }

  private:
    ScopedEnv masters_;
    std::mt19937_64 random_{20240229};
};

TEST_F(KeyKill, RotationsAndRetirementsAreWholeOrNotMade) {
    ASSERT_EQ(aaactl({"key", "new-master"}).status, 0);
    const auto usual = time_of({"key", "rotate"});
    size_t before = 2;
    for (int i = 0; i < kKills; ++i) {
        const bool retire = before > 50;
        const auto oldest = aaactl({"key", "masters", "--json"}).json()["masters"][0]["generation"].number();
        kill_at_random(retire ? std::vector<std::string>{"key", "retire", std::to_string(oldest), "--force"}
                              : std::vector<std::string>{"key", "rotate"},
                       usual);
        const size_t after = generations();
        ASSERT_TRUE(after == before || after == (retire ? before - 1 : before + 1)) << before << " " << after;
        expect_closed();
        before = after;
    }
    ASSERT_EQ(aaactl({"key", "rotate"}).status, 0);
    expect_one_file();
}

TEST_F(KeyKill, NewFilesAreWholeOrNotMade) {
    const auto usual = time_of({"key", "new-master"});
    for (int i = 0; i < kKills; ++i) {
        unlink(dir().path("keys/master.keys").c_str());
        kill_at_random({"key", "new-master"}, usual);
        if (files().contains("master.keys")) {
            ASSERT_EQ(generations(), 1u);
            expect_closed();
        }
    }
    aaactl({"key", "new-master"});
    expect_one_file();
    ASSERT_EQ(generations(), 1u);
}

}  // namespace
