// SPDX-License-Identifier: Apache-2.0
//
// Notifications: the conformance tests of watching changes.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "sysdb_conformance.hpp"
#include "sysdb_conformance_watching.hpp"

namespace {

class SysdbNotify : public SysdbWatching {};

INSTANTIATE_TEST_SUITE_P(Trees, SysdbNotify, ::testing::Values("/cfg/", "/oper/"),
                         [](const auto &tree) { return std::string(tree.index == 0 ? "cfg" : "oper"); });

TEST_P(SysdbNotify, ReportsCreationChangeAndDeletionOfAnItem) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "login/default"));
    ASSERT_EQ(0u, set_number(writer(), "login/default", 1));
    EXPECT_EQ(Texts{"create login/default=1"}, dispatched(watcher));
    ASSERT_EQ(0u, set_number(writer(), "login/default", 2));
    EXPECT_EQ(Texts{"set login/default=2"}, dispatched(watcher));
    ASSERT_EQ(0u, sysdb_item_delete(writer(), "login/default", 0));
    EXPECT_EQ(Texts{"delete login/default"}, dispatched(watcher));
    expect_quiet(watcher);
}

TEST_P(SysdbNotify, PassesBothPointersOn) {
    int arg = 0;
    int ctx = 0;
    const auto callback = [](const void *, void *callback_arg, void *user_ctx) -> int32_t {
        *static_cast<int *>(callback_arg) = 1;
        *static_cast<int *>(user_ctx) = 2;
        return 0;
    };
    uint64_t notification = 0;
    ASSERT_EQ(0u, _sysdb_register_notification(conn(), "a", 6, 1, callback, &arg, 0, &ctx, 0, &notification));
    EXPECT_NE(0u, notification);
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    ASSERT_TRUE(wait_readable(channel_of(conn()), kPatience));
    ASSERT_EQ(0u, sysdb_dispatch(conn()));
    EXPECT_EQ(1, arg);
    EXPECT_EQ(2, ctx);
}

TEST_P(SysdbNotify, RecordBeginsLikeAConfigurationEvent) {
    static_assert(offsetof(sysdb_notification_t, operation) == 0);
    static_assert(offsetof(sysdb_notification_t, pass_flags) == 4);
    static_assert(SYSDB_EVENT_SET == 2 && SYSDB_EVENT_CREATE == 3 && SYSDB_EVENT_DELETE == 4);
}

TEST_P(SysdbNotify, OtherItemsAreNotReported) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    for (const char *path : {"aa", "a/b", "b", "b/a"}) {
        ASSERT_EQ(0u, set_number(writer(), path, 1));
    }
    expect_quiet(watcher);
}

TEST_P(SysdbNotify, SettingWhatIsThereIsNoChange) {
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    expect_quiet(watcher);
}

TEST_P(SysdbNotify, ChangesBeforeTheRegistrationAreNotReported) {
    Watcher first;
    ASSERT_EQ(0u, first.watch(conn(), "a"));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    Watcher late;
    ASSERT_EQ(0u, late.watch(conn(), "a"));
    EXPECT_EQ(Texts{"create a=1"}, dispatched(first));
    EXPECT_EQ(Texts{}, late.take());
    ASSERT_EQ(0u, set_number(writer(), "a", 2));
    EXPECT_EQ(Texts{"set a=2"}, dispatched(first));
    EXPECT_EQ(Texts{"set a=2"}, late.take());
}

TEST_P(SysdbNotify, DirectoryWatchReportsEverythingBelow) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "server/"));
    ASSERT_EQ(0u, set_number(writer(), "server/0x10/host,1,2", 1));
    ASSERT_EQ(0u, set_number(writer(), "server/0x2", 2));
    ASSERT_EQ(0u, set_number(writer(), "serverx", 3));
    ASSERT_EQ(0u, set_number(writer(), "server", 4));
    EXPECT_EQ((Texts{"create server/0x2=2", "create server/0x10/host,1,2=1"}), dispatched(watcher));
    ASSERT_EQ(0u, sysdb_item_delete(writer(), "server/", SYSDB_DELETE_TREE));
    EXPECT_EQ((Texts{"delete server/0x2", "delete server/0x10/host,1,2"}), dispatched(watcher));
    ASSERT_EQ(0u, sysdb_item_set(writer(), "server/new/", SYSDB_TYPE_DIRECTORY, nullptr, 0, 1));
    EXPECT_EQ(Texts{"create server/new/ [directory]"}, dispatched(watcher));
}

