// SPDX-License-Identifier: Apache-2.0
//
// The platform's cipher of these tests writes "07" and the bytes of the clear
// text in hexadecimal digits, so that the decrypted text is visible.

#include "aaa/server_keys.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/result_codes.h"
#include "support/fail_alloc.hpp"
#include "support/guarded_page.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using Lines = std::vector<std::string>;
using Text = std::optional<std::string>;

constexpr char kDecryptFailed[] = "Decrypt encrypted server key";
constexpr char kTrimmingFailed[] = "trimming white space in server key";
constexpr char kEncryptFailed[] = "Re-encrypt server key after finish trimming white space";

cerrno validate(std::string text) {
    return validate_encrypted_password(text.data());
}

// A result that the caller frees, as a value.
Text taken(char *text) {
    const Text result = text != nullptr ? Text(text) : std::nullopt;
    std::free(text);
    return result;
}

struct Outcome {
    Text result;
    std::string key_after;
    bool operator==(const Outcome &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Outcome &o) {
    return out << "result " << (o.result ? '"' + *o.result + '"' : "null") << ", key \"" << o.key_after
               << '"';
}

Outcome truncated(std::string key, int encrypted) {
    const Text result = taken(aaa_util_truncate_whitespace_in_server_key(key.data(), encrypted));
    return {result, key.c_str()};
}

// The same with bytes right before and after it that must not be touched.
Outcome trim(std::string_view key) {
    const aaatest::GuardedPage page;
    char *const at = page.place(std::string(key) + '\0');
    at[-1] = at[-2] = at[-3] = at[-4] = 'Z';
    char *out = nullptr;
    EXPECT_EQ(aaa_util_trim_server_key(at, &out), AAA_OK);
    EXPECT_EQ(std::string(at - 4, 4), "ZZZZ") << "bytes before the key were written";
    return {taken(out), at};
}

// The result of trimming, computed here a second time from the rule's words.
std::string trimmed_by_rule(const std::string &key) {
    constexpr char kSteps[] = {' ', '\t', '\r', '\n'};
    const auto n = static_cast<int>(key.size());
    if (n == 0 || std::string_view(" \t\r\n").find(key.back()) == std::string_view::npos) {
        return key;
    }
    int i = n;
    for (bool stepped = true; stepped && i > 0;) {
        stepped = false;
        for (int step = 1; step <= 4 && !stepped; ++step) {
            if (i - step >= 0 && key[static_cast<size_t>(i - step)] == kSteps[step - 1]) {
                i -= step;
                stepped = true;
            }
        }
    }
    return key.substr(0, i >= 3 ? static_cast<size_t>(i - 3) : 0);
}

void expect_no_memory_log(const std::string &action) {
    const auto logs = fake::logs();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].record, kel_msg_rec_aaa_lib_util_error_no_mem_getfn());
    EXPECT_EQ(logs[0].severity, 3u);
    EXPECT_EQ(logs[0].text, "Not enough memory available while " + action);
}

void expect_warning(std::size_t index = 0) {
    const auto logs = fake::logs();
    ASSERT_GT(logs.size(), index);
    EXPECT_EQ(logs[index].record, kel_msg_rec_aaa_whitespace_truncated_in_server_key_getfn());
    EXPECT_EQ(logs[index].severity, 4u);
    EXPECT_EQ(logs[index].text, "WARNING: The server key contained trailing whitespace and was truncated");
}

