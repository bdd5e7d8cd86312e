// SPDX-License-Identifier: Apache-2.0
//
// Iteration and lookup: what is visited and in which order, what the end
// looks like, what is handed back, and the trace lines.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "platform/cerr.h"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace aaatest;

using Lines = std::vector<std::string>;
using Numbers = std::vector<uint32_t>;

constexpr uint32_t kName = 257;   // AAA_USERNAME_ATTR
constexpr uint32_t kNoName = 90;  // an empty row of the dictionary

avpair_t *const kUntouched = reinterpret_cast<avpair_t *>(0x1234);

void add(avlist *list, uint32_t type, std::string_view value = "v", uint32_t flags = 0, uint32_t tag = 0) {
    ASSERT_EQ(aaa_avpair_add(type, flags, value.data(), tag, static_cast<uint32_t>(value.size()), list),
              AAA_OK);
}

ListPtr list_of(const Numbers &types, std::size_t value_len = 1) {
    ListPtr list = make_list("list");
    for (const uint32_t type : types) {
        add(list.get(), type, std::string(value_len, 'v'));
    }
    return list;
}

void erase(avlist *list, uint32_t type) {
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(type, 0, list, nullptr), AAA_OK);
}

// Types in the order of the exported iterator.
Numbers walk(const avlist *list) {
    Numbers types;
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    cerrno code = aaa_avpair_iterator_init(&it, list, &pair);
    for (; code == AAA_OK; code = aaa_avpair_iterator_get_next(&it, &pair)) {
        EXPECT_EQ(pair, it.curr_avp);
        types.push_back(pair->av_type);
    }
    EXPECT_EQ(code, AAA_STATUS_END_OF_LIST);
    return types;
}

// ---- Iteration -----------------------------------------------------------------

TEST(AvpairIterator, EndIsAStatusOfItsOwn) {
    EXPECT_EQ(AAA_STATUS_END_OF_LIST, 0x22466000u);
    EXPECT_NE(AAA_STATUS_END_OF_LIST, AAA_ERR_END_OF_LIST);
}

TEST(AvpairIterator, VisitsPairsInTheOrderOfAdding) {
    const ListPtr list = list_of({5, 3, 9, 3});
    EXPECT_EQ(walk(list.get()), (Numbers{5, 3, 9, 3}));
}

TEST(AvpairIterator, CapturesTheBuffersAndTheFirstPair) {
    const ListPtr list = list_of({1, 2}, 464);
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
    EXPECT_EQ(it.curr_buf, list->avpair_first_buf);
    EXPECT_EQ(it.last_buf, list->avpair_last_buf);
    EXPECT_EQ(it.curr_avp, aaa_avpair_get_first_avpair_in_buf(list->avpair_first_buf));
    EXPECT_EQ(pair, it.curr_avp);
    ASSERT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_OK);
    EXPECT_EQ(it.curr_buf, list->avpair_last_buf);
    EXPECT_EQ(it.last_buf, list->avpair_last_buf);
    EXPECT_EQ(pair, aaa_avpair_get_first_avpair_in_buf(list->avpair_last_buf));
}

TEST(AvpairIterator, CrossesBuffers) {
    Numbers types;
    for (uint32_t i = 0; i < 300; ++i) {
        types.push_back(i);
    }
    const ListPtr list = list_of(types, 40);
    ASSERT_NE(list->avpair_first_buf->hdr.next, nullptr);
    EXPECT_EQ(walk(list.get()), types);
}

TEST(AvpairIterator, PassesOverDeletedPairs) {
    const ListPtr list = list_of({1, 2, 3, 4, 5, 6});
    erase(list.get(), 1);
    erase(list.get(), 3);
    erase(list.get(), 4);
    EXPECT_EQ(walk(list.get()), (Numbers{2, 5, 6}));
}

TEST(AvpairIterator, StartsAtTheFirstLivePair) {
    const ListPtr list = list_of({1, 2, 3});
    erase(list.get(), 1);
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
    EXPECT_EQ(pair->av_type, 2u);
    EXPECT_EQ(pair, aaa_avpair_get_adjacent(aaa_avpair_get_first_avpair_in_buf(list->avpair_first_buf)));
}

