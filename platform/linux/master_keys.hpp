// SPDX-License-Identifier: Apache-2.0
//
// The master keys that seal server keys. The file is text, one generation a
// line, oldest first; new keys are sealed with the last one:
//
//     aaa-master-keys 1
//     01 2b7e...(64 hex digits) 2025-03-01T12:00:00Z
//
// It is read for every use, so that a rotation takes effect at once and keys do
// not remain in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace aaaplatform {

inline constexpr std::size_t kMasterKeySize = 32;
inline constexpr unsigned kGenerations = 100;  // two decimal digits

struct MasterKey {
    unsigned generation;
    unsigned char key[kMasterKeySize];
    time_t created;  // 0 = not recorded
};

// All generations of a file. Wiped when it goes out of scope.
class MasterKeys {
  public:
    MasterKeys() = default;
    ~MasterKeys();
    MasterKeys(const MasterKeys &) = delete;
    MasterKeys &operator=(const MasterKeys &) = delete;

    // Reads and checks the file. False, with one log line that names the file and
    // the remedy, when it is missing, accessible to others, or damaged.
    bool read(const char *path) noexcept;

    [[nodiscard]] const MasterKey *find(unsigned generation) const noexcept;
    [[nodiscard]] const MasterKey *newest() const noexcept {
        return count_ != 0 ? &keys_[count_ - 1] : nullptr;
    }
    [[nodiscard]] const MasterKey &at(unsigned i) const noexcept { return keys_[i]; }
    [[nodiscard]] unsigned count() const noexcept { return count_; }

    // Appends a new random key. False when all numbers are taken.
    bool add(unsigned generation) noexcept;

    // Removes one; its number must exist.
    void remove(unsigned generation) noexcept;

    // Writes the file under a temporary name beside it and puts it in place.
    // Returns 0 or an errno value (EEXIST: not replace, and a file is there).
    int write(const char *path, bool replace) const noexcept;

  private:
    bool parse(char *text, const char *path) noexcept;
    bool parse_line(char *line) noexcept;

    MasterKey keys_[kGenerations];
    unsigned count_ = 0;
};

// AAA_MASTER_KEYS, else /etc/aaa/master.keys.
const char *master_keys_path() noexcept;

// Opens the directory that holds path; -1 with errno set.
int open_directory_of(const char *path) noexcept;

}  // namespace aaaplatform
