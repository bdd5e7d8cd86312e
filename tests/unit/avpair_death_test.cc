// SPDX-License-Identifier: Apache-2.0
//
// Broken invariants stop the process with a report whose expression and source
// path are fixed: operators match them. Each test damages a list in one way.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "support/avlist_model.hpp"

namespace {

using namespace aaatest;

constexpr char kHeader[] = "aaa/avpair.h";
constexpr char kSource[] = "aaa/lib/util/src/avpair.c";

std::string quoted(std::string_view text) {
    std::string pattern;
    for (const char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) {
            pattern += '\\';
        }
        pattern += c;
    }
    return pattern;
}

// PATH:LINE: PROTOTYPE: Assertion `EXPRESSION' failed.
std::string report(const char *path, const char *expression, const char *function) {
    return "(^|\n)" + quoted(path) + ":[0-9]+: [^\n]*" + function + "\\([^\n]*\\): Assertion `" +
           quoted(expression) + "' failed\\.\n";
}

#define EXPECT_STOPS(statement, path, expression, function) \
    EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), report(path, expression, function))

cerrno add(avlist *list, uint32_t type, std::string_view value) {
    return aaa_avpair_add(type, 0, value.data(), 0, static_cast<uint32_t>(value.size()), list);
}

class AvpairDeathTest : public testing::Test {
  protected:
    // Pairs 1 and 2 in a buffer, 3 in a second.
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "fast");
        list_ = make_list("damaged");
        ASSERT_EQ(add(list_.get(), 1, "one"), AAA_OK);
        ASSERT_EQ(add(list_.get(), 2, "two"), AAA_OK);
        ASSERT_EQ(add(list_.get(), 3, std::string(460, '3')), AAA_OK);
        ASSERT_EQ(first()->hdr.next, last());
    }
    // The damage is undone only in the process that continues.
    void TearDown() override {
        first()->hdr.next = last();
        last()->hdr.next = nullptr;
    }

    avpair_buffer_t *first() { return list_->avpair_first_buf; }
    avpair_buffer_t *last() { return list_->avpair_last_buf; }
    avlist *list() { return list_.get(); }

    aaa_avpair_iterator_t position_of(uint32_t type) {
        aaa_avpair_iterator_t it{};
        avpair_t *pair = nullptr;
        cerrno code = aaa_avpair_iterator_init(&it, list_.get(), &pair);
        while (code == AAA_OK && pair->av_type != type) {
            code = aaa_avpair_iterator_get_next(&it, &pair);
        }
        return it;
    }

    ListPtr list_;
    aaa_avpair_iterator_t it_{};
    avpair_t *pair_ = nullptr;
    avpair_mem_stats_t stats_{};
    char value_[8] = "value";
};

// ---- Emptiness: every operation that looks at a list --------------------------------

TEST_F(AvpairDeathTest, CountOfZeroWithBuffers) {
    const auto damaged = [this](auto operation) {
        list()->av_cnt = 0;
        operation();
    };
    const char *const expression = "list->avpair_first_buf == NULL";
    const char *const check = "aaa_is_list_empty";
    EXPECT_STOPS(damaged([&] { aaa_avpair_get_mem_usage(list(), &stats_); }), kHeader, expression, check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_iterator_init(&it_, list(), &pair_); }), kHeader, expression,
                 check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_find_type(1, nullptr, nullptr, nullptr, 0, list()); }), kHeader,
                 expression, check);
    EXPECT_STOPS(
        damaged([&] { aaa_avpair_find_index(0, nullptr, nullptr, nullptr, nullptr, nullptr, list()); }),
        kHeader, expression, check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_delete_by_type_instance(1, 0, list(), nullptr); }), kHeader,
                 expression, check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_delete_by_type_value(1, value_, 3, list(), nullptr); }), kHeader,
                 expression, check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_update(1, 0, value_, 0, 3, 0, list()); }), kHeader, expression,
                 check);
    aaa_avpair_iterator_t it = position_of(1);
    EXPECT_STOPS(damaged([&] { aaa_avpair_delete_by_iterator(&it, list()); }), kHeader, expression, check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_update_by_iterator(&it, 0, value_, 0, 4, list()); }), kHeader,
                 expression, check);
}

