// SPDX-License-Identifier: Apache-2.0
//
// Typed accessors that read: values present, absent, short and long, and what
// is said in the trace.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "aaa/accessors.h"
#include "aaa/result_codes.h"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/messages.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using messages::bytes;
using messages::List;
using messages::make_list;
using messages::Pairs;
using messages::pairs_of;
using messages::raw;
using messages::text;
using messages::u32;

constexpr uint32_t kUntouched = 0xDEADBEEF;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
using HeapText = std::unique_ptr<char, FreeDeleter>;

// Everything that a getter may be asked on: a list that has the pair, that
// has it twice, and that has others around it.
Pairs with_neighbours(const messages::Pair &pair) {
    return {bytes(1299, "\x11\x22\x33\x44\x55"), pair, bytes(pair.type, "second"), u32(1072, 0xFFFFFFFF)};
}

// ---- Integers --------------------------------------------------------------

struct Integer {
    const char *name;
    uint32_t type;
    uint32_t (*get)(const avlist *list);
    uint32_t absent = 0;
    std::string found_trace = {};
};

const Integer kIntegers[] = {
    {"current_method_get", 18, aaa_util_avlist_current_method_get},
    {"priv_get", 10, aaa_util_avlist_priv_get},
    {"last_used_server_ip_get", 1071,
     [](const avlist *list) { return aaa_util_avlist_last_used_server_ip_get(const_cast<avlist *>(list)); }},
    {"status_get", 2, aaa_util_avlist_status_get},
    {"get_status", 2, aaa_get_status},
    {"authen_method_get", 39, aaa_util_avlist_authen_method_get},
    {"curr_method_val_get", 69, aaa_util_avlist_curr_method_val_get, 0,
     "Updated AAA_CURR_METHOD_VAL_ATTR (1122867)"},
    {"authen_option_get", 43, aaa_util_avlist_authen_option_get, 32768},
    {"svc_get", 262, aaa_util_avlist_svc_get},
    {"user_flag_get", 62, aaa_util_avlist_user_flag_get},
    {"ifh_get", 22, aaa_util_avlist_ifh_get},
    {"msgtype_get", 3, aaa_util_msgtype_get},
};

