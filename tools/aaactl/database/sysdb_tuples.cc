// SPDX-License-Identifier: Apache-2.0
//
// The fields of tuples, out of their stored bytes and back.

#include <utility>

#include "database/sysdb_values.hpp"

namespace aaactl {
namespace {

constexpr size_t kTupleHead = 8;
constexpr size_t kMaxFields = 255;

Failure malformed(const std::string &why) {
    return {ExitCode::bad_input, why};
}

// The platform decides: it repeats the check when the item is stored.
Item checked_tuple(std::string bytes) {
    if (sysdb_tuple_check(bytes.data(), static_cast<uint32_t>(bytes.size())) != 0) {
        throw malformed("the bytes are not a tuple");
    }
    return {SYSDB_TYPE_TUPLE, std::move(bytes)};
}

void append_number(std::string &bytes, uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(value >> shift & 0xffu);
    }
}

uint32_t read_number(std::string_view bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

}  // namespace

// The form of a tuple is described in docs/sysdb.md; the check has bounded every field.
std::vector<TupleField> tuple_fields(const Item &item) {
    if (item.type != SYSDB_TYPE_TUPLE ||
        sysdb_tuple_check(item.bytes.data(), static_cast<uint32_t>(item.bytes.size())) != 0) {
        throw malformed("an item of type " + type_name(item.type) + " is not a tuple");
    }
    std::vector<TupleField> fields;
    for (size_t at = kTupleHead; at < item.bytes.size();) {
        if (item.bytes[at] == 'd') {
            fields.push_back({false, static_cast<int32_t>(read_number(item.bytes, at + 1)), {}});
            at += 5;
        } else {
            const size_t length = static_cast<unsigned char>(item.bytes[at + 1]);
            fields.push_back({true, 0, item.bytes.substr(at + 2, length - 1)});
            at += 2 + length;
        }
    }
    return fields;
}

Item tuple_item(const std::vector<TupleField> &fields) {
    if (fields.size() > kMaxFields) {
        throw malformed("a tuple has at most 255 fields");
    }
    std::string body;
    for (const TupleField &field : fields) {
        if (!field.is_name) {
            body += 'd';
            append_number(body, static_cast<uint32_t>(field.number));
            continue;
        }
        if (field.name.size() >= SYSDB_NAME_SIZE || field.name.find('\0') != std::string::npos) {
            throw malformed("\"" + escaped(field.name) +
                            "\" does not fit a tuple: a name has at most 49 bytes");
        }
        body += 's';
        body += static_cast<char>(field.name.size() + 1);
        body += field.name + '\0';
    }
    std::string bytes = "TP\x01";
    bytes += static_cast<char>(fields.size());
    append_number(bytes, static_cast<uint32_t>(kTupleHead + body.size()));
    return checked_tuple(bytes + body);
}

}  // namespace aaactl
