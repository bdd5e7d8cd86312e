// SPDX-License-Identifier: Apache-2.0
//
// Operations on two lists, or on a list and a callback.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "platform/cerr.h"
#include "support/assertion_report.hpp"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/guarded_page.hpp"
#include "support/page_end_list.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace aaatest;
using namespace std::string_literals;
using Lines = std::vector<std::string>;
using Pairs = std::vector<ModelPair>;

constexpr uint32_t kUser = 257;    // AAA_USERNAME_ATTR
constexpr uint32_t kCommand = 36;  // AAA_CMD_ATTR
constexpr uint32_t kPriv = 10;     // AAA_PRIV_LVL_ATTR
constexpr uint32_t kNoName = 90;   // an empty row of the dictionary

#define EXPECT_SOUND(list) EXPECT_STREQ(verify_list(list).fault, "")

void add(avlist *list, uint32_t type, std::string_view value, uint32_t flags = 0, uint32_t tag = 0) {
    ASSERT_EQ(aaa_avpair_add(type, flags, value.data(), tag, static_cast<uint32_t>(value.size()), list),
              AAA_OK);
}

void add(avlist *list, const Pairs &pairs) {
    for (const ModelPair &pair : pairs) {
        add(list, pair.type, pair.value, pair.flags, pair.tag);
    }
}

ListPtr list_of(const Pairs &pairs, const char *name = nullptr) {
    ListPtr list = make_list(name);
    add(list.get(), pairs);
    return list;
}

void erase(avlist *list, uint32_t type, uint32_t instance = 0) {
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(type, instance, list, nullptr), AAA_OK);
}

std::string record_of(const avlist *list) {
    return {reinterpret_cast<const char *>(list), sizeof *list};
}

// Longer than what is left of a buffer that holds another one.
std::string long_value(char c) {
    return std::string(300, c);
}

const Pairs kThree{{kUser, 1, 0x10, "alice"}, {kPriv, 2, 0x20, "\1\2\3\4"}, {kUser, 3, 0x30, "bob"}};

// The same list as it comes out of a message.
ListPtr unpacked(const Pairs &pairs, const char *name = nullptr) {
    const ListPtr original = list_of(pairs, name);
    std::vector<char> buf(60000);
    auto len = static_cast<uint32_t>(buf.size());
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(original.get(), buf.data(), &len), AAA_OK);
    avlist *list = nullptr;
    EXPECT_EQ(aaa_avpair_unpack_msg_create(&list, buf.data(), len), AAA_OK);
    return ListPtr(list);
}

// ---- Comparing pairs --------------------------------------------------------------------

// A pair with up to eight value bytes after its head.
struct PlainPair {
    avpair_t head;
    char value[8];
};

PlainPair plain_pair() {
    return {{kUser, 1, 4, 2}, {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}};
}

TEST(AvpairComparePairs, LooksAtEveryField) {
    const PlainPair a = plain_pair();
    PlainPair b = plain_pair();
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 1);
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &a.head), 1);
    b.head.av_type++;
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 0);
    b = plain_pair();
    b.head.av_tag++;
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 0);
    b = plain_pair();
    b.head.av_len = 3;
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 0);
    b = plain_pair();
    b.head.av_flags ^= 0x80000000u;
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 0);
    b = plain_pair();
    b.value[3] = 'x';
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 0);
}

TEST(AvpairComparePairs, DoesNotLookAfterTheValue) {
    const PlainPair a = plain_pair();
    PlainPair b = plain_pair();
    b.value[4] = 'x';
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 1);
}

TEST(AvpairComparePairs, TakesEmptyValuesAsEqual) {
    PlainPair a = plain_pair();
    PlainPair b = plain_pair();
    a.head.av_len = b.head.av_len = 0;
    b.value[0] = 'x';
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, &b.head), 1);
}

TEST(AvpairComparePairs, NeverFindsNullEqual) {
    const PlainPair a = plain_pair();
    EXPECT_EQ(aaa_avpair_compare_avpairs(nullptr, &a.head), 0);
    EXPECT_EQ(aaa_avpair_compare_avpairs(&a.head, nullptr), 0);
    EXPECT_EQ(aaa_avpair_compare_avpairs(nullptr, nullptr), 0);
}

// ---- Comparing lists --------------------------------------------------------------------

TEST(AvpairCompareLists, FindsEqualListsEqual) {
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(kThree, "n").get(), list_of(kThree, "n").get()), 1);
    const ListPtr list = list_of(kThree, "n");
    EXPECT_EQ(aaa_avpair_compare_lists(list.get(), list.get()), 1);
}

TEST(AvpairCompareLists, LooksAtNames) {
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(kThree, "one").get(), list_of(kThree, "other").get()), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(kThree, "one").get(), list_of(kThree, "ONE").get()), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(make_list("one").get(), make_list("one").get()), 1);
    EXPECT_EQ(aaa_avpair_compare_lists(make_list("one").get(), make_list("onetwo").get()), 0);
}

// Bytes after the end of a name, which a received message may have, are not part of it.
TEST(AvpairCompareLists, LooksAtNothingAfterTheNames) {
    const ListPtr a = list_of(kThree, "one");
    const ListPtr b = list_of(kThree, "one");
    b->av_name[4] = 'x';
    b->pad55 = 7;
    EXPECT_EQ(aaa_avpair_compare_lists(a.get(), b.get()), 1);
}

TEST(AvpairCompareLists, LooksAtTheMarker) {
    const ListPtr a = list_of(kThree);
    const ListPtr b = list_of(kThree);
    a->marker = 1;
    EXPECT_EQ(aaa_avpair_compare_lists(a.get(), b.get()), 0);
    b->marker = 1;
    EXPECT_EQ(aaa_avpair_compare_lists(a.get(), b.get()), 1);
    b->reserved0 = 7;
    b->reserved5 = 7;
    EXPECT_EQ(aaa_avpair_compare_lists(a.get(), b.get()), 1);
}

TEST(AvpairCompareLists, LooksAtPairsInOrder) {
    EXPECT_EQ(
        aaa_avpair_compare_lists(list_of(kThree).get(), list_of({kThree[0], kThree[2], kThree[1]}).get()), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(kThree).get(), list_of({kThree[0], kThree[1]}).get()), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(kThree).get(), make_list().get()), 0);
    Pairs changed = kThree;
    changed[2].value = "bOb";
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(kThree).get(), list_of(changed).get()), 0);
}

TEST(AvpairCompareLists, DoesNotLookAtDeletedPairsAndBuffers) {
    const Pairs pairs{{kUser, 0, 0, long_value('a')}, {kUser, 0, 0, long_value('b')}};
    const ListPtr spread = list_of(pairs);
    const ListPtr holes = make_list();
    add(holes.get(), {{kCommand, 0, 0, "gone"}, pairs[0], {kCommand, 0, 0, "gone too"}, pairs[1]});
    erase(holes.get(), kCommand);
    erase(holes.get(), kCommand);
    EXPECT_EQ(aaa_avpair_compare_lists(spread.get(), holes.get()), 1);
    EXPECT_EQ(aaa_avpair_compare_lists(holes.get(), spread.get()), 1);
}