std::string sealed(std::string_view clear) {
    std::string text = "07";
    for (const char c : clear) {
        constexpr char kDigits[] = "0123456789abcdef";
        text += kDigits[static_cast<unsigned char>(c) >> 4];
        text += kDigits[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

}  // namespace

// ---- Checking ----------------------------------------------------------------

TEST(ServerKeyCheck, TheCodeIsOutsideTheMessageTable) {
    EXPECT_EQ(AAA_ERR_BAD_ENCRYPTED_KEY, 0xa2466800u);
}

TEST(ServerKeyCheck, ANullIsAnArgumentError) {
    EXPECT_EQ(validate_encrypted_password(nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::calls(), Lines{});
}

TEST(ServerKeyCheck, ShortAndOddTextsAreRefusedWithoutDecrypting) {
    for (const char *text : {"", "1", "12", "123", "12345", "1234567"}) {
        EXPECT_EQ(validate(text), AAA_ERR_BAD_ENCRYPTED_KEY) << text;
    }
    EXPECT_EQ(fake::calls(), Lines{});
}

TEST(ServerKeyCheck, TheFirstTwoCharactersAreDecimalDigits) {
    fake::give_text("pw_decrypt", "clear");
    for (int c = 1; c < 256; ++c) {
        const bool digit = c >= '0' && c <= '9';
        const cerrno expected = digit ? AAA_OK : AAA_ERR_BAD_ENCRYPTED_KEY;
        EXPECT_EQ(validate(std::string(1, static_cast<char>(c)) + "7AB"), expected) << c;
        EXPECT_EQ(validate("0" + std::string(1, static_cast<char>(c)) + "AB"), expected) << c;
    }
    EXPECT_EQ(validate("1a2b"), AAA_ERR_BAD_ENCRYPTED_KEY);
}

TEST(ServerKeyCheck, EveryOtherCharacterIsAHexadecimalDigitOfEitherCase) {
    fake::give_text("pw_decrypt", "clear");
    for (int c = 1; c < 256; ++c) {
        const bool hex =
            std::string_view("0123456789abcdefABCDEF").find(static_cast<char>(c)) != std::string_view::npos;
        for (const std::size_t at : {2u, 3u, 4u, 7u}) {
            std::string text = "07aBcD09";
            text[at] = static_cast<char>(c);
            EXPECT_EQ(validate(text), hex ? AAA_OK : AAA_ERR_BAD_ENCRYPTED_KEY) << c << " at " << at;
        }
    }
}

TEST(ServerKeyCheck, AWellFormedTextIsDecryptedUnchanged) {
    EXPECT_EQ(validate("076b6579"), AAA_OK);
    EXPECT_EQ(fake::calls(), Lines{"pw_decrypt(\"076b6579\", 7)"});
}

TEST(ServerKeyCheck, AWellFormedTextDependsOnTheCipher) {
    fake::give_text("pw_decrypt", "key");
    EXPECT_EQ(validate("12AB"), AAA_OK);
    fake::answer("pw_decrypt", 0, 1);
    EXPECT_EQ(validate("12AB"), AAA_ERR_BAD_ENCRYPTED_KEY);
}

TEST(ServerKeyCheck, EveryByteOfTheClearTextIsPrintable) {
    for (int c = 1; c < 256; ++c) {
        const bool printable = c >= 0x20 && c <= 0x7e;
        for (const std::string &clear :
             {std::string(1, static_cast<char>(c)), "ab" + std::string(1, static_cast<char>(c)) + "de",
              "ab" + std::string(1, static_cast<char>(c))}) {
            EXPECT_EQ(validate(sealed(clear)), printable ? AAA_OK : AAA_ERR_BAD_ENCRYPTED_KEY) << c;
        }
    }
}

TEST(ServerKeyCheck, AnEmptyClearTextIsAccepted) {
    fake::give_text("pw_decrypt", "");
    EXPECT_EQ(validate("0700"), AAA_OK);
}

TEST(ServerKeyCheck, LeavesTheTextAndTheCatalogAlone) {
    std::string text = "076b6579";
    EXPECT_EQ(validate_encrypted_password(text.data()), AAA_OK);
    EXPECT_EQ(text, "076b6579");
    EXPECT_EQ(validate("zz"), AAA_ERR_BAD_ENCRYPTED_KEY);
    EXPECT_TRUE(fake::logs().empty());
    EXPECT_TRUE(fake::traces().empty());
}

// ---- Truncating: clear keys ---------------------------------------------------

TEST(ServerKeyTruncate, ANullGivesANull) {
    EXPECT_EQ(aaa_util_truncate_whitespace_in_server_key(nullptr, 0), nullptr);
    EXPECT_EQ(aaa_util_truncate_whitespace_in_server_key(nullptr, 1), nullptr);
    EXPECT_EQ(fake::calls(), Lines{});
    EXPECT_TRUE(fake::logs().empty());
}

TEST(ServerKeyTruncate, AClearKeyWithoutTrailingBlanksIsCopied) {
    for (const char *key : {"k", "key", " key", "a b\tc\rd\ne", "\tkey"}) {
        EXPECT_EQ(truncated(key, 0), (Outcome{key, key}));
    }
    EXPECT_TRUE(fake::logs().empty());
    EXPECT_EQ(fake::calls(), Lines{}) << "a clear key does not meet the cipher";
}

TEST(ServerKeyTruncate, AClearKeyLosesItsTrailingBlanksInPlaceWithAWarning) {
    EXPECT_EQ(truncated("key\t \n", 0), (Outcome{"key", "key"}));
    EXPECT_EQ(fake::logs().size(), 1u);
    expect_warning();
}

TEST(ServerKeyTruncate, EachOfTheFourBlanksIsCutAndNothingElseIs) {
    for (int c = 1; c < 256; ++c) {
        const char byte = static_cast<char>(c);
        const bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        fake::clear_journal();
        const std::string key = std::string("ab") + byte;
        EXPECT_EQ(truncated(key, 0), blank ? (Outcome{"ab", "ab"}) : (Outcome{key, key})) << c;
        EXPECT_EQ(fake::logs().size(), blank ? 1u : 0u) << c;
    }
}

TEST(ServerKeyTruncate, StopsAtVerticalTabAndFormFeed) {
    EXPECT_EQ(truncated("k\v \t", 0), (Outcome{"k\v", "k\v"}));
    EXPECT_EQ(truncated("k\f\r\n", 0), (Outcome{"k\f", "k\f"}));
    EXPECT_EQ(truncated("k \v", 0), (Outcome{"k \v", "k \v"}));
}

TEST(ServerKeyTruncate, KeepsBlanksInsideTheKey) {
    EXPECT_EQ(truncated(" a b \t", 0), (Outcome{" a b", " a b"}));
    EXPECT_EQ(fake::logs().size(), 1u) << "one warning for every cut";
}

TEST(ServerKeyTruncate, AKeyOfBlanksBecomesEmptyAndGivesNullWithTheWarning) {
    for (const char *key : {"   ", " ", "\n", "\t\r\n "}) {
        fake::clear_journal();
        EXPECT_EQ(truncated(key, 0), (Outcome{std::nullopt, ""}));
        EXPECT_EQ(fake::logs().size(), 1u);
        expect_warning();
    }
}

TEST(ServerKeyTruncate, AnEmptyKeyGivesNullWithoutAWord) {
    EXPECT_EQ(truncated("", 0), (Outcome{std::nullopt, ""}));
    EXPECT_TRUE(fake::logs().empty());
}

TEST(ServerKeyTruncate, TheCopyIsTheCallersOwn) {
    char key[] = "key ";
    char *const result = aaa_util_truncate_whitespace_in_server_key(key, 0);
    ASSERT_NE(result, nullptr);
    EXPECT_NE(static_cast<void *>(result), static_cast<void *>(key));
    result[0] = 'K';
    EXPECT_STREQ(key, "key");
    std::free(result);
}

TEST(ServerKeyTruncate, AClearKeyWithoutMemoryGivesNullAndIsTrimmedAllTheSame) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        fake::clear_journal();
        char key[] = "key  ";
        char *const result = fail.run([&] { return aaa_util_truncate_whitespace_in_server_key(key, 0); });
        EXPECT_STREQ(key, "key");
        expect_warning();
        if (fail.fired()) {
            EXPECT_EQ(result, nullptr);
            const auto logs = fake::logs();
            ASSERT_EQ(logs.size(), 2u);
            EXPECT_EQ(logs[1].record, kel_msg_rec_aaa_lib_util_error_no_mem_getfn());
            EXPECT_EQ(logs[1].severity, 3u);
            EXPECT_EQ(logs[1].text, std::string("Not enough memory available while ") + kTrimmingFailed);
        } else {
            EXPECT_STREQ(result, "key");
        }
        std::free(result);
    });
}

