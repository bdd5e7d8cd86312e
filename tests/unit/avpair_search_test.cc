// SPDX-License-Identifier: Apache-2.0
//
// Lookup in long lists, whose pairs are in one buffer as a receiver has them. For
// all values the result is that of a walk from the beginning.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"

namespace {

using aaatest::ListPtr;
using aaatest::make_list;

constexpr uint32_t kTypes = 12;
constexpr uint32_t kAbsent = 1999;

void add(const ListPtr &list, uint32_t type, const std::string &value, uint32_t tag = 0) {
    ASSERT_EQ(aaa_avpair_add(type, 0, value.data(), tag, static_cast<uint32_t>(value.size()), list.get()),
              AAA_OK);
}

// The list as its receiver has it: all pairs in one buffer.
ListPtr received(ListPtr list) {
    avpair_mem_stats_t stats{};
    aaa_avpair_get_mem_usage(list.get(), &stats);
    std::vector<char> message(56 + stats.used_mem);
    auto len = static_cast<uint32_t>(message.size());
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), message.data(), &len), AAA_OK);
    avlist *result = nullptr;
    EXPECT_EQ(aaa_avpair_unpack_msg_create(&result, message.data(), len), AAA_OK);
    return ListPtr(result);
}

// The value of an occurrence by iteration alone; null when there is none.
const void *value_by_walking(const avlist *list, uint32_t type, uint32_t instance) {
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    cerrno rc = aaa_avpair_iterator_init(&it, list, &pair);
    while (rc == AAA_OK && (pair->av_type != type || instance-- != 0)) {
        rc = aaa_avpair_iterator_get_next(&it, &pair);
    }
    return rc == AAA_OK ? pair + 1 : nullptr;
}

const void *value_by_lookup(const avlist *list, uint32_t type, uint32_t instance) {
    void *value = nullptr;
    const cerrno rc = aaa_avpair_find_type(type, nullptr, &value, nullptr, instance, list);
    EXPECT_TRUE(rc == AAA_OK || (rc == AAA_ERR_AVPAIR_NOT_FOUND && value == nullptr)) << rc;
    return value;
}

void expect_same_answers(const avlist *list) {
    for (uint32_t type = 1; type <= kTypes; type++) {
        for (const uint32_t instance : {0u, 1u, 7u}) {
            EXPECT_EQ(value_by_lookup(list, type, instance), value_by_walking(list, type, instance))
                << "type " << type << " instance " << instance;
        }
    }
    EXPECT_EQ(value_by_lookup(list, kAbsent, 0), nullptr);
}

// The bytes of a pair's head, as a value can hold them.
std::string head(uint32_t type, uint32_t len) {
    const uint32_t words[] = {type, 0, len, 0};
    std::string bytes(sizeof words, '\0');
    std::memcpy(bytes.data(), words, sizeof words);
    return bytes;
}

class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(engine_() % n); }

  private:
    std::mt19937 engine_;
};

using Values = std::string (*)(Random &);

std::string mixed(Random &random) {
    return std::string(random.below(40), static_cast<char>('a' + random.below(26)));
}