// Null arguments come before the emptiness check, null fields of a position after it.
TEST_F(AvpairDeathTest, ChangingAnEmptyListAtAPosition) {
    const ListPtr empty = make_list();
    const char *const expression = "aaa_is_list_empty(list) == FALSE";
    aaa_avpair_iterator_t unset{};
    aaa_avpair_iterator_t it = position_of(1);
    EXPECT_EQ(aaa_avpair_delete_by_iterator(nullptr, empty.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_update_by_iterator(nullptr, 0, value_, 0, 4, empty.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_update_by_iterator(&unset, 0, nullptr, 0, 4, empty.get()), AAA_ERR_INVALID_ARG);
    for (aaa_avpair_iterator_t *position : {&unset, &it}) {
        EXPECT_STOPS(aaa_avpair_delete_by_iterator(position, empty.get()), kSource, expression,
                     "aaa_avpair_delete_by_iterator");
        for (const uint32_t len : {3u, 4u}) {  // that of the pair, another one
            EXPECT_STOPS(aaa_avpair_update_by_iterator(position, 0, value_, 0, len, empty.get()), kSource,
                         expression, "aaa_avpair_update_by_iterator");
        }
    }
    EXPECT_EQ(aaa_avpair_delete_by_iterator(&unset, list()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_update_by_iterator(&unset, 0, value_, 0, 4, list()), AAA_ERR_INVALID_ARG);
}

// The result "no live pairs of that type" is not returned before either.
TEST_F(AvpairDeathTest, LookingUpTheDeletedMarkerInADamagedList) {
    const auto damaged = [this](auto operation) {
        list()->av_cnt = 0;
        operation();
    };
    const char *const expression = "list->avpair_first_buf == NULL";
    const char *const check = "aaa_is_list_empty";
    EXPECT_STOPS(damaged([&] { aaa_avpair_find_type(AAA_ATTR_MAX, nullptr, nullptr, nullptr, 0, list()); }),
                 kHeader, expression, check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_delete_by_type_instance(AAA_ATTR_MAX, 0, list(), nullptr); }),
                 kHeader, expression, check);
    EXPECT_STOPS(damaged([&] { aaa_avpair_update(AAA_ATTR_MAX, 0, value_, 0, 3, 0, list()); }), kHeader,
                 expression, check);
}

TEST_F(AvpairDeathTest, CountOfZeroWithALastBufferOnly) {
    const auto look = [this] {
        list()->av_cnt = 0;
        list()->avpair_first_buf = nullptr;
        aaa_avpair_get_mem_usage(list(), &stats_);
    };
    EXPECT_STOPS(look(), kHeader, "list->avpair_last_buf == NULL", "aaa_is_list_empty");
}

TEST_F(AvpairDeathTest, CountWithoutAFirstBuffer) {
    const auto look = [this] {
        list()->avpair_first_buf = nullptr;
        aaa_avpair_get_mem_usage(list(), &stats_);
    };
    EXPECT_STOPS(look(), kHeader, "list->avpair_first_buf != NULL", "aaa_is_list_empty");
}

TEST_F(AvpairDeathTest, CountWithoutALastBuffer) {
    const auto look = [this] {
        list()->avpair_last_buf = nullptr;
        aaa_avpair_iterator_init(&it_, list(), &pair_);
    };
    EXPECT_STOPS(look(), kHeader, "list->avpair_last_buf != NULL", "aaa_is_list_empty");
}

// Lookup in a list of one buffer, as most are.
TEST_F(AvpairDeathTest, LookingUpInAListOfOneBuffer) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), 1, "one"), AAA_OK);
    const auto damaged = [&](uint16_t count, bool first_set, bool last_set) {
        avlist record = *list;
        record.av_cnt = count;
        record.avpair_first_buf = first_set ? record.avpair_first_buf : nullptr;
        record.avpair_last_buf = last_set ? record.avpair_last_buf : nullptr;
        aaa_avpair_find_type(1, nullptr, nullptr, nullptr, 0, &record);
    };
    const char *const check = "aaa_is_list_empty";
    EXPECT_STOPS(damaged(0, true, true), kHeader, "list->avpair_first_buf == NULL", check);
    EXPECT_STOPS(damaged(0, false, true), kHeader, "list->avpair_last_buf == NULL", check);
    EXPECT_STOPS(damaged(1, false, false), kHeader, "list->avpair_first_buf != NULL", check);
    EXPECT_STOPS(damaged(1, false, true), kHeader, "list->avpair_first_buf != NULL", check);
    EXPECT_STOPS(damaged(1, true, false), kHeader, "list->avpair_last_buf != NULL", check);
}