TEST(AvpairIterator, ReportsTheEndOfAnEmptyListAndTouchesNoOutput) {
    const ListPtr list = make_list();
    aaa_avpair_iterator_t it{};
    it.curr_avp = kUntouched;
    avpair_t *pair = kUntouched;
    EXPECT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_STATUS_END_OF_LIST);
    EXPECT_EQ(pair, kUntouched);
    EXPECT_EQ(it.curr_avp, kUntouched);
    EXPECT_EQ(it.curr_buf, nullptr);
    EXPECT_EQ(it.last_buf, nullptr);
}

TEST(AvpairIterator, ReportsTheEndOfAListWhosePairsAreAllDeleted) {
    const ListPtr list = list_of({1, 2, 3});
    for (const uint32_t type : {2u, 1u, 3u}) {
        erase(list.get(), type);
    }
    EXPECT_EQ(list->avpair_first_buf, nullptr);
    EXPECT_EQ(walk(list.get()), Numbers{});
}

TEST(AvpairIterator, ReportsTheEndAgainAndStaysAtTheLastPair) {
    const ListPtr list = list_of({1, 2});
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
    ASSERT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_OK);
    avpair_t *const last = pair;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_STATUS_END_OF_LIST);
        EXPECT_EQ(it.curr_avp, last);
        EXPECT_EQ(pair, last);
    }
}

TEST(AvpairIterator, VisitsPairsAddedToTheLastBufferMeanwhile) {
    const ListPtr list = list_of({1});
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
    EXPECT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_STATUS_END_OF_LIST);
    add(list.get(), 2);
    ASSERT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_OK);
    EXPECT_EQ(pair->av_type, 2u);
}

TEST(AvpairIterator, EndsWithTheBufferThatWasTheLast) {
    const ListPtr list = list_of({1});
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
    add(list.get(), 2, std::string(600, 'x'));
    EXPECT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_STATUS_END_OF_LIST);
}

TEST(AvpairIterator, RefusesNulls) {
    const ListPtr list = list_of({1});
    aaa_avpair_iterator_t it{};
    avpair_t *pair = kUntouched;
    EXPECT_EQ(aaa_avpair_iterator_init(nullptr, list.get(), &pair), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_iterator_init(&it, nullptr, &pair), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_iterator_init(&it, list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(it.curr_buf, nullptr);
    EXPECT_EQ(aaa_avpair_iterator_get_next(nullptr, &pair), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_ERR_INVALID_ARG);  // no position
    EXPECT_EQ(pair, kUntouched);
    ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
    EXPECT_EQ(aaa_avpair_iterator_get_next(&it, nullptr), AAA_ERR_INVALID_ARG);
    it.curr_buf = nullptr;
    EXPECT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_ERR_INVALID_ARG);
}

// A packed list keeps its lengths in network order and must not be used; a
// walk over it nevertheless stays inside the buffer.
TEST(AvpairIterator, DoesNotFollowALengthOutOfTheBuffer) {
    const ListPtr list = list_of({1, 2, 3}, 4);
    aaa_avpair_get_first_avpair_in_buf(list->avpair_first_buf)->av_len = 0x04000000;
    EXPECT_EQ(walk(list.get()), (Numbers{1}));
    aaa_avpair_get_first_avpair_in_buf(list->avpair_first_buf)->av_len = 0xffffffff;
    EXPECT_EQ(walk(list.get()), (Numbers{1}));
    EXPECT_EQ(aaa_avpair_find_type(3, nullptr, nullptr, nullptr, 0, list.get()), AAA_ERR_AVPAIR_NOT_FOUND);
    aaa_avpair_get_first_avpair_in_buf(list->avpair_first_buf)->av_len = 4;
}

// The bytes after free_mem are not a pair, in a buffer without pairs neither.
TEST(AvpairFindType, LooksAtNothingAfterTheEnd) {
    const ListPtr list = list_of({1, 2, 3}, 4);
    avpair_buffer_t *const buf = list->avpair_first_buf;
    unsigned char *const end = buf->hdr.free_mem;
    for (uint32_t pairs = 0; pairs <= 3; ++pairs) {
        buf->hdr.free_mem = end - std::ptrdiff_t{20} * (3 - pairs);
        for (uint32_t type = 1; type <= 3; ++type) {
            EXPECT_EQ(aaa_avpair_find_type(type, nullptr, nullptr, nullptr, 0, list.get()),
                      type <= pairs ? AAA_OK : AAA_ERR_AVPAIR_NOT_FOUND)
                << type << " of " << pairs;
        }
    }
}

TEST(AvpairAdjacent, RoundsUpToFourBytes) {
    alignas(16) avpair_t pair{};
    for (const auto &[len, distance] :
         std::vector<std::pair<uint32_t, std::ptrdiff_t>>{{0, 16},
                                                          {1, 20},
                                                          {3, 20},
                                                          {4, 20},
                                                          {5, 24},
                                                          {1000, 1016},
                                                          {0x7fffffff, 0x80000010},
                                                          {0xffffffff, 0x100000010}}) {
        pair.av_len = len;
        EXPECT_EQ(
            static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(aaa_avpair_get_adjacent(&pair)) -
                                        reinterpret_cast<std::uintptr_t>(&pair)),
            distance)
            << len;
    }
}

