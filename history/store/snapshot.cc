// SPDX-License-Identifier: Apache-2.0

#include "store/snapshot.hpp"

#include <zlib.h>

#include <algorithm>
#include <string_view>

namespace history {

namespace {

constexpr std::string_view kMagic = "AHS1";
constexpr std::size_t kChecked = kMagic.size() + 4;  // where the bytes begin that the checksum is of
constexpr std::size_t kHead = kChecked + 8;
// Of a whole configuration: a damaged length must not ask for all memory. No byte of deflate's form
// (RFC 1951) expands to more than 1032 others.
constexpr std::uint64_t kMostPlain = std::uint64_t{1} << 30;
constexpr std::uint64_t kMostPerByte = 1032;
// Longer paths are in no database. Each item of a damaged state could repeat one of a megabyte with a
// few bytes.
constexpr std::size_t kLongestPath = 1024;
constexpr int kLevel = 3;  // the next levels take twice as long for a few percent

[[noreturn]] void damaged() {
    throw Error(Error::Why::damaged, "the stored state is damaged");
}

void put_number(std::string &out, std::uint64_t value) {
    while (value >= 0x80) {
        out.push_back(static_cast<char>(value | 0x80));
        value >>= 7;
    }
    out.push_back(static_cast<char>(value));
}

template <typename Number>
void put_fixed(char *to, Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
        to[i] = static_cast<char>(value >> (8 * i));
    }
}

template <typename Number>
Number fixed(const char *from) {
    Number value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        value |= static_cast<Number>(static_cast<Number>(static_cast<unsigned char>(from[i])) << (8 * i));
    }
    return value;
}

std::uint32_t checksum(const std::string &stored) {
    return static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef *>(stored.data() + kChecked),
                                            static_cast<uInt>(stored.size() - kChecked)));
}

// Takes parts from the front of bytes, never more than there are.
class Reader {
  public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    bool at_end() const { return bytes_.empty(); }

    std::uint64_t number() {
        std::uint64_t value = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            const auto byte = static_cast<unsigned char>(take(1)[0]);
            value |= std::uint64_t{byte & 0x7fu} << shift;
            if (byte < 0x80) {
                return value;
            }
        }
        damaged();
    }

    std::string_view take(std::uint64_t length) {
        if (length > bytes_.size()) {
            damaged();
        }
        const std::string_view taken = bytes_.substr(0, length);
        bytes_.remove_prefix(length);
        return taken;
    }

  private:
    std::string_view bytes_;
};

}  // namespace

std::string plain_form(const Items &items) {
    std::string plain;
    std::string_view before;
    for (const auto &[path, item] : items) {
        const auto differs = std::mismatch(before.begin(), before.end(), path.begin(), path.end());
        const auto shared = static_cast<std::size_t>(differs.first - before.begin());
        put_number(plain, shared);
        put_number(plain, path.size() - shared);
        plain.append(path, shared);
        put_number(plain, item.type);
        put_number(plain, item.bytes.size());
        plain += item.bytes;
        before = path;
    }
    return plain;
}

Items from_plain_form(const std::string &plain) {
    Items items;
    std::string path;
    for (Reader reader(plain); !reader.at_end();) {
        const std::uint64_t shared = reader.number();
        if (shared > path.size()) {
            damaged();
        }
        std::string next = path.substr(0, shared);
        next += reader.take(reader.number());
        const bool is_in_order = items.empty() || path < next;
        path = std::move(next);
        Item item;
        const std::uint64_t type = reader.number();
        item.type = static_cast<std::uint32_t>(type);
        item.bytes = reader.take(reader.number());
        if (!is_in_order || path.size() > kLongestPath || type > UINT32_MAX) {
            damaged();
        }
        items.emplace_hint(items.end(), path, std::move(item));
    }
    return items;
}

std::string compressed(const std::string &plain) {
    uLongf length = compressBound(plain.size());
    std::string stored(kHead + length, '\0');
    const int rc = compress2(reinterpret_cast<Bytef *>(stored.data() + kHead), &length,
                             reinterpret_cast<const Bytef *>(plain.data()), plain.size(), kLevel);
    if (rc != Z_OK) {
        throw std::bad_alloc();
    }
    stored.resize(kHead + length);
    stored.replace(0, kMagic.size(), kMagic);
    put_fixed(stored.data() + kChecked, std::uint64_t{plain.size()});
    put_fixed(stored.data() + kMagic.size(), checksum(stored));
    return stored;
}

std::string decompressed(const std::string &stored) {
    if (!stored.starts_with(kMagic) || stored.size() < kHead ||
        fixed<std::uint32_t>(stored.data() + kMagic.size()) != checksum(stored)) {
        damaged();
    }
    const auto length = fixed<std::uint64_t>(stored.data() + kChecked);
    if (length > std::min(kMostPlain, (stored.size() - kHead) * kMostPerByte)) {
        damaged();
    }
    std::string plain(length, '\0');
    uLongf got = length;
    const int rc = uncompress(reinterpret_cast<Bytef *>(plain.data()), &got,
                              reinterpret_cast<const Bytef *>(stored.data() + kHead), stored.size() - kHead);
    if (rc == Z_MEM_ERROR) {
        throw std::bad_alloc();
    }
    if (rc != Z_OK || got != length) {
        damaged();
    }
    return plain;
}

}  // namespace history
