// SPDX-License-Identifier: Apache-2.0

#include "accounting/destination.hpp"

#include <gtest/gtest.h>

#include "service/accounting/destination_fixture.hpp"

namespace accounting {
namespace {

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

}  // namespace
}  // namespace accounting
