// SPDX-License-Identifier: Apache-2.0
//
// Lists carry passwords and keys. Every block is searched right before the library
// frees it: no value of a list may be in it.

#include "aaa/avpair.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/accessors.h"
#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/messages.h"
#include "aaa/result_codes.h"
#include "support/avlist_model.hpp"
#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using aaatest::ListPtr;
using aaatest::make_list;

constexpr uint32_t kType = AAA_PASSWORD_ATTR;
constexpr std::string_view kSecret = "correct horse battery staple";

// Volatile, because the compiler knows that free() writes to no variable.
volatile unsigned blocks_freed = 0;
volatile unsigned secrets_freed = 0;

// The middle of the secret: the allocator writes over the beginning of blocks,
// and a copy may be cut.
constexpr std::string_view kPart = kSecret.substr(8, 13);

void *find_secret(const void *bytes, std::size_t size) {
    return size >= kPart.size() ? memmem(bytes, size, kPart.data(), kPart.size()) : nullptr;
}

// Overwrites a secret that it finds: the next block at this place has to be clean, and
// the tests free secrets of their own.
void look_for_secret(unsigned char *block, std::size_t size) {
    blocks_freed = blocks_freed + 1;
    void *found = find_secret(block, size);
    secrets_freed = secrets_freed + (found != nullptr ? 1 : 0);
    for (; found != nullptr; found = find_secret(block, size)) {
        std::memset(found, '-', kPart.size());
    }
}

class ListWiping : public testing::Test {
  protected:
    void SetUp() override {
        if (!fake::FailAlloc::available()) {
            GTEST_SKIP() << "this build's sanitizer does not let a program replace free";
        }
        fail_alloc_watch_frees(look_for_secret);
    }
    void TearDown() override { fail_alloc_watch_frees(nullptr); }

    template <typename F>
    static unsigned secrets_freed_by(F &&operation) {
        blocks_freed = 0;
        secrets_freed = 0;
        operation();
        return secrets_freed;
    }

    template <typename F>
    static void expect_wiped_by(F &&operation) {
        EXPECT_EQ(secrets_freed_by(operation), 0u);
        EXPECT_GT(blocks_freed, 0u) << "nothing was freed";
    }

    static void add(const ListPtr &list, uint32_t type = kType, std::size_t before = 0) {
        const std::string value = std::string(before, '.') + std::string(kSecret);
        ASSERT_EQ(aaa_avpair_add(type, 0, value.data(), 0, static_cast<uint32_t>(value.size()), list.get()),
                  AAA_OK);
    }

    // Several buffers, each with secrets at both ends.
    static ListPtr full_list() {
        ListPtr list = make_list("secrets");
        for (int i = 0; i < 40; ++i) {
            add(list, kType, static_cast<std::size_t>(i * 5));
        }
        EXPECT_NE(list->avpair_first_buf, list->avpair_last_buf);
        return list;
    }

    // The memory between free_mem and the end of the last buffer.
    static bool secret_after_free_mem(const ListPtr &list) {
        const avpair_buffer_t *const buf = list->avpair_last_buf;
        const auto *const end = reinterpret_cast<const unsigned char *>(buf) + buf->hdr.buf_size;
        return find_secret(buf->hdr.free_mem, static_cast<std::size_t>(end - buf->hdr.free_mem)) != nullptr;
    }
};

}  // namespace

TEST_F(ListWiping, TheWatcherSeesWhatIsNotWiped) {
    char *volatile copy = strdup(kSecret.data());  // volatile: or the compiler leaves both calls out
    EXPECT_EQ(secrets_freed_by([&] { std::free(copy); }), 1u);
    EXPECT_EQ(blocks_freed, 1u);
}

TEST_F(ListWiping, FreeingAList) {
    ListPtr list = full_list();
    expect_wiped_by([&] { list.reset(); });
}

TEST_F(ListWiping, ClearingAList) {
    const ListPtr list = full_list();
    expect_wiped_by([&] { aaa_avpair_clear(list.get()); });
    EXPECT_EQ(list->av_cnt, 0);
}

TEST_F(ListWiping, APairThatFillsItsBufferToTheLastByte) {
    for (const std::size_t before : {436u, 437u, 2000u}) {
        ListPtr list = make_list();
        add(list, kType, before);
        expect_wiped_by([&] { list.reset(); });
    }
}

TEST_F(ListWiping, DeletingTheLastPairOfABuffer) {
    const ListPtr list = make_list();
    add(list);
    expect_wiped_by([&] { aaa_avpair_delete_by_type_instance(kType, 0, list.get(), nullptr); });
}

