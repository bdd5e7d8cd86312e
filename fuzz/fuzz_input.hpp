// SPDX-License-Identifier: Apache-2.0
//
// Shared by the fuzzers: an input that is read byte by byte, a check that prints the
// failed line and ends the process, and the choice of the runs that check costly
// properties.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace fuzz {

inline void require(bool holds, const char *text, const char *file, int line) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: %s\n", file, line, text);
        std::abort();
    }
}

#define REQUIRE(condition) fuzz::require(condition, #condition, __FILE__, __LINE__)

// Selects inputs by their bytes. A property that costs many times as much as the code
// under test is checked for a part of the inputs while fuzzing. Without AAA_FUZZ_SAMPLES
// in the environment it is checked for all of them: an input that failed fails again,
// and a replay of seeds is complete.
class Sample {
  public:
    Sample(const uint8_t *data, std::size_t size)
        : rest_(std::hash<std::string_view>{}({reinterpret_cast<const char *>(data), size})) {}

    // Independent of the calls before.
    bool one_in(unsigned count) {
        static const bool samples = std::getenv("AAA_FUZZ_SAMPLES") != nullptr;
        const bool chosen = rest_ % count == 0;
        rest_ /= count;
        return chosen || !samples;
    }

  private:
    std::size_t rest_;
};

// Returns zeros after its end.
class Input {
  public:
    Input(const uint8_t *data, std::size_t size) : bytes_(data, size) {}

    [[nodiscard]] bool empty() const { return bytes_.empty(); }
    [[nodiscard]] std::size_t size() const { return bytes_.size(); }
    uint8_t byte() {
        if (bytes_.empty()) {
            return 0;
        }
        const uint8_t value = bytes_[0];
        bytes_ = bytes_.subspan(1);
        return value;
    }
    // Little-endian, up to eight bytes.
    uint64_t number(unsigned bytes) {
        uint64_t value = 0;
        for (unsigned i = 0; i < bytes; ++i) {
            value |= uint64_t{byte()} << 8 * i;
        }
        return value;
    }
    uint32_t word() { return static_cast<uint32_t>(number(4)); }

    // The next bytes, up to size, fewer at the end.
    std::string text(std::size_t size) {
        size = std::min(size, bytes_.size());
        std::string taken(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(size));
        bytes_ = bytes_.subspan(size);
        return taken;
    }
    std::string rest() { return text(bytes_.size()); }
    // The rest up to its first NUL.
    std::string rest_as_text() { return rest().c_str(); }

  private:
    std::span<const uint8_t> bytes_;
};

}  // namespace fuzz
