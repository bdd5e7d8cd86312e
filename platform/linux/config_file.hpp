// SPDX-License-Identifier: Apache-2.0
//
// Reader of the host's small configuration files: one setting per line, words
// separated by blanks, '#' starts a comment. A file that users other than root
// and the process's own can write is refused, because these files decide how
// users are authenticated. Uses neither heap nor stdio.
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

    // Reads the whole file. False when it is missing or cannot be used;
    // unusable() tells which, and a log line says how to correct it.
    bool open(const char *path) noexcept;
    [[nodiscard]] bool unusable() const noexcept { return unusable_; }

    // Next line that holds a word; false at the end.
    bool next(ConfigLine *line) noexcept;

    // Logs "<path>:<line>: <defect>". Only the first few of a file are logged.
    void complain(const char *defect) noexcept;

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

// The path in the environment variable; the default path when the variable is
// unset or the process has more rights than its user.
const char *config_path(const char *variable, const char *default_path) noexcept;

}  // namespace aaaplatform
