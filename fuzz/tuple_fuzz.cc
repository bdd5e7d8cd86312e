// SPDX-License-Identifier: Apache-2.0
//
// Tuples, the values of configuration items. The input is an operation (1 byte) and
//
//   0   bytes of unknown origin: accepted exactly when a second reading of the
//       form accepts them; accepted ones give the fields of that reading,
//       all of them or those after any of the leading integers, and pack into the
//       same bytes again
//   1   length and text of a format, then bytes: unpacking with any format gives
//       the documented result, and a refusal changes no output
//   2   fields to pack: kind (1 byte), then an integer or length and name
//
// The block that is read has exactly the length that the tuple states.

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz_input.hpp"
#include "platform/sysdb.h"

namespace {

constexpr std::size_t kMostOutputs = 12;
constexpr std::size_t kOutputSize = 64;
constexpr char kFill = '\x5a';

struct Field {
    char kind;
    uint32_t number;
    std::string name;
};
using Fields = std::vector<Field>;

uint32_t little_endian(const std::string &bytes, std::size_t at) {
    uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

// ---- the form, read a second time -----------------------------------------------

std::optional<Field> field_at(const std::string &bytes, std::size_t &at) {
    const std::string rest = bytes.substr(at);
    if (rest.size() >= 5 && rest[0] == 'd') {
        at += 5;
        return Field{'d', little_endian(rest, 1), ""};
    }
    if (rest.size() < 3 || rest[0] != 's') {
        return std::nullopt;
    }
    const std::size_t size = static_cast<unsigned char>(rest[1]);
    if (size > SYSDB_NAME_SIZE || rest.find('\0', 2) != 1 + size) {
        return std::nullopt;
    }
    at += 2 + size;
    return Field{'s', 0, rest.substr(2, size - 1)};
}

std::optional<Fields> read_fields(const std::string &bytes) {
    if (bytes.size() < 8 || bytes.substr(0, 3) != "TP\x01" || little_endian(bytes, 4) != bytes.size()) {
        return std::nullopt;
    }
    Fields fields;
    std::size_t at = 8;
    for (unsigned left = static_cast<unsigned char>(bytes[3]); left > 0; --left) {
        const std::optional<Field> field = at < bytes.size() ? field_at(bytes, at) : std::nullopt;
        if (!field) {
            return std::nullopt;
        }
        fields.push_back(*field);
    }
    return at == bytes.size() ? std::optional<Fields>(fields) : std::nullopt;
}

std::string format_of(const Fields &fields, std::size_t from = 0) {
    std::string format;
    for (std::size_t i = from; i < fields.size(); ++i) {
        format += '%';
        format += fields[i].kind;
    }
    return format;
}

std::string tuple_of(const Fields &fields) {
    std::string bytes = "TP\x01";
    bytes += static_cast<char>(fields.size());
    bytes.resize(8);
    for (const Field &field : fields) {
        bytes += field.kind;
        if (field.kind == 'd') {
            bytes.append(reinterpret_cast<const char *>(&field.number), 4);
        } else {
            bytes += static_cast<char>(field.name.size() + 1);
            bytes.append(field.name.c_str(), field.name.size() + 1);
        }
    }
    const auto size = static_cast<uint32_t>(bytes.size());
    bytes.replace(4, 4, reinterpret_cast<const char *>(&size), 4);
    return bytes;
}

std::size_t leading_integers(const std::string &format) {
    std::size_t count = 0;
    while (format.compare(2 * count, 2, "%d") == 0) {
        ++count;
    }
    return count;
}

bool is_format(const std::string &text) {
    for (std::size_t i = 0; i < text.size(); i += 2) {
        if (text.compare(i, 2, "%d") != 0 && text.compare(i, 2, "%s") != 0) {
            return false;
        }
    }
    return true;
}

// ---- calls ------------------------------------------------------------------------

// A copy of exactly its size, so that a sanitizer sees a read past its end.
std::unique_ptr<char[]> block(const std::string &bytes) {
    auto copy = std::make_unique<char[]>(bytes.size());
    bytes.copy(copy.get(), bytes.size());
    return copy;
}

struct Outputs {
    char at[kMostOutputs][kOutputSize];
    Outputs() { std::memset(at, kFill, sizeof at); }

    int unpack(const void *tuple, const std::string &format) {
        errno = 0;
        return tuple_unpack_mask(tuple, format.c_str(), at[0], at[1], at[2], at[3], at[4], at[5], at[6],
                                 at[7], at[8], at[9], at[10], at[11]);
    }
    // Bytes after a field are unchanged.
    [[nodiscard]] bool holds(std::size_t index, const Field &field) const {
        std::string expected = field.kind == 'd'
                                   ? std::string(reinterpret_cast<const char *>(&field.number), 4)
                                   : field.name + '\0';
        expected.resize(kOutputSize, kFill);
        return expected == std::string(at[index], kOutputSize);
    }
    [[nodiscard]] bool untouched(std::size_t from = 0) const {
        const std::string all(reinterpret_cast<const char *>(at), sizeof at);
        return all.find_first_not_of(kFill, from * kOutputSize) == std::string::npos;
    }
};

// The format's first conversion belongs to the field with the index first.
void check_unpacked(const std::string &tuple, const Fields &fields, const std::string &format,
                    std::size_t first = 0) {
    const std::size_t wanted = format.size() / 2;
    const auto bytes = block(tuple);
    Outputs outputs;
    REQUIRE(outputs.unpack(bytes.get(), format) == 0);
    for (std::size_t i = 0; i < wanted; ++i) {
        REQUIRE(outputs.holds(i, fields[first + i]));
    }
    REQUIRE(outputs.untouched(wanted));
}

void check_refused(const std::string &tuple, const std::string &format, int error) {
    const auto bytes = block(tuple);
    Outputs outputs;
    REQUIRE(outputs.unpack(bytes.get(), format) == -1 && errno == error);
    REQUIRE(outputs.untouched());
}

// Arguments of a format have two types, so every sequence of kinds needs a separate
// call: one recursion per field.
template <typename... Arguments>
cerrno pack(void **tuple, uint32_t *length, const Fields &fields, Arguments... arguments) {
    constexpr std::size_t kDone = sizeof...(Arguments);
    if (fields.size() == kDone) {
        return sysdb_tuple_pack(tuple, length, format_of(fields).c_str(), arguments...);
    }
    if constexpr (kDone < 5) {
        const Field &field = fields[kDone];
        return field.kind == 'd' ? pack(tuple, length, fields, arguments..., field.number)
                                 : pack(tuple, length, fields, arguments..., field.name.c_str());
    }
    return SYSDB_ERR_INVALID_ARG;
}

std::string packed(const Fields &fields, cerrno expected = 0) {
    void *tuple = nullptr;
    uint32_t length = 0;
    REQUIRE(pack(&tuple, &length, fields) == expected);
    const std::string bytes(static_cast<const char *>(tuple), length);
    std::free(tuple);
    return bytes;
}

// ---- operations -------------------------------------------------------------------

void read_unknown(fuzz::Input input) {
    const std::string tuple = input.rest();
    const std::optional<Fields> fields = read_fields(tuple);
    const auto bytes = block(tuple);
    const auto size = static_cast<uint32_t>(tuple.size());
    REQUIRE((sysdb_tuple_check(bytes.get(), size) == 0) == fields.has_value());
    const std::unique_ptr<char, void (*)(void *)> format(sysdb_tuple_format(bytes.get(), size), std::free);
    REQUIRE((format != nullptr) == fields.has_value());
    if (!fields) {
        return;
    }
    REQUIRE(format.get() == format_of(*fields));
    for (std::size_t skip = 0; skip <= leading_integers(format.get()); ++skip) {
        if (fields->size() - skip <= kMostOutputs) {
            check_unpacked(tuple, *fields, format_of(*fields, skip), skip);
        }
    }
    if (fields->size() <= 5) {
        REQUIRE(packed(*fields) == tuple);
    }
}

// The length in the tuple is trusted here, so the block has that length.
void unpack_by_any_format(fuzz::Input input) {
    const std::string format = input.text(input.byte() % (2 * kMostOutputs + 1)).c_str();
    std::string tuple = input.rest();
    tuple.resize(std::max<std::size_t>(tuple.size(), 8));
    const uint32_t length = little_endian(tuple, 4);
    if (length > 8192) {
        return;
    }
    tuple.resize(std::max<std::size_t>(length, 8));
    if (!is_format(format)) {
        return check_refused(tuple, format, EINVAL);
    }
    const std::optional<Fields> fields = read_fields(tuple);
    if (!fields) {
        return check_refused(tuple, format, EBADMSG);
    }
    const std::string whole = format_of(*fields);
    const std::size_t found = leading_integers(whole);
    const std::size_t wanted = leading_integers(format);
    // Further fields after the requested ones are allowed.
    if (found < wanted || !whole.substr(2 * (found - wanted)).starts_with(format)) {
        return check_refused(tuple, format, EPROTO);
    }
    check_unpacked(tuple, *fields, format, found - wanted);
}

void pack_fields(fuzz::Input input) {
    Fields fields;
    bool too_long = false;
    while (!input.empty() && fields.size() < 5) {
        if (input.byte() % 2 == 0) {
            fields.push_back({'d', input.word(), ""});
        } else {
            fields.push_back({'s', 0, input.text(input.byte()).c_str()});
            too_long = too_long || fields.back().name.size() >= SYSDB_NAME_SIZE;
        }
    }
    if (too_long) {
        packed(fields, SYSDB_ERR_BAD_VALUE);
        return;
    }
    const std::string tuple = packed(fields);
    REQUIRE(tuple == tuple_of(fields));
    REQUIRE(sysdb_tuple_check(tuple.data(), static_cast<uint32_t>(tuple.size())) == 0);
    check_unpacked(tuple, fields, format_of(fields));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    switch (input.byte() % 3) {
        case 0:
            read_unknown(input);
            break;
        case 1:
            unpack_by_any_format(input);
            break;
        default:
            pack_fields(input);
            break;
    }
    return 0;
}
