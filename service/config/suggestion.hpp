// SPDX-License-Identifier: Apache-2.0
//
// The word that someone who misspelt one probably meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace service {

// In quotes, and not longer than a line of the log needs.
std::string quoted(std::string_view text);

// "; did you mean" the nearest word, or all of them when none is near.
std::string suggestion(std::string_view given, const std::vector<std::string_view> &known);

}  // namespace service