// ---- Appending -------------------------------------------------------------------

TEST_F(AvpairDeathTest, AddingTheDeletedMarker) {
    const char *const expression = "type != AAA_ATTR_MAX";
    EXPECT_STOPS(aaa_avpair_add(AAA_ATTR_MAX, 0, "v", 0, 1, list()), kSource, expression, "aaa_avpair_add");
    EXPECT_STOPS(aaa_avpair_add_with_tag(AAA_ATTR_MAX, 0, "v", 1, 0, list()), kSource, expression,
                 "aaa_avpair_add_with_tag");
}

TEST_F(AvpairDeathTest, AddingTheDeletedMarkerToNoList) {
    const char *const expression = "type != AAA_ATTR_MAX";
    EXPECT_STOPS(aaa_avpair_add(AAA_ATTR_MAX, 0, nullptr, 0, 1, nullptr), kSource, expression,
                 "aaa_avpair_add");
    EXPECT_STOPS(aaa_avpair_add_with_tag(AAA_ATTR_MAX, 0, nullptr, 1, 0, nullptr), kSource, expression,
                 "aaa_avpair_add_with_tag");
}

TEST_F(AvpairDeathTest, UpdatingAnAbsentDeletedMarker) {
    EXPECT_STOPS(aaa_avpair_update(AAA_ATTR_MAX, 0, value_, 0, 1, 0, list()), kSource, "type != AAA_ATTR_MAX",
                 "append_traced");
}

TEST_F(AvpairDeathTest, AddingToBuffersWithACountOfZero) {
    const auto append = [this] {
        list()->av_cnt = 0;
        add(list(), 1, "v");
    };
    EXPECT_STOPS(append(), kHeader, "list->av_cnt > 0", "aaa_get_free_mem");
}

TEST_F(AvpairDeathTest, AddingWithAFirstBufferOnly) {
    const auto append = [this] {
        list()->av_cnt = 0;
        list()->avpair_last_buf = nullptr;
        add(list(), 1, "v");
    };
    EXPECT_STOPS(append(), kHeader, "list->avpair_first_buf == NULL", "aaa_get_free_mem");
}

TEST_F(AvpairDeathTest, AddingAfterAMisalignedEnd) {
    const auto append = [this] {
        last()->hdr.free_mem -= 2;
        add(list(), 1, "v");
    };
    EXPECT_STOPS(append(), kSource,
                 "(list->avpair_last_buf == NULL) || is_aligned(list->avpair_last_buf->hdr.free_mem, "
                 "MEMORY_DEF_ALIGNMENT) == TRUE",
                 "aaa_alloc_avpair_mem");
}

// The same checks where the pair would find its room.
TEST_F(AvpairDeathTest, AddingWhereThereIsRoom) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), 1, "one"), AAA_OK);
    avpair_buffer_t *const buf = list->avpair_last_buf;
    unsigned char *const end = buf->hdr.free_mem;
    const auto append = [&](uint16_t count, std::ptrdiff_t offset) {
        list->av_cnt = count;
        buf->hdr.free_mem = end + offset;
        add(list.get(), 1, "v");
    };
    EXPECT_STOPS(append(0, 0), kHeader, "list->av_cnt > 0", "aaa_get_free_mem");
    for (const std::ptrdiff_t offset : {1, 2, 3}) {
        EXPECT_STOPS(append(1, offset), kSource,
                     "(list->avpair_last_buf == NULL) || is_aligned(list->avpair_last_buf->hdr.free_mem, "
                     "MEMORY_DEF_ALIGNMENT) == TRUE",
                     "aaa_alloc_avpair_mem");
    }
    for (const std::ptrdiff_t offset : {-56, -24, 464}) {
        EXPECT_STOPS(append(1, offset), kHeader, "free_mem <= last_buf->hdr.buf_size - sizeof(last_buf->hdr)",
                     "aaa_get_free_mem");
    }
}

