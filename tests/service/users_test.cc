// SPDX-License-Identifier: Apache-2.0
//
// The file of local users: its rows, its faults, and whether it may be read at all.

#include "config/users.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/temp_dir.hpp"

namespace {

using namespace service;

const std::string kHash = "$6$rounds=1000$salt$PJnFtlQAp0Dy0IhTp8A";

Users parse(const std::string &text, std::string *faults = nullptr) {
    std::vector<Fault> found;
    Users users = parse_users(text, found);
    std::string all;
    for (const Fault &fault : found) {
        all += (all.empty() ? "" : "\n") + fault_text("f", fault);
    }
    if (faults != nullptr) {
        *faults = all;
    } else {
        EXPECT_EQ(all, "");
    }
    return users;
}

std::string fault_of(const std::string &text) {
    std::string faults;
    parse(text, &faults);
    return faults;
}

TEST(Users, ReadsRows) {
    const Users users =
        parse("# comment\n\n alice : " + kHash + " : 15 : show *, ping * \nbob:!:1\ncarol:" + kHash +
              ":15\n$enable:" + kHash + ":15\n$enable:" + kHash + ":7\n$line:" + kHash + ":1\n");
    EXPECT_EQ(users.users.size(), 3u);
    const LocalUser *alice = users.find("alice");
    ASSERT_NE(alice, nullptr);
    EXPECT_EQ(alice->hash, kHash);
    EXPECT_EQ(alice->privilege, 15u);
    EXPECT_EQ(alice->commands, (std::vector<std::string>{"show *", "ping *"}));
    EXPECT_TRUE(alice->may_run("show version"));
    EXPECT_FALSE(alice->may_run("reload"));
    EXPECT_FALSE(alice->may_run("show"));
    EXPECT_TRUE(users.find("bob")->is_locked());
    EXPECT_FALSE(users.find("bob")->may_run("show version"));
    EXPECT_TRUE(users.find("carol")->may_run("reload")) << "privilege 15 without patterns";
    EXPECT_EQ(users.enable.size(), 2u);
    EXPECT_TRUE(users.line);
    EXPECT_EQ(users.find("$line"), nullptr);
    EXPECT_EQ(users.find("mallory"), nullptr);
    EXPECT_EQ(users.setting, kHash) << "what unknown users' passwords are hashed with";
}

TEST(Users, AnEmptyListOfCommandsAllowsNone) {
    const Users users = parse("alice:" + kHash + ":15:\n");
    EXPECT_FALSE(users.find("alice")->may_run("show version"));
    EXPECT_FALSE(users.find("alice")->may_run(""));
}

TEST(Users, AFaultNamesItsLineAndTheOthersCount) {
    std::string faults;
    const Users users = parse("alice:" + kHash + ":15\nbob:" + kHash + "\ncarol:" + kHash + ":1\n", &faults);
    EXPECT_EQ(faults, "f:2: use NAME:HASH:PRIVILEGE, or NAME:HASH:PRIVILEGE:COMMANDS");
    EXPECT_EQ(users.users.size(), 2u);
    EXPECT_EQ(fault_of("alice:" + kHash + ":16\n"), "f:1: the privilege is not a number from 0 to 15");
    EXPECT_EQ(fault_of("alice:" + kHash + ":-1\n"), "f:1: the privilege is not a number from 0 to 15");
    EXPECT_EQ(fault_of("alice:wonderland:15\n").substr(0, 47),
              "f:1: the second field is not a password hash; m");
    EXPECT_EQ(fault_of("alice:$1$salt$qJH7.N4xYta3aEG/dfqo/0:15\n").substr(0, 30),
              "f:1: the hash is of a kind tha");
    EXPECT_EQ(fault_of("alice::15\n").substr(0, 31), "f:1: the password hash is empty");
    EXPECT_EQ(fault_of("$root:" + kHash + ":15\n"), "f:1: \"$root\" is not a user name, $enable or $line");
    EXPECT_EQ(fault_of("al ice:" + kHash + ":15\n"), "f:1: \"al ice\" is not a user name, $enable or $line");
    EXPECT_EQ(fault_of(":" + kHash + ":15\n"), "f:1: \"\" is not a user name, $enable or $line");
    EXPECT_EQ(fault_of("alice:" + kHash + ":15\nalice:" + kHash + ":1\n"),
              "f:2: \"alice\" is there for the second time; the first one counts");
    EXPECT_EQ(fault_of(std::string("al\0ice:", 7) + kHash + ":15\n"),
              "f:1: the line holds a control character");
    EXPECT_EQ(fault_of(std::string(254, 'a') + ":" + kHash + ":1\n").substr(0, 8), "f:1: \"aa");
}

TEST(Users, OnlyAFileThatNoOneElseCanWriteOrReadIsRead) {
    const TempDir dir;
    const std::string path = dir.write("users", "text", 0640);
    EXPECT_EQ(read_text_file(path, Privacy::kSecret).text, "text");
    const auto fault = [&](mode_t mode, Privacy privacy) {
        EXPECT_EQ(chmod(path.c_str(), mode), 0);
        const TextFile file = read_text_file(path, privacy);
        EXPECT_EQ(file.text.empty(), !file.faults.empty());
        return file.faults.empty() ? "" : file.faults[0].text;
    };
    EXPECT_EQ(fault(0644, Privacy::kSecret), "every user may read the hashes in it; run: chmod o=");
    EXPECT_EQ(fault(0644, Privacy::kShared), "");
    EXPECT_EQ(fault(0620, Privacy::kSecret), "others than its owner may write it; run: chmod go-w");
    EXPECT_EQ(fault(0602, Privacy::kShared), "others than its owner may write it; run: chmod go-w");
    EXPECT_EQ(fault(0600, Privacy::kSecret), "");
    if (geteuid() == 0) {
        EXPECT_EQ(chown(path.c_str(), 65534, 0), 0);
        EXPECT_EQ(fault(0600, Privacy::kSecret), "it belongs to the user 65534; run: chown root");
    }
    EXPECT_EQ(read_text_file(path, Privacy::kShared, 3).text.empty(), true);
    EXPECT_TRUE(read_text_file(dir.path("none"), Privacy::kShared).missing);
    EXPECT_FALSE(read_text_file(dir.path("."), Privacy::kShared).missing);
    EXPECT_EQ(mkfifo(dir.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(read_text_file(dir.path("fifo"), Privacy::kShared).faults[0].text, "it is not a regular file")
        << "and reading it does not block";
}

}  // namespace
