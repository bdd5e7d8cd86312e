// SPDX-License-Identifier: Apache-2.0
//
// What a destination has before it: more than fits into memory, restarts, dropped records.

#include "accounting/destination.hpp"

#include <gtest/gtest.h>

#include "service/accounting/destination_fixture.hpp"

namespace accounting {
namespace {

// ---- more than is in memory ---------------------------------------------------------------

TEST_F(DestinationTest, ReadsFromDiskWhatDoesNotFitIntoMemory) {
    service.settings.delivery.read_ahead = 10;
    service.settings.delivery.window = 4;
    service.reopen();
    Payloads expected;
    for (int i = 0; i < 300; ++i) {
        expected.push_back(std::to_string(i) + std::string(3000, 'x'));
        record("s" + std::to_string(i % 7), expected.back());
    }
    const auto sender = service.add_sender();
    std::size_t most = 0;
    for (int i = 0; i < 300; ++i) {
        service.run_until([&] { return !sender->open().empty(); });
        most = std::max(most, sender->open().size());
        sender->answer(Outcome::kDelivered);
        if (i % 10 == 0) {  // and some that arrive meanwhile
            expected.push_back("late " + std::to_string(i));
            service.accounting->record(sample("s1", Kind::kInterim, {"billing"}, expected.back()),
                                       [](Result) {});
        }
    }
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    wait_for_sent(*sender, expected.size());
    EXPECT_LE(most, 4U);
    Payloads sent = sender->payloads();
    std::map<std::string, std::vector<std::uint64_t>> order;
    for (const RecordPointer &each : sender->log()) {
        order[each->session].push_back(each->sequence);
    }
    for (const auto &[session, sequences] : order) {
        EXPECT_TRUE(std::is_sorted(sequences.begin(), sequences.end())) << session;
    }
    std::sort(sent.begin(), sent.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(sent, expected);
}

TEST_F(DestinationTest, ReadsFromDiskWhatIsTooLargeForMemory) {
    service.settings.delivery.read_ahead_bytes = 100'000;
    service.reopen();
    for (int i = 0; i < 50; ++i) {
        record("s", std::string(20'000, static_cast<char>('a' + i % 26)));
    }
    const auto sender = service.add_sender();
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    wait_for_sent(*sender, 50);
    for (std::size_t i = 0; i < 50; ++i) {
        EXPECT_EQ(sender->payloads()[i][0], static_cast<char>('a' + i % 26));
    }
}

// What a server says must not make a second line in the log.
TEST_F(DestinationTest, LogsNoControlCharactersOfServers) {
    service.reopen();
    const auto sender = service.add_sender();
    record("a", "a1");
    sender->answer(Outcome::kUnavailable, "one\nERROR two\x1b[2J");
    EXPECT_TRUE(service.lines.has("(one?ERROR two?[2J)"));
}

TEST_F(DestinationTest, ReadsAgainWhenReadingFails) {
    service.reopen();
    for (int i = 0; i < 5; ++i) {
        record("s", std::to_string(i));
    }
    service.reopen();
    service.files.fail(FailingFiles::kRead, ENOMEM, 3);
    const auto sender = service.add_sender();
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    wait_for_sent(*sender, 5);
    EXPECT_EQ(sender->payloads(), (Payloads{"0", "1", "2", "3", "4"}));
}

// ---- restarts -----------------------------------------------------------------------------

TEST_F(DestinationTest, GoesOnAfterARestartWhereItWas) {
    service.reopen();
    auto sender = service.add_sender();
    for (const char *payload : {"a1", "b1", "c1", "a2", "b2", "c2"}) {
        record(std::string(1, payload[0]), payload);
    }
    sender->answer(Outcome::kDelivered);              // a1
    sender->open()[1].done(Outcome::kDelivered, "");  // c1; b1 is open
    service.reopen();
    EXPECT_EQ(service.figures().waiting, 4U);
    sender = service.add_sender();
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    wait_for_sent(*sender, 4);
    EXPECT_EQ(sender->payloads(), (Payloads{"b1", "a2", "c2", "b2"}));
    service.reopen();
    EXPECT_EQ(service.figures().waiting, 0U);
}

TEST_F(DestinationTest, KeepsWhatIsForADestinationWithoutASender) {
    service.reopen();
    service.add_sender("billing")->answer_all([](const Record &) { return Outcome::kDelivered; });
    record("a", "1", {"billing", "former"});
    record("a", "2", {"former"});
    record("a", "3", {"billing"});
    EXPECT_EQ(service.figures("billing").waiting, 0U);
    EXPECT_EQ(service.figures("former").waiting, 2U);
    EXPECT_FALSE(service.figures("former").configured);
    service.reopen();
    EXPECT_EQ(service.figures("former").waiting, 2U);
    service.reopen();
    const auto sender = service.add_sender("former");
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    wait_for_sent(*sender, 2);
    EXPECT_EQ(sender->payloads(), (Payloads{"1", "2"}));
}

TEST_F(DestinationTest, DropsAQueueWhenItIsTold) {
    service.reopen();
    const auto sender = service.add_sender();
    for (int i = 0; i < 10; ++i) {
        record("s" + std::to_string(i % 3), std::to_string(i), {"billing", "former"});
    }
    EXPECT_FALSE(service.accounting->drop_queue("unknown"));
    EXPECT_TRUE(service.accounting->drop_queue("former"));
    EXPECT_TRUE(service.accounting->drop_queue("billing"));
    EXPECT_EQ(service.figures("former").dropped, 10U);
    EXPECT_EQ(service.figures("billing").dropped, 10U);
    sender->answer(Outcome::kDelivered);  // was being sent
    record("s1", "after", {"billing", "former"});
    EXPECT_EQ(service.figures("former").waiting, 1U);
    EXPECT_EQ(sender->open().back().record->payload, "after");
    service.reopen();
    EXPECT_EQ(service.figures("former").waiting, 1U);
    const auto again = service.add_sender("former");
    again->answer_all([](const Record &) { return Outcome::kDelivered; });
    wait_for_sent(*again, 1);
    EXPECT_EQ(again->payloads(), Payloads{"after"});
}

TEST_F(DestinationTest, ASenderCanBeReplaced) {
    service.reopen();
    const auto first = service.add_sender();
    record("a", "a1");
    record("b", "b1");
    const auto second = service.add_sender();
    first->answer(Outcome::kDelivered);
    first->answer(Outcome::kUnavailable);
    wait_for_sent(*second, 1);
    EXPECT_EQ(open(*second), Payloads{"b1"});
    service.accounting->set_sender("billing", nullptr);
    second->answer(Outcome::kUnavailable);
    record("a", "a2");
    EXPECT_EQ(second->open().size(), 0U);
    EXPECT_EQ(service.figures().waiting, 2U);
}

// Records dropped for want of room: in memory, being sent, or on disk only.
TEST_F(DestinationTest, CountsWhatWasDroppedForWantOfRoom) {
    service.settings.journal.most_bytes = kLeastBytes;
    service.settings.journal.when_full = WhenFull::kDropOldest;
    service.settings.delivery.read_ahead = 20;
    service.settings.delivery.window = 2;
    service.reopen();
    const auto sender = service.add_sender();
    constexpr int kRecords = 400;
    for (int i = 0; i < kRecords; ++i) {
        ASSERT_EQ(record("s" + std::to_string(i % 5), std::string(10'000, 'x')), Result::kOk);
        if (i % 50 == 0) {
            sender->answer(Outcome::kDelivered);
        }
    }
    service.run_until([&] { return service.figures().dropped > 100; });
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    service.run_until([&] { return service.figures().waiting == 0; });
    const DestinationFigures figures = service.figures();
    EXPECT_EQ(figures.delivered + figures.dropped, static_cast<std::uint64_t>(kRecords));
    EXPECT_EQ(figures.in_flight, 0U);
    EXPECT_TRUE(service.lines.has("records for billing are dropped, because there is no room for new ones"));
}

}  // namespace
}  // namespace accounting
