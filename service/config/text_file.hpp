// SPDX-License-Identifier: Apache-2.0
//
// The service's own files: read whole, and only where no one else can have written them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace service {

// A fault of a file. Line 0: the file as a whole.
struct Fault {
    unsigned line = 0;
    std::string text;

    friend bool operator==(const Fault &, const Fault &) = default;
};
// "PATH:LINE: TEXT"
std::string fault_text(const std::string &path, const Fault &fault);

enum class Privacy {
    kShared,  // others may read the file
    kSecret   // it holds password hashes: users other than its owner and group may not
};

struct TextFile {
    std::string text;
    std::vector<Fault> faults;  // empty when the text was read
    bool missing = false;
};

// Reads a regular file of at most `most` bytes that belongs to root or to the process's user,
// and that no one else can write.
TextFile read_text_file(const std::string &path, Privacy privacy, std::size_t most = 4 << 20);

// Calls `visit` with the number and the text of each line, without its end. A NUL and other
// control characters but tabs are the caller's to refuse: see control_character().
template <typename Visit>
void for_each_line(std::string_view text, Visit visit) {
    unsigned number = 0;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        visit(++number, text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

// Whether a line holds a control character that is not a tab.
bool control_character(std::string_view line);

// Blanks at both ends taken off.
std::string_view trimmed(std::string_view text);

// All of the text as a decimal number that is at most `most`.
std::optional<std::uint32_t> decimal(std::string_view text, std::uint32_t most);

}  // namespace service
