// SPDX-License-Identifier: Apache-2.0
//
// The master keys that seal server keys. The file is text, one generation a
// line, oldest first; new keys are sealed with the last one:
//
//     aaa-master-keys 1
//     #check 1 5d0c...(32 hex digits)
//     01 2b7e...(64 hex digits) 2025-03-01T12:00:00Z
//
// The second line has the number of keys and a checksum of their lines. Files
// without it are read unchecked.
//
// It is read for every use, so that a rotation takes effect at once and keys do
// not remain in memory.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace aaaplatform {

inline constexpr char kUsualMasterKeys[] = "/etc/aaa/master.keys";
inline constexpr std::size_t kMasterKeySize = 32;
inline constexpr unsigned kGenerations = 100;  // two decimal digits

class KeysChecksum;

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
    // Whether the file that was read has its number of keys and their checksum.
    [[nodiscard]] bool checked() const noexcept { return checked_; }

    // Appends a new random key. False when all numbers are taken.
    bool add(unsigned generation) noexcept;

    // Removes one; its number must exist.
    void remove(unsigned generation) noexcept;

    // Lets the group of the service read the file that is written: of a new file at the usual
    // path. A file that replaces another has the group of that anyway.
    void admit_service(const char *path) noexcept;

    // Writes a new file and puts it in place, while the caller holds the lock of the
    // directory. Returns 0, or an errno value that it has logged, except EEXIST: not
    // replace, and a file is there.
    int write(const char *path, bool replace) const noexcept;

  private:
    bool parse(char *text, const char *path) noexcept;
    bool parse_any(char *line, KeysChecksum *sum) noexcept;
    bool parse_check(const char *text) noexcept;
    bool parse_line(char *line) noexcept;
    bool check(KeysChecksum *sum, const char *path) const noexcept;

    MasterKey keys_[kGenerations];
    unsigned count_ = 0;
    unsigned expected_count_ = 0;
    char expected_sum_[33] = "";  // hexadecimal digits
    bool checked_ = false;
    gid_t readers_ = 0;  // the group that may read the file; 0: none may
};

// AAA_MASTER_KEYS, else /etc/aaa/master.keys.
const char *master_keys_path() noexcept;

// Opens the directory that holds path; -1 with errno set.
int open_directory_of(const char *path) noexcept;

}  // namespace aaaplatform