TEST_P(SysdbNotify, BindPointCanBeWatched) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), ""));
    ASSERT_EQ(0u, set_number(writer(), "deep/down/here", 1));
    EXPECT_EQ(Texts{"create deep/down/here=1"}, dispatched(watcher));
}

TEST_P(SysdbNotify, SeveralChangesOfOneItemAreOneCallWithTheLastValue) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), ""));
    for (uint32_t i = 1; i <= 100; ++i) {
        ASSERT_EQ(0u, set_number(writer(), "a", i));
    }
    EXPECT_EQ(Texts{"create a=100"}, dispatched(watcher));
    ASSERT_EQ(0u, sysdb_item_delete(writer(), "a", 0));
    ASSERT_EQ(0u, set_number(writer(), "a", 7));
    EXPECT_EQ(Texts{"create a=7"}, dispatched(watcher));
    ASSERT_EQ(0u, set_number(writer(), "a", 8));
    ASSERT_EQ(0u, sysdb_item_delete(writer(), "a", 0));
    EXPECT_EQ(Texts{"delete a"}, dispatched(watcher));
}

TEST_P(SysdbNotify, OnlyTheEventsAskedFor) {
    Watcher sets;
    Watcher deletes;
    ASSERT_EQ(0u, sets.watch(conn(), "a", SYSDB_EVENT_SET));
    ASSERT_EQ(0u, deletes.watch(conn(), "a", SYSDB_EVENT_DELETE));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    EXPECT_EQ(Texts{"create a=1"}, dispatched(sets));
    EXPECT_EQ(Texts{}, deletes.take());
    ASSERT_EQ(0u, sysdb_item_delete(writer(), "a", 0));
    EXPECT_EQ(Texts{"delete a"}, dispatched(deletes));
    EXPECT_EQ(Texts{}, sets.take());
}

TEST_P(SysdbNotify, InitialStateIsReportedOnRequest) {
    constexpr uint32_t kMode = SYSDB_NOTIFY_CHANGES | SYSDB_NOTIFY_INITIAL;
    ASSERT_EQ(0u, set_number(writer(), "here", 1));
    Watcher present;
    Watcher absent;
    Watcher directory;
    ASSERT_EQ(0u, present.watch(conn(), "here", kAll, kMode));
    ASSERT_EQ(0u, absent.watch(conn(), "not here", kAll, kMode));
    ASSERT_EQ(0u, directory.watch(conn(), "", kAll, kMode));
    EXPECT_EQ(Texts{"set here=1"}, dispatched(present));
    EXPECT_EQ(Texts{"delete not here"}, absent.take());
    EXPECT_EQ(Texts{"set  [directory]"}, directory.take());
    ASSERT_EQ(0u, set_number(writer(), "here", 2));
    EXPECT_EQ(Texts{"set here=2"}, dispatched(present));
    EXPECT_EQ(Texts{"set here=2"}, directory.take());
}

TEST_P(SysdbNotify, RevisionGrows) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    for (uint32_t i = 1; i <= 3; ++i) {
        ASSERT_EQ(0u, set_number(writer(), "a", i));
        dispatched(watcher);
    }
    ASSERT_EQ(3u, watcher.revisions.size());
    EXPECT_LT(0u, watcher.revisions[0]);
    EXPECT_LT(watcher.revisions[0], watcher.revisions[1]);
    EXPECT_LT(watcher.revisions[1], watcher.revisions[2]);
}

TEST_P(SysdbNotify, UnregisteredIsNotCalledAnyMore) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    EXPECT_EQ(0u, sysdb_notification_unregister(conn(), watcher.notification));
    expect_quiet(watcher);
    EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_notification_unregister(conn(), watcher.notification));
    Watcher again;
    ASSERT_EQ(0u, again.watch(conn(), "a"));
    EXPECT_NE(watcher.notification, again.notification);
    ASSERT_EQ(0u, set_number(writer(), "a", 2));
    EXPECT_EQ(Texts{"set a=2"}, dispatched(again));
}

TEST_P(SysdbNotify, BelongsToOneConnection) {
    const Bound other(base());
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_notification_unregister(other.handle(), watcher.notification));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    EXPECT_EQ(0u, sysdb_dispatch(other.handle()));
    EXPECT_EQ(Texts{}, watcher.take());
    EXPECT_EQ(Texts{"create a=1"}, dispatched(watcher));
}

