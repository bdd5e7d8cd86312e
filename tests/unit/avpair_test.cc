// SPDX-License-Identifier: Apache-2.0
//
// List storage: creation, clearing, freeing, appending, the memory
// afterwards, and the trace lines.

#include "aaa/avpair.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "platform/cerr.h"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/guarded_page.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace aaatest;

std::string text_of(cerrno code) {
    return cerr_strerror(code);
}

using Lines = std::vector<std::string>;

constexpr uint32_t kName = 257;   // AAA_USERNAME_ATTR
constexpr uint32_t kNoName = 90;  // an empty row of the dictionary

#define EXPECT_SOUND(list) EXPECT_STREQ(verify_list(list).fault, "")

std::string bytes_of(const void *p, std::size_t n) {
    return {static_cast<const char *>(p), n};
}

// Fills the allocator's free blocks of a size with junk.
void dirty_free_blocks(std::size_t size) {
    void *blocks[8];
    for (void *&block : blocks) {
        block = std::malloc(size);
        std::memset(block, 0xa5, size);
        asm volatile("" : : "r"(block) : "memory");  // the writes have to happen
    }
    for (void *block : blocks) {
        std::free(block);
    }
}

cerrno add(avlist *list, uint32_t type, std::string_view value, uint32_t flags = 0, uint32_t tag = 0) {
    return aaa_avpair_add(type, flags, value.data(), tag, static_cast<uint32_t>(value.size()), list);
}

avpair_mem_stats_t mem_usage(const avlist *list) {
    avpair_mem_stats_t stats{};
    EXPECT_EQ(aaa_avpair_get_mem_usage(list, &stats), AAA_OK);
    return stats;
}

// ---- Creation ----------------------------------------------------------------

TEST(AvpairCreate, MakesAZeroedRecordWithTheName) {
    dirty_free_blocks(sizeof(avlist));
    avlist *list = nullptr;
    ASSERT_EQ(aaa_avpair_create_list("login", &list), AAA_OK);
    std::string wanted(56, '\0');
    wanted.replace(24, 5, "login");
    EXPECT_EQ(bytes_of(list, 56), wanted);
    EXPECT_SOUND(list);
    aaa_avpair_free_list(list);
}

TEST(AvpairCreate, TakesNoNameAndAnEmptyName) {
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        const ListPtr list = make_list(name);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(bytes_of(list.get(), 56), std::string(56, '\0'));
    }
}

TEST(AvpairCreate, TakesThirtyCharacters) {
    const std::string name(30, 'n');
    const ListPtr list = make_list(name.c_str());
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(bytes_of(list->av_name, 31), name + '\0');
    EXPECT_EQ(list->pad55, 0);
}

TEST(AvpairCreate, RefusesThirtyOneCharacters) {
    avlist other{};
    avlist *list = &other;
    EXPECT_EQ(aaa_avpair_create_list(std::string(31, 'n').c_str(), &list), AAA_ERR_AVPAIR_PROCESSING);
    EXPECT_EQ(list, nullptr);
}

TEST(AvpairCreate, ReadsNoMoreOfALongNameThanItNeeds) {
    const GuardedPage page;
    avlist *list = nullptr;
    EXPECT_EQ(aaa_avpair_create_list(page.place(std::string(31, 'n')), &list), AAA_ERR_AVPAIR_PROCESSING);
}

TEST(AvpairCreate, RefusesANullOut) {
    EXPECT_EQ(aaa_avpair_create_list("name", nullptr), AAA_ERR_INVALID_ARG);
}

TEST(AvpairCreate, ReportsExhaustedMemoryAndStoresNull) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        avlist other{};
        avlist *list = &other;
        const cerrno code = fail.run([&] { return aaa_avpair_create_list("name", &list); });
        if (fail.fired()) {
            EXPECT_EQ(code, AAA_ERR_NOMEM);
            EXPECT_EQ(list, nullptr);
        } else {
            EXPECT_EQ(code, AAA_OK);
            EXPECT_EQ(fail.counted(), 1u);
            aaa_avpair_free_list(list);
        }
    });
}