TEST(AvpairAdjacent, LooksAtNothingButTheLength) {
    const avpair_t deleted{AAA_ATTR_MAX, 9, 4, 9};
    EXPECT_EQ(reinterpret_cast<const char *>(aaa_avpair_get_adjacent(&deleted)),
              reinterpret_cast<const char *>(&deleted) + 20);
}

// ---- Lookup by type --------------------------------------------------------------

TEST(AvpairFindType, HandsBackFlagsAddressAndLength) {
    const ListPtr list = make_list();
    add(list.get(), 1, "other");
    add(list.get(), kName, "alice", 0x404, 7);
    avpair_flags_t flags = 0;
    void *value = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(aaa_avpair_find_type(kName, &flags, &value, &len, 0, list.get()), AAA_OK);
    EXPECT_EQ(flags, 0x404u);
    EXPECT_EQ(len, 5u);
    const avpair_t *const pair =
        aaa_avpair_get_adjacent(aaa_avpair_get_first_avpair_in_buf(list->avpair_first_buf));
    EXPECT_EQ(value, pair + 1);  // the stored bytes themselves
    EXPECT_EQ(std::memcmp(value, "alice", 5), 0);
}

TEST(AvpairFindType, TakesNullOutputs) {
    const ListPtr list = list_of({kName});
    EXPECT_EQ(aaa_avpair_find_type(kName, nullptr, nullptr, nullptr, 0, list.get()), AAA_OK);
    avpair_flags_t flags = 9;
    EXPECT_EQ(aaa_avpair_find_type(kName, &flags, nullptr, nullptr, 0, list.get()), AAA_OK);
    EXPECT_EQ(flags, 0u);
}

TEST(AvpairFindType, CountsOccurrencesOfTheTypeOnly) {
    const ListPtr list = make_list();
    for (const auto &[type, value] : std::vector<std::pair<uint32_t, const char *>>{
             {1, "a"}, {2, "b"}, {1, "c"}, {3, "d"}, {2, "e"}, {1, "f"}}) {
        add(list.get(), type, value);
    }
    const auto value_of = [&](uint32_t type, uint32_t instance) {
        void *value = nullptr;
        uint32_t len = 0;
        const cerrno code = aaa_avpair_find_type(type, nullptr, &value, &len, instance, list.get());
        return code == AAA_OK ? std::string(static_cast<char *>(value), len) : "none";
    };
    EXPECT_EQ(value_of(1, 0), "a");
    EXPECT_EQ(value_of(1, 1), "c");
    EXPECT_EQ(value_of(1, 2), "f");
    EXPECT_EQ(value_of(1, 3), "none");
    EXPECT_EQ(value_of(2, 1), "e");
    EXPECT_EQ(value_of(3, 0), "d");
    EXPECT_EQ(value_of(3, 1), "none");
    EXPECT_EQ(value_of(4, 0), "none");
    EXPECT_EQ(value_of(1, 0xffffffff), "none");
}