TEST_P(SysdbNotify, EveryConnectionIsWokenWhicheverDispatchesFirst) {
    Bound others[3] = {Bound(base()), Bound(base()), Bound(base())};
    Watcher watchers[3];
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0u, watchers[i].watch(others[i].handle(), "a"));
    }
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(wait_readable(channel_of(others[i].handle()), kPatience)) << i;
        EXPECT_EQ(0u, sysdb_dispatch(others[i].handle()));
        EXPECT_EQ(Texts{"create a=1"}, watchers[i].take()) << i;
    }
}

TEST_P(SysdbNotify, TreesAreWokenThroughEachOther) {
    const std::string other_tree = GetParam() == std::string("/cfg/") ? "/oper/" : "/cfg/";
    const Bound other(other_tree + "other tree/");
    Watcher here;
    Watcher there;
    ASSERT_EQ(0u, here.watch(conn(), "a"));
    ASSERT_EQ(0u, there.watch(other.handle(), "a"));
    ASSERT_EQ(0u, set_number(other.handle(), "a", 1));
    ASSERT_TRUE(wait_readable(channel_of(other.handle()), kPatience));
    expect_quiet(here);  // takes the wake-up of a provider that has one for both trees
    EXPECT_TRUE(wait_readable(channel_of(other.handle()), kPatience));
    EXPECT_EQ(0u, sysdb_dispatch(other.handle()));
    EXPECT_EQ(Texts{"create a=1"}, there.take());
    ASSERT_EQ(0u, sysdb_item_delete(other.handle(), "a", 0));
}

TEST_P(SysdbNotify, ChannelIsQuietAfterDispatch) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    const int channel = channel_of(conn());
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    EXPECT_EQ(Texts{"create a=1"}, dispatched(watcher));
    // A provider may also wake up by itself at intervals: one more round is allowed.
    for (int i = 0; i < 2 && wait_readable(channel, 0); ++i) {
        expect_quiet(watcher);
    }
    EXPECT_FALSE(wait_readable(channel, 0));
}

TEST_P(SysdbNotify, ChannelOfAConnectionWithoutWatchesStaysQuiet) {
    const Bound idle(base());
    Watcher removed;
    ASSERT_EQ(0u, removed.watch(idle.handle(), "a"));
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    ASSERT_EQ(0u, sysdb_notification_unregister(idle.handle(), removed.notification));
    ASSERT_EQ(0u, sysdb_dispatch(idle.handle()));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    ASSERT_TRUE(wait_readable(channel_of(conn()), kPatience));
    EXPECT_FALSE(wait_readable(channel_of(idle.handle()), 0));
    EXPECT_EQ(Texts{"create a=1"}, dispatched(watcher));
}

TEST_P(SysdbNotify, UnbindEndsItsNotifications) {
    Watcher watcher;
    {
        const Bound own(base());
        ASSERT_EQ(0u, watcher.watch(own.handle(), "a"));
        ASSERT_EQ(0u, set_number(writer(), "a", 1));
        ASSERT_TRUE(wait_readable(channel_of(own.handle()), kPatience));
    }
    expect_quiet(watcher);
}

TEST_P(SysdbNotify, RefusesWhatMakesNoSense) {
    uint64_t id = 4711;
    const auto callback = [](const void *, void *, void *) -> int32_t { return 0; };
    const auto refused = [&](const char *path, uint32_t events, uint32_t mode, aaa_notify_cb_t cb,
                             uint64_t *out) {
        return _sysdb_register_notification(conn(), path, events, mode, cb, nullptr, 0, nullptr, 0, out);
    };
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused(nullptr, 6, 1, callback, &id));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused("a", 0, 1, callback, &id));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused("a", 8, 1, callback, &id));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused("a", 6, 0, callback, &id));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused("a", 6, 9, callback, &id));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused("a", 6, 7, callback, &id)) << "either initially or since";
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused("a", 6, 1, nullptr, &id));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, refused("a", 6, 1, callback, nullptr));
    EXPECT_EQ(SYSDB_ERR_BAD_PATH, refused("a//b", 6, 1, callback, &id));
    EXPECT_EQ(SYSDB_ERR_PATH_TOO_LONG,
              refused(std::string(longest_path(), 'a').c_str(), 6, 1, callback, &id));
    EXPECT_EQ(4711u, id);
}

// ---- calls from inside a callback

struct Reentrant {
    sysdb_conn_t conn;
    uint64_t notification = 0;
    int calls = 0;
    void (*action)(Reentrant &);

    static int32_t called(const void *, void *self, void *) {
        auto &reentrant = *static_cast<Reentrant *>(self);
        ++reentrant.calls;
        reentrant.action(reentrant);
        return 0;
    }
    cerrno watch(const char *path) {
        return _sysdb_register_notification(conn, path, kAll, 1, called, this, 0, nullptr, 0, &notification);
    }
};

