// SPDX-License-Identifier: Apache-2.0
//
// Accounting through aaad at RADIUS servers that do what the test says.

#include <sys/stat.h>

#include "service/journal/journal_fixture.hpp"
#include "support/machine.hpp"

namespace journal_test {
namespace {

class AaadJournal : public JournalTest {
  protected:
    UdpServer first_{loop_}, second_{loop_};

    // A second group, "other".
    void add_other(const UdpServer &server) {
        aaad_.text("group-server/radius/other/settings/" + entry_of(server) + "/key",
                   seal(radius_test::kSecret));
        aaad_.number("group-server/radius/other/server/0/" + entry_of(server), 1);
    }
};

TEST_F(AaadJournal, ARecordIsAnsweredBeforeItsServerHasIt) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK) << "the server has not answered yet";
    const Packet packet = take(first_);
    EXPECT_EQ(packet.number(Type::kAcctStatusType), 1u);
    EXPECT_EQ(packet.text(Type::kAcctSessionId), "00000007");
    EXPECT_EQ(packet.text(Type::kUserName), "ann");
    EXPECT_EQ(packet.number(Type::kAcctDelayTime).value_or(0), 0u);
}

TEST_F(AaadJournal, RecordsOfASessionArriveInTheirOrder) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    ASSERT_EQ(account(stop_of(7)), AAA_OK);
    ASSERT_EQ(account(start_of(8)), AAA_OK);
    const Packet one = first_.next(), two = first_.next();
    EXPECT_EQ(one.text(Type::kAcctSessionId), "00000007");
    EXPECT_EQ(two.text(Type::kAcctSessionId), "00000008") << "another session does not wait";
    EXPECT_EQ(two.number(Type::kAcctStatusType), 1u);
    first_.answer(one, Code::kAccountingResponse);
    const Packet stop = first_.next();
    EXPECT_EQ(stop.text(Type::kAcctSessionId), "00000007");
    EXPECT_EQ(stop.number(Type::kAcctStatusType), 2u);
}

TEST_F(AaadJournal, RecordsOfAKilledServiceArriveWithTheClassOfTheLogin) {
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = ask_as("ann", "secret");
    {
        Login login(client, ask);
        first_.answer(first_.next(), Code::kAccessAccept, attribute(25, "one") + attribute(25, "two"));
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    ask.number = 7;
    EXPECT_EQ(client.account(ask).result, AAA_OK);
    EXPECT_EQ(first_.next().text(Type::kClass), "onetwo") << "not answered";
    kill_aaad();
    aaad_.start();
    ASSERT_EQ(account(stop_of(7)), AAA_OK);
    const Packet start = take(first_);
    EXPECT_EQ(start.number(Type::kAcctStatusType), 1u);
    EXPECT_EQ(start.text(Type::kClass), "onetwo");
    const Packet stop = take(first_);
    EXPECT_EQ(stop.number(Type::kAcctStatusType), 2u);
    EXPECT_EQ(stop.text(Type::kClass), "onetwo") << "from the record that opened the session";
    EXPECT_TRUE(stop.number(Type::kAcctSessionTime).has_value());
}

TEST_F(AaadJournal, ABroadcastRecordGoesToAllGroups) {
    add_radius(first_);
    add_other(second_);
    aaad_.list("accounting/exec/default", {"corp", "other", AAA_METHOD_SYSLOG}, {0, 0, 1});
    aaad_.start({"--debug"});
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    EXPECT_EQ(take(first_).text(Type::kAcctSessionId), "00000007");
    EXPECT_EQ(take(second_).text(Type::kAcctSessionId), "00000007");
    EXPECT_TRUE(aaad_.wait_for_log("session=7"));
    EXPECT_TRUE(aaad_.wait_for_log("on disk, for corp, other")) << "one record for both";
    EXPECT_TRUE(aaad_.wait_for_log("3 of 3 methods"));
    ASSERT_EQ(account(stop_of(7)), AAA_OK);
    EXPECT_EQ(take(second_).number(Type::kAcctStatusType), 2u);
    EXPECT_EQ(first_.next().number(Type::kAcctStatusType), 2u) << "and each at its own pace";
}

TEST_F(AaadJournal, ASilentServerIsAskedAgainWithTheDelay) {
    add_radius(first_, 100);
    accounting_list({"corp"});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    const uint32_t event = first_.next().number(Type::kEventTimestamp).value_or(0);
    EXPECT_TRUE(aaad_.wait_for_log("corp does not answer"));
    Packet again = first_.next();
    while (again.number(Type::kAcctDelayTime).value_or(0) == 0) {
        again = first_.next();
    }
    EXPECT_EQ(again.number(Type::kEventTimestamp), event);
    first_.answer(again, Code::kAccountingResponse);
    EXPECT_TRUE(aaad_.wait_for_log("corp answers again"));
}

TEST_F(AaadJournal, OpenSessionsGetInterimRecords) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.settings("interim-interval 1\n");
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    take(first_);
    for (int i = 0; i < 2; ++i) {
        const Packet packet = take(first_);
        EXPECT_EQ(packet.number(Type::kAcctStatusType), 3u);
        EXPECT_EQ(packet.text(Type::kAcctSessionId), "00000007");
        EXPECT_GE(packet.number(Type::kAcctSessionTime).value_or(0), 1u);
    }
    aaad_.settings("interim-interval 0\n");
    aaad_.reload();
    ASSERT_EQ(account(stop_of(7)), AAA_OK);
    Packet packet = take(first_);
    while (packet.number(Type::kAcctStatusType) == 3u) {
        packet = take(first_);
    }
    EXPECT_EQ(packet.number(Type::kAcctStatusType), 2u);
}

