// SPDX-License-Identifier: Apache-2.0
//
// The library's list verifier, compiled into the test program, so that it also
// checks the lists of a library that was built without it.
#pragma once

#include "aaa/lib/util/src/internal/avlist_verifier.hpp"

namespace aaatest {

using aaautil::ListOrigin;
using aaautil::Verdict;
using aaautil::verify_list;

}  // namespace aaatest
