// SPDX-License-Identifier: Apache-2.0
//
// Guesses where pairs begin, which the lookup in long lists makes: what a window of
// words tells, guesses near the end of memory that may be read, and lists in which
// guesses are useless or wrong.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/lib/util/src/internal/avpair_heads.hpp"
#include "aaa/result_codes.h"

namespace {

constexpr uint32_t kFiller = 1;
constexpr uint32_t kWanted = 300;
constexpr std::size_t kHead = sizeof(avpair_t);

#if defined(__SSE2__)

using Window = std::array<uint32_t, 16>;

uint32_t heads_word_by_word(const Window &words) {
    uint32_t heads = 0;
    for (std::size_t i = 0; i + 3 < words.size(); i++) {
        const bool type = words[i] != 0 && words[i] < 0x1000;
        const bool rest = words[i + 1] == 0 && words[i + 2] < 0x1000 && words[i + 3] == 0;
        heads |= type && rest ? 1u << i : 0u;
    }
    return heads;
}

TEST(HeadWindow, MarksTheHeadsWithoutTagAndFlags) {
    constexpr std::array<uint32_t, 16> kWords{0,        0,          0,          0,         1,      7,
                                              0xFFF,    0xFFE,      0x1000,     0x7FFF,    0x8000, 0xFFFF,
                                              1u << 16, 0x0FFFFFFF, 0x80000001, 0xFFFF8001};
    std::mt19937 random(3);
    uint32_t seen = 0;
    for (int i = 0; i < 200000; i++) {
        Window words;
        for (uint32_t &word : words) {
            word = kWords[random() % (i % 2 == 0 ? 8 : kWords.size())];
        }
        // At any address of a list.
        std::array<uint32_t, 20> memory{};
        const std::size_t shift = random() % 5;
        std::memcpy(memory.data() + shift, words.data(), sizeof words);
        const uint32_t heads = aaautil::likely_heads(memory.data() + shift);
        ASSERT_EQ(heads, heads_word_by_word(words)) << "window " << i;
        seen |= heads;
    }
    EXPECT_EQ(seen, 0x1FFFu);
}

// In the words of a number's pair there is one position, that of the head.
TEST(HeadWindow, IsNotDeceivedByLengthsAndNumbers) {
    for (const uint32_t number : {0u, 1u, 7u, 0xFFFu, 0xFFFFFFFFu}) {
        const uint32_t pair[] = {kWanted, 0, 4, 0, number};
        for (std::size_t at = 0; at < 5; at++) {
            Window words;
            uint32_t expected = 0;
            for (std::size_t i = 0; i < words.size(); i++) {
                words[i] = pair[(at + i) % 5];
                expected |= i < 13 && (at + i) % 5 == 0 ? 1u << i : 0u;
            }
            EXPECT_EQ(aaautil::likely_heads(words.data()), expected) << number << " from word " << at;
        }
    }
}

#endif

// A received list whose pairs end where readable memory ends.
class ListAtTheEndOfMemory {
  public:
    explicit ListAtTheEndOfMemory(const std::string &pairs) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t used = sizeof(avpair_buffer_t) + pairs.size();
        readable_ = (used + page - 1) / page * page;
        all_ = readable_ + page;
        memory_ = static_cast<unsigned char *>(
            mmap(nullptr, all_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(static_cast<void *>(memory_), MAP_FAILED);
        EXPECT_EQ(mprotect(memory_ + readable_, page, PROT_NONE), 0);
        auto *const buf = reinterpret_cast<avpair_buffer_t *>(memory_ + readable_ - used);
        std::memcpy(buf + 1, pairs.data(), pairs.size());
        buf->hdr.free_mem = memory_ + readable_;
        buf->hdr.buf_size = static_cast<uint32_t>(used);
        list_.av_cnt = 1;
        list_.avpair_first_buf = buf;
        list_.avpair_last_buf = buf;
    }
    ~ListAtTheEndOfMemory() { munmap(memory_, all_); }
    ListAtTheEndOfMemory(const ListAtTheEndOfMemory &) = delete;
    ListAtTheEndOfMemory &operator=(const ListAtTheEndOfMemory &) = delete;

    // The position of the value that a lookup finds, from the beginning of the pairs; 0 for none.
    [[nodiscard]] std::size_t find(uint32_t type) const {
        void *value = nullptr;
        const cerrno rc = aaa_avpair_find_type(type, nullptr, &value, nullptr, 0, &list_);
        EXPECT_EQ(rc, value != nullptr ? AAA_OK : AAA_ERR_AVPAIR_NOT_FOUND);
        const auto *const first = reinterpret_cast<const unsigned char *>(list_.avpair_first_buf + 1);
        return value == nullptr ? 0 : static_cast<std::size_t>(static_cast<unsigned char *>(value) - first);
    }

  private:
    unsigned char *memory_;
    std::size_t readable_;
    std::size_t all_;
    avlist list_{};
};

struct Head {
    uint32_t type;
    uint32_t tag = 0;
    uint32_t flags = 0;
};

void add(std::string &pairs, const Head &head, const std::string &value) {
    const uint32_t words[] = {head.type, head.tag, static_cast<uint32_t>(value.size()), head.flags};
    pairs.append(reinterpret_cast<const char *>(words), sizeof words);
    pairs += value;
    pairs.resize((pairs.size() + 3) / 4 * 4);
}

// Buffers are aligned to 8 bytes.
void align(std::string &pairs) {
    if (pairs.size() % 8 != 0) {
        pairs.insert(0, std::string("\1\0\0\0\0\0\0\0\4\0\0\0\0\0\0\0\0\0\0\0", kHead + 4));
    }
}

std::string number(uint32_t n) {
    return {reinterpret_cast<const char *>(&n), sizeof n};
}

// The type at every place of a run of filling pairs, and at none.
template <typename Fill>
void expect_found_everywhere(std::size_t count, Fill fill) {
    for (std::size_t place = 0; place <= count; place++) {
        std::string pairs;
        for (std::size_t i = 0; i < count; i++) {
            if (i == place) {
                add(pairs, {kWanted}, "found");
            }
            fill(pairs, i);
        }
        align(pairs);
        const ListAtTheEndOfMemory list(pairs);
        const std::size_t found = list.find(kWanted);
        if (place == count) {
            ASSERT_EQ(found, 0u);
        } else {
            ASSERT_NE(found, 0u) << place << " of " << count;
            ASSERT_EQ(pairs.compare(found, 5, "found"), 0) << place << " of " << count;
            ASSERT_EQ(pairs.find("found"), found);
        }
    }
}

TEST(GuessedPairs, AreWithinMemoryThatMayBeRead) {
    for (std::size_t count = 50; count < 75; count++) {
        expect_found_everywhere(count,
                                [](std::string &pairs, std::size_t) { add(pairs, {kFiller}, "four"); });
        expect_found_everywhere(count, [](std::string &pairs, std::size_t i) {
            add(pairs, {kFiller}, std::string(i * 7 % 33, 'x'));
        });
    }
}

// Lengths from the last of a stretch to the first that begin another one.
TEST(GuessedPairs, AreWithinMemoryInTheNextStretchToo) {
    for (const std::size_t count : {227u, 229u, 230u, 231u, 255u, 256u, 257u}) {
        expect_found_everywhere(count,
                                [](std::string &pairs, std::size_t) { add(pairs, {kFiller}, "four"); });
    }
}

TEST(GuessedPairs, MayHaveTagsAndFlags) {
    expect_found_everywhere(120, [](std::string &pairs, std::size_t i) {
        add(pairs, {kFiller, static_cast<uint32_t>(i), 0}, number(7));
    });
    expect_found_everywhere(120, [](std::string &pairs, std::size_t i) {
        add(pairs, {kFiller, 0, 1 + static_cast<uint32_t>(i) % 3}, number(2));
    });
    expect_found_everywhere(120, [](std::string &pairs, std::size_t) {
        add(pairs, {kFiller, 0xFFFFFFFF, 0xFFFFFFFF}, "text");
    });
}

// Numbers that are types of pairs, some of them the type that is looked for.
TEST(GuessedPairs, AreNotConfusedWithNumbers) {
    for (const uint32_t n : {0u, 4u, 20u, kWanted}) {
        expect_found_everywhere(150, [n](std::string &pairs, std::size_t i) {
            add(pairs, {i % 2 == 0 ? kFiller : 4}, number(i % 3 == 0 ? n : 0));
        });
    }
}

// Texts made of heads that lead on to one another, past their end, or out of the list,
// also of the type that is looked for.
TEST(GuessedPairs, ThatAreTextsAreDisproved) {
    for (const uint32_t len : {0u, 4u, 12u, 100u, 0x0FFFu, 0xFFFFu, 0xFFFFFFFFu}) {
        for (const uint32_t type : {kFiller, kWanted}) {
            expect_found_everywhere(90, [len, type](std::string &pairs, std::size_t i) {
                const uint32_t words[] = {type, 0, len, 0};
                std::string value(i % 4 * 4, '\0');
                for (int k = 0; k < 6; k++) {
                    value.append(reinterpret_cast<const char *>(words), sizeof words);
                }
                add(pairs, {kFiller}, value);
            });
        }
    }
}

// The first pairs, which are walked one by one, end before, in, and after the first
// part of a stretch.
TEST(GuessedPairs, FollowFirstPairsOfAnyLength) {
    for (std::size_t length = 0; length < 400; length += 12) {
        expect_found_everywhere(60, [length](std::string &pairs, std::size_t i) {
            add(pairs, {kFiller}, std::string(i < 11 ? length : i % 20, 'x'));
        });
    }
}

// No head follows the guessed one, because it is that of the last pair.
TEST(GuessedPairs, MayBeTheLast) {
    for (std::size_t length = 100; length < 1000; length += 4) {
        std::string pairs;
        for (int i = 0; i < 60; i++) {
            add(pairs, {kFiller}, "filler");
        }
        add(pairs, {kWanted}, std::string(length, '\xFF'));
        align(pairs);
        const ListAtTheEndOfMemory list(pairs);
        ASSERT_EQ(list.find(kWanted), pairs.size() - length) << length;
        ASSERT_EQ(list.find(kWanted + 1), 0u) << length;
    }
}

// A search that ends at the end of the first buffer goes on in the next one.
TEST(GuessedPairs, AreFollowedByTheNextBuffer) {
    for (const std::size_t count : {40u, 60u, 100u, 400u}) {
        std::string pairs;
        for (std::size_t i = 0; i < count; i++) {
            add(pairs, {kFiller}, std::string(i * 5 % 30, 'y'));
        }
        std::vector<char> message(sizeof(avlist) + pairs.size());
        std::memcpy(message.data() + sizeof(avlist), pairs.data(), pairs.size());
        for (std::size_t at = sizeof(avlist); at < message.size();) {  // to network order
            uint32_t words[4];
            std::memcpy(words, message.data() + at, sizeof words);
            const std::size_t next = at + (kHead + words[2] + 3) / 4 * 4;
            for (uint32_t &word : words) {
                word = __builtin_bswap32(word);
            }
            std::memcpy(message.data() + at, words, sizeof words);
            at = next;
        }
        message[6] = 1;
        avlist *list = nullptr;
        ASSERT_EQ(aaa_avpair_unpack_msg_create(&list, message.data(), static_cast<uint32_t>(message.size())),
                  AAA_OK);
        void *value = nullptr;
        EXPECT_EQ(aaa_avpair_find_type(kWanted, nullptr, &value, nullptr, 0, list), AAA_ERR_AVPAIR_NOT_FOUND);
        EXPECT_EQ(aaa_avpair_add(kWanted, 0, "found", 0, 5, list), AAA_OK);
        ASSERT_NE(list->avpair_first_buf, list->avpair_last_buf);
        EXPECT_EQ(aaa_avpair_find_type(kWanted, nullptr, &value, nullptr, 0, list), AAA_OK);
        EXPECT_EQ(value, reinterpret_cast<unsigned char *>(list->avpair_last_buf + 1) + kHead);
        aaa_avpair_free_list(list);
    }
}

}  // namespace
