// SPDX-License-Identifier: Apache-2.0
//
// Debugging aid: with the build option AAA_VERIFY_LISTS the library contains the
// list verifier and checks the whole list after every pair that is added,
// changed or deleted. Without the option this costs nothing.
#pragma once

#include "aaa/avpair.h"
#include "internal/assert.hpp"

#ifdef AAA_VERIFY_LISTS
#include "internal/avlist_verifier.hpp"
#endif

namespace aaautil {

inline void verify_changed([[maybe_unused]] const avlist *list) noexcept {
#ifdef AAA_VERIFY_LISTS
    // Whether a list was unpacked once does not show for certain, so the count
    // is only told apart from zero.
    const Verdict verdict = verify_list(list, ListOrigin::unpacked);
    AAA_ASSERT(verdict.sound(), verdict.fault);
#endif
}

}  // namespace aaautil
