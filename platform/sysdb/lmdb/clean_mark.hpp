// SPDX-License-Identifier: Apache-2.0
//
// The clean mark: a small file beside the database that says in which state its pages
// were found sound, or were written by a process that began with a sound file and
// finished. A process that opens the file in that state does not read all pages again.
//
// A transaction is followed from its first page to its head. If the mark held before the
// first page, it is written again after the head. So it does not hold after a writer
// that was killed, after a change past this code (another LMDB program, an editor, a
// copy), and after the machine was started again. One process then checks all pages and
// writes the mark. It does not protect against the group's members, who may write the
// database itself at any time.
//
// An empty data file with a mark has lost its contents: the mark is written after the first
// transaction. An empty file without one is new.
//
// The file is read and written with system calls only, never mapped. A mark that cannot
// be written is not an error.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

#include "directory.hpp"
#include "files.hpp"

namespace sysdb_lmdb {

// A state of the data file. Every write changes the time; a transaction, the number.
struct FileState {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t seconds = 0;
    std::uint64_t nanoseconds = 0;
    std::uint64_t txnid = 0;
    bool operator==(const FileState &) const = default;
};

// False when the file cannot be examined.
bool state_of(int data_fd, std::uint64_t txnid, FileState &state);

class CleanMark {
  public:
    // Removes the mark of an earlier file, before a new one gets the name: the mark would say that the new
    // one has lost its contents.
    static void remove(const Directory &directory, const std::string &name);

    // Opens the mark if there is one. Rights are those that a new one gets.
    void open(const Directory &directory, const std::string &name, FileRights rights);

    // Whether the mark is for this state, and was written since the machine started.
    bool holds(const FileState &state) const;
    // Whether it was written, in this start of the machine or an earlier one, for a file that had contents.
    bool tells_of_contents() const;
    // Marks the present state, which is that of this transaction. Makes the file if it is
    // missing.
    void write(const Directory &directory, int data_fd, std::uint64_t txnid);

  private:
    void open_file(const Directory &directory, const CheckedFile &file);
    bool is_open_to_write(const Directory &directory);

    Descriptor file_;
    std::string name_;
    FileRights rights_{};
    std::optional<bool> coarse_times_;
};

}  // namespace sysdb_lmdb
