// SPDX-License-Identifier: Apache-2.0
//
// A process that records and delivers is killed again and again: in a chosen call on a
// file, or from outside after a chosen number of answers. Nothing that was answered may be
// lost, and the records of a session must arrive in their order.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <sstream>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

constexpr unsigned kSeed = 20261122;
constexpr int kKills = 50;

struct Printed {
    std::vector<std::string> recorded, delivered;
};

class Child {
  public:
    Child(const std::string &directory, unsigned seed, unsigned calls) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            execl(AAA_RECORDER, AAA_RECORDER, directory.c_str(), std::to_string(seed).c_str(),
                  std::to_string(calls).c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        output_ = ends[0];
    }
    ~Child() { close(output_); }

    // Reads lines until the process ends, and kills it after some answers.
    void read_until_end(Printed &printed, unsigned kill_after) {
        std::string text;
        unsigned answers = 0;
        char bytes[4096];
        for (ssize_t got; (got = read(output_, bytes, sizeof bytes)) > 0;) {
            text.append(bytes, static_cast<std::size_t>(got));
            for (std::size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
                answers += text[0] == 'r' ? 1 : 0;
                (text[0] == 'r' ? printed.recorded : printed.delivered).push_back(text.substr(2, end - 2));
            }
            if (kill_after != 0 && answers >= kill_after) {
                kill(pid_, SIGKILL);
            }
        }
        int status = 0;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
    }

  private:
    pid_t pid_;
    int output_;
};

// The order of first deliveries in a session: by run, and in a run by number.
void expect_order(const std::vector<std::string> &delivered) {
    std::set<std::string> seen;
    std::map<std::string, std::pair<unsigned, unsigned>> last;
    for (const std::string &payload : delivered) {
        if (!seen.insert(payload).second) {
            continue;
        }
        std::istringstream fields(payload);
        unsigned run = 0, number = 0;
        std::string session;
        fields >> run >> session >> number;
        const std::pair<unsigned, unsigned> at{run, number};
        EXPECT_LT(last[session], at) << payload;
        last[session] = at;
    }
}

TEST(Kill, LosesNothingThatWasAnsweredAndKeepsTheOrder) {
    std::printf("seed %u\n", kSeed);
    std::mt19937 random(kSeed);
    TempDir temp;
    const std::string directory = temp.path("journal");
    Printed printed;
    for (unsigned run = 1; run <= kKills; ++run) {
        const bool inside = run % 3 != 0;
        const auto calls = static_cast<unsigned>(inside ? 1 + random() % (run % 2 == 0 ? 40 : 400) : 0);
        const auto answers = static_cast<unsigned>(inside ? 0 : 1 + random() % 200);
        Child(directory, run, calls).read_until_end(printed, answers);
    }
    EXPECT_GT(printed.recorded.size(), 500U);
    // What is left is delivered by a service that nobody kills.
    Service service(directory);
    service.settings.journal.most_bytes = kLeastBytes;
    ASSERT_EQ(service.open(), "");
    const auto sender = service.add_sender();
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    service.run_until([&] { return service.figures().waiting == 0; });
    for (const std::string &payload : sender->payloads()) {
        printed.delivered.push_back(payload.substr(0, payload.find('|')));
    }
    const std::set<std::string> delivered(printed.delivered.begin(), printed.delivered.end());
    for (const std::string &payload : printed.recorded) {
        EXPECT_TRUE(delivered.contains(payload)) << payload << " was answered and is lost";
    }
    expect_order(printed.delivered);
    std::printf("%zu answered, %zu delivered, %zu of them different\n", printed.recorded.size(),
                printed.delivered.size(), delivered.size());
}

}  // namespace
}  // namespace accounting
