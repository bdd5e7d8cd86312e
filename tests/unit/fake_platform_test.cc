// SPDX-License-Identifier: Apache-2.0
//
// The fake platform: it takes precedence over the host, records all calls, and
// reports misuse. All other tests rely on it.

#include "testkit/fake_platform.hpp"

#include <dlfcn.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <thread>

#include "platform/bounded.h"
#include "platform/cerr.h"
#include "platform/cipher.h"
#include "platform/memory.h"
#include "platform/node.h"
#include "support/fail_alloc.hpp"

namespace {

using Lines = std::vector<std::string>;

// Names that the contract's headers declare: the identifier before the first
// parenthesis of each declaration.
Lines contract_functions() {
    Lines names;
    for (const char *const stem :
         {"bounded", "cerr", "cipher", "event_manager", "logging", "memory", "node", "sysdb", "terminal"}) {
        std::ifstream in(AAA_SOURCE_DIR "/platform/include/platform/" + std::string(stem) + ".h");
        EXPECT_TRUE(in) << stem;
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with("PLATFORM_API ")) {
                const std::size_t end = line.find('(');
                const std::size_t before = line.find_last_of(" *", end);
                names.push_back(line.substr(before + 1, end - before - 1));
            }
        }
    }
    return names;
}

// Names that the library leaves to others to define.
Lines library_imports() {
    Lines names;
    FILE *const nm = popen("nm -D --undefined-only --format=posix " AAAUTIL_LIBRARY, "r");
    EXPECT_NE(nm, nullptr);
    char name[256];
    while (nm != nullptr && std::fscanf(nm, "%255s%*[^\n]", name) == 1) {
        names.emplace_back(name, std::strcspn(name, "@"));
    }
    EXPECT_EQ(pclose(nm), 0);
    return names;
}

// The contract has services for others too; the library's are those that count.
TEST(FakePlatform, DefinesInTheProgramWhatTheLibraryImports) {
    const Lines declared = contract_functions();
    const Lines imported = library_imports();
    Dl_info own{};
    ASSERT_NE(dladdr(reinterpret_cast<void *>(&contract_functions), &own), 0);
    unsigned checked = 0;
    for (const std::string &name : imported) {
        if (std::find(declared.begin(), declared.end(), name) == declared.end()) {
            continue;
        }
        ++checked;
        void *const found = dlsym(RTLD_DEFAULT, name.c_str());
        Dl_info info{};
        ASSERT_NE(found, nullptr) << name;
        ASSERT_NE(dladdr(found, &info), 0) << name;
        EXPECT_EQ(info.dli_fbase, own.dli_fbase) << name << " is taken from " << info.dli_fname;
        EXPECT_EQ(fake::count(name), 0u);  // known to the scripts under this name
    }
    EXPECT_GE(checked, 50u);
}

TEST(FakePlatform, IsWhatTheLibraryCalls) {
    EXPECT_EQ(aaa_is_console("/dev/console"), 0);  // the fake's lines are terminals
    EXPECT_EQ(fake::calls(), (Lines{"tty_details_from_device_file(0, \"/dev/console\")"}));
}

TEST(FakeJournal, RendersArgumentsInOrder) {
    aaa_queue_t queue;
    queue_init(&queue, 0);
    EXPECT_EQ(cerr_register_dll(1164, "cerrno/libaaa_error.dll"), 0u);
    fake::answer("qm_inet_ntop", 0);
    EXPECT_EQ(qm_inet_ntop(2, nullptr, nullptr, 16), nullptr);
    EXPECT_EQ(fake::calls(),
              (Lines{"queue_init(ptr, 0)", "cerr_register_dll(1164, \"cerrno/libaaa_error.dll\")",
                     "qm_inet_ntop(2, null, null, 16)"}));
}

TEST(FakeJournal, FiltersByNameAndCounts) {
    std::free(malloc_named(3, "a"));
    std::free(calloc_named(2, 4, "b"));
    std::free(malloc_named(5, nullptr));
    EXPECT_EQ(fake::calls("malloc_named"), (Lines{"malloc_named(3, \"a\")", "malloc_named(5, null)"}));
    EXPECT_EQ(fake::calls({"calloc_named", "malloc_named"}).size(), 3u);
    EXPECT_EQ(fake::count("malloc_named"), 2u);
    fake::clear_journal();
    EXPECT_TRUE(fake::calls().empty());
    EXPECT_EQ(fake::count("malloc_named"), 0u);
}

