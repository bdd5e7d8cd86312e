// SPDX-License-Identifier: Apache-2.0
//
// Checks the two heads of a database file. LMDB uses the one of the newest transaction.
#pragma once

#include <cstdint>

#include "file_bytes.hpp"
#include "page_layout.hpp"

namespace sysdb_lmdb {

inline constexpr char kTruncatedFile[] = "it is truncated";
inline constexpr char kEmptiedFile[] = "it is empty, and it held data before";

struct FileHead {
    const char *fault = nullptr;  // the defect, or null
    std::uint64_t map_bytes = 0;  // the largest map that any process has used
    std::uint64_t txnid = 0;      // of the newest transaction
};

// Checks the head of a file before LMDB opens it. An empty file has no fault.
FileHead inspect_head(int fd);

// The same for a file that is not empty.
FileHead head_of(const FileBytes &file);

// A table's root is a page of the file, or none.
bool root_ok(const layout::Table &table, std::uint64_t last_page);

// Reads one head; the defect, or null.
const char *meta_fault(const FileBytes &file, std::uint64_t offset, layout::Meta &meta);

}  // namespace sysdb_lmdb
