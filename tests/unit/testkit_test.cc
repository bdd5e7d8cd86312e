// SPDX-License-Identifier: Apache-2.0
//
// The test kit's C interface, and what its platform does for programs that use
// the contract in ways that the library does not.

#include "aaa/testkit.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "aaa/aaautil.h"
#include "platform/event_manager.h"
#include "platform/logging.h"
#include "platform/sysdb.h"
#include "platform/sysdb_changes.h"
#include "support/fake_gtest.hpp"
#include "testkit/fake_platform.hpp"

namespace {

// As in the installed kit: the whole contract is allowed.
class Testkit : public testing::Test {
  protected:
    void SetUp() override {
        fake::expect_the_library(false);
        testkit_reset();
        EXPECT_EQ(testkit_sysdb_open_connections(nullptr), 0u);
        ASSERT_EQ(_sysdb_bind(&conn_, "/cfg/limits/", SYSDB_BIND_PRIVATE), 0u);
        EXPECT_EQ(testkit_sysdb_open_connections("/cfg/limits/"), 1u);
    }
    void TearDown() override {
        _sysdb_unbind(conn_);
        EXPECT_EQ(testkit_sysdb_open_connections("/cfg/limits/"), 0u);
        fake::judge_as_tests_do();
    }
    sysdb_conn_t conn_ = 0;
};

TEST_F(Testkit, HoldsTheDatabasesContents) {
    testkit_sysdb_put_u32("/cfg/limits/sessions", 3);
    testkit_sysdb_put_string("/cfg/limits/banner", "hello");
    uint32_t number = 0;
    ASSERT_EQ(testkit_sysdb_get_u32("/cfg/limits/sessions", &number), 1);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(testkit_sysdb_get_u32("/cfg/limits/banner", &number), 0);
    EXPECT_EQ(number, 3u);
    EXPECT_STREQ(testkit_sysdb_get_string("/cfg/limits/banner"), "hello");
    EXPECT_EQ(testkit_sysdb_get_string("/cfg/limits/sessions"), nullptr);
    EXPECT_STREQ(testkit_sysdb_path(0), "/cfg/limits/banner");
    EXPECT_STREQ(testkit_sysdb_path(1), "/cfg/limits/sessions");
    EXPECT_EQ(testkit_sysdb_path(2), nullptr);
    testkit_sysdb_remove("/cfg/limits/banner");
    EXPECT_EQ(testkit_sysdb_get_string("/cfg/limits/banner"), nullptr);
}

TEST_F(Testkit, HasNoDatabaseWithoutAProvider) {
    sysdb_conn_t conn = 0;
    testkit_sysdb_present(0);
    EXPECT_EQ(_sysdb_bind(&conn, "/cfg/", SYSDB_BIND_PRIVATE), SYSDB_ERR_LIB_ABSENT);
    EXPECT_EQ(testkit_sysdb_open_connections("/cfg/"), 0u);
    testkit_sysdb_present(1);
    EXPECT_EQ(_sysdb_bind(&conn, "/cfg/", SYSDB_BIND_PRIVATE), 0u);
    EXPECT_EQ(_sysdb_unbind(conn), 0u);
}

TEST_F(Testkit, ServesTheOutputsThatAreAskedFor) {
    testkit_sysdb_put_u32("/cfg/limits/a/sessions", 3);
    testkit_sysdb_put_u32("/cfg/limits/a/users", 4);
    EXPECT_EQ(sysdb_item_get(conn_, "a/sessions", nullptr, nullptr, nullptr, 0), 0u);
    EXPECT_EQ(sysdb_item_get(conn_, "a/none", nullptr, nullptr, nullptr, 0), SYSDB_ERR_NOT_FOUND);
    uint32_t type = SYSDB_TYPE_STRING;
    EXPECT_EQ(sysdb_item_get(conn_, "a/users", &type, nullptr, nullptr, 0), SYSDB_ERR_TYPE_MISMATCH);

    sysdb_list_t list = nullptr;
    ASSERT_EQ(sysdb_list(conn_, "a/", "s*", nullptr, &list, 0), 0u);
    EXPECT_EQ(testkit_sysdb_open_lists(), 1u);
    char *name = nullptr;
    ASSERT_EQ(sysdb_list_next(list, &name, nullptr, 0), 0u);
    EXPECT_STREQ(name, "sessions");
    EXPECT_EQ(sysdb_list_next(list, &name, nullptr, 0), SYSDB_ERR_END_OF_LIST);
    EXPECT_EQ(name, nullptr);
    sysdb_list_free(list);
    sysdb_list_free(nullptr);

    EXPECT_EQ(sysdb_item_delete(conn_, "a/", SYSDB_DELETE_TREE), 0u);
    EXPECT_EQ(testkit_sysdb_path(0), nullptr);
    EXPECT_EQ(sysdb_item_delete(conn_, "a/", SYSDB_DELETE_TREE), SYSDB_ERR_NOT_FOUND);
}

TEST_F(Testkit, ReadsMethodListsThroughTheLibrary) {
    const uint32_t methods[4] = {AAA_METHOD_SERVER_GROUP, AAA_METHOD_LOCAL, 0, 0};
    const char *const groups[4] = {"CORP", nullptr, nullptr, nullptr};
    testkit_sysdb_put_method_list("/cfg/gl/aaa/authentication/login/default", methods, groups);
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", "default"), AAA_OK);
    EXPECT_NE(aaa_util_lookup_methodlist("authentication", "login", "other"), AAA_OK);
}

// ---- notifications ----

std::vector<std::string> told;

int32_t tell(const void *notification, void *prefix, void *) {
    const auto *const change = static_cast<const sysdb_notification_t *>(notification);
    std::string text = static_cast<const char *>(prefix) + std::string(change->path) + '=';
    if (change->operation == SYSDB_EVENT_DELETE) {
        text += "gone";
    } else {
        uint32_t value = 0;
        std::memcpy(&value, change->value, sizeof value);
        text += std::to_string(value);
    }
    told.push_back(text);
    return 0;
}

uint64_t watch(sysdb_conn_t conn, const char *path, const char *prefix,
               uint32_t mode = SYSDB_NOTIFY_CHANGES) {
    uint64_t handle = 0;
    EXPECT_EQ(_sysdb_register_notification(conn, path, SYSDB_EVENT_SET | SYSDB_EVENT_DELETE, mode, tell,
                                           const_cast<char *>(prefix), 0, nullptr, 0, &handle),
              0u);
    return handle;
}

TEST_F(Testkit, TellsWatchersOfTheNewestState) {
    told.clear();
    watch(conn_, "", "all:");
    watch(conn_, "sessions", "one:");
    EXPECT_EQ(sysdb_dispatch(conn_), 0u);
    EXPECT_TRUE(told.empty());
    testkit_sysdb_put_u32("/cfg/limits/sessions", 1);
    testkit_sysdb_put_u32("/cfg/limits/sessions", 2);
    const uint32_t five = 5;
    EXPECT_EQ(sysdb_item_set(conn_, "users", SYSDB_TYPE_U32, &five, sizeof five, 0), 0u);
    testkit_sysdb_put_u32("/cfg/other", 9);
    EXPECT_TRUE(told.empty());
    EXPECT_EQ(sysdb_dispatch(conn_), 0u);
    EXPECT_EQ(told, (std::vector<std::string>{"all:sessions=2", "all:users=5", "one:sessions=2"}));

    told.clear();
    EXPECT_EQ(sysdb_item_set(conn_, "users", SYSDB_TYPE_U32, &five, sizeof five, 0), 0u);  // nothing new
    testkit_sysdb_remove("/cfg/limits/sessions");
    EXPECT_EQ(sysdb_dispatch(conn_), 0u);
    EXPECT_EQ(told, (std::vector<std::string>{"all:sessions=gone", "one:sessions=gone"}));
    told.clear();
    EXPECT_EQ(sysdb_dispatch(conn_), 0u);
    EXPECT_TRUE(told.empty());
}

TEST_F(Testkit, TellsTheStateAtTheStartOnRequest) {
    told.clear();
    testkit_sysdb_put_u32("/cfg/limits/sessions", 7);
    const uint64_t handle = watch(conn_, "sessions", "", SYSDB_NOTIFY_CHANGES | SYSDB_NOTIFY_INITIAL);
    EXPECT_EQ(sysdb_dispatch(conn_), 0u);
    EXPECT_EQ(told, (std::vector<std::string>{"sessions=7"}));
    testkit_sysdb_put_u32("/cfg/limits/sessions", 8);
    EXPECT_EQ(sysdb_notification_unregister(conn_, handle), 0u);
    EXPECT_EQ(sysdb_dispatch(conn_), 0u);
    EXPECT_EQ(told.size(), 1u);
}

// ---- changes as one ----

sysdb_change_t change(uint32_t operation, const char *path, const uint32_t *number = nullptr) {
    return {operation, number == nullptr ? SYSDB_TYPE_ANY : SYSDB_TYPE_U32, path, number,
            number == nullptr ? 0 : uint32_t{sizeof *number}};
}

TEST_F(Testkit, MakesSeveralChangesAsOne) {
    const uint32_t one = 1;
    const uint32_t two = 2;
    told.clear();
    for (const char *path : {"/cfg/limits/d/kept", "/cfg/limits/d/other", "/cfg/limits/gone"}) {
        testkit_sysdb_put_u32(path, 1);
    }
    testkit_sysdb_make_directory("/cfg/limits/d/empty");
    watch(conn_, "", "");
    const sysdb_change_t changes[] = {
        change(SYSDB_CHANGE_EXPECT, "gone", &one), change(SYSDB_CHANGE_DELETE, "gone"),
        change(SYSDB_CHANGE_EXPECT, "gone"),       change(SYSDB_CHANGE_PRUNE, "d/"),
        change(SYSDB_CHANGE_SET, "d/kept", &one),  change(SYSDB_CHANGE_SET, "new", &two),
    };
    uint32_t failed = 99;
    EXPECT_EQ(sysdb_apply(conn_, changes, 6, &failed), 0u);
    EXPECT_EQ(failed, 99u);
    EXPECT_STREQ(testkit_sysdb_path(0), "/cfg/limits/d/kept");
    EXPECT_STREQ(testkit_sysdb_path(1), "/cfg/limits/new");
    EXPECT_EQ(testkit_sysdb_path(2), nullptr);
    EXPECT_EQ(sysdb_item_delete(conn_, "d/empty", SYSDB_DELETE_TREE), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(sysdb_dispatch(conn_), 0u);  // of the differences alone
    EXPECT_EQ(told, (std::vector<std::string>{"d/empty/=gone", "d/other=gone", "gone=gone", "new=2"}));
    EXPECT_STREQ(testkit_call("sysdb_apply", 0), "sysdb_apply(/cfg/limits/, ptr, 6)");
}

TEST_F(Testkit, MakesNoChangeWhenOneIsRefused) {
    const uint32_t one = 1;
    const uint32_t two = 2;
    const auto refused = [&](const sysdb_change_t &last) {
        const sysdb_change_t changes[] = {change(SYSDB_CHANGE_SET, "x", &one), last};
        uint32_t failed = 99;
        const uint32_t rc = sysdb_apply(conn_, changes, 2, &failed);
        EXPECT_EQ(failed, 1u);
        EXPECT_EQ(testkit_sysdb_path(0), nullptr);
        return rc;
    };
    EXPECT_EQ(refused(change(SYSDB_CHANGE_DELETE, "none")), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(refused(change(SYSDB_CHANGE_EXPECT, "x", &two)), SYSDB_ERR_CONFLICT);
    EXPECT_EQ(refused(change(SYSDB_CHANGE_EXPECT, "x")), SYSDB_ERR_CONFLICT);
    EXPECT_EQ(refused(change(SYSDB_CHANGE_SET, nullptr, &one)), SYSDB_ERR_INVALID_ARG);
    EXPECT_EQ(refused(change(77, "x")), SYSDB_ERR_INVALID_ARG);
    uint32_t failed = 99;
    EXPECT_EQ(sysdb_apply(conn_, nullptr, 3, &failed), SYSDB_ERR_INVALID_ARG);
    EXPECT_EQ(failed, 3u);
    EXPECT_EQ(sysdb_apply(conn_, nullptr, 0, nullptr), 0u);
    testkit_fail_call("sysdb_apply", 1, SYSDB_ERR_NOT_SUPPORTED, -1);
    EXPECT_EQ(sysdb_apply(conn_, nullptr, 0, &failed), SYSDB_ERR_NOT_SUPPORTED);
    EXPECT_EQ(failed, 0u);
}

// ---- records and scripts ----

TEST_F(Testkit, RecordsCalls) {
    const uint32_t four = 4;
    sysdb_item_set(conn_, "sessions", SYSDB_TYPE_U32, &four, sizeof four, 0);
    EXPECT_EQ(testkit_count("sysdb_item_set"), 1u);
    EXPECT_STREQ(testkit_call("sysdb_item_set", 0), "sysdb_item_set(/cfg/limits/, \"sessions\", 1, 4, 4, 0)");
    EXPECT_EQ(testkit_call("sysdb_item_set", 1), nullptr);
    EXPECT_STREQ(testkit_call(nullptr, 0), "_sysdb_bind(\"/cfg/limits/\", 0)");
    testkit_clear_calls();
    EXPECT_EQ(testkit_call(nullptr, 0), nullptr);
    EXPECT_EQ(testkit_count("sysdb_item_set"), 0u);
}

TEST_F(Testkit, RecordsTraces) {
    EXPECT_EQ(aaa_debugging(8), 0);
    testkit_enable_tracing(8, 1);
    EXPECT_NE(aaa_debugging(8), 0);
    aaa_debug(8, "user %s", "alice");
    EXPECT_STREQ(testkit_trace(8, 0), "user alice");
    EXPECT_EQ(testkit_trace(8, 1), nullptr);
    EXPECT_EQ(testkit_trace(9, 0), nullptr);
}

TEST_F(Testkit, PlaysScripts) {
    const auto get = [this] { return sysdb_item_get(conn_, "x", nullptr, nullptr, nullptr, 0); };
    testkit_sysdb_put_u32("/cfg/limits/x", 1);
    testkit_answer("sysdb_item_get", SYSDB_ERR_BUSY, 2, -1);
    testkit_answer("sysdb_item_get", SYSDB_ERR_CORRUPT, 1, ENOSPC);
    errno = 0;
    EXPECT_EQ(get(), SYSDB_ERR_BUSY);
    EXPECT_EQ(get(), SYSDB_ERR_BUSY);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(get(), SYSDB_ERR_CORRUPT);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(get(), 0u);
    testkit_fail_call("sysdb_item_get", 2, SYSDB_ERR_FULL, -1);
    EXPECT_EQ(get(), 0u);
    EXPECT_EQ(get(), SYSDB_ERR_FULL);
    EXPECT_EQ(get(), 0u);
    testkit_answer("sysdb_item_get", SYSDB_ERR_BUSY, TESTKIT_FOREVER, -1);
    EXPECT_EQ(get(), SYSDB_ERR_BUSY);
    testkit_clear_answers("sysdb_item_get");
    EXPECT_EQ(get(), 0u);
}

TEST_F(Testkit, FailsOneOfTheCallsThatAreAnswered) {
    const auto next = [this](unsigned calls) {
        std::vector<uint32_t> codes;
        while (codes.size() < calls) {
            codes.push_back(sysdb_item_get(conn_, "x", nullptr, nullptr, nullptr, 0));
        }
        return codes;
    };
    using Codes = std::vector<uint32_t>;
    testkit_sysdb_put_u32("/cfg/limits/x", 1);
    testkit_answer("sysdb_item_get", SYSDB_ERR_BUSY, 3, -1);
    testkit_fail_call("sysdb_item_get", 2, SYSDB_ERR_CORRUPT, -1);
    EXPECT_EQ(next(4), (Codes{SYSDB_ERR_BUSY, SYSDB_ERR_CORRUPT, SYSDB_ERR_BUSY, 0}));

    testkit_answer("sysdb_item_get", SYSDB_ERR_BUSY, TESTKIT_FOREVER, -1);
    testkit_fail_call("sysdb_item_get", 1, SYSDB_ERR_CORRUPT, -1);
    testkit_fail_call("sysdb_item_get", 1, SYSDB_ERR_FULL, -1);
    EXPECT_EQ(next(2), (Codes{SYSDB_ERR_FULL, SYSDB_ERR_BUSY}));
    testkit_answer("sysdb_item_get", SYSDB_ERR_ACCESS, 1, -1);
    EXPECT_EQ(next(2), (Codes{SYSDB_ERR_ACCESS, SYSDB_ERR_BUSY}));
    testkit_clear_answers("sysdb_item_get");

    testkit_fail_call("sysdb_item_get", 2, SYSDB_ERR_CORRUPT, -1);
    testkit_answer("sysdb_item_get", SYSDB_ERR_BUSY, 1, -1);
    EXPECT_EQ(next(4), (Codes{0, SYSDB_ERR_CORRUPT, SYSDB_ERR_BUSY, 0}));
}

TEST_F(Testkit, RunsTheTestBeforeACall) {
    testkit_before(
        "sysdb_item_get", [](void *path) { testkit_sysdb_put_u32(static_cast<const char *>(path), 1); },
        const_cast<char *>("/cfg/limits/late"));
    EXPECT_EQ(sysdb_item_get(conn_, "late", nullptr, nullptr, nullptr, 0), 0u);
    testkit_before("sysdb_item_get", nullptr, nullptr);
    testkit_sysdb_remove("/cfg/limits/late");
    EXPECT_EQ(sysdb_item_get(conn_, "late", nullptr, nullptr, nullptr, 0), SYSDB_ERR_NOT_FOUND);
}

TEST_F(Testkit, FailsAllocations) {
    if (testkit_alloc_available() == 0) {
        GTEST_SKIP() << "this build's sanitizer does not let a program replace malloc";
    }
    avlist *list = nullptr;
    testkit_alloc_fail(1, 0);
    const cerrno rc = aaa_avpair_create_list("x", &list);
    EXPECT_EQ(testkit_alloc_end(), 1u);
    EXPECT_EQ(rc, AAA_ERR_NOMEM);
    EXPECT_EQ(aaa_avpair_create_list("x", &list), AAA_OK);
    aaa_avpair_free_list(list);
}

// ---- the rest of the platform ----

TEST_F(Testkit, TypesLines) {
    testkit_type_line("yes", 1, 0);
    char answer[16] = "";
    EXPECT_EQ(aaa_util_read_input("Sure? ", answer, sizeof answer - 1, 0, 0), AAA_OK);
    EXPECT_STREQ(answer, "yes");
    EXPECT_EQ(aaa_util_read_input("Sure? ", answer, sizeof answer - 1, 0, 0), AAA_ERR_INVALID_CLIENT_DATA);
}

TEST_F(Testkit, StopsTheClock) {
    testkit_stop_clock(1700000000);
    EXPECT_EQ(time(nullptr), 1700000000);
    testkit_run_clock();
    EXPECT_GT(time(nullptr), 1700000000);
}

TEST_F(Testkit, NamesTheTerminal) {
    char name[16];
    testkit_ttyname("/dev/pts/7", 0);
    EXPECT_EQ(ttyname_r(0, name, sizeof name), 0);
    EXPECT_STREQ(name, "/dev/pts/7");
    testkit_ttyname(nullptr, ENOTTY);
    EXPECT_EQ(ttyname_r(0, name, sizeof name), ENOTTY);
}

TEST_F(Testkit, ClosesEventConnections) {
    const auto up = +[](void *, void *) -> int32_t { return 5; };
    const event_manager_t manager = event_manager_create(0, "test", 0, nullptr);
    event_conn_t first = nullptr, second = nullptr, third = nullptr;
    ASSERT_EQ(event_conn_create(&first, manager, up, nullptr, EVENT_CONN_TYPE_FD), 0u);
    ASSERT_EQ(event_conn_create(&second, manager, up, nullptr, EVENT_CONN_TYPE_FD), 0u);
    EXPECT_EQ(event_conn_close(first), 0u);
    ASSERT_EQ(event_conn_create(&third, manager, up, nullptr, EVENT_CONN_TYPE_FD), 0u);
    EXPECT_NE(second, third);
    EXPECT_EQ(event_conn_open(second), 0u);
    EXPECT_EQ(fake::events::connections().size(), 2u);
    event_manager_destroy(manager);
}

TEST_F(Testkit, EndsTheWaitOfADestroyedEventManager) {
    const event_manager_t manager = event_manager_create(0, "test", 0, nullptr);
    event_block_ctx_t context{};
    testkit_wake();
    event_manager_destroy(nullptr);
    EXPECT_EQ(event_block(&context), 0);
    event_manager_destroy(manager);
    EXPECT_EQ(event_block(&context), -1);
    EXPECT_EQ(errno, EBADF);
    ASSERT_NE(event_manager_create(0, "test", 0, nullptr), nullptr);
    testkit_wake();
    EXPECT_EQ(event_block(&context), 0);
}

TEST_F(Testkit, ReportsMisuse) {
    static std::string seen;
    testkit_on_misuse([](const char *text, void *context) { *static_cast<std::string *>(context) = text; },
                      &seen);
    sysdb_item_get(12345, "x", nullptr, nullptr, nullptr, 0);
    EXPECT_EQ(seen, "sysdb_item_get on a connection that is not open");
    testkit_count("no_such_function");
    EXPECT_EQ(seen, "the fake platform has no function no_such_function");
}

// Otherwise each would be a script or an item without any effect.
TEST_F(Testkit, ReportsWhatWouldTestNothing) {
    static std::string seen;
    testkit_on_misuse([](const char *text, void *) { seen = text; }, nullptr);
    for (const char *path : {"", "/", "cfg/limits/x", "/cfg/limits/", "/cfg//x"}) {
        testkit_sysdb_put_u32(path, 1);
        EXPECT_EQ(seen, std::string("testkit_sysdb_put_u32 without a full path: \"") + path + "\"");
    }
    testkit_sysdb_put_string("x", "");
    EXPECT_EQ(seen, "testkit_sysdb_put_string without a full path: \"x\"");
    testkit_sysdb_put("x", SYSDB_TYPE_U32, nullptr, 0);
    EXPECT_EQ(seen, "testkit_sysdb_put without a full path: \"x\"");
    testkit_sysdb_make_directory("x");
    EXPECT_EQ(seen, "testkit_sysdb_make_directory without a full path: \"x\"");
    testkit_sysdb_remove("x");
    EXPECT_EQ(seen, "testkit_sysdb_remove without a full path: \"x\"");
    EXPECT_EQ(testkit_sysdb_get_string("x"), nullptr);
    EXPECT_EQ(seen, "testkit_sysdb_get_string without a full path: \"x\"");
    EXPECT_EQ(testkit_sysdb_path(0), nullptr);
    testkit_fail_call("sysdb_item_get", 0, SYSDB_ERR_BUSY, -1);
    EXPECT_EQ(seen, "testkit_fail_call counts from 1");
    testkit_give_text("sysdb_item_get", "x");
    EXPECT_EQ(seen, "testkit_give_text to a function that gives no text: sysdb_item_get");
}

TEST_F(Testkit, RemovesDirectoriesByEitherName) {
    for (const char *name : {"/cfg/limits/d", "/cfg/limits/d/"}) {
        testkit_sysdb_make_directory("/cfg/limits/d");
        EXPECT_EQ(sysdb_item_delete(conn_, "d/", SYSDB_DELETE_TREE), 0u);
        testkit_sysdb_make_directory("/cfg/limits/d");
        testkit_sysdb_remove(name);
        EXPECT_EQ(sysdb_item_delete(conn_, "d/", SYSDB_DELETE_TREE), SYSDB_ERR_NOT_FOUND);
    }
}

TEST_F(Testkit, EndsTheProgramOnMisuseInitially) {
    testkit_on_misuse(nullptr, nullptr);
    EXPECT_DEATH(_sysdb_unbind(12345), "platform contract: _sysdb_unbind on a connection that is not open");
}

}  // namespace
