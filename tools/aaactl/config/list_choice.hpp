// SPDX-License-Identifier: Apache-2.0
//
// Which method list a request uses, and why: the choice of the library's
// compose routines, for any line.

#pragma once

#include <optional>
#include <string>

#include "database/database.hpp"

namespace aaactl {

// A service as the command line names it: by the service's own name or number, or by the word of its lists'
// paths.
struct ServiceWord {
    uint32_t function;
    std::optional<uint32_t> service;  // unknown when a word of paths is given
    std::string word;                 // of the path
};

// Failure(usage) lists the known words.
ServiceWord service_word(Database &database, uint32_t function, const std::string &text);

enum class ChosenBy { name, line, fallback };

struct ListChoice {
    std::string list;
    ChosenBy by;
    std::string why;      // for people, to follow "because"
    std::string rule;     // for a line: "FILE:NUMBER"
    std::string pattern;  // for a line
};

// `list` and `line` may be empty. Failure when the file of rows cannot be used, as requests fail then.
ListChoice choose_list(const ServiceWord &service, const std::string &list, const std::string &line);

// "console", "tty", "aux", "vty", or "" for a line of no known kind.
std::string line_kind(const std::string &line);

}  // namespace aaactl
