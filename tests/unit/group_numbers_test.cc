// SPDX-License-Identifier: Apache-2.0
//
// Numbers of server groups on a scripted database, which other processes change at the worst moments.

#include "numbers/group_numbers.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "aaa/testkit.h"
#include "platform/sysdb_changes.h"
#include "support/server_group_changes.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using group_numbers::Group;
using group_numbers::Number;
using server_groups::maps;

class GroupNumbers : public testing::Test {
  protected:
    void SetUp() override {
        testkit_reset();
        ASSERT_EQ(_sysdb_bind(&conn_, group_numbers::kMaps, 0), 0u);
    }
    void TearDown() override {
        testkit_before("sysdb_apply", nullptr, nullptr);
        _sysdb_unbind(conn_);
    }

    // "1001 new, 1002" or the code, in hexadecimal; codes of groups as "!code".
    std::string publish(const std::vector<Group> &groups) {
        std::vector<Number> numbers;
        const cerrno rc = group_numbers::publish(conn_, groups, numbers);
        EXPECT_EQ(numbers.size(), rc == AAA_OK ? groups.size() : 0);
        std::string text = rc == AAA_OK ? "" : hexadecimal(rc);
        for (const Number &number : numbers) {
            text += text.empty() ? "" : ", ";
            text += number.rc != AAA_OK ? "!" + hexadecimal(number.rc) : std::to_string(number.number);
            text += number.is_new ? " new" : "";
        }
        return text;
    }
    static std::string hexadecimal(cerrno rc) {
        char text[16];
        std::snprintf(text, sizeof text, "%x", rc);
        return text;
    }
    static std::string name_of(const char *entry) {
        const char *text = testkit_sysdb_get_string(maps(std::string("sg_num_map/") + entry).c_str());
        return text != nullptr ? text : "";
    }
    static void put_number(const std::string &name, uint32_t number) {
        testkit_sysdb_put_u32(maps("sg_name_map/" + name).c_str(), number);
    }
    static void put_name(const std::string &entry, const char *name) {
        testkit_sysdb_put_string(maps("sg_num_map/" + entry).c_str(), name);
    }
    static uint32_t number_of(const std::string &name) {
        uint32_t number = 0;
        testkit_sysdb_get_u32(maps("sg_name_map/" + name).c_str(), &number);
        return number;
    }
    // Before each change, as another process would.
    void before_each_change(std::function<void()> other) {
        other_ = std::move(other);
        testkit_before(
            "sysdb_apply", [](void *self) { static_cast<GroupNumbers *>(self)->other_(); }, this);
    }

    sysdb_conn_t conn_ = 0;
    std::function<void()> other_;
};

TEST_F(GroupNumbers, OfSeveralGroupsAreOneChange) {
    EXPECT_EQ(publish({{"radius", "a"}, {"tacacs", "b"}, {"diameter", "c"}, {"radius", "d"}}),
              "1001 new, 3001 new, 3001 new, 1002 new");
    EXPECT_EQ(testkit_count("sysdb_apply"), 1u);
    EXPECT_EQ(name_of("radius/0x3e9") + name_of("radius/0x3ea") + name_of("tacacs/0xbb9"), "adb");
    EXPECT_EQ(publish({{"radius", "d"}, {"radius", "a"}}), "1002, 1001") << "they keep them";
    EXPECT_EQ(testkit_count("sysdb_apply"), 1u) << "nothing to change";
    EXPECT_EQ(publish({}), "");
    EXPECT_EQ(publish({{"ldap", "a"}}), hexadecimal(AAA_ERR_INVALID_ARG));
}

