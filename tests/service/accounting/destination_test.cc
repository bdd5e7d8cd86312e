// SPDX-License-Identifier: Apache-2.0
//
// The delivery, through the whole of accounting on real files.

#include "accounting/destination.hpp"

#include <gtest/gtest.h>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

using Payloads = std::vector<std::string>;

class DestinationTest : public testing::Test {
  protected:
    Result record(const std::string &session, const std::string &payload,
                  const std::vector<std::string> &destinations = {"billing"}) {
        return service.record(
            sample(session, session.empty() ? Kind::kEvent : Kind::kInterim, destinations, payload));
    }
    // The payloads of what is being sent.
    static Payloads open(const ScriptedSender &sender) {
        Payloads payloads;
        for (const auto &sent : sender.open()) {
            payloads.push_back(sent.record->payload);
        }
        return payloads;
    }
    void wait_for_sent(ScriptedSender &sender, std::size_t count) {
        service.run_until([&] { return sender.log().size() >= count; });
    }
    std::string refused_file() { return temp.read(std::string("journal/") + kRefusedName); }

    TempDir temp;
    Service service{temp.path("journal")};
};

TEST_F(DestinationTest, SendsRecordsOfASessionOneAfterTheOther) {
    service.reopen();
    const auto sender = service.add_sender();
    for (const char *payload : {"a1", "b1", "a2", "a3", "b2"}) {
        record(std::string(1, payload[0]), payload);
    }
    EXPECT_EQ(open(*sender), (Payloads{"a1", "b1"}));
    sender->answer(Outcome::kDelivered);
    EXPECT_EQ(open(*sender), (Payloads{"b1", "a2"}));
    sender->answer(Outcome::kDelivered);
    sender->answer(Outcome::kDelivered);
    EXPECT_EQ(open(*sender), (Payloads{"b2", "a3"}));
    sender->answer(Outcome::kDelivered);
    sender->answer(Outcome::kDelivered);
    EXPECT_TRUE(open(*sender).empty());
    const DestinationFigures figures = service.figures();
    EXPECT_EQ(figures.delivered, 5U);
    EXPECT_EQ(figures.waiting, 0U);
    EXPECT_EQ(figures.in_flight, 0U);
    EXPECT_TRUE(figures.configured);
}

TEST_F(DestinationTest, SendsRecordsWithoutASessionAtTheSameTime) {
    service.reopen();
    const auto sender = service.add_sender();
    for (const char *payload : {"1", "2", "3"}) {
        record("", payload);
    }
    EXPECT_EQ(open(*sender), (Payloads{"1", "2", "3"}));
}

TEST_F(DestinationTest, KeepsToItsWindow) {
    service.settings.delivery.window = 3;
    service.reopen();
    const auto sender = service.add_sender();
    for (int i = 0; i < 10; ++i) {
        record("s" + std::to_string(i), std::to_string(i));
    }
    for (int left = 10; left > 0; --left) {
        EXPECT_EQ(sender->open().size(), static_cast<std::size_t>(std::min(left, 3)));
        sender->answer(Outcome::kDelivered);
    }
}

TEST_F(DestinationTest, CopesWithASenderThatAnswersAtOnce) {
    service.reopen();
    const auto sender = service.add_sender();
    sender->answer_all([](const Record &) { return Outcome::kDelivered; });
    Payloads expected;
    for (int i = 0; i < 500; ++i) {
        expected.push_back(std::to_string(i));
        service.accounting->record(sample("s", Kind::kInterim, {"billing"}, expected.back()), [](Result) {});
    }
    wait_for_sent(*sender, 500);
    EXPECT_EQ(sender->payloads(), expected);
}

TEST_F(DestinationTest, SendsAgainWhatWasNotAnswered) {
    service.reopen();
    const auto sender = service.add_sender();
    record("a", "a1");
    record("a", "a2");
    for (std::size_t i = 1; i <= 10; ++i) {
        wait_for_sent(*sender, i);
        EXPECT_EQ(open(*sender), Payloads{"a1"});
        sender->answer(Outcome::kUnavailable, "no answer in 3 s");
        EXPECT_TRUE(service.figures().down);
    }
    wait_for_sent(*sender, 11);
    sender->answer(Outcome::kDelivered);
    EXPECT_EQ(open(*sender), Payloads{"a2"});
    EXPECT_FALSE(service.figures().down);
    EXPECT_EQ(service.figures().unanswered, 10U);
    EXPECT_TRUE(
        service.lines.has("billing does not answer (no answer in 3 s); 2 records wait for it on disk"));
    EXPECT_TRUE(service.lines.has("billing answers again after"));
    EXPECT_EQ(service.lines.count(), 2U) << service.lines.all();
}