// ---- Truncating: encrypted keys ------------------------------------------------

TEST(ServerKeyTruncate, AnEncryptedKeyWithoutTrailingBlanksIsCopiedNotEncryptedAgain) {
    // Upper-case digits, which encrypting again would turn into lower case.
    EXPECT_EQ(truncated("076B6579", 1), (Outcome{"076B6579", "076B6579"}));
    EXPECT_EQ(fake::calls(), Lines{"pw_decrypt(\"076B6579\", 7)"});
    EXPECT_TRUE(fake::logs().empty());
}

TEST(ServerKeyTruncate, AnEncryptedKeyWithTrailingBlanksIsEncryptedAgain) {
    const std::string key = sealed("key \t");
    EXPECT_EQ(truncated(key, 1), (Outcome{sealed("key"), key}));
    EXPECT_EQ(fake::calls(), (Lines{"pw_decrypt(\"" + key + "\", 7)", "pw_encrypt(\"key\", 7)"}));
    EXPECT_EQ(fake::logs().size(), 1u);
    expect_warning();
}

TEST(ServerKeyTruncate, AnyNonZeroArgumentMeansEncrypted) {
    for (const int encrypted : {1, 2, 7, -1, 0x100, 0x10000}) {
        EXPECT_EQ(truncated(sealed("a "), encrypted).result, sealed("a")) << encrypted;
    }
}

