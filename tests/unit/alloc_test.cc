// SPDX-License-Identifier: Apache-2.0
//
// The allocation wrappers: blocks, the records in the queue, and the trace of each
// call.

#include "aaa/alloc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using Lines = std::vector<std::string>;

// A record as a value.
struct Record {
    const void *address;
    uint32_t size;
    uint32_t line;
    std::string name;
    bool operator==(const Record &) const = default;
};

void PrintTo(const Record &record, std::ostream *out) {
    *out << '{' << record.address << ", " << record.size << ", " << record.line << ", " << record.name << '}';
}

std::vector<Record> records() {
    std::vector<Record> all;
    for (const void *at = malloc_queue.head; at != nullptr;) {
        const auto *const record = static_cast<const aaa_malloc_rec_t *>(at);
        all.push_back({record->address, record->size, record->line, record->name});
        at = record->link;
    }
    EXPECT_EQ(malloc_queue.count, all.size());
    return all;
}

// "%p" as the traces show it.
std::string shown(const void *address) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", address);
    return text;
}

std::string trace() {
    const Lines lines = fake::traces_of(AAA_DBG_MALLOC);
    EXPECT_EQ(lines.size(), 1u);
    EXPECT_EQ(fake::traces().size(), lines.size());
    return lines.empty() ? "" : lines.back();
}

// Every test begins and ends with no recorded block.
class Alloc : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(records().empty()); }
    void TearDown() override {
        EXPECT_TRUE(records().empty());
        while (malloc_queue.head != nullptr) {
            aaa_util_free("end", 0, static_cast<aaa_malloc_rec_t *>(malloc_queue.head)->address);
        }
    }
};

// Runs in a process of its own, where nothing has been recorded yet.
[[noreturn]] void first_use() {
    const std::vector<char> zeros(sizeof malloc_queue, '\0');
    const bool zero = std::memcmp(&malloc_queue, zeros.data(), zeros.size()) == 0;
    fake::answer("malloc_named", 0, 1);
    const bool refused = aaa_util_malloc("first", 1, 8) == nullptr;
    const bool still_zero = fake::count("queue_init") == 0;
    void *const a = aaa_util_malloc("first", 2, 8);
    void *const b = aaa_util_malloc("first", 3, 8);
    const bool once = fake::calls("queue_init") == Lines{"queue_init(ptr, 0)"} && records().size() == 2;
    aaa_util_free("first", 4, a);
    aaa_util_free("first", 5, b);
    void *const c = aaa_util_malloc("first", 6, 8);
    const bool not_again = fake::count("queue_init") == 1 && records().size() == 1;
    aaa_util_free("first", 7, c);
    std::_Exit(zero && refused && still_zero && once && not_again ? 0 : 1);
}

TEST(AllocQueueDeathTest, IsZeroAndThenInitialisedOnceByTheFirstRecord) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(first_use(), testing::ExitedWithCode(0), "");
}

TEST(AllocQueue, IsHandedOut) {
    EXPECT_EQ(get_malloc_data(), &malloc_queue);
    EXPECT_EQ(sizeof malloc_queue, 24u);
}

// ---- Allocation ------------------------------------------------------------

TEST_F(Alloc, MallocRecordsAndTraces) {
    void *const block = aaa_util_malloc("file.c", 17, 40);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0x5a, 40);
    EXPECT_EQ(records(), (std::vector<Record>{{block, 40, 17, "file.c"}}));
    EXPECT_EQ(trace(), "MEM MALLOC: file.c [17]: " + shown(block) + " (size 40)");
    EXPECT_EQ(fake::calls("malloc_named"),
              (Lines{"malloc_named(40, \"file.c\")", "malloc_named(280, \"file.c\")"}));
    aaa_util_free("file.c", 18, block);
}

TEST_F(Alloc, TracesWhateverTheFlagSays) {
    fake::disable_all_tracing();
    aaa_util_free("f", 1, aaa_util_malloc("f", 1, 1));
    EXPECT_EQ(fake::traces_of(AAA_DBG_MALLOC).size(), 2u);
    EXPECT_EQ(fake::count("aaa_debugging"), 0u);
}

