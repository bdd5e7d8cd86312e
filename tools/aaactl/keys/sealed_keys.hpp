// SPDX-License-Identifier: Apache-2.0
//
// Sealed keys and the master keys that they are sealed with. Clear texts are
// wiped before their memory is given back.

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

// What goes wrong with master keys is told to who runs this, not to the system log.
void log_to_standard_error();

// The generations, oldest first; Failure(unavailable) when the file cannot be used.
std::vector<aaa_platform_master_key_t> master_keys();
// The failure of a call on the file of master keys.
Failure master_keys_failure(cerrno rc);

// The first two digits of a sealed text; nullopt for a text that has not the form of one.
std::optional<uint32_t> sealed_generation(const std::string &text);
std::string seal_key(const char *clear);
// Null when it cannot be opened; a log line says why.
SecretText open_key(const std::string &sealed);

// A sealed key of the database.
struct SealedItem {
    std::string path;
    std::string text;
    uint32_t generation;
};
struct SealedItems {
    std::vector<SealedItem> items;
    std::vector<Unreadable> unreadable;  // which may be sealed keys, or directories that hold some
};
// Texts that have the form of sealed keys, at the path or below it. Nothing is there: Failure(not_found).
SealedItems find_sealed(Database &database, const std::string &path);

// A sealed key that stays as it is: it cannot be read (bad_input), or not be opened (negative).
struct LeftKey {
    std::string path;
    std::string fault;
    ExitCode code;
};

struct Resealed {
    std::vector<std::string> changed;  // paths
    std::vector<LeftKey> left;
};

// Seals stored keys again with the newest master key, those of one tree as one change. `before_sealing` runs
// when all have been opened, and learns which cannot be: it may refuse them, as nothing is changed yet. After
// a Failure `result` has what was done until then.
void reseal(const std::vector<std::string> &paths,
            const std::function<void(const std::vector<LeftKey> &)> &before_sealing, Resealed &result);

// "01"
std::string generation_text(uint32_t generation);

}  // namespace aaactl
