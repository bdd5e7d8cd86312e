// SPDX-License-Identifier: Apache-2.0
//
// Secrets by the words of their path and by their form.

#include "database/secret_values.hpp"

#include <algorithm>
#include <cctype>

namespace aaactl {
namespace {

// Rather too many words than too few: a value that is masked by mistake can be shown.
constexpr std::string_view kSecretWords[] = {"key", "secret", "passw", "passphrase", "psk"};
// The shortest sealed text: a generation, a version byte, a nonce and a tag.
constexpr size_t kShortestSealed = 84;

}  // namespace

bool is_secret_path(std::string_view path) {
    if (path.starts_with("/cfg/.history/commit/") && path.find("/state/") != std::string_view::npos) {
        return true;  // a whole configuration, with its secrets
    }
    std::string lower(path);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
    return std::any_of(std::begin(kSecretWords), std::end(kSecretWords),
                       [&](std::string_view word) { return lower.find(word) != std::string::npos; });
}

bool looks_sealed(std::string_view text) {
    return text.size() >= kShortestSealed && text.size() % 2 == 0 && text[0] >= '0' && text[0] <= '9' &&
           text[1] >= '0' && text[1] <= '9' &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

bool is_secret(std::string_view path, const Item &item) {
    return item.type != SYSDB_TYPE_DIRECTORY &&
           (is_secret_path(path) ||
            (item.type == SYSDB_TYPE_STRING && !item.bytes.empty() && looks_sealed(text_of(item))));
}

Item item_for(std::string_view path, uint32_t type, const std::function<Item()> &read) {
    try {
        return read();
    } catch (const Failure &failure) {
        if (!is_secret_path(path)) {
            throw;
        }
        throw Failure(failure.code(), "the secret value does not have the form of a " + type_name(type));
    }
}

}  // namespace aaactl