TEST(ServerKeyTruncate, BlanksOfTheEncryptedTextItselfAreNotLookedAt) {
    fake::give_text("pw_decrypt", "key");
    EXPECT_EQ(truncated("07 6b ", 1), (Outcome{"07 6b ", "07 6b "}));
}

TEST(ServerKeyTruncate, AnEncryptedKeyOfBlanksGivesNullWithTheWarning) {
    const std::string key = sealed("   ");
    EXPECT_EQ(truncated(key, 1), (Outcome{std::nullopt, key}));
    EXPECT_EQ(fake::logs().size(), 1u);
    expect_warning();
    EXPECT_EQ(fake::count("pw_encrypt"), 0u);
}

TEST(ServerKeyTruncate, AnEncryptedEmptyKeyGivesNullWithoutAWord) {
    fake::give_text("pw_decrypt", "");
    EXPECT_EQ(truncated("0700", 1), (Outcome{std::nullopt, "0700"}));
    EXPECT_TRUE(fake::logs().empty());
}

TEST(ServerKeyTruncate, AKeyThatCannotBeDecryptedIsReportedAsALackOfMemory) {
    EXPECT_EQ(truncated("not a key", 1), (Outcome{std::nullopt, "not a key"}));
    expect_no_memory_log(kDecryptFailed);
    EXPECT_EQ(fake::count("pw_encrypt"), 0u);
}

TEST(ServerKeyTruncate, AKeyThatCannotBeEncryptedAgainIsReportedAsALackOfMemory) {
    fake::answer("pw_encrypt", 0, 1);
    const std::string key = sealed("key ");
    EXPECT_EQ(truncated(key, 1), (Outcome{std::nullopt, key}));
    expect_warning();
    const auto logs = fake::logs();
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[1].record, kel_msg_rec_aaa_lib_util_error_no_mem_getfn());
    EXPECT_EQ(logs[1].severity, 3u);
    EXPECT_EQ(logs[1].text, std::string("Not enough memory available while ") + kEncryptFailed);
}

TEST(ServerKeyTruncate, AnEncryptedKeyWithoutMemoryGivesNullAndStaysAsItWas) {
    for (const std::string &clear : {std::string("key"), std::string("key ")}) {
        fake::sweep_allocations([&](fake::FailAlloc &fail) {
            fake::clear_journal();
            std::string key = sealed(clear);
            char *const result =
                fail.run([&] { return aaa_util_truncate_whitespace_in_server_key(key.data(), 1); });
            EXPECT_EQ(key, sealed(clear));
            if (fail.fired()) {
                EXPECT_EQ(result, nullptr);
                ASSERT_FALSE(fake::log_texts().empty());
                EXPECT_EQ(fake::log_texts().back(),
                          std::string("Not enough memory available while ") + kTrimmingFailed);
            } else {
                EXPECT_EQ(result, sealed("key"));
            }
            std::free(result);
        });
    }
}

// ---- The clear text of an encrypted key does not outlive the call ----------------

