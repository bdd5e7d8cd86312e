// SPDX-License-Identifier: Apache-2.0
//
// The word that someone who misspelt one probably meant.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace aaactl {

// The known word that is nearest to the given one; "" when none is near. Two letters that were swapped are
// one error, and so is a letter of the other case.
std::string nearest_word(std::string_view given, const std::vector<std::string> &known);

// "; did you mean WORD?", escaped, or "" when no known word is near.
std::string did_you_mean(std::string_view given, const std::vector<std::string> &known);

// did_you_mean(), or "; use A, B or C" when none is near.
std::string suggestion(std::string_view given, const std::vector<std::string> &known);

// "1 item", "2 items".
std::string counted(size_t number, const std::string &noun);

// "TEXT; CLAUSE", or after a question "TEXT? Clause".
std::string followed_by(const std::string &text, std::string clause);

}  // namespace aaactl