// Its count has the byte order of the message. Kept.
TEST(AvpairCompareLists, TellsAListFromItsUnpackedSelf) {
    const ListPtr original = list_of(kThree, "n");
    const ListPtr copy = unpacked(kThree, "n");
    EXPECT_EQ(read_pairs(original.get()), read_pairs(copy.get()));
    EXPECT_EQ(aaa_avpair_compare_lists(original.get(), copy.get()), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(copy.get(), unpacked(kThree, "n").get()), 1);
    // 257 reads the same in both orders.
    const Pairs many(257, kThree[0]);
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(many).get(), unpacked(many).get()), 1);
    // Equal counts do not mean equally many pairs.
    const Pairs shorter(3, kThree[0]);
    const ListPtr liar = list_of(many);
    liar->av_cnt = 3;
    EXPECT_EQ(aaa_avpair_compare_lists(liar.get(), list_of(shorter).get()), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(list_of(shorter).get(), liar.get()), 0);
}

TEST(AvpairCompareLists, NeverFindsNullEqual) {
    const ListPtr list = make_list();
    EXPECT_EQ(aaa_avpair_compare_lists(nullptr, list.get()), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(list.get(), nullptr), 0);
    EXPECT_EQ(aaa_avpair_compare_lists(nullptr, nullptr), 0);
}

// ---- Copying ----------------------------------------------------------------------------

ListPtr copy_of(const avlist *list, const char *name = nullptr) {
    avlist *copy = nullptr;
    EXPECT_EQ(aaa_avpair_copy_list(list, name, &copy), AAA_OK);
    return ListPtr(copy);
}

TEST(AvpairCopy, PutsThreeBuffersIntoOne) {
    const ListPtr list = list_of(
        {{kUser, 0, 0, long_value('a')}, {kUser, 0, 0, long_value('b')}, {kUser, 0, 0, long_value('c')}},
        "source");
    ASSERT_EQ(read_buffers(list.get()).size(), 3u);
    const ListPtr copy = copy_of(list.get());
    const std::vector<ModelBuffer> buffers = read_buffers(copy.get());
    ASSERT_EQ(buffers.size(), 1u);
    EXPECT_EQ(buffers[0].size, 3 * 316u + 64u);
    EXPECT_EQ(aaa_avpair_compare_lists(list.get(), copy.get()), 1);
    EXPECT_EQ(copy->av_cnt, 3);
    EXPECT_SOUND(copy.get());
}

TEST(AvpairCopy, NeverMakesASmallBufferAndSpares32Bytes) {
    for (const auto &[value, size] : std::vector<std::pair<std::size_t, uint32_t>>{
             {0, 512}, {432, 512}, {433, 516}, {436, 516}, {1000, 1080}}) {
        const ListPtr copy = copy_of(list_of({{kUser, 0, 0, std::string(value, 'v')}}).get());
        ASSERT_EQ(copy->avpair_first_buf->hdr.buf_size, size) << value;
        const avpair_buffer_t *buf = copy->avpair_first_buf;
        const auto spare = reinterpret_cast<const unsigned char *>(buf) + size - buf->hdr.free_mem;
        EXPECT_GE(spare, 32) << value;
        // A pair of 16 bytes joins without a second buffer.
        add(copy.get(), kUser, std::string(16, 'w'));
        EXPECT_EQ(read_buffers(copy.get()).size(), 1u);
        EXPECT_SOUND(copy.get());
    }
}

TEST(AvpairCopy, NamesTheCopy) {
    const ListPtr list = list_of(kThree, "source");
    EXPECT_STREQ(copy_of(list.get())->av_name, "source");
    EXPECT_STREQ(copy_of(list.get(), "given")->av_name, "given");
    EXPECT_STREQ(copy_of(list.get(), "")->av_name, "");
    const ListPtr brought = make_list("brought");
    avlist *copy = brought.get();
    ASSERT_EQ(aaa_avpair_copy_list(list.get(), "given", &copy), AAA_OK);
    EXPECT_EQ(copy, brought.get());
    EXPECT_STREQ(copy->av_name, "brought");
    EXPECT_EQ(read_pairs(copy), kThree);
}

TEST(AvpairCopy, CopiesAnEmptyList) {
    const ListPtr list = make_list("source");
    for (const char *name : {static_cast<const char *>(nullptr), "given"}) {
        const ListPtr copy = copy_of(list.get(), name);
        EXPECT_STREQ(copy->av_name, name == nullptr ? "source" : name);
        EXPECT_EQ(copy->avpair_first_buf, nullptr);
        EXPECT_SOUND(copy.get());
    }
}

TEST(AvpairCopy, LeavesTheSourceAsItWas) {
    const ListPtr list = list_of(kThree, "source");
    const std::string record = record_of(list.get());
    copy_of(list.get());
    EXPECT_EQ(record_of(list.get()), record);
    EXPECT_EQ(read_pairs(list.get()), kThree);
}

TEST(AvpairCopy, TakesDeletedPairsAlong) {
    const ListPtr list = list_of({{kUser, 1, 2, "gone"}, {kPriv, 3, 4, "kept"}});
    erase(list.get(), kUser);
    const ListPtr copy = copy_of(list.get());
    ASSERT_EQ(read_buffers(copy.get()).size(), 1u);
    EXPECT_EQ(read_buffers(copy.get())[0].pairs, (Pairs{{0, 1, 2, "gone", true}, {kPriv, 3, 4, "kept"}}));
    EXPECT_EQ(copy->av_cnt, 1);
}

TEST(AvpairCopy, DoesNotCarryTheMarker) {
    const ListPtr list = list_of(kThree);
    list->marker = 5;
    list->reserved0 = 6;
    const ListPtr copy = copy_of(list.get());
    EXPECT_EQ(copy->marker, 0);
    EXPECT_EQ(copy->reserved0, 0u);
}

TEST(AvpairCopy, CarriesTheCountOfAnUnpackedList) {
    const ListPtr copy = copy_of(unpacked(kThree).get());
    EXPECT_EQ(copy->av_cnt, 768);
    EXPECT_EQ(read_pairs(copy.get()), kThree);
}

TEST(AvpairCopy, RefusesALongNameAndANullOutput) {
    const ListPtr list = list_of(kThree);
    avlist *copy = nullptr;
    EXPECT_EQ(aaa_avpair_copy_list(list.get(), std::string(31, 'n').c_str(), &copy),
              AAA_ERR_AVPAIR_PROCESSING);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(aaa_avpair_copy_list(list.get(), "n", nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_copy_list(list.get(), std::string(30, 'n').c_str(), &copy), AAA_OK);
    aaa_avpair_free_list(copy);
}

TEST(AvpairCopy, TakesOneAllocationForAllPairs) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    const ListPtr list = list_of({{kUser, 0, 0, long_value('a')}, {kUser, 0, 0, long_value('b')}, kThree[0]});
    const ListPtr brought = make_list();
    avlist *copy = brought.get();
    fake::FailAlloc count(fake::FailAlloc::Unarmed{}, 1000);
    EXPECT_EQ(count.run([&] { return aaa_avpair_copy_list(list.get(), nullptr, &copy); }), AAA_OK);
    EXPECT_EQ(count.counted(), 1u);
}