// The record is made before the name is looked at.
TEST(AvpairCreate, ReportsExhaustedMemoryBeforeALongName) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    avlist *list = nullptr;
    fake::FailAlloc fail(1);
    const cerrno code = aaa_avpair_create_list("a name of more than thirty characters", &list);
    fail.disarm();
    EXPECT_EQ(code, AAA_ERR_NOMEM);
}

// ---- Clearing and freeing ------------------------------------------------------

TEST(AvpairClear, IgnoresANullList) {
    aaa_avpair_clear(nullptr);
}

TEST(AvpairClear, EmptiesTheListAndKeepsNameAndReservedBytes) {
    const ListPtr list = make_list("kept");
    list->reserved0 = 0x11223344;
    list->marker = 0x55;
    list->reserved5 = 0x66;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(add(list.get(), kName, "value"), AAA_OK);
    }
    ASSERT_GT(mem_usage(list.get()).buf_cnt, 1u);
    aaa_avpair_clear(list.get());
    EXPECT_EQ(list->av_cnt, 0);
    EXPECT_EQ(list->avpair_first_buf, nullptr);
    EXPECT_EQ(list->avpair_last_buf, nullptr);
    EXPECT_STREQ(list->av_name, "kept");
    EXPECT_EQ(list->reserved0, 0x11223344u);
    EXPECT_EQ(list->marker, 0x55);
    EXPECT_EQ(list->reserved5, 0x66);
}

TEST(AvpairClear, LeavesAListThatAcceptsPairs) {
    const ListPtr list = make_list("kept");
    ASSERT_EQ(add(list.get(), kName, "one"), AAA_OK);
    aaa_avpair_clear(list.get());
    EXPECT_SOUND(list.get());
    ASSERT_EQ(add(list.get(), kName, "two"), AAA_OK);
    EXPECT_SOUND(list.get());
    ASSERT_EQ(read_pairs(list.get()).size(), 1u);
    EXPECT_EQ(read_pairs(list.get())[0].value, "two");
}

TEST(AvpairFree, IgnoresANullListWithoutATrace) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    aaa_avpair_free_list(nullptr);
    EXPECT_EQ(fake::traces(), std::vector<fake::Trace>{});
}

// Freeing wipes the contents of a buffer. It relies on the size of the block, not on
// an end that was overwritten.
TEST(AvpairFree, WipesNoMoreThanABufferWhoseEndIsBroken) {
    for (const std::ptrdiff_t offset : {-4, 0, 28, 516, 1 << 30}) {
        const ListPtr list = make_list();
        ASSERT_EQ(add(list.get(), kName, "v"), AAA_OK);
        avpair_buffer_t *const buf = list->avpair_last_buf;
        buf->hdr.free_mem = reinterpret_cast<unsigned char *>(buf) + offset;
        aaa_avpair_clear(list.get());
        EXPECT_SOUND(list.get());
    }
}

TEST(AvpairFree, TracesTheAddressWhenAsked) {
    avlist *list = nullptr;
    ASSERT_EQ(aaa_avpair_create_list("name", &list), AAA_OK);
    char wanted[64];
    std::snprintf(wanted, sizeof wanted, "Freeing AV list at %p", static_cast<void *>(list));
    fake::enable_tracing(AAA_DBG_AVLIST);
    aaa_avpair_free_list(list);
    EXPECT_EQ(fake::traces(), (std::vector<fake::Trace>{{8, wanted}}));
}

TEST(AvpairFree, TracesNothingOtherwise) {
    avlist *list = nullptr;
    ASSERT_EQ(aaa_avpair_create_list("name", &list), AAA_OK);
    aaa_avpair_free_list(list);
    EXPECT_EQ(fake::traces(), std::vector<fake::Trace>{});
}

// ---- Small reads -----------------------------------------------------------------

