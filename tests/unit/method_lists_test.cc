// SPDX-License-Identifier: Apache-2.0
//
// Method lists on a scripted database: existence, suitability, methods.

#include "aaa/method_lists.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "platform/cerr.h"
#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using Texts = std::vector<std::string>;

constexpr uint32_t kStrange = 0x12345600u;
std::string config(const std::string &item) {
    return "/cfg/gl/aaa/" + item;
}
std::string text_of(uint32_t code) {
    return cerr_strerror(code);
}

void put_list(const std::string &path, std::vector<uint32_t> methods,
              std::vector<std::string> names = {"", "", "", ""}) {
    methods.resize(4);
    names.resize(4);
    fake::sysdb::put_tuple(config(path), methods, names);
}

void put_group(const std::string &name, uint32_t number) {
    fake::sysdb::put_u32("/oper/aaa/gl/group-server/sg_name_map/radius/" + name, number);
}

std::string read_path() {
    const Texts reads = fake::calls("sysdb_item_get");
    return reads.empty() ? "" : reads.back();
}

// ---- existence --------------------------------------------------------------------

TEST(MethodListLookup, FindsAListByItsWords) {
    put_list("authentication/login/default", {2});
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", "default"), AAA_OK);
    EXPECT_NE(read_path().find("\"authentication/login/default\", 5"), std::string::npos) << read_path();
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", "other"), AAA_ERR_NOT_FOUND);
    EXPECT_TRUE(fake::logs().empty());
}

TEST(MethodListLookup, NullWordsAreRefusedBeforeAnythingIsDone) {
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", nullptr, "default"), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_lookup_methodlist(nullptr, "login", "default"), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::calls().empty());
}

TEST(MethodListLookup, ReadFailureIsLoggedAndReturned) {
    fake::answer("sysdb_item_get", kStrange);
    EXPECT_EQ(aaa_util_lookup_methodlist("a", "b", "c"), kStrange);
    ASSERT_EQ(fake::logs().size(), 1u);
    EXPECT_EQ(fake::logs()[0].mnemonic, "ERR_SYSDB");
    EXPECT_EQ(fake::logs()[0].severity, 7u);
    EXPECT_EQ(fake::logs()[0].text, "Cannot read path a/b/c: " + text_of(kStrange));
}

TEST(MethodListLookup, ItemOfAnotherTypeIsAReadFailure) {
    fake::sysdb::put_u32(config("a/b/c"), 7);
    EXPECT_EQ(aaa_util_lookup_methodlist("a", "b", "c"), fake::sysdb::kWrongType);
}

TEST(MethodListLookup, BindFailureIsReturnedWithoutALogLine) {
    fake::answer("_sysdb_bind", kStrange);
    EXPECT_EQ(aaa_util_lookup_methodlist("a", "b", "c"), kStrange);
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "c"), kStrange);
    char path[] = "a/b/c";
    uint32_t *methods = nullptr;
    EXPECT_EQ(lookup_methods(path, &methods), kStrange);
    EXPECT_EQ(methods, nullptr);
    EXPECT_TRUE(fake::logs().empty());
}

TEST(MethodListLookup, SharedHandleIsBoundOnce) {
    put_list("a/b/c", {1});
    EXPECT_EQ(aaa_util_lookup_methodlist("a", "b", "c"), AAA_OK);
    EXPECT_EQ(aaa_util_lookup_methodlist("a", "b", "c"), AAA_OK);
    const Texts binds = fake::calls("_sysdb_bind");
    ASSERT_EQ(binds.size(), 1u);
    EXPECT_NE(binds[0].find("\"/cfg/gl/aaa/\", 2"), std::string::npos) << binds[0];
    EXPECT_NE(aaa_cfg_sysdb_connid, 0u);
}

TEST(MethodListLookup, LongNamesAreNotCut) {
    const std::string name(600, 'n');
    put_list("authentication/login/" + name, {2});
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", name.c_str()), AAA_OK);
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", name.substr(1).c_str()),
              AAA_ERR_NOT_FOUND);
}

// ---- suitability --------------------------------------------------------------------

struct ServiceWord {
    int function, service;
    const char *word;  // null: refused
};

class MethodListService : public testing::TestWithParam<int> {};

const char *expected_word(int function, int service) {
    switch (service) {
        case 1:
        case 24:
            return "login";
        case 11:
            return "ppp";
        case 14:
        case 15:
        case 31:
            return "commands";
        case 16:
            return function == 0 ? "login" : "api";
        case 26:
            return "plexa";
        default:
            return nullptr;
    }
}

