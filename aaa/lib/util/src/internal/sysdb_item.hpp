// SPDX-License-Identifier: Apache-2.0
//
// One item read from the system database, freed at the end of its scope.
#pragma once

#include <cstdint>
#include <cstring>

#include "aaa/types.h"
#include "internal/bytes.hpp"
#include "internal/memory.hpp"
#include "internal/sysdb_access.hpp"
#include "platform/sysdb.h"

namespace aaautil {

// Out-arguments of the platform: zeroed 8-byte storage with the preset in it,
// of which the low 32 bits are used. The platform may write 32 or 64 bits.
class OutWord {
  public:
    explicit OutWord(uint32_t preset = 0) noexcept : storage_{preset, 0} {}
    [[nodiscard]] uint32_t *out() noexcept { return storage_; }
    [[nodiscard]] uint32_t value() const noexcept { return storage_[0]; }

  private:
    alignas(uint64_t) uint32_t storage_[2];
};

class SysdbItem {
  public:
    // Reads an item of the expected type (0: any). The result is the platform's code.
    [[nodiscard]] cerrno read(uint64_t conn, const char *path, uint32_t expected_type) noexcept {
        OutWord type(expected_type);
        OutWord length;
        void *value = nullptr;
        const cerrno rc = sysdb_item_get(conn, path, type.out(), &value, length.out(), 0);
        if (rc == 0) {
            value_.reset(static_cast<char *>(value));
            length_ = value != nullptr ? length.value() : 0;
        }
        return rc;
    }

    [[nodiscard]] char *get() const noexcept { return value_.get(); }
    [[nodiscard]] uint32_t length() const noexcept { return length_; }
    [[nodiscard]] char *release() noexcept { return value_.release(); }

    // A number item must hold four bytes; anything shorter is not one.
    [[nodiscard]] bool is_number() const noexcept { return length_ >= sizeof(uint32_t); }
    [[nodiscard]] uint32_t number() const noexcept { return load_u32(value_.get()); }

    // Whether the stored text, which need not end in NUL, is the given one.
    [[nodiscard]] bool is_text(const char *text) const noexcept {
        const size_t stored = value_ != nullptr ? strnlen(value_.get(), length_) : 0;
        return value_ != nullptr && stored == std::strlen(text) &&
               std::memcmp(value_.get(), text, stored) == 0;
    }

  private:
    malloc_ptr<char> value_;
    uint32_t length_ = 0;
};

}  // namespace aaautil
