// SPDX-License-Identifier: Apache-2.0

#include "sealed_keys.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>

#include "platform/cerr.h"
#include "platform/cipher.h"
#include "sysdb_apply.hpp"

namespace aaactl {
namespace {

constexpr int kReversible = 7;
constexpr int kAttempts = 10;  // when others change keys meanwhile
constexpr cerrno kKeysUnusable = 0xa2581000u;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

struct Opened {
    SealedItem item;
    SecretText clear;
};

std::vector<Opened> open_all(Database &database, const std::vector<std::string> &paths) {
    std::map<std::string, SealedItem> found;  // each once, though paths may overlap
    for (const std::string &path : paths) {
        for (SealedItem &item : find_sealed(database, path)) {
            found.emplace(item.path, item);
        }
    }
    std::vector<Opened> opened;
    for (const auto &[path, item] : found) {
        opened.push_back({item, open_key(item.text)});
        if (opened.back().clear == nullptr) {
            throw Failure(
                ExitCode::negative,
                escaped(path) + ": the key cannot be opened with the master keys; nothing was changed");
        }
    }
    return opened;
}

// What was read is expected to be there still: a key that somebody has entered meanwhile is not overwritten.
cerrno store(Database &database, const std::vector<Opened> &opened, const std::string &tree,
             std::vector<std::string> &changed) {
    const uint32_t newest = master_keys().back().generation;
    Changes changes;
    std::vector<std::string> paths;
    for (const auto &[item, clear] : opened) {
        if (item.path.starts_with(tree) && item.generation != newest) {
            changes.expect(item.path, text_item(item.text));
            changes.set(item.path, text_item(seal_key(clear.get())));
            paths.push_back(item.path);
        }
    }
    size_t failed = 0;
    const cerrno rc = changes.empty() ? 0 : changes.apply(database, tree, failed);
    if (rc == 0) {
        changed.insert(changed.end(), paths.begin(), paths.end());
    }
    return rc;
}

}  // namespace

void WipeText::operator()(char *text) const {
    explicit_bzero(text, std::strlen(text));
    std::free(text);
}

void log_to_standard_error() {
    setenv("AAA_LOG", "stderr", 0);
}

Failure master_keys_failure(cerrno rc) {
    const bool unavailable =
        rc == kKeysUnusable || (rc & 0x80000000u) == 0;  // an errno value has no severity
    return {unavailable ? ExitCode::unavailable : ExitCode::failed,
            escaped(aaa_platform_master_keys_path()) + ": " + escaped(cerr_strerror(rc))};
}

std::vector<aaa_platform_master_key_t> master_keys() {
    std::array<aaa_platform_master_key_t, AAA_PLATFORM_MASTER_KEYS_MAX> keys{};
    uint32_t count = 0;
    const cerrno rc = aaa_platform_master_keys_list(nullptr, keys.data(), keys.size(), &count);
    if (rc != 0) {
        throw master_keys_failure(rc);
    }
    return {keys.begin(), keys.begin() + std::min<uint32_t>(count, keys.size())};
}

std::optional<uint32_t> sealed_generation(const std::string &text) {
    const bool formed = text.size() >= 4 && text.size() % 2 == 0 && is_digit(text[0]) && is_digit(text[1]) &&
                        std::all_of(text.begin(), text.end(),
                                    [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
    if (!formed) {
        return std::nullopt;
    }
    return static_cast<uint32_t>((text[0] - '0') * 10 + (text[1] - '0'));
}

std::string seal_key(const char *clear) {
    const std::unique_ptr<char, decltype(&std::free)> sealed(pw_encrypt(clear, kReversible), &std::free);
    if (sealed == nullptr) {
        throw Failure(ExitCode::unavailable,
                      "the key cannot be sealed with " + escaped(aaa_platform_master_keys_path()));
    }
    return sealed.get();
}

SecretText open_key(const std::string &sealed) {
    return SecretText(pw_decrypt(sealed.c_str(), kReversible));
}

std::vector<SealedItem> find_sealed(Database &database, const std::string &path) {
    std::vector<SealedItem> found;
    const auto visit = [&](const std::string &at, const Item &item) {
        if (item.type == SYSDB_TYPE_STRING && looks_sealed(text_of(item))) {
            const std::string text = text_of(item);
            found.push_back({at, text, sealed_generation(text).value_or(0)});
        }
    };
    if (!path.ends_with('/')) {
        if (const auto item = database.find(path)) {
            visit(path, *item);
        }
    }
    database.walk(directory_path(path), visit);
    return found;
}

std::vector<std::string> reseal(const std::vector<std::string> &paths,
                                const std::function<void()> &before_sealing) {
    Database database;
    std::vector<Opened> opened = open_all(database, paths);
    before_sealing();
    std::vector<std::string> changed;
    for (const char *tree : {"/cfg/", "/oper/"}) {
        for (int attempt = 1;; ++attempt) {
            const cerrno rc = store(database, opened, tree, changed);
            if (rc == 0) {
                break;
            }
            if (rc != SYSDB_ERR_CONFLICT || attempt == kAttempts) {
                throw database_failure(tree, rc);
            }
            opened = open_all(database, paths);
        }
    }
    return changed;
}

std::string generation_text(uint32_t generation) {
    return (generation < 10 ? "0" : "") + std::to_string(generation);
}

}  // namespace aaactl
