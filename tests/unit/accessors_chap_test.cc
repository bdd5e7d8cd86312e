// SPDX-License-Identifier: Apache-2.0
//
// CHAP and MS-CHAP data: stored forms, minimum lengths, large and missing
// parts.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

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
using messages::u32;

struct Kind {
    const char *name;
    uint32_t type;
    bool inbound;
    uint32_t response_length;  // 0 outbound
    uint32_t minimum;
    cerrno (*add)(const aaa_chap_data_t *chap, avlist *list);
    cerrno (*get)(aaa_chap_data_t *out, const avlist *list);
};

const Kind kKinds[] = {
    {"inbound_chap", 256, true, 16, 17, aaa_util_avlist_inbound_chap_data_add,
     aaa_util_avlist_inbound_chap_data_get},
    {"inbound_mschap", 1815, true, 49, 52, aaa_util_avlist_inbound_mschap_data_add,
     aaa_util_avlist_inbound_mschap_data_get},
    {"outbound_chap", 14, false, 0, 1, aaa_util_avlist_outbound_chap_data_add,
     aaa_util_avlist_outbound_chap_data_get},
    {"outbound_mschap", 15, false, 0, 3, aaa_util_avlist_outbound_mschap_data_add,
     aaa_util_avlist_outbound_mschap_data_get},
};

std::string pattern(std::size_t length, char first) {
    std::string text(length, '\0');
    for (std::size_t i = 0; i < length; ++i) {
        text[i] = static_cast<char>(first + static_cast<char>(i % 23));
    }
    return text;
}

// A record over texts that the test keeps alive.
aaa_chap_data_t record(uint8_t id, std::string &response, std::string &data) {
    return {id, reinterpret_cast<uint8_t *>(data.data()), static_cast<uint32_t>(data.size()),
            reinterpret_cast<uint8_t *>(response.data()), static_cast<uint32_t>(response.size())};
}

std::string stored(const Kind &kind, uint8_t id, const std::string &response, const std::string &data) {
    return std::string(1, static_cast<char>(id)) + (kind.inbound ? response : "") + data;
}

// Contents of outputs that a getter must not change.
aaa_chap_data_t untouched() {
    static uint8_t mark;
    return {0xEE, &mark, 0xDEADBEEF, &mark, 0xDEADBEEF};
}

bool operator==(const aaa_chap_data_t &a, const aaa_chap_data_t &b) {
    return a.id == b.id && a.data == b.data && a.data_len == b.data_len && a.response == b.response &&
           a.response_len == b.response_len;
}

std::string text_at(const uint8_t *at, uint32_t length) {
    return std::string(reinterpret_cast<const char *>(at), length);
}

class ChapData : public testing::TestWithParam<Kind> {};
INSTANTIATE_TEST_SUITE_P(All, ChapData, testing::ValuesIn(kKinds),
                         [](const auto &kind) { return std::string(kind.param.name); });

TEST_P(ChapData, StoresItsPartsWithoutPaddingAndReadsThemBack) {
    std::string response = pattern(GetParam().inbound ? GetParam().response_length : 16, 'A');
    std::string data = pattern(21, 'a');
    const aaa_chap_data_t chap = record(0xF7, response, data);
    const List list = make_list("request", {u32(1, 1)});
    ASSERT_EQ(GetParam().add(&chap, list.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()),
              (Pairs{u32(1, 1), bytes(GetParam().type, stored(GetParam(), 0xF7, response, data))}));

    aaa_chap_data_t read = untouched();
    ASSERT_EQ(GetParam().get(&read, list.get()), AAA_OK);
    EXPECT_EQ(read.id, 0xF7);
    EXPECT_EQ(text_at(read.data, read.data_len), data);
    if (GetParam().inbound) {
        EXPECT_EQ(text_at(read.response, read.response_len), response);
        EXPECT_EQ(read.response_len, GetParam().response_length);
    } else {
        EXPECT_EQ(read.response, untouched().response);
        EXPECT_EQ(read.response_len, untouched().response_len);
    }
    // Nothing is copied.
    void *value = nullptr;
    ASSERT_EQ(aaa_avpair_find_type(GetParam().type, nullptr, &value, nullptr, 0, list.get()), AAA_OK);
    EXPECT_EQ(GetParam().inbound ? read.response : read.data, static_cast<uint8_t *>(value) + 1);
}