TEST(AvpairStorage, FirstPairLies32BytesIntoTheBuffer) {
    avpair_buffer_t buffer{};
    EXPECT_EQ(reinterpret_cast<char *>(aaa_avpair_get_first_avpair_in_buf(&buffer)),
              reinterpret_cast<char *>(&buffer) + 32);
    EXPECT_EQ(aaa_avpair_get_first_avpair_in_buf(nullptr), nullptr);
}

TEST(AvpairStorage, OnlyType2070IsDeleted) {
    for (const uint32_t type : {0u, 1u, 2069u, 2071u, 2070u << 16, 0xffffffffu}) {
        const avpair_t pair{type, 2070, 2070, 2070};
        EXPECT_EQ(aaa_avpair_is_deleted(&pair), 0) << type;
    }
    const avpair_t deleted{2070, 0, 0, 0};
    EXPECT_EQ(aaa_avpair_is_deleted(&deleted), 1);
    EXPECT_EQ(aaa_avpair_is_deleted(nullptr), 0);
}

// ---- Appending -------------------------------------------------------------------

TEST(AvpairAdd, StoresThePairByteForByte) {
    dirty_free_blocks(512);
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_add(0x101, 0x80000004, "bob", 0x01020304, 3, list.get()), AAA_OK);
    const avpair_buffer_t *const buffer = list->avpair_first_buf;
    EXPECT_EQ(list->av_cnt, 1);
    EXPECT_EQ(list->avpair_last_buf, buffer);
    EXPECT_EQ(buffer->hdr.prev, nullptr);
    EXPECT_EQ(buffer->hdr.next, nullptr);
    EXPECT_EQ(buffer->hdr.buf_size, 512u);
    EXPECT_EQ(buffer->hdr.pad28, 0u);
    const auto *const first = reinterpret_cast<const unsigned char *>(buffer) + 32;
    EXPECT_EQ(buffer->hdr.free_mem, first + 20);
    const std::string wanted(
        "\x01\x01\0\0"
        "\x04\x03\x02\x01"
        "\x03\0\0\0"
        "\x04\0\0\x80"
        "bob\0",
        20);
    EXPECT_EQ(bytes_of(first, 20), wanted);
}

TEST(AvpairAdd, WithTagDiffersInTheArgumentOrderOnly) {
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_add(kName, 5, "value", 2, 4, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_add_with_tag(kName, 5, "value", 4, 2, list.get()), AAA_OK);
    const std::vector<ModelPair> pairs = read_pairs(list.get());
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_EQ(pairs[0], (ModelPair{kName, 2, 5, "valu"}));
    EXPECT_EQ(pairs[1], pairs[0]);
}

TEST(AvpairAdd, CopiesTheValue) {
    const ListPtr list = make_list();
    char value[] = "before";
    ASSERT_EQ(add(list.get(), kName, value), AAA_OK);
    std::memcpy(value, "after!", 6);
    EXPECT_EQ(read_pairs(list.get())[0].value, "before");
}

// Values are copied in chunks: every length has to come out whole, without a
// byte read after the value or before it, and with zeros up to the next pair.
TEST(AvpairAdd, CopiesEveryLengthWithoutReadingPastTheValue) {
    const GuardedPage page;
    std::string source(300, '\0');
    std::iota(source.begin(), source.end(), '\1');
    for (std::size_t len = 0; len <= source.size(); ++len) {
        SCOPED_TRACE(len);
        dirty_free_blocks(512);
        const std::string value = source.substr(source.size() - len);
        const ListPtr list = make_list();
        ASSERT_EQ(add(list.get(), kName, {page.place(value), len}), AAA_OK);
        EXPECT_SOUND(list.get());
        const std::vector<ModelPair> pairs = read_pairs(list.get());
        ASSERT_EQ(pairs.size(), 1u);
        EXPECT_EQ(pairs[0].value, value);
        EXPECT_EQ(mem_usage(list.get()).used_mem, (16 + len + 3) / 4 * 4);
    }
}