TEST(AvpairFindType, DoesNotCountDeletedPairs) {
    const ListPtr list = make_list();
    add(list.get(), 1, "a");
    add(list.get(), 1, "b");
    add(list.get(), 1, "c");
    erase(list.get(), 1);
    void *value = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(aaa_avpair_find_type(1, nullptr, &value, &len, 1, list.get()), AAA_OK);
    EXPECT_EQ(*static_cast<char *>(value), 'c');
}

TEST(AvpairFindType, DoesNotFindDeletedPairsByTheirMarker) {
    const ListPtr list = list_of({1, 2});
    erase(list.get(), 1);
    EXPECT_EQ(aaa_avpair_find_type(AAA_ATTR_MAX, nullptr, nullptr, nullptr, 0, list.get()),
              AAA_ERR_AVPAIR_NOT_FOUND);
}

TEST(AvpairFindType, SearchesAllBuffers) {
    Numbers types;
    for (uint32_t i = 0; i < 200; ++i) {
        types.push_back(i);
    }
    const ListPtr list = list_of(types, 100);
    for (uint32_t i = 0; i < 200; ++i) {
        EXPECT_EQ(aaa_avpair_find_type(i, nullptr, nullptr, nullptr, 0, list.get()), AAA_OK) << i;
    }
    EXPECT_EQ(aaa_avpair_find_type(200, nullptr, nullptr, nullptr, 0, list.get()), AAA_ERR_AVPAIR_NOT_FOUND);
}

// Lists of every length up to a few more than one step of the walk, in one buffer
// and in several: the pair at each place is found, a type that is not there is not.
TEST(AvpairFindType, FindsThePairAtEachPlace) {
    for (const std::size_t value_len : {0u, 4u, 30u, 200u}) {
        for (uint32_t count = 1; count <= 40; ++count) {
            const ListPtr list = make_list();
            for (uint32_t i = 0; i < count; ++i) {
                add(list.get(), 100 + i, std::string(value_len, 'v'), i, 7);
            }
            aaa_avpair_iterator_t it{};
            avpair_t *pair = nullptr;
            ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
            for (uint32_t i = 0; i < count; ++i) {
                avpair_flags_t flags = 0;
                void *value = nullptr;
                uint32_t len = 9999;
                EXPECT_EQ(aaa_avpair_find_type(100 + i, &flags, &value, &len, 0, list.get()), AAA_OK);
                EXPECT_EQ(value, pair + 1) << i << " of " << count;
                EXPECT_EQ(flags, i);
                EXPECT_EQ(len, value_len);
                EXPECT_EQ(aaa_avpair_find_type(100 + i, nullptr, nullptr, nullptr, 1, list.get()),
                          AAA_ERR_AVPAIR_NOT_FOUND);
                aaa_avpair_iterator_get_next(&it, &pair);
            }
            EXPECT_EQ(aaa_avpair_find_type(99, nullptr, nullptr, nullptr, 0, list.get()),
                      AAA_ERR_AVPAIR_NOT_FOUND);
        }
    }
}

// Of two pairs of one type the first counts, at any two places.
TEST(AvpairFindType, FindsTheFirstOfTwo) {
    constexpr uint32_t kCount = 30;
    for (uint32_t first = 0; first < kCount; ++first) {
        for (uint32_t second = first + 1; second < kCount; ++second) {
            Numbers types(kCount, 1);
            types[first] = types[second] = 2;
            const ListPtr list = make_list();
            for (uint32_t i = 0; i < kCount; ++i) {
                add(list.get(), types[i], std::string(1 + i, 'v'));
            }
            uint32_t len = 0;
            ASSERT_EQ(aaa_avpair_find_type(2, nullptr, nullptr, &len, 0, list.get()), AAA_OK);
            EXPECT_EQ(len, 1 + first);
            ASSERT_EQ(aaa_avpair_find_type(2, nullptr, nullptr, &len, 1, list.get()), AAA_OK);
            EXPECT_EQ(len, 1 + second);
        }
    }
}