namespace {

constexpr std::string_view kSecret = "Hyperspace-Bypass";
unsigned frees_seen = 0;
unsigned secrets_seen = 0;

// Looks for the middle of the secret, which the allocator does not write over.
void look_for_secret(unsigned char *block, std::size_t size) {
    ++frees_seen;
    constexpr std::string_view kPart = kSecret.substr(9);
    if (size >= kPart.size() && memmem(block, size, kPart.data(), kPart.size()) != nullptr) {
        ++secrets_seen;
    }
}

template <typename F>
void expect_no_secret_freed(F &&operation) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "this build's sanitizer does not let a program replace free";
    }
    frees_seen = secrets_seen = 0;
    fail_alloc_watch_frees(look_for_secret);
    operation();
    fail_alloc_watch_frees(nullptr);
    EXPECT_GT(frees_seen, 0u);
    EXPECT_EQ(secrets_seen, 0u);
}

}  // namespace

TEST(ServerKeyWiping, TheWatcherSeesASecretThatIsNotWiped) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "this build's sanitizer does not let a program replace free";
    }
    char *const copy = strdup(kSecret.data());
    frees_seen = secrets_seen = 0;
    fail_alloc_watch_frees(look_for_secret);
    std::free(copy);
    fail_alloc_watch_frees(nullptr);
    EXPECT_EQ(secrets_seen, 1u);
}

TEST(ServerKeyWiping, CheckingWipesTheClearText) {
    std::string key = sealed(kSecret);
    expect_no_secret_freed([&] { EXPECT_EQ(validate_encrypted_password(key.data()), AAA_OK); });
    std::string unprintable = sealed(std::string("\x01") + std::string(kSecret));
    expect_no_secret_freed(
        [&] { EXPECT_EQ(validate_encrypted_password(unprintable.data()), AAA_ERR_BAD_ENCRYPTED_KEY); });
}

TEST(ServerKeyWiping, TruncatingWipesTheClearText) {
    for (const char *blanks : {"", " \t"}) {
        std::string key = sealed(std::string(kSecret) + blanks);
        char *result = nullptr;
        expect_no_secret_freed([&] { result = aaa_util_truncate_whitespace_in_server_key(key.data(), 1); });
        std::free(result);
    }
}

TEST(ServerKeyWiping, TruncatingWipesTheClearTextWhenItFails) {
    std::string key = sealed(std::string(kSecret) + " ");
    fake::answer("pw_encrypt", 0, 1);
    expect_no_secret_freed(
        [&] { EXPECT_EQ(aaa_util_truncate_whitespace_in_server_key(key.data(), 1), nullptr); });
}

// ---- Trimming by the configuration parser's rule ---------------------------------