TEST(AvpairAdd, TakesANullValueOfNoBytes) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    dirty_free_blocks(512);
    const ListPtr list = make_list();
    EXPECT_EQ(aaa_avpair_add(kName, 1, nullptr, 2, 0, list.get()), AAA_OK);
    EXPECT_EQ(aaa_avpair_add_with_tag(kName, 1, nullptr, 0, 2, list.get()), AAA_OK);
    EXPECT_EQ(fake::traces(), std::vector<fake::Trace>{});
    EXPECT_SOUND(list.get());
    EXPECT_EQ(read_pairs(list.get()), std::vector<ModelPair>(2, ModelPair{kName, 2, 1, ""}));
    EXPECT_EQ(mem_usage(list.get()).used_mem, 32u);
}

TEST(AvpairAdd, TakesAValueOfNoBytes) {
    const ListPtr list = make_list();
    EXPECT_EQ(aaa_avpair_add(kName, 1, "ignored", 2, 0, list.get()), AAA_OK);
    EXPECT_EQ(read_pairs(list.get()), (std::vector<ModelPair>{{kName, 2, 1, ""}}));
}

TEST(AvpairAdd, StoresAnyTypeButTheDeletedMarker) {
    const ListPtr list = make_list();
    const std::vector<uint32_t> types{0, 1, 90, 2069, 2071, 0x7fffffff, 0xffffffff};
    for (const uint32_t type : types) {
        EXPECT_EQ(add(list.get(), type, "v"), AAA_OK);
    }
    EXPECT_SOUND(list.get());
    const std::vector<ModelPair> pairs = read_pairs(list.get());
    ASSERT_EQ(pairs.size(), types.size());
    for (std::size_t i = 0; i < types.size(); ++i) {
        EXPECT_EQ(pairs[i].type, types[i]);
    }
}

TEST(AvpairAdd, RefusesANullListAndANullValueWithALength) {
    const ListPtr list = make_list();
    EXPECT_EQ(aaa_avpair_add(kName, 0, "value", 0, 5, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 1, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add_with_tag(kName, 0, "value", 5, 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add_with_tag(kName, 0, nullptr, 0, 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add_with_tag(kName, 0, nullptr, 1, 0, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(list->av_cnt, 0);
    EXPECT_SOUND(list.get());
}

struct BufferSize {
    uint32_t len, size;
};

TEST(AvpairAdd, SizesTheFirstBufferByTheValue) {
    for (const auto &[len, size] : {BufferSize{0, 512},
                                    {463, 512},
                                    {464, 512},
                                    {465, 516},
                                    {466, 516},
                                    {468, 516},
                                    {469, 520},
                                    {1000, 1048},
                                    {65536, 65584}}) {
        const ListPtr list = make_list();
        ASSERT_EQ(add(list.get(), kName, std::string(len, 'v')), AAA_OK);
        EXPECT_SOUND(list.get());
        EXPECT_EQ(list->avpair_first_buf->hdr.buf_size, size) << len;
        EXPECT_EQ(mem_usage(list.get()).total_mem, size) << len;
    }
}

TEST(AvpairAdd, FillsABufferToItsLastByte) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, std::string(224, 'a')), AAA_OK);  // 240 of 480 bytes
    ASSERT_EQ(add(list.get(), kName, std::string(224, 'b')), AAA_OK);
    EXPECT_EQ(mem_usage(list.get()).buf_cnt, 1u);
    EXPECT_EQ(list->avpair_first_buf->hdr.free_mem,
              reinterpret_cast<unsigned char *>(list->avpair_first_buf) + 512);
    ASSERT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 0, list.get()), AAA_OK);
    EXPECT_EQ(mem_usage(list.get()).buf_cnt, 2u);
    EXPECT_SOUND(list.get());
}

// The room that is asked for is not rounded up: 17 bytes fit into 20.
TEST(AvpairAdd, UsesRoomThatOnlyTheRoundingFills) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, std::string(444, 'a')), AAA_OK);  // leaves 20
    ASSERT_EQ(add(list.get(), kName, "b"), AAA_OK);
    EXPECT_EQ(mem_usage(list.get()).buf_cnt, 1u);
    EXPECT_EQ(mem_usage(list.get()).used_mem, 480u);
    EXPECT_SOUND(list.get());
}

