// SPDX-License-Identifier: Apache-2.0

#include "store/snapshot.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

namespace {

using history::Item;
using history::Items;

Items random_items(std::mt19937 &random, std::size_t count) {
    Items items;
    for (std::size_t i = 0; i < count; ++i) {
        std::string path = "gl/aaa/";
        for (auto parts = 1 + random() % 4; parts > 0; --parts) {
            path += std::string(1 + random() % 3, static_cast<char>('a' + random() % 3)) + "/";
        }
        const bool directory = random() % 8 == 0;
        if (!directory) {
            path += std::to_string(random() % 500);
        }
        std::string bytes(directory ? 0 : random() % 300, '\0');
        for (char &c : bytes) {
            c = static_cast<char>(random() % 5);
        }
        items[path] = {directory ? SYSDB_TYPE_DIRECTORY : static_cast<std::uint32_t>(random()), bytes};
    }
    return items;
}

TEST(Snapshot, ItemsComeBackAsTheyWere) {
    std::mt19937 random(1);
    for (std::size_t count : {0u, 1u, 2u, 30u, 1000u}) {
        const Items items = random_items(random, count);
        const std::string stored = history::compressed(history::plain_form(items));
        EXPECT_EQ(history::from_plain_form(history::decompressed(stored)), items) << count;
    }
}

TEST(Snapshot, ThePlainFormIsAsDocumented) {
    const Items items{{"a/b", {1, std::string("\1\0\0\0", 4)}}, {"a/cd", {200, ""}}};
    EXPECT_EQ(history::plain_form(items),
              std::string("\0\3a/b\1\4\1\0\0\0", 11) + std::string("\2\2cd\xc8\1\0", 7));
}

TEST(Snapshot, EveryCutAndEveryChangedByteIsNoticed) {
    std::mt19937 random(2);
    const Items items = random_items(random, 40);
    const std::string stored = history::compressed(history::plain_form(items));
    for (std::size_t length = 0; length < stored.size(); ++length) {
        EXPECT_THROW(history::decompressed(stored.substr(0, length)), history::Error) << length;
    }
    for (std::size_t i = 0; i < stored.size(); ++i) {
        std::string damaged = stored;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
        EXPECT_THROW(history::decompressed(damaged), history::Error) << i;
    }
}

TEST(Snapshot, APlainFormThatLiesIsRefused) {
    const std::string plain = history::plain_form({{"gl/aaa/x", {3, "abc"}}, {"gl/aaa/y", {3, "abc"}}});
    for (std::size_t length = 1; length < plain.size(); ++length) {
        if (history::plain_form({{"gl/aaa/x", {3, "abc"}}}).size() != length) {
            EXPECT_THROW(history::from_plain_form(plain.substr(0, length)), history::Error) << length;
        }
    }
    for (std::size_t i = 0; i < plain.size(); ++i) {
        std::string lie = plain;
        lie[i] = '\xff';
        try {
            history::from_plain_form(lie);
        } catch (const history::Error &) {  // nothing else, and no read outside of the text
        }
    }
    EXPECT_THROW(history::from_plain_form("\1"), history::Error) << "shares bytes with nothing";
}

// Each item could have a path of megabytes for a few bytes of the state, or the state could be one that
// is never written.
TEST(Snapshot, PathsThatNoDatabaseHasAreRefused) {
    const std::string longest(1024, 'a');
    EXPECT_EQ(history::from_plain_form(history::plain_form({{longest, {1, ""}}})).size(), 1u);
    EXPECT_THROW(history::from_plain_form(history::plain_form({{longest + "a", {1, ""}}})), history::Error);
    const std::string item("\0\1b\1\0", 5);
    EXPECT_EQ(history::from_plain_form(item).size(), 1u);
    EXPECT_THROW(history::from_plain_form(item + item), history::Error) << "one path twice";
    EXPECT_THROW(history::from_plain_form(item + std::string("\0\1a\1\0", 5)), history::Error)
        << "not in order";
    EXPECT_THROW(history::from_plain_form(std::string("\0\1b\x80\x80\x80\x80\x10\0", 9)), history::Error)
        << "a type of more than 32 bits";
}

// The checksum holds, so it is not damage of a disk.
TEST(Snapshot, ALengthThatIsNotThatOfItsBytesIsRefusedBeforeMemoryIsAskedFor) {
    for (const std::size_t byte : {6u, 3u, 2u}) {  // 2^48, 2^24 and 2^16 bytes
        std::string stored = history::compressed("x");
        stored[8 + byte] = 1;
        const auto checksum = crc32(0, reinterpret_cast<const Bytef *>(stored.data() + 8),
                                    static_cast<uInt>(stored.size() - 8));
        for (unsigned i = 0; i < 4; ++i) {
            stored[4 + i] = static_cast<char>(checksum >> (8 * i));
        }
        EXPECT_THROW(history::decompressed(stored), history::Error) << byte;
    }
}

}  // namespace
