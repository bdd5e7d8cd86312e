// SPDX-License-Identifier: Apache-2.0

#include "cli/suggestion.hpp"

#include <algorithm>
#include <cctype>

#include "cli/output.hpp"

namespace aaactl {
namespace {

constexpr size_t kLongest = 64;  // a longer word resembles none, and comparing it takes long

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

// Letters to insert, delete, replace or swap with their neighbour until one word is the other.
size_t edits(const std::string &a, const std::string &b) {
    std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const bool same = a[i - 1] == b[j - 1];
            cost[i][j] =
                std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

// A short word has few letters that could be wrong: with two errors "ls" would be any word of two letters.
size_t most_edits(size_t length) {
    return length < 3 ? 0 : length < 6 ? 1 : 2;
}

}  // namespace

std::string nearest_word(std::string_view given, const std::vector<std::string> &known) {
    if (given.size() > kLongest) {
        return "";
    }
    const std::string wanted = lower(given);
    std::string best;
    size_t least = most_edits(std::max<size_t>(given.size(), 1)) + 1;
    for (const std::string &word : known) {
        const size_t far = word.size() > kLongest ? least : edits(wanted, lower(word));
        if (far < least && word != given) {
            least = far;
            best = word;
        }
    }
    return best;
}

std::string did_you_mean(std::string_view given, const std::vector<std::string> &known) {
    const std::string word = nearest_word(given, known);
    return word.empty() ? "" : "; did you mean " + escaped(word) + "?";
}

std::string suggestion(std::string_view given, const std::vector<std::string> &known) {
    const std::string meant = did_you_mean(given, known);
    if (!meant.empty()) {
        return meant;
    }
    std::string all = "; use ";
    for (size_t i = 0; i < known.size(); ++i) {
        all += (i == 0 ? "" : i + 1 < known.size() ? ", " : " or ") + known[i];
    }
    return all;
}

std::string counted(size_t number, const std::string &noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string followed_by(const std::string &text, std::string clause) {
    const bool asked = text.ends_with('?');
    if (asked && !clause.empty()) {
        clause[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(clause[0])));
    }
    return text + (asked ? " " : "; ") + clause;
}

}  // namespace aaactl
