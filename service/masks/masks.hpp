// SPDX-License-Identifier: Apache-2.0
//
// Commands and texts without their secrets: the rules of the service, and of the programs that show
// messages. The dissector has them in Lua (dissector/masks.lua); tests/vectors/masks.txt is for all.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace service {

// In place of a secret, whatever its length.
inline constexpr std::string_view kMask = "********";

// A text, each "user:password@" of an address in it as "***@".
std::string text_without_credentials(std::string_view text);

// A command, word by word: all that follows a word that announces a secret and its blanks, or its "=" or ":",
// is replaced by `mask`, and user and password in addresses by "***". Blanks stay as they are.
class CommandMask {
  public:
    explicit CommandMask(std::string_view mask = kMask) : mask_(mask) {}

    // The command, or one more of its arguments.
    std::string shown(std::string_view text);

  private:
    enum class Word { plain, announces, masked };
    Word add_word(std::string &out, std::string_view word);
    std::optional<std::size_t> after_option(std::string_view word) const;
    void note_program(std::string_view word);

    std::string_view mask_;
    bool is_announced_ = false;
    std::set<std::size_t> options_;  // of the programs so far: rows of the table
};

// The texts of one message, in their order.
class TextMask {
  public:
    // A value of an attribute that holds a text.
    std::string shown(std::uint32_t type, std::string_view text);

  private:
    CommandMask command_;
};

}  // namespace service