TEST(AvpairCopy, FreesWhatItCreatedWhenThereIsNoMemory) {
    const ListPtr list = list_of(kThree);
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        avlist *copy = nullptr;
        const cerrno code = fail.run([&] { return aaa_avpair_copy_list(list.get(), "given", &copy); });
        const ListPtr owner(copy);
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(copy == nullptr, fail.fired());
    });
}

// Sizes of messages are ints. Only addresses are needed here: no byte of the
// large buffer is touched but its header.
TEST(AvpairCopy, RefusesMoreBytesThanAnIntCounts) {
    constexpr uint32_t kUsed = 0x80000000u;
    constexpr std::size_t kSize = sizeof(avpair_buffer_t) + std::size_t{kUsed};
    void *const memory =
        mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto *const buf = static_cast<avpair_buffer_t *>(memory);
    buf->hdr.free_mem = static_cast<unsigned char *>(memory) + kSize;
    buf->hdr.buf_size = static_cast<uint32_t>(kSize);
    avlist huge{};
    huge.av_cnt = 1;
    huge.avpair_first_buf = huge.avpair_last_buf = buf;
    avlist *copy = nullptr;
    EXPECT_EQ(aaa_avpair_copy_list(&huge, "copy", &copy), AAA_ERR_NOMEM);
    EXPECT_EQ(copy, nullptr);
    munmap(memory, kSize);
}

TEST(AvpairCopy, KeepsABroughtListWhenThereIsNoMemory) {
    const ListPtr list = list_of(kThree);
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr brought = make_list("brought");
        avlist *copy = brought.get();
        const cerrno code = fail.run([&] { return aaa_avpair_copy_list(list.get(), "given", &copy); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(copy, brought.get());
        EXPECT_EQ(read_pairs(copy), fail.fired() ? Pairs{} : kThree);
        EXPECT_SOUND(copy);
    });
}

TEST(AvpairCopy, Traces) {
    fake::enable_tracing(8);
    const ListPtr list = list_of(kThree, "source");
    fake::clear_journal();
    copy_of(list.get());
    EXPECT_EQ(fake::traces_of(8)[0], "Packing avlist 'source', count 3");
    EXPECT_EQ(fake::traces().size(), 2u);  // the second one is that of freeing the copy
}

TEST(AvpairCopy, TracesBeforeItCreatesAndAlsoForAnEmptyList) {
    const ListPtr list = make_list("source");
    fake::enable_tracing(8);
    avlist *copy = nullptr;
    EXPECT_EQ(aaa_avpair_copy_list(list.get(), std::string(31, 'n').c_str(), &copy),
              AAA_ERR_AVPAIR_PROCESSING);
    EXPECT_EQ(fake::traces_of(8), Lines{"Packing avlist 'source', count 0"});
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_copy_list(list.get(), "n", nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::traces().empty());
}

// ---- Visiting ---------------------------------------------------------------------------

struct Visit {
    Pairs seen;
    std::size_t stop_after = 1000;
};

uint32_t note(avpair_type_t type, avpair_flags_t flags, void *value, uint32_t len, uint32_t tag, void *ctx) {
    auto *visit = static_cast<Visit *>(ctx);
    visit->seen.push_back({type, tag, flags, std::string(static_cast<const char *>(value), len)});
    return visit->seen.size() < visit->stop_after ? 0x100u : 0u;  // any non-zero result goes on
}

TEST(AvpairForEach, VisitsLivePairsInOrder) {
    const ListPtr list = list_of(kThree);
    add(list.get(),
        {{kCommand, 0, 0, "gone"}, {kNoName, 0, 0, long_value('x')}, {kNoName, 0, 0, long_value('y')}});
    erase(list.get(), kCommand);
    Visit visit;
    EXPECT_EQ(aaa_avpair_list_for_each(list.get(), &visit, note), AAA_OK);
    EXPECT_EQ(visit.seen, read_pairs(list.get()));
    EXPECT_EQ(visit.seen.size(), 5u);
}

TEST(AvpairForEach, StopsWhenTold) {
    const ListPtr list = list_of(kThree);
    for (const std::size_t stop_after : {1u, 2u, 3u}) {
        Visit visit{{}, stop_after};
        EXPECT_EQ(aaa_avpair_list_for_each(list.get(), &visit, note), AAA_OK);
        EXPECT_EQ(visit.seen.size(), stop_after);
    }
}

TEST(AvpairForEach, HasNothingToVisitInAnEmptyList) {
    const ListPtr list = make_list();
    Visit visit;
    EXPECT_EQ(aaa_avpair_list_for_each(list.get(), &visit, note), AAA_OK);
    EXPECT_TRUE(visit.seen.empty());
}

TEST(AvpairForEach, GivesOutTheValueInTheList) {
    const ListPtr list = list_of(kThree);
    const auto to_upper = [](avpair_type_t, avpair_flags_t, void *value, uint32_t, uint32_t,
                             void *) -> uint32_t {
        static_cast<char *>(value)[0] = 'X';
        return 1;
    };
    EXPECT_EQ(aaa_avpair_list_for_each(list.get(), nullptr, to_upper), AAA_OK);
    EXPECT_EQ(read_pairs(list.get())[0].value, "Xlice");
}

TEST(AvpairForEach, RefusesNullArguments) {
    const ListPtr list = make_list();
    EXPECT_EQ(aaa_avpair_list_for_each(nullptr, nullptr, note), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_list_for_each(list.get(), nullptr, nullptr), AAA_ERR_INVALID_ARG);
}

// ---- Exchanging -------------------------------------------------------------------------

TEST(AvpairSwitch, ExchangesWholeRecords) {
    const ListPtr a = list_of(kThree, "a");
    const ListPtr b = list_of({{kCommand, 0, 0, "show"}}, "b");
    a->marker = 1;
    b->pad55 = 2;
    const std::string was_a = record_of(a.get());
    const std::string was_b = record_of(b.get());
    EXPECT_EQ(aaa_avpair_switch(a.get(), b.get()), AAA_OK);
    EXPECT_EQ(record_of(a.get()), was_b);
    EXPECT_EQ(record_of(b.get()), was_a);
    EXPECT_EQ(aaa_avpair_switch(a.get(), a.get()), AAA_OK);
    EXPECT_EQ(record_of(a.get()), was_b);
}

