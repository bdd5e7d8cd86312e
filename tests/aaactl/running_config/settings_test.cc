// SPDX-License-Identifier: Apache-2.0
//
// Settings as words: units, limits, keys.

#include "running_config/settings.hpp"

#include <gtest/gtest.h>

namespace {

using namespace aaactl;

const Protocol &kRadius = kProtocols[0];
const Protocol &kTacacs = kProtocols[1];
const std::string kSealed = "01" + std::string(90, 'a');

const Protocol &owner_of(const std::string &setting) {
    return setting == "pap" || setting == "single-connect" || setting == "port" ? kTacacs : kRadius;
}

SettingValue read(const std::string &text, const Protocol &protocol = kRadius) {
    WordReader words(split_words(text));
    SettingValue value = read_setting(protocol, words);
    EXPECT_TRUE(words.at_end()) << text;
    return value;
}

std::string failure_of(const std::string &text) {
    try {
        read(text);
    } catch (const Failure &failure) {
        return failure.what();
    }
    return "no failure";
}

TEST(ConfigSettings, WordsAndTheirStoredForm) {
    struct Case {
        const char *text, *name, *again;
        Item item;
    };
    const Case cases[] = {
        {"timeout 1500ms", "timeout", "timeout 1500ms", number_item(1500)},
        {"timeout 2000ms", "timeout", "timeout 2s", number_item(2000)},
        {"timeout 1min", "timeout", "timeout 60s", number_item(60000)},
        {"dead-time 5min", "dead-time", "dead-time 300s", number_item(300)},
        {"dead-time 24h", "dead-time", "dead-time 86400s", number_item(86400)},
        {"tries 3", "tries", "tries 3", number_item(3)},
        {"retransmit 2", "tries", "tries 3", number_item(3)},
        {"retransmit 0", "tries", "tries 1", number_item(1)},
        {"pap on", "pap", "pap on", number_item(1)},
        {"single off", "single-connect", "single-connect off", number_item(0)},
        {"default-port 49", "port", "default-port 49", number_item(49)},
        {"transport tls", "transport", "transport tls", text_item("tls")},
        {"ca-file \"/a b\"", "ca-file", "ca-file \"/a b\"", text_item("/a b")},
        {"probe-user \"\"", "probe-user", "probe-user \"\"", text_item("")},
        {"source 2001:db8::1", "source", "source 2001:db8::1", text_item("2001:db8::1")},
    };
    for (const Case &one : cases) {
        const Protocol &protocol = owner_of(one.name);
        const SettingValue value = read(one.text, protocol);
        EXPECT_STREQ(value.form->name, one.name);
        EXPECT_EQ(value.item, one.item) << one.text;
        EXPECT_EQ(setting_text(value), one.again);
        EXPECT_EQ(read(one.again, protocol), value) << one.again;
        EXPECT_EQ(setting_value(protocol, *value.form, value.item), value) << one.text;
    }
}

TEST(ConfigSettings, ANumberWithoutAUnitIsAmbiguous) {
    EXPECT_EQ(failure_of("timeout 5"), "timeout needs a unit: 5ms or 5s");
    EXPECT_EQ(failure_of("dead-time 5"), "dead-time needs a unit: 5s or 5min");
    EXPECT_EQ(failure_of("dead-time 5ms"), "dead-time needs a unit: 5s or 5min");
}

TEST(ConfigSettings, RefusesWhatTheServiceWouldNotUse) {
    EXPECT_EQ(failure_of("timeout 61s"), "timeout: 61s is out of range; use 10ms to 60000ms");
    EXPECT_EQ(failure_of("timeout 9ms"), "timeout: 9ms is out of range; use 10ms to 60000ms");
    EXPECT_EQ(failure_of("timeout 18446744073709551615s"),
              "timeout: 18446744073709551615s is out of range; use 10ms to 60000ms");
    EXPECT_EQ(failure_of("tries 0"), "tries: 0 is out of range; use 1 to 10");
    EXPECT_EQ(failure_of("tries x"), "tries: \"x\" is not a number; use 1 to 10");
    EXPECT_EQ(failure_of("retransmit 10"), "retransmit: 10 is out of range; use 0 to 9");
    EXPECT_EQ(failure_of("transport tcp"), "\"tcp\" is not the value of transport; use udp or tls");
    EXPECT_EQ(failure_of("legacy maybe"), "\"maybe\" is not the value of legacy; use on or off");
    EXPECT_EQ(failure_of("pap on"), "pap is not a setting of RADIUS");
    EXPECT_EQ(failure_of("source name"), "source is an IPv4 or IPv6 address");
    EXPECT_EQ(failure_of("ca-file name"), "ca-file is the path of a file, from the root on");
    EXPECT_EQ(failure_of("vrf \"\""), "vrf is 1 to 15 bytes");
    EXPECT_EQ(failure_of("vrf \"a\\x00\""), "vrf: it holds a control character");
    EXPECT_EQ(failure_of("timeuot 5s"), "\"timeuot\" is not a setting; did you mean timeout?");
    EXPECT_EQ(read("transport tcp", kTacacs).item, text_item("tcp"));
}

TEST(ConfigSettings, Keys) {
    const SettingValue sealed = read("key 7 " + kSealed);
    EXPECT_EQ(sealed.item, text_item(kSealed));
    EXPECT_FALSE(sealed.clear);
    EXPECT_EQ(setting_text(sealed), "key 7 " + kSealed);
    const SettingValue clear = read("key 0 \"hunter 2\"");
    EXPECT_EQ(clear.item, text_item("hunter 2"));
    EXPECT_TRUE(clear.clear);
    EXPECT_EQ(read(setting_text(clear)), clear);
}

// A message is on a screen and in logs.
TEST(ConfigSettings, NoMessageQuotesAKey) {
    for (const char *text :
         {"key hunter2", "key 7 hunter2", "key 5 hunter2", "key 0 hunter2 hunter2", "key 0 x hunter2",
          "key \"7\" hunter2", "key 0 \"hunter2\" \"hunter2\"", "key 0 \"hunter2\\x00\""}) {
        const std::string failure = failure_of(text);
        EXPECT_NE(failure, "no failure") << text;
        EXPECT_EQ(failure.find("hunter2"), std::string::npos) << failure;
    }
}

TEST(ConfigSettings, RemovedSettings) {
    WordReader words(split_words("timeout"));
    const SettingValue value = read_removed_setting(words);
    EXPECT_TRUE(value.removed);
    EXPECT_EQ(setting_text(value), "no timeout");
}

// Such an item is shown in another form, which keeps it.
TEST(ConfigSettings, StoredValuesThatHaveNoWords) {
    const auto has_words = [](const char *name, const Item &item) {
        return setting_value(kRadius, *setting_named(name), item).has_value();
    };
    EXPECT_FALSE(has_words("timeout", number_item(5)));
    EXPECT_FALSE(has_words("timeout", text_item("5")));
    EXPECT_FALSE(has_words("timeout", {SYSDB_TYPE_U32, "x"}));
    EXPECT_FALSE(has_words("transport", text_item("tcp")));
    EXPECT_FALSE(has_words("key", text_item("clear")));
    EXPECT_FALSE(has_words("vrf", number_item(1)));
    EXPECT_FALSE(has_words("vrf", {SYSDB_TYPE_STRING, ""}));
    EXPECT_FALSE(has_words("vrf", {SYSDB_TYPE_STRING, std::string("a\0b\0", 4)}));
    EXPECT_EQ(setting_named("none"), nullptr);
    EXPECT_EQ(setting_of_word("port"), nullptr);
}

}  // namespace
