// SPDX-License-Identifier: Apache-2.0
//
// The checks of pages.

#include "page_check.hpp"

#include <algorithm>
#include <string_view>
#include <vector>

#include "key.hpp"
#include "page_form.hpp"
#include "page_layout.hpp"

namespace sysdb_lmdb {
namespace {

using layout::Meta;
using layout::Node;
using layout::PageHeader;
using layout::Table;

constexpr unsigned kMaxDepth = 32;

constexpr char kBadPage[] = "a page is damaged";
constexpr char kBadFreeList[] = "the list of free pages is damaged";

// Walks all pages that one meta page refers to.
class Checker {
  public:
    Checker(const FileBytes &file, const Meta &meta, std::uint64_t file_bytes)
        : file_(file),
          page_size_(meta.free_list.padding),
          last_page_(meta.last_page),
          txnid_(meta.txnid),
          seen_((file_bytes + page_size_ - 1) / page_size_, false) {}

    const char *run(const Meta &meta) {
        check_table(meta.main, {.names_tables = true});
        if (fault_ == nullptr) {
            check_table(meta.free_list, {.integer_keys = true, .free_list = true});
        }
        return fault_;
    }

  private:
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
            return fail(kTruncatedFile);
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
        return file_.read(page.data(), page_size_, number * page_size_) || fail(kTruncatedFile);
    }

    void check_table(const Table &table, const PageForm &form) {
        const bool empty = table.root == layout::kNoPage;
        if (empty != (table.depth == 0) || table.depth > kMaxDepth || (empty && form.keys_only)) {
            fail(kBadPage);
            return;
        }
        if (empty) {
            return;
        }
        check_page(table.root, table.depth, form, {});
    }

    void check_page(std::uint64_t number, unsigned levels, const PageForm &form, const KeyRange &range) {
        Page page;
        if (!load(number, page)) {
            return;
        }
        const auto header = layout::read<PageHeader>(page.data());
        const std::uint16_t expected = levels == 1 ? layout::kLeaf : layout::kBranch;
        if (header.number != number || header.flags != expected) {
            fail(kBadPage);
            return;
        }
        const std::size_t count = node_count(page.data(), page_size_, levels > 1);
        // LMDB aborts on a branch with less than two children.
        if (fault_ != nullptr || count < (levels > 1 && !form.free_list ? 2U : 1U) ||
            !keys_in_order(page.data(), page_size_, count, levels > 1, form, range)) {
            fail(kBadPage);
            return;
        }
        for (std::size_t i = 0; i < count && fault_ == nullptr; ++i) {
            if (levels > 1) {
                check_child(page.data(), i, count, levels, form, range);
            } else {
                check_leaf_node(page.data(), i, form);
                ++leaf_nodes_;
            }
        }
    }

    static std::size_t node_offset(const unsigned char *page, std::size_t index) {
        return layout::read<std::uint16_t>(page + sizeof(PageHeader) + 2 * index);
    }

    static Node node_at(const unsigned char *page, std::size_t index) {
        return layout::read<Node>(page + node_offset(page, index));
    }

    static std::string_view key_at(const unsigned char *page, std::size_t index) {
        const unsigned char *at = page + node_offset(page, index) + sizeof(Node);
        return {reinterpret_cast<const char *>(at), node_at(page, index).key_size};
    }

    // Keys must be inside the page, not too long, and ascending within the range: a
    // search in unordered keys may never end. The first key of a branch is unused.
    static bool keys_in_order(const unsigned char *page, std::size_t size, std::size_t count, bool branch,
                              const PageForm &form, const KeyRange &range) {
        std::string_view before = range.low != nullptr ? *range.low : std::string_view();
        bool may_equal = range.low != nullptr;
        bool none_before = range.low == nullptr;
        for (std::size_t i = branch ? 1 : 0; i < count; ++i) {
            const std::string_view key = key_at(page, i);
            if (node_offset(page, i) + sizeof(Node) + key.size() > size || key.empty() ||
                key.size() > kMaxKey || (form.integer_keys && key.size() != sizeof(std::uint64_t))) {
                return false;
            }
            const bool ascends =
                none_before || less(before, key, form) || (may_equal && !less(key, before, form));
            if (!ascends || (range.high != nullptr && !less(key, *range.high, form))) {
                return false;
            }
            before = key;
            may_equal = false;
            none_before = false;
        }
        return true;
    }

    void check_child(const unsigned char *page, std::size_t index, std::size_t count, unsigned levels,
                     const PageForm &form, const KeyRange &range) {
        KeyRange below = range;
        const std::string_view low = index > 0 ? key_at(page, index) : std::string_view();
        const std::string_view high = index + 1 < count ? key_at(page, index + 1) : std::string_view();
        below.low = index > 0 ? &low : range.low;
        below.high = index + 1 < count ? &high : range.high;
        check_page(node_at(page, index).child(), levels - 1, form, below);
    }

    void check_leaf_node(const unsigned char *page, std::size_t index, const PageForm &form) {
        const Node node = node_at(page, index);
        const std::size_t data = node_offset(page, index) + sizeof(Node) + node.key_size;
        if (form.free_list &&
            (number_of(key_at(page, index)) == 0 || number_of(key_at(page, index)) > txnid_)) {
            fail(kBadFreeList);
            return;
        }
        check_value(page + data, page_size_ - data, node, form);
    }

    // Number of entries of a page or sub-page, 0 when they are not packed without
    // holes from the end of the page down to its upper mark.
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

    // LMDB splits pages on the assumption that two nodes fit.
    [[nodiscard]] bool is_too_large(const Node &node) const {
        return sizeof(Node) + node.key_size + node.data_size() > (page_size_ - sizeof(PageHeader)) / 2;
    }