class IntegerGet : public testing::TestWithParam<Integer> {};
INSTANTIATE_TEST_SUITE_P(All, IntegerGet, testing::ValuesIn(kIntegers),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(IntegerGet, GivesTheFirstValueOfItsType) {
    const List list = make_list("reply", with_neighbours(u32(GetParam().type, 0x89ABCDEF)));
    EXPECT_EQ(GetParam().get(list.get()), 0x89ABCDEFu);
    EXPECT_EQ(pairs_of(list.get()), with_neighbours(u32(GetParam().type, 0x89ABCDEF)));
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(IntegerGet, GivesItsDefaultWhenAbsent) {
    const List empty = make_list("reply");
    EXPECT_EQ(GetParam().get(empty.get()), GetParam().absent);
    const List others = make_list("reply", {u32(1, 7), u32(GetParam().type + 1, 7)});
    EXPECT_EQ(GetParam().get(others.get()), GetParam().absent);
    EXPECT_EQ(pairs_of(others.get()), (Pairs{u32(1, 7), u32(GetParam().type + 1, 7)}));
    EXPECT_EQ(GetParam().get(nullptr), GetParam().absent);
}

// A value that is too short is completed with zeros, not with the bytes that follow
// it in memory.
TEST_P(IntegerGet, ReadsAtMostWhatIsStored) {
    const uint32_t expected[] = {0, 0x11, 0x2211, 0x332211, 0x44332211, 0x44332211};
    for (uint32_t length = 0; length <= 5; ++length) {
        SCOPED_TRACE(length);
        const messages::Pair pair =
            bytes(GetParam().type, std::string("\x11\x22\x33\x44\x55").substr(0, length));
        const List list = make_list("reply", with_neighbours(pair));
        EXPECT_EQ(GetParam().get(list.get()), expected[length]);
    }
}

TEST_P(IntegerGet, TracesWhatItFound) {
    const List list = make_list("reply", {u32(GetParam().type, 1122867)});
    fake::enable_tracing(8);
    EXPECT_EQ(GetParam().get(list.get()), 1122867u);
    const std::vector<std::string> traces = fake::traces_of(8);
    ASSERT_EQ(traces.size(), GetParam().found_trace.empty() ? 1u : 2u);
    EXPECT_EQ(traces[0].rfind("Found attr ", 0), 0u) << traces[0];
    EXPECT_EQ(traces.size() == 2 ? traces[1] : "", GetParam().found_trace);
    EXPECT_EQ(fake::traces().size(), traces.size());
}

TEST_P(IntegerGet, TracesOnlyThroughTheListWhenAbsent) {
    const List list = make_list("reply", {u32(1, 1)});
    fake::enable_tracing(8);
    EXPECT_EQ(GetParam().get(list.get()), GetParam().absent);
    const std::vector<std::string> traces = fake::traces_of(8);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_NE(traces[0].find(" not found: a2464800"), std::string::npos) << traces[0];
}

// These two use the platform's bounded copy, which decides about longer values.
TEST(BoundedIntegerGet, LeavesLongValuesToThePlatform) {
    const List list = make_list("reply", {bytes(10, "12345678"), bytes(22, "123456")});
    EXPECT_EQ(aaa_util_avlist_priv_get(list.get()), 0x34333231u);
    EXPECT_EQ(aaa_util_avlist_ifh_get(list.get()), 0x34333231u);
    EXPECT_EQ(fake::calls("__memcpy_to_buf"),
              (std::vector<std::string>{"__memcpy_to_buf(8, 4)", "__memcpy_to_buf(6, 4)"}));
}

TEST(BoundedIntegerGet, DoesNotAskThePlatformForAnAbsentValueOrAnEmptyHandle) {
    const List list = make_list("reply", {bytes(22, ""), u32(1, 1)});
    EXPECT_EQ(aaa_util_avlist_priv_get(list.get()), 0u);
    EXPECT_EQ(aaa_util_avlist_ifh_get(list.get()), 0u);
    EXPECT_EQ(fake::count("__memcpy_to_buf"), 0u);
}

// Kept: nothing is deleted when it is there, and the attempt to delete
// nothing changes nothing.
TEST(LastUsedServerIpGet, DeletesNothing) {
    const List list = make_list("reply", {u32(1071, 5), u32(1071, 6)});
    EXPECT_EQ(aaa_util_avlist_last_used_server_ip_get(list.get()), 5u);
    EXPECT_EQ(aaa_util_avlist_last_used_server_ip_get(list.get()), 5u);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{u32(1071, 5), u32(1071, 6)}));
    const List without = make_list("reply", {u32(1072, 5)});
    EXPECT_EQ(aaa_util_avlist_last_used_server_ip_get(without.get()), 0u);
    EXPECT_EQ(pairs_of(without.get()), Pairs{u32(1072, 5)});
    EXPECT_STREQ(aaatest::verify_list(without.get()).fault, "");
}

// ---- Integers through an output --------------------------------------------

struct Output {
    const char *name;
    uint32_t type;
    cerrno (*get)(const avlist *list, uint32_t *number);
    bool zeroed;
};

const Output kOutputs[] = {
    {"seqnum_get", 27, aaa_util_avlist_seqnum_get, false},
    {"sessionid_get", 26, aaa_util_avlist_sessionid_get, true},
    {"acct_sessid_get", 46, aaa_util_avlist_acct_sessid_get, true},
    {"idletime_get", 284, aaa_util_avlist_idletime_get, false},
};

