// SPDX-License-Identifier: Apache-2.0
//
// The checks of file heads.

#include "head_check.hpp"

#include <algorithm>

namespace sysdb_lmdb {
namespace {

using layout::Meta;
using layout::PageHeader;
using layout::Table;

constexpr std::uint32_t kSmallestPage = 512;
constexpr std::uint32_t kLargestPage = 32768;

constexpr std::uint64_t kLargestMap = UINT64_C(1) << 40;
constexpr std::uint64_t kLargestTxn = UINT64_MAX / 2;  // never reached by counting

bool page_size_ok(std::uint32_t size) {
    return size >= kSmallestPage && size <= kLargestPage && (size & (size - 1)) == 0;
}

// LMDB uses the head at the place given by its number modulo 2, so another
// place would mean another head than the checked one. A new file has number 0
// twice.
bool place_ok(const Meta &meta, std::uint64_t offset) {
    return meta.txnid == 0 || (meta.txnid % 2 != 0) == (offset != 0);
}

}  // namespace

bool root_ok(const Table &table, std::uint64_t last_page) {
    return table.root == layout::kNoPage || (table.root >= layout::kMetaPages && table.root <= last_page);
}

const char *meta_fault(const FileBytes &file, std::uint64_t offset, Meta &meta) {
    unsigned char bytes[sizeof(PageHeader) + sizeof(Meta)];
    if (!file.read(bytes, sizeof bytes, offset)) {
        return kTruncatedFile;
    }
    const auto header = layout::read<PageHeader>(bytes);
    meta = layout::read<Meta>(bytes + sizeof(PageHeader));
    if (meta.magic != layout::kMagic || (header.flags & layout::kMeta) == 0) {
        return "it is not an LMDB file";
    }
    if (meta.version != layout::kVersion) {
        return "it has another LMDB format version";
    }
    if (meta.main.flags != 0) {
        return "it is the database of another program";
    }
    // The free list's flags carry those with which the file was made.
    const unsigned flags = meta.free_list.flags & ~unsigned{layout::kMadeAsFile};
    // LMDB maps room for the last page, regardless of the map's size.
    if (flags != layout::kIntegerKeys || !page_size_ok(meta.free_list.padding) ||
        meta.map_bytes > kLargestMap || meta.last_page >= meta.map_bytes / meta.free_list.padding ||
        meta.txnid > kLargestTxn || !place_ok(meta, offset) || !root_ok(meta.free_list, meta.last_page) ||
        !root_ok(meta.main, meta.last_page)) {
        return "its head is damaged";
    }
    return nullptr;
}

FileHead head_of(const FileBytes &file) {
    FileHead head;
    Meta first;
    Meta second;
    head.fault = meta_fault(file, 0, first);
    if (head.fault == nullptr) {
        head.fault = meta_fault(file, first.free_list.padding, second);
    }
    if (head.fault == nullptr) {
        head.map_bytes = std::max(first.map_bytes, second.map_bytes);
        head.txnid = std::max(first.txnid, second.txnid);
    }
    return head;
}

FileHead inspect_head(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && status.st_size > 0 ? head_of(FileBytes(fd)) : FileHead{};
}

}  // namespace sysdb_lmdb