    void check_value(const unsigned char *data, std::size_t room, const Node &node, const PageForm &form) {
        if (form.keys_only) {
            if (node.flags != 0 || node.data_size() != 0) {
                fail(kBadPage);
            }
            return;
        }
        if (node.flags == layout::kBigData && !form.duplicates) {
            check_overflow(data, room, node.data_size(), form);
            return;
        }
        if (node.data_size() > room || is_too_large(node)) {
            fail(kBadPage);
            return;
        }
        const std::uint16_t table_flags =
            form.duplicates ? layout::kSubTable | layout::kDuplicates : layout::kSubTable;
        if (node.flags == table_flags && (form.names_tables || form.duplicates)) {
            check_sub_table(data, node.data_size(), form);
        } else if (node.flags == layout::kDuplicates && form.duplicates) {
            check_sub_page(data, node.data_size());
        } else if (node.flags != 0 || (form.duplicates && node.data_size() > kMaxKey)) {
            fail(kBadPage);
        } else if (form.free_list) {
            check_free_pages(data, node.data_size());
        }
    }

    void check_sub_table(const unsigned char *data, std::size_t size, const PageForm &form) {
        if (size != sizeof(Table)) {
            fail(kBadPage);
            return;
        }
        const auto table = layout::read<Table>(data);
        const std::uint16_t known = form.duplicates ? 0 : layout::kIntegerKeys | layout::kManyValues;
        if (!root_ok(table, last_page_) || (table.flags & ~known) != 0) {
            fail(kBadPage);
            return;
        }
        const std::uint64_t before = leaf_nodes_;
        check_table(table, {.integer_keys = (table.flags & layout::kIntegerKeys) != 0,
                            .duplicates = (table.flags & layout::kManyValues) != 0,
                            .keys_only = form.duplicates});
        // LMDB uses this number when it removes a key with its last value.
        if (form.duplicates && table.entries != leaf_nodes_ - before) {
            fail(kBadPage);
        }
    }

    void check_overflow(const unsigned char *data, std::size_t room, std::size_t bytes,
                        const PageForm &form) {
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
        // Deletion frees the pages from the stated number on.
        if (header.number != number || header.flags != layout::kOverflow ||
            header.overflow_pages() < needed) {
            fail(kBadPage);
            return;
        }
        for (std::uint64_t i = 1; i < header.overflow_pages(); ++i) {
            if (!claim(number + i)) {
                return;
            }
        }
        if (!form.free_list) {
            return;
        }
        Page value(bytes);
        if (file_.read(value.data(), bytes, number * page_size_ + sizeof(PageHeader))) {
            check_free_pages(value.data(), bytes);
        } else {
            fail(kTruncatedFile);
        }
    }

    // The values of one key, small enough to be stored in the node itself.
    void check_sub_page(const unsigned char *data, std::size_t size) {
        if (size < sizeof(PageHeader)) {
            fail(kBadPage);
            return;
        }
        const auto header = layout::read<PageHeader>(data);
        if ((header.flags & ~layout::kDirty) != (layout::kSubPage | layout::kLeaf)) {
            fail(kBadPage);
            return;
        }
        const PageForm form{.keys_only = true};
        const std::size_t count = node_count(data, size, false);
        if (fault_ != nullptr || count == 0 || !keys_in_order(data, size, count, false, form, {})) {
            fail(kBadPage);
            return;
        }
        for (std::size_t i = 0; i < count && fault_ == nullptr; ++i) {
            check_value(nullptr, 0, node_at(data, i), form);
        }
    }

    // A count and as many numbers of unused pages, the largest first: LMDB merges
    // such lists.
    void check_free_pages(const unsigned char *data, std::size_t size) {
        const std::uint64_t count = size >= 8 ? layout::read<std::uint64_t>(data) : 0;
        if (size < 8 || count > size / 8 - 1) {
            fail(kBadFreeList);
            return;
        }
        std::uint64_t before = last_page_ + 1;
        for (std::uint64_t i = 1; i <= count; ++i) {
            const auto number = layout::read<std::uint64_t>(data + 8 * i);
            const bool used = number < seen_.size() && seen_[number];
            if (number < layout::kMetaPages || number >= before || used) {
                fail(kBadFreeList);
                return;
            }
            before = number;
            if (number < seen_.size()) {
                seen_[number] = true;
            }
        }
    }

    const FileBytes file_;
    const std::uint32_t page_size_;
    const std::uint64_t last_page_;
    const std::uint64_t txnid_;
    std::vector<bool> seen_;
    std::uint64_t leaf_nodes_ = 0;
    const char *fault_ = nullptr;
};

const char *page_fault(const FileBytes &file, std::uint64_t txnid, bool &stale) {
    stale = false;
    Meta meta;
    const char *fault = meta_fault(file, 0, meta);
    if (fault == nullptr && meta.txnid != txnid) {
        fault = meta_fault(file, meta.free_list.padding, meta);
        stale = fault == nullptr && meta.txnid != txnid;
    }
    if (fault != nullptr || stale) {
        return fault;
    }
    std::uint64_t file_bytes = 0;
    return file.get_size(file_bytes) ? Checker(file, meta, file_bytes).run(meta) : kTruncatedFile;
}

}  // namespace

const char *find_page_fault(int fd, std::uint64_t txnid, bool &stale) {
    return page_fault(FileBytes(fd), txnid, stale);
}

const char *find_fault(std::string_view bytes) {
    const FileBytes file(bytes);
    const FileHead head = head_of(file);
    bool stale = false;
    return head.fault != nullptr ? head.fault : page_fault(file, head.txnid, stale);
}

}  // namespace sysdb_lmdb
