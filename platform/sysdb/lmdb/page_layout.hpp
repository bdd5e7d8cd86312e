// SPDX-License-Identifier: Apache-2.0
//
// The pages of LMDB's data file, format version 1, on 64-bit machines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace sysdb_lmdb::layout {

inline constexpr std::uint32_t kMagic = 0xBEEFC0DE;
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::uint64_t kNoPage = ~std::uint64_t{0};
inline constexpr std::size_t kMetaPages = 2;

inline constexpr std::uint16_t kBranch = 0x01;
inline constexpr std::uint16_t kLeaf = 0x02;
inline constexpr std::uint16_t kOverflow = 0x04;
inline constexpr std::uint16_t kMeta = 0x08;
inline constexpr std::uint16_t kDirty = 0x10;  // remains set on pages within pages
inline constexpr std::uint16_t kSubPage = 0x40;

inline constexpr std::uint16_t kBigData = 0x01;   // the value is on overflow pages
inline constexpr std::uint16_t kSubTable = 0x02;  // the value is a Table
inline constexpr std::uint16_t kDuplicates = 0x04;

// Flags of tables.
inline constexpr std::uint16_t kManyValues = 0x04;
inline constexpr std::uint16_t kIntegerKeys = 0x08;
inline constexpr std::uint16_t kMadeAsFile = 0x4000;

struct PageHeader {
    std::uint64_t number;
    std::uint16_t padding;
    std::uint16_t flags;
    std::uint16_t lower;  // end of the offsets; with upper, a count of pages on overflow pages
    std::uint16_t upper;

    std::uint32_t overflow_pages() const { return lower | static_cast<std::uint32_t>(upper) << 16; }
};
static_assert(sizeof(PageHeader) == 16);

struct Table {
    std::uint32_t padding;  // of the free list: the page size
    std::uint16_t flags;
    std::uint16_t depth;
    std::uint64_t branch_pages;
    std::uint64_t leaf_pages;
    std::uint64_t overflow_pages;
    std::uint64_t entries;
    std::uint64_t root;
};
static_assert(sizeof(Table) == 48);

struct Meta {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t address;
    std::uint64_t map_bytes;
    Table free_list;
    Table main;
    std::uint64_t last_page;
    std::uint64_t txnid;
};
static_assert(sizeof(Meta) == 136);

struct Node {
    std::uint16_t low;
    std::uint16_t high;
    std::uint16_t flags;
    std::uint16_t key_size;

    std::uint32_t data_size() const { return low | static_cast<std::uint32_t>(high) << 16; }
    std::uint64_t child() const { return data_size() | static_cast<std::uint64_t>(flags) << 32; }
};
static_assert(sizeof(Node) == 8);

template <typename Record>
Record read(const unsigned char *from) {
    Record record;
    std::memcpy(&record, from, sizeof record);
    return record;
}

}  // namespace sysdb_lmdb::layout
