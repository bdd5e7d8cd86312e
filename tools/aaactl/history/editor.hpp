// SPDX-License-Identifier: Apache-2.0
//
// A text in the user's editor.

#pragma once

#include <string>
#include <vector>

namespace aaactl {

// A private file. It stays when the program ends in whatever way, unless the text is discarded.
class EditedFile {
  public:
    // In $TMPDIR or /tmp, in a directory that only this user may enter. Failure if it cannot be made.
    explicit EditedFile(const std::string &text);
    ~EditedFile();
    EditedFile(const EditedFile &) = delete;
    EditedFile &operator=(const EditedFile &) = delete;

    const std::string &path() const { return path_; }
    // Runs $VISUAL, $EDITOR, "editor" or "vi" to its end. Failure(failed) if it fails, or if a signal that
    // ends programs came to this one, which the editor gets too. Interrupting keys are for the editor alone.
    void edit() const;
    // False when the editor, or another program, has deleted it.
    bool is_there() const;
    const std::string &directory() const { return directory_; }
    std::string text() const;
    // Replaces the text; Failure(failed) leaves it as it was.
    void write(const std::string &text) const;
    // Whether the editor has left other files next to it, as those from which it recovers a text.
    bool has_company() const;
    // It is removed at the end, with what the editor has left next to it.
    void discard() { discarded_ = true; }

  private:
    std::string directory_;
    std::string path_;
    int lock_ = -1;  // tells others that the text is being edited
    bool discarded_ = false;
};

// The user's texts of commands that have ended, for example with their terminal.
std::vector<std::string> kept_texts();
// Removes the text, with its directory, if it is one of them. False with errno set if that failed.
bool remove_kept_text(const std::string &path);

// Prints the text to standard error when a signal ends the program while the object exists.
class LastWords {
  public:
    explicit LastWords(const std::string &text);
    ~LastWords();
    LastWords(const LastWords &) = delete;
    LastWords &operator=(const LastWords &) = delete;
};

}  // namespace aaactl