// Starts a session in a process that ends without closing it.
void start_in_a_process(const std::string &socket, const Ask &ask) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(Client(socket).account(ask).result == AAA_OK ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(AaadJournal, ASessionWhoseProcessHasGoneIsClosed) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.start();
    start_in_a_process(aaad_.socket(), start_of(7));
    EXPECT_EQ(take(first_).number(Type::kAcctStatusType), 1u);
    kill_aaad();
    aaad_.start();  // which looks at once
    Packet packet = take(first_);
    while (packet.number(Type::kAcctStatusType) == 1u) {
        packet = take(first_);  // delivered again: the position was not written
    }
    EXPECT_EQ(packet.number(Type::kAcctStatusType), 2u);
    EXPECT_EQ(packet.text(Type::kAcctSessionId), "00000007");
    EXPECT_EQ(packet.number(Type::kAcctTerminateCause), 2u) << "not the user's wish";
    EXPECT_TRUE(aaad_.wait_for_log("SESSION_CLOSED"));
}

TEST_F(AaadJournal, ASessionWhoseProcessHasGoneStaysOpenIfSoSet) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.settings("close-sessions no\ninterim-interval 1\n");
    aaad_.start();
    start_in_a_process(aaad_.socket(), start_of(7));
    EXPECT_EQ(take(first_).number(Type::kAcctStatusType), 1u);
    kill_aaad();
    aaad_.start();
    Packet packet = take(first_);
    while (packet.number(Type::kAcctStatusType) == 1u) {
        packet = take(first_);
    }
    EXPECT_EQ(packet.number(Type::kAcctStatusType), 3u) << "an interim record";
}

TEST_F(AaadJournal, TheQueueOfARemovedGroupIsKeptOrGivenUp) {
    add_radius(first_);
    accounting_list({"corp"});
    first_.close();
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    ASSERT_EQ(account(start_of(8)), AAA_OK);
    accounting_list({AAA_METHOD_SYSLOG});
    aaad_.remove("group-server/radius/corp/");
    aaad_.reload();
    EXPECT_TRUE(aaad_.wait_for_log("2 accounting records wait for the group corp, which is not configured"));
    const auto [used, why] = aaad_.run({"--drop-queue", "corp"});
    EXPECT_EQ(used, 1);
    EXPECT_NE(why.find("another process"), std::string::npos) << why;
    EXPECT_EQ(aaad_.stop(), 0);
    aaad_.start();
    EXPECT_TRUE(aaad_.wait_for_log("with: aaad --drop-queue corp")) << "still kept";
    EXPECT_EQ(aaad_.stop(), 0);
    const auto [unknown, names] = aaad_.run({"--drop-queue", "crop"});
    EXPECT_EQ(unknown, 1);
    EXPECT_NE(names.find("the journal has: corp"), std::string::npos) << names;
    const auto [status, output] = aaad_.run({"--drop-queue", "corp"});
    EXPECT_EQ(status, 0) << output;
    EXPECT_NE(output.find("2 records for the group corp are given up"), std::string::npos) << output;
    const size_t before = aaad_.log().size();
    aaad_.start();
    EXPECT_EQ(aaad_.stop(), 0);
    EXPECT_EQ(aaad_.log().find("QUEUE_KEPT", before), std::string::npos);
}