// Of several faults the report names the one that is looked for first.
TEST_F(AvpairDeathTest, AddingToABufferWithSeveralFaults) {
    const auto append = [this](uint16_t count, std::uintptr_t free_mem, uint32_t len) {
        list()->av_cnt = count;
        last()->hdr.free_mem = reinterpret_cast<unsigned char *>(free_mem);
        aaa_avpair_add(1, 0, value_, 0, len, list());
    };
    const auto outside = reinterpret_cast<std::uintptr_t>(last()) + 516;
    for (const uint32_t len : {4u, 0xfffffff0u}) {
        EXPECT_STOPS(append(0, outside + 1, len), kSource,
                     "(list->avpair_last_buf == NULL) || is_aligned(list->avpair_last_buf->hdr.free_mem, "
                     "MEMORY_DEF_ALIGNMENT) == TRUE",
                     "aaa_alloc_avpair_mem");
        EXPECT_STOPS(append(0, 0, len), kHeader, "list->av_cnt > 0", "aaa_get_free_mem");
        EXPECT_STOPS(append(0, outside, len), kHeader, "list->av_cnt > 0", "aaa_get_free_mem");
        EXPECT_STOPS(append(1, 0, len), kHeader, "last_buf->hdr.free_mem != NULL", "aaa_get_free_mem");
        EXPECT_STOPS(append(1, outside, len), kHeader,
                     "free_mem <= last_buf->hdr.buf_size - sizeof(last_buf->hdr)", "aaa_get_free_mem");
    }
}

TEST_F(AvpairDeathTest, AddingAfterNoEnd) {
    const auto append = [this] {
        last()->hdr.free_mem = nullptr;
        add(list(), 1, "v");
    };
    EXPECT_STOPS(append(), kHeader, "last_buf->hdr.free_mem != NULL", "aaa_get_free_mem");
}

// As in a header of zeros: a size less than the header's must not make room for a pair.
TEST_F(AvpairDeathTest, AddingAfterNoEndInABufferOfNoSize) {
    const auto append = [this](uint32_t size) {
        last()->hdr.free_mem = nullptr;
        last()->hdr.buf_size = size;
        add(list(), 1, "v");
    };
    for (const uint32_t size : {0u, 4u, 16u, 28u, 31u}) {
        EXPECT_STOPS(append(size), kHeader, "last_buf->hdr.free_mem != NULL", "aaa_get_free_mem");
    }
}

TEST_F(AvpairDeathTest, AddingAfterAnEndOutsideTheBuffer) {
    const auto append = [this](std::ptrdiff_t offset) {
        last()->hdr.free_mem = reinterpret_cast<unsigned char *>(last()) + offset;
        add(list(), 1, "v");
    };
    for (const std::ptrdiff_t offset : {28, 516, -4}) {
        EXPECT_STOPS(append(offset), kHeader, "free_mem <= last_buf->hdr.buf_size - sizeof(last_buf->hdr)",
                     "aaa_get_free_mem");
    }
}

TEST_F(AvpairDeathTest, AddingALengthThatWrapsToNothing) {
    EXPECT_STOPS(aaa_avpair_add(1, 0, "v", 0, 0xfffffff0, list()), kSource, "req_mem > 0",
                 "aaa_alloc_avpair_mem");
    const ListPtr empty = make_list();
    EXPECT_STOPS(aaa_avpair_add_with_tag(1, 0, "v", 0xfffffff0, 0, empty.get()), kSource, "req_mem > 0",
                 "aaa_alloc_avpair_mem");
}

TEST_F(AvpairDeathTest, StartingABufferAfterOneThatHasASuccessor) {
    const auto append = [this] {
        last()->hdr.next = first();
        add(list(), 1, std::string(464, 'v'));
    };
    EXPECT_STOPS(append(), kSource, "last_buf->hdr.next == NULL", "append_buffer");
}

