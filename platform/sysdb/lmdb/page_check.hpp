// SPDX-License-Identifier: Apache-2.0
//
// Checks a database file before LMDB uses it. LMDB does not: a truncated or
// overwritten file would end the process with a signal instead of a code. The
// checks cover memory safety (page numbers, offsets, sizes, each page used once);
// wrong bytes inside a value are not detected.
#pragma once

#include <cstdint>
#include <string_view>

#include "head_check.hpp"

namespace sysdb_lmdb {

// The first defect in the pages of one transaction, or null. A reader must keep
// that transaction open. stale is set when the transaction is not one of the
// file's two newest any more.
const char *find_page_fault(int fd, std::uint64_t txnid, bool &stale);

// The first defect in the bytes of a whole file, or null: in its head, then in the pages
// of its newest transaction. An empty file is truncated. For tests that try many files
// without writing them.
const char *find_fault(std::string_view bytes);

}  // namespace sysdb_lmdb
