// SPDX-License-Identifier: Apache-2.0
//
// Reader of the host's small configuration files: one setting per line, words
// separated by blanks, '#' starts a comment. A file that somebody else than
// root or the process's own user could have written is refused, since these
// files decide how users are authenticated. No heap, no stdio.
#pragma once

#include <cstddef>

namespace aaaplatform {

struct ConfigLine {
    static constexpr unsigned kMaxWords = 8;
    const char *word[kMaxWords];  // valid until the next line is read
    unsigned words;               // words on the line, those past kMaxWords not counted
    unsigned number;              // line number, from 1
};

class ConfigFile {
  public:
    static constexpr std::size_t kMaxSize = 16384;

    // Reads the whole file. False when there is none, or none that can be used;
    // unusable() tells the two apart, and then a log line says what to mend.
    bool open(const char *path) noexcept;
    [[nodiscard]] bool unusable() const noexcept { return unusable_; }

    // Next line that holds a word; false at the end.
    bool next(ConfigLine *line) noexcept;

    // Logs "<path>:<line>: <what>". Only the first few of a file are logged.
    void complain(const char *what) noexcept;

  private:
    bool refuse(const char *why) noexcept;
    bool load(int fd) noexcept;

    const char *path_ = "";
    char text_[kMaxSize + 1];
    std::size_t len_ = 0;
    std::size_t at_ = 0;
    unsigned number_ = 0;
    unsigned complaints_ = 0;
    bool unusable_ = false;
};

// The path in the environment variable, unless that is unset or the process
// runs with more rights than its user; else the usual path.
const char *config_path(const char *variable, const char *usual) noexcept;

}  // namespace aaaplatform