TEST(ServerKeyTrim, NullsAreArgumentErrorsAndChangeNothing) {
    char key[] = "key ";
    char *out = key;
    EXPECT_EQ(aaa_util_trim_server_key(nullptr, &out), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(out, key);
    EXPECT_EQ(aaa_util_trim_server_key(key, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_STREQ(key, "key ");
    EXPECT_EQ(aaa_util_trim_server_key(nullptr, nullptr), AAA_ERR_INVALID_ARG);
}

TEST(ServerKeyTrim, AKeyThatDoesNotEndInABlankIsLeftAlone) {
    for (const char *key : {"k", "abcdefgh", " a", "\tab\rcd\nef", "abc\v", "abc\f", "ab \x80", "abc\xff"}) {
        EXPECT_EQ(trim(key), (Outcome{key, key}));
    }
}

TEST(ServerKeyTrim, LosesThreeCharactersMoreThanItsTrailingSpaces) {
    EXPECT_EQ(trim("abcdefgh "), (Outcome{"abcde", "abcde"}));
    EXPECT_EQ(trim("abcdefgh  "), (Outcome{"abcde", "abcde"}));
    EXPECT_EQ(trim("abcdefgh     "), (Outcome{"abcde", "abcde"}));
    EXPECT_EQ(trim("abcd "), (Outcome{"a", "a"}));
}

TEST(ServerKeyTrim, ATrailingTabReturnOrLineFeedIsNotRecognisedAtItsPlace) {
    // No step is made; the key is cut three bytes before its end.
    for (const char *key : {"abcdefgh\t", "abcdefgh\r", "abcdefgh\n"}) {
        EXPECT_EQ(trim(key), (Outcome{"abcdef", "abcdef"}));
    }
}

TEST(ServerKeyTrim, EachCharacterIsLookedForAtItsOwnDistance) {
    const struct {
        const char *key, *left;
    } rows[] = {
        {"abcdefg\tx ", "abcd"},       // the space, then the tab two bytes before
        {"abcdefg\t ", "abcde"},       // after the space the tab is one byte before: no step
        {"abcdefg\t\t", "abcd"},       // the tab two bytes before the end
        {"abcdef\rxy ", "abc"},        // the return three bytes before
        {"abcdef\rx\t", "abc"},        // the same at the end of the key
        {"abcde\nxyz ", "ab"},         // the line feed four bytes before
        {"abcde\nxy\n", "ab"},         // the same at the end of the key
        {"abcdefgh\r\n", "abcdefg"},   // neither is at its distance
        {"abcdefg\r\n\n", "abcd"},     // the return three bytes before the end
        {"abcdef\n\n\n\n", "abc"},     // the line feed four bytes before the end
        {"abcdefgh\n\t\n", "abcdef"},  // the tab two bytes before the end
    };
    for (const auto &row : rows) {
        EXPECT_EQ(trim(row.key), (Outcome{row.left, row.left})) << testing::PrintToString(row.key);
    }
}

TEST(ServerKeyTrim, KeysOfFewCharactersBecomeEmptyAndNothingOutsideThemIsTouched) {
    for (const char *key : {" ", "\t", "\r", "\n", "a ", "ab ", "abc ", "ab\t", "ab\n", "  ", "   ", "    ",
                            "\n\n\n\n", "\t\t", "\r\r\r", "a\t "}) {
        EXPECT_EQ(trim(key), (Outcome{std::nullopt, ""})) << testing::PrintToString(key);
    }
    EXPECT_EQ(trim(" \t\r\n"), (Outcome{" ", " "})) << "none of the four is at its distance";
}

TEST(ServerKeyTrim, AnEmptyKeyGivesNullAndSuccess) {
    EXPECT_EQ(trim(""), (Outcome{std::nullopt, ""}));
}

TEST(ServerKeyTrim, EveryKeyOfUpToSixCharactersFollowsTheRule) {
    constexpr std::string_view kAlphabet = "a \t\r\n\xe9";
    for (std::size_t length = 0; length <= 6; ++length) {
        std::string key(length, kAlphabet[0]);
        std::vector<std::size_t> digits(length, 0);
        for (bool more = true; more;) {
            char buffer[8];
            std::memcpy(buffer, key.c_str(), length + 1);
            char *out = nullptr;
            ASSERT_EQ(aaa_util_trim_server_key(buffer, &out), AAA_OK);
            const std::string expected = trimmed_by_rule(key);
            ASSERT_EQ(std::string(buffer), expected) << testing::PrintToString(key);
            ASSERT_EQ(taken(out), expected.empty() ? Text() : Text(expected)) << testing::PrintToString(key);
            more = false;
            for (std::size_t i = 0; i < length; ++i) {
                digits[i] = (digits[i] + 1) % kAlphabet.size();
                key[i] = kAlphabet[digits[i]];
                if (digits[i] != 0) {
                    more = true;
                    break;
                }
            }
        }
    }
}

TEST(ServerKeyTrim, WritesNoTraceAndNoCatalogMessage) {
    EXPECT_EQ(trim("abcdefgh ").key_after, "abcde");
    EXPECT_TRUE(fake::traces().empty());
    EXPECT_TRUE(fake::logs().empty());
    EXPECT_EQ(fake::calls(), Lines{});
}

TEST(ServerKeyTrim, WithoutMemoryTheOutputIsNullAndTheKeyTrimmed) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        char key[] = "abcdefgh ";
        char *out = key;
        const cerrno rc = fail.run([&] { return aaa_util_trim_server_key(key, &out); });
        EXPECT_STREQ(key, "abcde");
        if (fail.fired()) {
            EXPECT_EQ(rc, AAA_ERR_NOMEM);
            EXPECT_EQ(out, nullptr);
        } else {
            EXPECT_EQ(rc, AAA_OK);
            EXPECT_STREQ(out, "abcde");
            std::free(out);
        }
    });
}
