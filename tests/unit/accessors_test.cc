// SPDX-License-Identifier: Apache-2.0
//
// Typed accessors that store: what pair each makes, whether a second call
// makes a second pair, what it refuses and what it traces.

#include "aaa/accessors.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/messages.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using messages::bytes;
using messages::List;
using messages::make_list;
using messages::Pair;
using messages::Pairs;
using messages::pairs_of;
using messages::raw;

enum class Op { append, replace };

// One call of one accessor and the pair that it makes. The second call, with
// other arguments, shows whether it appends or replaces.
struct Adder {
    const char *name;
    Op op;
    cerrno (*first)(avlist *list);
    Pair pair;
    cerrno (*second)(avlist *list);
    Pair second_pair;
    // The traces of a failure, after those of the list.
    std::vector<std::string> failure = {};
};

void PrintTo(const Adder &adder, std::ostream *out) {
    *out << adder.name;
}

Pair text_pair(uint32_t type, std::string_view text, uint32_t flags = 0) {
    return messages::text(type, text, flags);
}
Pair number(uint32_t type, uint32_t value, uint32_t flags = 0) {
    return messages::u32(type, value, flags);
}

const Adder kAdders[] = {
    {"username_add", Op::append,  //
     [](avlist *list) { return aaa_util_avlist_username_add("alice", 6, list); }, text_pair(257, "alice"),
     [](avlist *list) { return aaa_util_avlist_username_add("bob", 3, list); }, bytes(257, "bob")},
    {"password_add", Op::replace,  //
     [](avlist *list) { return aaa_util_avlist_password_add("secret", 7, list); },
     text_pair(258, "secret", 0x400),
     [](avlist *list) { return aaa_util_avlist_password_add("Secret", 7, list); },
     text_pair(258, "Secret", 0x400)},
    {"status_add", Op::replace,  //
     [](avlist *list) { return aaa_util_avlist_status_add(7, 4, list); }, number(2, 7),
     [](avlist *list) { return aaa_util_avlist_status_add(0x01020304, 4, list); }, number(2, 0x01020304)},
    {"prompt_add", Op::replace,  //
     [](avlist *list) { return aaa_util_avlist_prompt_add(0, "Password: ", list); },
     text_pair(21, "Password: "),
     [](avlist *list) { return aaa_util_avlist_prompt_add(0xABCDEF12, "Username: ", list); },
     text_pair(21, "Username: ", 0x12)},
    {"chap_response_add", Op::replace,  //
     [](avlist *list) { return aaa_util_avlist_chap_response_add("0123456789abcdef", 16, list); },
     bytes(16, "0123456789abcdef"),
     [](avlist *list) { return aaa_util_avlist_chap_response_add("fedcba9876543210", 0x70000 | 16, list); },
     bytes(16, "fedcba9876543210")},
    {"directed_addr_add", Op::append,  //
     [](avlist *list) { return aaa_util_avlist_directed_addr_add(0xC0000207, list); }, number(42, 0xC0000207),
     [](avlist *list) { return aaa_util_avlist_directed_addr_add(1, list); }, number(42, 1)},
    {"seqnum_add", Op::replace,  //
     [](avlist *list) { return aaa_util_avlist_seqnum_add(list, 0xFFFFFFFF); }, number(27, 0xFFFFFFFF, 0x400),
     [](avlist *list) { return aaa_util_avlist_seqnum_add(list, 2); }, number(27, 2, 0x400)},
    {"cmd_add", Op::append,  //
     [](avlist *list) { return aaa_util_avlist_cmd_add("show run", 9, list); }, text_pair(36, "show run"),
     [](avlist *list) { return aaa_util_avlist_cmd_add("show run", 4, list); }, bytes(36, "show")},
    {"priv_add", Op::replace,  //
     [](avlist *list) { return aaa_util_avlist_priv_add(list, 1); }, number(10, 1),
     [](avlist *list) { return aaa_util_avlist_priv_add(list, 15); }, number(10, 15)},
    {"errmsg_add", Op::replace,  //
     [](avlist *list) { return aaa_util_avlist_errmsg_add(list, "denied"); }, text_pair(7, "denied"),
     [](avlist *list) { return aaa_util_avlist_errmsg_add(list, ""); }, text_pair(7, "")},
    {"authen_method_set",
     Op::replace,
     [](avlist *list) { return aaa_util_avlist_authen_method_set(3, list); },
     number(39, 3),
     [](avlist *list) { return aaa_util_avlist_authen_method_set(1000, list); },
     number(39, 1000),
     {"Failed to update AAA_AUTHEN_METHOD_ATTR (39)"}},
    {"authen_option_add",
     Op::replace,
     [](avlist *list) { return aaa_util_avlist_authen_option_add(13, list); },
     number(43, 13),
     [](avlist *list) { return aaa_util_avlist_authen_option_add(0x8000, list); },
     number(43, 0x8000),
     {"Failed to update AAA_AUTHEN_OPTION_ATTR to 13"}},
    {"msgtype_add",
     Op::replace,
     [](avlist *list) { return aaa_util_avlist_msgtype_add(18, list); },
     number(3, 18, 0x400),
     [](avlist *list) { return aaa_util_avlist_msgtype_add(33, list); },
     number(3, 33, 0x400),
     {"Failed to update AAA_TYPE_ATTR (3)"}},
    {"add_attr", Op::append,  //
     [](avlist *list) { return aaa_util_avpair_add_attr(list, 1072, "abcd", 3, 9); }, Pair{1072, 0, 9, "abc"},
     [](avlist *list) { return aaa_util_avpair_add_attr(list, 1072, "abcd", 0, 0); }, bytes(1072, "")},
    {"add_attr_onep", Op::append,  //
     [](avlist *list) { return aaa_util_avpair_add_attr_onep(list, 61, "vty0", 4, 5, 0x8C); },
     Pair{61, 0x8C, 5, "vty0"},
     [](avlist *list) { return aaa_util_avpair_add_attr_onep(list, 61, "vty1", 4, 0, 0xFFFFFFFF); },
     bytes(61, "vty1", 0xFFFFFFFF)},
    {"update", Op::replace,  //
     [](avlist *list) {
         char value[] = "abcd";
         return aaa_util_avpair_update(40, 0x1, value, 2, 8, 0, list);
     },
     Pair{40, 0x1, 8, "ab"},
     [](avlist *list) {
         char value[] = "wxyz";
         return aaa_util_avpair_update(40, 0x2, value, 2, 4, 0, list);
     },
     Pair{40, 0x3, 4, "wx"}},
};