TEST(AvpairAdd, StartsABufferForAPairOneByteTooLong) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, std::string(444, 'a')), AAA_OK);  // leaves 20
    ASSERT_EQ(add(list.get(), kName, "12345"), AAA_OK);
    EXPECT_EQ(mem_usage(list.get()).buf_cnt, 2u);
    EXPECT_SOUND(list.get());
}

TEST(AvpairAdd, LinksBuffersBothWays) {
    const ListPtr list = make_list();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(add(list.get(), kName, std::string(464, 'a')), AAA_OK);
    }
    const avpair_buffer_t *const first = list->avpair_first_buf;
    const avpair_buffer_t *const second = first->hdr.next;
    const avpair_buffer_t *const third = second->hdr.next;
    EXPECT_EQ(first->hdr.prev, nullptr);
    EXPECT_EQ(second->hdr.prev, first);
    EXPECT_EQ(third->hdr.prev, second);
    EXPECT_EQ(third->hdr.next, nullptr);
    EXPECT_EQ(list->avpair_last_buf, third);
}

TEST(AvpairAdd, NeverGoesBackToAnEarlierBuffer) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, "short"), AAA_OK);                // leaves plenty
    ASSERT_EQ(add(list.get(), kName, std::string(464, 'l')), AAA_OK);  // a buffer of its own, full
    ASSERT_EQ(add(list.get(), kName, "short"), AAA_OK);
    const std::vector<ModelBuffer> buffers = read_buffers(list.get());
    ASSERT_EQ(buffers.size(), 3u);
    for (const ModelBuffer &buffer : buffers) {
        EXPECT_EQ(buffer.pairs.size(), 1u);
    }
}

TEST(AvpairAdd, RoundsAPairUpToFourBytes) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, "1"), AAA_OK);
    ASSERT_EQ(add(list.get(), kName, "2"), AAA_OK);
    const avpair_t *const first = aaa_avpair_get_first_avpair_in_buf(list->avpair_first_buf);
    const avpair_t *const second = aaa_avpair_get_adjacent(first);
    EXPECT_EQ(reinterpret_cast<const char *>(second) - reinterpret_cast<const char *>(first), 20);
    EXPECT_EQ(bytes_of(second + 1, 1), "2");
}

TEST(AvpairAdd, TakesAValueOfTheSameList) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, "own value"), AAA_OK);
    void *value = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(aaa_avpair_find_type(kName, nullptr, &value, &len, 0, list.get()), AAA_OK);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(aaa_avpair_add(kName, 0, value, 0, len, list.get()), AAA_OK);
    }
    EXPECT_EQ(read_pairs(list.get()), std::vector<ModelPair>(101, ModelPair{kName, 0, 0, "own value"}));
}

TEST(AvpairAdd, Counts65535Pairs) {
#ifdef AAA_VERIFY_LISTS
    GTEST_SKIP() << "looks at the whole list after every pair";
#endif
    const ListPtr list = make_list();
    for (int i = 0; i < 65535; ++i) {
        ASSERT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 0, list.get()), AAA_OK);
    }
    EXPECT_EQ(list->av_cnt, 65535);
    EXPECT_SOUND(list.get());
}

// The count is not checked for overflow; a list of 65536 pairs cannot be told
// from an empty one, and the next operation on it stops the process. Freeing
// and clearing look at the buffers.
TEST(AvpairAdd, WrapsTheCountAt65536Pairs) {
#ifdef AAA_VERIFY_LISTS
    GTEST_SKIP() << "looks at the whole list after every pair";
#endif
    const ListPtr list = make_list();
    for (int i = 0; i < 65536; ++i) {
        ASSERT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 0, list.get()), AAA_OK);
    }
    EXPECT_EQ(list->av_cnt, 0);
    EXPECT_NE(list->avpair_first_buf, nullptr);
    aaa_avpair_clear(list.get());
    EXPECT_SOUND(list.get());
}

