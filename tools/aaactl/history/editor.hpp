// SPDX-License-Identifier: Apache-2.0
//
// A text in the user's editor.

#pragma once

#include <string>

namespace aaactl {

// A private file that is removed at the end, unless it is kept.
class EditedFile {
  public:
    // In $TMPDIR or /tmp, in a directory that only this user may enter. Failure if it cannot be made.
    explicit EditedFile(const std::string &text);
    ~EditedFile();
    EditedFile(const EditedFile &) = delete;
    EditedFile &operator=(const EditedFile &) = delete;

    const std::string &path() const { return path_; }
    // Runs $VISUAL, $EDITOR, "editor" or "vi" to its end. Failure(failed) if it fails; signals of the
    // terminal are the editor's meanwhile.
    void edit() const;
    std::string text() const;
    // Replaces the text.
    void write(const std::string &text) const;
    // It stays when the program ends.
    void keep() { kept_ = true; }

  private:
    std::string directory_;
    std::string path_;
    bool kept_ = false;
};

}  // namespace aaactl