TEST(FakeJournal, IsEmptyAtTheStartOfATest) {
    EXPECT_TRUE(fake::calls().empty());
}

TEST(FakeJournal, RefusesUnknownNames) {
    EXPECT_NONFATAL_FAILURE(fake::calls("sysdb_get"), "no function sysdb_get");
    EXPECT_NONFATAL_FAILURE(fake::answer("sysdb_get", 1), "no function sysdb_get");
}

TEST(FakeScript, AnswersThenReturnsToNormal) {
    fake::answer("aaa_debug_init", 5, 2);
    fake::answer("aaa_debug_init", 6, 1);
    EXPECT_EQ(aaa_debug_init(), 5u);
    EXPECT_EQ(aaa_debug_init(), 5u);
    EXPECT_EQ(aaa_debug_init(), 6u);
    EXPECT_EQ(aaa_debug_init(), 0u);
    fake::answer("aaa_debug_init", 7);
    EXPECT_EQ(aaa_debug_init(), 7u);
    EXPECT_EQ(aaa_debug_init(), 7u);
    fake::clear_answers("aaa_debug_init");
    EXPECT_EQ(aaa_debug_init(), 0u);
}

TEST(FakeScript, FailsTheKthCall) {
    aaa_debug_init();
    fake::fail_call("aaa_debug_init", 2, 9);
    EXPECT_EQ(aaa_debug_init(), 0u);
    EXPECT_EQ(aaa_debug_init(), 9u);
    EXPECT_EQ(aaa_debug_init(), 0u);
}

TEST(FakeScript, SurvivesClearingTheJournal) {
    aaa_debug_init();
    fake::fail_call("aaa_debug_init", 2, 9);
    fake::answer("platform_am_i_lc", 1);
    fake::clear_journal();
    EXPECT_EQ(aaa_debug_init(), 0u);
    EXPECT_EQ(aaa_debug_init(), 9u);
    EXPECT_EQ(aaa_debug_init(), 0u);
    EXPECT_EQ(platform_am_i_lc(), 1);
}

TEST(FakeScript, SetsErrnoOnlyWhenAsked) {
    errno = 33;
    fake::answer("event_manager_create", 0, 1);
    fake::answer("event_manager_create", 0, 1, EMFILE);
    EXPECT_EQ(event_manager_create(0, "x", 0, nullptr), nullptr);
    EXPECT_EQ(errno, 33);
    EXPECT_EQ(event_manager_create(0, "x", 0, nullptr), nullptr);
    EXPECT_EQ(errno, EMFILE);
}

TEST(FakeScript, HooksRunBeforeTheCallIsServed) {
    unsigned seen = 0;
    fake::before("aaa_debug_init", [&] { seen = fake::count("aaa_debug_init"); });
    aaa_debug_init();
    EXPECT_EQ(seen, 1u);
}

TEST(FakeTraces, KeepFlagAndText) {
    aaa_debug(5, "%s has %u of 0x%08x, %c %5.1f%% %-4d|%.3s|%lu", "list", 7u, 0xabcu, 'x', 2.5, 12, "abcdef",
              8ul);
    aaa_debug(8, "plain");
    EXPECT_EQ(fake::traces(),
              (std::vector<fake::Trace>{{5, "list has 7 of 0x00000abc, x   2.5% 12  |abc|8"}, {8, "plain"}}));
    EXPECT_EQ(fake::traces_of(8), (Lines{"plain"}));
}

TEST(FakeTraces, AreOffUntilEnabled) {
    EXPECT_EQ(aaa_debugging(8), 0);
    fake::enable_tracing(8);
    EXPECT_NE(aaa_debugging(8), 0);
    EXPECT_EQ(aaa_debugging(9), 0);
    fake::enable_tracing(8, false);
    EXPECT_EQ(aaa_debugging(8), 0);
}