TEST_F(GroupNumbers, AreChosenAgainWhenAnotherProcessWasFaster) {
    int times = 0;
    before_each_change([&] {
        if (++times <= 3) {
            const uint32_t taken = 1000 + static_cast<uint32_t>(times);
            put_number("radius/other" + std::to_string(times), taken);
            put_name("radius/0x" + hexadecimal(taken), ("other" + std::to_string(times)).c_str());
        }
    });
    EXPECT_EQ(publish({{"radius", "a"}}), "1004 new");
    EXPECT_EQ(times, 4);
    EXPECT_EQ(name_of("radius/0x3ec"), "a");
    EXPECT_EQ(name_of("radius/0x3e9"), "other1");
}

TEST_F(GroupNumbers, OfTheSameGroupByTwoProcessesIsOne) {
    before_each_change([&] {
        put_number("radius/a", 1001);
        put_name("radius/0x3e9", "a");
    });
    EXPECT_EQ(publish({{"radius", "a"}}), "1001");
}

TEST_F(GroupNumbers, EndlessConflictsAreReported) {
    uint32_t next = 1001;
    before_each_change([&] {
        put_number("radius/x" + std::to_string(next), next), ++next;
        put_name("radius/0x" + hexadecimal(next - 1), "x");
    });
    EXPECT_EQ(publish({{"radius", "a"}}), hexadecimal(SYSDB_ERR_CONFLICT));
    EXPECT_EQ(number_of("radius/a"), 0u);
}

TEST_F(GroupNumbers, OfAnotherGroupAreGivenUp) {
    put_number("radius/a", 1001);
    put_number("radius/b", 1001);
    put_name("radius/0x3e9", "b");
    EXPECT_EQ(publish({{"radius", "a"}, {"radius", "b"}}), "1002 new, 1001");
    EXPECT_EQ(number_of("radius/a"), 1002u);
    EXPECT_EQ(name_of("radius/0x3e9") + name_of("radius/0x3ea"), "ba");
    put_number("tacacs/c", 3001);
    put_number("tacacs/d", 3001);
    EXPECT_EQ(publish({{"tacacs", "d"}, {"tacacs", "c"}}), "3002 new, 3001") << "the first name keeps it";
    EXPECT_EQ(name_of("tacacs/0xbb9") + name_of("tacacs/0xbba"), "cd");
}

TEST_F(GroupNumbers, EntriesThatLeadElsewhereAreMended) {
    put_number("radius/a", 1005);
    put_name("radius/0x3ed", "gone");
    EXPECT_EQ(publish({{"radius", "a"}, {"radius", "new"}}), "1005, 1006 new");
    EXPECT_EQ(name_of("radius/0x3ed") + name_of("radius/0x3ee"), "anew");
    put_number("radius/lost", 1009);
    EXPECT_EQ(publish({{"radius", "next"}}), "1010 new") << "no entry leads to 1009, but a group has it";
}

TEST_F(GroupNumbers, ThatNoProgramCanUseAreReplaced) {
    testkit_sysdb_put(maps("sg_name_map/radius/a").c_str(), SYSDB_TYPE_STRING, "x", 2);
    put_number("radius/c", 0);
    put_number("radius/d", 5000);
    put_name("radius/0x1388", "d");
    put_number("tacacs/e", 1003);
    EXPECT_EQ(publish({{"radius", "a"}, {"radius", "b"}, {"radius", "c"}, {"radius", "d"}, {"tacacs", "e"}}),
              "1001 new, 1002 new, 1003 new, 1004 new, 3001 new");
    EXPECT_EQ(name_of("radius/0x3ec") + name_of("radius/0x1388"), "d");
    EXPECT_EQ(testkit_count("sysdb_apply"), 1u);
}

TEST_F(GroupNumbers, AreNotGivenToANameOfAnotherProtocol) {
    EXPECT_EQ(publish({{"radius", "a"}, {"tacacs", "a"}}),
              "1001 new, !" + hexadecimal(AAA_ERR_SG_NAME_OTHER_PROTOCOL));
    EXPECT_EQ(number_of("tacacs/a"), 0u);
}

