// SPDX-License-Identifier: Apache-2.0
//
// Independent check of a list: reads the record, the buffers and the pairs as
// bytes at the offsets of the documented layout, through nothing that the
// library offers, and reports the first thing that is not as it has to be.
//
//     EXPECT_STREQ(verify_list(list).fault, "");
//     EXPECT_STREQ(verify_list(list, ListOrigin::unpacked).fault, "");
//
// Needs no heap and throws nothing, so that a debug build of the library can
// carry it.
#pragma once

#include <cstddef>

namespace aaatest {

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

}  // namespace aaatest
