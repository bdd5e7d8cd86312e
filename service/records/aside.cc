// SPDX-License-Identifier: Apache-2.0
//
// Files of damaged bytes.
#include "records/aside.hpp"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <vector>

namespace accounting {

namespace {

constexpr std::string_view kPrefix = "damaged-";
// A disk that fails must not fill up with these files.
constexpr int kMostFiles = 64;

}  // namespace

Aside::Kept Aside::keep(std::uint64_t segment, std::size_t at, std::string_view bytes, std::string &name) {
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%s%016" PRIx64 "-%zu", kPrefix.data(), segment, at);
    name = text.data();
    std::vector<std::string> names;
    if (!directory_.names(names)) {
        return Kept::kNot;
    }
    if (std::binary_search(names.begin(), names.end(), name)) {
        return Kept::kBefore;
    }
    const auto count = std::count_if(names.begin(), names.end(),
                                     [](const std::string &other) { return other.starts_with(kPrefix); });
    if (count >= kMostFiles) {
        return Kept::kNot;
    }
    const net::Descriptor file = directory_.open_file(name, O_WRONLY | O_CREAT | O_EXCL);
    Files &files = directory_.files();
    if (!file) {
        return Kept::kNot;
    }
    if (!files.write_all(file.get(), bytes, 0) || files.sync(file.get()) != 0 || !directory_.sync()) {
        directory_.remove(name);
        return Kept::kNot;
    }
    return Kept::kYes;
}

}  // namespace accounting
