// SPDX-License-Identifier: Apache-2.0
//
// What aaactl status shows of accounting records on disk.

#include "aaactl/support/program_started.hpp"
#include "service/journal/journal_fixture.hpp"

namespace journal_test {
namespace {

class AaadRecords : public JournalTest {
  protected:
    aaactl_test::Run status(std::vector<std::string> words = {}) const {
        words.insert(words.begin(), {"status", "--socket", aaad_.dir().path("control.sock")});
        return aaactl_test::aaactl(words);
    }
    static bool contains(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos;
    }

    UdpServer first_{loop_};
};

TEST_F(AaadRecords, ThatWaitForAGroupAreShownUntilItHasThem) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    aaactl_test::Run run = status();
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.out, "accounting records on disk: ")) << run.out;
    EXPECT_TRUE(contains(run.out, "corp: 1 record waits")) << run.out;
    take(first_);
    ASSERT_EQ(account(stop_of(7)), AAA_OK);  // sent when the first is done
    EXPECT_TRUE(contains(status().out, "corp: 1 record waits")) << status().out;
    run = status({"--json"});
    EXPECT_TRUE(contains(run.out, "\"delivered\": 1")) << run.out;
    EXPECT_TRUE(contains(run.out, "\"recorded\": 2")) << run.out;
}

TEST_F(AaadRecords, OfAGroupThatIsGoneAreShownWithTheWayToGiveThemUp) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    ASSERT_EQ(aaad_.stop(), 0);
    aaad_.remove("group-server/radius/corp/server/0/" + entry_of(first_));
    accounting_list({AAA_METHOD_LOCAL});
    aaad_.start();
    const aaactl_test::Run run = status();
    EXPECT_TRUE(contains(run.out, "the group is not configured")) << run.out;
    EXPECT_TRUE(contains(run.out, "aaad --drop-queue corp")) << run.out;
}

TEST_F(AaadRecords, AreShownAsNotKeptWithoutAJournal) {
    aaad_.settings("journal none\n");
    aaad_.start();
    EXPECT_TRUE(contains(status().out, "accounting records are not kept on disk")) << status().out;
}

}  // namespace
}  // namespace journal_test
