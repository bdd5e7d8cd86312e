// SPDX-License-Identifier: Apache-2.0
//
// The binary interface as a C++ compiler sees it: nothing here runs,
// everything must compile.

#include "aaa/aaautil.h"

#include <cstddef>
#include <type_traits>

#define RECORD(type, size)                 \
    static_assert(sizeof(type) == (size)); \
    static_assert(std::is_trivially_copyable_v<type> && std::is_standard_layout_v<type>);
#define FIELD(type, field, offset, size)              \
    static_assert(offsetof(type, field) == (offset)); \
    static_assert(sizeof(static_cast<type *>(nullptr)->field) == (size));
#define CONSTANT(name, value) static_assert(static_cast<uint32_t>(name) == static_cast<uint32_t>(value));
#include "layouts.def"

extern "C" {
#include "prototypes.inc"
}