TEST_F(Alloc, RecordIsLaidOutForDebuggingTools) {
    void *const block = aaa_util_malloc("name", 0x01020304, 0x20);
    ASSERT_NE(malloc_queue.head, nullptr);
    std::vector<char> expected(280, '\0');
    const uint32_t numbers[] = {0x20, 0x01020304};
    std::memcpy(&expected[8], &block, sizeof block);
    std::memcpy(&expected[16], numbers, sizeof numbers);
    std::memcpy(&expected[24], "name", 4);
    EXPECT_EQ(std::memcmp(malloc_queue.head, expected.data(), expected.size()), 0);
    aaa_util_free("name", 0, block);
}

TEST_F(Alloc, NumbersAreTracedSigned) {
    fake::answer("malloc_named", 0, 1);
    EXPECT_EQ(aaa_util_malloc("f", 0xffffffff, 0x80000000), nullptr);
    EXPECT_EQ(trace(), "MEM MALLOC: f [-1]: " + shown(nullptr) + " (size -2147483648)");
}

TEST_F(Alloc, RecordsAreInOrder) {
    void *const a = aaa_util_malloc("a", 1, 1);
    void *const b = aaa_util_calloc("b", 2, 1, 2);
    void *const c = aaa_util_strdup("c", 3, "cc");
    EXPECT_EQ(records(), (std::vector<Record>{{a, 1, 1, "a"}, {b, 2, 2, "b"}, {c, 3, 3, "c"}}));
    aaa_util_free("b", 4, b);
    EXPECT_EQ(records(), (std::vector<Record>{{a, 1, 1, "a"}, {c, 3, 3, "c"}}));
    aaa_util_free("c", 5, c);
    EXPECT_EQ(records(), (std::vector<Record>{{a, 1, 1, "a"}}));
    aaa_util_free("a", 6, a);
}

TEST_F(Alloc, CallocRecordsTheElementAndTracesTheBlock) {
    auto *const block = static_cast<unsigned char *>(aaa_util_calloc("f", 9, 6, 7));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::vector<unsigned char>(block, block + 42), std::vector<unsigned char>(42));
    EXPECT_EQ(records(), (std::vector<Record>{{block, 7, 9, "f"}}));
    EXPECT_EQ(trace(), "MEM CALLOC: f [9]: " + shown(block) + " (size 42)");
    EXPECT_EQ(fake::calls("calloc_named"), (Lines{"calloc_named(42, \"f\")"}));
    aaa_util_free("f", 10, block);
}

TEST_F(Alloc, CallocAsksForTheWholeProductAndTracesItCut) {
    fake::answer("calloc_named", 0, 1);
    EXPECT_EQ(aaa_util_calloc("f", 1, 0x10000, 0x10001), nullptr);
    EXPECT_EQ(fake::calls("calloc_named"), (Lines{"calloc_named(4295032832, \"f\")"}));
    EXPECT_EQ(trace(), "MEM CALLOC: f [1]: " + shown(nullptr) + " (size 65536)");
}

TEST_F(Alloc, StrdupRecordsTheTextWithItsEnd) {
    char *const copy = aaa_util_strdup("f", 3, "radius");
    EXPECT_STREQ(copy, "radius");
    EXPECT_EQ(records(), (std::vector<Record>{{copy, 7, 3, "f"}}));
    EXPECT_EQ(trace(), "MEM STRDUP: f [3]: " + shown(copy));
    EXPECT_EQ(fake::calls("malloc_named"), (Lines{"malloc_named(280, \"f\")"}));
    aaa_util_free("f", 4, copy);
}

TEST_F(Alloc, StrdupOfNothingIsNullAndTraced) {
    EXPECT_EQ(aaa_util_strdup("f", 3, nullptr), nullptr);
    EXPECT_EQ(trace(), "MEM STRDUP: f [3]: " + shown(nullptr));
}

// ---- Names -----------------------------------------------------------------

TEST_F(Alloc, NameIsCopiedWithTheLimit) {
    const std::string name(300, 'n');
    void *const block = aaa_util_malloc(name.c_str(), 1, 1);
    EXPECT_EQ(fake::calls("sstrncpy"), (Lines{"sstrncpy(\"" + name + "\", 255)"}));
    ASSERT_EQ(records().size(), 1u);
    EXPECT_EQ(records()[0].name, std::string(254, 'n'));  // the fake's limit counts the NUL
    EXPECT_EQ(trace(), "MEM MALLOC: " + name + " [1]: " + shown(block) + " (size 1)");
    aaa_util_free("", 2, block);
}

