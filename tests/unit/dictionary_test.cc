// SPDX-License-Identifier: Apache-2.0
//
// The attribute dictionary, row by row against a copy that was written down
// apart from it, and the lookups in it.

#include "aaa/dictionary.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/result_codes.h"
#include "testkit/fake_platform.hpp"

namespace {

struct Row {
    uint32_t type;
    uint32_t format;
    uint64_t no_entry;
    std::string name;
};

uint32_t number(const std::string &field) {
    return static_cast<uint32_t>(std::stoul(field));
}

// tests/vectors/dictionary.csv: "type,format,no_entry,name" and one line per row.
std::vector<Row> read_copy() {
    std::ifstream in(AAA_SOURCE_DIR "/tests/vectors/dictionary.csv");
    std::string line;
    EXPECT_TRUE(std::getline(in, line));
    EXPECT_EQ(line, "type,format,no_entry,name");
    std::vector<Row> rows;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string type, format, no_entry, name;
        std::getline(fields, type, ',');
        std::getline(fields, format, ',');
        std::getline(fields, no_entry, ',');
        std::getline(fields, name, ',');
        rows.push_back({number(type), number(format), number(no_entry), name});
    }
    return rows;
}

const std::vector<Row> &copy() {
    static const std::vector<Row> rows = read_copy();
    return rows;
}

// Names with the values that the public enumeration gives them.
const std::map<std::string, uint32_t> &enumerators() {
    static const std::map<std::string, uint32_t> all = {
#define AAA_ATTRIBUTE(type, format, name) {#name, name},
#include "aaa/dictionary.def"
    };
    return all;
}

TEST(Dictionary, HasARowForEveryType) {
    EXPECT_EQ(AAA_ATTR_MAX, 2070);
    EXPECT_EQ(AAA_TABLE_ROWS, 2071);
    EXPECT_EQ(sizeof aaa_table, 2071u * 24u);
    ASSERT_EQ(copy().size(), 2071u);
    for (uint32_t i = 0; i < copy().size(); ++i) {
        EXPECT_EQ(copy()[i].type, i);
    }
}

TEST(Dictionary, EveryRowEqualsItsCopy) {
    ASSERT_EQ(copy().size(), std::size(aaa_table));
    for (const Row &row : copy()) {
        const aaa_table_row_t &built = aaa_table[row.type];
        EXPECT_EQ(built.type, row.type);
        EXPECT_EQ(built.format, row.format) << row.type;
        EXPECT_EQ(built.no_entry, row.no_entry) << row.type;
        if (row.no_entry == 0) {
            EXPECT_STREQ(built.name, row.name.c_str()) << row.type;
        } else {
            EXPECT_EQ(built.name, nullptr) << row.type;
        }
    }
}

TEST(Dictionary, RowsAreLaidOutAsDocumented) {
    const aaa_table_row_t &row = aaa_table[AAA_USERNAME_ATTR];
    std::string expected(24, '\0');
    const uint32_t type = 257;
    std::memcpy(&expected[0], &type, sizeof type);
    std::memcpy(&expected[16], &row.name, sizeof row.name);
    EXPECT_EQ(std::memcmp(&row, expected.data(), expected.size()), 0);
    expected.assign(24, '\0');
    const uint32_t empty[] = {90, 0, 1, 0};
    std::memcpy(&expected[0], empty, sizeof empty);
    EXPECT_EQ(std::memcmp(&aaa_table[90], expected.data(), expected.size()), 0);
}

TEST(Dictionary, DefinedRowsPerFormat) {
    std::map<uint32_t, unsigned> formats;
    for (const aaa_table_row_t &row : aaa_table) {
        EXPECT_LE(row.format, 3u);
        formats[row.format] += row.no_entry == 0 ? 1u : 0u;
    }
    EXPECT_EQ(formats, (std::map<uint32_t, unsigned>{{AAA_FORMAT_STRING, 337u},
                                                     {AAA_FORMAT_INTEGER, 238u},
                                                     {AAA_FORMAT_BINARY, 24u},
                                                     {AAA_FORMAT_IPADDR, 28u}}));
    EXPECT_EQ(AAA_ATTR_DEFINED_ROWS, 627);
    EXPECT_EQ(formats[0] + formats[1] + formats[2] + formats[3], 627u);
}

