// SPDX-License-Identifier: Apache-2.0
//
// aaad is killed again and again while clients send accounting records to FreeRADIUS, which
// comes and goes. Nothing that was answered may be lost; some records may arrive twice.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <set>
#include <thread>

#include "radius/freeradius.hpp"
#include "service/journal/journal_fixture.hpp"

namespace journal_test {
namespace {

using radius_test::FreeRadius;

constexpr int kKills = 10;
constexpr int kClients = 4;
constexpr uint32_t kRecordsBeforeAKill = 150;

class AaadKill : public JournalTest {
  protected:
    void SetUp() override {
        if (!FreeRadius::is_installed()) {
            GTEST_SKIP() << FreeRadius::kMissing;
        }
        server_ = std::make_unique<FreeRadius>();
        ASSERT_TRUE(server_->usable()) << server_->log();
        add_server("radius",
                   "127.0.0.1," + std::to_string(server_->authentication().address.port()) + "," +
                       std::to_string(server_->accounting().address.port()),
                   "testing123", 300, 1);
        accounting_list({"corp"});
    }

    // Records of new sessions, one after the other, until the service is gone.
    void send_until_it_ends() {
        Client client = aaad_.client();
        for (;;) {
            const uint32_t number = ++last_;
            if (client.account(start_of(number)).result != AAA_OK) {
                return;
            }
            const std::lock_guard lock(mutex_);
            acknowledged_.insert(number);
            ++answers_;
        }
    }

    uint32_t answers() {
        const std::lock_guard lock(mutex_);
        return answers_;
    }

    std::set<uint32_t> delivered() const {
        std::set<uint32_t> found;
        const std::string detail = server_->detail();
        const std::string word = "Acct-Session-Id = \"";
        for (size_t at = detail.find(word); at != std::string::npos; at = detail.find(word, at + 1)) {
            found.insert(static_cast<uint32_t>(std::stoul(detail.substr(at + word.size(), 8), nullptr, 16)));
        }
        return found;
    }

    std::unique_ptr<FreeRadius> server_;
    std::atomic<uint32_t> last_ = 0;
    std::mutex mutex_;
    std::set<uint32_t> acknowledged_;
    uint32_t answers_ = 0;
};

TEST_F(AaadKill, NothingThatWasAnsweredIsLost) {
    for (int kill = 0; kill < kKills; ++kill) {
        aaad_.start();
        const uint32_t before = answers();
        std::vector<std::thread> clients;
        for (int i = 0; i < kClients; ++i) {
            clients.emplace_back([this] { send_until_it_ends(); });
        }
        wait_until([&] { return answers() - before >= kRecordsBeforeAKill / 2; });
        if (kill % 3 == 1) {
            server_->stop();  // in the middle of what it is sent
        }
        wait_until([&] { return answers() - before >= kRecordsBeforeAKill; });
        kill_aaad();
        for (std::thread &client : clients) {
            client.join();
        }
        if (kill % 3 == 2) {
            ASSERT_TRUE(server_->start_again()) << server_->log();
        }
    }
    aaad_.start();
    std::set<uint32_t> lost;
    wait_until([&] {
        const std::set<uint32_t> found = delivered();
        lost.clear();
        std::set_difference(acknowledged_.begin(), acknowledged_.end(), found.begin(), found.end(),
                            std::inserter(lost, lost.end()));
        return lost.empty();
    });
    EXPECT_TRUE(lost.empty()) << lost.size() << " records were answered and are lost";
    std::printf("%zu answered, %zu sessions delivered\n", acknowledged_.size(), delivered().size());
}

TEST_F(AaadKill, AServerThatIsBackGetsTheRecordsWithTheirDelay) {
    aaad_.start();
    server_->stop();
    EXPECT_EQ(account(start_of(7)), AAA_OK);
    EXPECT_TRUE(aaad_.wait_for_log("corp does not answer"));
    ASSERT_TRUE(server_->start_again()) << server_->log();
    wait_until([&] { return delivered().contains(7); });
    const std::string detail = server_->detail();
    EXPECT_NE(detail.find("Acct-Delay-Time = "), std::string::npos) << detail;
    EXPECT_EQ(detail.find("Acct-Delay-Time = 0"), std::string::npos) << detail;
}

}  // namespace
}  // namespace journal_test
