// SPDX-License-Identifier: Apache-2.0
//
// The nearest word by the number of letters that differ.

#include "cli/suggestion.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace aaactl {
namespace {

constexpr size_t kLongest = 64;  // a longer word resembles none, and comparing it takes long
constexpr size_t kNear = 3;      // letters that differ in a word that resembles none

size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t substitute = diagonal + (a[i - 1] != b[j - 1] ? 1 : 0);
            diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, substitute}));
        }
    }
    return row[b.size()];
}

}  // namespace

std::string suggestion(std::string_view given, const std::vector<std::string> &known) {
    std::string_view best;
    size_t nearest = kNear;
    for (const std::string &word : known) {
        const size_t far = given.size() > kLongest ? nearest : distance(given, word);
        if (far < nearest && far < word.size()) {
            nearest = far;
            best = word;
        }
    }
    if (!best.empty()) {
        return "; did you mean \"" + std::string(best) + "\"?";
    }
    std::string all = "; use ";
    for (size_t i = 0; i < known.size(); ++i) {
        all += (i == 0 ? "" : i + 1 < known.size() ? ", " : " or ") + known[i];
    }
    return all;
}

}  // namespace aaactl
