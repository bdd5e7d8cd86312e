// SPDX-License-Identifier: Apache-2.0
//
// Little-endian numbers in files, and reading that cannot run past the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace accounting {

template <typename Number>
void put(std::string &out, Number value) {
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        out += static_cast<char>(static_cast<std::uint64_t>(value) >> 8 * i & 0xff);
    }
}

// Reads one field after the other. After the first that is not whole, fine() is false and
// all fields are zero or empty.
class ByteReader {
  public:
    explicit ByteReader(std::string_view bytes) : bytes_(bytes) {}

    template <typename Number>
    Number number() {
        const std::string_view field = text(sizeof(Number));
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < field.size(); ++i) {
            value |= std::uint64_t{static_cast<unsigned char>(field[i])} << 8 * i;
        }
        return static_cast<Number>(value);
    }
    std::string_view text(std::size_t size) {
        fine_ = fine_ && size <= bytes_.size();
        if (!fine_) {
            return {};
        }
        const std::string_view field = bytes_.substr(0, size);
        bytes_.remove_prefix(size);
        return field;
    }
    std::string_view rest() { return text(bytes_.size()); }
    bool fine() const { return fine_; }

  private:
    std::string_view bytes_;
    bool fine_ = true;
};

}  // namespace accounting
