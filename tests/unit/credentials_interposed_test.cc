// SPDX-License-Identifier: Apache-2.0
//
// A host may define a routine in the place of an exported one. The
// mnemonic and the flag are extras of a request: when such a routine fails,
// that is said in the trace and nothing else happens.

#include <gtest/gtest.h>

#include "aaa/credentials.h"
#include "aaa/result_codes.h"
#include "support/messages.hpp"
#include "testkit/fake_platform.hpp"

namespace {
unsigned asked = 0;
}

cerrno aaa_lib_update_mnemonic_and_flags(aaa_usercred_t *, avlist *, uint32_t not_accounting) {
    ++asked;
    EXPECT_EQ(not_accounting, 1u);
    return AAA_ERR_INVALID_LINE_TYPE;
}

namespace {

TEST(MnemonicOfTheHost, MayFail) {
#if defined(__clang__)
    GTEST_SKIP() << "this compiler binds calls inside the library when it is built";
#endif
    char tty[] = "vty0";
    aaa_usercred_t cred{};
    cred.ttyname = tty;
    cred.remote_addr = tty;
    const messages::List list = messages::make_list("request");
    EXPECT_EQ(aaa_util_add_usercred_in_avlist(&cred, list.get(), 7, 0, 0), AAA_OK);
    EXPECT_EQ(asked, 1u);
    EXPECT_EQ(messages::pairs_of(list.get()),
              (messages::Pairs{messages::u32(39, 0, 0x400), messages::text(20, "vty0"),
                               messages::text(37, "vty0")}));
    EXPECT_EQ(fake::traces_of(1),
              std::vector<std::string>{"Failed to add mnemonic and flag information to req"});
}

}  // namespace
