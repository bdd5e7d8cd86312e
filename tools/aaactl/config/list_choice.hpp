// SPDX-License-Identifier: Apache-2.0
//
// Which method list a request goes by, and why: as the compose routines of the
// library choose it, for any line.

#pragma once

#include <optional>
#include <string>

#include "database/database.hpp"

namespace aaactl {

// A service as the command line names it: by the service's own name or number, or by the word of its lists'
// paths.
struct ServiceWord {
    uint32_t function;
    std::optional<uint32_t> service;  // not told by a path's word alone
    std::string word;                 // of the path
};

// Failure(usage) with the words there are.
ServiceWord service_word(Database &database, uint32_t function, const std::string &text);

enum class ChosenBy { name, line, fallback };

struct ListChoice {
    std::string list;
    ChosenBy by;
    std::string why;      // a whole sentence for people
    std::string rule;     // for a line: "FILE:NUMBER"
    std::string pattern;  // for a line
};

// `list` and `line` may be empty. Failure when the file of rows cannot be used, as requests fail then.
ListChoice choose_list(const ServiceWord &service, const std::string &list, const std::string &line);

// "console", "tty", "aux", "vty", or "" for a line of no known kind.
std::string line_kind(const std::string &line);

}  // namespace aaactl