TEST_P(MethodListService, ChoosesTheWord) {
    const int service = GetParam();
    const char *const functions[] = {"authentication", "authorization", "accounting", "authorization_nacm",
                                     "<invalid function>"};
    for (int function = 0; function < 5; function++) {
        fake::clear_journal();
        const char *word = expected_word(function, service);
        const cerrno rc = aaa_util_verify_methodlist(function, service, "mine");
        if (word == nullptr) {
            EXPECT_EQ(rc, AAA_ERR_INVALID_ARG) << service;
            EXPECT_EQ(fake::count("sysdb_item_get"), 0u);
            continue;
        }
        EXPECT_EQ(rc, AAA_ERR_NOT_FOUND);
        const std::string location = std::string(functions[function]) + "/" + word + "/mine";
        EXPECT_NE(read_path().find("\"" + location + "\", 5"), std::string::npos) << read_path();
        EXPECT_EQ(fake::traces_of(5), (Texts{"Checking mine from location " + location}));
    }
}

INSTANTIATE_TEST_SUITE_P(AllServices, MethodListService, testing::Range(-1, 34));

TEST(MethodListVerify, LineSuitsNoProgrammingInterface) {
    put_list("authentication/login/default", {2, 12, 0, 0});
    EXPECT_EQ(aaa_util_verify_methodlist(0, 16, "default"), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "default"), AAA_OK);
    EXPECT_EQ(aaa_util_verify_methodlist(0, 24, "default"), AAA_OK);
    put_list("authorization/api/default", {12, 0, 0, 0});
    EXPECT_EQ(aaa_util_verify_methodlist(1, 16, "default"), AAA_OK);
    EXPECT_EQ(fake::traces_of(5).back(), "Checking methodlist for line method");
}

TEST(MethodListVerify, OnlyMethodsBeforeTheFirstEmptySlotCount) {
    put_list("authentication/login/default", {2, 0, 12, 12});
    EXPECT_EQ(aaa_util_verify_methodlist(0, 16, "default"), AAA_OK);
    put_list("authentication/login/default", {12, 2, 3, 4});
    EXPECT_EQ(aaa_util_verify_methodlist(0, 16, "default"), AAA_ERR_INVALID_ARG);
    put_list("authentication/login/default", {1, 2, 3, 12});
    EXPECT_EQ(aaa_util_verify_methodlist(0, 16, "default"), AAA_ERR_INVALID_ARG);
}

TEST(MethodListVerify, NullNameIsRefused) {
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::calls().empty());
}

TEST(MethodListVerify, FailureToUnpackNeverVerifies) {
    put_list("authentication/login/default", {2});
    fake::answer("tuple_unpack_mask", 1, 1, EPROTO);
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "default"), static_cast<cerrno>(EPROTO));
    fake::answer("tuple_unpack_mask", 1, 1, 0);
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "default"), AAA_ERR_INVALID_METHOD);
    fake::sysdb::put(config("authentication/login/null"), {5, {}, true});
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "null"), AAA_ERR_INVALID_METHOD);
}

TEST(MethodListVerify, ReadFailureIsLogged) {
    fake::answer("sysdb_item_get", kStrange);
    EXPECT_EQ(aaa_util_verify_methodlist(2, 14, "x"), kStrange);
    EXPECT_EQ(fake::log_texts(), (Texts{"Cannot read path accounting/commands/x: " + text_of(kStrange)}));
}

// ---- methods -------------------------------------------------------------------------

struct Methods {
    cerrno rc;
    std::vector<uint32_t> words;  // empty when there is no array
};

Methods lookup(const char *path) {
    std::string copy(path);
    auto *unset = reinterpret_cast<uint32_t *>(uintptr_t{8});
    uint32_t *methods = unset;
    Methods result{lookup_methods(copy.data(), &methods), {}};
    EXPECT_NE(methods, unset);
    if (methods != nullptr) {
        result.words.assign(methods, methods + 7);
        free(methods);
    }
    return result;
}

TEST(MethodListMethods, AreReadInOrderWithZeroesAfter) {
    put_list("authorization/exec/mine", {3, 4, 2, 1});
    const Methods m = lookup("authorization/exec/mine");
    EXPECT_EQ(m.rc, AAA_OK);
    EXPECT_EQ(m.words, (std::vector<uint32_t>{3, 4, 2, 1, 0, 0, 0}));
}

TEST(MethodListMethods, GroupsBecomeTheirNumbers) {
    put_group("CORP", 1001);
    put_group("EDGE", 1007);
    put_list("authentication/login/mine", {10, 2, 10, 0}, {"CORP", "", "EDGE", ""});
    EXPECT_EQ(lookup("authentication/login/mine").words, (std::vector<uint32_t>{1001, 2, 1007, 0, 0, 0, 0}));
}

