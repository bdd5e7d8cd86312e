// SPDX-License-Identifier: Apache-2.0
//
// A message in its wire form, split until every byte has a name, and assembled
// again. docs/wire-format.md describes the forms.
//
// The lists of the library hide what decode has to show (deleted pairs, pads,
// reserved bytes, the count's byte order), so the parts hold the bytes of the
// wire. aaa_avpair_unpack_msg_checked() still decides whether a packed list is
// well-formed; the reader here finds the place and the reason.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/types.h"

namespace aaactl {

inline constexpr size_t kListHeader = sizeof(avlist);  // the header of a packed list

// Bytes that follow a value of this length, so that the next pair begins at a multiple of 4.
constexpr size_t padding_of(size_t length) {
    return (4 - length % 4) % 4;
}

// ---- Records: fixed layouts -----------------------------------------------------

enum class FieldForm { number, network, bytes, text };

// The meaning of a field's value, "" when it has no name; `type` is the message
// type, if known.
using Meaning = std::string (*)(uint64_t value, uint32_t type);

struct Field {
    const char *name;
    uint16_t offset;
    uint16_t size;
    FieldForm form;  // number: host order, network: network order, of 1, 2, 4 or 8 bytes
    Meaning meaning;

    bool is_number() const { return form == FieldForm::number || form == FieldForm::network; }
};

struct RecordLayout {
    const char *name;
    uint16_t size;
    std::span<const Field> fields;  // without gaps, from 0 to size
};

std::span<const RecordLayout *const> record_layouts();
const RecordLayout *record_layout(std::string_view name);

uint64_t load_number(const Field &field, std::string_view record);
void store_number(const Field &field, uint64_t value, std::string &record);

// ---- Parts ----------------------------------------------------------------------

struct Record {
    const RecordLayout *layout;
    std::string bytes;

    std::string_view field_bytes(const Field &field) const {
        return std::string_view(bytes).substr(field.offset, field.size);
    }
    uint64_t number(std::string_view field) const;
    void set_number(std::string_view field, uint64_t value);
};

// Bytes without a layout. Not all of them are intended: bytes after a message may
// be anything from the sender's memory.
struct Bytes {
    std::string name;
    std::string bytes;
    bool leftover = false;
};

struct Pair {
    size_t offset = 0;  // of the head, in the message
    uint32_t type = 0;
    uint32_t tag = 0;
    uint32_t flags = 0;
    std::string value;    // as on the wire
    std::string padding;  // rounds the pair up to a multiple of 4

    bool deleted() const { return type == AAA_ATTR_MAX; }
    // The value with numbers in host order.
    std::string host_value() const;
};

struct List {
    Record header;
    std::vector<Pair> pairs;

    std::string name() const;  // up to its NUL
    size_t live() const;
};

struct Part {
    size_t offset = 0;
    std::variant<Record, Bytes, List> content;
};

struct Fault {
    size_t offset;
    std::string what;
    cerrno rc;
};

struct Message {
    std::string kind;
    std::vector<Part> parts;
    std::optional<Fault> fault;  // the first one; the parts end with what could be read

    const List *list() const;
    uint32_t type() const;  // of the message, UINT32_MAX without one
};

// ---- Reading and writing --------------------------------------------------------

// The kinds that --kind accepts, including groups of kinds ("auto", "reply", ...), with a line of help each.
struct KindHelp {
    std::string_view name;
    std::string_view help;
};
std::span<const KindHelp> message_kinds();

// Does not throw for malformed bytes: a fault is part of the result.
Message read_message(std::string_view bytes, std::string_view kind = "auto");

std::string write_message(const Message &message);

// Completes a message from a description: fills in lengths, counts and pads,
// writes it and reads it back. Failure unless the result is the same message
// without a fault.
std::string finish_message(Message &message);

// A list of the library, to print it with the functions of message_json.hpp and
// message_text.hpp. Deleted pairs are left out.
List list_of(const avlist *list);

// A part of the given kind with every byte zero.
Record empty_record(const RecordLayout &layout);
List empty_list();

}  // namespace aaactl