// Gaps between and inside the blocks are empty rows.
TEST(Dictionary, DefinedRowsPerBlock) {
    struct Block {
        uint32_t first, last;
        unsigned defined;
        const char *prefix;
    };
    constexpr Block kBlocks[] = {
        {0, 89, 90, "AAA_"},           {90, 255, 0, ""},
        {256, 347, 83, "AAA_"},        {348, 511, 0, ""},
        {512, 688, 177, "AAA_ASND_"},  {689, 768, 0, ""},
        {769, 816, 47, "AAA_ACC_"},    {817, 1023, 0, ""},
        {1024, 1084, 61, "AAA_VS_"},   {1085, 1296, 0, ""},
        {1297, 1418, 122, "AAA_VS1_"}, {1419, 1559, 0, ""},
        {1560, 1602, 38, "AAA_CDMA_"}, {1603, 1814, 0, ""},
        {1815, 1823, 9, "AAA_"},       {1824, 2070, 0, ""},
    };
    uint32_t next = 0;
    for (const Block &block : kBlocks) {
        EXPECT_EQ(block.first, next);
        unsigned defined = 0;
        for (; next <= block.last; ++next) {
            const char *const name = aaa_table[next].name;
            if (name != nullptr) {
                ++defined;
                EXPECT_TRUE(std::string_view(name).starts_with(block.prefix)) << name;
            }
        }
        EXPECT_EQ(defined, block.defined) << block.first;
    }
    EXPECT_EQ(next, std::size(aaa_table));
}

TEST(Dictionary, NamesAreUnique) {
    std::set<std::string> names;
    for (const aaa_table_row_t &row : aaa_table) {
        if (row.name != nullptr) {
            EXPECT_TRUE(names.insert(row.name).second) << row.name;
        }
    }
    EXPECT_EQ(names.size(), 627u);
}

TEST(Dictionary, EnumeratorsHaveTheTypesOfTheirRows) {
    EXPECT_EQ(enumerators().size(), 627u);
    for (const Row &row : copy()) {
        if (row.no_entry == 0) {
            const auto found = enumerators().find(row.name);
            ASSERT_NE(found, enumerators().end()) << row.name;
            EXPECT_EQ(found->second, row.type) << row.name;
        }
    }
    static_assert(AAA_PLACE_HOLDER_ATTR == 0 && AAA_ILLEGAL_ATTR == 1 && AAA_USERNAME_ATTR == 257);
    static_assert(AAA_TIMEOUT_ATTR == 283 && AAA_CHAP_CHALL_ATTR == 316 && AAA_NAS_PORT_ID_ATTR == 343);
    static_assert(AAA_VS_MLIST_NAME == 1083 && AAA_MSCHAP_CHALLENGE_ATTR == 1823);
}

// Callers use these misspelt names, so they stay.
TEST(Dictionary, OddNamesStay) {
    EXPECT_STREQ(aaa_table[75].name, "AAA_MBGL_RPCNAME_ATTR");
    EXPECT_STREQ(aaa_table[624].name, "AAA_ASND_PRE_IN_OCTECTS_ATTR");
    EXPECT_STREQ(aaa_table[625].name, "AAA_ASND_PRE_OUT_OCTECTS_ATTR");
    EXPECT_STREQ(aaa_table[1590].name, "AAA_CDMA_SDB_INPUT_OCTECTS");
    EXPECT_STREQ(aaa_table[1591].name, "AAA_CDMA_SDB_OUTPUT_OCTECTS");
    EXPECT_STREQ(aaa_table[45].name, "AAA_ACCTD_CODE");
    EXPECT_STREQ(aaa_table[513].name, "AAA_ASND_SESSION_TYPE");
}

TEST(Dictionary, VendorSpecificStaysEmpty) {
    EXPECT_EQ(aaa_table[282].no_entry, 1u);
    EXPECT_EQ(aaa_table[282].name, nullptr);
}

TEST(Dictionary, OneEmptyRowHasAFormat) {
    for (const aaa_table_row_t &row : aaa_table) {
        if (row.no_entry == 1) {
            EXPECT_EQ(row.format, row.type == 809 ? 1u : 0u) << row.type;
        }
    }
}