TEST_F(DestinationTest, AsksADeadDestinationWithOneRecordAtATime) {
    service.reopen();
    const auto sender = service.add_sender();
    for (int i = 0; i < 5; ++i) {
        record("s" + std::to_string(i), std::to_string(i));
    }
    EXPECT_EQ(sender->open().size(), 5U);
    for (int i = 0; i < 5; ++i) {
        sender->answer(Outcome::kUnavailable);
    }
    // A different one each time: the record may be the reason.
    std::set<std::string> asked;
    for (std::size_t i = 6; i <= 10; ++i) {
        wait_for_sent(*sender, i);
        ASSERT_EQ(sender->open().size(), 1U);
        asked.insert(sender->open()[0].record->payload);
        sender->answer(Outcome::kUnavailable);
    }
    EXPECT_EQ(asked.size(), 5U);
    wait_for_sent(*sender, 11);
    sender->answer(Outcome::kDelivered);
    EXPECT_EQ(sender->open().size(), 4U);
}

// One record that a server ignores stops neither other sessions nor, in the end, its own.
TEST_F(DestinationTest, GivesUpARecordThatIsIgnoredWhileOthersPass) {
    service.settings.delivery.tries_while_others_pass = 5;
    service.reopen();
    const auto sender = service.add_sender();
    sender->answer_all(
        [](const Record &r) { return r.payload == "poison" ? Outcome::kUnavailable : Outcome::kDelivered; });
    record("bad", "poison");
    record("bad", "after");
    int others = 0;
    while (service.figures().refused == 0) {
        record("good", std::to_string(others++));
    }
    service.run_until([&] { return service.figures().waiting == 0; });
    EXPECT_EQ(service.figures().delivered, static_cast<std::uint64_t>(others) + 1);
    const Payloads sent = sender->payloads();
    EXPECT_GE(std::count(sent.begin(), sent.end(), "poison"), 5);
    EXPECT_EQ(std::count(sent.begin(), sent.end(), "after"), 1);
    EXPECT_NE(refused_file().find("while other records were taken"), std::string::npos) << refused_file();
}

TEST_F(DestinationTest, TriesForEverWhileNothingPasses) {
    service.settings.delivery.tries_while_others_pass = 2;
    service.reopen();
    const auto sender = service.add_sender();
    sender->answer_all([](const Record &) { return Outcome::kUnavailable; });
    record("a", "a1");
    record("b", "b1");
    wait_for_sent(*sender, 30);
    EXPECT_EQ(service.figures().waiting, 2U);
    EXPECT_EQ(service.figures().refused, 0U);
}

TEST_F(DestinationTest, KeepsWhatWasRefusedAndGoesOn) {
    service.reopen();
    const auto sender = service.add_sender();
    record("a", "a1");
    record("a", "a2");
    sender->answer(Outcome::kRefused, "the user name is too long");
    service.run_until([&] { return service.figures().refused == 1; });
    EXPECT_EQ(open(*sender), Payloads{"a2"});
    EXPECT_NE(refused_file().find("\"destination\":\"billing\",\"reason\":\"the user name is too long\""),
              std::string::npos);
    EXPECT_NE(refused_file().find("\"payload\":\"6131\""), std::string::npos);
    EXPECT_TRUE(service.lines.has("is not delivered to billing (the user name is too long)"));
    sender->answer(Outcome::kDelivered);
    EXPECT_EQ(service.figures().waiting, 0U);
}

TEST_F(DestinationTest, KeepsARefusedRecordUntilItIsWritten) {
    service.reopen();
    const auto sender = service.add_sender();
    record("a", "a1");
    service.files.fail(FailingFiles::kOpen, ENOSPC, FailingFiles::kForever, "refused");
    sender->answer(Outcome::kRefused, "no");
    wait_for_sent(*sender, 2);
    EXPECT_EQ(service.figures().waiting, 1U);
    EXPECT_TRUE(service.lines.has("cannot write refused.jsonl"));
    service.files.mend();
    sender->answer(Outcome::kRefused, "no");
    service.run_until([&] { return service.figures().refused == 1; });
    EXPECT_EQ(service.figures().waiting, 0U);
}

TEST_F(DestinationTest, IgnoresASecondAnswer) {
    service.reopen();
    const auto sender = service.add_sender();
    record("a", "a1");
    record("a", "a2");
    const Sender::Done first = sender->open()[0].done;
    sender->answer(Outcome::kDelivered);
    first(Outcome::kDelivered, "");
    first(Outcome::kUnavailable, "");
    first(Outcome::kRefused, "");
    EXPECT_EQ(open(*sender), Payloads{"a2"});
    EXPECT_EQ(service.figures().delivered, 1U);
    service.accounting.reset();
    first(Outcome::kDelivered, "");  // after the end
}

TEST_F(DestinationTest, ToldTheDelay) {
    service.reopen();
    const auto sender = service.add_sender();
    Record late = sample("a", Kind::kEvent);
    late.arrival = Moment::now();
    late.arrival.uptime -= 90'500'000'000;
    service.record(late);
    EXPECT_GE(sender->open().at(0).delay, 90U);
    EXPECT_LT(sender->open().at(0).delay, 100'000U);
    Record now = sample("b", Kind::kEvent);
    now.arrival = {};
    service.record(now);
    EXPECT_NE(sender->open().at(1).record->arrival.wall, 0);
}

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