class AccessorAdd : public testing::TestWithParam<Adder> {
  protected:
    List list_ = make_list("request");
};

INSTANTIATE_TEST_SUITE_P(All, AccessorAdd, testing::ValuesIn(kAdders),
                         [](const auto &adder) { return std::string(adder.param.name); });

TEST_P(AccessorAdd, MakesItsPairAfterTheOthers) {
    const List list = make_list("request", {number(1, 1), text_pair(274, "x")});
    EXPECT_EQ(GetParam().first(list.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{number(1, 1), text_pair(274, "x"), GetParam().pair}));
    EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(AccessorAdd, AppendsOrReplacesASecondTime) {
    ASSERT_EQ(GetParam().first(list_.get()), AAA_OK);
    EXPECT_EQ(GetParam().second(list_.get()), AAA_OK);
    const Pairs expected = GetParam().op == Op::append ? Pairs{GetParam().pair, GetParam().second_pair}
                                                       : Pairs{GetParam().second_pair};
    EXPECT_EQ(pairs_of(list_.get()), expected);
    EXPECT_STREQ(aaatest::verify_list(list_.get()).fault, "");
}

// Only the first pair of a type is replaced.
TEST_P(AccessorAdd, LeavesALaterPairOfItsTypeAlone) {
    const uint32_t type = GetParam().pair.type;
    const List list = make_list("request", {bytes(type, "first"), bytes(type, "later")});
    EXPECT_EQ(GetParam().first(list.get()), AAA_OK);
    Pairs expected{bytes(type, "later"), GetParam().pair};
    if (GetParam().op == Op::append) {
        expected.insert(expected.begin(), bytes(type, "first"));
    }
    EXPECT_EQ(pairs_of(list.get()), expected);
}

TEST_P(AccessorAdd, RefusesANullList) {
    EXPECT_EQ(GetParam().first(nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(AccessorAdd, TracesANullListOnlyWhereTheUpdateFails) {
    fake::enable_tracing(8);
    EXPECT_EQ(GetParam().first(nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces_of(8), GetParam().failure);
    EXPECT_EQ(fake::traces().size(), GetParam().failure.size());
}

TEST_P(AccessorAdd, TracesThroughTheListOnSuccess) {
    fake::enable_tracing(8);
    ASSERT_EQ(GetParam().first(list_.get()), AAA_OK);
    const std::vector<std::string> traces = fake::traces_of(8);
    if (GetParam().op == Op::append) {
        ASSERT_EQ(traces.size(), 1u);
    } else {
        ASSERT_EQ(traces.size(), 2u);
        EXPECT_EQ(traces[0].rfind("Updating attr ", 0), 0u) << traces[0];
    }
    EXPECT_EQ(traces.back().rfind("Adding attr ", 0), 0u) << traces.back();
}

TEST_P(AccessorAdd, LeavesAnEmptyListEmptyWhenMemoryIsExhausted) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const List list = make_list("request");
        const cerrno code = fail.run([&] { return GetParam().first(list.get()); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), fail.fired() ? Pairs{} : Pairs{GetParam().pair});
        EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    });
}

TEST_P(AccessorAdd, TracesExhaustedMemory) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "allocations cannot be made to fail in this build";
    }
    fake::enable_tracing(8);
    fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1);
    EXPECT_EQ(fail.run([&] { return GetParam().first(list_.get()); }), AAA_ERR_NOMEM);
    const std::vector<std::string> traces = fake::traces_of(8);
    ASSERT_GT(traces.size(), GetParam().failure.size());
    EXPECT_EQ(std::vector<std::string>(traces.end() - static_cast<std::ptrdiff_t>(GetParam().failure.size()),
                                       traces.end()),
              GetParam().failure);
}