std::string numbers(Random &random) {
    const uint32_t number = random.below(8);
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

std::string empty_values(Random &) {
    return {};
}

std::string long_values(Random &random) {
    return std::string(random.below(2000), '\x01');
}

// Chains of heads that lead on and on, of the types that are looked for.
std::string deceiving(Random &random) {
    std::string value(4 * (random.below(3)), '\0');
    for (int i = 0; i < 6; i++) {
        value += head(1 + random.below(kTypes), 0);
    }
    return value;
}

// Heads whose lengths lead far out of the list.
std::string leading_astray(Random &random) {
    std::string value;
    for (int i = 0; i < 6; i++) {
        value += head(1 + random.below(kTypes), random.below(3) == 0 ? 0xFFFF : 0);
    }
    return value;
}

class LongListSearch : public testing::TestWithParam<Values> {};

TEST_P(LongListSearch, FindsWhatAWalkFinds) {
    Random random(7);
    for (const std::size_t count : {1u, 2u, 20u, 60u, 300u, 3000u}) {
        ListPtr list = make_list();
        for (std::size_t i = 0; i < count; i++) {
            // Most of one type, so that the others are anywhere.
            const uint32_t type = random.below(16) == 0 ? 2 + random.below((kTypes - 1)) : 1;
            add(list, type, GetParam()(random));
        }
        list = received(std::move(list));
        SCOPED_TRACE(count);
        expect_same_answers(list.get());
    }
}

// A type that occurs once, at every place of the list in turn.
TEST_P(LongListSearch, FindsTheOnlyOneAtAnyPlace) {
    // Most of them lists of some KiB, and very long ones, at fewer places.
    for (const auto &[count, step] : {std::pair{150u, 1u}, std::pair{700u, 13u}}) {
        for (std::size_t place = 0; place < count; place += step) {
            Random random(11);
            ListPtr list = make_list();
            for (std::size_t i = 0; i < count; i++) {
                add(list, i == place ? kAbsent : 1, GetParam()(random));
            }
            list = received(std::move(list));
            const void *const value = value_by_lookup(list.get(), kAbsent, 0);
            EXPECT_EQ(value, value_by_walking(list.get(), kAbsent, 0)) << place << " of " << count;
            EXPECT_NE(value, nullptr) << place << " of " << count;
        }
    }
}

TEST_P(LongListSearch, PassesOverDeletedPairs) {
    Random random(13);
    ListPtr list = make_list();
    for (std::size_t i = 0; i < 600; i++) {
        add(list, 1 + random.below(kTypes), GetParam()(random));
    }
    list = received(std::move(list));
    for (int i = 0; i < 200; i++) {
        const uint32_t type = 1 + random.below(kTypes);
        const cerrno rc = aaa_avpair_delete_by_type_instance(type, random.below(4), list.get(), nullptr);
        EXPECT_TRUE(rc == AAA_OK || rc == AAA_ERR_AVPAIR_NOT_FOUND) << rc;
        EXPECT_STREQ(verify_list(list.get(), aaatest::ListOrigin::unpacked).fault, "");
    }
    expect_same_answers(list.get());
    EXPECT_EQ(value_by_lookup(list.get(), AAA_ATTR_MAX, 0), nullptr);
}

INSTANTIATE_TEST_SUITE_P(, LongListSearch,
                         testing::Values(mixed, numbers, empty_values, long_values, deceiving,
                                         leading_astray));

// Where no pair can be guessed: one value covers a quarter, half or three
// quarters of the list, or its whole end; or an eighth or two of a very long one.
TEST(LongList, IsFoundAroundALongValue) {
    for (const std::size_t size : {1100u, 1600u, 2700u}) {
        for (const std::size_t all : {200u, 600u}) {
            for (std::size_t before = 0; before <= all; before += 10) {
                ListPtr list = make_list();
                for (std::size_t i = 0; i < before; i++) {
                    add(list, 1, "abcd");
                }
                add(list, 2, std::string(size, '\xff'));
                for (std::size_t i = before; i<all; i += size> 2000 ? 1 : 5) {
                    add(list, 1, "abcd");
                }
                add(list, 3, std::string(before == all ? size : 0, '\xff'));
                list = received(std::move(list));
                SCOPED_TRACE(std::to_string(size) + " bytes after " + std::to_string(before));
                expect_same_answers(list.get());
            }
        }
    }
}

// The last value is full of bytes that look like heads, so the walk over them goes
// on after the one before has ended. The last of them may be cut.
TEST(LongList, IsNotLedOutByHeadsInItsLastValue) {
    for (const int scale : {1, 4}) {
        for (std::size_t cut = 0; cut < 64; cut += 4) {
            ListPtr list = make_list();
            for (int i = 0; i < 128 * scale; i++) {
                add(list, 1, "");
            }
            for (int i = 0; i < 16 * scale; i++) {
                add(list, 1, std::string(i < 8 * scale ? 112 : 0, 'x'));
            }
            std::string heads;
            for (int i = 0; i < 80 * scale; i++) {
                heads += head(kTypes, 0);
            }
            add(list, 2, heads.substr(0, heads.size() - cut));
            list = received(std::move(list));
            SCOPED_TRACE(std::to_string(cut) + " at scale " + std::to_string(scale));
            expect_same_answers(list.get());
        }
    }
}

// The walk over such heads arrives first, wherever the last of them is cut.
TEST(LongList, IsNotLedOutByACutHead) {
    for (const int scale : {1, 4}) {
        for (std::size_t cut = 0; cut < 64; cut += 4) {
            ListPtr list = make_list();
            for (int i = 0; i < 190 * scale; i++) {
                add(list, 1, "");
            }
            std::string heads;
            for (int i = 0; i < 17 * scale; i++) {
                heads += head(kTypes, 48) + std::string(48, 'x');
            }
            add(list, 2, heads.substr(0, heads.size() - cut));
            list = received(std::move(list));
            SCOPED_TRACE(std::to_string(cut) + " at scale " + std::to_string(scale));
            expect_same_answers(list.get());
        }
    }
}

// Three heads in a row make a pair likely, but here the third one is cut.
TEST(LongList, GuessesNoPairFromACutHead) {
    for (const std::size_t rest : {4u, 8u, 12u}) {
        ListPtr list = make_list();
        for (int i = 0; i < 50; i++) {
            add(list, 1, "");
        }
        add(list, 2, std::string(300, '\xff') + head(3, 0) + head(3, 0) + head(3, 0).substr(0, rest));
        list = received(std::move(list));
        SCOPED_TRACE(rest);
        expect_same_answers(list.get());
    }
}

// A length that leads out of the list ends it.
TEST(LongList, EndsWithALengthThatLeadsOut) {
    for (const uint32_t count : {100u, 500u}) {
        for (const uint32_t lie : {5u, 400u, 0x01000000u, 0xffffffffu}) {
            ListPtr list = make_list();
            for (uint32_t i = 0; i < count; i++) {
                add(list, 1, "four");
            }
            list = received(std::move(list));
            auto *const last = reinterpret_cast<avpair_t *>(list->avpair_last_buf->hdr.free_mem - 20);
            last->av_len = lie;
            EXPECT_EQ(value_by_lookup(list.get(), kAbsent, 0), nullptr) << lie;
            EXPECT_EQ(value_by_lookup(list.get(), 1, count - 1), last + 1) << lie;
            EXPECT_EQ(value_by_lookup(list.get(), 1, count), nullptr) << lie;
        }
    }
}

// Update and deletion go through the same search.
TEST(LongList, UpdatesAndDeletesTheFirstOccurrence) {
    ListPtr list = make_list();
    for (int i = 0; i < 500; i++) {
        add(list, 1, "filler");
    }
    add(list, 2, "first");
    add(list, 1, "filler");
    add(list, 2, "other");
    list = received(std::move(list));
    char value[] = "FIRST";
    EXPECT_EQ(aaa_avpair_update(2, 0, value, 9, 5, 0, list.get()), AAA_OK);
    EXPECT_EQ(std::memcmp(value_by_walking(list.get(), 2, 0), "FIRST", 5), 0);
    EXPECT_EQ(std::memcmp(value_by_walking(list.get(), 2, 1), "other", 5), 0);
    EXPECT_EQ(aaa_avpair_delete_by_type_instance(2, 0, list.get(), nullptr), AAA_OK);
    EXPECT_EQ(std::memcmp(value_by_lookup(list.get(), 2, 0), "other", 5), 0);
    EXPECT_EQ(value_by_lookup(list.get(), 2, 1), nullptr);
}

}  // namespace
