// SPDX-License-Identifier: Apache-2.0
//
// Lookup in long runs as it is compiled for processors without 16-byte vectors. The
// source is a part of this program; the other tests call the library's form.

#undef __SSE2__
#include "aaa/lib/util/src/avpair_search.cc"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

constexpr uint32_t kWanted = 300;

void add(std::string &pairs, uint32_t type, const std::string &value) {
    const uint32_t words[] = {type, 0, static_cast<uint32_t>(value.size()), 0};
    pairs.append(reinterpret_cast<const char *>(words), sizeof words);
    pairs += value;
    pairs.resize((pairs.size() + 3) / 4 * 4);
}

// Mostly numbers that could be types; some are the type that is looked for.
std::string any_value(std::mt19937 &random) {
    std::string value;
    while (random() % 3 != 0) {
        const uint32_t word = random() % 8 == 0 ? kWanted : static_cast<uint32_t>(random() % 6);
        value.append(reinterpret_cast<const char *>(&word), sizeof word);
    }
    return value;
}

TEST(SearchWithoutVectors, FindsWhatAWalkFinds) {
    std::mt19937 random(5);
    for (const std::size_t count : {60u, 130u, 700u}) {
        for (std::size_t place = 0; place <= count; place += count / 60 + 1) {
            std::string pairs;
            std::size_t expected = 0;
            std::size_t from = 0;
            for (std::size_t i = 0; i < count; i++) {
                expected = i == place ? pairs.size() : expected;
                from = i == 10 ? pairs.size() : from;
                add(pairs, i == place ? kWanted : 1, any_value(random));
            }
            auto *const first = reinterpret_cast<avpair_t *>(pairs.data());
            auto *const end = reinterpret_cast<avpair_t *>(pairs.data() + pairs.size());
            auto *const at = reinterpret_cast<avpair_t *>(pairs.data() + (place < 10 ? 0 : from));
            const avpair_t *const found = aaautil::find_in_long_run(first, at, end, kWanted);
            if (place == count) {
                EXPECT_EQ(found, end);
            } else {
                EXPECT_EQ(reinterpret_cast<const char *>(found) - pairs.data(),
                          static_cast<std::ptrdiff_t>(expected))
                    << place << " of " << count;
            }
        }
    }
}

}  // namespace
