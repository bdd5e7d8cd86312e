// SPDX-License-Identifier: Apache-2.0

#include "base/known_names.hpp"

#include <gtest/gtest.h>

namespace service {
namespace {

TEST(KnownNames, AreThoseOfTheConfigurationAndThoseThatWereAccepted) {
    KnownNames names;
    EXPECT_EQ(names.shown("s3cret!"), "s3cret!") << "nothing says who is known";
    names.use([](const std::string &name) { return name == "alice"; });
    EXPECT_EQ(names.shown("alice"), "alice");
    EXPECT_EQ(names.shown("s3cret!"), "(unknown name)");
    EXPECT_EQ(names.shown("Alice"), "(unknown name)");
    EXPECT_EQ(names.shown(""), "");
    names.learn("bob");
    EXPECT_EQ(names.shown("bob"), "bob");
    names.use([](const std::string &) { return false; });
    EXPECT_EQ(names.shown("alice"), "(unknown name)") << "removed from the configuration";
    EXPECT_EQ(names.shown("bob"), "bob");
}

TEST(KnownNames, TextsDoNotRepeatThoseThatAreNotShown) {
    KnownNames names;
    EXPECT_EQ(names.shown_text("no s3cret!", "s3cret!"), "no s3cret!") << "nothing says who is known";
    names.use([](const std::string &name) { return name == "alice"; });
    EXPECT_EQ(names.shown_text("S3cret! is no user; s3cret!", "s3cret!"),
              "(unknown name) is no user; (unknown name)");
    EXPECT_EQ(names.shown_text("alice", "alice"), "alice");
    // What texts of servers go through: control characters, and a cut.
    EXPECT_EQ(names.shown_text("no s3?cret?"
                               "?!",
                               "s3\acret\xc2\x9b!"),
              "no (unknown name)");
    EXPECT_EQ(names.shown_text("no s3cr...", "s3cret!"), "no (unknown name)...");
    EXPECT_EQ(names.shown_text("no s3cr", "s3cret!"), "no s3cr");
    const std::string filler(250, 'x');
    EXPECT_EQ(names.shown_text(filler + " s3cr", "s3cret!"), filler + " (unknown name)");
    // A name of many letters in a text of more of them.
    const std::string name = std::string(16000, 'a') + "b";
    EXPECT_EQ(names.shown_text(std::string(60000, 'a'), name).find("aa"), std::string::npos);
    EXPECT_EQ(names.shown_text("no " + name + ".", name), "no (unknown name).");
    EXPECT_EQ(names.shown_text("bye", ""), "bye");
}

TEST(KnownNames, TheOldestAreForgotten) {
    KnownNames names(2);
    names.use([](const std::string &) { return false; });
    for (const char *name : {"one", "two", "two", "one", "", "three"}) {
        names.learn(name);
    }
    EXPECT_FALSE(names.knows("one"));
    EXPECT_TRUE(names.knows("two"));
    EXPECT_TRUE(names.knows("three"));
}

}  // namespace
}  // namespace service
