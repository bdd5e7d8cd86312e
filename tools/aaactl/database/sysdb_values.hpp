// SPDX-License-Identifier: Apache-2.0
//
// Items of the system database as people and programs read and write them.
//
//     type        text (in dumps and tables)       JSON
//     u32         15                               15
//     string      "corp"                           "corp"
//     tuple       (10, 4, "GRP1", "")              [10, 4, "GRP1", ""]
//     directory   (no value)                       (no value)
//     bytes:99    0a0b0c                           "0a0b0c"
//
// bytes:N is data of type number N, for every number without a name. Text is
// escaped the same way everywhere, in JSON strings too: unprintable bytes as \xNN,
// \n, \t, \r, and the backslash doubled. So every value survives a round trip, and
// none acts on a terminal.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli/output.hpp"
#include "platform/sysdb.h"

namespace aaactl {

// The stored bytes: those of a text include its NUL.
struct Item {
    uint32_t type = SYSDB_TYPE_ANY;
    std::string bytes;

    bool operator==(const Item &other) const = default;
};

Item number_item(uint32_t value);
Item text_item(std::string_view text);
// The number or the text of an item; Failure(bad_input) for an item of another type.
uint32_t number_of(const Item &item);
std::string text_of(const Item &item);

// One field of a tuple: an integer, or a name of at most 49 bytes.
struct TupleField {
    bool is_name = false;
    int32_t number = 0;
    std::string name;

    bool operator==(const TupleField &other) const = default;
};
// Failure(bad_input) for an item that is not a tuple, and for fields that do not fit into one.
std::vector<TupleField> tuple_fields(const Item &item);
Item tuple_item(const std::vector<TupleField> &fields);

std::string type_name(uint32_t type);
// Failure(usage) for an unknown word.
uint32_t type_number(std::string_view name);

// The text form of dumps; with `plain`, a string has no quotation marks.
std::string value_text(const Item &item, bool plain = false);
Json value_json(const Item &item);
// The inverse of both; Failure(bad_input) names the error.
Item item_from_text(uint32_t type, std::string_view text);
Item item_from_json(uint32_t type, const Json &value);
// A value of the command line: a string is taken literally, others as by item_from_text().
Item item_from_argument(uint32_t type, std::string_view text);

// The text as one word of a shell's command line.
std::string shell_word(const std::string &text);
// "escaped" between quotation marks, with those inside escaped as well.
std::string in_quotes(std::string_view bytes);
// The inverse of escaped(), and of in_quotes() without its marks; Failure(bad_input).
std::string unescaped(std::string_view text);

}  // namespace aaactl
