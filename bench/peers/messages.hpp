// SPDX-License-Identifier: Apache-2.0
//
// The messages for the library and its peers, as the values in a caller's memory.
#pragma once

#include <cstdint>
#include <vector>

#include "../list_rows.hpp"

namespace peers {

using bench::Attribute;
using bench::kWanted;

// Every type that occurs.
inline constexpr uint32_t kTypes[] = {
#define PEER_NUMBER(type, field, Field) type,
#define PEER_TEXT(type, field, Field)   type,
#include "fields.def"
};

// A RADIUS attribute number has one byte: 101 is the first type, as in the file
// dictionary.
inline constexpr uint8_t kFirstRadiusNumber = 101;

constexpr uint8_t radius_number(uint32_t type) {
    uint8_t number = kFirstRadiusNumber;
    for (const uint32_t known : kTypes) {
        if (known == type) {
            return number;
        }
        number++;
    }
    return 0;
}

// Whether values of a type are numbers; a constant for the compiler, so that no row
// includes the test.
constexpr bool is_number(uint32_t type) {
    switch (type) {
#define PEER_NUMBER(number_type, field, Field) case number_type:
#define PEER_TEXT(text_type, field, Field)
#include "fields.def"
        return true;
        default:
            return false;
    }
}

// An attribute with two more facts that a caller of a peer knows: whether the value is
// a number, and the attribute's number in RADIUS.
struct Field {
    uint32_t type;
    uint32_t len;
    const char *text;  // null when the value is a number
    uint32_t number;
    uint8_t radius;
};

struct Message {
    std::vector<Attribute> attributes;  // for the library and the plain loops
    std::vector<Field> fields;          // for the others; the same in the same order
    uint32_t pair_bytes = 0;            // size of the pairs in a list
};

// A set of messages that a row takes one after the other.
struct MessageSet {
    const char *name;
    const char *describes;
    std::vector<Message> messages;
    bool each_type_once;  // in a message, so a record with a field for each type can carry it
};

const std::vector<MessageSet> &message_sets();

// The list benchmarks' workload of ten attributes, the login.
const bench::Workload &login();

}  // namespace peers
