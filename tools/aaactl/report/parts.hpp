// SPDX-License-Identifier: Apache-2.0
//
// What several sections of a report need.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/json.hpp"
#include "report/html.hpp"

namespace aaactl {

// The elements of a member; none when there is no service, or it has not sent the member.
const std::vector<Json> &array_of(const Json &document, std::string_view name);

// A row of a list of names and values.
void pair(Html &page, const char *name, const std::string &value, const char *kind = "");

std::string plural(size_t number, const std::string &noun);

// Whether there are so many elements that a reader wants the headings first; the page then says so. Each
// is a heading that opens. Prints show all of them.
bool fold(Html &page, size_t number, const char *what);

// A card with this heading, which stays open, or opens; what follows is its contents until close().
// `remark` follows the heading where it opens, with what is wrong in `trouble`.
void open_card(Html &page, bool folded, const std::string &heading, const std::string &remark = "",
               const std::string &trouble = "");

}  // namespace aaactl
