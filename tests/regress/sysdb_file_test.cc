// SPDX-License-Identifier: Apache-2.0
//
// Files of the system database with one overwritten field. Each was accepted and
// then caused a hang, a crash or lost data.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/database_table.hpp"
#include "support/sysdb.hpp"

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kFlagsAt = 10;
constexpr std::size_t kFirstPlaceAt = 16;
constexpr uint16_t kLeaf = 2;
constexpr uint16_t kOverflow = 4;

class SysdbFile : public testing::Test {
  protected:
    SysdbFile() {
        run_forked([] {
            const Bound bound("/oper/");
            for (int i = 0; i < 60; ++i) {
                ASSERT_EQ(0u, set_text(bound.handle(), "fill/" + std::to_string(i), std::string(100, 'x')));
            }
            ASSERT_EQ(0u, set_text(bound.handle(), "big", std::string(3 * kPage, 'b')));
        });
        read_file();
    }

    void read_file() {
        std::ostringstream text;
        text << std::ifstream(sandbox_.oper_file(), std::ios::binary).rdbuf();
        bytes_ = text.str();
    }

    template <typename Number>
    Number get(std::size_t at) const {
        Number number;
        std::memcpy(&number, bytes_.data() + at, sizeof number);
        return number;
    }
    template <typename Number>
    void put(std::size_t at, Number number) {
        std::memcpy(bytes_.data() + at, &number, sizeof number);
    }

    // Offsets of the pages that have these flags and contain this text.
    std::vector<std::size_t> pages(uint16_t flags, const std::string &text = "") const {
        std::vector<std::size_t> found;
        for (std::size_t at = 2 * kPage; at < bytes_.size(); at += kPage) {
            if (get<uint16_t>(at + kFlagsAt) == flags &&
                bytes_.substr(at, kPage).find(text) != std::string::npos) {
                found.push_back(at);
            }
        }
        return found;
    }
    // Offset of the head of the newest state.
    std::size_t newest_head() const { return get<uint64_t>(144) > get<uint64_t>(kPage + 144) ? 0 : kPage; }

    void expect_sound() {
        run_forked([] { EXPECT_EQ(0u, Bound("/oper/").code()); });
    }
    void expect_refused() {
        std::ofstream(sandbox_.oper_file(), std::ios::binary) << bytes_;
        const std::string log = run_forked([] { EXPECT_EQ(SYSDB_ERR_CORRUPT, Bound("/oper/").code()); });
        EXPECT_NE(std::string::npos, log.find("-lock && aaactl sg publish")) << log;
    }

    DatabaseSandbox sandbox_;
    std::string bytes_;
};

TEST_F(SysdbFile, IsSoundBeforeItIsChanged) {
    expect_sound();
}

// A listing of unordered keys returned to the same directory for ever.
TEST_F(SysdbFile, KeysWithoutOrderAreRefused) {
    const auto leaves = pages(kLeaf, "/oper/fill/");
    ASSERT_FALSE(leaves.empty());
    for (const std::size_t page : leaves) {
        const auto first = get<uint16_t>(page + kFirstPlaceAt);
        put(page + kFirstPlaceAt, get<uint16_t>(page + kFirstPlaceAt + 2));
        put(page + kFirstPlaceAt + 2, first);
    }
    expect_refused();
}

// Deleting the value released the file's first pages.
TEST_F(SysdbFile, ValueOnAPageWithAnotherNumberIsRefused) {
    const auto values = pages(kOverflow, "bbbb");
    ASSERT_EQ(1u, values.size());
    put(values[0], uint64_t{0});
    expect_refused();
}

// LMDB ended the process when it met such a page.
TEST_F(SysdbFile, UnknownFlagsOfAPageAreRefused) {
    const auto values = pages(kOverflow, "bbbb");
    ASSERT_EQ(1u, values.size());
    put(values[0] + kFlagsAt, uint16_t{0xffff});
    expect_refused();
}

// The next change made a tree whose depth was wrong.
TEST_F(SysdbFile, TreeWithADepthAndNoRootIsRefused) {
    put(newest_head() + 80, ~uint64_t{0});
    expect_refused();
}

// LMDB used the other head, which was not checked.
TEST_F(SysdbFile, TransactionNumberOfTheOtherHeadIsRefused) {
    put(newest_head() + 144, get<uint64_t>(newest_head() + 144) + 1);
    expect_refused();
}

// More processes watch one key than fit on a page.
void add_watchers(const std::string &file, const std::string &key) {
    run_forked([&] {
        aaatest::DatabaseTable watchers(file, "watch");
        for (unsigned i = 0; i < 150; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "%u.%08x", 1000000000 + i, i);
            watchers.put(key, name);
        }
        watchers.commit();
    });
}

// When the last watcher ended, the key kept a tree without a root.
TEST_F(SysdbFile, WrongNumberOfValuesOfAKeyIsRefused) {
    const std::string key = "/oper/many";
    add_watchers(sandbox_.oper_file(), key);
    read_file();
    expect_sound();
    unsigned found = 0;
    for (std::size_t at = bytes_.find(key); at != std::string::npos; at = bytes_.find(key, at + 1)) {
        const std::size_t entries_at = at + key.size() + 32;
        if (get<uint64_t>(entries_at) == 150) {
            ++found;
            put(entries_at, uint64_t{151});
        }
    }
    ASSERT_NE(0u, found);
    expect_refused();
}

// Memory for that many pages was requested, and its lack was reported instead of the damage.
TEST_F(SysdbFile, LastPagePastTheMapIsRefused) {
    const auto map_pages = get<uint64_t>(newest_head() + 32) / kPage;
    for (const uint64_t last : {map_pages, uint64_t{1} << 39}) {
        put(newest_head() + 136, last);
        expect_refused();
    }
}

// The next transaction would have had the number 0; LMDB ended the process.
TEST_F(SysdbFile, LastTransactionNumberIsRefused) {
    put(newest_head() + 144, ~uint64_t{0});
    expect_refused();
}

}  // namespace