TEST(AvpairSwitch, RefusesNullArguments) {
    const ListPtr list = list_of(kThree);
    EXPECT_EQ(aaa_avpair_switch(nullptr, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_switch(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(read_pairs(list.get()), kThree);
}

TEST(AvpairLists, ComparingVisitingAndExchangingTraceNothing) {
    const ListPtr a = list_of(kThree, "a");
    const ListPtr b = list_of(kThree, "a");
    fake::enable_tracing(8);
    Visit visit;
    EXPECT_EQ(aaa_avpair_compare_lists(a.get(), b.get()), 1);
    EXPECT_EQ(aaa_avpair_list_for_each(a.get(), &visit, note), AAA_OK);
    EXPECT_EQ(aaa_avpair_switch(a.get(), b.get()), AAA_OK);
    EXPECT_TRUE(fake::traces().empty());
    fake::disable_all_tracing();
}

// ---- Rebuilding from a source -----------------------------------------------------------

TEST(AvpairRebuild, KeepsValuesAndTakesTheRest) {
    const ListPtr src =
        list_of({{kUser, 7, 0x1, "SRC!"}, {kUser, 8, 0x2, "never"}, {kCommand, 9, 0x4, "not there"}});
    const ListPtr tgt =
        list_of({{kUser, 1, 0x10, "tgt1"}, {kPriv, 2, 0x20, "stay"}, {kUser, 3, 0x40, "tgt2"}}, "tgt");
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
    EXPECT_EQ(read_pairs(tgt.get()),
              (Pairs{{kUser, 7, 0x11, "tgt1"}, {kPriv, 2, 0x20, "stay"}, {kUser, 7, 0x41, "tgt2"}}));
    EXPECT_STREQ(tgt->av_name, "tgt");
    EXPECT_EQ(tgt->av_cnt, 3);
    EXPECT_SOUND(tgt.get());
    EXPECT_EQ(read_pairs(src.get()).size(), 3u);
}

TEST(AvpairRebuild, TakesOverTheLengthOfTheSource) {
    const ListPtr src = list_of({{kUser, 0, 0, "12"}, {kPriv, 0, 0, ""}, {kCommand, 0, 0, "12345678"}});
    const ListPtr tgt = list_of(
        {{kUser, 0, 0, "abcd"}, {kPriv, 0, 0, "efgh"}, {kCommand, 0, 0, "ijkl"}, {5, 0x1, 0, "mnop"}});
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
    // A value whose length was raised continues with the next bytes in memory: the head of the next pair.
    EXPECT_EQ(
        read_pairs(tgt.get()),
        (Pairs{
            {kUser, 0, 0, "ab"}, {kPriv, 0, 0, ""}, {kCommand, 0, 0, "ijkl\5\0\0\0"s}, {5, 0x1, 0, "mnop"}}));
}

TEST(AvpairRebuild, FillsWithZerosWhereNothingFollows) {
    for (const std::size_t longer : {5u, 8u, 400u, 5000u}) {
        const ListPtr src = list_of({{kUser, 0, 0, std::string(longer, 's')}});
        const ListPtr tgt = list_of({{kPriv, 0, 0, "1234"}, {kUser, 0, 0, "abcd"}});
        EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
        EXPECT_EQ(read_pairs(tgt.get())[1].value, "abcd" + std::string(longer - 4, '\0'));
        EXPECT_SOUND(tgt.get());
    }
    // The same at the end of a buffer that is not the last one.
    const ListPtr src = list_of({{kUser, 0, 0, std::string(400, 's')}});
    const ListPtr tgt = list_of({{kUser, 0, 0, long_value('a')}, {kPriv, 0, 0, long_value('b')}});
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
    EXPECT_EQ(read_pairs(tgt.get())[0].value, long_value('a') + std::string(100, '\0'));
}

TEST(AvpairRebuild, WorksFromAnEmptySource) {
    const ListPtr tgt = list_of(kThree);
    EXPECT_EQ(aaa_avpair_update_list_from_list(make_list().get(), tgt.get()), AAA_OK);
    EXPECT_EQ(read_pairs(tgt.get()), kThree);
}

TEST(AvpairRebuild, WorksOnAListAndItself) {
    const ListPtr list = list_of(kThree);
    EXPECT_EQ(aaa_avpair_update_list_from_list(list.get(), list.get()), AAA_OK);
    Pairs wanted = kThree;
    wanted[2] = {kUser, 1, 0x30, "bob"s + "\0\0"s};  // length, tag and flags of the first of its type
    EXPECT_EQ(read_pairs(list.get()), wanted);
}

TEST(AvpairRebuild, TracesEveryStep) {
    const ListPtr src = list_of({{kUser, 7, 0x1, "SRC!!"}});
    const ListPtr tgt =
        list_of({{kPriv, 0xffffffff, 0, "1234"}, {kUser, 1, 0, "tgt1"}, {kNoName, 5, 0, "5678"}}, "tgt");
    fake::enable_tracing(8);
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
    Lines lines = fake::traces_of(8);
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_TRUE(lines[10].starts_with("Freeing AV list at "));
    lines.pop_back();
    const std::string ok = cerr_strerror(AAA_OK);
    // A retained pair shows the length that was last taken from the source.
    EXPECT_EQ(lines, (Lines{"Requested attribute is AAA_PRIV_LVL_ATTR (10) with tag = -1",
                            "Adding attr a AAA_PRIV_LVL_ATTR [31 32 33 34] - " + ok,
                            "Retaining attribute AAA_PRIV_LVL_ATTR (10), len=0",
                            "Requested attribute is AAA_USERNAME_ATTR (257) with tag = 1",
                            "Adding attr 101 AAA_USERNAME_ATTR [74 67 74 31] - " + ok,
                            "Returning attribute AAA_USERNAME_ATTR (257) from local attr list, len=5",
                            "Requested attribute is (null) (90) with tag = 5",
                            "Adding attr 5a (null) [35 36 37 38] - " + ok,
                            "Retaining attribute (null) (90), len=5", "1 attribute(s) updated"}));
}

// The line shows the stored value, with its zeros.
TEST(AvpairRebuild, TracesAValueThatIsFilledUp) {
    const ListPtr src = list_of({{kUser, 0, 0, "12345678"}});
    const ListPtr tgt = list_of({{kUser, 0, 0, ""}});
    std::memset(tgt->avpair_last_buf->hdr.free_mem, 'x', 16);  // after the pairs
    fake::enable_tracing(8);
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
    EXPECT_EQ(fake::traces_of(8)[1],
              "Adding attr 101 AAA_USERNAME_ATTR [0 0 0 0] - "s + cerr_strerror(AAA_OK));
}

TEST(AvpairRebuild, TracesAPairThatThereIsNoMemoryFor) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    for (const std::size_t target : {600u, 4u}) {  // with all of the value, and with zeros after it
        const ListPtr src = list_of({{kUser, 0, 0, std::string(600, 's')}});
        const ListPtr tgt = list_of({{kUser, 0, 0, std::string(target, 't')}});
        fake::enable_tracing(8);
        fake::clear_journal();
        fake::FailAlloc fail(2);  // the first one is the result's record
        EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
        fail.disarm();
        Lines lines = fake::traces_of(8);
        fake::disable_all_tracing();
        lines.pop_back();  // of freeing the result
        EXPECT_EQ(lines,
                  (Lines{"Requested attribute is AAA_USERNAME_ATTR (257) with tag = 0",
                         "Adding attr 101 AAA_USERNAME_ATTR [74 74 74 74] - "s + cerr_strerror(AAA_ERR_NOMEM),
                         "Returning attribute AAA_USERNAME_ATTR (257) from local attr list, len=600",
                         "1 attribute(s) updated"}));
        EXPECT_EQ(read_pairs(tgt.get()), Pairs{});
        EXPECT_SOUND(tgt.get());
    }
}

// The whole record is exchanged with that of a fresh list.
TEST(AvpairRebuild, LeavesNothingOfTheOldRecordButTheName) {
    const ListPtr src = list_of({{kUser, 7, 0, "abcde"}});
    const ListPtr tgt = unpacked(kThree, "tgt");
    tgt->marker = 1;
    tgt->reserved5 = 2;
    tgt->pad55 = 3;
    ASSERT_NE(tgt->reserved0, 0u);
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), tgt.get()), AAA_OK);
    EXPECT_EQ(tgt->av_cnt, 3);
    EXPECT_EQ(tgt->reserved0, 0u);
    EXPECT_EQ(tgt->marker, 0);
    EXPECT_EQ(tgt->reserved5, 0);
    EXPECT_EQ(tgt->pad55, 0);
    EXPECT_STREQ(tgt->av_name, "tgt");
    EXPECT_SOUND(tgt.get());
}