TEST_P(ChapData, AppendsEachTime) {
    std::string response = "r";
    std::string data = "d";
    const aaa_chap_data_t chap = record(1, response, data);
    const List list = make_list("request");
    ASSERT_EQ(GetParam().add(&chap, list.get()), AAA_OK);
    ASSERT_EQ(GetParam().add(&chap, list.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()).size(), 2u);
}

// Around the size up to which a value is built on the stack.
TEST_P(ChapData, StoresValuesOfEverySize) {
    for (const std::size_t total : {1u, 2u, 3u, 4u, 17u, 1023u, 1024u, 1025u, 4096u, 100000u}) {
        SCOPED_TRACE(total);
        const std::size_t response_size = GetParam().inbound ? (total - 1) / 3 : 0;
        std::string response = pattern(response_size, 'A');
        std::string data = pattern(total - 1 - response_size, 'a');
        const aaa_chap_data_t chap = record(9, response, data);
        const List list = make_list("request");
        ASSERT_EQ(GetParam().add(&chap, list.get()), AAA_OK);
        EXPECT_TRUE(pairs_of(list.get()) ==
                    Pairs{bytes(GetParam().type, stored(GetParam(), 9, response, data))});
        EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    }
}

TEST_P(ChapData, TracesAnIdAlone) {
    fake::enable_tracing(8);
    const aaa_chap_data_t chap = {0x5A, nullptr, 0, nullptr, 0};
    const List list = make_list("request");
    ASSERT_EQ(GetParam().add(&chap, list.get()), AAA_OK);
    const std::vector<std::string> traces = fake::traces_of(8);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_NE(traces[0].find(" [5a 0 0 0] - "), std::string::npos) << traces[0];
}

