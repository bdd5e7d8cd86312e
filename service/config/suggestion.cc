// SPDX-License-Identifier: Apache-2.0

#include "config/suggestion.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace service {

namespace {

std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t substitute = diagonal + (a[i - 1] != b[j - 1] ? 1 : 0);
            diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, substitute}));
        }
    }
    return row[b.size()];
}

}  // namespace

std::string quoted(std::string_view text) {
    constexpr std::size_t most = 60;
    return "\"" + std::string(text.substr(0, most)) + (text.size() > most ? "..." : "") + "\"";
}

std::string suggestion(std::string_view given, const std::vector<std::string_view> &known) {
    constexpr std::size_t kLongest = 64;  // a longer word resembles none, and comparing it takes long
    std::string_view best;
    std::size_t nearest = 3;
    for (const std::string_view word : known) {
        const std::size_t far = given.size() > kLongest ? nearest : distance(given, word);
        if (far < nearest && far < word.size()) {
            nearest = far;
            best = word;
        }
    }
    if (!best.empty()) {
        return "; did you mean " + quoted(best) + "?";
    }
    std::string all = "; use ";
    for (std::size_t i = 0; i < known.size(); ++i) {
        all += (i == 0 ? "" : i + 1 < known.size() ? ", " : " or ") + std::string(known[i]);
    }
    return all;
}

}  // namespace service
