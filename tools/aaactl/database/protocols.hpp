// SPDX-License-Identifier: Apache-2.0
//
// The protocols of server groups.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/names.h"

namespace aaactl {

struct Protocol {
    uint32_t number = 0;
    const char *word = "";

    bool is_radius() const { return number == AAA_KW_RADIUS; }
};

// In the order in which a group's name is looked up.
inline constexpr Protocol kProtocols[] = {
    {AAA_KW_RADIUS, "radius"}, {AAA_KW_TACACS, "tacacs"}, {AAA_KW_DIAMETER, "diameter"}};

const std::vector<std::string> &protocol_words();
// Failure(usage) for an unknown word.
const Protocol &protocol_named(std::string_view word);
// The protocol whose servers a method asks without a group; null for methods that ask no server.
const Protocol *protocol_of_method(uint32_t method);

// Whether it is a word that method lists use for a method, which cannot name a group.
bool is_keyword(const std::string &name);
// Whether commands take it as a name: printable, without '/', and of a length that fits a method list.
bool is_group_name(const std::string &name);
// Failure(usage) for another name.
void check_group_name(const std::string &name);

}  // namespace aaactl