TEST_F(Alloc, NameMayBeNull) {
    void *block = aaa_util_malloc(nullptr, 1, 2);
    EXPECT_EQ(records(), (std::vector<Record>{{block, 2, 1, "(null)"}}));
    EXPECT_EQ(trace(), "MEM MALLOC: (null) [1]: " + shown(block) + " (size 2)");
    block = aaa_util_realloc(nullptr, 1, block, 3);
    EXPECT_EQ(fake::traces().back().text, "MEM REALLOC: (null) [1]: " + shown(block) + " (size 3)");
    aaa_util_free(nullptr, 1, block);
    EXPECT_EQ(fake::traces().back().text, "MEM FREE: (null) [1]: " + shown(block));
    block = aaa_util_calloc(nullptr, 1, 1, 1);
    EXPECT_EQ(fake::traces().back().text, "MEM CALLOC: (null) [1]: " + shown(block) + " (size 1)");
    aaa_util_free(nullptr, 1, block);
    block = aaa_util_strdup(nullptr, 1, "");
    EXPECT_EQ(fake::traces().back().text, "MEM STRDUP: (null) [1]: " + shown(block));
    aaa_util_free(nullptr, 1, block);
}

// ---- Reallocation ----------------------------------------------------------

TEST_F(Alloc, ReallocThatMovesLeavesOneRecordForTheNewAddress) {
    void *block = aaa_util_malloc("old", 1, 16);
    std::memcpy(block, "0123456789abcdef", 16);
    const std::string old_address = shown(block);
    fake::clear_journal();
    block = aaa_util_realloc("new", 2, block, 1 << 20);  // too large to stay
    ASSERT_NE(block, nullptr);
    ASSERT_NE(shown(block), old_address);
    EXPECT_EQ(std::memcmp(block, "0123456789abcdef", 16), 0);
    EXPECT_EQ(records(), (std::vector<Record>{{block, 1 << 20, 2, "new"}}));
    EXPECT_EQ(trace(), "MEM REALLOC: new [2]: " + shown(block) + " (size 1048576)");
    EXPECT_EQ(
        fake::calls({"realloc_named", "queue_enqueue", "queue_unqueue"}),
        (Lines{"realloc_named(1048576, \"new\")", "queue_enqueue(ptr, ptr)", "queue_unqueue(ptr, ptr)"}));
    aaa_util_free("new", 3, block);
}

TEST_F(Alloc, ReallocInPlaceDropsTheOlderRecord) {
    void *block = aaa_util_malloc("old", 1, 64);
    block = aaa_util_realloc("new", 2, block, 64);
    // The record that is left is the new one, whether the block moved (as it
    // does under a sanitizer) or not.
    EXPECT_EQ(records(), (std::vector<Record>{{block, 64, 2, "new"}}));
    EXPECT_EQ(fake::count("queue_unqueue"), 1u);
    aaa_util_free("new", 3, block);
}

TEST_F(Alloc, ReallocOfNothingAllocates) {
    void *const block = aaa_util_realloc("f", 1, nullptr, 10);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(records(), (std::vector<Record>{{block, 10, 1, "f"}}));
    EXPECT_EQ(fake::count("queue_unqueue"), 0u);
    aaa_util_free("f", 2, block);
}

TEST_F(Alloc, ReallocOfAnUnrecordedBlockRecordsIt) {
    void *const block = aaa_util_realloc("f", 1, std::malloc(8), 1 << 20);  // too large to stay
    EXPECT_EQ(records(), (std::vector<Record>{{block, 1 << 20, 1, "f"}}));
    EXPECT_EQ(fake::count("queue_unqueue"), 0u);
    aaa_util_free("f", 2, block);
}

// Kept: the new record is then the oldest of its address, and is removed.
TEST_F(Alloc, ReallocOfAnUnrecordedBlockThatStaysRecordsNothing) {
    void *const old_block = std::calloc(1, 64);
    const std::string old_address = shown(old_block);
    void *const block = aaa_util_realloc("f", 1, old_block, 64);
    EXPECT_EQ(records().size(), shown(block) == old_address ? 0u : 1u);
    EXPECT_EQ(fake::count("queue_enqueue"), 1u);
    aaa_util_free("f", 2, block);
}

TEST_F(Alloc, FailedReallocKeepsTheBlockAndItsRecord) {
    void *const block = aaa_util_malloc("old", 1, 16);
    fake::clear_journal();
    fake::answer("realloc_named", 0, 1);
    EXPECT_EQ(aaa_util_realloc("new", 2, block, 32), nullptr);
    EXPECT_EQ(records(), (std::vector<Record>{{block, 16, 1, "old"}}));
    EXPECT_EQ(trace(), "MEM REALLOC: new [2]: " + shown(nullptr) + " (size 32)");
    aaa_util_free("old", 3, block);
}