TEST_F(ListWiping, DeletedPairsWhoseRoomIsGivenBack) {
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_add(1, 0, "live", 0, 4, list.get()), AAA_OK);
    add(list);
    add(list, kType, 3);
    // Backwards, so that the first deletion gives back nothing.
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(kType, 0, list.get(), nullptr), AAA_OK);
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(kType, 0, list.get(), nullptr), AAA_OK);
    EXPECT_FALSE(secret_after_free_mem(list));
}

TEST_F(ListWiping, DeletedPairsThatStayUntilTheListIsFreed) {
    ListPtr list = make_list();
    add(list);
    ASSERT_EQ(aaa_avpair_add(1, 0, "live", 0, 4, list.get()), AAA_OK);
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(kType, 0, list.get(), nullptr), AAA_OK);
    expect_wiped_by([&] { list.reset(); });
}

TEST_F(ListWiping, UpdatesThatMoveAPair) {
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_add(1, 0, "live", 0, 4, list.get()), AAA_OK);
    add(list);
    char other[] = "other";
    ASSERT_EQ(aaa_avpair_update(kType, 0, other, 0, 5, 0, list.get()), AAA_OK);
    EXPECT_FALSE(secret_after_free_mem(list));
}

TEST_F(ListWiping, UpdatesWithAValueOfTheListItself) {
    ListPtr list = make_list();
    add(list, kType, 10);
    void *value = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(aaa_avpair_find_type(kType, nullptr, &value, &length, 0, list.get()), AAA_OK);
    expect_wiped_by([&] {
        EXPECT_EQ(aaa_avpair_update(kType, 0, value, 0, length - 2, 0, list.get()), AAA_OK);
        list.reset();
    });
}

TEST_F(ListWiping, PackingAndUnpacking) {
    ListPtr list = full_list();
    std::vector<char> message(1 << 16);
    auto length = static_cast<uint32_t>(message.size());
    ASSERT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), message.data(), &length), AAA_OK);
    expect_wiped_by([&] { list.reset(); });

    avlist *unpacked = nullptr;
    ASSERT_EQ(aaa_avpair_unpack_msg_create(&unpacked, message.data(), length), AAA_OK);
    expect_wiped_by([&] { aaa_avpair_free_list(unpacked); });

    ListPtr checked = make_list();
    ASSERT_EQ(aaa_avpair_unpack_msg_checked(checked.get(), message.data(), length), AAA_OK);
    expect_wiped_by([&] { checked.reset(); });
}

TEST_F(ListWiping, AListThatWasPackedIntoTooLittleRoom) {
    ListPtr list = full_list();
    char message[100];
    uint32_t length = sizeof message;
    ASSERT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), message, &length), AAA_ERR_NOMEM);
    expect_wiped_by([&] { list.reset(); });
}

TEST_F(ListWiping, CopyingAndMergingLists) {
    ListPtr list = full_list();
    avlist *copy = nullptr;
    ASSERT_EQ(aaa_avpair_copy_list(list.get(), "copy", &copy), AAA_OK);
    expect_wiped_by([&] { aaa_avpair_free_list(copy); });

    ListPtr target = make_list();
    add(target);
    expect_wiped_by([&] {
        EXPECT_EQ(aaa_avpair_update_list_from_list(list.get(), target.get()), AAA_OK);
        EXPECT_EQ(aaa_avpair_list_concat_with_replace(target.get(), list.get()), AAA_OK);
        target.reset();
    });
}

TEST_F(ListWiping, RebuildingAListWithALongerValue) {
    const ListPtr source = make_list();
    add(source, kType, 900);
    const ListPtr target = make_list();
    add(target);
    expect_wiped_by([&] { EXPECT_EQ(aaa_avpair_update_list_from_list(source.get(), target.get()), AAA_OK); });
}

TEST_F(ListWiping, ChapDataIsBuiltWithoutATrace) {
    // Long enough to be built on the heap.
    std::string response = std::string(kSecret);
    std::string challenge(2000, 'c');
    aaa_chap_data_t chap{};
    chap.id = 1;
    chap.response = reinterpret_cast<uint8_t *>(response.data());
    chap.response_len = static_cast<uint32_t>(response.size());
    chap.data = reinterpret_cast<uint8_t *>(challenge.data());
    chap.data_len = static_cast<uint32_t>(challenge.size());
    ListPtr list = make_list();
    expect_wiped_by([&] {
        EXPECT_EQ(aaa_util_avlist_inbound_chap_data_add(&chap, list.get()), AAA_OK);
        list.reset();
    });
}
