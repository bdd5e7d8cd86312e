// SPDX-License-Identifier: Apache-2.0
//
// What the pages of a table may contain.
#pragma once

#include <cstdint>
#include <string_view>

#include "page_layout.hpp"

namespace sysdb_lmdb {

// Permitted contents of a table.
struct PageForm {
    bool names_tables = false;  // values are tables
    bool integer_keys = false;
    bool free_list = false;
    bool duplicates = false;  // a key may have many values
    bool keys_only = false;   // the values of one key
};

// The keys that a page may hold: from low on, below high.
struct KeyRange {
    const std::string_view *low = nullptr;
    const std::string_view *high = nullptr;
};

inline std::uint64_t number_of(std::string_view key) {
    return layout::read<std::uint64_t>(reinterpret_cast<const unsigned char *>(key.data()));
}

inline bool less(std::string_view a, std::string_view b, const PageForm &form) {
    return form.integer_keys ? number_of(a) < number_of(b) : a < b;
}

}  // namespace sysdb_lmdb