// A chain that goes on after the last buffer, here in a circle, is not followed
// in search of the new value's buffer. The alarm ends a process that follows it.
TEST_F(AvpairDeathTest, UpdatingWithALongerValueWhereTheLastBufferHasASuccessor) {
    const std::string longer(1000, 'n');
    const auto update = [&] {
        alarm(60);
        last()->hdr.next = first();
        aaa_avpair_update(1, 0, const_cast<char *>(longer.data()), 0, 1000, 0, list());
    };
    EXPECT_STOPS(update(), kSource, "last_buf->hdr.next == NULL", "append_buffer");
    aaa_avpair_iterator_t it = position_of(2);
    const auto update_at = [&] {
        alarm(60);
        last()->hdr.next = first();
        aaa_avpair_update_by_iterator(&it, 0, longer.data(), 0, 1000, list());
    };
    EXPECT_STOPS(update_at(), kSource, "last_buf->hdr.next == NULL", "append_buffer");
}

// Without memory nothing is linked, and nothing is checked.
TEST_F(AvpairDeathTest, StartingNoBufferAfterOneThatHasASuccessor) {
    last()->hdr.next = first();
    EXPECT_EQ(aaa_avpair_add(1, 0, value_, 0, 0xffffffcd, list()), AAA_ERR_NOMEM);
}

TEST_F(AvpairDeathTest, RoundingPastTheEndOfABufferOfAnOddSize) {
    const auto append = [this] {
        const std::ptrdiff_t used = last()->hdr.free_mem - reinterpret_cast<unsigned char *>(last());
        last()->hdr.free_mem -= 20;
        last()->hdr.buf_size = static_cast<uint32_t>(used) - 2;  // 18 bytes of room
        add(list(), 1, "v");                                     // 17, rounded up 20
    };
    EXPECT_STOPS(append(), kSource,
                 "is_aligned((void*)(uintptr_t)(last_buf->hdr.buf_size), MEMORY_DEF_ALIGNMENT) == TRUE",
                 "advance_free_mem");
}

// ---- Iteration -------------------------------------------------------------------

TEST_F(AvpairDeathTest, ChainThatEndsBeforeTheLastBuffer) {
    const auto broken = [this](auto operation) {
        first()->hdr.next = nullptr;
        operation();
    };
    const char *const expression = "it->curr_buf != NULL";
    aaa_avpair_iterator_t it = position_of(2);
    EXPECT_STOPS(broken([&] { aaa_avpair_iterator_get_next(&it, &pair_); }), kSource, expression,
                 "walk_to_next_buffer");
    EXPECT_STOPS(broken([&] { aaa_avpair_find_type(3, nullptr, nullptr, nullptr, 0, list()); }), kSource,
                 expression, "walk_to_next_buffer");
    EXPECT_STOPS(
        broken([&] { aaa_avpair_find_index(2, nullptr, nullptr, nullptr, nullptr, nullptr, list()); }),
        kSource, expression, "walk_to_next_buffer");
}

TEST_F(AvpairDeathTest, EmptyBufferInTheChain) {
    const auto broken = [this](auto operation) {
        last()->hdr.free_mem = reinterpret_cast<unsigned char *>(aaa_avpair_get_first_avpair_in_buf(last()));
        operation();
    };
    const char *const expression = "it->curr_avp < (avpair_t*)it->curr_buf->hdr.free_mem";
    aaa_avpair_iterator_t it = position_of(2);
    EXPECT_STOPS(broken([&] { aaa_avpair_iterator_get_next(&it, &pair_); }), kSource, expression,
                 "walk_to_next_buffer");
    EXPECT_STOPS(broken([&] { aaa_avpair_find_type(3, nullptr, nullptr, nullptr, 0, list()); }), kSource,
                 expression, "walk_to_next_buffer");
}

// ---- Deletion and update ---------------------------------------------------------

TEST_F(AvpairDeathTest, DeletingFromAnEmptyList) {
    const ListPtr empty = make_list();
    aaa_avpair_iterator_t it = position_of(1);
    EXPECT_STOPS(aaa_avpair_delete_by_iterator(&it, empty.get()), kSource, "aaa_is_list_empty(list) == FALSE",
                 "aaa_avpair_delete_by_iterator");
}

// The list is looked at before the pair.
TEST_F(AvpairDeathTest, DeletingADeletedPairFromAnEmptyList) {
    const ListPtr empty = make_list();
    avpair_t deleted{AAA_ATTR_MAX, 0, 0, 0};
    aaa_avpair_iterator_t it{first(), last(), &deleted};
    EXPECT_STOPS(aaa_avpair_delete_by_iterator(&it, empty.get()), kSource, "aaa_is_list_empty(list) == FALSE",
                 "aaa_avpair_delete_by_iterator");
}

