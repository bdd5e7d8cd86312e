// SPDX-License-Identifier: Apache-2.0
//
// Splitting lines, quoting words, matching keywords.

#include "running_config/words.hpp"

#include <algorithm>

#include "cli/suggestion.hpp"
#include "database/sysdb_values.hpp"

namespace aaactl {
namespace {

Failure malformed(const std::string &why) {
    return {ExitCode::bad_input, why};
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// The index after the closing mark of a quoted word that begins at `begin`.
size_t end_of_quoted(std::string_view line, size_t begin) {
    size_t end = begin + 1;
    while (end < line.size() && line[end] != '"') {
        end += line[end] == '\\' ? 2 : 1;
    }
    if (end >= line.size()) {
        throw malformed("a quotation mark is not closed");
    }
    if (end + 1 < line.size() && !is_blank(line[end + 1])) {
        throw malformed("a blank is expected after the closing quotation mark");
    }
    return end + 1;
}

size_t end_of_bare(std::string_view line, size_t begin) {
    size_t end = begin;
    while (end < line.size() && !is_blank(line[end])) {
        if (line[end] == '"') {
            throw malformed("a quotation mark is inside a word; put the whole word between quotation marks");
        }
        ++end;
    }
    return end;
}

}  // namespace

std::vector<Word> split_words(std::string_view line) {
    std::vector<Word> words;
    for (size_t at = 0; at < line.size();) {
        if (is_blank(line[at])) {
            ++at;
        } else if (line[at] == '"') {
            const size_t end = end_of_quoted(line, at);
            words.push_back({unescaped(line.substr(at + 1, end - at - 2)), true});
            at = end;
        } else {
            const size_t end = end_of_bare(line, at);
            words.push_back({std::string(line.substr(at, end - at)), false});
            at = end;
        }
    }
    return words;
}

std::string word_text(std::string_view text) {
    const bool bare = !text.empty() && text[0] != '!' && text[0] != '#' &&
                      std::all_of(text.begin(), text.end(),
                                  [](char c) { return c > ' ' && c < 127 && c != '"' && c != '\\'; });
    return bare ? std::string(text) : in_quotes(text);
}

std::string match_keyword(const Word &word, const std::vector<std::string> &known) {
    if (word.quoted || word.text.empty()) {
        return "";
    }
    std::vector<std::string> matches;
    for (const std::string &keyword : known) {
        if (keyword == word.text) {
            return keyword;
        }
        if (keyword.starts_with(word.text)) {
            matches.push_back(keyword);
        }
    }
    if (matches.size() > 1) {
        std::string all;
        for (size_t i = 0; i < matches.size(); ++i) {
            all += (i == 0 ? "" : i + 1 < matches.size() ? ", " : " or ") + matches[i];
        }
        throw malformed("\"" + escaped(word.text) + "\" can mean " + all + "; write the whole word");
    }
    return matches.empty() ? "" : matches[0];
}

bool WordReader::take_if(std::string_view word) {
    if (at_end() || words_[next_].quoted || words_[next_].text != word) {
        return false;
    }
    ++next_;
    return true;
}

const std::string &WordReader::take(const std::string &what) {
    if (at_end()) {
        throw malformed(what + " is missing at the end of the line");
    }
    return words_[next_++].text;
}

std::string WordReader::take_keyword(const std::string &what, const std::vector<std::string> &known) {
    if (at_end()) {
        throw malformed(what + " is missing at the end of the line" + suggestion("", known));
    }
    const Word &word = words_[next_];
    const std::string keyword = match_keyword(word, known);
    if (keyword.empty()) {
        throw malformed("\"" + escaped(word.text) + "\" is not " + what + suggestion(word.text, known));
    }
    ++next_;
    return keyword;
}

void WordReader::expect_end() const {
    if (!at_end()) {
        throw malformed("\"" + escaped(words_[next_].text) + "\" is more than the line can have");
    }
}

}  // namespace aaactl
