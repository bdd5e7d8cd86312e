// SPDX-License-Identifier: Apache-2.0
//
// Choice of a server's index, on a scripted database.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "platform/cerr.h"
#include "testkit/fake_platform.hpp"

namespace {

using Texts = std::vector<std::string>;

constexpr uint32_t kLevel = 6;
constexpr uint32_t kStrange = 0x12345600u;
constexpr char kGroup[] = "/cfg/gl/aaa/group-server/radius/CORP/server/";

std::string text_of(uint32_t code) {
    return cerr_strerror(code);
}
Texts traces() {
    return fake::traces_of(kLevel);
}

struct Answer {
    cerrno rc;
    uint32_t index;
};

// RADIUS servers of the group CORP, stored as items unless told otherwise.
Answer ask(uint32_t requested, const char *host = "192.0.2.9", uint32_t is_dir = 0) {
    Answer a{0, 99};
    a.rc = aaa_util_get_next_ord_index("CORP", 1, requested, &a.index, host, 1812, 1813, is_dir, 0);
    EXPECT_TRUE(fake::sysdb::open_connections().empty());
    EXPECT_EQ(fake::sysdb::open_lists(), 0u);
    return a;
}

void store(uint32_t index, const std::string &host) {
    char name[16];
    snprintf(name, sizeof name, "0x%x/", index);
    fake::sysdb::put_u32(std::string(kGroup) + name + host + ",1812,1813", 1);
}

// The contract's platform lists a bind point also when nothing is there.
TEST(ServerIndex, ListThatDoesNotExistGivesZero) {
    fake::answer("sysdb_list", SYSDB_ERR_NOT_FOUND, 1);
    const Answer a = ask(AAA_INDEX_ANY);
    EXPECT_EQ(a.rc, AAA_OK);
    EXPECT_EQ(a.index, 0u);
    EXPECT_EQ(traces(),
              (Texts{std::string("Binding to ") + kGroup, "Bind result - " + text_of(0),
                     "Reading path 0xffffffff/192.0.2.9,1812,1813 - " + text_of(SYSDB_ERR_NOT_FOUND),
                     "No servers added yet, returning index - 0", "Returning index - 0"}));
}

TEST(ServerIndex, EmptyListGivesOne) {
    fake::sysdb::make_directory(kGroup);
    const Answer a = ask(AAA_INDEX_ANY);
    EXPECT_EQ(a.rc, AAA_OK);
    EXPECT_EQ(a.index, 1u);
    EXPECT_EQ(traces().back(), "Returning index - 1");
}

TEST(ServerIndex, OneMoreThanTheLastListed) {
    store(1, "192.0.2.1");
    store(2, "192.0.2.2");
    EXPECT_EQ(ask(AAA_INDEX_ANY).index, 3u);
    EXPECT_EQ(traces().back(), "Returning index - 3");
    // A certain free index gives the same answer.
    const Answer a = ask(7);
    EXPECT_EQ(a.rc, AAA_OK);
    EXPECT_EQ(a.index, 3u);
}

TEST(ServerIndex, SixteenAndMoreServersCountOn) {
    for (uint32_t i = 1; i <= 40; i++) {
        store(i, "192.0.2." + std::to_string(i));
        EXPECT_EQ(ask(AAA_INDEX_ANY, "198.51.100.1").index, i + 1);
    }
}

TEST(ServerIndex, IndexInUseIsRefused) {
    store(1, "192.0.2.1");
    store(2, "192.0.2.2");
    const Answer a = ask(2);
    EXPECT_EQ(a.rc, AAA_ERR_INDEX_IN_USE);
    EXPECT_EQ(a.index, 0u);
    EXPECT_EQ(traces().back(), "Failed to validate index - " + text_of(AAA_ERR_INDEX_IN_USE));
}

TEST(ServerIndex, HostAtAnotherIndexIsRefused) {
    store(1, "192.0.2.1");
    store(2, "192.0.2.9");
    EXPECT_EQ(ask(5).rc, AAA_ERR_INDEX_IN_USE);
    EXPECT_EQ(ask(5).index, 0u);
    // For "any" the index is set all the same.
    const Answer any = ask(AAA_INDEX_ANY);
    EXPECT_EQ(any.rc, AAA_ERR_INDEX_IN_USE);
    EXPECT_EQ(any.index, 3u);
    EXPECT_EQ(traces().back(), "Failed to validate index - " + text_of(AAA_ERR_INDEX_IN_USE));
}

TEST(ServerIndex, HostAtTheRequestedIndexGivesZero) {
    store(1, "192.0.2.9");
    const Answer a = ask(1);
    EXPECT_EQ(a.rc, AAA_OK);
    EXPECT_EQ(a.index, 0u);
    EXPECT_EQ(fake::count("sysdb_list"), 0u);
    EXPECT_EQ(traces().back(), "Reading path 0x1/192.0.2.9,1812,1813 - " + text_of(0));
}

TEST(ServerIndex, WalkTracesEachEntry) {
    store(1, "192.0.2.1");
    store(0x1f, "192.0.2.2");
    fake::clear_journal();
    ASSERT_EQ(ask(9).rc, AAA_OK);
    const Texts seen = traces();
    EXPECT_NE(std::find(seen.begin(), seen.end(), "Checking requested index 9 against 1"), seen.end());
    EXPECT_NE(std::find(seen.begin(), seen.end(), "Checking requested index 9 against 31"), seen.end());
    EXPECT_NE(std::find(seen.begin(), seen.end(),
                        "Reading path 0x1f/192.0.2.9,1812,1813 - " + text_of(SYSDB_ERR_NOT_FOUND)),
              seen.end());
}

TEST(ServerIndex, EntryNameThatIsNotANumberEndsTheWalkWithoutACode) {
    fake::sysdb::put_u32(std::string(kGroup) + "zzz/x", 1);
    store(4, "192.0.2.4");
    errno = EINTR;  // stale, must not show
    const Answer any = ask(AAA_INDEX_ANY);
    EXPECT_EQ(any.rc, AAA_OK);
    EXPECT_EQ(any.index, 5u);
    const Answer certain = ask(9);
    EXPECT_EQ(certain.rc, AAA_OK);
    EXPECT_EQ(certain.index, 0u);
}

TEST(ServerIndex, FailuresOfTheWalk) {
    store(1, "192.0.2.1");
    store(2, "192.0.2.2");
    fake::fail_call("sysdb_list_next", 2, kStrange);
    const Answer certain = ask(9);
    EXPECT_EQ(certain.rc, kStrange);
    EXPECT_EQ(certain.index, 0u);
    fake::fail_call("sysdb_list_next", 2, kStrange);
    const Answer any = ask(AAA_INDEX_ANY);
    EXPECT_EQ(any.rc, kStrange);
    EXPECT_EQ(any.index, 2u);
    fake::fail_call("sysdb_list_start", 1, kStrange);
    EXPECT_EQ(ask(9).rc, kStrange);
}

TEST(ServerIndex, ListThatEndsEarlyStopsTheWalk) {
    store(1, "192.0.2.1");
    store(2, "192.0.2.2");
    fake::fail_call("sysdb_list_next", 2, 0);  // success without a name
    const Answer certain = ask(9);
    EXPECT_EQ(certain.rc, AAA_OK);
    EXPECT_EQ(certain.index, 0u);
    fake::fail_call("sysdb_list_next", 2, 0);
    EXPECT_EQ(ask(AAA_INDEX_ANY).index, 2u);
}

TEST(ServerIndex, ListOfAFailedListingIsFreed) {
    fake::sysdb::set_list_on_failure(true);
    fake::answer("sysdb_list", kStrange, 1);
    const Answer a = ask(AAA_INDEX_ANY);
    EXPECT_EQ(a.rc, AAA_OK);
    EXPECT_EQ(a.index, 0u);
}

TEST(ServerIndex, BindFailureIsTheResult) {
    fake::answer("_sysdb_bind", kStrange, 1);
    const Answer a = ask(AAA_INDEX_ANY);
    EXPECT_EQ(a.rc, kStrange);
    EXPECT_EQ(a.index, 0u);
    EXPECT_EQ(traces(), (Texts{std::string("Binding to ") + kGroup, "Bind result - " + text_of(kStrange),
                               "Failed to validate index - " + text_of(kStrange)}));
    // The handle that was never bound is released too.
    EXPECT_EQ(fake::count("_sysdb_unbind"), 1u);
}

TEST(ServerIndex, NullArgumentsStillUnbind) {
    uint32_t index = 99;
    EXPECT_EQ(aaa_util_get_next_ord_index("CORP", 1, 1, nullptr, "h", 1, 2, 0, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_get_next_tacacs_ord_index("CORP", 2, 1, nullptr, "h", 1, 0, 0, 0),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::count("_sysdb_unbind"), 2u);
    EXPECT_TRUE(traces().empty());
    EXPECT_EQ(aaa_util_get_next_ord_index("CORP", 1, 1, &index, nullptr, 1, 2, 0, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(index, 0u);
}

TEST(ServerIndex, ANullHostIsNotTraced) {
    uint32_t index = 99;
    EXPECT_EQ(aaa_util_get_next_tacacs_ord_index("CORP", 2, 1, &index, nullptr, 1, 0, 0, 0),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(index, 0u);
    EXPECT_TRUE(traces().empty());
    EXPECT_EQ(fake::calls({"_sysdb_bind", "_sysdb_unbind"}), (Texts{"_sysdb_unbind(0)"}));
}

TEST(ServerIndex, CallsInOrderOnAConnectionOfItsOwn) {
    store(1, "192.0.2.1");
    EXPECT_EQ(ask(AAA_INDEX_ANY).index, 2u);
    const std::string at = std::string("(") + kGroup + ", \"";
    const std::string entry = "/192.0.2.9,1812,1813\", 0, 0)";
    EXPECT_EQ(
        fake::calls({"_sysdb_bind", "_sysdb_unbind", "sysdb_item_get", "sysdb_list", "sysdb_list_start",
                     "sysdb_list_next", "sysdb_list_free"}),
        (Texts{std::string("_sysdb_bind(\"") + kGroup + "\", 0)",
               "sysdb_item_get" + at + "0xffffffff" + entry, "sysdb_list" + at + "\", \"\", 0)",
               "sysdb_list_start(list)", "sysdb_list_next(list, 0)", "sysdb_item_get" + at + "0x1" + entry,
               "sysdb_list_free(list)", std::string("_sysdb_unbind(") + kGroup + ")"}));
    EXPECT_EQ(aaa_cfg_sysdb_connid, 0u);
}

TEST(ServerIndex, AFailingUnbindDoesNotShow) {
    fake::sysdb::make_directory(kGroup);
    fake::answer("_sysdb_unbind", kStrange, 1);
    uint32_t index = 99;
    EXPECT_EQ(aaa_util_get_next_ord_index("CORP", 1, AAA_INDEX_ANY, &index, "h", 1, 2, 0, 0), AAA_OK);
    EXPECT_EQ(index, 1u);
}

// ---- paths -----------------------------------------------------------------------

std::string bound_path() {
    return traces().empty() ? "" : traces()[0];
}

TEST(ServerIndexPath, GroupPrivateAndGlobalLists) {
    uint32_t index = 0;
    aaa_util_get_next_ord_index("G", 1, 1, &index, "h", 1, 2, 0, 0);
    EXPECT_EQ(bound_path(), "Binding to /cfg/gl/aaa/group-server/radius/G/server/");
    fake::clear_journal();
    aaa_util_get_next_ord_index("G", 17, 1, &index, "h", 1, 2, 0, 1);
    EXPECT_EQ(bound_path(), "Binding to /cfg/gl/aaa/group-server/diameter/G/server-private/");
    fake::clear_journal();
    aaa_util_get_next_tacacs_ord_index("G", 2, 1, &index, "h", 1, 0, 0, 0);
    EXPECT_EQ(bound_path(), "Binding to /cfg/gl/aaa/group-server/tacacs/G/server/");
    fake::clear_journal();
    aaa_util_get_next_tacacs_ord_index("G", 2, 1, &index, "h", 1, 0, 0, 1);
    EXPECT_EQ(bound_path(), "Binding to /cfg/gl/aaa/group-server/tacacs/G/server-private/");
    fake::clear_journal();
    aaa_util_get_next_tacacs_ord_index(nullptr, 2, 1, &index, "h", 1, 0, 0, 1);
    EXPECT_EQ(bound_path(), "Binding to /cfg/gl/aaa/tacacs/host/");
    fake::clear_journal();
    aaa_util_get_next_ord_index(nullptr, 18, 1, &index, "h", 1, 2, 0, 0);
    EXPECT_EQ(bound_path(), "Binding to /cfg/gl/aaa/(null)/host/");
    EXPECT_NE(fake::calls("_sysdb_bind").at(0).find("/host/\", 0"), std::string::npos);
}

TEST(ServerIndexPath, IsCutAt511Characters) {
    const std::string list = "/cfg/gl/aaa/group-server/radius/";
    const auto bound_for = [&](std::size_t length) {
        fake::clear_journal();
        uint32_t index = 0;
        fake::answer("_sysdb_bind", kStrange, 1);
        const std::string group(length, 'g');
        EXPECT_EQ(aaa_util_get_next_ord_index(group.c_str(), 1, 1, &index, "h", 1, 2, 0, 0), kStrange);
        return fake::calls("_sysdb_bind").at(0);
    };
    const std::size_t fitting = 511 - list.size() - std::string("/server/").size();
    EXPECT_EQ(bound_for(fitting), "_sysdb_bind(\"" + list + std::string(fitting, 'g') + "/server/\", 0)");
    EXPECT_EQ(bound_for(fitting + 1),
              "_sysdb_bind(\"" + list + std::string(fitting + 1, 'g') + "/server\", 0)");
}

TEST(ServerIndexPath, EntriesAreCutAt511Characters) {
    const std::string host(600, 'h');
    ask(0x1a, host.c_str());
    const std::string path = ("0x1a/" + host).substr(0, 511);
    EXPECT_NE(fake::calls("sysdb_item_get").at(0).find("\"" + path + "\", 0"), std::string::npos);
}

TEST(ServerIndexPath, PortsAreSignedInItemNamesAndHexadecimalInDirectories) {
    uint32_t index = 0;
    aaa_util_get_next_ord_index("G", 1, 1, &index, "h", 0xFFFFFFFF, 0x80000000, 0, 0);
    EXPECT_EQ(traces()[2], "Reading path 0x1/h,-1,-2147483648 - " + text_of(SYSDB_ERR_NOT_FOUND));
    fake::clear_journal();
    aaa_util_get_next_ord_index("G", 2, 1, &index, "h", 0xFFFFFFFF, 0, 1, 0);
    EXPECT_EQ(traces()[2], "Reading path 0x1/h,0xffffffff/ - " + text_of(SYSDB_ERR_NOT_FOUND));
}

struct EntryForm {
    const char *name;
    bool tacacs_function;
    uint32_t protocol, is_dir;
    const char *entry;
};

class ServerEntry : public testing::TestWithParam<EntryForm> {};

TEST_P(ServerEntry, IsNamedByProtocolAndKind) {
    const EntryForm &form = GetParam();
    uint32_t index = 0;
    if (form.tacacs_function) {
        aaa_util_get_next_tacacs_ord_index("G", form.protocol, 0x1a, &index, "h", 49, ~0ull, form.is_dir, 0);
    } else {
        aaa_util_get_next_ord_index("G", form.protocol, 0x1a, &index, "h", 49, 50, form.is_dir, 0);
    }
    ASSERT_GE(traces().size(), 3u);
    EXPECT_EQ(traces()[2], std::string("Reading path ") + form.entry + " - " + text_of(SYSDB_ERR_NOT_FOUND));
    EXPECT_EQ(fake::count("sysdb_find"), form.is_dir);
    if (form.is_dir != 0) {
        const std::string call = fake::calls("sysdb_find").at(0);
        EXPECT_NE(call.find(std::string("\"") + form.entry + "\", \"\""), std::string::npos) << call;
        EXPECT_NE(call.find("0, 1)"), std::string::npos) << call;
    } else {
        EXPECT_NE(fake::calls("sysdb_item_get").at(0).find(std::string("\"") + form.entry + "\", 0"),
                  std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, ServerEntry,
                         testing::Values(EntryForm{"RadiusItem", false, 1, 0, "0x1a/h,49,50"},
                                         EntryForm{"RadiusDirectory", false, 1, 1, "0x1a/h,49,50/"},
                                         EntryForm{"OtherItem", false, 2, 0, "0x1a/h"},
                                         EntryForm{"OtherDirectory", false, 17, 1, "0x1a/h,0x31/"},
                                         EntryForm{"TacacsItem", true, 1, 0, "0x1a/h"},
                                         EntryForm{"TacacsDirectory", true, 1, 1, "0x1a/h,0x31/"}),
                         [](const auto &form) { return form.param.name; });

TEST(ServerIndex, DirectoryEntriesAreFound) {
    fake::sysdb::put_u32(std::string(kGroup) + "0x3/192.0.2.9,1812,1813/key", 1);
    EXPECT_EQ(ask(3, "192.0.2.9", 1).index, 0u);
    EXPECT_EQ(ask(AAA_INDEX_ANY, "192.0.2.8", 1).index, 4u);
    EXPECT_EQ(ask(8, "192.0.2.9", 1).rc, AAA_ERR_INDEX_IN_USE);
}

}  // namespace