TEST_F(AvpairDeathTest, DeletingAPairThatIsNotInItsBuffer) {
    const char *const expression = "(avp > (avpair_t*)buf) && (avp < (avpair_t*)(buf->hdr.free_mem))";
    avpair_t stray{1, 0, 0, 0};
    aaa_avpair_iterator_t past = position_of(1);
    past.curr_avp = reinterpret_cast<avpair_t *>(first()->hdr.free_mem);
    *past.curr_avp = stray;
    EXPECT_STOPS(aaa_avpair_delete_by_iterator(&past, list()), kSource, expression,
                 "aaa_avpair_is_last_in_buffer");
    // Of two pairs one is before the buffer of the other, and one is after it.
    aaa_avpair_iterator_t one = position_of(1);
    one.curr_buf = last();
    aaa_avpair_iterator_t three = position_of(3);
    three.curr_buf = first();
    EXPECT_STOPS(aaa_avpair_delete_by_iterator(&one, list()), kSource, expression,
                 "aaa_avpair_is_last_in_buffer");
    EXPECT_STOPS(aaa_avpair_delete_by_iterator(&three, list()), kSource, expression,
                 "aaa_avpair_is_last_in_buffer");
}

TEST_F(AvpairDeathTest, UnlinkingABufferAfterAnEmptyOne) {
    aaa_avpair_iterator_t it = position_of(3);
    const auto broken = [&] {
        first()->hdr.free_mem =
            reinterpret_cast<unsigned char *>(aaa_avpair_get_first_avpair_in_buf(first()));
        aaa_avpair_delete_by_iterator(&it, list());
    };
    EXPECT_STOPS(broken(), kSource, "prev_buf->hdr.free_mem != aaa_avpair_get_first_avpair_in_buf(prev_buf)",
                 "unlink_buffer");
}

TEST_F(AvpairDeathTest, DeletingTheDeletedMarkerByValue) {
    const char *const expression = "findtype != AAA_ATTR_MAX";
    const char *const function = "aaa_avpair_delete_by_type_value";
    EXPECT_STOPS(aaa_avpair_delete_by_type_value(AAA_ATTR_MAX, value_, 1, list(), nullptr), kSource,
                 expression, function);
    EXPECT_STOPS(aaa_avpair_delete_by_type_value(AAA_ATTR_MAX, value_, 1, nullptr, nullptr), kSource,
                 expression, function);
}

TEST_F(AvpairDeathTest, UpdatingWithALengthButNoValue) {
    EXPECT_STOPS(aaa_avpair_update(1, 0, nullptr, 0, 3, 0, list()), kSource,
                 "!((value == NULL) && (len > 0))", "aaa_avpair_update");
}

// The arguments come before the list.
TEST_F(AvpairDeathTest, UpdatingADamagedListWithALengthButNoValue) {
    const auto update = [this] {
        list()->av_cnt = 0;
        aaa_avpair_update(1, 0, nullptr, 0, 3, 0, list());
    };
    EXPECT_STOPS(update(), kSource, "!((value == NULL) && (len > 0))", "aaa_avpair_update");
}

TEST_F(AvpairDeathTest, UpdatingADeletedPairInPlace) {
    aaa_avpair_iterator_t it = position_of(1);
    ASSERT_EQ(aaa_avpair_delete_by_iterator(&it, list()), AAA_OK);  // 2 follows it: it stays
    EXPECT_STOPS(aaa_avpair_update_by_iterator(&it, 0, "new", 0, 3, list()), kSource,
                 "avpair->av_type != AAA_ATTR_MAX", "replace_value");
}

TEST_F(AvpairDeathTest, MovingADeletedPair) {
    aaa_avpair_iterator_t it = position_of(1);
    ASSERT_EQ(aaa_avpair_delete_by_iterator(&it, list()), AAA_OK);
    EXPECT_STOPS(aaa_avpair_update_by_iterator(&it, 0, "longer", 0, 6, list()), kSource,
                 "type != AAA_ATTR_MAX", "append_traced");
}

}  // namespace
