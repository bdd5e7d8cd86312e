// SPDX-License-Identifier: Apache-2.0
//
// Where a capture is written: a file, a pipe of another program, standard output.

#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace aaactl {

class CaptureOutput {
  public:
    // Opens without changing what is there. "-" is standard output. A new file is its owner's alone,
    // and so is one that is replaced. Failure for a symbolic link and for a file of another
    // user, also on the way: in a directory that everyone may write, someone may have put it there.
    explicit CaptureOutput(const std::string &file);
    // Removes a file that it has made and that begin() was not called for.
    ~CaptureOutput();
    CaptureOutput(const CaptureOutput &) = delete;
    CaptureOutput &operator=(const CaptureOutput &) = delete;

    // Failure when another capture writes into the file.
    void lock();
    // Empties a file.
    void begin();
    // Writes all of the bytes; a file holds either all of them or none. False when the reader of a
    // pipe has gone, or when `end` becomes readable before a reader takes them. Failure when they
    // cannot be written.
    bool write(std::string_view bytes, int end);
    const std::string &name() const { return name_; }
    // To poll for the end of a pipe's reader; -1 where there is none.
    int reader() const { return is_regular_ ? -1 : fd_; }
    // Whether both write into one file, whatever names it was opened by.
    bool is_same_file(const CaptureOutput &other) const {
        return device_ == other.device_ && inode_ == other.inode_;
    }

  private:
    [[noreturn]] void fail(const std::string &what) const;
    void check_owner() const;
    void close_all();
    bool wait(int end) const;

    std::string file_;  // in the directory
    int directory_ = -1;
    std::string name_;  // for messages
    int fd_ = -1;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    bool is_new_ = false;  // made, and not begun
    bool is_regular_ = false;
    long long written_ = 0;  // bytes of a file
};

}  // namespace aaactl
