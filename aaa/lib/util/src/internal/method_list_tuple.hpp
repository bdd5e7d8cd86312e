// SPDX-License-Identifier: Apache-2.0
//
// The tuple in which a method list is configured: four method codes, three more
// words in an accounting list, and the names of four server groups.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/sysdb.h"

namespace aaautil {

enum class TupleLayout { kPlain, kAccounting };

struct MethodListTuple {
    static constexpr std::size_t kSlots = 4;

    uint32_t method[kSlots] = {};
    uint32_t accounting[3] = {};
    // A name has at most 50 bytes, NUL included. The bytes that follow are for a
    // platform that counts otherwise.
    char name[kSlots][64] = {};

    // The platform's result: 0, else it may have set errno. Names always end in NUL.
    [[nodiscard]] int unpack(TupleLayout layout, const void *tuple) noexcept {
        const int rc = layout == TupleLayout::kAccounting
                           ? tuple_unpack_mask(tuple, "%d%d%d%d%d%d%d%s%s%s%s", &method[0], &method[1],
                                               &method[2], &method[3], &accounting[0], &accounting[1],
                                               &accounting[2], name[0], name[1], name[2], name[3])
                           : tuple_unpack_mask(tuple, "%d%d%d%d%s%s%s%s", &method[0], &method[1], &method[2],
                                               &method[3], name[0], name[1], name[2], name[3]);
        for (auto &text : name) {
            text[49] = '\0';
        }
        return rc;
    }
};

}  // namespace aaautil
