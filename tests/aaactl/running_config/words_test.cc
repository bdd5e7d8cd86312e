// SPDX-License-Identifier: Apache-2.0
//
// Lines as words: quotation marks, keywords and their beginnings.

#include "running_config/words.hpp"

#include <gtest/gtest.h>

namespace {

using aaactl::Failure;
using aaactl::match_keyword;
using aaactl::split_words;
using aaactl::word_text;
using aaactl::WordReader;

std::string joined(std::string_view line) {
    std::string text;
    for (const auto &word : split_words(line)) {
        text += "[" + word.text + (word.quoted ? "]\"" : "]");
    }
    return text;
}

std::string failure_of(const std::function<void()> &act) {
    try {
        act();
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.code(), aaactl::ExitCode::bad_input);
        return failure.what();
    }
    return "no failure";
}

TEST(ConfigWords, SplitsAtBlanks) {
    EXPECT_EQ(joined("aaa  group\tserver\r"), "[aaa][group][server]");
    EXPECT_EQ(joined(""), "");
    EXPECT_EQ(joined(R"(a "b c" "" "\"\x41\\")"), "[a][b c]\"[]\"[\"A\\]\"");
}

TEST(ConfigWords, RefusesQuotationMarksThatDoNotPair) {
    for (const char *line : {"\"", "a \"b", "\"a\\\"", "a\"b\"", "\"a\"b"}) {
        EXPECT_NE(failure_of([&] { split_words(line); }), "no failure") << line;
    }
}

TEST(ConfigWords, EveryTextIsOneWord) {
    for (const std::string &text :
         {std::string("corp"), std::string(), std::string("a b"), std::string("!x"), std::string("#"),
          std::string("\""), std::string("\\"), std::string("caf\xc3\xa9"), std::string("\0\x01\xff", 3)}) {
        const auto words = split_words(word_text(text));
        ASSERT_EQ(words.size(), 1u) << word_text(text);
        EXPECT_EQ(words[0].text, text);
    }
    EXPECT_EQ(word_text("corp-1"), "corp-1");
    EXPECT_EQ(word_text("!x"), "\"!x\"");
}

TEST(ConfigWords, AKeywordMayBeShortenedWhileItIsUnambiguous) {
    const std::vector<std::string> known{"server", "server-private", "timeout"};
    EXPECT_EQ(match_keyword({"t", false}, known), "timeout");
    EXPECT_EQ(match_keyword({"server", false}, known), "server");
    EXPECT_EQ(match_keyword({"server-", false}, known), "server-private");
    EXPECT_EQ(match_keyword({"timeout", true}, known), "") << "a quoted word is not a keyword";
    EXPECT_EQ(match_keyword({"timeouts", false}, known), "");
    EXPECT_EQ(failure_of([&] {
                  match_keyword({"se", false}, known);
              }),
              "\"se\" can mean server or server-private; write the whole word");
}

TEST(ConfigWords, AMisspeltKeywordIsSuggested) {
    WordReader words(split_words("timeuot x"));
    EXPECT_EQ(failure_of([&] {
                  words.take_keyword("a setting", {"timeout", "tries"});
              }),
              "\"timeuot\" is not a setting; did you mean timeout?");
    EXPECT_EQ(failure_of([&] { words.expect_end(); }), "\"timeuot\" is more than the line can have");
    EXPECT_EQ(words.take("a word"), "timeuot");
    EXPECT_FALSE(words.take_if("y"));
    EXPECT_TRUE(words.take_if("x"));
    EXPECT_TRUE(words.at_end());
    EXPECT_EQ(failure_of([&] { words.take("the name"); }), "the name is missing at the end of the line");
    words.expect_end();
}

}  // namespace
