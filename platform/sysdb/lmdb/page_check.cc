// SPDX-License-Identifier: Apache-2.0

#include "page_check.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "page_layout.hpp"

namespace sysdb_lmdb {
namespace {

using layout::Meta;
using layout::Node;
using layout::PageHeader;
using layout::Table;

constexpr unsigned kMaxDepth = 32;
constexpr std::uint32_t kSmallestPage = 512;
constexpr std::uint32_t kLargestPage = 32768;

constexpr std::uint64_t kLargestMap = UINT64_C(1) << 40;

constexpr char kTruncated[] = "it is truncated";
constexpr char kBadPage[] = "a page is damaged";

bool read_at(int fd, void *to, std::size_t size, std::uint64_t offset) {
    return pread(fd, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool page_size_ok(std::uint32_t size) {
    return size >= kSmallestPage && size <= kLargestPage && (size & (size - 1)) == 0;
}

bool root_ok(const Table &table, std::uint64_t last_page) {
    return table.root == layout::kNoPage || (table.root >= layout::kMetaPages && table.root <= last_page);
}

const char *meta_fault(int fd, std::uint64_t offset, Meta &meta) {
    unsigned char bytes[sizeof(PageHeader) + sizeof(Meta)];
    if (!read_at(fd, bytes, sizeof bytes, offset)) {
        return kTruncated;
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
        return "it is a database of something else";
    }
    // The free list's flags carry those with which the file was made.
    const unsigned flags = meta.free_list.flags & ~unsigned{layout::kMadeAsFile};
    if (flags != layout::kIntegerKeys || !page_size_ok(meta.free_list.padding) ||
        meta.map_bytes > kLargestMap || meta.last_page >= UINT64_C(1) << 40 ||
        !root_ok(meta.free_list, meta.last_page) || !root_ok(meta.main, meta.last_page)) {
        return "its head is damaged";
    }
    return nullptr;
}

// Walks everything that one meta page leads to.
class Checker {
  public:
    Checker(int fd, const Meta &meta, std::uint64_t file_bytes)
        : fd_(fd),
          page_size_(meta.free_list.padding),
          last_page_(meta.last_page),
          seen_((file_bytes + page_size_ - 1) / page_size_, false) {}

    const char *run(const Meta &meta) {
        check_table(meta.main, kItems);
        if (fault_ == nullptr) {
            check_table(meta.free_list, kFreeList);
        }
        return fault_;
    }

  private:
    enum Kind { kItems, kFreeList };
    using Page = std::vector<unsigned char>;

    bool fail(const char *fault) {
        if (fault_ == nullptr) {
            fault_ = fault;
        }
        return false;
    }

    // A page may be reached once.
    bool claim(std::uint64_t number) {
        if (number < layout::kMetaPages || number > last_page_) {
            return fail(kBadPage);
        }
        if (number >= seen_.size()) {
            return fail(kTruncated);
        }
        if (seen_[number]) {
            return fail("a page is used twice");
        }
        seen_[number] = true;
        return true;
    }

    bool load(std::uint64_t number, Page &page) {
        page.resize(page_size_);
        if (!claim(number)) {
            return false;
        }
        return read_at(fd_, page.data(), page_size_, number * page_size_) || fail(kTruncated);
    }

    void check_table(const Table &table, Kind kind) {
        if (table.root == layout::kNoPage) {
            return;
        }
        if (table.depth == 0 || table.depth > kMaxDepth) {
            fail(kBadPage);
            return;
        }
        const bool integer_keys = kind == kFreeList || (table.flags & layout::kIntegerKeys) != 0;
        check_page(table.root, table.depth, integer_keys, kind);
    }

    void check_page(std::uint64_t number, unsigned levels, bool integer_keys, Kind kind) {
        Page page;
        if (!load(number, page)) {
            return;
        }
        const auto header = layout::read<PageHeader>(page.data());
        const std::uint16_t expected = levels == 1 ? layout::kLeaf : layout::kBranch;
        if (header.number != number || (header.flags & (layout::kLeaf | layout::kBranch)) != expected ||
            (header.flags & layout::kFixedLeaf) != 0) {
            fail(kBadPage);
            return;
        }
        const std::size_t count = node_count(page.data(), page_size_, levels > 1);
        // LMDB aborts on a branch with less than two children.
        if (fault_ != nullptr || count < (levels > 1 && kind != kFreeList ? 2U : 1U)) {
            fail(kBadPage);
            return;
        }
        for (std::size_t i = 0; i < count && fault_ == nullptr; ++i) {
            check_node(page.data(), page_size_, i, levels, integer_keys, kind);
        }
    }

    // Entries of a page or sub-page, 0 when they are not where they must be:
    // packed without holes from the end of the page down to its upper mark.
    std::size_t node_count(const unsigned char *page, std::size_t size, bool branch) {
        const auto header = layout::read<PageHeader>(page);
        if (header.lower < sizeof(PageHeader) || header.lower > header.upper || header.upper > size ||
            header.lower % 2 != 0) {
            fail(kBadPage);
            return 0;
        }
        const std::size_t count = (header.lower - sizeof(PageHeader)) / 2;
        std::size_t lowest = size;
        std::size_t total = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t offset = layout::read<std::uint16_t>(page + sizeof(PageHeader) + 2 * i);
            if (offset < header.lower || offset % 2 != 0 || offset + sizeof(Node) > size) {
                fail(kBadPage);
                return 0;
            }
            lowest = std::min(lowest, offset);
            total += node_bytes(layout::read<Node>(page + offset), branch);
        }
        if (lowest != header.upper || total != size - header.upper) {
            fail(kBadPage);
            return 0;
        }
        return count;
    }

    static std::size_t node_bytes(const Node &node, bool branch) {
        std::size_t bytes = sizeof(Node) + node.key_size;
        if (!branch) {
            bytes += (node.flags & layout::kBigData) != 0 ? sizeof(std::uint64_t) : node.data_size();
        }
        return bytes + bytes % 2;
    }

    void check_node(const unsigned char *page, std::size_t size, std::size_t index, unsigned levels,
                    bool integer_keys, Kind kind) {
        const std::size_t offset = layout::read<std::uint16_t>(page + sizeof(PageHeader) + 2 * index);
        const auto node = layout::read<Node>(page + offset);
        const std::size_t data = offset + sizeof(Node) + node.key_size;
        const bool first_of_branch = levels > 1 && index == 0;  // has no key
        if (data > size || (integer_keys && !first_of_branch && node.key_size != sizeof(std::uint64_t))) {
            fail(kBadPage);
            return;
        }
        if (levels > 1) {
            check_page(node.child(), levels - 1, integer_keys, kind);
        } else {
            check_value(page + data, size - data, node, kind);
        }
    }

    void check_value(const unsigned char *data, std::size_t room, const Node &node, Kind kind) {
        if ((node.flags & layout::kBigData) != 0) {
            check_overflow(data, room, node.data_size(), kind);
            return;
        }
        if (node.data_size() > room) {
            fail(kBadPage);
            return;
        }
        if ((node.flags & layout::kSubTable) != 0) {
            if (node.data_size() != sizeof(Table)) {
                fail(kBadPage);
                return;
            }
            const auto table = layout::read<Table>(data);
            if (!root_ok(table, last_page_)) {
                fail(kBadPage);
                return;
            }
            check_table(table, kItems);
        } else if ((node.flags & layout::kDuplicates) != 0) {
            check_sub_page(data, node.data_size());
        } else if (kind == kFreeList) {
            check_free_pages(data, node.data_size());
        }
    }

    void check_overflow(const unsigned char *data, std::size_t room, std::size_t bytes, Kind kind) {
        if (room < sizeof(std::uint64_t)) {
            fail(kBadPage);
            return;
        }
        const auto number = layout::read<std::uint64_t>(data);
        Page page;
        if (!load(number, page)) {
            return;
        }
        const auto header = layout::read<PageHeader>(page.data());
        const std::uint64_t needed = (sizeof(PageHeader) + bytes + page_size_ - 1) / page_size_;
        if ((header.flags & layout::kOverflow) == 0 || header.overflow_pages() < needed) {
            fail(kBadPage);
            return;
        }
        for (std::uint64_t i = 1; i < header.overflow_pages(); ++i) {
            if (!claim(number + i)) {
                return;
            }
        }
        if (kind != kFreeList) {
            return;
        }
        Page value(bytes);
        if (read_at(fd_, value.data(), bytes, number * page_size_ + sizeof(PageHeader))) {
            check_free_pages(value.data(), bytes);
        } else {
            fail(kTruncated);
        }
    }

    // The values of one key, small enough to lie in the node itself.
    void check_sub_page(const unsigned char *data, std::size_t size) {
        if (size < sizeof(PageHeader)) {
            fail(kBadPage);
            return;
        }
        const auto header = layout::read<PageHeader>(data);
        if ((header.flags & layout::kSubPage) == 0 || (header.flags & layout::kFixedLeaf) != 0) {
            fail(kBadPage);
            return;
        }
        const std::size_t count = node_count(data, size, false);
        for (std::size_t i = 0; i < count && fault_ == nullptr; ++i) {
            check_node(data, size, i, 1, false, kItems);
        }
    }

    // A count and as many numbers of pages that nobody uses any more.
    void check_free_pages(const unsigned char *data, std::size_t size) {
        const std::uint64_t count = size >= 8 ? layout::read<std::uint64_t>(data) : 0;
        if (size < 8 || count > size / 8 - 1) {
            fail("the list of free pages is damaged");
            return;
        }
        for (std::uint64_t i = 1; i <= count; ++i) {
            const auto number = layout::read<std::uint64_t>(data + 8 * i);
            const bool known = number >= layout::kMetaPages && number <= last_page_;
            if (!known || (number < seen_.size() && seen_[number])) {
                fail("the list of free pages is damaged");
                return;
            }
            if (number < seen_.size()) {
                seen_[number] = true;
            }
        }
    }

    const int fd_;
    const std::uint32_t page_size_;
    const std::uint64_t last_page_;
    std::vector<bool> seen_;
    const char *fault_ = nullptr;
};

}  // namespace

FileHead inspect_head(const std::string &file) {
    FileHead head;
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return head;
    }
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        Meta first;
        Meta second;
        head.fault = meta_fault(fd, 0, first);
        if (head.fault == nullptr) {
            head.fault = meta_fault(fd, first.free_list.padding, second);
        }
        if (head.fault == nullptr) {
            head.map_bytes = std::max(first.map_bytes, second.map_bytes);
        }
    }
    close(fd);
    return head;
}

const char *find_page_fault(int fd, std::uint64_t txnid, bool &stale) {
    stale = false;
    Meta meta;
    const char *fault = meta_fault(fd, 0, meta);
    if (fault == nullptr && meta.txnid != txnid) {
        fault = meta_fault(fd, meta.free_list.padding, meta);
        stale = fault == nullptr && meta.txnid != txnid;
    }
    if (fault != nullptr || stale) {
        return fault;
    }
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return kTruncated;
    }
    return Checker(fd, meta, static_cast<std::uint64_t>(status.st_size)).run(meta);
}

}  // namespace sysdb_lmdb