TEST(FakeTraces, NullTextFailsTheTest) {
    const char *volatile none = nullptr;
    EXPECT_NONFATAL_FAILURE(aaa_debug(1, "%d %s", 1, none), "aaa_debug got a null for \"%s\"");
    EXPECT_EQ(fake::traces_of(1), (Lines{"1 (null)"}));
}

constexpr kel_msg_rec_t kRecord = {0,      "Lost %s: %s", nullptr, "AAA",      "SECURITY",
                                   "LOST", 3u << 16,      {},      0x048d0001, 0};

TEST(FakeLogs, KeepRecordAndText) {
    kel_errmsg(&kRecord, 3, "it", "gone");
    const auto logs = fake::logs();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].record, &kRecord);
    EXPECT_EQ(logs[0].severity, 3u);
    EXPECT_EQ(logs[0].mnemonic, "LOST");
    EXPECT_EQ(logs[0].text, "Lost it: gone");
    EXPECT_EQ(fake::log_texts(), (Lines{"Lost it: gone"}));
}

TEST(FakeLogs, WrongSeverityAndNullTextFailTheTest) {
    const char *volatile none = nullptr;
    EXPECT_NONFATAL_FAILURE(kel_errmsg(&kRecord, 4, "a", "b"), "severity 4 for LOST");
    EXPECT_NONFATAL_FAILURE(kel_errmsg(&kRecord, 3, "a", none), "got a null");
    EXPECT_NONFATAL_FAILURE(kel_errmsg(nullptr, 3), "null record");
}

// Connection at /cfg/gl/aaa/ that is closed at the end of the test.
struct Bound {
    Bound() { EXPECT_EQ(_sysdb_bind(&conn, "/cfg/gl/aaa/", 2), 0u); }
    ~Bound() {
        if (conn != 0) {
            _sysdb_unbind(conn);
        }
    }
    sysdb_conn_t conn = 0;
};

// sysdb_item_get with outputs as a caller hands them in.
struct Read {
    Read(sysdb_conn_t conn, const char *path, uint32_t expected) : type(expected) {
        rc = sysdb_item_get(conn, path, &type, &value, &length, 0);
        owned.reset(value);
    }
    struct Free {
        void operator()(void *p) const { std::free(p); }
    };
    uint32_t type;
    void *value = nullptr;
    uint32_t length = 0;
    cerrno rc = 0;
    std::unique_ptr<void, Free> owned;
};

TEST(FakeSysdb, CountsConnections) {
    {
        const Bound a, b;
        EXPECT_NE(a.conn, b.conn);
        EXPECT_EQ(fake::sysdb::open_connections(), (Lines{"/cfg/gl/aaa/", "/cfg/gl/aaa/"}));
    }
    EXPECT_TRUE(fake::sysdb::open_connections().empty());
    EXPECT_EQ(fake::calls(), (Lines{"_sysdb_bind(\"/cfg/gl/aaa/\", 2)", "_sysdb_bind(\"/cfg/gl/aaa/\", 2)",
                                    "_sysdb_unbind(/cfg/gl/aaa/)", "_sysdb_unbind(/cfg/gl/aaa/)"}));
}

TEST(FakeSysdb, UnbindsTheZeroHandle) {
    EXPECT_EQ(_sysdb_unbind(0), 0u);
    EXPECT_EQ(fake::calls(), (Lines{"_sysdb_unbind(0)"}));
}

TEST(FakeSysdb, NoticesAClosedConnection) {
    sysdb_conn_t conn = 0;
    _sysdb_bind(&conn, "/cfg/gl/aaa/", 0);
    _sysdb_unbind(conn);
    EXPECT_NONFATAL_FAILURE(_sysdb_unbind(conn), "connection that is not open");
    EXPECT_NONFATAL_FAILURE(Read(conn, "x", 1), "connection that is not open");
}

TEST(FakeSysdb, FailedBindLeavesTheHandle) {
    sysdb_conn_t conn = 0;
    fake::answer("_sysdb_bind", 0x1234, 1);
    EXPECT_EQ(_sysdb_bind(&conn, "/cfg/gl/aaa/", 0), 0x1234u);
    EXPECT_EQ(conn, 0u);
}

