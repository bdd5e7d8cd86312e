// SPDX-License-Identifier: Apache-2.0
//
// Words that have to be one of some: matched, and suggested when one is misspelt.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace aaactl {

// "; did you mean "X"?" for the nearest of the words, or "; use A, B or C" when none is near.
std::string suggestion(std::string_view given, const std::vector<std::string> &known);

}  // namespace aaactl
