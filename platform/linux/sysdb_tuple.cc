// SPDX-License-Identifier: Apache-2.0
//
// Tuples: the form of values of type SYSDB_TYPE_TUPLE. To providers a tuple is a
// sequence of bytes.
//
//   offset  bytes
//   0       2      'T' 'P'
//   2       1      version, 1
//   3       1      number of fields
//   4       4      length of the whole tuple in bytes, little-endian
//   8              fields: 'd', 4 bytes little-endian
//                       or 's', 1 byte length with the NUL, the name, NUL
//
// tuple_unpack_mask() does not get its tuple's length and relies on the header;
// sysdb_item_get() returns only tuples whose header agrees with the stored bytes.

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/sysdb.h"

namespace {

constexpr std::uint32_t kHeaderSize = 8;
constexpr std::uint8_t kVersion = 1;
constexpr char kInteger = 'd';
constexpr char kName = 's';
constexpr std::uint32_t kMaxFields = 255;

std::uint32_t get_u32(const std::uint8_t *from) {
    return static_cast<std::uint32_t>(from[0]) | static_cast<std::uint32_t>(from[1]) << 8 |
           static_cast<std::uint32_t>(from[2]) << 16 | static_cast<std::uint32_t>(from[3]) << 24;
}

void put_u32(std::uint8_t *to, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        to[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

// Steps over the fields of a tuple without leaving its length.
class FieldReader {
  public:
    explicit FieldReader(const void *tuple) : at_(static_cast<const std::uint8_t *>(tuple)) {
        valid_ = at_[0] == 'T' && at_[1] == 'P' && at_[2] == kVersion && get_u32(at_ + 4) >= kHeaderSize;
        left_ = valid_ ? get_u32(at_ + 4) - kHeaderSize : 0;
        fields_ = valid_ ? at_[3] : 0U;
        at_ += kHeaderSize;
    }

    // The kind of the next field, or 0 at the end or when the tuple is damaged.
    char next() {
        if (!valid_ || fields_ == 0) {
            return 0;
        }
        --fields_;
        const std::uint32_t size = field_size();
        valid_ = size != 0 && size <= left_;
        if (!valid_) {
            return 0;
        }
        field_ = at_;
        at_ += size;
        left_ -= size;
        return static_cast<char>(field_[0]);
    }

    bool valid() const { return valid_; }
    // All fields are read and nothing is left over.
    bool complete() const { return valid_ && fields_ == 0 && left_ == 0; }
    std::uint32_t integer() const { return get_u32(field_ + 1); }
    const char *name() const { return reinterpret_cast<const char *>(field_ + 2); }

  private:
    // Of the field at the read position, 0 for an invalid one.
    std::uint32_t field_size() const {
        if (left_ >= 1 && at_[0] == kInteger) {
            return 5;
        }
        if (left_ < 2 || at_[0] != kName || at_[1] == 0 || at_[1] > SYSDB_NAME_SIZE) {
            return 0;
        }
        if (left_ < 2U + at_[1]) {
            return 0;
        }
        // The only NUL is at the end.
        return memchr(at_ + 2, 0, at_[1]) == at_ + 1 + at_[1] ? 2U + at_[1] : 0;
    }

    const std::uint8_t *at_;
    const std::uint8_t *field_ = nullptr;
    std::uint32_t left_ = 0;
    std::uint32_t fields_ = 0;
    bool valid_ = false;
};

struct Shape {
    std::uint32_t fields;
    std::uint32_t leading_integers;
};

// False when the text is not a sequence of "%d" and "%s".
bool shape_of_format(const char *format, Shape &shape) {
    shape = {0, 0};
    for (const char *at = format; *at != '\0'; at += 2, ++shape.fields) {
        if (at[0] != '%' || (at[1] != kInteger && at[1] != kName)) {
            return false;
        }
        if (at[1] == kInteger && shape.leading_integers == shape.fields) {
            ++shape.leading_integers;
        }
    }
    return shape.fields <= kMaxFields;
}

Shape shape_of_tuple(FieldReader reader) {
    Shape shape{0, 0};
    for (char kind = reader.next(); kind != 0; kind = reader.next(), ++shape.fields) {
        if (kind == kInteger && shape.leading_integers == shape.fields) {
            ++shape.leading_integers;
        }
    }
    return shape;
}

bool kinds_agree(FieldReader reader, const char *format) {
    for (const char *at = format + 1; *(at - 1) != '\0'; at += 2) {
        if (reader.next() != *at) {
            return false;
        }
    }
    return true;
}

// Sets errno on failure; on success the first conversion's field is next.
bool align(FieldReader &reader, const char *format) {
    Shape wanted;
    if (!shape_of_format(format, wanted)) {
        errno = EINVAL;
        return false;
    }
    FieldReader rest = reader;
    while (rest.next() != 0) {
    }
    if (!rest.complete()) {
        errno = EBADMSG;
        return false;
    }
    const Shape found = shape_of_tuple(reader);
    for (std::uint32_t skip = found.leading_integers; skip > wanted.leading_integers; --skip) {
        reader.next();
    }
    if (found.leading_integers < wanted.leading_integers || !kinds_agree(reader, format)) {
        errno = EPROTO;
        return false;
    }
    return true;
}

// Size of the tuple that the arguments make, 0 when a name is too long.
std::uint32_t packed_size(const char *format, va_list arguments) {
    std::uint32_t size = kHeaderSize;
    for (const char *at = format; *at != '\0'; at += 2) {
        if (at[1] == kInteger) {
            (void)va_arg(arguments, std::uint32_t);
            size += 5;
            continue;
        }
        const char *name = va_arg(arguments, const char *);
        const std::size_t length = name != nullptr ? strnlen(name, SYSDB_NAME_SIZE) : 0;
        if (length == SYSDB_NAME_SIZE) {
            return 0;
        }
        size += 3 + static_cast<std::uint32_t>(length);
    }
    return size;
}

std::uint8_t *put_integer(std::uint8_t *at, std::uint32_t value) {
    *at = static_cast<std::uint8_t>(kInteger);
    put_u32(at + 1, value);
    return at + 5;
}

std::uint8_t *put_name(std::uint8_t *at, const char *name) {
    const std::size_t size = name != nullptr ? strlen(name) + 1 : 1;
    at[0] = static_cast<std::uint8_t>(kName);
    at[1] = static_cast<std::uint8_t>(size);
    memcpy(at + 2, name != nullptr ? name : "", size);
    return at + 2 + size;
}

void put_fields(std::uint8_t *at, const char *format, va_list arguments) {
    for (; *format != '\0'; format += 2) {
        at = format[1] == kInteger ? put_integer(at, va_arg(arguments, std::uint32_t))
                                   : put_name(at, va_arg(arguments, const char *));
    }
}

}  // namespace

extern "C" {

cerrno sysdb_tuple_pack(void **tuple, uint32_t *length, const char *format, ...) {
    Shape shape;
    if (tuple == nullptr || length == nullptr || format == nullptr || !shape_of_format(format, shape)) {
        return SYSDB_ERR_INVALID_ARG;
    }
    va_list arguments;
    va_start(arguments, format);
    const std::uint32_t size = packed_size(format, arguments);
    va_end(arguments);
    if (size == 0) {
        return SYSDB_ERR_BAD_VALUE;
    }
    auto *bytes = static_cast<std::uint8_t *>(malloc(size));
    if (bytes == nullptr) {
        return SYSDB_ERR_NOMEM;
    }
    bytes[0] = 'T';
    bytes[1] = 'P';
    bytes[2] = kVersion;
    bytes[3] = static_cast<std::uint8_t>(shape.fields);
    put_u32(bytes + 4, size);
    va_start(arguments, format);
    put_fields(bytes + kHeaderSize, format, arguments);
    va_end(arguments);
    *tuple = bytes;
    *length = size;
    return 0;
}

cerrno sysdb_tuple_check(const void *tuple, uint32_t length) {
    if (tuple == nullptr || length < kHeaderSize) {
        return SYSDB_ERR_BAD_VALUE;
    }
    if (get_u32(static_cast<const std::uint8_t *>(tuple) + 4) != length) {
        return SYSDB_ERR_BAD_VALUE;
    }
    FieldReader reader(tuple);
    while (reader.next() != 0) {
    }
    return reader.complete() ? 0 : SYSDB_ERR_BAD_VALUE;
}

char *sysdb_tuple_format(const void *tuple, uint32_t length) {
    if (sysdb_tuple_check(tuple, length) != 0) {
        return nullptr;
    }
    const std::size_t fields = static_cast<const std::uint8_t *>(tuple)[3];
    char *format = static_cast<char *>(malloc(2 * fields + 1));
    if (format == nullptr) {
        return nullptr;
    }
    char *at = format;
    FieldReader reader(tuple);
    for (char kind = reader.next(); kind != 0; kind = reader.next()) {
        *at++ = '%';
        *at++ = kind;
    }
    *at = '\0';
    return format;
}

int tuple_unpack_mask(const void *tuple, const char *format, ...) {
    if (tuple == nullptr || format == nullptr) {
        errno = EINVAL;
        return -1;
    }
    FieldReader reader(tuple);
    if (!align(reader, format)) {
        return -1;
    }
    va_list outputs;
    va_start(outputs, format);
    for (; *format != '\0'; format += 2) {
        if (reader.next() == kInteger) {
            const std::uint32_t value = reader.integer();
            memcpy(va_arg(outputs, void *), &value, sizeof value);
        } else {
            char *name = va_arg(outputs, char *);
            memcpy(name, reader.name(), strlen(reader.name()) + 1);
        }
    }
    va_end(outputs);
    return 0;
}

}  // extern "C"
