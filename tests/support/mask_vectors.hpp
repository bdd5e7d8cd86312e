// SPDX-License-Identifier: Apache-2.0
//
// tests/vectors/masks.txt: messages with secrets in their texts, and what is shown of them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "aaa/dictionary.h"

namespace test_support {

struct MaskedValue {
    std::uint32_t type = 0;
    std::string text, shown;
};

// `file` is the path of masks.txt.
inline std::vector<std::vector<MaskedValue>> mask_vectors(const std::string &file) {
    const auto unescaped = [](const std::string &text) {
        std::string plain;
        for (std::size_t i = 0; i < text.size(); ++i) {
            const char next = text[i] == '\\' && i + 1 < text.size() ? text[++i] : '\0';
            plain += next == 'n' ? '\n' : next == 't' ? '\t' : next != '\0' ? next : text[i];
        }
        return plain;
    };
    const auto type_of = [](const std::string &name) {
        for (std::uint32_t type = 0; type < AAA_TABLE_ROWS; ++type) {
            if (aaa_table[type].name != nullptr && name == aaa_table[type].name) {
                return type;
            }
        }
        ADD_FAILURE() << "no attribute " << name;
        return std::uint32_t{0};
    };
    std::vector<std::vector<MaskedValue>> messages(1);
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() && !messages.back().empty()) {
            messages.emplace_back();
        }
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        const std::size_t first = line.find('\t'), second = line.find('\t', first + 1);
        if (second == std::string::npos) {
            ADD_FAILURE() << file << ": " << line;
            continue;
        }
        messages.back().push_back({type_of(line.substr(0, first)),
                                   unescaped(line.substr(first + 1, second - first - 1)),
                                   unescaped(line.substr(second + 1))});
    }
    EXPECT_GT(messages.size(), 100u) << file;
    return messages;
}

}  // namespace test_support