// The service has a user of its own; a file of root in the journal would keep it out.
TEST_F(AaadJournal, RootGivesUpAQueueAsTheUserOfTheJournal) {
    SKIP_WITHOUT_ROOT("needs root, to become another user");
    constexpr uid_t kOther = 65534;
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    first_.next();
    EXPECT_EQ(aaad_.stop(), 0);
    ASSERT_EQ(chmod(aaad_.dir().path(".").c_str(), 0711), 0);
    ASSERT_EQ(chown(journal().c_str(), kOther, kOther), 0);
    for (const auto &file : std::filesystem::directory_iterator(journal())) {
        ASSERT_EQ(chown(file.path().c_str(), kOther, kOther), 0);
    }
    const auto [status, output] = aaad_.run({"--drop-queue", "corp"});
    EXPECT_EQ(status, 0) << output;
    EXPECT_NE(output.find("1 records for the group corp are given up"), std::string::npos) << output;
    for (const auto &file : std::filesystem::directory_iterator(journal())) {
        struct stat found;
        ASSERT_EQ(stat(file.path().c_str(), &found), 0);
        EXPECT_EQ(found.st_uid, kOther) << file.path();
    }
}

TEST_F(AaadJournal, TheQueueOfAGroupThatIsBackIsDelivered) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    first_.next();  // not answered
    EXPECT_EQ(aaad_.stop(), 0);
    aaad_.remove("group-server/radius/corp/server/0/" + entry_of(first_));
    aaad_.start();
    EXPECT_TRUE(aaad_.wait_for_log("QUEUE_KEPT"));
    add_radius(second_);
    aaad_.reload();
    EXPECT_EQ(take(second_).text(Type::kAcctSessionId), "00000007");
}

TEST_F(AaadJournal, WithoutAUsableJournalRecordsGoToTheirServers) {
    add_radius(first_);
    lists({"corp", AAA_METHOD_LOCAL});
    ASSERT_EQ(mkdir(journal().c_str(), 0755), 0);
    aaad_.start();
    EXPECT_TRUE(aaad_.wait_for_log("NO_JOURNAL"));
    EXPECT_TRUE(aaad_.wait_for_log("chmod 0700"));
    Reply reply;
    std::thread thread([&] { reply = aaad_.client().account(start_of(7)); });
    take(first_);
    thread.join();
    EXPECT_EQ(reply.result, AAA_OK);
    const auto [status, output] = aaad_.run({"--check"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(output.find("journal: other users may enter " + journal()), std::string::npos) << output;
    ASSERT_EQ(chmod(journal().c_str(), 0700), 0);
    aaad_.reload();
    EXPECT_TRUE(aaad_.wait_for_log("accounting records are kept in " + journal()));
    ASSERT_EQ(account(stop_of(7)), AAA_OK) << "before the server has it";
    take(first_);
}

TEST_F(AaadJournal, CanBeSwitchedOff) {
    add_radius(first_);
    accounting_list({"corp"});
    aaad_.settings("journal none\n");
    aaad_.start();
    Reply reply;
    std::thread thread([&] { reply = aaad_.client().account(start_of(7)); });
    take(first_);
    thread.join();
    EXPECT_EQ(reply.result, AAA_OK);
    EXPECT_FALSE(std::filesystem::exists(journal()));
    EXPECT_EQ(aaad_.log().find("NO_JOURNAL"), std::string::npos);
}

TEST_F(AaadJournal, ADirectoryThatVanishesIsNoticedBeforeTheAnswer) {
    add_radius(first_);
    accounting_list({"corp", AAA_METHOD_SYSLOG});
    aaad_.start();
    ASSERT_EQ(account(start_of(7)), AAA_OK);
    take(first_);
    std::filesystem::remove_all(journal());
    ASSERT_EQ(account(start_of(8)), AAA_OK) << "the next method takes it";
    EXPECT_TRUE(aaad_.wait_for_log("was removed while"));
    EXPECT_TRUE(aaad_.wait_for_log("cannot be kept on disk"));
    EXPECT_TRUE(aaad_.wait_for_log("session=8"));
    EXPECT_EQ(aaad_.stop(), 0);
    aaad_.start();
    ASSERT_EQ(account(start_of(9)), AAA_OK);
    EXPECT_EQ(take(first_).text(Type::kAcctSessionId), "00000009");
}

}  // namespace
}  // namespace journal_test