TEST(FakeSysdb, ReadsItemsOfTheExpectedType) {
    const Bound bound;
    fake::sysdb::put_u32("/cfg/gl/aaa/n", 1001);
    fake::sysdb::put_string("/cfg/gl/aaa/s", "text");
    const Read number(bound.conn, "n", SYSDB_TYPE_U32);
    ASSERT_EQ(number.rc, 0u);
    ASSERT_EQ(number.length, 4u);
    uint32_t value = 0;
    std::memcpy(&value, number.value, sizeof value);
    EXPECT_EQ(value, 1001u);
    const Read text(bound.conn, "s", 0);
    EXPECT_EQ(text.type, SYSDB_TYPE_STRING);
    EXPECT_EQ(text.length, 5u);
    EXPECT_STREQ(static_cast<char *>(text.value), "text");
    EXPECT_EQ(Read(bound.conn, "s", SYSDB_TYPE_U32).rc, fake::sysdb::kWrongType);
    EXPECT_EQ(Read(bound.conn, "absent", 0).rc, SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(fake::calls("sysdb_item_get").front(), "sysdb_item_get(/cfg/gl/aaa/, \"n\", 1, 0)");
}

TEST(FakeSysdb, CanReadANullValue) {
    const Bound bound;
    fake::sysdb::put("/cfg/gl/aaa/z", {SYSDB_TYPE_STRING, {}, true});
    const Read none(bound.conn, "z", SYSDB_TYPE_STRING);
    EXPECT_EQ(none.rc, 0u);
    EXPECT_EQ(none.value, nullptr);
    EXPECT_EQ(none.length, 0u);
}

TEST(FakeSysdb, WritesAndDeletes) {
    const Bound bound;
    const uint32_t number = 7;
    EXPECT_EQ(sysdb_item_set(bound.conn, "a/n", SYSDB_TYPE_U32, &number, 4, 1), 0u);
    EXPECT_EQ(sysdb_item_set(bound.conn, "a/s", SYSDB_TYPE_STRING, "seven", 6, 1), 0u);
    EXPECT_EQ(fake::sysdb::get_u32("/cfg/gl/aaa/a/n"), 7u);
    EXPECT_EQ(fake::sysdb::get_string("/cfg/gl/aaa/a/s"), "seven");
    EXPECT_EQ(sysdb_item_delete(bound.conn, "a/n", 0), 0u);
    EXPECT_EQ(sysdb_item_delete(bound.conn, "a/n", 0), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(fake::sysdb::paths(), (Lines{"/cfg/gl/aaa/a/s"}));
    EXPECT_EQ(fake::calls("sysdb_item_set"),
              (Lines{"sysdb_item_set(/cfg/gl/aaa/, \"a/n\", 1, 7, 4, 1)",
                     "sysdb_item_set(/cfg/gl/aaa/, \"a/s\", 3, \"seven\", 6, 1)"}));
}

// Names of a list in order; the list is freed.
Lines drain(sysdb_list_t list) {
    Lines names;
    EXPECT_EQ(sysdb_list_start(list), 0u);
    char *name = nullptr;
    uint32_t type = 0;
    while (sysdb_list_next(list, &name, &type, 0) == 0) {
        EXPECT_EQ(type == SYSDB_TYPE_DIRECTORY, name[std::strlen(name) - 1] == '/');
        names.emplace_back(name);
    }
    sysdb_list_free(list);
    return names;
}

TEST(FakeSysdb, ListsOneLevelWithNumbersInOrder) {
    const Bound bound;
    for (const char *const path :
         {"d/0x10/x", "d/0x2/x", "d/0x2/y", "d/0xf,a/x", "d/item", "d/item/below", "e/x"}) {
        fake::sysdb::put_u32(std::string("/cfg/gl/aaa/") + path, 1);
    }
    fake::sysdb::make_directory("/cfg/gl/aaa/d/empty");
    uint32_t count = 0;
    sysdb_list_t list = nullptr;
    ASSERT_EQ(sysdb_list(bound.conn, "d", "", &count, &list, 0), 0u);
    EXPECT_EQ(count, 6u);
    EXPECT_EQ(drain(list), (Lines{"0x2/", "0xf,a/", "0x10/", "empty/", "item", "item/"}));
}

TEST(FakeSysdb, ListsEmptyAndAbsentDirectories) {
    const Bound bound;
    fake::sysdb::make_directory("/cfg/gl/aaa/d");
    uint32_t count = 9;
    sysdb_list_t list = nullptr;
    ASSERT_EQ(sysdb_list(bound.conn, "d/", "", &count, &list, 0), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(drain(list).empty());
    list = nullptr;
    EXPECT_EQ(sysdb_find(bound.conn, "absent/", "", &count, &list, 0, 1), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(fake::calls("sysdb_find"), (Lines{"sysdb_find(/cfg/gl/aaa/, \"absent/\", \"\", 0, 1)"}));
}

TEST(FakeSysdb, FailedListCanStoreAHandle) {
    const Bound bound;
    fake::sysdb::set_list_on_failure(true);
    fake::answer("sysdb_list", 5, 1);
    uint32_t count = 0;
    sysdb_list_t list = nullptr;
    EXPECT_EQ(sysdb_list(bound.conn, "", "", &count, &list, 0), 5u);
    EXPECT_EQ(fake::sysdb::open_lists(), 1u);
    sysdb_list_free(list);
    EXPECT_EQ(fake::sysdb::open_lists(), 0u);
}

TEST(FakeSysdb, NoticesMisuseOfLists) {
    const Bound bound;
    fake::sysdb::make_directory("/cfg/gl/aaa/d");
    uint32_t count = 0;
    static sysdb_list_t list = nullptr;
    sysdb_list(bound.conn, "d/", "", &count, &list, 0);
    static char *name = nullptr;
    static uint32_t type = 0;
    EXPECT_NONFATAL_FAILURE(sysdb_list_next(list, &name, &type, 0), "not started");
    sysdb_list_free(list);
    EXPECT_NONFATAL_FAILURE(sysdb_list_free(list), "list that is not open");
}

TEST(FakeSysdb, GivesTheLastNameOfADirectory) {
    const Bound bound;
    char *name = nullptr;
    uint32_t type = 0;
    EXPECT_EQ(sysdb_directory_get_last(bound.conn, "m/", &name, &type, 0), SYSDB_ERR_NOT_FOUND);
    fake::sysdb::put_string("/cfg/gl/aaa/m/0x3e9", "a");
    fake::sysdb::put_string("/cfg/gl/aaa/m/0x3ea", "b");
    ASSERT_EQ(sysdb_directory_get_last(bound.conn, "m/", &name, &type, 0), 0u);
    EXPECT_STREQ(name, "0x3ea");
    EXPECT_EQ(type, SYSDB_TYPE_STRING);
    std::free(name);
    name = nullptr;
    fake::answer("sysdb_directory_get_last", 0, 1);
    EXPECT_EQ(sysdb_directory_get_last(bound.conn, "m/", &name, &type, 0), 0u);
    EXPECT_EQ(name, nullptr);
}

TEST(FakeSysdb, UnpacksTuples) {
    const auto bytes = fake::sysdb::tuple({1, 2}, {"one", std::string(60, 'x')});
    uint32_t a = 0, b = 0;
    char one[50], two[50];
    ASSERT_EQ(tuple_unpack_mask(bytes.data(), "%d%d%s%s", &a, &b, one, two), 0);
    EXPECT_EQ(a, 1u);
    EXPECT_EQ(b, 2u);
    EXPECT_STREQ(one, "one");
    EXPECT_EQ(std::string(two), std::string(49, 'x'));
    // Counted from the last surplus integer.
    ASSERT_EQ(tuple_unpack_mask(bytes.data(), "%d%s%s", &a, one, two), 0);
    EXPECT_EQ(a, 2u);
    EXPECT_NE(tuple_unpack_mask(bytes.data(), "%d%d%d%s%s", &a, &b, &b, one, two), 0);
    EXPECT_EQ(errno, EPROTO);
    EXPECT_NE(tuple_unpack_mask(bytes.data(), "%d%d%s", &a, &b, one), 0);
    EXPECT_EQ(errno, EPROTO);
    EXPECT_NE(tuple_unpack_mask(bytes.data(), "%d%x", &a, &b), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_NE(tuple_unpack_mask("TQ\1\0\10\0\0\0", "%d", &a), 0);
    EXPECT_EQ(errno, EBADMSG);
    fake::answer("tuple_unpack_mask", 1, 1, 0);
    EXPECT_NE(tuple_unpack_mask(bytes.data(), "%d%d%s%s", &a, &b, one, two), 0);
    EXPECT_EQ(errno, 0);
}

TEST(FakeSysdb, MakesTheHostsTuples) {
    const auto pack = reinterpret_cast<decltype(&sysdb_tuple_pack)>(dlsym(RTLD_DEFAULT, "sysdb_tuple_pack"));
    ASSERT_NE(pack, nullptr);
    void *made = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(pack(&made, &length, "%d%d%s%s", 10u, 0x01020304u, "GRP1", ""), 0u);
    const auto *const bytes = static_cast<const uint8_t *>(made);
    EXPECT_EQ(fake::sysdb::tuple({10, 0x01020304}, {"GRP1", ""}),
              std::vector<uint8_t>(bytes, bytes + length));
    std::free(made);
}

TEST(FakeSysdb, CallsNotificationsBack) {
    const Bound bound;
    static const void *seen[3];
    const auto callback = +[](const void *what, void *arg, void *ctx) -> int32_t {
        seen[0] = what;
        seen[1] = arg;
        seen[2] = ctx;
        return 5;
    };
    uint64_t handle = 0;
    int arg = 0, ctx = 0;
    const int what = 0;
    ASSERT_EQ(_sysdb_register_notification(bound.conn, "x", 6, 1, callback, &arg, 0, &ctx, 0, &handle), 0u);
    ASSERT_EQ(fake::sysdb::notifications().size(), 1u);
    EXPECT_EQ(fake::sysdb::notifications()[0].path, "/cfg/gl/aaa/x");
    EXPECT_EQ(fake::sysdb::notify(handle, &what), 5);
    EXPECT_EQ(seen[0], &what);
    EXPECT_EQ(seen[1], &arg);
    EXPECT_EQ(seen[2], &ctx);
    EXPECT_EQ(sysdb_notification_unregister(bound.conn, handle), 0u);
    EXPECT_NONFATAL_FAILURE(fake::sysdb::notify(1, nullptr), "no such notification");
}

TEST(FakeSysdb, PresenceCheckIsScripted) {
    EXPECT_EQ(access(AAA_PKG_ROOT "/lib/libsysdb.so", R_OK), 0);
    fake::sysdb::set_present(false);
    EXPECT_EQ(access(AAA_PKG_ROOT "/lib/libsysdb.so", R_OK), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(fake::calls(), (Lines{fake::presence_call(), fake::presence_call()}));
}

TEST(FakeLibc, PassesOnUntilTakenOver) {
    EXPECT_EQ(access("/", R_OK), 0);
    EXPECT_GT(std::time(nullptr), 1'600'000'000);
    EXPECT_TRUE(fake::calls().empty());
    fake::libc::set_time(12345);
    fake::libc::set_pid(77);
    fake::libc::set_ttyname("/dev/pts/3");
    time_t now = 0;
    EXPECT_EQ(std::time(&now), 12345);
    EXPECT_EQ(now, 12345);
    EXPECT_EQ(getpid(), 77);
    char name[11];
    EXPECT_EQ(ttyname_r(0, name, sizeof name), 0);
    EXPECT_STREQ(name, "/dev/pts/3");
    EXPECT_EQ(ttyname_r(0, name, 10), ERANGE);
    EXPECT_EQ(fake::calls("time"), (Lines{"time()"}));
}

TEST(FakeLibc, TakesOverAlarmPopenAndAccess) {
    fake::libc::on_alarm([](unsigned seconds) { return seconds + 1; });
    fake::libc::on_popen([](const char *, const char *) -> void * { return nullptr; });
    fake::libc::on_access([](const char *, int) { return EACCES; });
    EXPECT_EQ(alarm(4), 5u);
    EXPECT_EQ(popen("tty", "r"), nullptr);
    EXPECT_EQ(access("/", F_OK), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(fake::calls(), (Lines{"alarm(4)", "popen(\"tty\", \"r\")", "access(\"/\", 0)"}));
}

TEST(FakeEvents, BlockReturnsForEachEventSentBefore) {
    const event_manager_t evm = event_manager_create(0, "/dev/x", 0, nullptr);
    const int32_t code = event_async_attach(evm, 128, nullptr, nullptr);
    EXPECT_EQ(code, fake::events::kAsyncCode);
    EXPECT_EQ(event_send_async(evm, code, 0), 0);
    event_block_ctx_t ctx{};
    EXPECT_EQ(event_block(&ctx), 0);
    std::thread sender([&] { event_send_async(evm, code, 0); });
    EXPECT_EQ(event_block(&ctx), 0);
    sender.join();
    EXPECT_EQ(fake::events::async_sent(), 2u);
}

TEST(FakeEvents, OpenCallsTheUpCallback) {
    static int32_t channel;
    channel = 12;
    const auto up = +[](void *, void *ctx) -> int32_t { return *static_cast<int32_t *>(ctx); };
    event_conn_t conn = nullptr;
    ASSERT_EQ(event_conn_create(&conn, fake::events::manager(), up, &channel, EVENT_CONN_TYPE_SYSDB), 0u);
    ASSERT_EQ(event_conn_notify(conn, 0x6000, up), 0u);
    EXPECT_EQ(event_conn_open(conn), 0u);
    EXPECT_EQ(fake::events::connections().at(0).channel, 12);
    EXPECT_EQ(fake::events::connections().at(0).notify_mask, 0x6000u);
    channel = -1;
    EXPECT_EQ(event_conn_open(conn), EVENT_CONN_RETRY);
}

TEST(FakeTerminal, LineEditorHandsOutPushedLines) {
    void *const editor = getline_init();
    const uint32_t zero = 0;
    EXPECT_EQ(getline_configure(editor, 4, 4, &zero), 0u);
    fake::push_line("hello\n");
    fake::push_line(std::nullopt, 1, EINTR);
    int ok = 1;
    EXPECT_STREQ(qm_getline(editor, "", "", &ok), "hello\n");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(qm_getline(editor, "", "", &ok), nullptr);
    EXPECT_EQ(errno, EINTR);
    getline_free(editor);
    EXPECT_NONFATAL_FAILURE(getline_free(nullptr), "does not exist");
    EXPECT_EQ(fake::getline_options(), (std::vector<std::pair<uint32_t, uint32_t>>{{4, 0}}));
}

TEST(FakeTerminal, FindsMethodsAndAddresses) {
    char *name = nullptr;
    EXPECT_EQ(find_method_for_line(0, &name), 0u);
    EXPECT_STREQ(name, "default");
    std::free(name);
    fake::on_find_method_for_line([](uint32_t kind, std::string &text) {
        text = "list" + std::to_string(kind);
        return kind == 2 ? LINE_NO_CONTROLLING_TTY : 0u;
    });
    EXPECT_EQ(find_method_for_line(1, &name), 0u);
    EXPECT_STREQ(name, "list1");
    std::free(name);
    name = nullptr;
    EXPECT_EQ(find_method_for_line(2, &name), LINE_NO_CONTROLLING_TTY);
    EXPECT_EQ(name, nullptr);
    char address[46];
    EXPECT_EQ(aaa_util_find_line_remote_addr(address, sizeof address), 0u);
    EXPECT_STREQ(address, "192.0.2.7");
    tty_details_t details{};
    fake::set_tty_kind(4);
    EXPECT_EQ(tty_details_from_device_file(0, "/dev/vty0", &details), 0);
    EXPECT_EQ(details.kind, 4u);
}

TEST(FakeCipher, SealsAndOpens) {
    char *const sealed = pw_encrypt("Key 1", 7);
    EXPECT_STREQ(sealed, "074b65792031");
    char *const clear = pw_decrypt(sealed, 7);
    EXPECT_STREQ(clear, "Key 1");
    std::free(sealed);
    std::free(clear);
    EXPECT_EQ(pw_decrypt("07xy", 7), nullptr);
}

TEST(FakeCerr, AlwaysHasAText) {
    EXPECT_STREQ(cerr_strerror(0x12345678), "code 0x12345678");
    EXPECT_STRNE(cerr_strerror(0), "");
    EXPECT_STRNE(cerr_strerror(AAA_ERR_BAD_ENCRYPTED_KEY), "");
}

TEST(FakeMemory, QueueTakesOutAnywhere) {
    aaa_queue_t queue;
    void *records[3][1];
    queue_init(&queue, 0);
    for (auto &record : records) {
        queue_enqueue(&queue, record);
    }
    queue_unqueue(&queue, records[1]);
    EXPECT_EQ(queue.head, records[0]);
    EXPECT_EQ(records[0][0], records[2]);
    queue_unqueue(&queue, records[2]);
    EXPECT_EQ(queue.tail, records[0]);
    queue_unqueue(&queue, records[0]);
    EXPECT_EQ(queue.head, nullptr);
    EXPECT_EQ(queue.tail, nullptr);
    EXPECT_EQ(queue.count, 0u);
}

TEST(FakeBounded, NeverWritesPastTheLimit) {
    char four[4] = {1, 1, 1, 1};
    EXPECT_NE(memcpy_s(four, 4, "abcdef", 6), 0);
    EXPECT_EQ(std::memcmp(four, "\0\0\0\0", 4), 0);
    EXPECT_STREQ(sstrncpy(four, "abcdef", 4), "abc");
    int differs = 9;
    EXPECT_EQ(strcmp_s("radius", 7, "radius", &differs), 0);
    EXPECT_EQ(differs, 0);
    EXPECT_NE(strcmp_s(nullptr, 7, "radius", &differs), 0);
    EXPECT_NE(differs, 0);
}

// Allocates four times in four ways; frees what it got. True when all went well.
bool four_allocations() {
    void *a = std::malloc(8);
    const bool first = a != nullptr;
    void *const b = std::calloc(2, 8);
    void *const c = std::realloc(a, 16);
    a = c != nullptr ? c : a;
    char *const d = strdup("text");
    const bool all = first && b != nullptr && c != nullptr && d != nullptr;
    std::free(a);
    std::free(b);
    std::free(d);
    return all;
}

TEST(FailAlloc, FailsTheKthAllocationOnly) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    for (unsigned k = 1; k <= 4; ++k) {
        errno = 0;
        fake::FailAlloc fail(k);
        const bool all = four_allocations();
        fail.disarm();
        EXPECT_FALSE(all);
        EXPECT_TRUE(fail.fired());
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(fail.counted(), 4u);
    }
    fake::FailAlloc fail(5);
    EXPECT_TRUE(four_allocations());
    EXPECT_FALSE(fail.fired());
}

TEST(FailAlloc, SweepsUntilNothingFails) {
    unsigned runs = 0, failed = 0;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        ++runs;
        const bool all = fail.run(four_allocations);
        EXPECT_EQ(all, !fail.fired());
        failed += fail.fired() ? 1u : 0u;
    });
    if (fake::FailAlloc::available()) {
        EXPECT_EQ(runs, 5u);
        EXPECT_EQ(failed, 4u);
    }
}

TEST(FailAlloc, SparesTheFakeAndOtherThreads) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    bool elsewhere = false;
    std::thread other;
    {
        fake::FailAlloc fail(1, fake::FailAlloc::Mode::all_from_there);
        aaa_debug(1, "%s", "a text that is too long to be stored without an allocation of its own");
        EXPECT_EQ(malloc_named(4, "the library's"), nullptr);
        fail.disarm();
        EXPECT_EQ(fail.counted(), 1u);
        other = std::thread([&] { elsewhere = four_allocations(); });
    }
    other.join();
    EXPECT_TRUE(elsewhere);
    EXPECT_EQ(fake::traces().size(), 1u);
    EXPECT_EQ(fake::count("malloc_named"), 1u);
}

}  // namespace