TEST(AvpairRebuild, AllocatesTheResultAndItsBuffersOnly) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    const ListPtr src = list_of({{kUser, 0, 0, std::string(400, 's')}});
    const ListPtr tgt = list_of({{kUser, 0, 0, "abcd"}});
    fake::FailAlloc count(fake::FailAlloc::Unarmed{}, 1000);
    EXPECT_EQ(count.run([&] { return aaa_avpair_update_list_from_list(src.get(), tgt.get()); }), AAA_OK);
    EXPECT_EQ(count.counted(), 2u);
}

TEST(AvpairRebuild, RefusesNullArguments) {
    const ListPtr list = list_of(kThree);
    EXPECT_EQ(aaa_avpair_update_list_from_list(nullptr, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_update_list_from_list(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(read_pairs(list.get()), kThree);
}

// Without memory for the result the target stays; without memory for a pair
// the pair is missing.
TEST(AvpairRebuild, LeavesOutPairsThatThereIsNoMemoryFor) {
    const ListPtr src = list_of({{kUser, 0, 0, std::string(600, 's')}, {kPriv, 0, 0, std::string(500, 's')}});
    const Pairs before{{kUser, 0, 0, "abcd"}, {kPriv, 0, 0, "1234"}};
    const Pairs after{{kUser, 0, 0, "abcd"}, {kPriv, 0, 0, "1234" + std::string(496, '\0')}};
    unsigned runs = 0;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr tgt = list_of(before);
        const cerrno code = fail.run([&] { return aaa_avpair_update_list_from_list(src.get(), tgt.get()); });
        const Pairs now = read_pairs(tgt.get());
        EXPECT_SOUND(tgt.get());
        if (runs++ == 0) {
            EXPECT_EQ(code, AAA_ERR_NOMEM);
            EXPECT_EQ(now, before);
        } else {
            EXPECT_EQ(code, AAA_OK);
            EXPECT_EQ(now.size(), fail.fired() ? 1u : 2u);
            EXPECT_EQ(now.back().type == kPriv ? now.back() : after[1], after[1]);
        }
    });
    EXPECT_GE(runs, 4u);
}

// ---- Merging by flags -------------------------------------------------------------------

const Pairs kFlagged{
    {kUser, 1, 0x1, "one"}, {kPriv, 2, 0x2, "two!"}, {kUser, 3, 0x6, "three"}, {kCommand, 4, 0, "four"}};

TEST(AvpairUpdateByFlags, UpdatesFirstOccurrencesAndAppendsOthers) {
    const ListPtr src = list_of(kFlagged);
    const ListPtr tgt = list_of({{kPriv, 9, 0x10, "1234"}, {kPriv, 9, 0x20, "5678"}}, "tgt");
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(src.get(), tgt.get(), 0x2), AAA_OK);
    EXPECT_EQ(read_pairs(tgt.get()),
              (Pairs{{kPriv, 2, 0x12, "two!"}, {kPriv, 9, 0x20, "5678"}, {kUser, 3, 0x6, "three"}}));
    EXPECT_SOUND(tgt.get());
}

TEST(AvpairUpdateByFlags, TakesAnyOfTheBits) {
    const auto taken = [](uint32_t flags) {
        const ListPtr tgt = list_of({{5, 0, 0, "x"}});
        EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(list_of(kFlagged).get(), tgt.get(), flags),
                  AAA_OK);
        return read_pairs(tgt.get()).size() - 1;
    };
    EXPECT_EQ(taken(0), 0u);
    EXPECT_EQ(taken(0x8), 0u);
    EXPECT_EQ(taken(0x1), 1u);
    EXPECT_EQ(taken(0x4), 1u);
    EXPECT_EQ(taken(0x3), 2u);  // the second user name replaces the first
    EXPECT_EQ(taken(0xffffffff), 2u);
}

TEST(AvpairUpdateByFlags, HasNothingToDoWithAnEmptySource) {
    const ListPtr tgt = list_of(kThree);
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(make_list().get(), tgt.get(), 0xff), AAA_OK);
    EXPECT_EQ(read_pairs(tgt.get()), kThree);
}

TEST(AvpairUpdateByFlags, EndsOnAListAndItself) {
    const ListPtr list = list_of({{kUser, 0, 1, "1234"}, {kUser, 0, 1, "12345678"}, {kUser, 0, 1, "1234"}});
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(list.get(), list.get(), 1), AAA_OK);
    EXPECT_SOUND(list.get());
    EXPECT_EQ(read_pairs(list.get()).size(), 3u);
}

TEST(AvpairUpdateByFlags, RefusesNullArguments) {
    const ListPtr list = list_of(kThree);
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(nullptr, list.get(), 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(list.get(), nullptr, 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(read_pairs(list.get()), kThree);
}

TEST(AvpairAddByFlags, AppendsCopies) {
    const ListPtr src = list_of(kFlagged);
    const ListPtr dst = list_of({{kUser, 9, 0x10, "mine"}});
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(src.get(), dst.get(), 0x3), AAA_OK);
    EXPECT_EQ(read_pairs(dst.get()),
              (Pairs{{kUser, 9, 0x10, "mine"}, kFlagged[0], kFlagged[1], kFlagged[2]}));
    EXPECT_SOUND(dst.get());
}

TEST(AvpairAddByFlags, FillsAnEmptyList) {
    const ListPtr dst = make_list();
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(list_of(kFlagged).get(), dst.get(), 0x4), AAA_OK);
    EXPECT_EQ(read_pairs(dst.get()), Pairs{kFlagged[2]});
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(make_list().get(), dst.get(), 0x4), AAA_OK);
    EXPECT_EQ(read_pairs(dst.get()).size(), 1u);
}

TEST(AvpairAddByFlags, DoublesAListOnce) {
    const ListPtr list = list_of({{kUser, 0, 1, long_value('a')}, {kUser, 0, 0, "b"}, {kUser, 0, 1, "c"}});
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(list.get(), list.get(), 1), AAA_OK);
    EXPECT_EQ(read_pairs(list.get()), (Pairs{{kUser, 0, 1, long_value('a')},
                                             {kUser, 0, 0, "b"},
                                             {kUser, 0, 1, "c"},
                                             {kUser, 0, 1, long_value('a')},
                                             {kUser, 0, 1, "c"}}));
}