// ---- Null values -----------------------------------------------------------

struct NullValue {
    const char *name;
    cerrno (*call)(avlist *list);
};

const NullValue kNullValues[] = {
    {"username_add", [](avlist *list) { return aaa_util_avlist_username_add(nullptr, 5, list); }},
    {"password_add", [](avlist *list) { return aaa_util_avlist_password_add(nullptr, 5, list); }},
    {"password_add_empty", [](avlist *list) { return aaa_util_avlist_password_add(nullptr, 0, list); }},
    {"prompt_add", [](avlist *list) { return aaa_util_avlist_prompt_add(0, nullptr, list); }},
    {"chap_response_add", [](avlist *list) { return aaa_util_avlist_chap_response_add(nullptr, 16, list); }},
    {"chap_response_add_empty",
     [](avlist *list) { return aaa_util_avlist_chap_response_add(nullptr, 0x10000, list); }},
    {"cmd_add", [](avlist *list) { return aaa_util_avlist_cmd_add(nullptr, 5, list); }},
    {"cmd_add_empty", [](avlist *list) { return aaa_util_avlist_cmd_add(nullptr, 0, list); }},
    {"errmsg_add", [](avlist *list) { return aaa_util_avlist_errmsg_add(list, nullptr); }},
    {"add_attr", [](avlist *list) { return aaa_util_avpair_add_attr(list, 257, nullptr, 5, 0); }},
    {"add_attr_empty", [](avlist *list) { return aaa_util_avpair_add_attr(list, 257, nullptr, 0, 0); }},
    {"add_attr_onep",
     [](avlist *list) { return aaa_util_avpair_add_attr_onep(list, 257, nullptr, 0, 0, 0); }},
};

TEST(AccessorAddNull, RefusesANullValueWithoutATrace) {
    fake::enable_tracing(8);
    for (const NullValue &row : kNullValues) {
        SCOPED_TRACE(row.name);
        fake::clear_journal();
        const List list = make_list("request");
        EXPECT_EQ(row.call(list.get()), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(row.call(nullptr), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(pairs_of(list.get()).empty());
        EXPECT_EQ(list->avpair_first_buf, nullptr);
        EXPECT_TRUE(fake::traces().empty());
    }
}

// ---- Single accessors ------------------------------------------------------

TEST(UsernameAdd, TakesLengthsFrom1To254) {
    const std::string name(300, 'u');
    struct {
        int32_t length;
        cerrno code;
    } const rows[] = {{INT32_MIN, AAA_ERR_INVALID_ARG},
                      {-1, AAA_ERR_INVALID_ARG},
                      {0, AAA_ERR_INVALID_ARG},
                      {1, AAA_OK},
                      {253, AAA_OK},
                      {254, AAA_OK},
                      {255, AAA_ERR_INVALID_ARG},
                      {INT32_MAX, AAA_ERR_INVALID_ARG}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.length);
        const List list = make_list("request");
        EXPECT_EQ(aaa_util_avlist_username_add(name.c_str(), row.length, list.get()), row.code);
        EXPECT_EQ(pairs_of(list.get()),
                  row.code == AAA_OK ? Pairs{bytes(257, name.substr(0, static_cast<size_t>(row.length)))}
                                     : Pairs{});
    }
}

// A value without NUL is legal: readers must not expect one.
TEST(UsernameAdd, StoresNoNulOfItsOwn) {
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_avlist_username_add("alice", 5, list.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), Pairs{bytes(257, "alice")});
}

