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

// What is wrong with the head of a file, null when nothing is or when there is
// no file or an empty one. To be asked before the file is opened by LMDB.
const char *find_header_fault(const std::string &file);

// What is wrong with the pages that belong to one transaction, null when
// nothing is. That transaction must be kept open by a reader. stale is set
// when the transaction is no longer one of the file's two newest.
const char *find_page_fault(int fd, std::uint64_t txnid, bool &stale);

}  // namespace sysdb_lmdb