class OutputGet : public testing::TestWithParam<Output> {};
INSTANTIATE_TEST_SUITE_P(All, OutputGet, testing::ValuesIn(kOutputs),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(OutputGet, GivesTheFirstValueOfItsType) {
    const List list = make_list("reply", with_neighbours(u32(GetParam().type, 0x89ABCDEF)));
    uint32_t number = kUntouched;
    EXPECT_EQ(GetParam().get(list.get(), &number), AAA_OK);
    EXPECT_EQ(number, 0x89ABCDEFu);
}

TEST_P(OutputGet, ReadsAtMostWhatIsStored) {
    const List list = make_list("reply", with_neighbours(bytes(GetParam().type, "\x11\x22")));
    uint32_t number = kUntouched;
    EXPECT_EQ(GetParam().get(list.get(), &number), AAA_OK);
    EXPECT_EQ(number, 0x2211u);
}

TEST_P(OutputGet, ReportsAnAbsentValue) {
    const List list = make_list("reply", {u32(1, 1)});
    uint32_t number = kUntouched;
    EXPECT_EQ(GetParam().get(list.get(), &number), AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(number, GetParam().zeroed ? 0u : kUntouched);
}

TEST_P(OutputGet, RefusesNullArguments) {
    const List list = make_list("reply", {u32(GetParam().type, 1)});
    EXPECT_EQ(GetParam().get(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(GetParam().get(nullptr, nullptr), AAA_ERR_INVALID_ARG);
    uint32_t number = kUntouched;
    EXPECT_EQ(GetParam().get(nullptr, &number), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(number, GetParam().zeroed ? 0u : kUntouched);
}

// ---- Addresses -------------------------------------------------------------

struct Address {
    const char *name;
    uint32_t type;
    const void *(*get)(const avlist *list);
    std::string absent_trace = {};
};

template <auto F>
const void *address_of(const avlist *list) {
    return F(list);
}
const void *first_reply_message(const avlist *list) {
    return aaa_util_avlist_reply_msg_get(list, 0);
}
const void *password(const avlist *list) {
    uint32_t length = 0;
    return aaa_util_avlist_password_get(list, &length);
}
const void *remote_address(const avlist *list) {
    uint32_t length = 0;
    return aaa_util_avlist_remaddr_get(list, &length);
}
const void *chap_response(const avlist *list) {
    uint32_t length = 0;
    return aaa_util_avlist_chap_response_get(&length, list);
}

const Address kAddresses[] = {
    {"reply_msg_get", 274, first_reply_message, "Failed to Find aaa avpair type"},
    {"cmd_get", 36, address_of<aaa_util_avlist_cmd_get>, "Failed to Find aaa avpair type"},
    {"ctx_get", 13, address_of<aaa_util_avlist_ctx_get>},
    {"src_get", 25, address_of<aaa_util_avlist_src_get>},
    {"username_get", 257, address_of<aaa_util_avlist_username_get>},
    {"tty_get", 20, address_of<aaa_util_avlist_tty_get>},
    {"tty_name_get", 61, address_of<aaa_util_avlist_tty_name_get>},
    {"methodlist_get", 17, address_of<aaa_util_avlist_methodlist_get>},
    {"password_get", 258, password},
    {"remaddr_get", 37, remote_address},
    {"chap_response_get", 16, chap_response},
};

class AddressGet : public testing::TestWithParam<Address> {};
INSTANTIATE_TEST_SUITE_P(All, AddressGet, testing::ValuesIn(kAddresses),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(AddressGet, GivesTheAddressInsideTheList) {
    const List list = make_list("reply", with_neighbours(text(GetParam().type, "value")));
    void *value = nullptr;
    ASSERT_EQ(aaa_avpair_find_type(GetParam().type, nullptr, &value, nullptr, 0, list.get()), AAA_OK);
    EXPECT_EQ(GetParam().get(list.get()), value);
    EXPECT_STREQ(static_cast<const char *>(GetParam().get(list.get())), "value");
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(AddressGet, GivesNullWhenAbsent) {
    const List list = make_list("reply", {u32(GetParam().type + 1, 1)});
    EXPECT_EQ(GetParam().get(list.get()), nullptr);
    EXPECT_EQ(GetParam().get(nullptr), nullptr);
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(AddressGet, TracesAMissingValueWhereItIsSaid) {
    const List list = make_list("reply", {u32(1, 1)});
    fake::enable_tracing(8);
    EXPECT_EQ(GetParam().get(list.get()), nullptr);
    std::vector<std::string> traces = fake::traces_of(8);
    ASSERT_EQ(traces.size(), GetParam().absent_trace.empty() ? 1u : 2u);
    EXPECT_NE(traces[0].find(" not found: a2464800"), std::string::npos) << traces[0];
    EXPECT_EQ(traces.size() == 2 ? traces[1] : "", GetParam().absent_trace);
    EXPECT_EQ(fake::traces().size(), traces.size());
}

TEST(ReplyMsgGet, CountsInstances) {
    const List list = make_list("reply", {text(274, "one"), u32(1, 1), text(274, "two")});
    EXPECT_STREQ(aaa_util_avlist_reply_msg_get(list.get(), 0), "one");
    EXPECT_STREQ(aaa_util_avlist_reply_msg_get(list.get(), 1), "two");
    EXPECT_EQ(aaa_util_avlist_reply_msg_get(list.get(), 2), nullptr);
}

// ---- Addresses with a length -----------------------------------------------

TEST(PasswordGet, ReportsTheStoredLength) {
    uint32_t length = kUntouched;
    const List list = make_list("reply", {text(258, "secret")});
    EXPECT_STREQ(aaa_util_avlist_password_get(list.get(), &length), "secret");
    EXPECT_EQ(length, 7u);
    const List empty = make_list("reply");
    EXPECT_EQ(aaa_util_avlist_password_get(empty.get(), &length), nullptr);
    EXPECT_EQ(length, 0u);
    length = kUntouched;
    EXPECT_EQ(aaa_util_avlist_password_get(nullptr, &length), nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(aaa_util_avlist_password_get(list.get(), nullptr), nullptr);
}

TEST(RemaddrGet, ReportsTheStoredLength) {
    uint32_t length = kUntouched;
    const List list = make_list("reply", {text(37, "192.0.2.7")});
    EXPECT_STREQ(aaa_util_avlist_remaddr_get(list.get(), &length), "192.0.2.7");
    EXPECT_EQ(length, 10u);
    const List empty = make_list("reply");
    EXPECT_EQ(aaa_util_avlist_remaddr_get(empty.get(), &length), nullptr);
    EXPECT_EQ(length, 0u);
    length = kUntouched;
    EXPECT_EQ(aaa_util_avlist_remaddr_get(nullptr, &length), nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(aaa_util_avlist_remaddr_get(list.get(), nullptr), nullptr);
}

// The adder keeps 16 bits of a length, the getter gives all 32.
TEST(ChapResponseGet, ReportsTheWholeLength) {
    const List list = make_list("reply", {bytes(16, std::string(70000, 'r'))});
    uint32_t length = kUntouched;
    EXPECT_NE(aaa_util_avlist_chap_response_get(&length, list.get()), nullptr);
    EXPECT_EQ(length, 70000u);
    EXPECT_NE(aaa_util_avlist_chap_response_get(nullptr, list.get()), nullptr);
    length = kUntouched;
    EXPECT_EQ(aaa_util_avlist_chap_response_get(&length, nullptr), nullptr);
    EXPECT_EQ(length, kUntouched);
}

TEST(DataGet, ReportsAddressAndLength) {
    const List list = make_list("reply", {bytes(4, "data"), bytes(4, "more")});
    void *value = nullptr;
    uint32_t length = kUntouched;
    ASSERT_EQ(aaa_util_avlist_data_get(&value, &length, list.get()), AAA_OK);
    EXPECT_EQ(std::string(static_cast<char *>(value), length), "data");
    EXPECT_EQ(aaa_util_avlist_data_get(nullptr, nullptr, list.get()), AAA_OK);
}

TEST(DataGet, PassesTheCodeOfTheSearchOn) {
    const List list = make_list("reply");
    int mark = 0;
    void *value = &mark;
    uint32_t length = kUntouched;
    EXPECT_EQ(aaa_util_avlist_data_get(&value, &length, list.get()), AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(aaa_util_avlist_data_get(&value, &length, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(value, &mark);
    EXPECT_EQ(length, kUntouched);
}

// ---- Directed address ------------------------------------------------------

TEST(DirectedAddrGet, CopiesTheWholeStoredRecord) {
    std::string stored = "\x1A\x01\x02\x03";
    stored += "0123456789abcdef-not copied";
    const List list = make_list("reply", {bytes(42, stored)});
    aaa_ip_addr_t address;
    std::memset(&address, 0xEE, sizeof address);
    EXPECT_EQ(aaa_util_avlist_directed_addr_get(&address, list.get()), &address);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&address), sizeof address), stored.substr(0, 20));
    EXPECT_EQ(address.family, 0x1A);
}

// Kept: the adder stores four bytes, which are the first ones of the record.
TEST(DirectedAddrGet, ReadsNoMoreThanTheBareAddressOfItsAdder) {
    const List list = make_list("reply");
    ASSERT_EQ(aaa_util_avlist_directed_addr_add(0xC0000207, list.get()), AAA_OK);
    ASSERT_EQ(aaa_util_avpair_add_attr(list.get(), 5, "neighbour bytes that must not show", 34, 0), AAA_OK);
    aaa_ip_addr_t address;
    std::memset(&address, 0xEE, sizeof address);
    aaa_util_avlist_directed_addr_get(&address, list.get());
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&address), sizeof address),
              raw<uint32_t>(0xC0000207) + std::string(16, '\0'));
}

TEST(DirectedAddrGet, ZeroesTheRecordWhenAbsent) {
    const List list = make_list("reply");
    for (const avlist *searched :
         {static_cast<const avlist *>(list.get()), static_cast<const avlist *>(nullptr)}) {
        aaa_ip_addr_t address;
        std::memset(&address, 0xEE, sizeof address);
        EXPECT_EQ(aaa_util_avlist_directed_addr_get(&address, searched), &address);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(&address), sizeof address),
                  std::string(20, '\0'));
    }
    EXPECT_EQ(aaa_util_avlist_directed_addr_get(nullptr, list.get()), nullptr);
}

// ---- Texts that are taken out ----------------------------------------------

TEST(ErrmsgGet, TakesTheTextOutOfTheList) {
    const List list = make_list("reply", {text(7, "denied"), u32(1, 1)});
    const HeapText message(aaa_util_avlist_errmsg_get(list.get()));
    EXPECT_STREQ(message.get(), "denied");
    EXPECT_EQ(pairs_of(list.get()), Pairs{u32(1, 1)});
    EXPECT_EQ(aaa_util_avlist_errmsg_get(list.get()), nullptr);
    EXPECT_EQ(aaa_util_avlist_errmsg_get(nullptr), nullptr);
}

TEST(ErrmsgGet, TakesOneTextAtATime) {
    const List list = make_list("reply", {text(7, "one"), text(7, "two")});
    EXPECT_STREQ(HeapText(aaa_util_avlist_errmsg_get(list.get())).get(), "one");
    EXPECT_STREQ(HeapText(aaa_util_avlist_errmsg_get(list.get())).get(), "two");
    EXPECT_TRUE(pairs_of(list.get()).empty());
    EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
}

TEST(ErrmsgGet, StopsAtTheStoredLength) {
    const List list = make_list("reply", {bytes(7, "abcd"), bytes(36, "neighbour")});
    EXPECT_STREQ(HeapText(aaa_util_avlist_errmsg_get(list.get())).get(), "abcd");
    const List empty = make_list("reply", {bytes(7, ""), bytes(36, "neighbour")});
    EXPECT_STREQ(HeapText(aaa_util_avlist_errmsg_get(empty.get())).get(), "");
}

TEST(ErrmsgGet, KeepsThePairWhenMemoryIsExhausted) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const List list = make_list("reply", {text(7, "denied")});
        const HeapText message(fail.run([&] { return aaa_util_avlist_errmsg_get(list.get()); }));
        EXPECT_EQ(message == nullptr, fail.fired());
        EXPECT_EQ(pairs_of(list.get()), fail.fired() ? Pairs{text(7, "denied")} : Pairs{});
    });
}

TEST(PromptGet, TakesTheTextOutOfTheListAndReportsItsFlags) {
    const List list = make_list("reply", {text(21, "Password: ", 0xFEDC0012), u32(1, 1)});
    avpair_flags_t flags = kUntouched;
    const HeapText prompt(aaa_util_avlist_prompt_get(list.get(), &flags));
    EXPECT_STREQ(prompt.get(), "Password: ");
    EXPECT_EQ(flags, 0xFEDC0012u);
    EXPECT_EQ(pairs_of(list.get()), Pairs{u32(1, 1)});
}

TEST(PromptGet, LeavesTheFlagsAloneWhenAbsent) {
    const List list = make_list("reply", {u32(1, 1)});
    avpair_flags_t flags = kUntouched;
    EXPECT_EQ(aaa_util_avlist_prompt_get(list.get(), &flags), nullptr);
    EXPECT_EQ(aaa_util_avlist_prompt_get(nullptr, &flags), nullptr);
    EXPECT_EQ(flags, kUntouched);
}

TEST(PromptGet, NeedsNoFlagsOutputAndStopsAtTheStoredLength) {
    const List list = make_list("reply", {bytes(21, "abcd"), bytes(36, "neighbour")});
    EXPECT_STREQ(HeapText(aaa_util_avlist_prompt_get(list.get(), nullptr)).get(), "abcd");
}

// Unlike the error message, the prompt is deleted when there is no memory.
TEST(PromptGet, LosesThePairWhenMemoryIsExhausted) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const List list = make_list("reply", {text(21, "Password: ", 3)});
        avpair_flags_t flags = kUntouched;
        const HeapText prompt(fail.run([&] { return aaa_util_avlist_prompt_get(list.get(), &flags); }));
        EXPECT_EQ(prompt == nullptr, fail.fired());
        EXPECT_EQ(flags, 3u);
        EXPECT_TRUE(pairs_of(list.get()).empty());
        EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    });
}

