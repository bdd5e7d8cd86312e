// SPDX-License-Identifier: Apache-2.0
//
// One rule for the names of method lists and the clear text of server keys: a
// byte above 0x7f is not printable, in any locale of the program. The
// locales of the machine need not have such a byte, so this program brings a
// character table of its own, in which every byte is printable.

#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <clocale>
#include <cstdio>
#include <string>

#include "aaa/method_lists.h"
#include "aaa/result_codes.h"
#include "aaa/server_keys.h"
#include "testkit/fake_platform.hpp"

namespace {

bool g_all_printable = false;

#ifdef __GLIBC__
// Indexed from -128 to 255, as the C library's own is.
const unsigned short *table_of_all_printable() {
    static const auto &table = *[] {
        auto *made = new std::array<unsigned short, 384>;
        made->fill(static_cast<unsigned short>(_ISprint));
        return made;
    }();
    return table.data() + 128;
}
#endif

}  // namespace

// A compiler turns isprint() in the library into a call or into a read of the table.
extern "C" int isprint(int c) noexcept {
    return g_all_printable || (c >= ' ' && c <= '~') ? 1 : 0;
}

#ifdef __GLIBC__
extern "C" const unsigned short **__ctype_b_loc() noexcept {
    static thread_local const unsigned short *table = nullptr;
    static const unsigned short *const classic = [] {
        const locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
        return c->__ctype_b;
    }();
    table = g_all_printable ? table_of_all_printable() : classic;
    return &table;
}
#endif

namespace {

class PrintableBytes : public testing::Test {
  protected:
    void SetUp() override { g_all_printable = true; }
    void TearDown() override { g_all_printable = false; }

    static int is_name(unsigned char c) {
        std::string name = {'a', static_cast<char>(c), 'b'};
        return aaa_is_name_valid(name.data());
    }
    // The cipher of these tests writes "07" and the bytes in hexadecimal digits.
    static cerrno is_key(unsigned char c) {
        char key[] = "076100";
        std::snprintf(key, sizeof key, "0761%02x", c);
        return validate_encrypted_password(key);
    }
};

TEST_F(PrintableBytes, TheLocaleDecidesUpTo7f) {
    for (unsigned c = 1; c <= 0x7f; ++c) {
        EXPECT_EQ(is_name(static_cast<unsigned char>(c)), 1) << c;
        EXPECT_EQ(is_key(static_cast<unsigned char>(c)), AAA_OK) << c;
    }
}

TEST_F(PrintableBytes, NoByteAbove7fIsPrintableWhateverTheLocale) {
    for (unsigned c = 0x80; c <= 0xff; ++c) {
        EXPECT_EQ(is_name(static_cast<unsigned char>(c)), 0) << c;
        EXPECT_EQ(is_key(static_cast<unsigned char>(c)), AAA_ERR_BAD_ENCRYPTED_KEY) << c;
    }
}

}  // namespace
