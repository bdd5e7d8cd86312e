// SPDX-License-Identifier: Apache-2.0
//
// What accessors ask the list to delete, and what they do when it refuses. A
// list refuses nothing by itself, so a routine of the program's own takes the
// place of the exported one.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "aaa/accessors.h"
#include "aaa/result_codes.h"
#include "support/fail_alloc.hpp"
#include "support/messages.hpp"
#include "testkit/fake_platform.hpp"

namespace {

struct Deletion {
    uint32_t type;
    uint32_t instance;
    const avlist *list;
    const avpair_flags_t *flags;
    bool operator==(const Deletion &) const = default;
};

std::vector<Deletion> &deletions() {
    static auto &instance = *new std::vector<Deletion>;
    return instance;
}

}  // namespace

cerrno aaa_avpair_delete_by_type_instance(uint32_t type, uint32_t instance, avlist *list,
                                          avpair_flags_t *flags) {
    const fake::FailAlloc::Pause pause;
    deletions().push_back({type, instance, list, flags});
    return AAA_ERR_AVPAIR_PROCESSING;
}

namespace {

using messages::List;
using messages::make_list;
using messages::Pairs;
using messages::pairs_of;
using messages::text;
using messages::u32;

class RefusedDeletion : public testing::Test {
  protected:
    void SetUp() override { deletions().clear(); }
};

// The copies are freed, which the leak check sees.
TEST_F(RefusedDeletion, YieldsNoErrorMessage) {
    const List list = make_list("reply", {text(7, "denied")});
    EXPECT_EQ(aaa_util_avlist_errmsg_get(list.get()), nullptr);
    EXPECT_EQ(deletions(), (std::vector<Deletion>{{7, 0, list.get(), nullptr}}));
    EXPECT_EQ(pairs_of(list.get()), Pairs{text(7, "denied")});
}

TEST_F(RefusedDeletion, YieldsNoPrompt) {
    const List list = make_list("reply", {text(21, "Password: ", 3)});
    avpair_flags_t flags = 0;
    EXPECT_EQ(aaa_util_avlist_prompt_get(list.get(), &flags), nullptr);
    EXPECT_EQ(flags, 3u);
    EXPECT_EQ(deletions(), (std::vector<Deletion>{{21, 0, list.get(), nullptr}}));
}

TEST_F(RefusedDeletion, IsNotAskedForWhatIsAbsent) {
    const List list = make_list("reply", {u32(1, 1)});
    avpair_flags_t flags = 0;
    EXPECT_EQ(aaa_util_avlist_errmsg_get(list.get()), nullptr);
    EXPECT_EQ(aaa_util_avlist_prompt_get(list.get(), &flags), nullptr);
    EXPECT_TRUE(deletions().empty());
}

// Without memory for the copy, the accessor tries to delete the prompt, but not the
// error message.
TEST_F(RefusedDeletion, IsAskedForAPromptWithoutMemory) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "allocations cannot be made to fail in this build";
    }
    const List list = make_list("reply", {text(7, "denied"), text(21, "Password: ")});
    fake::FailAlloc error_message(fake::FailAlloc::Unarmed{}, 1);
    EXPECT_EQ(error_message.run([&] { return aaa_util_avlist_errmsg_get(list.get()); }), nullptr);
    EXPECT_TRUE(deletions().empty());
    fake::FailAlloc prompt(fake::FailAlloc::Unarmed{}, 1);
    EXPECT_EQ(prompt.run([&] { return aaa_util_avlist_prompt_get(list.get(), nullptr); }), nullptr);
    EXPECT_EQ(deletions(), (std::vector<Deletion>{{21, 0, list.get(), nullptr}}));
}

// Kept the wrong way round: the address of the last server is deleted when it
// is not there, and stays when it is.
TEST_F(RefusedDeletion, IsAskedForTheLastServerWhenItIsAbsent) {
    const List without = make_list("reply", {u32(1072, 5)});
    EXPECT_EQ(aaa_util_avlist_last_used_server_ip_get(without.get()), 0u);
    EXPECT_EQ(deletions(), (std::vector<Deletion>{{1071, 0, without.get(), nullptr}}));
    deletions().clear();
    const List with = make_list("reply", {u32(1071, 5)});
    EXPECT_EQ(aaa_util_avlist_last_used_server_ip_get(with.get()), 5u);
    EXPECT_TRUE(deletions().empty());
}

}  // namespace
