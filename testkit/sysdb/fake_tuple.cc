// SPDX-License-Identifier: Apache-2.0
//
// Tuples in the fake system database, in the form that sysdb_tuple_pack()
// makes: "TP", 1, the number of fields, the length of the whole in four bytes,
// then 'd' and four bytes for each integer, 's', a length and the text with its
// NUL for each name. Numbers are little-endian.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "platform/sysdb.h"
#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {
namespace {

constexpr std::size_t kHeaderSize = 8;

void append(std::vector<uint8_t> &bytes, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

uint32_t number_at(const uint8_t *at) {
    return at[0] | static_cast<uint32_t>(at[1]) << 8 | static_cast<uint32_t>(at[2]) << 16 |
           static_cast<uint32_t>(at[3]) << 24;
}

struct Field {
    char kind;
    uint32_t number;
    std::string name;
};

// Nothing when the bytes are not a tuple.
std::optional<std::vector<Field>> fields_of(const uint8_t *bytes) {
    if (bytes[0] != 'T' || bytes[1] != 'P' || bytes[2] != 1) {
        return std::nullopt;
    }
    const uint8_t *at = bytes + kHeaderSize;
    const uint8_t *const end = bytes + number_at(bytes + 4);
    std::vector<Field> fields;
    for (unsigned left = bytes[3]; left != 0; --left) {
        if (end - at >= 5 && at[0] == 'd') {
            fields.push_back({'d', number_at(at + 1), ""});
            at += 5;
        } else if (end - at >= 3 && at[0] == 's' && at[1] != 0 && end - at >= 2 + at[1] &&
                   at[1 + at[1]] == 0) {
            fields.push_back({'s', 0, std::string(reinterpret_cast<const char *>(at + 2), at[1] - 1u)});
            at += 2 + at[1];
        } else {
            return std::nullopt;
        }
    }
    return at == end ? std::optional(fields) : std::nullopt;
}

// The kinds that a format asks for; nothing when it has other conversions.
std::optional<std::string> kinds_of(std::string_view format) {
    std::string kinds;
    for (std::size_t i = 0; i < format.size(); i += 2) {
        if (format[i] != '%' || i + 1 == format.size() || (format[i + 1] != 'd' && format[i + 1] != 's')) {
            return std::nullopt;
        }
        kinds += format[i + 1];
    }
    return kinds;
}

std::size_t leading_integers(std::string_view kinds) {
    return std::min(kinds.find_first_not_of('d'), kinds.size());
}

// Drops the leading integers that the format does not ask for.
bool align(std::vector<Field> &fields, const std::string &wanted) {
    std::string kinds;
    for (const Field &field : fields) {
        kinds += field.kind;
    }
    if (leading_integers(kinds) < leading_integers(wanted)) {
        return false;
    }
    const std::size_t surplus = leading_integers(kinds) - leading_integers(wanted);
    fields.erase(fields.begin(), fields.begin() + static_cast<std::ptrdiff_t>(surplus));
    return kinds.substr(surplus) == wanted;
}

}  // namespace

bool is_tuple(const uint8_t *bytes, uint32_t length) {
    if (length < kHeaderSize || number_at(bytes + 4) != length) {
        return false;
    }
    const auto fields = fields_of(bytes);
    return fields && std::all_of(fields->begin(), fields->end(), [](const Field &field) {
               return field.name.size() < SYSDB_NAME_SIZE && field.name.find('\0') == std::string::npos;
           });
}

std::vector<uint8_t> tuple(const std::vector<uint32_t> &numbers, const std::vector<std::string> &names) {
    std::vector<uint8_t> fields;
    for (const uint32_t number : numbers) {
        fields.push_back('d');
        append(fields, number);
    }
    for (const std::string &name : names) {
        fields.push_back('s');
        fields.push_back(static_cast<uint8_t>(name.size() + 1));
        fields.insert(fields.end(), name.begin(), name.end());
        fields.push_back(0);
    }
    std::vector<uint8_t> bytes = {'T', 'P', 1, static_cast<uint8_t>(numbers.size() + names.size())};
    append(bytes, static_cast<uint32_t>(kHeaderSize + fields.size()));
    bytes.insert(bytes.end(), fields.begin(), fields.end());
    return bytes;
}

}  // namespace fake::sysdb

int tuple_unpack_mask(const void *bytes, const char *format, ...) {
    using namespace fake::sysdb;
    fake::detail::Call call("tuple_unpack_mask", format);
    if (call.scripted()) {
        return static_cast<int>(*call.scripted());
    }
    const auto wanted = kinds_of(format == nullptr ? "?" : format);
    if (bytes == nullptr || !wanted) {
        call.set_errno(EINVAL);
        return -1;
    }
    auto fields = fields_of(static_cast<const uint8_t *>(bytes));
    if (!fields || !align(*fields, *wanted)) {
        call.set_errno(fields ? EPROTO : EBADMSG);
        return -1;
    }
    va_list args;
    va_start(args, format);
    for (const Field &field : *fields) {
        if (field.kind == 'd') {
            *va_arg(args, uint32_t *) = field.number;
        } else {
            const std::string name = field.name.substr(0, SYSDB_NAME_SIZE - 1);
            std::memcpy(va_arg(args, char *), name.c_str(), name.size() + 1);
        }
    }
    va_end(args);
    return 0;
}
