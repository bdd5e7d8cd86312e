// SPDX-License-Identifier: Apache-2.0
//
// Finds sealed keys, opens them, and replaces them if they have not changed
// meanwhile.

#include "keys/sealed_keys.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>

#include "commits/recording.hpp"
#include "database/secret_values.hpp"
#include "database/sysdb_apply.hpp"
#include "platform/cerr.h"
#include "platform/cipher.h"

namespace aaactl {
namespace {

constexpr int kReversible = 7;
constexpr int kAttempts = 10;  // when others change keys meanwhile
constexpr cerrno kKeysUnusable = 0xa2581000u;
constexpr cerrno kKeysExist = 0xa2581200u;
constexpr cerrno kNewestKey = 0xa2581800u;

const char *remedy_of(cerrno rc) {
    return rc == kKeysExist   ? "; add a key to it with \"aaactl key rotate\""
           : rc == kNewestKey ? "; add another one first: aaactl key rotate --reseal /cfg/"
                              : "";
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

struct Opened {
    SealedItem item;
    SecretText clear;
};

// Only a text is a sealed key; an item that has lost its type may have been one.
bool may_hold_key(uint32_t type) {
    return type == SYSDB_TYPE_STRING || type == SYSDB_TYPE_DIRECTORY || type == SYSDB_TYPE_ANY;
}

// Without a trailing '/' a path may name an item and a directory.
bool may_be_item(const std::string &path) {
    return !path.ends_with('/') && path != "/cfg" && path != "/oper";
}

SealedItems find_all(Database &database, const std::vector<std::string> &paths) {
    std::map<std::string, SealedItem> items;  // each once, though paths may overlap
    std::map<std::string, Unreadable> unreadable;
    for (const std::string &path : paths) {
        const SealedItems found = find_sealed(database, path);
        for (const SealedItem &item : found.items) {
            items.emplace(item.path, item);
        }
        for (const Unreadable &item : found.unreadable) {
            unreadable.emplace(item.path, item);
        }
    }
    SealedItems all;
    std::transform(items.begin(), items.end(), std::back_inserter(all.items),
                   [](const auto &entry) { return entry.second; });
    std::transform(unreadable.begin(), unreadable.end(), std::back_inserter(all.unreadable),
                   [](const auto &entry) { return entry.second; });
    return all;
}

// ---- the history

// Sealed texts among the items of a commit.
std::vector<std::string> sealed_texts(const history::Items &items) {
    std::vector<std::string> texts;
    for (const auto &[path, item] : items) {
        if (item.type == SYSDB_TYPE_STRING && !item.bytes.empty() &&
            looks_sealed(std::string_view(item.bytes).substr(0, item.bytes.size() - 1))) {
            texts.push_back(item.bytes.substr(0, item.bytes.size() - 1));
        }
    }
    return texts;
}

bool covers_history(const std::vector<std::string> &paths) {
    return std::any_of(paths.begin(), paths.end(), [](const std::string &path) {
        const std::string directory = path.ends_with('/') ? path : path + '/';
        return directory == kCfgTree || is_hidden(directory);
    });
}

struct CommitState {
    history::Commit commit;
    history::Items items;
};
struct HistoryKeys {
    history::Head head;
    std::vector<CommitState> states;
    std::map<std::string, SecretText> opened;  // by the sealed text
};

void open_texts(const CommitState &state, HistoryKeys &keys, std::vector<LeftKey> &left) {
    for (const std::string &text : sealed_texts(state.items)) {
        if (keys.opened.contains(text)) {
            continue;
        }
        if (SecretText clear = open_key(text)) {
            keys.opened.emplace(text, std::move(clear));
        } else {
            left.push_back({commit_text(state.commit), "a key in it cannot be opened with the master keys",
                            ExitCode::negative, true});
            forget_log_lines();
        }
    }
}

HistoryKeys open_history(Database &database, std::vector<LeftKey> &left) {
    return with_history([&] {
        const history::Store store = store_of(database);
        HistoryKeys keys{store.head(), {}, {}};
        for (const history::Commit &commit : store.commits()) {
            try {
                keys.states.push_back({commit, store.items(commit)});
                open_texts(keys.states.back(), keys, left);
            } catch (const history::Error &error) {
                if (error.why() == history::Error::Why::database) {
                    throw;
                }
                left.push_back({commit_text(commit), error.what(), ExitCode::bad_input, true});
            }
        }
        return keys;
    });
}

// ---- opening and sealing

struct OpenedKeys {
    std::vector<Opened> stored;
    HistoryKeys history;
};

OpenedKeys open_all(Database &database, const std::vector<std::string> &paths, std::vector<LeftKey> &left) {
    const SealedItems found = find_all(database, paths);
    left.clear();
    for (const Unreadable &item : found.unreadable) {
        left.push_back({item.path, item.fault, ExitCode::bad_input});
    }
    OpenedKeys opened;
    for (const SealedItem &item : found.items) {
        if (SecretText clear = open_key(item.text)) {
            opened.stored.push_back({item, std::move(clear)});
        } else {
            left.push_back({item.path, "the key cannot be opened with the master keys", ExitCode::negative});
            forget_log_lines();
        }
    }
    if (covers_history(paths)) {
        opened.history = open_history(database, left);
    }
    return opened;
}

// Seals each text once, so that keys that are equal stay equal: commits would seem to differ otherwise.
class Sealer {
  public:
    const std::string &seal(const std::string &sealed, const SecretText &clear) {
        std::string &again = sealed_[sealed];
        if (again.empty()) {
            again = seal_key(clear.get());
        }
        return again;
    }

  private:
    std::map<std::string, std::string> sealed_;
};

bool seal_state(CommitState &state, const HistoryKeys &keys, uint32_t newest, Sealer &sealer) {
    bool any = false;
    for (auto &[path, item] : state.items) {
        if (item.type != SYSDB_TYPE_STRING || item.bytes.empty()) {
            continue;
        }
        const std::string text = item.bytes.substr(0, item.bytes.size() - 1);
        const auto found = keys.opened.find(text);
        if (found != keys.opened.end() && sealed_generation(text) != newest) {
            item = history::text_item(sealer.seal(text, found->second));
            any = true;
        }
    }
    return any;
}

void seal_history(Database &database, HistoryKeys &keys, uint32_t newest, Sealer &sealer, Changes &changes,
                  std::vector<std::string> &paths) {
    if (keys.states.empty()) {
        return;
    }
    with_history([&] {
        const history::Store store = store_of(database);
        const size_t before = paths.size();
        for (CommitState &state : keys.states) {
            if (seal_state(state, keys, newest, sealer)) {
                append(history::rewritten(state.commit, state.items), changes);
                paths.push_back(commit_text(state.commit));
            }
        }
        if (paths.size() != before) {
            append(history::Writing(store, keys.head).finish(), changes);
        }
    });
}

// The change expects the keys that were read: one that was replaced meanwhile is not overwritten.
cerrno store(Database &database, OpenedKeys &opened, const std::string &tree,
             std::vector<std::string> &changed) {
    const uint32_t newest = master_keys().back().generation;
    Changes changes;
    Sealer sealer;
    std::vector<std::string> paths;
    for (const auto &[item, clear] : opened.stored) {
        if (item.path.starts_with(tree) && item.generation != newest) {
            changes.expect(item.path, text_item(item.text));
            changes.set(item.path, text_item(sealer.seal(item.text, clear)));
            paths.push_back(item.path);
        }
    }
    if (tree == kCfgTree) {
        seal_history(database, opened.history, newest, sealer, changes, paths);
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

Failure master_keys_failure(cerrno rc) {
    const bool unavailable =
        rc == kKeysUnusable || (rc & 0x80000000u) == 0;  // an errno value has no severity
    return {unavailable ? ExitCode::unavailable : ExitCode::failed,
            escaped(aaa_platform_master_keys_path()) + ": " + escaped(cerr_strerror(rc)) + remedy_of(rc)};
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

// The same characters as validate_encrypted_password() accepts, in the same locale.
void check_clear_key(const std::string &clear) {
    const bool printable = std::all_of(clear.begin(), clear.end(),
                                       [](unsigned char c) { return c <= 0x7f && std::isprint(c) != 0; });
    if (!printable) {
        throw Failure(ExitCode::bad_input, "the key has characters that are not printable ASCII");
    }
}

SecretText open_key(const std::string &sealed) {
    return SecretText(pw_decrypt(sealed.c_str(), kReversible));
}

SealedItems find_sealed(Database &database, const std::string &path) {
    SealedItems found;
    const auto visit = [&](const std::string &at, const Item &item) {
        if (item.type == SYSDB_TYPE_STRING && looks_sealed(text_of(item))) {
            const std::string text = text_of(item);
            found.items.push_back({at, text, sealed_generation(text).value_or(0)});
        }
    };
    const auto unreadable = [&](const Unreadable &item) {
        if (may_hold_key(item.type)) {
            found.unreadable.push_back(item);
        }
    };
    const std::string directory = directory_path(path);
    bool exists = database.list(directory).has_value();
    if (may_be_item(path)) {
        std::string fault;
        if (const auto item = database.find(path, fault)) {
            visit(path, *item);
            exists = true;
        } else if (!fault.empty()) {
            unreadable({path, SYSDB_TYPE_ANY, fault});
            exists = true;
        }
    }
    if (!exists) {
        throw database_failure(path, SYSDB_ERR_NOT_FOUND);
    }
    database.walk(directory, visit, unreadable);
    return found;
}

CommitsWithKeys commits_with(Database &database, uint32_t generation) {
    return with_history([&] {
        const history::Store store = store_of(database);
        CommitsWithKeys found;
        for (const history::Commit &commit : store.commits(&found.unreadable)) {
            try {
                const std::vector<std::string> texts = sealed_texts(store.items(commit));
                if (std::any_of(texts.begin(), texts.end(), [&](const std::string &text) {
                        return sealed_generation(text) == generation;
                    })) {
                    found.commits.push_back(commit_text(commit));
                }
            } catch (const history::Error &error) {
                if (error.why() == history::Error::Why::database) {
                    throw;
                }
                found.unreadable.push_back(commit_text(commit));
            }
        }
        return found;
    });
}

void reseal(const std::vector<std::string> &paths,
            const std::function<void(const std::vector<LeftKey> &)> &before_sealing, Resealed &result) {
    Database database;
    OpenedKeys opened = open_all(database, paths, result.left);
    before_sealing(result.left);
    for (const char *tree : {"/cfg/", "/oper/"}) {
        for (int attempt = 1;; ++attempt) {
            const cerrno rc = store(database, opened, tree, result.changed);
            if (rc == 0) {
                break;
            }
            if (rc != SYSDB_ERR_CONFLICT || attempt == kAttempts) {
                throw database_failure(tree, rc);
            }
            opened = open_all(database, paths, result.left);
        }
    }
}

std::string generation_text(uint32_t generation) {
    return (generation < 10 ? "0" : "") + std::to_string(generation);
}

}  // namespace aaactl