TEST(AvpairFindType, LeavesOutputsAloneOnFailure) {
    const ListPtr list = list_of({1});
    const ListPtr empty = make_list();
    avpair_flags_t flags = 11;
    void *value = &flags;
    uint32_t len = 22;
    EXPECT_EQ(aaa_avpair_find_type(2, &flags, &value, &len, 0, list.get()), AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(aaa_avpair_find_type(1, &flags, &value, &len, 0, empty.get()), AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(aaa_avpair_find_type(1, &flags, &value, &len, 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(flags, 11u);
    EXPECT_EQ(value, &flags);
    EXPECT_EQ(len, 22u);
}

// ---- Lookup by type: traces --------------------------------------------------------

TEST(AvpairFindTypeTrace, ShowsWhatWasFound) {
    const ListPtr list = make_list();
    add(list.get(), kName, {"\x04\x03\x02\x01zz", 6}, 0x404);
    fake::enable_tracing(AAA_DBG_AVLIST);
    avpair_flags_t flags = 0;
    void *value = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(aaa_avpair_find_type(kName, &flags, &value, &len, 0, list.get()), AAA_OK);
    EXPECT_EQ(fake::traces(),
              (std::vector<fake::Trace>{
                  {8, "Found attr 101 AAA_USERNAME_ATTR [1020304] 404 6 " + std::string(cerr_strerror(0))}}));
}

TEST(AvpairFindTypeTrace, ShowsStandInsForWhatWasNotAsked) {
    const ListPtr list = make_list();
    add(list.get(), kName, "abcdef", 0x404);
    fake::enable_tracing(AAA_DBG_AVLIST);
    avpair_flags_t flags = 0;
    void *value = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(aaa_avpair_find_type(kName, nullptr, nullptr, nullptr, 0, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_find_type(kName, &flags, nullptr, nullptr, 0, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_find_type(kName, nullptr, &value, nullptr, 0, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_find_type(kName, nullptr, nullptr, &len, 0, list.get()), AAA_OK);
    const std::string outcome = cerr_strerror(0);
    EXPECT_EQ(fake::traces_of(8), (Lines{"Found attr 101 AAA_USERNAME_ATTR [deadbeef] 0 0 " + outcome,
                                         "Found attr 101 AAA_USERNAME_ATTR [deadbeef] 404 0 " + outcome,
                                         "Found attr 101 AAA_USERNAME_ATTR [64636261] 0 0 " + outcome,
                                         "Found attr 101 AAA_USERNAME_ATTR [deadbeef] 0 6 " + outcome}));
}

// Bytes after a short value belong to the next pair or are unused.
TEST(AvpairFindTypeTrace, ReadsNoMoreThanTheValueHolds) {
    const ListPtr list = make_list();
    add(list.get(), 1, "");
    add(list.get(), 2, "a");
    add(list.get(), 3, "ab");
    add(list.get(), 4, "abc");
    fake::enable_tracing(AAA_DBG_AVLIST);
    Lines words;
    for (uint32_t type = 1; type <= 4; ++type) {
        fake::clear_journal();
        void *value = nullptr;
        ASSERT_EQ(aaa_avpair_find_type(type, nullptr, &value, nullptr, 0, list.get()), AAA_OK);
        const std::string line = fake::traces_of(8).back();
        words.push_back(line.substr(line.find('['), line.find(']') - line.find('[') + 1));
    }
    EXPECT_EQ(words, (Lines{"[0]", "[61]", "[6261]", "[636261]"}));
}

TEST(AvpairFindTypeTrace, ShowsWhatWasNotFound) {
    const ListPtr list = list_of({1});
    const ListPtr empty = make_list();
    fake::enable_tracing(AAA_DBG_AVLIST);
    EXPECT_EQ(aaa_avpair_find_type(kName, nullptr, nullptr, nullptr, 0, list.get()),
              AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(aaa_avpair_find_type(kNoName, nullptr, nullptr, nullptr, 0, empty.get()),
              AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(aaa_avpair_find_type(2071, nullptr, nullptr, nullptr, 0, empty.get()),
              AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(fake::traces(),
              (std::vector<fake::Trace>{{8, "Attr 101 AAA_USERNAME_ATTR not found: a2464800"},
                                        {8, "Attr 5a (null) not found: a2464800"},
                                        {8, "Attr 817 <invalid attribute> not found: a2464800"}}));
}

TEST(AvpairFindTypeTrace, IsSilentAboutANullListAndWhileTracingIsOff) {
    const ListPtr list = list_of({kName});
    EXPECT_EQ(aaa_avpair_find_type(kName, nullptr, nullptr, nullptr, 0, list.get()), AAA_OK);
    EXPECT_EQ(aaa_avpair_find_type(1, nullptr, nullptr, nullptr, 0, list.get()), AAA_ERR_AVPAIR_NOT_FOUND);
    fake::enable_tracing(AAA_DBG_AVLIST);
    EXPECT_EQ(aaa_avpair_find_type(kName, nullptr, nullptr, nullptr, 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces(), std::vector<fake::Trace>{});
}

// ---- Lookup by place ---------------------------------------------------------------

TEST(AvpairFindIndex, HandsBackEverything) {
    const ListPtr list = make_list();
    add(list.get(), 1, "first");
    add(list.get(), kName, "second", 0x80000001, 0x01020304);
    uint32_t type = 0;
    avpair_flags_t flags = 0;
    void *value = nullptr;
    uint32_t tag = 0;
    uint32_t len = 0;
    ASSERT_EQ(aaa_avpair_find_index(1, &type, &flags, &value, &tag, &len, list.get()), AAA_OK);
    EXPECT_EQ(type, kName);
    EXPECT_EQ(flags, 0x80000001u);
    EXPECT_EQ(tag, 0x01020304u);
    EXPECT_EQ(std::string(static_cast<char *>(value), len), "second");
}

TEST(AvpairFindIndex, CountsLivePairsAcrossBuffers) {
    const ListPtr list = list_of({1, 2, 3, 4, 5}, 200);
    erase(list.get(), 1);
    erase(list.get(), 3);
    Numbers types;
    for (uint32_t index = 0; index < 3; ++index) {
        uint32_t type = 0;
        ASSERT_EQ(aaa_avpair_find_index(index, &type, nullptr, nullptr, nullptr, nullptr, list.get()),
                  AAA_OK);
        types.push_back(type);
    }
    EXPECT_EQ(types, (Numbers{2, 4, 5}));
}

TEST(AvpairFindIndex, ReportsAMissingPairPastTheEnd) {
    const ListPtr list = list_of({1, 2});
    const ListPtr empty = make_list();
    uint32_t type = 11;
    avpair_flags_t flags = 12;
    void *value = &type;
    uint32_t tag = 13;
    uint32_t len = 14;
    for (const uint32_t index : {2u, 3u, 0xffffffffu}) {
        EXPECT_EQ(aaa_avpair_find_index(index, &type, &flags, &value, &tag, &len, list.get()),
                  AAA_ERR_AVPAIR_NOT_FOUND);
    }
    EXPECT_EQ(aaa_avpair_find_index(0, &type, &flags, &value, &tag, &len, empty.get()),
              AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(aaa_avpair_find_index(0, &type, &flags, &value, &tag, &len, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(type, 11u);
    EXPECT_EQ(flags, 12u);
    EXPECT_EQ(value, &type);
    EXPECT_EQ(tag, 13u);
    EXPECT_EQ(len, 14u);
}

TEST(AvpairFindIndex, TakesNullOutputsAndTracesNothing) {
    const ListPtr list = list_of({1});
    fake::enable_tracing(AAA_DBG_AVLIST);
    EXPECT_EQ(aaa_avpair_find_index(0, nullptr, nullptr, nullptr, nullptr, nullptr, list.get()), AAA_OK);
    EXPECT_EQ(aaa_avpair_find_index(1, nullptr, nullptr, nullptr, nullptr, nullptr, list.get()),
              AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(fake::traces(), std::vector<fake::Trace>{});
}

}  // namespace
