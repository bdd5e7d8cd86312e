// SPDX-License-Identifier: Apache-2.0
//
// A look at a database file before LMDB is let loose on it. LMDB believes
// what the file says: a truncated or overwritten file would end the process
// with a signal instead of a code. What is checked is what memory safety needs
// (page numbers, offsets, sizes, each page used once); wrong bytes inside a
// value are not found here.
#pragma once

#include <cstdint>
#include <string>

namespace sysdb_lmdb {

struct FileHead {
    const char *fault = nullptr;  // what is wrong with it
    std::uint64_t map_bytes = 0;  // the largest map that any process has used
};

// Looks at the head of a file before LMDB opens it. A file that is not there,
// or is empty, has no fault.
FileHead inspect_head(const std::string &file);

// What is wrong with the pages that belong to one transaction, null when
// nothing is. That transaction must be kept open by a reader. stale is set
// when the transaction is no longer one of the file's two newest.
const char *find_page_fault(int fd, std::uint64_t txnid, bool &stale);

}  // namespace sysdb_lmdb
