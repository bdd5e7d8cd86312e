// SPDX-License-Identifier: Apache-2.0
//
// An attribute list that frees itself, and typed reads of it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "aaa/avpair.h"
#include "base/secret.hpp"

namespace service {

struct FreeAvlist {
    void operator()(avlist *list) const { aaa_avpair_free_list(list); }
};
using AvList = std::unique_ptr<avlist, FreeAvlist>;

// A text attribute; nullopt when it is absent, longer than 16 KiB, or has bytes after its NUL.
std::optional<std::string> text_in(const avlist *list, std::uint32_t type);
std::optional<Secret> secret_in(const avlist *list, std::uint32_t type);
// A 32-bit attribute; nullopt when it is absent or of another size.
std::optional<std::uint32_t> number_in(const avlist *list, std::uint32_t type);

}  // namespace service
