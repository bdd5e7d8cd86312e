// SPDX-License-Identifier: Apache-2.0

#include "confirmation/confirm_watch.hpp"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "service/confirmation/waiting_commit.hpp"
#include "store/presence.hpp"

namespace {

using confirmation_test::at;
using confirmation_test::commit;

constexpr std::int64_t kMinute = 60'000;

// What the thread says, in its order.
class Said {
  public:
    void add(const std::string &text) {
        const std::lock_guard lock(mutex_);
        texts_.push_back(text);
        more_.notify_all();
    }
    std::string next() {
        std::unique_lock lock(mutex_);
        if (!more_.wait_for(lock, std::chrono::minutes(1), [&] { return !texts_.empty(); })) {
            return "(nothing)";
        }
        std::string text = texts_.front();
        texts_.erase(texts_.begin());
        return text;
    }

  private:
    std::mutex mutex_;
    std::condition_variable more_;
    std::vector<std::string> texts_;
};

class ConfirmWatchTest : public ::testing::Test {
  protected:
    // Until nothing waits: the database tells of the change.
    void wait_until_reverted() {
        const history::Store store(cfg_.handle());
        std::uint64_t notification = 0;
        const int channel = channel_of(cfg_.handle());
        ASSERT_EQ(_sysdb_register_notification(
                      cfg_.handle(), ".history/head", SYSDB_EVENT_SET, SYSDB_NOTIFY_CHANGES,
                      [](const void *, void *, void *) { return std::int32_t{0}; }, nullptr, 0, nullptr, 0,
                      &notification),
                  0u);
        while (store.head().waiting) {
            ASSERT_TRUE(wait_readable(channel, 60'000));
            sysdb_dispatch(cfg_.handle());
        }
        sysdb_notification_unregister(cfg_.handle(), notification);
    }

    DatabaseSandbox sandbox_;
    Bound cfg_{"/cfg/"};
    Said alarms_;
};

TEST_F(ConfirmWatchTest, RevertsWhatIsDue) {
    set_number(cfg_.handle(), "gl/aaa/x", 1);
    commit(cfg_.handle(), 0, at(0));
    set_number(cfg_.handle(), "gl/aaa/x", 2);
    commit(cfg_.handle(), 5, at(0));
    service::ConfirmWatch watch([&](const std::string &text) { alarms_.add(text); },
                                [] { return at(5 * kMinute); });
    ASSERT_TRUE(watch.start());
    wait_until_reverted();
    EXPECT_EQ(get_number(cfg_.handle(), "gl/aaa/x"), 1);
    watch.stop();
    watch.stop();
}

TEST_F(ConfirmWatchTest, NoticesACommitThatIsMadeLater) {
    service::ConfirmWatch watch([&](const std::string &text) { alarms_.add(text); },
                                [] { return at(5 * kMinute); });
    ASSERT_TRUE(watch.start());
    set_number(cfg_.handle(), "gl/aaa/x", 1);
    commit(cfg_.handle(), 0, at(0));
    set_number(cfg_.handle(), "gl/aaa/x", 2);
    commit(cfg_.handle(), 5, at(0));
    wait_until_reverted();
    EXPECT_EQ(get_number(cfg_.handle(), "gl/aaa/x"), 1);
}

TEST_F(ConfirmWatchTest, RaisesAnAlarmWhenItCannotRevert) {
    commit(cfg_.handle(), 0, at(0));
    set_number(cfg_.handle(), "gl/aaa/x", 2);
    commit(cfg_.handle(), 5, at(0));
    set_text(cfg_.handle(), ".history/commit/0x1/state/0x1", "nonsense");
    service::ConfirmWatch watch([&](const std::string &text) { alarms_.add(text); },
                                [] { return at(5 * kMinute); });
    ASSERT_TRUE(watch.start());
    EXPECT_NE(alarms_.next().find("commit 1: the stored state is damaged"), std::string::npos);
    EXPECT_EQ(get_number(cfg_.handle(), "gl/aaa/x"), 2);
}

TEST_F(ConfirmWatchTest, IsKnownWhileItRuns) {
    const Bound oper("/oper/");
    commit(cfg_.handle(), 0, at(0));
    commit(cfg_.handle(), 5, at(0));
    {
        service::ConfirmWatch watch([](const std::string &) {}, [] { return at(5 * kMinute); });
        ASSERT_TRUE(watch.start());
        wait_until_reverted();  // so it runs
        EXPECT_TRUE(history::is_watched(oper.handle()));
    }
    EXPECT_FALSE(history::is_watched(oper.handle()));
}

}  // namespace