TEST_P(ChapData, RefusesNullArguments) {
    std::string response = "response";
    std::string data = "data";
    const aaa_chap_data_t chap = record(1, response, data);
    const List list = make_list("request");
    fake::enable_tracing(8);
    EXPECT_EQ(GetParam().add(nullptr, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(GetParam().add(nullptr, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(GetParam().add(&chap, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::traces().empty());
    EXPECT_TRUE(pairs_of(list.get()).empty());
}

TEST_P(ChapData, RefusesALengthWithoutBytes) {
    uint8_t byte = 0;
    const List list = make_list("request");
    const aaa_chap_data_t no_data = {1, nullptr, 1, &byte, 1};
    EXPECT_EQ(GetParam().add(&no_data, list.get()), AAA_ERR_INVALID_ARG);
    const aaa_chap_data_t no_response = {1, &byte, 1, nullptr, 1};
    // The response of outbound data is not looked at.
    EXPECT_EQ(GetParam().add(&no_response, list.get()), GetParam().inbound ? AAA_ERR_INVALID_ARG : AAA_OK);
}

TEST_P(ChapData, RefusesWhatNoLengthCanTell) {
    uint8_t byte = 0;
    const List list = make_list("request");
    const aaa_chap_data_t whole = {1, &byte, 0xFFFFFFFF, &byte, 0};
    EXPECT_EQ(GetParam().add(&whole, list.get()), AAA_ERR_NOMEM);
    if (GetParam().inbound) {
        const aaa_chap_data_t wrapping = {1, &byte, 0x80000000, &byte, 0x80000010};
        EXPECT_EQ(GetParam().add(&wrapping, list.get()), AAA_ERR_NOMEM);
    }
    EXPECT_TRUE(pairs_of(list.get()).empty());
}

TEST_P(ChapData, ReportsExhaustedMemory) {
    for (const std::size_t size : {10u, 5000u}) {
        SCOPED_TRACE(size);
        std::string response;
        std::string data = pattern(size, 'a');
        const aaa_chap_data_t chap = record(1, response, data);
        fake::sweep_allocations([&](fake::FailAlloc &fail) {
            const List list = make_list("request");
            const cerrno code = fail.run([&] { return GetParam().add(&chap, list.get()); });
            EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
            EXPECT_EQ(pairs_of(list.get()).size(), fail.fired() ? 0u : 1u);
            EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
        });
    }
}

// A value that cannot be built is reported before a missing list is.
TEST_P(ChapData, LooksAtTheListLast) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "allocations cannot be made to fail in this build";
    }
    std::string response;
    std::string data(5000, 'a');
    const aaa_chap_data_t chap = record(1, response, data);
    fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1);
    EXPECT_EQ(fail.run([&] { return GetParam().add(&chap, nullptr); }), AAA_ERR_NOMEM);
}

TEST_P(ChapData, NeedsItsMinimum) {
    for (uint32_t length = 0; length <= 60; ++length) {
        SCOPED_TRACE(length);
        const std::string value = pattern(length, 'a');
        const List list = make_list("request", {bytes(GetParam().type, value), bytes(1, "neighbour")});
        aaa_chap_data_t read = untouched();
        if (length < GetParam().minimum) {
            EXPECT_EQ(GetParam().get(&read, list.get()), AAA_ERR_INVALID_CLIENT_DATA);
            EXPECT_TRUE(read == untouched());
            continue;
        }
        ASSERT_EQ(GetParam().get(&read, list.get()), AAA_OK);
        EXPECT_EQ(read.id, static_cast<uint8_t>(value[0]));
        EXPECT_EQ(read.data_len, length - 1 - GetParam().response_length);
        EXPECT_EQ(text_at(read.data, read.data_len), value.substr(1 + GetParam().response_length));
    }
}

TEST_P(ChapData, ReportsAnAbsentValue) {
    const List list = make_list("request", {u32(1, 1)});
    aaa_chap_data_t read = untouched();
    EXPECT_EQ(GetParam().get(&read, list.get()),
              GetParam().inbound ? AAA_ERR_INVALID_CLIENT_DATA : AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_TRUE(read == untouched());
}

TEST_P(ChapData, ReportsNullArgumentsOfTheGetter) {
    const cerrno expected = GetParam().inbound ? AAA_ERR_INVALID_CLIENT_DATA : AAA_ERR_INVALID_ARG;
    const List list = make_list("request", {bytes(GetParam().type, std::string(60, 'x'))});
    aaa_chap_data_t read = untouched();
    EXPECT_EQ(GetParam().get(nullptr, list.get()), expected);
    EXPECT_EQ(GetParam().get(nullptr, nullptr), expected);
    EXPECT_EQ(GetParam().get(&read, nullptr), expected);
    EXPECT_TRUE(read == untouched());
}

// The two inbound borders by number: 17 bytes are a whole CHAP value, 50 and
// 51 bytes are too few for MS-CHAP although the response would fit.
TEST(ChapDataBorders, DifferBetweenChapAndMschap) {
    aaa_chap_data_t read = untouched();
    const List chap = make_list("request", {bytes(256, std::string(17, 'x'))});
    ASSERT_EQ(aaa_util_avlist_inbound_chap_data_get(&read, chap.get()), AAA_OK);
    EXPECT_EQ(read.data_len, 0u);
    const List short_mschap = make_list("request", {bytes(1815, std::string(51, 'x'))});
    EXPECT_EQ(aaa_util_avlist_inbound_mschap_data_get(&read, short_mschap.get()),
              AAA_ERR_INVALID_CLIENT_DATA);
    const List mschap = make_list("request", {bytes(1815, std::string(52, 'x'))});
    ASSERT_EQ(aaa_util_avlist_inbound_mschap_data_get(&read, mschap.get()), AAA_OK);
    EXPECT_EQ(read.data_len, 2u);
}

}  // namespace
