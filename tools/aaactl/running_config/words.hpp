// SPDX-License-Identifier: Apache-2.0
//
// Lines of configuration text as words. A word with a blank, a quotation mark, a backslash or other than
// printable ASCII characters is between quotation marks, with the escapes of sysdb_values.hpp.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/output.hpp"

namespace aaactl {

struct Word {
    std::string text;
    bool quoted = false;  // then it is never a keyword
};

// Failure(bad_input) for quotation marks that do not pair.
std::vector<Word> split_words(std::string_view line);
// The inverse, for one word.
std::string word_text(std::string_view text);

// Takes the words of a line one after the other.
class WordReader {
  public:
    explicit WordReader(std::vector<Word> words) : words_(std::move(words)) {}

    bool at_end() const { return next_ == words_.size(); }
    // Whether the next word is this one, in full; takes it if so.
    bool take_if(std::string_view word);
    // The next word, whatever it is; `what` names it in the Failure at the end of the line.
    const std::string &take(const std::string &what);
    // The next word as one of the keywords: in full, or as the beginning of only one of them. The Failure
    // quotes the word and suggests another.
    std::string take_keyword(const std::string &what, const std::vector<std::string> &known);
    // Without quoting, for the words after a secret.
    const Word *peek() const { return at_end() ? nullptr : &words_[next_]; }
    // Failure(bad_input) when words are left.
    void expect_end() const;

  private:
    std::vector<Word> words_;
    size_t next_ = 0;
};

// What a keyword matches: in full, or as the beginning of one of them; empty when it matches none. The
// Failure names all when it is the beginning of several.
std::string match_keyword(const Word &word, const std::vector<std::string> &known);

}  // namespace aaactl
