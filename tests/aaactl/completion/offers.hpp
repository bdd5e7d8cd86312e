// SPDX-License-Identifier: Apache-2.0
//
// What each shell's completion offers for the same words.

#pragma once

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace aaactl_test {

using Lines = std::vector<std::string>;

// Of a shell's output, without what fish says of files after a tab.
inline Lines sorted_lines(const std::string &output) {
    Lines lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty()) {
            lines.push_back(line.substr(0, line.find('\t')));
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

inline bool has(const Lines &lines, const std::string &line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// The words of a command line, and the only word that fits its last one.
inline constexpr std::pair<const char *, const char *> kOfPositions[] = {
    {"mlist set acc", "accounting"},
    {"mlist set accounting log", "login"},
    {"mlist set accounting login d", "default"},
    {"mlist set accounting login default lo", "local"},
    {"mlist set accounting login default local no", "none"},
    {"mlist set accounting login default local --f", "--force"},
    {"sg add ta", "tacacs"},
    {"attr show AAA_USERNAME_A", "AAA_USERNAME_ATTR"},
    {"err AAA_ERR_SG_I", "AAA_ERR_SG_IN_USE"},
    {"explain authorization ex", "exec"},
    {"help sysd", "sysdb"},
    {"help sysdb wa", "watch"},
    {"completion z", "zsh"},
};

}  // namespace aaactl_test