// Also where the copies land in the buffer that is being walked.
TEST(AvpairAddByFlags, DoublesASmallListOnce) {
    const ListPtr list = list_of(kFlagged);
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(list.get(), list.get(), 3), AAA_OK);
    EXPECT_EQ(read_buffers(list.get()).size(), 1u);
    Pairs wanted = kFlagged;
    wanted.insert(wanted.end(), kFlagged.begin(), kFlagged.begin() + 3);
    EXPECT_EQ(read_pairs(list.get()), wanted);
}

TEST(AvpairAddByFlags, RefusesNullArguments) {
    const ListPtr list = list_of(kThree);
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(nullptr, list.get(), 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(list.get(), nullptr, 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(read_pairs(list.get()), kThree);
}

TEST(AvpairMergeByFlags, TracesHowManyWereTaken) {
    const ListPtr src = list_of({{kUser, 0, 1, "name"}, {kPriv, 0, 1, "priv"}, {kPriv, 0, 2, "not taken"}});
    const ListPtr dst = list_of({{5, 0, 0, "x"}});
    fake::enable_tracing(8);
    fake::clear_journal();
    const std::string ok = cerr_strerror(AAA_OK);
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(src.get(), dst.get(), 1), AAA_OK);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Adding attr 101 AAA_USERNAME_ATTR [6e 61 6d 65] - " + ok,
                     "Adding attr a AAA_PRIV_LVL_ATTR [70 72 69 76] - " + ok, "2 attribute(s) updated"}));
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(src.get(), dst.get(), 1), AAA_OK);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Updating attr AAA_USERNAME_ATTR [6e 61 6d 65]",
                     "Updating attr AAA_PRIV_LVL_ATTR [70 72 69 76]", "2 attribute(s) updated"}));
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(src.get(), dst.get(), 0x40), AAA_OK);
    EXPECT_EQ(fake::traces_of(8), Lines{"0 attribute(s) updated"});
}

TEST(AvpairMergeByFlags, IsSilentWhileTracingIsOff) {
    const ListPtr src = list_of(kFlagged);
    const ListPtr dst = list_of(kThree);
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_add_from_list_by_flags(src.get(), dst.get(), 0xff), AAA_OK);
    EXPECT_EQ(fake::count("aaa_debugging"), fake::has_debug_word() ? 0u : 1u);
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(src.get(), dst.get(), 0xff), AAA_OK);
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), dst.get()), AAA_OK);
    EXPECT_TRUE(fake::traces().empty());
}

// The result of a single step is ignored, so the call succeeds.
TEST(AvpairMergeByFlags, GoesOnWhenThereIsNoMemory) {
    const ListPtr src =
        list_of({{kUser, 0, 1, std::string(600, 'a')}, {kCommand, 0, 1, std::string(600, 'b')}});
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr dst = list_of({{5, 0, 0, "x"}});
        EXPECT_EQ(fail.run([&] { return aaa_avpair_add_from_list_by_flags(src.get(), dst.get(), 1); }),
                  AAA_OK);
        EXPECT_EQ(read_pairs(dst.get()).size(), fail.fired() ? 2u : 3u);
        EXPECT_SOUND(dst.get());
    });
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr tgt = list_of({{5, 0, 0, "x"}});
        EXPECT_EQ(
            fail.run([&] { return aaa_avpair_update_list_from_list_by_flags(src.get(), tgt.get(), 1); }),
            AAA_OK);
        EXPECT_EQ(read_pairs(tgt.get()).size(), fail.fired() ? 2u : 3u);
        EXPECT_SOUND(tgt.get());
    });
}

// ---- Concatenation ----------------------------------------------------------------------

Pairs joined(Pairs a, const Pairs &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(AvpairConcat, AppendsEveryPairInOrder) {
    const ListPtr dst = list_of({{kCommand, 0, 0, "show"}}, "dst");
    const ListPtr src = list_of(kThree, "src");
    EXPECT_EQ(aaa_avpair_list_concat(dst.get(), src.get()), AAA_OK);
    EXPECT_EQ(read_pairs(dst.get()), joined({{kCommand, 0, 0, "show"}}, kThree));
    EXPECT_STREQ(dst->av_name, "dst");
    EXPECT_EQ(read_pairs(src.get()), kThree);
    EXPECT_SOUND(dst.get());
}

TEST(AvpairConcat, LeavesTheListAloneWithAnEmptySource) {
    const ListPtr dst = list_of(kThree);
    const std::string record = record_of(dst.get());
    const ListPtr empty = make_list();
    EXPECT_EQ(aaa_avpair_list_concat(dst.get(), empty.get()), AAA_OK);
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(dst.get(), empty.get()), AAA_OK);
    EXPECT_EQ(record_of(dst.get()), record);
    EXPECT_EQ(read_pairs(dst.get()), kThree);
    EXPECT_EQ(aaa_avpair_list_concat(empty.get(), empty.get()), AAA_OK);
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(empty.get(), empty.get()), AAA_OK);
    EXPECT_EQ(empty->av_cnt, 0);
}

TEST(AvpairConcat, TakesLivePairsOfAllBuffers) {
    const ListPtr src =
        list_of({{kCommand, 0, 0, "gone"}, {kUser, 0, 0, long_value('a')}, {kUser, 0, 0, long_value('b')}});
    erase(src.get(), kCommand);
    const ListPtr dst = make_list();
    EXPECT_EQ(aaa_avpair_list_concat(dst.get(), src.get()), AAA_OK);
    EXPECT_EQ(read_pairs(dst.get()), read_pairs(src.get()));
}

TEST(AvpairConcat, TakesUnpackedLists) {
    const ListPtr dst = make_list();
    EXPECT_EQ(aaa_avpair_list_concat(dst.get(), unpacked(kThree).get()), AAA_OK);
    EXPECT_EQ(read_pairs(dst.get()), kThree);
    EXPECT_EQ(dst->av_cnt, 3);
}

TEST(AvpairConcat, DoublesAListOnce) {
    const ListPtr list = list_of(kThree);
    EXPECT_EQ(aaa_avpair_list_concat(list.get(), list.get()), AAA_OK);
    EXPECT_EQ(read_pairs(list.get()), joined(kThree, kThree));
    const ListPtr received = unpacked(kThree);
    EXPECT_EQ(aaa_avpair_list_concat(received.get(), received.get()), AAA_OK);
    EXPECT_EQ(read_pairs(received.get()), joined(kThree, kThree));
}

TEST(AvpairConcat, StopsWhenThereIsNoMemory) {
    const Pairs big{{kUser, 0, 0, std::string(600, 'a')}, {kUser, 0, 0, std::string(600, 'b')}};
    const ListPtr src = list_of(big);
    std::size_t added = 0;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr dst = make_list();
        const cerrno code = fail.run([&] { return aaa_avpair_list_concat(dst.get(), src.get()); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(read_pairs(dst.get()).size(), added++);
        EXPECT_SOUND(dst.get());
    });
    EXPECT_EQ(added, 3u);
}