TEST_P(SysdbNotify, CallbackMayUnregisterItself) {
    Reentrant reentrant{conn(), 0, 0, [](Reentrant &self) {
                            EXPECT_EQ(0u, sysdb_notification_unregister(self.conn, self.notification));
                        }};
    ASSERT_EQ(0u, reentrant.watch(""));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    ASSERT_EQ(0u, set_number(writer(), "b", 1));
    ASSERT_EQ(0u, sysdb_dispatch(conn()));
    EXPECT_EQ(1, reentrant.calls);
}

TEST_P(SysdbNotify, CallbackMayUnbindItsConnection) {
    sysdb_conn_t own = 0;
    ASSERT_EQ(0u, _sysdb_bind(&own, base().c_str(), 0));
    Reentrant reentrant{own, 0, 0, [](Reentrant &self) { EXPECT_EQ(0u, _sysdb_unbind(self.conn)); }};
    ASSERT_EQ(0u, reentrant.watch(""));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    ASSERT_EQ(0u, set_number(writer(), "b", 1));
    EXPECT_EQ(0u, sysdb_dispatch(own));
    EXPECT_EQ(1, reentrant.calls);
    EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_dispatch(own));
}

TEST_P(SysdbNotify, CallbackMayRegisterAndChangeAndDispatch) {
    static Watcher inner;
    inner = Watcher{};
    Reentrant reentrant{conn(), 0, 0, [](Reentrant &self) {
                            if (self.calls == 1) {
                                EXPECT_EQ(0u, inner.watch(self.conn, "b"));
                                EXPECT_EQ(0u, set_number(self.conn, "b", 1));
                                EXPECT_EQ(0u, sysdb_dispatch(self.conn));
                            }
                        }};
    ASSERT_EQ(0u, reentrant.watch("a"));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    ASSERT_EQ(0u, sysdb_dispatch(conn()));
    // The outer dispatch does the work of the inner one, after the callback.
    EXPECT_EQ(Texts{"create b=1"}, inner.take());
    EXPECT_EQ(1, reentrant.calls);
    EXPECT_EQ(0u, sysdb_notification_unregister(conn(), inner.notification));
}

// ---- threads

TEST_P(SysdbNotify, CallsComeInOrderWhenSeveralThreadsDispatch) {
    struct Newest {
        std::atomic<uint32_t> seen{0};
        std::atomic<bool> ordered{true};
        static int32_t called(const void *record, void *self, void *) {
            uint32_t number = 0;
            std::memcpy(&number, static_cast<const sysdb_notification_t *>(record)->value, sizeof number);
            auto &newest = *static_cast<Newest *>(self);
            if (newest.seen.exchange(number) > number) {
                newest.ordered = false;
            }
            return 0;
        }
    } newest;
    uint64_t notification = 0;
    ASSERT_EQ(0u, _sysdb_register_notification(conn(), "a", kAll, 1, Newest::called, &newest, 0, nullptr, 0,
                                               &notification));
    constexpr uint32_t kLast = 300;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (newest.seen != kLast) {
                if (wait_readable(channel_of(conn()), 10)) {
                    EXPECT_EQ(0u, sysdb_dispatch(conn()));
                }
            }
        });
    }
    for (uint32_t i = 1; i <= kLast; ++i) {
        ASSERT_EQ(0u, set_number(writer(), "a", i));
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(newest.ordered);
}

TEST_P(SysdbNotify, UnregisterWaitsForARunningCallback) {
    struct Slow {
        Pipe entered;
        Pipe leave;
        std::atomic<bool> running{false};
        static int32_t called(const void *, void *self, void *) {
            auto &slow = *static_cast<Slow *>(self);
            slow.running = true;
            slow.entered.put();
            EXPECT_TRUE(slow.leave.take());
            slow.running = false;
            return 0;
        }
    } slow;
    uint64_t notification = 0;
    ASSERT_EQ(0u, _sysdb_register_notification(conn(), "a", kAll, 1, Slow::called, &slow, 0, nullptr, 0,
                                               &notification));
    ASSERT_EQ(0u, set_number(writer(), "a", 1));
    std::thread dispatcher([this] { EXPECT_EQ(0u, sysdb_dispatch(conn())); });
    ASSERT_TRUE(slow.entered.take());
    std::thread releaser([&slow] { slow.leave.put(); });
    EXPECT_EQ(0u, sysdb_notification_unregister(conn(), notification));
    EXPECT_FALSE(slow.running);
    dispatcher.join();
    releaser.join();
}

}  // namespace