// ---- Method list -----------------------------------------------------------

TEST(MethodlistGetAll, CopiesEveryMethod) {
    const List list = make_list("reply", {bytes(17, raw(1) + raw(2) + raw(1000)), bytes(17, raw(9))});
    uint32_t methods[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
    uint32_t count = kUntouched;
    EXPECT_EQ(aaa_util_avlist_methodlist_get_all(methods, &count, list.get()), 1);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(methods[0], 1u);
    EXPECT_EQ(methods[1], 2u);
    EXPECT_EQ(methods[2], 1000u);
    EXPECT_EQ(methods[3], kUntouched);
}

TEST(MethodlistGetAll, CopiesTheBytesThatMakeNoMethod) {
    const List list = make_list("reply", {bytes(17, raw(1) + "\x02\x03")});
    uint32_t methods[2] = {kUntouched, kUntouched};
    uint32_t count = kUntouched;
    EXPECT_EQ(aaa_util_avlist_methodlist_get_all(methods, &count, list.get()), 1);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(methods[1], 0xDEAD0302u);
}

TEST(MethodlistGetAll, FindsAnEmptyList) {
    const List list = make_list("reply", {bytes(17, "")});
    uint32_t method = kUntouched;
    uint32_t count = kUntouched;
    EXPECT_EQ(aaa_util_avlist_methodlist_get_all(&method, &count, list.get()), 1);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(method, kUntouched);
}

TEST(MethodlistGetAll, LeavesItsOutputsAloneWhenAbsent) {
    const List list = make_list("reply", {u32(1, 1)});
    uint32_t method = kUntouched;
    uint32_t count = kUntouched;
    EXPECT_EQ(aaa_util_avlist_methodlist_get_all(&method, &count, list.get()), 0);
    EXPECT_EQ(aaa_util_avlist_methodlist_get_all(&method, &count, nullptr), 0);
    const List present = make_list("reply", {bytes(17, raw(1))});
    EXPECT_EQ(aaa_util_avlist_methodlist_get_all(nullptr, &count, present.get()), 0);
    EXPECT_EQ(aaa_util_avlist_methodlist_get_all(&method, nullptr, present.get()), 0);
    EXPECT_EQ(method, kUntouched);
    EXPECT_EQ(count, kUntouched);
}

}  // namespace