TEST(AvpairConcat, RefusesNullArguments) {
    const ListPtr list = list_of(kThree);
    EXPECT_EQ(aaa_avpair_list_concat(nullptr, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_list_concat(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(nullptr, list.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(read_pairs(list.get()), kThree);
}

TEST(AvpairConcat, TracesEveryPair) {
    const ListPtr src = list_of({{kUser, 0, 0, "name"}});
    const ListPtr dst = make_list();
    fake::enable_tracing(8);
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_list_concat(dst.get(), src.get()), AAA_OK);
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(dst.get(), src.get()), AAA_OK);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Adding attr 101 AAA_USERNAME_ATTR [6e 61 6d 65] - "s + cerr_strerror(AAA_OK),
                     "Updating attr AAA_USERNAME_ATTR [6e 61 6d 65]"}));
}

// The same pairs and the same lines as position by position.
TEST(AvpairConcat, TracesWhatLookingUpEveryPositionWould) {
    const ListPtr src = list_of({{kCommand, 0, 0, "gone"},
                                 {kUser, 1, 2, long_value('a')},
                                 {kPriv, 3, 4, "1234"},
                                 {kNoName, 5, 6, ""},
                                 {kUser, 7, 8, long_value('b')}});
    erase(src.get(), kCommand);
    for (const bool replace : {false, true}) {
        const ListPtr dst = list_of({{kPriv, 9, 1, "5678"}});
        const ListPtr by_position = list_of({{kPriv, 9, 1, "5678"}});
        fake::enable_tracing(8);
        fake::clear_journal();
        ASSERT_EQ(replace ? aaa_avpair_list_concat_with_replace(dst.get(), src.get())
                          : aaa_avpair_list_concat(dst.get(), src.get()),
                  AAA_OK);
        const std::vector<fake::Trace> lines = fake::traces();
        fake::clear_journal();
        uint32_t type = 0;
        avpair_flags_t flags = 0;
        void *value = nullptr;
        uint32_t tag = 0;
        uint32_t len = 0;
        for (uint32_t i = 0; aaa_avpair_find_index(i, &type, &flags, &value, &tag, &len, src.get()) == AAA_OK;
             i++) {
            ASSERT_EQ(replace ? aaa_avpair_update(type, flags, value, tag, len, 0, by_position.get())
                              : aaa_avpair_add(type, flags, value, tag, len, by_position.get()),
                      AAA_OK);
        }
        EXPECT_EQ(lines, fake::traces());
        EXPECT_GE(lines.size(), 4u);
        fake::disable_all_tracing();
        EXPECT_EQ(read_pairs(dst.get()), read_pairs(by_position.get()));
    }
}

// The value of a pair without bytes at the end of its buffer has the address of
// the next page, which need not be mapped.
TEST(AvpairMerge, TracesAPairWithoutBytesAtTheEndOfAPage) {
    PageEndList src(kUser, 1);
    fake::enable_tracing(8);
    const Pairs expected{{kUser, 0, 1, ""}};
    const auto merged = [&](auto merge) {
        const ListPtr dst = make_list();
        EXPECT_EQ(merge(dst.get()), AAA_OK);
        return read_pairs(dst.get());
    };
    EXPECT_EQ(merged([&](avlist *dst) { return aaa_avpair_list_concat(dst, src.get()); }), expected);
    EXPECT_EQ(merged([&](avlist *dst) { return aaa_avpair_list_concat_with_replace(dst, src.get()); }),
              expected);
    EXPECT_EQ(merged([&](avlist *dst) { return aaa_avpair_add_from_list_by_flags(src.get(), dst, 1); }),
              expected);
    const ListPtr tgt = list_of({{kUser, 0, 0, "value"}});
    EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(src.get(), tgt.get(), 1), AAA_OK);
    EXPECT_EQ(read_pairs(tgt.get()), expected);
    const ListPtr same = list_of({{kUser, 0, 0, ""}});
    EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), same.get()), AAA_OK);
    EXPECT_EQ(read_pairs(same.get()).size(), 1u);
}

// A list as above that may be freed: its buffer begins a block from malloc, and a
// deleted pair fills the room up to the last one. The block is above every
// threshold of malloc for a mapping, so that freeing it removes the page that faults.
ListPtr heap_list_up_to_a_page_that_faults() {
    constexpr std::size_t kOwnMapping = std::size_t{64} << 20;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto *const buf = static_cast<avpair_buffer_t *>(std::malloc(kOwnMapping));
    auto *const bytes = reinterpret_cast<unsigned char *>(buf);
    const auto begin = reinterpret_cast<std::uintptr_t>(buf);
    const std::size_t size = (begin / page + 2) * page - begin;
    const std::size_t filler = size - sizeof *buf - 2 * sizeof(avpair_t);
    EXPECT_EQ(mprotect(bytes + size, page, PROT_NONE), 0);
    *buf = {};
    buf->hdr.free_mem = bytes + size;
    buf->hdr.buf_size = static_cast<uint32_t>(size);
    *aaa_avpair_get_first_avpair_in_buf(buf) = {AAA_ATTR_MAX, 0, static_cast<uint32_t>(filler), 0};
    *reinterpret_cast<avpair_t *>(bytes + size - sizeof(avpair_t)) = {kUser, 0, 0, 1};
    ListPtr list = make_list();
    list->av_cnt = 1;
    list->avpair_first_buf = list->avpair_last_buf = buf;
    return list;
}

// The target's value is traced even when there is no memory for its copy.
TEST(AvpairMerge, TracesATargetWithoutBytesAtTheEndOfAPageWhenMemoryIsExhausted) {
    const ListPtr src = list_of({{kUser, 0, 0, "value"}});
    fake::enable_tracing(8);
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr tgt = heap_list_up_to_a_page_that_faults();
        fail.run([&] { return aaa_avpair_update_list_from_list(src.get(), tgt.get()); });
    });
    const Lines lines = fake::traces_of(8);
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "Adding attr 101 AAA_USERNAME_ATTR [0 0 0 0] - "s + cerr_strerror(AAA_ERR_NOMEM)),
              1);
}

TEST(AvpairReplace, UpdatesTheFirstOfEachType) {
    const ListPtr dst =
        list_of({{kUser, 1, 0x101, "aaaa"}, {kUser, 1, 0x100, "second"}, {kPriv, 1, 0x101, "1234"}});
    const ListPtr src =
        list_of({{kUser, 2, 0x2, "bbbb"}, {kPriv, 2, 0x2, "12345678"}, {kCommand, 2, 0x2, "show"}});
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(dst.get(), src.get()), AAA_OK);
    // In place with the same length; otherwise at the end, with the low flag bits only.
    EXPECT_EQ(read_pairs(dst.get()), (Pairs{{kUser, 2, 0x103, "bbbb"},
                                            {kUser, 1, 0x100, "second"},
                                            {kPriv, 2, 0x3, "12345678"},
                                            {kCommand, 2, 0x2, "show"}}));
    EXPECT_SOUND(dst.get());
}

TEST(AvpairReplace, SeesWhatItHasJustAdded) {
    const ListPtr dst = make_list();
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(dst.get(), list_of(kThree).get()), AAA_OK);
    EXPECT_EQ(read_pairs(dst.get()), (Pairs{kThree[1], {kUser, 3, 0x30, "bob"}}));
}