// The count of an unpacked list is in message order. It may wrap long before
// the list has that many pairs, and the list has to survive it.
TEST(AvpairAdd, RepairsTheCountOfAnUnpackedListWhenItWraps) {
    const ListPtr list = make_list();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(add(list.get(), kName, "v"), AAA_OK);
    }
    list->av_cnt = 0xffff;
    ASSERT_EQ(add(list.get(), kName, "w"), AAA_OK);
    EXPECT_EQ(list->av_cnt, 4);
    EXPECT_SOUND(list.get());
}

// ---- Appending: exhausted memory and sizes that no buffer has ----------------------

TEST(AvpairAdd, LeavesTheListAsItWasWhenMemoryIsExhausted) {
    for (const uint32_t filled : {0u, 1u, 464u}) {  // no buffer yet, room in it, a full one
        SCOPED_TRACE(filled);
        fake::sweep_allocations([filled](fake::FailAlloc &fail) {
            const ListPtr list = make_list("name");
            if (filled != 0) {
                ASSERT_EQ(add(list.get(), kName, std::string(filled, 'f')), AAA_OK);
            }
            const std::string record = bytes_of(list.get(), sizeof(avlist));
            const std::vector<ModelPair> pairs = read_pairs(list.get());
            const std::string value(600, 'v');
            const cerrno code = fail.run([&] { return add(list.get(), kName, value); });
            EXPECT_SOUND(list.get());
            if (fail.fired()) {
                EXPECT_EQ(code, AAA_ERR_NOMEM);
                EXPECT_EQ(bytes_of(list.get(), sizeof(avlist)), record);
                EXPECT_EQ(read_pairs(list.get()), pairs);
            } else {
                EXPECT_EQ(code, AAA_OK);
                EXPECT_EQ(fail.counted(), 1u);
            }
        });
    }
}

TEST(AvpairAdd, AllocatesNothingWhileThereIsRoom) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, "first"), AAA_OK);
    fake::FailAlloc fail(1);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(aaa_avpair_add(kName, 0, "value", 0, 5, list.get()), AAA_OK);
    }
    fail.disarm();
    EXPECT_EQ(fail.counted(), 0u);
}

// A block size that 32 bits cannot hold is exhausted memory, not a small block.
TEST(AvpairAdd, RefusesSizesBeyondABuffer) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, "first"), AAA_OK);
    for (const uint32_t len :
         {0xffffffcdu, 0xffffffdcu, 0xffffffddu, 0xffffffefu, 0xfffffff1u, 0xfffffffdu, 0xffffffffu}) {
        EXPECT_EQ(aaa_avpair_add(kName, 0, "value", 0, len, list.get()), AAA_ERR_NOMEM) << len;
        EXPECT_EQ(aaa_avpair_add_with_tag(kName, 0, "value", len, 0, list.get()), AAA_ERR_NOMEM) << len;
    }
    EXPECT_EQ(read_pairs(list.get()).size(), 1u);
    EXPECT_SOUND(list.get());
}

TEST(AvpairAdd, AsksForTheLargestBufferThereIs) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    const ListPtr list = make_list();
    fake::FailAlloc fail(1);
    const cerrno largest = aaa_avpair_add(kName, 0, "value", 0, 0xffffffcc, list.get());
    fail.disarm();
    EXPECT_EQ(largest, AAA_ERR_NOMEM);
    EXPECT_EQ(fail.counted(), 1u);
}

// ---- Appending: traces -------------------------------------------------------------

TEST(AvpairAddTrace, ShowsTypeNameFourBytesAndOutcome) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_add(kName, 0,
                             "\x01\xfe"
                             "Az",
                             0, 4, list.get()),
              AAA_OK);
    EXPECT_EQ(fake::traces(),
              (std::vector<fake::Trace>{
                  {8, "Adding attr 101 AAA_USERNAME_ATTR [1 fe 41 7a] - " + text_of(AAA_OK)}}));
}

TEST(AvpairAddTrace, WithTagLacksTheNumericType) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_add_with_tag(kName, 0,
                                      "\x01\xfe"
                                      "Az",
                                      4, 0, list.get()),
              AAA_OK);
    EXPECT_EQ(
        fake::traces(),
        (std::vector<fake::Trace>{{8, "Adding attr AAA_USERNAME_ATTR [1 fe 41 7a] - " + text_of(AAA_OK)}}));
}