void write_to(const void *constant) {
    auto *const byte = reinterpret_cast<volatile char *>(reinterpret_cast<uintptr_t>(constant));
    *byte = static_cast<char>(*byte + 1);
}

TEST(DictionaryDeathTest, TableIsReadOnly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(write_to(&aaa_table[1000]), "");
}

// ---- Lookups ---------------------------------------------------------------

constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
constexpr int32_t kMost = std::numeric_limits<int32_t>::max();

TEST(DictionaryLookup, NameIsTheRowsOwn) {
    for (const Row &row : copy()) {
        if (row.type != 0) {
            EXPECT_EQ(aaa_attribute_pname(static_cast<int32_t>(row.type)), aaa_table[row.type].name);
        }
    }
    EXPECT_EQ(aaa_attribute_pname(90), nullptr);
    EXPECT_EQ(aaa_attribute_pname(2070), nullptr);
    EXPECT_STREQ(aaa_attribute_pname(1), "AAA_ILLEGAL_ATTR");
    EXPECT_STREQ(aaa_attribute_pname(1044), "AAA_VS_KVN_INFO");
}

TEST(DictionaryLookup, NameOutOfRange) {
    for (const int32_t type : {0, -1, 2071, kLeast, kMost}) {
        EXPECT_STREQ(aaa_attribute_pname(type), "<invalid attribute>") << type;
    }
}

TEST(DictionaryLookup, FormatIsTheRowsOwn) {
    for (const Row &row : copy()) {
        if (row.type != 0) {
            EXPECT_EQ(aaa_attribute_format(static_cast<int32_t>(row.type)), row.format) << row.type;
        }
    }
    EXPECT_EQ(aaa_attribute_format(809), 1u);
    EXPECT_EQ(aaa_attribute_format(260), 3u);
}

// Row 0 has the integer format, and type 0 is invalid nevertheless.
TEST(DictionaryLookup, FormatOutOfRange) {
    EXPECT_EQ(aaa_table[0].format, 1u);
    for (const int32_t type : {0, -1, 2071, kLeast, kMost}) {
        EXPECT_EQ(aaa_attribute_format(type), 0xFFFFFFFFu) << type;
    }
}

TEST(DictionaryLookup, CallsNothing) {
    fake::clear_journal();
    aaa_attribute_pname(257);
    aaa_attribute_format(257);
    EXPECT_TRUE(fake::calls().empty());
    EXPECT_TRUE(fake::traces().empty());
}

// ---- Conversion on the wire ------------------------------------------------

struct FreeList {
    void operator()(avlist *list) const { aaa_avpair_free_list(list); }
};

// A 4-byte value travels in network order when the type's format is integer
// or IPv4 address; types that no attribute may have are left alone.
TEST(DictionaryConversion, FollowsTheFormatOfEveryType) {
    constexpr uint32_t kBeyond[] = {2071, 2072, 0x10000, 0x80000000, 0xFFFFFFFF};
    const std::string as_stored = {1, 2, 3, 4};
    avlist *made = nullptr;
    ASSERT_EQ(aaa_avpair_create_list(nullptr, &made), AAA_OK);
    const std::unique_ptr<avlist, FreeList> list(made);
    std::vector<std::string> expected;
    const auto add = [&](uint32_t type, bool converted) {
        ASSERT_EQ(aaa_avpair_add(type, 0, as_stored.data(), 0, 4, list.get()), AAA_OK);
        expected.push_back(converted ? std::string{4, 3, 2, 1} : as_stored);
    };
    for (const Row &row : copy()) {
        if (row.type != AAA_ATTR_MAX) {  // the mark of a deleted pair cannot be added
            add(row.type, row.type != 0 && (row.format == 1 || row.format == 3));
        }
    }
    for (const uint32_t type : kBeyond) {
        add(type, false);
    }

    constexpr std::size_t kHeader = 56, kPair = 20;
    std::vector<char> packed(kHeader + expected.size() * kPair);
    auto size = static_cast<uint32_t>(packed.size());
    ASSERT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), packed.data(), &size), AAA_OK);
    ASSERT_EQ(size, packed.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(std::string(&packed[kHeader + i * kPair + 16], 4), expected[i]) << i;
    }
}

}  // namespace