TEST(AvpairReplace, EndsOnAListAndItself) {
    const ListPtr list = list_of({{kUser, 0, 1, "1234"}, {kUser, 0, 1, "12345678"}, {kPriv, 0, 1, "1234"}});
    EXPECT_EQ(aaa_avpair_list_concat_with_replace(list.get(), list.get()), AAA_OK);
    EXPECT_EQ(read_pairs(list.get()),
              (Pairs{{kUser, 0, 1, "12345678"}, {kPriv, 0, 1, "1234"}, {kUser, 0, 1, "12345678"}}));
    EXPECT_SOUND(list.get());
}

TEST(AvpairReplace, StopsWhenThereIsNoMemory) {
    const ListPtr src = list_of({{kUser, 0, 0, std::string(600, 'a')}, {kPriv, 0, 0, std::string(600, 'b')}});
    std::size_t added = 0;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr dst = make_list();
        const cerrno code =
            fail.run([&] { return aaa_avpair_list_concat_with_replace(dst.get(), src.get()); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(read_pairs(dst.get()).size(), added++);
        EXPECT_SOUND(dst.get());
    });
}

TEST(AvpairReplace, StopsOnAListAndItselfWhenThereIsNoMemory) {
    const Pairs pairs = {{kUser, 0, 0, "short"}, {kUser, 0, 0, std::string(600, 'a')}};
    // No memory for the copy of the value; the old pair is deleted and there is none for the
    // new one; success.
    const std::vector<Pairs> expected = {pairs, {pairs[1]}, {pairs[1], pairs[1]}};
    std::size_t run = 0;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr list = list_of(pairs);
        const cerrno code =
            fail.run([&] { return aaa_avpair_list_concat_with_replace(list.get(), list.get()); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        ASSERT_LT(run, expected.size());
        EXPECT_EQ(read_pairs(list.get()), expected[run++]);
        EXPECT_SOUND(list.get());
    });
    EXPECT_EQ(run, expected.size());
}

// Merges over lists long enough for several buffers, with deletions, against
// the result of the same steps made one by one.
TEST(AvpairMerge, AgreesWithSingleSteps) {
    std::mt19937 random(7);
    const auto random_list = [&random] {
        ListPtr list = make_list();
        const auto count = static_cast<uint32_t>(random() % 40);
        for (uint32_t i = 0; i < count; i++) {
            const auto type = static_cast<uint32_t>(1 + random() % 12);
            add(list.get(), type, std::string(random() % 90, static_cast<char>('a' + random() % 26)),
                static_cast<uint32_t>(random() % 0x400), i);
            if (random() % 4 == 0) {
                erase(list.get(), type);
            }
        }
        return list;
    };
    for (int round = 0; round < 200; round++) {
        const ListPtr src = random_list();
        const ListPtr dst = random_list();
        const ListPtr by_steps = copy_of(dst.get());
        const bool replace = round % 2 == 0;
        for (ModelPair pair : read_pairs(src.get())) {
            if (replace) {
                ASSERT_EQ(aaa_avpair_update(pair.type, pair.flags, pair.value.data(), pair.tag,
                                            static_cast<uint32_t>(pair.value.size()), 0, by_steps.get()),
                          AAA_OK);
            } else {
                add(by_steps.get(), Pairs{pair});
            }
        }
        const auto merge = replace ? aaa_avpair_list_concat_with_replace : aaa_avpair_list_concat;
        ASSERT_EQ(merge(dst.get(), src.get()), AAA_OK);
        ASSERT_EQ(read_pairs(dst.get()), read_pairs(by_steps.get())) << round;
        ASSERT_STREQ(verify_list(dst.get()).fault, "") << round;
    }
}

// ---- Broken invariants ------------------------------------------------------------------

TEST(AvpairListsDeathTest, StopsOnCopyingNoList) {
    avlist *copy = nullptr;
    EXPECT_ASSERTION(aaa_avpair_copy_list(nullptr, "n", &copy), kAvpairSource, "list");
    EXPECT_ASSERTION(aaa_avpair_copy_list(nullptr, "n", nullptr), kAvpairSource, "list");
}

TEST(AvpairListsDeathTest, StopsOnCopyingIntoAListWithPairs) {
    const ListPtr list = list_of(kThree);
    const ListPtr brought = list_of(kThree);
    avlist *copy = brought.get();
    EXPECT_ASSERTION(aaa_avpair_copy_list(list.get(), nullptr, &copy), kAvpairSource,
                     "aaa_is_list_empty(*copy_list)");
    EXPECT_ASSERTION(aaa_avpair_copy_list(make_list().get(), nullptr, &copy), kAvpairSource,
                     "aaa_is_list_empty(*copy_list)");
}

TEST(AvpairListsDeathTest, StopsOnAnEmptyTarget) {
    const ListPtr src = list_of(kThree);
    const ListPtr empty = make_list();
    EXPECT_ASSERTION(aaa_avpair_update_list_from_list(src.get(), empty.get()), kAvpairSource,
                     "tgt->av_cnt != 0");
    EXPECT_ASSERTION(aaa_avpair_update_list_from_list(empty.get(), empty.get()), kAvpairSource,
                     "tgt->av_cnt != 0");
    EXPECT_ASSERTION(aaa_avpair_update_list_from_list_by_flags(src.get(), empty.get(), 1), kAvpairSource,
                     "tgt->av_cnt != 0");
    EXPECT_ASSERTION(aaa_avpair_update_list_from_list_by_flags(empty.get(), empty.get(), 1), kAvpairSource,
                     "tgt->av_cnt != 0");
}

TEST(AvpairListsDeathTest, StopsOnACountThatContradictsTheBuffers) {
    avlist broken{};
    broken.av_cnt = 1;
    avlist other = broken;
    const ListPtr list = list_of(kThree);
    avlist *copy = nullptr;
    Visit visit;
    const char *const expression = "list->avpair_first_buf != NULL";
    EXPECT_ASSERTION(aaa_avpair_compare_lists(&broken, &other), kAvpairHeader, expression);
    EXPECT_ASSERTION(aaa_avpair_copy_list(&broken, nullptr, &copy), kAvpairHeader, expression);
    EXPECT_ASSERTION(aaa_avpair_list_for_each(&broken, &visit, note), kAvpairHeader, expression);
    EXPECT_ASSERTION(aaa_avpair_update_list_from_list(list.get(), &broken), kAvpairHeader, expression);
    EXPECT_ASSERTION(aaa_avpair_update_list_from_list_by_flags(&broken, list.get(), 1), kAvpairHeader,
                     expression);
    EXPECT_ASSERTION(aaa_avpair_add_from_list_by_flags(&broken, list.get(), 1), kAvpairHeader, expression);
    EXPECT_ASSERTION(aaa_avpair_list_concat(list.get(), &broken), kAvpairHeader, expression);
    EXPECT_ASSERTION(aaa_avpair_list_concat_with_replace(list.get(), &broken), kAvpairHeader, expression);
}

}  // namespace