TEST(AvpairAddTrace, IsSilentWhileTracingIsOff) {
    fake::enable_tracing(AAA_DBG_AVLIST + 1);
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_add(kName, 0, "value", 0, 5, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_add_with_tag(kName, 0, "value", 5, 0, list.get()), AAA_OK);
    EXPECT_EQ(fake::traces(), std::vector<fake::Trace>{});
}

TEST(AvpairAddTrace, AsksOnceWhetherToTrace) {
    const ListPtr list = make_list();
    const unsigned before = fake::count("aaa_debugging");
    ASSERT_EQ(aaa_avpair_add(kName, 0, "value", 0, 5, list.get()), AAA_OK);
    EXPECT_EQ(fake::count("aaa_debugging"), before + (fake::has_debug_word() ? 0 : 1));
}

TEST(AvpairAddTrace, ReportsANullListToo) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    EXPECT_EQ(aaa_avpair_add(kName, 0, "abcd", 0, 4, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add_with_tag(kName, 0, "abcd", 4, 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Adding attr 101 AAA_USERNAME_ATTR [61 62 63 64] - " + text_of(AAA_ERR_INVALID_ARG),
                     "Adding attr AAA_USERNAME_ATTR [61 62 63 64] - " + text_of(AAA_ERR_INVALID_ARG)}));
}

TEST(AvpairAddTrace, ReportsExhaustedMemoryToo) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const ListPtr list = make_list();
    EXPECT_EQ(aaa_avpair_add(kName, 0, "abcd", 0, 0xffffffff, list.get()), AAA_ERR_NOMEM);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Adding attr 101 AAA_USERNAME_ATTR [61 62 63 64] - " + text_of(AAA_ERR_NOMEM)}));
}

TEST(AvpairAddTrace, IsSilentAboutANullValue) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const ListPtr list = make_list();
    EXPECT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 0, list.get()), AAA_OK);
    EXPECT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 4, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add(kName, 0, nullptr, 0, 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces(), std::vector<fake::Trace>{});
}

TEST(AvpairAddTrace, NamesTypesWithoutAName) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kNoName, "abcd"), AAA_OK);
    ASSERT_EQ(add(list.get(), 2071, "abcd"), AAA_OK);
    const std::string outcome = text_of(AAA_OK);
    EXPECT_EQ(fake::traces_of(8), (Lines{"Adding attr 5a (null) [61 62 63 64] - " + outcome,
                                         "Adding attr 817 <invalid attribute> [61 62 63 64] - " + outcome}));
}

// The line shows four bytes at every length; a value may be the start of
// something longer.
TEST(AvpairAddTrace, ShowsBytesAfterAShortValue) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const ListPtr list = make_list();
    alignas(8) static const char bytes[] = "abcdef";
    const std::string outcome = text_of(AAA_OK);
    Lines wanted;
    for (uint32_t len = 0; len < 4; ++len) {
        ASSERT_EQ(aaa_avpair_add(kName, 0, bytes, 0, len, list.get()), AAA_OK);
        wanted.push_back("Adding attr 101 AAA_USERNAME_ATTR [61 62 63 64] - " + outcome);
    }
    EXPECT_EQ(fake::traces_of(8), wanted);
}

TEST(AvpairAddTrace, DoesNotFaultAfterAShortValue) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const GuardedPage page;
    const ListPtr list = make_list();
    const std::string outcome = text_of(AAA_OK);
    const Lines bytes{"61 0 0 0", "61 62 0 0", "61 62 63 0", "61 62 63 64"};
    Lines wanted;
    for (std::size_t len = 1; len <= bytes.size(); ++len) {
        const std::string_view value = std::string_view("abcd").substr(0, len);
        ASSERT_EQ(add(list.get(), kName, {page.place(value), len}), AAA_OK);
        wanted.push_back("Adding attr 101 AAA_USERNAME_ATTR [" + bytes[len - 1] + "] - " + outcome);
    }
    EXPECT_EQ(fake::traces_of(8), wanted);
}