// The caller deliberately chooses the length of the pair; the bytes that follow
// the four of the status are zero, not the stack's.
TEST(StatusAdd, StoresTheCallersLength) {
    for (const uint32_t length : {0u, 1u, 3u, 4u, 5u, 8u, 64u, 4096u, 65536u, 65537u, 200000u}) {
        SCOPED_TRACE(length);
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_avlist_status_add(0x44332211, length, list.get()), AAA_OK);
        std::string expected = raw<uint32_t>(0x44332211);
        expected.resize(length, '\0');
        const Pairs pairs = pairs_of(list.get());
        ASSERT_EQ(pairs.size(), 1u);
        EXPECT_EQ(pairs[0].type, 2u);
        EXPECT_EQ(pairs[0].flags, 0u);
        EXPECT_TRUE(pairs[0].value == expected);
    }
}

TEST(StatusAdd, ReportsExhaustedMemoryForLongValues) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const List list = make_list("request");
        const cerrno code = fail.run([&] { return aaa_util_avlist_status_add(1, 70000, list.get()); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(pairs_of(list.get()).size(), fail.fired() ? 0u : 1u);
    });
}

TEST(PromptAdd, KeepsTheLow8BitsOfItsFlags) {
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_avlist_prompt_add(0xFFFFFF5A, "?", list.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), Pairs{text_pair(21, "?", 0x5A)});
}

TEST(ChapResponseAdd, KeepsTheLow16BitsOfItsLength) {
    const std::string value(65536, 'r');
    struct {
        uint32_t length, stored;
    } const rows[] = {{0, 0}, {0xFFFF, 0xFFFF}, {0x10000, 0}, {0x10001, 1}, {0xFFFF0010, 16}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.length);
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_avlist_chap_response_add(value.data(), row.length, list.get()), AAA_OK);
        const Pairs pairs = pairs_of(list.get());
        ASSERT_EQ(pairs.size(), 1u);
        EXPECT_EQ(pairs[0].value.size(), row.stored);
    }
}

// A replacement by another length moves the pair to the end and clears the flag
// bits above the low 8.
TEST(AccessorReplace, MovesAPairWhoseLengthChanges) {
    const List list = make_list("request", {bytes(258, "old", 0x480 | 0x100), number(10, 1)});
    ASSERT_EQ(aaa_util_avlist_password_add("longer", 7, list.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{number(10, 1), text_pair(258, "longer", 0x480)}));
}

TEST(AccessorReplace, KeepsThePlaceAndTheFlagsOfAPairWithItsLength) {
    const List list = make_list("request", {number(27, 1, 0x90000), number(10, 1)});
    ASSERT_EQ(aaa_util_avlist_seqnum_add(list.get(), 5), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{number(27, 5, 0x90400), number(10, 1)}));
}

TEST(AvpairUpdateAny, ReplacesTheGivenInstanceAndAppendsBeyondTheLast) {
    const List list = make_list("request", {bytes(36, "a"), bytes(36, "b")});
    char value[] = "zzzz";
    ASSERT_EQ(aaa_util_avpair_update(36, 0, value, 1, 7, 1, list.get()), AAA_OK);
    ASSERT_EQ(aaa_util_avpair_update(36, 0, value, 2, 0, 9, list.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{bytes(36, "a"), Pair{36, 0, 7, "z"}, bytes(36, "zz")}));
}

TEST(AvpairUpdateAny, TakesANullValueOfNoBytesForAnAbsentTypeOnly) {
    const List list = make_list("request");
    EXPECT_EQ(aaa_util_avpair_update(36, 0, nullptr, 0, 0, 0, list.get()), AAA_OK);
    EXPECT_EQ(aaa_util_avpair_update(36, 0, nullptr, 0, 0, 0, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(pairs_of(list.get()), Pairs{bytes(36, "")});
}

// The order of length and tag is not that of the list layer.
TEST(AvpairAddAny, TakesLengthBeforeTag) {
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_avpair_add_attr(list.get(), 5, "abcdefgh", 8, 2), AAA_OK);
    ASSERT_EQ(aaa_util_avpair_add_attr_onep(list.get(), 5, "abcdefgh", 6, 3, 1), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{Pair{5, 0, 2, "abcdefgh"}, Pair{5, 1, 3, "abcdef"}}));
}

TEST(AccessorDeathTest, StopsOnTheDeletedMarkerAndOnALengthWithoutAValue) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const List list = make_list("request");
    EXPECT_DEATH(static_cast<void>(aaa_util_avpair_add_attr(list.get(), 2070, "x", 1, 0)),
                 "type != AAA_ATTR_MAX");
    EXPECT_DEATH(static_cast<void>(aaa_util_avpair_update(36, 0, nullptr, 1, 0, 0, list.get())),
                 "!\\(\\(value == NULL\\) && \\(len > 0\\)\\)");
}

}  // namespace
