// SPDX-License-Identifier: Apache-2.0

#include "accounting/accounting.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstring>

#include "service/accounting/support.hpp"
#include "support/machine.hpp"

namespace accounting {
namespace {

Outcome deliver(const Record &) {
    return Outcome::kDelivered;
}

class AccountingTest : public testing::Test {
  protected:
    std::size_t segments() { return names_in(temp.path("journal"), "records-").size(); }
    std::vector<std::string> open_sessions() {
        std::vector<std::string> names;
        for (const RecordPointer &record : service.accounting->sessions().list()) {
            names.push_back(record->session);
        }
        return names;
    }

    TempDir temp;
    Service service{temp.path("journal")};
};

using Names = std::vector<std::string>;

TEST_F(AccountingTest, SendsEachRecordToAllItsDestinations) {
    service.reopen();
    const auto a = service.add_sender("a"), b = service.add_sender("b"), c = service.add_sender("c");
    service.record(sample("s", Kind::kStart, {"a", "b"}, "1"));
    service.record(sample("s", Kind::kStop, {"b", "c"}, "2"));
    b->answer(Outcome::kDelivered);
    EXPECT_EQ(a->payloads(), Names{"1"});
    EXPECT_EQ(b->payloads(), (Names{"1", "2"}));
    EXPECT_EQ(c->payloads(), Names{"2"});
}

TEST_F(AccountingTest, ADeadDestinationDoesNotHoldUpTheOthers) {
    service.reopen();
    const auto good = service.add_sender("good"), bad = service.add_sender("bad");
    good->answer_all(deliver);
    bad->answer_all([](const Record &) { return Outcome::kUnavailable; });
    for (int i = 0; i < 100; ++i) {
        service.record(sample("s" + std::to_string(i), Kind::kEvent, {"bad", "good"}));
    }
    EXPECT_EQ(service.figures("good").delivered, 100U);
    EXPECT_EQ(service.figures("bad").waiting, 100U);
}

TEST_F(AccountingTest, RemovesSegmentsThatAllDestinationsHave) {
    service.settings.journal.most_bytes = kLeastBytes;
    service.reopen();
    const auto fast = service.add_sender("fast"), slow = service.add_sender("slow");
    fast->answer_all(deliver);
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(service.record(sample("", Kind::kEvent, {"fast", "slow"}, std::string(10'000, 'x'))),
                  Result::kOk);
    }
    EXPECT_GE(segments(), 4U);
    slow->answer_all(deliver);
    service.run_until([&] { return segments() == 0 || service.accounting->figures().bytes < 130'000; });
    // Any number of records passes through a journal of limited size.
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(service.record(sample("", Kind::kEvent, {"fast", "slow"}, std::string(10'000, 'x'))),
                  Result::kOk);
    }
}

// One destination takes the first of many records at once, before another one, which has
// no sender, has seen the others. Their segments must stay.
TEST_F(AccountingTest, RemovesNothingThatADestinationHasNotSeen) {
    service.settings.journal.most_bytes = kLeastBytes;
    service.reopen();
    service.add_sender("a")->answer_all(deliver);
    int answers = 0;
    constexpr int kRecords = 40;
    for (int i = 0; i < kRecords; ++i) {
        service.accounting->record(sample("", Kind::kEvent, {"a", "b"}, std::string(10'000, 'x')),
                                   [&](Result result) { answers += result == Result::kOk ? 1 : 0; });
    }
    service.run_until([&] { return answers == kRecords; });
    service.reopen();
    EXPECT_EQ(service.figures("b").waiting, static_cast<std::uint64_t>(kRecords));
    const auto sender = service.add_sender("b");
    sender->answer_all(deliver);
    service.run_until([&] { return service.figures("b").waiting == 0; });
    EXPECT_EQ(sender->log().size(), static_cast<std::size_t>(kRecords));
}

TEST_F(AccountingTest, KeepsTheOpenSessionsAcrossRestarts) {
    service.settings.journal.most_bytes = kLeastBytes;
    service.reopen();
    service.add_sender()->answer_all(deliver);
    for (const char *name : {"a", "b", "c"}) {
        service.record(sample(name, Kind::kStart));
    }
    service.record(sample("b", Kind::kStop));
    EXPECT_EQ(open_sessions(), (Names{"a", "c"}));
    service.reopen();
    EXPECT_EQ(open_sessions(), (Names{"a", "c"}));
    service.add_sender()->answer_all(deliver);
    // So many records that the segment with the starts is removed.
    for (int i = 0; i < 60; ++i) {
        service.record(sample("", Kind::kEvent, {"billing"}, std::string(10'000, 'x')));
    }
    service.record(sample("c", Kind::kStop));
    service.record(sample("d", Kind::kStart));
    service.run_until([&] { return !names_in(temp.path("journal"), "sessions").empty(); });
    service.reopen();
    EXPECT_EQ(open_sessions(), (Names{"a", "d"}));
    EXPECT_EQ(service.accounting->sessions().list()[0]->payload, "payload");
}

TEST_F(AccountingTest, KeepsTheOpenSessionsWhoseRecordsAreDropped) {
    service.settings.journal.most_bytes = kLeastBytes;
    service.settings.journal.when_full = WhenFull::kDropOldest;
    service.reopen();
    service.record(sample("a", Kind::kStart));
    for (int i = 0; i < 150; ++i) {
        service.record(sample("", Kind::kEvent, {"billing"}, std::string(10'000, 'x')));
    }
    EXPECT_GT(service.figures().dropped, 10U);
    service.reopen();
    EXPECT_EQ(open_sessions(), Names{"a"});
}

// The whole way: a process ends without closing its session, and the service closes it.
TEST_F(AccountingTest, ClosesSessionsWhoseProcessEnded) {
    service.settings.sessions.check_every = net::kMillisecond;
    bool alive = true;
    service.calls.is_alive = [&](const Record &) { return alive; };
    service.calls.ended = [&](const RecordPointer &opened) {
        Record closing = *opened;
        closing.kind = Kind::kStop;
        closing.arrival = {};
        closing.payload = "closed by the service";
        service.accounting->record(closing, [](Result) {});
    };
    service.reopen();
    service.record(sample("a", Kind::kStart));
    alive = false;
    service.run_until([&] { return service.accounting->sessions().count() == 0; });
    const auto sender = service.add_sender();
    sender->answer_all(deliver);
    service.run_until([&] { return sender->log().size() >= 2; });
    EXPECT_EQ(sender->payloads()[1], "closed by the service");
}

TEST_F(AccountingTest, SaysWhyItDoesNotOpen) {
    service.settings.journal.disk.directory = "relative";
    EXPECT_NE(service.open().find("begins with /"), std::string::npos);
    service.settings.journal.disk.directory = temp.path("journal");
    EXPECT_EQ(service.open(), "");
    Service second(temp.path("journal"));
    EXPECT_NE(second.open().find("another process"), std::string::npos);
}

// The journal is full because a group was down. It comes back, on a disk without a byte of
// room for anything: positions, sessions, segments.
TEST_F(AccountingTest, GetsOutOfAFullDisk) {
    SKIP_WITHOUT_ROOT("only root can mount a small file system");
    const bool mounted = unshare(CLONE_NEWNS) == 0 &&
                         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("small", temp.path("").c_str(), "tmpfs", 0, "size=1m,mode=0700") == 0;
    SKIP_WITHOUT("mounts", mounted, std::string("a file system cannot be mounted: ") + std::strerror(errno));
    service.reopen();
    int kept = 0;
    std::size_t size = 20'000;
    while (size > 0) {
        // Some open sessions, too.
        const Kind kind = kept % 10 == 0 ? Kind::kStart : Kind::kEvent;
        const std::string payload(kind == Kind::kStart ? 300 : size, 'x');
        if (service.record(sample("s" + std::to_string(kept), kind, {"billing"}, payload)) == Result::kOk) {
            ++kept;
        } else {
            size /= 2;
        }
    }
    EXPECT_TRUE(service.accounting->figures().full_alarm);
    const auto sender = service.add_sender();
    sender->answer_all(deliver);
    service.run_until([&] { return service.figures().waiting == 0; });
    EXPECT_EQ(sender->log().size(), static_cast<std::size_t>(kept));
    while (service.record(sample("after", Kind::kEvent, {"billing"}, std::string(20'000, 'x'))) !=
           Result::kOk) {
    }
    EXPECT_FALSE(service.accounting->figures().full_alarm);
    service.accounting.reset();
    umount2(temp.path("").c_str(), MNT_DETACH);
}

}  // namespace
}  // namespace accounting
