// SPDX-License-Identifier: Apache-2.0
//
// Independent check of a list: reads the record, the buffers and the pairs as
// bytes at the offsets of the documented layout, through nothing else of the
// library, and reports the first fault.
//
//     EXPECT_STREQ(verify_list(list).fault, "");
//     EXPECT_STREQ(verify_list(list, ListOrigin::unpacked).fault, "");
//
// The library contains it only with the build option AAA_VERIFY_LISTS; tests and
// fuzzers compile it into their own programs. It takes no heap and throws nothing.
#pragma once

#include <cstddef>

namespace aaautil {

// A list that was built by adding pairs is checked in full. In one that was
// unpacked (and perhaps changed afterwards) the count has the byte order of
// the message, so it is only told apart from zero, and the reserved bytes and
// the bytes between pairs are the sender's.
enum class ListOrigin { built, unpacked };

struct Verdict {
    char fault[160];  // empty when the list is sound
    [[nodiscard]] bool sound() const noexcept { return fault[0] == '\0'; }
};

[[nodiscard]] Verdict verify_list(const void *list, ListOrigin origin = ListOrigin::built) noexcept;

}  // namespace aaautil
