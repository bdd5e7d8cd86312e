// SPDX-License-Identifier: Apache-2.0
//
// The password cipher.

#include "platform/cipher.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "master_key_file.hpp"

namespace {

using Cipher = MasterKeyFile;

constexpr char kChanged[] =
    "%AAA-PLATFORM-3-DECRYPT_FAILED : A sealed key of generation 01 was changed, or was sealed with another "
    "master "
    "key; enter it again";
constexpr char kNoForm[] =
    "%AAA-PLATFORM-3-DECRYPT_FAILED : A sealed key is malformed; it was cut, changed or made by "
    "another system; enter it again";

}  // namespace

TEST_F(Cipher, OpensWhatItSealed) {
    for (const std::string &clear :
         {std::string("testing123"), std::string(""), std::string("a"),
          std::string("with spaces \t and caf\xc3\xa9 "), std::string(4096, 'k')}) {
        const std::string sealed = encrypt(clear);
        EXPECT_EQ(clear, decrypt(sealed));
    }
}

TEST_F(Cipher, WritesTwoDigitsAndAnEvenNumberOfHexDigits) {
    for (size_t n = 0; n < 40; ++n) {
        const std::string sealed = encrypt(std::string(n, 'k'));
        ASSERT_EQ(4 + 2 * (24 + n + 16), sealed.size());
        EXPECT_EQ("0101", sealed.substr(0, 4)) << "generation 1, form 1";
        for (const char c : sealed) {
            EXPECT_TRUE(std::isxdigit(static_cast<unsigned char>(c)));
        }
    }
}

TEST_F(Cipher, NeverSealsTheSameWayTwice) {
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        EXPECT_TRUE(seen.insert(encrypt("secret")).second);
    }
}

TEST_F(Cipher, AcceptsEitherCase) {
    std::string sealed = encrypt("secret");
    for (char &c : sealed) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    EXPECT_EQ("secret", decrypt(sealed));
}

TEST_F(Cipher, NoticesAChangeOfAnyCharacter) {
    const std::string sealed = encrypt("secret");
    for (size_t i = 0; i < sealed.size(); ++i) {
        std::string changed = sealed;
        changed[i] = changed[i] == '5' ? '6' : '5';
        EXPECT_EQ("(null)", decrypt(changed)) << i;
        // Characters 0 and 1 name a missing generation, 2 and 3 an unknown form.
        const std::string log = g_log->take_one();
        const std::string expected = i < 2 ? "%AAA-PLATFORM-3-DECRYPT_FAILED : " + path +
                                                 ": no master key of generation " + changed.substr(0, 2) +
                                                 ", with which a key was sealed; restore it"
                                     : i < 4 ? kNoForm
                                             : kChanged;
        EXPECT_EQ(expected, log) << i;
    }
}

TEST_F(Cipher, NoticesACutAndAnExtension) {
    const std::string sealed = encrypt("secret");
    for (size_t n = 0; n < sealed.size(); ++n) {
        EXPECT_EQ("(null)", decrypt(sealed.substr(0, n))) << n;
        EXPECT_EQ(1u, g_log->take().size()) << n;
    }
    EXPECT_EQ("(null)", decrypt(sealed + "00"));
    EXPECT_EQ(kChanged, g_log->take_one());
}

TEST_F(Cipher, RefusesTextsOfAnotherShape) {
    for (const std::string &text :
         {std::string("12"), std::string("123"), std::string("12AB"), std::string("1a2b"),
          std::string("a1") + std::string(82, '0'), "0101" + std::string(80, 'g'),
          "01 1" + std::string(80, '0'), "0102" + std::string(80, '0'), "01" + std::string(100000, '0'),
          std::string("testing123")}) {
        expect_refused(text, kNoForm);
    }
}

TEST_F(Cipher, RefusesNullsOtherTypesAndEndlessKeys) {
    EXPECT_EQ(nullptr, pw_decrypt(nullptr, 7));
    EXPECT_EQ(kNoForm, g_log->take_one());
    EXPECT_EQ(nullptr, pw_encrypt(nullptr, 7));
    const std::string no_text =
        "%AAA-PLATFORM-3-ENCRYPT_FAILED : A key to be sealed is missing or longer than 4096 characters";
    EXPECT_EQ(no_text, g_log->take_one());
    EXPECT_EQ("(null)", encrypt(std::string(4097, 'k')));
    EXPECT_EQ(no_text, g_log->take_one());
    for (const int type : {0, 5, 6, 8, -1}) {
        EXPECT_EQ(nullptr, pw_encrypt("secret", type));
        EXPECT_EQ("%AAA-PLATFORM-3-ENCRYPT_FAILED : The password type is not 7, the only reversible one",
                  g_log->take_one());
        EXPECT_EQ(nullptr, pw_decrypt(encrypt("secret").c_str(), type));
        EXPECT_EQ("%AAA-PLATFORM-3-DECRYPT_FAILED : The password type is not 7, the only reversible one",
                  g_log->take_one());
    }
}

TEST_F(Cipher, NeverLogsAKey) {
    const std::string sealed = encrypt("s3cret-value");
    std::string changed = sealed;
    changed.back() = changed.back() == '0' ? '1' : '0';
    decrypt(changed);
    const std::string log = g_log->take_one();
    EXPECT_EQ(std::string::npos, log.find("s3cret"));
    EXPECT_EQ(std::string::npos, log.find(sealed.substr(4, 12)));
    EXPECT_EQ(std::string::npos, log.find(contents().substr(21, 12)));
}

TEST_F(Cipher, LeavesInputAndErrnoAlone) {
    char clear[] = "secret";
    errno = EINTR;
    char *sealed = pw_encrypt(clear, 7);
    EXPECT_EQ(EINTR, errno);
    const std::string before = sealed;
    char *opened = pw_decrypt(sealed, 7);
    EXPECT_EQ(EINTR, errno);
    EXPECT_STREQ("secret", clear);
    EXPECT_EQ(before, sealed);
    free(opened);
    free(sealed);
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
