// SPDX-License-Identifier: Apache-2.0
//
// Connections of an event manager to the system database: the dispatch calls
// notifications back.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "event_loop.hpp"
#include "support/sysdb.hpp"

namespace {

struct SysdbConnection {
    sysdb_conn_t handle = 0;
    int ups = 0;
    int downs = 0;
    std::vector<uint32_t> numbers;

    static int32_t up(void *, void *self) {
        auto &connection = *static_cast<SysdbConnection *>(self);
        ++connection.ups;
        int32_t coid = -1;
        if (connection.handle == 0) {
            EXPECT_EQ(0u, _sysdb_bind(&connection.handle, "/cfg/events/", SYSDB_BIND_SHARED));
        }
        EXPECT_EQ(0u, sysdb_conn_to_coid(connection.handle, &coid));
        return coid;
    }
    static int32_t down(void *, void *self) {
        ++static_cast<SysdbConnection *>(self)->downs;
        return 0;
    }
    static int32_t changed(const void *record, void *self, void *) {
        uint32_t number = 0;
        std::memcpy(&number, static_cast<const sysdb_notification_t *>(record)->value, sizeof number);
        static_cast<SysdbConnection *>(self)->numbers.push_back(number);
        return 0;
    }
};

TEST(EventSysdbConnection, NotificationsAreCalledBackByTheDispatch) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        EventLoop loop;
        SysdbConnection connection;
        event_conn_t handle = nullptr;
        ASSERT_EQ(0u, event_conn_create(&handle, loop.handle(), SysdbConnection::up, &connection,
                                        EVENT_CONN_TYPE_SYSDB));
        ASSERT_EQ(0u, event_conn_notify(handle, 0x6000, SysdbConnection::down));
        ASSERT_EQ(0u, event_conn_open(handle));
        uint64_t notification = 0;
        ASSERT_EQ(0u, _sysdb_register_notification(connection.handle, "item", 6, 1, SysdbConnection::changed,
                                                   &connection, 0, nullptr, 0, &notification));
        std::thread writer([] {
            const Bound own("/cfg/events/");
            for (uint32_t i = 1; i <= 50; ++i) {
                EXPECT_EQ(0u, set_number(own.handle(), "item", i));
            }
        });
        while (connection.numbers.empty() || connection.numbers.back() != 50) {
            ASSERT_EQ(0, loop.step());
        }
        writer.join();
        EXPECT_EQ(1, connection.ups);
        EXPECT_EQ(0, connection.downs);
        EXPECT_EQ(0u, _sysdb_unbind(connection.handle));
    });
}

TEST(EventSysdbConnection, TwoOfOneManagerAreServed) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        EventLoop loop;
        SysdbConnection both[2];
        for (SysdbConnection &connection : both) {
            event_conn_t handle = nullptr;
            ASSERT_EQ(0u, event_conn_create(&handle, loop.handle(), SysdbConnection::up, &connection,
                                            EVENT_CONN_TYPE_SYSDB));
            ASSERT_EQ(0u, event_conn_open(handle));
            uint64_t notification = 0;
            ASSERT_EQ(0u,
                      _sysdb_register_notification(connection.handle, "item", 6, 1, SysdbConnection::changed,
                                                   &connection, 0, nullptr, 0, &notification));
        }
        ASSERT_EQ(0u, set_number(both[0].handle, "item", 7));
        while (both[0].numbers.empty() || both[1].numbers.empty()) {
            ASSERT_EQ(0, loop.step());
        }
    });
}

TEST(EventSysdbConnection, LostConnectionGoesDownAndIsMadeAgain) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        setenv("AAA_SYSDB_PROVIDER", SYSDB_LOSES, 1);
        struct Losing {
            sysdb_conn_t handle = 0;
            int ups = 0;
            int downs = 0;
            static int32_t up(void *, void *self) {
                auto &losing = *static_cast<Losing *>(self);
                int32_t coid = -1;
                EXPECT_EQ(0u, _sysdb_bind(&losing.handle, "/cfg/", SYSDB_BIND_SHARED));
                EXPECT_EQ(0u, sysdb_conn_to_coid(losing.handle, &coid));
                ++losing.ups;
                return coid;
            }
            static int32_t down(void *, void *self) {
                auto &losing = *static_cast<Losing *>(self);
                ++losing.downs;
                EXPECT_EQ(losing.ups, losing.downs);
                EXPECT_EQ(0u, _sysdb_unbind(losing.handle));
                return 0;
            }
        } losing;
        EventLoop loop;
        event_conn_t connection = nullptr;
        ASSERT_EQ(0u,
                  event_conn_create(&connection, loop.handle(), Losing::up, &losing, EVENT_CONN_TYPE_SYSDB));
        ASSERT_EQ(0u, event_conn_notify(connection, EVENT_CONN_NOTIFY_DOWN, Losing::down));
        ASSERT_EQ(0u, event_conn_open(connection));
        while (losing.downs < 3) {
            ASSERT_EQ(0, loop.step());
        }
        EXPECT_EQ(3, losing.ups);
        EXPECT_EQ(0u, event_conn_close(connection));
    });
}

}  // namespace
