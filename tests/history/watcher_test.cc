// SPDX-License-Identifier: Apache-2.0

#include "store/watcher.hpp"

#include "history/history_fixture.hpp"
#ifdef HISTORY_ON_LMDB
#include <sys/eventfd.h>
#include <unistd.h>

#include <thread>
#endif

namespace history_test {
namespace {

constexpr std::int64_t kMinute = 60'000;

class WatcherTest : public HistoryTest {
  protected:
    WatcherTest() {
        put("gl/aaa/x", "1");
        commit("base");
        put("gl/aaa/x", "2");
        commit("waiting", history::deadline_after(5, at(0)));
    }

    history::Watcher::Reports reports() {
        return {[this](const std::string &text) { waits_.push_back(text); },
                [this](const history::Reverted &reverted) { reverted_.push_back(reverted.commit); },
                [this](const std::string &text, bool) { fails_.push_back(text); }};
    }
    history::Watcher::Clock clock() {
        return [this] { return now_; };
    }
    std::string value() const { return present().items.at("gl/aaa/x").bytes.substr(0, 1); }

    Now now_ = at(0);
    std::vector<std::string> waits_, fails_;
    std::vector<std::uint32_t> reverted_;
};

TEST_F(WatcherTest, WaitsUntilTheTimeIsOver) {
    history::Watcher watcher(history::program("test"), reports(), clock());
    EXPECT_EQ(watcher.look(), 5 * kMinute);
    now_.since_boot = 5 * kMinute - 1;
    EXPECT_EQ(watcher.look(), 1);
    EXPECT_EQ(value(), "2");
    now_.since_boot = 5 * kMinute;
    watcher.look();
    EXPECT_EQ(value(), "1");
    EXPECT_EQ(reverted_, std::vector<std::uint32_t>{3});
    EXPECT_EQ(watcher.look(), std::nullopt) << "nothing waits any more";
    EXPECT_EQ(waits_.size(), 1u);
    EXPECT_EQ(store().commit(3).message, "commit 2 was not confirmed in time");
}

TEST_F(WatcherTest, OneOfTwoReverts) {
    history::Watcher first(history::program("test"), reports(), clock());
    history::Watcher second(history::program("test"), reports(), clock());
    now_.since_boot = 6 * kMinute;
    first.look();
    put("gl/aaa/x", "9");
    second.look();
    EXPECT_EQ(reverted_.size(), 1u);
    EXPECT_EQ(value(), "9");
}

TEST_F(WatcherTest, OneThatStartsLaterRevertsAtOnce) {
    now_.since_boot = 60 * kMinute;
    history::Watcher watcher(history::program("test"), reports(), clock());
    watcher.look();
    EXPECT_EQ(value(), "1");
}

TEST_F(WatcherTest, AfterARestartOfTheMachineItIsStillReverted) {
    now_ = at(2 * kMinute, "boot-b");
    now_.wall = at(10 * kMinute).wall;
    history::Watcher watcher(history::program("test"), reports(), clock());
    watcher.look();
    EXPECT_EQ(value(), "1");
}

TEST_F(WatcherTest, ASetClockRevertsNothing) {
    history::Watcher watcher(history::program("test"), reports(), clock());
    now_.wall += 86'400;
    EXPECT_EQ(watcher.look(), 5 * kMinute);
    now_.wall -= 10 * 86'400;
    EXPECT_EQ(watcher.look(), 5 * kMinute);
    EXPECT_EQ(value(), "2");
}

TEST_F(WatcherTest, AnotherMachineWaitsTheWholeTimeAndAMinute) {
    now_ = at(1000 * kMinute, "boot-c", "machine-b");
    history::Watcher watcher(history::program("test"), reports(), clock());
    EXPECT_EQ(watcher.look(), 6 * kMinute);
    now_.since_boot += 6 * kMinute - 1;
    EXPECT_EQ(watcher.look(), 1);
    EXPECT_EQ(value(), "2");
    now_.since_boot += 1;
    watcher.look();
    EXPECT_EQ(value(), "1");
}

TEST_F(WatcherTest, AConfirmedCommitIsForgotten) {
    history::Watcher watcher(history::program("test"), reports(), clock());
    watcher.look();
    history::change(store(), [&](const Head &head, history::Changes &changes) {
        history::Writing writing(store(), head);
        writing.end_waiting(history::Ending::confirmed, "bob", 5);
        changes = writing.finish();
    });
    now_.since_boot = 60 * kMinute;
    EXPECT_EQ(watcher.look(), std::nullopt);
    EXPECT_EQ(waits_.back(), "");
    EXPECT_EQ(value(), "2");
}

TEST_F(WatcherTest, WhatCannotBeRevertedIsAnErrorThatStays) {
    put(".history/commit/0x1/state/0x1", "nonsense");
    now_.since_boot = 60 * kMinute;
    history::Watcher watcher(history::program("test"), reports(), clock());
    EXPECT_THROW(watcher.look(), history::Error);
    EXPECT_TRUE(store().head().waiting);
}

TEST(TimeText, IsInUtc) {
    EXPECT_EQ(history::time_text(1'700'000'000), "2023-11-14 22:13:20 UTC");
}

#ifdef HISTORY_ON_LMDB

// The database tells the thread of the commit; the deadline of another boot is over.
TEST_F(WatcherTest, RunsUntilItIsStopped) {
    const int stop = eventfd(0, EFD_CLOEXEC);
    ASSERT_GE(stop, 0);
    const int told = eventfd(0, EFD_CLOEXEC);
    ASSERT_GE(told, 0);
    const std::uint64_t one = 1;
    history::Watcher::Reports reports;
    reports.waits = [&](const std::string &) { EXPECT_EQ(write(told, &one, sizeof one), 8); };
    reports.reverted = [&](const history::Reverted &) { EXPECT_EQ(write(told, &one, sizeof one), 8); };
    std::thread thread([&] {
        history::Watcher watcher(history::program("test"), reports, [] { return at(kMinute); });
        watcher.run(stop);
    });
    std::uint64_t times = 0;
    ASSERT_EQ(read(told, &times, sizeof times), 8) << "it has seen the commit that waits";
    history::change(store(), [&](const Head &head, history::Changes &changes) {
        Head over = head;
        over.waiting->deadline.since_boot = 1;  // another commit whose time is over
        changes = {{SYSDB_CHANGE_EXPECT, ".history/head", history::text_item(history::text_of(head))},
                   {SYSDB_CHANGE_SET, ".history/head", history::text_item(history::text_of(over))}};
    });
    ASSERT_EQ(read(told, &times, sizeof times), 8);
    EXPECT_EQ(value(), "1");
    ASSERT_EQ(write(stop, &one, sizeof one), 8);
    thread.join();
    close(stop);
    close(told);
}

// However often it looks.
TEST_F(WatcherTest, WhatCannotBeRevertedIsToldOnceAndEndsWithAConfirmation) {
    put(".history/commit/0x1/state/0x1", "nonsense");
    const int stop = eventfd(0, EFD_CLOEXEC);
    const int told = eventfd(0, EFD_CLOEXEC);
    const int looked = eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE);
    ASSERT_TRUE(stop >= 0 && told >= 0 && looked >= 0);
    const std::uint64_t one = 1;
    history::Watcher::Reports reports = this->reports();
    reports.fails = [&](const std::string &text, bool) {
        fails_.push_back(text);
        EXPECT_EQ(write(told, &one, sizeof one), 8);
    };
    std::thread thread([&] {
        history::Watcher watcher(history::program("test"), reports, [&] {
            EXPECT_EQ(write(looked, &one, sizeof one), 8);
            return at(60 * kMinute);
        });
        watcher.run(stop);
    });
    std::uint64_t times = 0;
    EXPECT_EQ(read(told, &times, sizeof times), 8);
    EXPECT_EQ(read(looked, &times, sizeof times), 8);
    put(".history/commit/0x1/state/0x1", "other nonsense");
    EXPECT_EQ(read(looked, &times, sizeof times), 8);
    history::change(store(), [&](const Head &head, history::Changes &changes) {
        history::Writing writing(store(), head);
        writing.end_waiting(history::Ending::confirmed, "bob", 5);
        changes = writing.finish();
    });
    EXPECT_EQ(read(told, &times, sizeof times), 8);
    EXPECT_EQ(write(stop, &one, sizeof one), 8);
    thread.join();
    ASSERT_EQ(fails_.size(), 2u) << fails_.back();
    EXPECT_NE(fails_[0].find("\"aaactl confirm\" ends the waiting"), std::string::npos) << fails_[0];
    EXPECT_EQ(fails_[1], "");
    EXPECT_EQ(value(), "2");
    for (const int fd : {stop, told, looked}) {
        close(fd);
    }
}

#endif

}  // namespace
}  // namespace history_test