TEST_F(GroupNumbers, AreNotBlockedByEntriesThatLeadToNoGroup) {
    put_name("radius/0x7ce", "x");
    put_name("radius/0x7d5", "out of range");
    put_name("radius/0x3ea", "x");
    put_number("radius/a", 1001);
    EXPECT_EQ(publish({{"radius", "a"}, {"radius", "b"}, {"radius", "c"}, {"tacacs", "d"}}),
              "1001, 1999 new, 1002 new, 3001 new");
    EXPECT_EQ(name_of("radius/0x7ce") + name_of("radius/0x7d5"), "") << "they are deleted";
    EXPECT_EQ(name_of("radius/0x3ea") + name_of("radius/0x7cf"), "cb");
}

TEST_F(GroupNumbers, BelowTheHighestAreTakenWhenNoneIsAbove) {
    put_number("radius/last", 1999);
    put_name("radius/0x7cf", "last");
    put_number("radius/a", 1001);
    EXPECT_EQ(publish({{"radius", "b"}, {"radius", "c"}}), "1002 new, 1003 new");
    EXPECT_EQ(name_of("radius/0x3ea") + name_of("radius/0x3eb") + name_of("radius/0x7cf"), "bclast");
}

TEST_F(GroupNumbers, RunOutWhenEveryOneBelongsToAGroup) {
    for (uint32_t number = 1001; number <= 1998; ++number) {
        put_number("radius/g" + std::to_string(number), number);
    }
    put_number("radius/damaged", 7);
    EXPECT_EQ(publish({{"radius", "a"}, {"radius", "damaged"}, {"tacacs", "c"}}),
              "1999 new, !" + hexadecimal(AAA_ERR_SG_MAPPING) + ", 3001 new");
    EXPECT_EQ(number_of("radius/damaged"), 7u) << "nothing is taken from a group that gets no other number";
}

TEST_F(GroupNumbers, AreWithdrawnFromBothMaps) {
    publish({{"radius", "a"}, {"radius", "b"}, {"tacacs", "c"}});
    put_name("radius/0x400", "a");
    EXPECT_EQ(group_numbers::withdraw(conn_, {{"radius", "a"}, {"tacacs", "c"}, {"radius", "none"}}), AAA_OK);
    EXPECT_EQ(number_of("radius/a") + number_of("tacacs/c"), 0u);
    EXPECT_EQ(name_of("radius/0x3e9") + name_of("radius/0x400") + name_of("tacacs/0xbb9"), "");
    EXPECT_EQ(name_of("radius/0x3ea"), "b");
    EXPECT_EQ(testkit_count("sysdb_apply"), 2u);
    EXPECT_EQ(group_numbers::withdraw(conn_, {{"ldap", "a"}}), AAA_ERR_INVALID_ARG);
}

TEST_F(GroupNumbers, WorkWithAProviderThatMakesOneChangeAtATime) {
    testkit_answer("sysdb_apply", SYSDB_ERR_NOT_SUPPORTED, 4, 0);
    EXPECT_EQ(publish({{"radius", "a"}, {"radius", "b"}}), "1001 new, 1002 new");
    EXPECT_EQ(name_of("radius/0x3ea"), "b");
    EXPECT_EQ(group_numbers::withdraw(conn_, {{"radius", "a"}}), AAA_OK);
    EXPECT_EQ(number_of("radius/a"), 0u);
}

TEST_F(GroupNumbers, AreNotChangedWhenTheDatabaseFails) {
    testkit_fail_call("sysdb_apply", 1, SYSDB_ERR_FULL, 0);
    EXPECT_EQ(publish({{"radius", "a"}}), hexadecimal(SYSDB_ERR_FULL));
    testkit_fail_call("sysdb_list", 1, SYSDB_ERR_BUSY, 0);
    EXPECT_EQ(publish({{"radius", "a"}}), hexadecimal(SYSDB_ERR_BUSY));
    EXPECT_EQ(number_of("radius/a"), 0u);
}

}  // namespace