// A value without bytes is read on its own page, where that page begins and
// where it ends.
TEST(AvpairAddTrace, ShowsBytesOnThePageOfAValueWithoutBytes) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const GuardedPage page;
    const ListPtr list = make_list();
    char *const begin = page.end() - sysconf(_SC_PAGESIZE);
    std::memcpy(begin, "abcd", 4);
    ASSERT_EQ(aaa_avpair_add(kName, 0, begin, 0, 0, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_add_with_tag(kName, 0, begin, 0, 0, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_update(kName, 0, begin, 0, 0, 9, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_add(kName, 0, page.place("yz"), 0, 0, list.get()), AAA_OK);
    const std::string outcome = text_of(AAA_OK);
    EXPECT_EQ(fake::traces_of(8), (Lines{"Adding attr 101 AAA_USERNAME_ATTR [61 62 63 64] - " + outcome,
                                         "Adding attr AAA_USERNAME_ATTR [61 62 63 64] - " + outcome,
                                         "Updating attr AAA_USERNAME_ATTR [61 62 63 64]",
                                         "Adding attr 101 AAA_USERNAME_ATTR [61 62 63 64] - " + outcome,
                                         "Adding attr 101 AAA_USERNAME_ATTR [79 7a 0 0] - " + outcome}));
}

// The same with a heap block of one byte, so that the address sanitizer checks it.
TEST(AvpairAddTrace, MayReadAfterASmallBlock) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    const ListPtr list = make_list();
    const auto byte = std::make_unique<char>('a');
    EXPECT_EQ(aaa_avpair_add(kName, 0, byte.get(), 0, 1, list.get()), AAA_OK);
    ASSERT_EQ(fake::traces_of(8).size(), 1u);
    EXPECT_EQ(fake::traces_of(8)[0].find("Adding attr 101 AAA_USERNAME_ATTR [61 "), 0u);
}

// ---- Memory statistics ---------------------------------------------------------------

TEST(AvpairMemUsage, CountsOneSmallPair) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), kName, "1234"), AAA_OK);
    const avpair_mem_stats_t stats = mem_usage(list.get());
    EXPECT_EQ(stats.buf_cnt, 1u);
    EXPECT_EQ(stats.total_mem, 512u);
    EXPECT_EQ(stats.used_mem, 20u);
}

TEST(AvpairMemUsage, IsZeroForAnEmptyList) {
    const ListPtr list = make_list();
    avpair_mem_stats_t stats{1, 2, 3};
    EXPECT_EQ(aaa_avpair_get_mem_usage(list.get(), &stats), AAA_OK);
    EXPECT_EQ(bytes_of(&stats, sizeof stats), std::string(12, '\0'));
}

TEST(AvpairMemUsage, AddsUpAllBuffersAndDeletedPairs) {
    const ListPtr list = make_list();
    ASSERT_EQ(add(list.get(), 1, "1234"), AAA_OK);
    ASSERT_EQ(add(list.get(), 2, "12345"), AAA_OK);
    ASSERT_EQ(add(list.get(), 3, std::string(1000, 'x')), AAA_OK);
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(1, 0, list.get(), nullptr), AAA_OK);
    const avpair_mem_stats_t stats = mem_usage(list.get());
    EXPECT_EQ(stats.buf_cnt, 2u);
    EXPECT_EQ(stats.total_mem, 512u + 1048u);
    EXPECT_EQ(stats.used_mem, 20u + 24u + 1016u);
}

TEST(AvpairMemUsage, RefusesNulls) {
    const ListPtr list = make_list();
    avpair_mem_stats_t stats{1, 2, 3};
    EXPECT_EQ(aaa_avpair_get_mem_usage(nullptr, &stats), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_get_mem_usage(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_get_mem_usage(nullptr, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(stats.buf_cnt, 1u);
    EXPECT_EQ(stats.total_mem, 2u);
    EXPECT_EQ(stats.used_mem, 3u);
}

}  // namespace
