// SPDX-License-Identifier: Apache-2.0
//
// Sealed keys and the master keys that they are sealed with. Clear texts are
// wiped before their memory is released.

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "database/database.hpp"
#include "platform/control.h"

namespace aaactl {

struct WipeText {
    void operator()(char *text) const;
};
using SecretText = std::unique_ptr<char, WipeText>;

// The generations, oldest first; Failure(unavailable) when the file cannot be used.
std::vector<aaa_platform_master_key_t> master_keys();
// The failure of a call on the file of master keys.
Failure master_keys_failure(cerrno rc);

// The first two digits of a sealed text; nullopt for a text of another form.
std::optional<uint32_t> sealed_generation(const std::string &text);
std::string seal_key(const char *clear);
// Failure(bad_input) for a clear key that, once sealed, is not a valid one. Given keys are checked before
// they are sealed; stored ones are sealed again as they are.
void check_clear_key(const std::string &clear);
// Null if it cannot be opened; a log line says why.
SecretText open_key(const std::string &sealed);

// A sealed key of the database.
struct SealedItem {
    std::string path;
    std::string text;
    uint32_t generation;
};
struct SealedItems {
    std::vector<SealedItem> items;
    std::vector<Unreadable> unreadable;  // may be sealed keys, or directories of some
};
// Texts in the form of sealed keys, at the path or below it. Failure(not_found) if the path does not exist.
SealedItems find_sealed(Database &database, const std::string &path);

// A sealed key that is not changed: it cannot be read (bad_input) or cannot be opened (negative).
struct LeftKey {
    std::string path;
    std::string fault;
    ExitCode code;
    bool in_history = false;  // of an earlier configuration: it may be of master keys that are gone for good
};

// Commits of the history that hold keys of a generation, "commit 3 (before-upgrade)", and those that cannot
// be read.
struct CommitsWithKeys {
    std::vector<std::string> commits;
    std::vector<std::string> unreadable;
};
CommitsWithKeys commits_with(Database &database, uint32_t generation);

struct Resealed {
    std::vector<std::string> changed;  // paths
    std::vector<LeftKey> left;
};

// Seals stored keys again with the newest master key, those of one tree as one change. `before_sealing` is
// called when all have been opened, with those that cannot be: nothing is changed yet, and it may throw. With
// "/cfg/" the keys in its history are sealed again too, equal ones alike.
// After a Failure `result` has the keys that were sealed before it.
void reseal(const std::vector<std::string> &paths,
            const std::function<void(const std::vector<LeftKey> &)> &before_sealing, Resealed &result);

// "01"
std::string generation_text(uint32_t generation);

}  // namespace aaactl