TEST(MethodListMethods, GroupNumberOfAllOnesIsInternal) {
    put_group("ODD", 0xFFFFFFFFu);
    put_list("authentication/login/mine", {10}, {"ODD"});
    EXPECT_EQ(lookup("authentication/login/mine").words[0], 11u);
}

TEST(MethodListMethods, NothingIsResolvedAfterTheEnd) {
    put_list("authentication/login/mine", {2, 0, 10, 10}, {"", "", "NOBODY", "NOBODY"});
    const Methods m = lookup("authentication/login/mine");
    EXPECT_EQ(m.rc, AAA_OK);
    EXPECT_EQ(m.words, (std::vector<uint32_t>{2, 0, 10, 10, 0, 0, 0}));
    EXPECT_EQ(fake::count("sysdb_item_get"), 1u);
}

TEST(MethodListMethods, UnknownGroupFailsTheLookup) {
    put_list("authentication/login/mine", {2, 10}, {"", "NOBODY"});
    const Methods m = lookup("authentication/login/mine");
    EXPECT_EQ(m.rc, SYSDB_ERR_NOT_FOUND);
    EXPECT_TRUE(m.words.empty());
}

TEST(MethodListMethods, GroupWithAMalformedNumberFailsTheLookup) {
    fake::sysdb::put("/oper/aaa/gl/group-server/sg_name_map/radius/SHORT", {1, {1, 2, 3}});
    put_list("authentication/login/mine", {2, 10}, {"", "SHORT"});
    const Methods m = lookup("authentication/login/mine");
    EXPECT_EQ(m.rc, AAA_ERR_SG_MAPPING);
    EXPECT_TRUE(m.words.empty());
}

TEST(MethodListMethods, FailuresOfTheGroupLookupFailTheLookup) {
    put_group("CORP", 1001);
    put_list("authentication/login/mine", {10}, {"CORP"});
    fake::fail_call("sysdb_item_get", 2, kStrange);
    EXPECT_EQ(lookup("authentication/login/mine").rc, kStrange);
    EXPECT_TRUE(fake::logs().empty());
    aaa_sgmap_sysdb_connid = 0;
    fake::answer("_sysdb_bind", kStrange);
    const Methods m = lookup("authentication/login/mine");
    EXPECT_EQ(m.rc, kStrange);
    EXPECT_TRUE(m.words.empty());
    EXPECT_EQ(fake::log_texts(),
              (Texts{"sysdb_bind failed on  path /oper/aaa/gl/group-server/: " + text_of(kStrange)}));
}

TEST(MethodListMethods, MethodsThatAreNotGroupsAreKeptUnderAnyName) {
    put_list("authentication/login/mine", {11, 12, 1001, 0xFFFFFFFF}, {"A", "B", "C", "D"});
    EXPECT_EQ(lookup("authentication/login/mine").words,
              (std::vector<uint32_t>{11, 12, 1001, 0xFFFFFFFF, 0, 0, 0}));
    EXPECT_EQ(fake::count("sysdb_item_get"), 1u);
}

TEST(MethodListMethods, ItemWithoutAValueCannotBeUnpacked) {
    fake::sysdb::put(config("authentication/login/null"), {5, {}, true});
    errno = EINTR;  // stale, must not show
    const Methods m = lookup("authentication/login/null");
    EXPECT_EQ(m.rc, AAA_ERR_INVALID_METHOD);
    EXPECT_TRUE(m.words.empty());
    EXPECT_EQ(fake::traces_of(1),
              (Texts{std::string("Cannot unpack the methods for path authentication/login/null - ") +
                     strerror(EINVAL)}));
}