TEST_F(Alloc, ReallocWithoutANewRecordKeepsTheOldOne) {
    void *block = aaa_util_malloc("old", 1, 16);
    const std::string old_address = shown(block);
    fake::answer("malloc_named", 0, 1);  // the record's
    block = aaa_util_realloc("new", 2, block, 1 << 20);
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(records().size(), 1u);
    EXPECT_EQ(shown(records()[0].address), old_address);
    EXPECT_EQ(records()[0].name, "old");
    std::free(block);
    // The stale record is removed like any other when its address is freed.
    auto *const record = static_cast<aaa_malloc_rec_t *>(malloc_queue.head);
    record->address = std::malloc(1);
    aaa_util_free("old", 3, record->address);
}

// ---- Release ---------------------------------------------------------------

TEST_F(Alloc, FreeTraces) {
    void *const block = aaa_util_malloc("f", 1, 1);
    fake::clear_journal();
    aaa_util_free("g", 2, block);
    EXPECT_EQ(trace(), "MEM FREE: g [2]: " + shown(block));
    EXPECT_TRUE(records().empty());
}

TEST_F(Alloc, FreeOfAnUnrecordedBlockLeavesTheQueueAlone) {
    void *const recorded = aaa_util_malloc("f", 1, 1);
    aaa_util_free("g", 2, std::malloc(5));  // a leak checker sees whether it is freed
    EXPECT_EQ(records(), (std::vector<Record>{{recorded, 1, 1, "f"}}));
    EXPECT_EQ(fake::count("queue_unqueue"), 0u);
    aaa_util_free("f", 3, recorded);
}

TEST_F(Alloc, FreeOfNothingIsOnlyTraced) {
    void *const recorded = aaa_util_malloc("f", 1, 1);
    fake::clear_journal();
    aaa_util_free("g", 2, nullptr);
    EXPECT_EQ(trace(), "MEM FREE: g [2]: " + shown(nullptr));
    EXPECT_EQ(fake::count("queue_unqueue"), 0u);
    EXPECT_EQ(records().size(), 1u);
    aaa_util_free("f", 3, recorded);
}

// Two records of one address: a block that was freed without the wrappers.
TEST_F(Alloc, FreeDropsTheOldestRecordOfTheAddress) {
    void *const block = aaa_util_malloc("older", 1, 8);
    void *const other = aaa_util_malloc("newer", 2, 8);
    auto *const newer = static_cast<aaa_malloc_rec_t *>(malloc_queue.tail);
    newer->address = block;
    aaa_util_free("f", 3, block);
    ASSERT_EQ(records().size(), 1u);
    EXPECT_EQ(records()[0].name, "newer");
    newer->address = other;
    aaa_util_free("f", 4, other);
}

// ---- Exhausted memory ------------------------------------------------------

// The block fails, then its record, then nothing.
template <typename Allocate>
void sweep(Allocate &&allocate, const std::string &verb) {
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        fake::clear_journal();
        void *const block = fail.run(allocate);
        EXPECT_EQ(trace().substr(0, verb.size()), verb);
        if (!fail.fired()) {
            EXPECT_EQ(records().size(), 1u);
        } else {
            EXPECT_TRUE(records().empty());
            EXPECT_EQ(block != nullptr, fail.counted() > 1);
            EXPECT_NE(trace().find(shown(block)), std::string::npos);
        }
        if (block != nullptr) {
            aaa_util_free("f", 2, block);
        }
    });
}

TEST_F(Alloc, MallocOutOfMemory) {
    sweep([] { return aaa_util_malloc("f", 1, 100); }, "MEM MALLOC: ");
}

TEST_F(Alloc, CallocOutOfMemory) {
    sweep([] { return aaa_util_calloc("f", 1, 10, 10); }, "MEM CALLOC: ");
}

TEST_F(Alloc, StrdupOutOfMemory) {
    sweep([]() -> void * { return aaa_util_strdup("f", 1, "some text"); }, "MEM STRDUP: ");
}

TEST_F(Alloc, ReallocOutOfMemory) {
    sweep([] { return aaa_util_realloc("f", 1, nullptr, 100); }, "MEM REALLOC: ");
}

}  // namespace
