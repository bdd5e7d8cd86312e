// SPDX-License-Identifier: Apache-2.0
//
// The host's named allocation and its queue of records.

#include "platform/memory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct Record {
    Record *link;
    int value;
};

// Walks as the library does: from the head pointer along the first pointers.
std::vector<int> values(const aaa_queue_t &queue) {
    std::vector<int> out;
    for (auto *r = static_cast<const Record *>(queue.head); r != nullptr; r = r->link) {
        out.push_back(r->value);
    }
    return out;
}

using Values = std::vector<int>;

struct ThreeRecords : testing::Test {
    aaa_queue_t queue{};
    Record a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
    void SetUp() override {
        queue_init(&queue, 0);
        queue_enqueue(&queue, &a);
        queue_enqueue(&queue, &b);
        queue_enqueue(&queue, &c);
    }
};

using Queue = ThreeRecords;

}  // namespace

// A failed allocation gives null under a sanitizer too.
extern "C" const char *__asan_default_options(void);
extern "C" const char *__asan_default_options(void) {
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options(void);
extern "C" const char *__tsan_default_options(void) {
    return "allocator_may_return_null=1";
}

TEST(NamedAllocation, BehavesAsTheStandardFunctions) {
    char *p = static_cast<char *>(malloc_named(10, "tester"));
    ASSERT_NE(nullptr, p);
    std::strcpy(p, "012345678");
    p = static_cast<char *>(realloc_named(p, 4000, "tester"));
    ASSERT_NE(nullptr, p);
    EXPECT_STREQ("012345678", p);
    free(p);

    auto *q = static_cast<unsigned char *>(calloc_named(3, 5, nullptr));
    ASSERT_NE(nullptr, q);
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(0, q[i]);
    }
    free(q);
    void *r = realloc_named(nullptr, 8, "tester");
    EXPECT_NE(nullptr, r);
    free(r);
}

TEST(NamedAllocation, RefusesAProductThatWraps) {
    EXPECT_EQ(nullptr, calloc_named(SIZE_MAX / 2, 4, "tester"));
}

TEST(QueueInit, MakesAnEmptyQueue) {
    aaa_queue_t queue;
    std::memset(&queue, 0xff, sizeof queue);
    queue_init(&queue, 0);
    EXPECT_EQ(nullptr, queue.head);
    EXPECT_EQ(nullptr, queue.tail);
    EXPECT_EQ(0u, queue.count);
    EXPECT_EQ(0u, queue.maximum);
}

TEST_F(Queue, AppendsAtTheTail) {
    EXPECT_EQ((Values{1, 2, 3}), values(queue));
    EXPECT_EQ(3u, queue.count);
    EXPECT_EQ(&c, queue.tail);
}

TEST_F(Queue, EndsInANullLinkWhateverTheRecordHeld) {
    Record d{&a, 4};
    queue_enqueue(&queue, &d);
    EXPECT_EQ((Values{1, 2, 3, 4}), values(queue));
}

TEST_F(Queue, TakesOutTheFirst) {
    queue_unqueue(&queue, &a);
    EXPECT_EQ((Values{2, 3}), values(queue));
    EXPECT_EQ(nullptr, a.link);
    EXPECT_EQ(2u, queue.count);
}

TEST_F(Queue, TakesOutTheMiddle) {
    queue_unqueue(&queue, &b);
    EXPECT_EQ((Values{1, 3}), values(queue));
    EXPECT_EQ(&c, queue.tail);
}

TEST_F(Queue, TakesOutTheLastAndAppendsAfterwards) {
    queue_unqueue(&queue, &c);
    EXPECT_EQ(&b, queue.tail);
    queue_enqueue(&queue, &c);
    EXPECT_EQ((Values{1, 2, 3}), values(queue));
}

TEST_F(Queue, BecomesEmptyAndIsUsableAgain) {
    for (Record *r : {&b, &a, &c}) {
        queue_unqueue(&queue, r);
    }
    EXPECT_EQ(nullptr, queue.head);
    EXPECT_EQ(nullptr, queue.tail);
    EXPECT_EQ(0u, queue.count);
    queue_enqueue(&queue, &b);
    EXPECT_EQ((Values{2}), values(queue));
}

TEST_F(Queue, IgnoresARecordThatItDoesNotHold) {
    Record other{&c, 9};
    queue_unqueue(&queue, &other);
    EXPECT_EQ((Values{1, 2, 3}), values(queue));
    EXPECT_EQ(&c, other.link);
}

TEST_F(Queue, KeepsItsMaximum) {
    aaa_queue_t small;
    queue_init(&small, 2);
    Record x{nullptr, 1}, y{nullptr, 2}, z{nullptr, 3};
    queue_enqueue(&small, &x);
    queue_enqueue(&small, &y);
    queue_enqueue(&small, &z);
    EXPECT_EQ((Values{1, 2}), values(small));
    queue_unqueue(&small, &x);
    queue_enqueue(&small, &z);
    EXPECT_EQ((Values{2, 3}), values(small));
}

TEST_F(Queue, TakesNulls) {
    queue_init(nullptr, 0);
    queue_enqueue(nullptr, &a);
    queue_enqueue(&queue, nullptr);
    queue_unqueue(nullptr, &a);
    queue_unqueue(&queue, nullptr);
    EXPECT_EQ((Values{1, 2, 3}), values(queue));
}