TEST(MethodListMethods, DefaultAuthenticationListIsSupplied) {
    EXPECT_EQ(lookup("authentication/ppp/default").words, (std::vector<uint32_t>{2, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(lookup("authentication/login/default").words, std::vector<uint32_t>(7, 0));
}

// Kept: compared over the component's own length. A platform refuses the path
// with the empty component, so the answer that nothing is there is scripted.
TEST(MethodListMethods, BeginningsOfPppCountAsPpp) {
    fake::answer("sysdb_item_get", SYSDB_ERR_NOT_FOUND);
    for (const char *path :
         {"authentication/pp/default", "authentication/p/default", "authentication//default"}) {
        EXPECT_EQ(lookup(path).words.at(0), 2u) << path;
    }
    for (const char *path :
         {"authentication/pppp/default", "authentication/default", "authentication/x/default"}) {
        EXPECT_EQ(lookup(path).words.at(0), 0u) << path;
    }
}

// The path decides, also one that a platform would refuse.
TEST(MethodListMethods, OtherMissingListsAreRefused) {
    fake::answer("sysdb_item_get", SYSDB_ERR_NOT_FOUND);
    for (const char *path : {"authorization/ppp/default", "accounting/exec/default", "authenticatio", ""}) {
        EXPECT_EQ(lookup(path).rc, AAA_ERR_INVALID_METHOD) << path;
    }
    for (const char *path : {"authentication/login/mylist", "authentication", "authentication/login/defaults",
                             "authentication/ppp/default/", "authentication/login/"}) {
        EXPECT_EQ(lookup(path).rc, SYSDB_ERR_NOT_FOUND) << path;
    }
}

TEST(MethodListMethods, ReadFailureIsTracedNotLogged) {
    fake::answer("sysdb_item_get", kStrange);
    const Methods m = lookup("authentication/login/default");
    EXPECT_EQ(m.rc, kStrange);
    EXPECT_TRUE(m.words.empty());
    EXPECT_EQ(fake::traces_of(1),
              (Texts{"Failed to read methodlist configuration for path authentication/login/default - " +
                     text_of(kStrange)}));
    EXPECT_TRUE(fake::logs().empty());
}

TEST(MethodListMethods, UnpackFailureIsTracedWithItsReason) {
    put_list("authentication/login/default", {2});
    fake::answer("tuple_unpack_mask", 1, 1, EPROTO);
    const Methods m = lookup("authentication/login/default");
    EXPECT_EQ(m.rc, static_cast<cerrno>(EPROTO));
    EXPECT_TRUE(m.words.empty());
    EXPECT_EQ(fake::traces_of(1),
              (Texts{std::string("Cannot unpack the methods for path authentication/login/default - ") +
                     strerror(EPROTO)}));
    fake::answer("tuple_unpack_mask", 1, 1, 0);
    EXPECT_EQ(lookup("authentication/login/default").rc, AAA_ERR_INVALID_METHOD);
}

// The array is the caller's from the start; a failure takes it back.
TEST(MethodListMethods, TheArrayIsHandedOutBeforeTheDatabaseIsAsked) {
    put_list("authentication/login/mine", {10}, {"CORP"});
    put_group("CORP", 1001);
    char path[] = "authentication/login/mine";
    uint32_t *methods = nullptr;
    std::vector<const uint32_t *> seen;
    for (const char *function : {"_sysdb_bind", "sysdb_item_get", "tuple_unpack_mask"}) {
        fake::before(function, [&] { seen.push_back(methods); });
    }
    EXPECT_EQ(lookup_methods(path, &methods), AAA_OK);
    ASSERT_NE(methods, nullptr);
    EXPECT_EQ(seen, std::vector<const uint32_t *>(5, methods));
    free(methods);

    seen.clear();
    fake::fail_call("sysdb_item_get", 2, kStrange);  // that of the group
    EXPECT_EQ(lookup_methods(path, &methods), kStrange);
    EXPECT_EQ(methods, nullptr);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_NE(seen[0], nullptr);
    EXPECT_EQ(seen[2], seen[0]);
}

TEST(MethodListMethods, NullArgumentsAreRefused) {
    char path[] = "a/b/c";
    uint32_t *methods = nullptr;
    EXPECT_EQ(lookup_methods(nullptr, &methods), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(lookup_methods(path, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::calls().empty());
}

TEST(MethodListMemory, EveryAllocationMayFail) {
    put_list("authentication/login/mine", {2});
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        char path[] = "authentication/login/mine";
        uint32_t *methods = nullptr;
        const cerrno rc = fail.run([&] { return lookup_methods(path, &methods); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(methods == nullptr, fail.fired());
        free(methods);
    });
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const cerrno rc = fail.run([] { return aaa_util_verify_methodlist(0, 1, "mine"); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
    });
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const cerrno rc =
            fail.run([] { return aaa_util_lookup_methodlist("authentication", "login", "mine"); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
    });
}

// ---- names ------------------------------------------------------------------------------

int valid(const char *name) {
    std::string copy(name);
    return aaa_is_name_valid(copy.data());
}

TEST(MethodListName, OnlyPrintableAsciiIsValid) {
    EXPECT_EQ(aaa_is_name_valid(nullptr), 0);
    EXPECT_EQ(valid(""), 1);
    EXPECT_EQ(valid("default"), 1);
    EXPECT_EQ(valid("with blank"), 1);
    EXPECT_EQ(valid("with\ttab"), 0);
    EXPECT_EQ(valid("late\n"), 0);
    for (int c = 1; c < 256; c++) {
        const char name[2] = {static_cast<char>(c), '\0'};
        EXPECT_EQ(valid(name), c >= ' ' && c <= '~' ? 1 : 0) << c;
    }
}

}  // namespace
