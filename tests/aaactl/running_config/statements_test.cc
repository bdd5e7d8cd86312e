// SPDX-License-Identifier: Apache-2.0
//
// Text, statements and items: each way, and around.

#include "running_config/statements.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using namespace aaactl;

const std::string kRoot = "/cfg/gl/aaa/";
const std::string kSealed = "01" + std::string(90, 'b');

ApplyOptions plain_options() {
    ApplyOptions options;
    options.seal = [](const Item &clear) { return text_item("sealed " + text_of(clear)); };
    return options;
}

Items applied(const std::string &text, const Items &before = {}) {
    return apply(parse_statements(text), before, plain_options()).items;
}

std::string shown(const Items &items) {
    std::string text;
    for (const auto &[path, item] : items) {
        text += path.substr(kRoot.size()) + " " + value_text(item) + "\n";
    }
    return text;
}

struct Refusal {
    ExitCode code = ExitCode::ok;
    std::string text;
};

Refusal refusal_of(const std::string &text, const Items &before = {}) {
    try {
        applied(text, before);
    } catch (const Failure &failure) {
        return {failure.code(), failure.what()};
    }
    return {};
}

const char kCorp[] =
    "aaa group server radius corp\n"
    " server 192.0.2.1 auth-port 1812 acct-port 1813 timeout 3s\n"
    " server-private 192.0.2.2 auth-port 1645 acct-port 1646\n"
    " dead-time 300s\n"
    "aaa group server tacacs archive\n"
    " server 192.0.2.30\n"
    " server ::1 port 4949\n"
    "aaa group server diameter empty\n"
    "radius-server host 192.0.2.9 auth-port 1812 acct-port 1813\n"
    "tacacs-server timeout 2s\n"
    "aaa authentication login default group corp local\n"
    "aaa accounting exec default start-stop broadcast group corp group archive\n"
    "item /cfg/gl/aaa/site/limit u32 15\n";

TEST(RunningConfig, TextIsStoredAsTheServiceReadsIt) {
    EXPECT_EQ(shown(applied(kCorp)),
              "accounting/exec/default (0, 0, 1, 10, 10, 0, 0, \"corp\", \"archive\", \"\", \"\")\n"
              "authentication/login/default (10, 2, 0, 0, \"corp\", \"\", \"\", \"\")\n"
              "group-server/diameter/empty/server/ \n"
              "group-server/radius/corp/server-private/0x1/192.0.2.2,1645,1646 1\n"
              "group-server/radius/corp/server/0x1/192.0.2.1,1812,1813 1\n"
              "group-server/radius/corp/settings/192.0.2.1,1812,1813/timeout 3000\n"
              "group-server/radius/corp/settings/dead-time 300\n"
              "group-server/tacacs/archive/server/0x1/192.0.2.30 1\n"
              "group-server/tacacs/archive/server/0x2/::1,0x1355/ \n"
              "radius/host/0x1/192.0.2.9,1812,1813 1\n"
              "site/limit 15\n"
              "tacacs/settings/timeout 2000\n");
}

TEST(RunningConfig, ItemsGiveTheirTextAgain) {
    const Statements statements = statements_of(applied(kCorp));
    EXPECT_EQ(parse_statements(text_of(statements)), statements);
    EXPECT_EQ(applied(text_of(statements)), applied(kCorp));
    EXPECT_NE(text_of(statements).find(" server ::1 port 4949\n"), std::string::npos) << text_of(statements);
    EXPECT_NE(text_of(statements)
                  .find("\naaa accounting exec default start-stop broadcast group corp group "
                        "archive\n"),
              std::string::npos);
}

TEST(RunningConfig, CommentsIndentationAndExitMeanNothingElse) {
    const std::string plain = "aaa group server radius corp\n server 192.0.2.1\n timeout 3s\n";
    const std::string other =
        "! comment\n#!\r\n\n   aaa group server radius corp\r\nserver 192.0.2.1 auth-port 1812\n\t timeout "
        "3000ms\n exit\nend\n";
    EXPECT_EQ(applied(plain), applied(other));
    EXPECT_EQ(
        refusal_of("aaa group server radius corp\nexit\ntimeout 3s\n").text,
        "line 3: \"timeout\" belongs to a server group; write \"aaa group server PROTOCOL NAME\" before "
        "it");
}

TEST(RunningConfig, LoadingTwiceChangesNothing) {
    EXPECT_EQ(applied(kCorp, applied(kCorp)), applied(kCorp));
}

TEST(RunningConfig, AddsToWhatIsThere) {
    const Items before =
        applied("aaa group server radius corp\nserver 192.0.2.1\nserver 192.0.2.2 index 9\n");
    const Items after = applied(
        "aaa group server radius corp\nserver 192.0.2.3 tries 2\nserver 192.0.2.1 timeout 1s\n", before);
    EXPECT_EQ(shown(after),
              "group-server/radius/corp/server/0x1/192.0.2.1,1812,1813 1\n"
              "group-server/radius/corp/server/0x9/192.0.2.2,1812,1813 1\n"
              "group-server/radius/corp/server/0xa/192.0.2.3,1812,1813 1\n"
              "group-server/radius/corp/settings/192.0.2.1,1812,1813/timeout 1000\n"
              "group-server/radius/corp/settings/192.0.2.3,1812,1813/tries 2\n");
    const Items moved = applied("aaa group server radius corp\nserver 192.0.2.3 index 2\n", after);
    EXPECT_TRUE(moved.contains(kRoot + "group-server/radius/corp/server/0x2/192.0.2.3,1812,1813"));
    EXPECT_FALSE(moved.contains(kRoot + "group-server/radius/corp/server/0xa/192.0.2.3,1812,1813"));
}

TEST(RunningConfig, NoDeletes) {
    const Items before = applied(kCorp);
    const auto without = [&](const std::string &text) { return applied(text, before); };
    EXPECT_FALSE(without("no tacacs-server timeout").contains(kRoot + "tacacs/settings/timeout"));
    EXPECT_FALSE(without("no item /cfg/gl/aaa/site/limit").contains(kRoot + "site/limit"));
    EXPECT_FALSE(without("no item /cfg/gl/aaa/site/").contains(kRoot + "site/limit"));
    EXPECT_FALSE(
        without("no aaa authentication login default").contains(kRoot + "authentication/login/default"));
    EXPECT_FALSE(
        without("no radius-server host 192.0.2.9").contains(kRoot + "radius/host/0x1/192.0.2.9,1812,1813"));
    // The settings of a server go with it, and a group without servers remains.
    const Items empty = without(
        "aaa group server radius corp\nno server 192.0.2.1\nno server-private "
        "192.0.2.2 auth-port 1645 acct-port 1646\n");
    EXPECT_TRUE(empty.contains(kRoot + "group-server/radius/corp/server/"));
    EXPECT_FALSE(empty.contains(kRoot + "group-server/radius/corp/settings/192.0.2.1,1812,1813/timeout"));
    EXPECT_TRUE(empty.contains(kRoot + "group-server/radius/corp/settings/dead-time"));
    const Items unset = without("aaa group server radius corp\nserver 192.0.2.1 no timeout\nno dead-time\n");
    EXPECT_FALSE(unset.contains(kRoot + "group-server/radius/corp/settings/192.0.2.1,1812,1813/timeout"));
    EXPECT_FALSE(unset.contains(kRoot + "group-server/radius/corp/settings/dead-time"));
    // A group and the list that names it.
    const Items gone = without(
        "no aaa group server radius corp\naaa authentication login default local\n"
        "no aaa accounting exec default\n");
    EXPECT_EQ(shown(gone).find("corp"), std::string::npos) << shown(gone);
    // Deleted and made again in one text.
    const Items again =
        without("no aaa group server radius corp\naaa group server radius corp\nserver 192.0.2.77\n");
    EXPECT_TRUE(again.contains(kRoot + "group-server/radius/corp/server/0x1/192.0.2.77,1812,1813"));
    EXPECT_FALSE(again.contains(kRoot + "group-server/radius/corp/server/0x1/192.0.2.1,1812,1813"));
}

TEST(RunningConfig, NoOfWhatDoesNotExistIsAnError) {
    for (const char *text :
         {"no aaa group server radius corp", "no radius-server host 192.0.2.1", "no radius-server timeout",
          "no aaa authentication login default", "no item /cfg/gl/aaa/x", "no item /cfg/gl/aaa/x/",
          "radius-server host 192.0.2.1 no timeout"}) {
        const Refusal refusal = refusal_of(text);
        EXPECT_EQ(refusal.code, ExitCode::not_found) << text;
        EXPECT_EQ(refusal.text.rfind("line 1: ", 0), 0u) << refusal.text;
    }
}

TEST(RunningConfig, ErrorsNameTheLineAndWhatWasMeant) {
    const std::pair<const char *, const char *> cases[] = {
        {"\n!\naaa authentcation login x local",
         "line 3: \"authentcation\" is not a kind of configuration; did you mean authentication?"},
        {"aaa auth login x local",
         "line 1: \"auth\" can mean authentication, authorization or authorization_nacm; write the whole "
         "word"},
        {"aaa authentication login x locl", "line 1: \"locl\" is not a method; did you mean local?"},
        {"aaa authentication login x group:corp",
         "line 1: \"group:corp\" is not a method; write \"group corp\""},
        {"aaa authentication login x", "line 1: a method is missing at the end of the line"},
        {"aaa authentication login x local local local local local", "line 1: a list has at most 4 methods"},
        {"aaa authentication login x group", "line 1: the group's name is missing at the end of the line"},
        {"aaa authentication login a/b local",
         "line 1: the list's name: \"a/b\" is not a valid name; use 1 to 49 printable characters without "
         "'/'"},
        {"aaa accounting exec x stop-only local",
         "line 1: \"stop-only\": the service accounts for start and stop; write start-stop"},
        {"aaa group server radus corp", "line 1: \"radus\" is not a protocol; did you mean radius?"},
        {"radius-server host server1", "line 1: \"server1\" is not an IPv4 or IPv6 address"},
        {"radius-server host 192.0.2.1 port 49",
         "line 1: \"port\" is not a setting; use auth-port, acct-port, index, key, timeout, tries, "
         "dead-time, "
         "transport, server-name, ca-file, certificate-file, key-file, crl-file, source, source-interface, "
         "vrf, "
         "default-port, legacy, status-server, probe-user, nas-identifier, vendor-map, single-connect or "
         "pap"},
        {"radius-server host 192.0.2.1 aut-port 49",
         "line 1: \"aut-port\" is not a setting; did you mean auth-port?"},
        {"radius-server host 192.0.2.1 auth-port 0",
         "line 1: auth-port: \"0\" is not a number from 1 to 65535"},
        {"radius-server host 192.0.2.1 auth-port 65535",
         "line 1: acct-port is missing: there is no port after 65535"},
        {"radius-server host 192.0.2.1 auth-port 1 auth-port 1", "line 1: \"auth-port\" is given twice"},
        {"radius-server host 192.0.2.1 tries 1 tries 2", "line 1: \"tries\" is given twice"},
        {"radius-server host 192.0.2.1\nradius-server host 192.0.2.1",
         "line 2: server 192.0.2.1,1812,1813 is already on line 1"},
        {"aaa authentication login x local\naaa authentication login x none",
         "line 2: authentication list login x is already on line 1"},
        {"radius-server timeout 1s\nradius-server timeout 2s", "line 2: timeout is already on line 1"},
        {"tacacs-server host 192.0.2.1\ntacacs-server host 192.0.2.1 port 4949",
         "line 2: server 192.0.2.1 is there already with another port or in another list; delete it first, "
         "with \"no\""},
        {"radius-server host 192.0.2.1\nradius-server host 192.0.2.2 index 1",
         "line 2: index 1 is that of another server"},
        {"no radius-server host 192.0.2.1 timeout",
         "line 1: after \"no\" only the address and the ports follow; to delete a setting, write the line "
         "without \"no\" and \"no SETTING\" at its end"},
        {"no no radius-server timeout", "line 1: \"no\" is written once, and in full"},
        {"item /cfg/site/x u32 1", "line 1: path /cfg/site/x is not in /cfg/gl/aaa/"},
        {"item /cfg/gl/aaa/x u33 1",
         "line 1: \"u33\" is not a type; use u32, string, tuple, directory or bytes:NUMBER"},
        {"aaactl-dump 1 /cfg/", "line 1: this is a dump of the database; load it with \"aaactl sysdb load\""},
        {"aaa authentication login x group nope",
         "line 1: group nope: no such server group; add \"aaa group server PROTOCOL nope\", or use --force"},
        {"aaa group server radius a\naaa group server tacacs a",
         "line 1: server group a: the name is that of a group of tacacs already\n  line 2: server group a: "
         "the name "
         "is that of a group of radius already"},
        {"radius server corp",
         "line 1: \"radius\" is not a statement; write \"radius-server\", or \"aaa group server radius "
         "NAME\" "
         "for a group"},
        {"no tac server corp",
         "line 1: \"tac\" is not a statement; write \"tacacs-server\", or \"aaa group server tacacs NAME\" "
         "for "
         "a group"},
        {"aaa group server radius corp timeout 3s", "line 1: \"timeout\" is more than the line can have"},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(refusal_of(text).text, expected) << text;
    }
}

TEST(RunningConfig, AGroupThatAListNamesStays) {
    const Refusal refusal = refusal_of("\nno aaa group server tacacs archive", applied(kCorp));
    EXPECT_EQ(refusal.code, ExitCode::negative);
    EXPECT_EQ(refusal.text,
              "line 2: server group archive is named by the method list /cfg/gl/aaa/accounting/exec/default; "
              "change or delete that list too");
}

TEST(RunningConfig, AnAddressOfSeveralServersIsAmbiguous) {
    const Items before =
        applied("radius-server host 192.0.2.1 auth-port 1\nradius-server host 192.0.2.1 auth-port 2\n");
    EXPECT_EQ(refusal_of("no radius-server host 192.0.2.1", before).text,
              "line 1: 192.0.2.1 is the address of 2 servers; add the ports of the one that is meant");
    EXPECT_EQ(applied("no radius-server host 192.0.2.1 auth-port 2", before).size(), 1u);
}

TEST(RunningConfig, KeysAreSealedAndMaskedValuesKept) {
    const Items items = applied("radius-server key 0 hunter2\n");
    EXPECT_EQ(items.at(kRoot + "radius/settings/key"), text_item("sealed hunter2"));
    const Items kept = applied("item /cfg/gl/aaa/radius/settings/key string ********\n", items);
    EXPECT_EQ(kept, items);
    EXPECT_EQ(refusal_of("item /cfg/gl/aaa/radius/settings/key string ********\n").code, ExitCode::bad_input);
    EXPECT_EQ(applied("radius-server key 7 " + kSealed).at(kRoot + "radius/settings/key"),
              text_item(kSealed));
}

TEST(RunningConfig, GroupsThatAreOnlyPublishedAndForce) {
    const Statements statements = parse_statements("aaa authentication login x group away\n");
    ApplyOptions options = plain_options();
    options.is_published = [](const std::string &name) { return name == "away"; };
    EXPECT_EQ(apply(statements, {}, options).items.size(), 1u);
    options = plain_options();
    options.force = true;
    EXPECT_EQ(apply(statements, {}, options).items.size(), 1u);
}

TEST(RunningConfig, AListThatIsStoredMayNameAGroupThatWasMissingBefore) {
    const Items stored = applied(
        "aaa group server radius corp\n"
        "aaa authentication login x group corp\n");
    ApplyOptions options = plain_options();
    options.force = true;
    const Items missing =
        apply(parse_statements("aaa authentication login x group away group corp\n"), stored, options).items;
    options = plain_options();
    options.kept = &missing;
    const Statements shown = statements_of(missing);
    EXPECT_EQ(apply(shown, {}, options).items, missing);
    EXPECT_EQ(apply(shown, missing, options).items, missing);
    EXPECT_THROW(apply(parse_statements("aaa authentication login x group away\n"), missing, options),
                 Failure)
        << "it is changed";
    EXPECT_THROW(apply(parse_statements("aaa authentication login x group away group corp\n"), {}, options),
                 Failure)
        << "corp would be missing, too";
}

TEST(RunningConfig, WhatHasNoWordsIsAnItem) {
    Items items;
    items[kRoot + "group-server/radius/a/server/0x01/192.0.2.1,1812,1813"] = number_item(1);
    items[kRoot + "group-server/radius/b/server/0x1/192.0.2.1,1812,1813"] = number_item(2);
    items[kRoot + "group-server/radius/c/server/0x1/192.0.2.1"] = number_item(1);
    items[kRoot + "group-server/radius/d/"] = {SYSDB_TYPE_DIRECTORY, {}};
    items[kRoot + "group-server/radius/e/settings/tries"] = number_item(3);
    items[kRoot + "group-server/radius/f/server/0x1/192.0.2.1,1,2"] = number_item(1);
    items[kRoot + "group-server/radius/f/server/0x1/192.0.2.2,1,2"] = number_item(1);
    items[kRoot + "group-server/tacacs/g/server/0x1/192.0.2.1"] = number_item(1);
    items[kRoot + "group-server/tacacs/g/server/0x2/192.0.2.1,0x31/"] = {SYSDB_TYPE_DIRECTORY, {}};
    items[kRoot + "group-server/radius/h/server-private/0x1/192.0.2.1,1,2"] = number_item(1);
    items[kRoot + "group-server/radius/h/server/"] = {SYSDB_TYPE_DIRECTORY, {}};
    items[kRoot + "group-server/radius/h/settings/timeout"] = number_item(99999999);
    items[kRoot + "group-server/radius/h/settings/192.0.2.9,1,2/timeout"] = number_item(1000);
    items[kRoot + "group-server/radius/i/server-private/foo"] = number_item(1);
    items[kRoot + "group-server/radius/i/server/"] = {SYSDB_TYPE_DIRECTORY, {}};
    items[kRoot + "accounting/exec/old"] =
        item_from_text(SYSDB_TYPE_TUPLE, R"((2, 0, 0, 0, "", "", "", ""))");
    items[kRoot + "accounting/exec/kind"] =
        item_from_text(SYSDB_TYPE_TUPLE, R"((1, 0, 0, 2, 0, 0, 0, "", "", "", ""))");
    items[kRoot + "authentication/login/gap"] =
        item_from_text(SYSDB_TYPE_TUPLE, R"((2, 0, 2, 0, "", "", "", ""))");
    items[kRoot + "authentication/login/none"] =
        item_from_text(SYSDB_TYPE_TUPLE, R"((0, 0, 0, 0, "", "", "", ""))");
    items[kRoot + "authentication/login/text"] = text_item("local");
    items[kRoot + "authentication/login/far"] =
        item_from_text(SYSDB_TYPE_TUPLE, R"((1001, 0, 0, 0, "", "", "", ""))");
    const Statements statements = statements_of(items);
    EXPECT_EQ(applied(text_of(statements)), items) << text_of(statements);
    const auto worded = std::count_if(statements.begin(), statements.end(), [](const Statement &statement) {
        return !std::holds_alternative<ItemStatement>(statement.what);
    });
    EXPECT_EQ(worded, 4) << "groups g and h with one server each\n" << text_of(statements);
}

// ---- random configurations

class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(engine_()) % limit; }
    bool once_in(uint32_t times) { return below(times) == 0; }
    template <typename T>
    const T &one_of(const std::vector<T> &all) {
        return all[below(static_cast<uint32_t>(all.size()))];
    }

  private:
    std::mt19937 engine_;
};

const std::vector<std::string> kNames{"corp",   "a b",   "!x",  "group", "local",
                                      "server", "\"q\"", "key", "x\\y",  "9"};

Item random_item(Random &random) {
    switch (random.below(5)) {
        case 0:
            return number_item(random.below(100));
        case 1:
            return text_item(random.one_of(kNames));
        case 2:
            return tuple_item(
                {{false, static_cast<int32_t>(random.below(9)), {}}, {true, 0, random.one_of(kNames)}});
        case 3:
            return {99, std::string("\0\xff", 2)};
        default:
            return text_item(kSealed);
    }
}

Item random_value(Random &random, const std::string &name) {
    if (random.once_in(8)) {
        return random_item(random);
    }
    if (name == "key") {
        return text_item(kSealed);
    }
    if (name == "transport") {
        return text_item(random.one_of(std::vector<std::string>{"udp", "tcp", "tls"}));
    }
    if (random.once_in(2) && (name.ends_with("-file") || name == "vendor-map")) {
        return text_item("/" + random.one_of(kNames));
    }
    if (random.once_in(2) && name == "source") {
        return text_item("192.0.2.9");
    }
    const bool number = name == "timeout" || name == "tries" || name == "dead-time" || name == "port" ||
                        name == "legacy" || name == "pap" || name == "single-connect" ||
                        name == "status-server";
    return number ? number_item(random.once_in(2) ? random.below(2) : random.below(70000))
                  : text_item(random.one_of(kNames));
}

void add_settings(Random &random, Items &items, const std::string &directory) {
    for (const std::string &word : setting_words()) {
        if (random.once_in(8)) {
            const std::string name = setting_of_word(word)->name;
            items[directory + name] = random_value(random, name);
        }
    }
}

void add_servers(Random &random, Items &items, const Protocol &protocol, const std::string &owner,
                 const std::string &directory) {
    const std::vector<std::string> hosts{"192.0.2.1", "192.0.2.2", "2001:db8::1", "::1", "name"};
    uint32_t index = 0;
    for (uint32_t n = random.below(4); n > 0; --n) {
        index += random.once_in(4) ? random.below(20) : 1;
        char text[16];
        std::snprintf(text, sizeof text, random.once_in(12) ? "0x%02x" : "0x%x", index);
        std::string entry = random.one_of(hosts);
        Item item = number_item(random.once_in(12) ? 2 : 1);
        if (protocol.is_radius() && !random.once_in(8)) {
            entry +=
                "," + std::to_string(random.below(3) + 1812) + "," + std::to_string(random.below(3) + 1813);
        } else if (random.once_in(3)) {
            entry += ",0x31/";
            item = {SYSDB_TYPE_DIRECTORY, {}};
        }
        items[owner + directory + text + "/" + entry] = item;
        add_settings(random, items, owner + "settings/" + entry.substr(0, entry.find('/')) + "/");
    }
}

Items random_items(Random &random) {
    Items items;
    for (const Protocol &protocol : kProtocols) {
        for (uint32_t n = random.below(3); n > 0; --n) {
            const std::string owner =
                kRoot + "group-server/" + protocol.word + "/" + random.one_of(kNames) + protocol.word + "/";
            add_servers(random, items, protocol, owner, "server/");
            add_servers(random, items, protocol, owner, "server-private/");
            add_settings(random, items, owner + "settings/");
            items[owner + "server/"] = {SYSDB_TYPE_DIRECTORY, {}};
        }
        const std::string owner = kRoot + protocol.word + "/";
        add_servers(random, items, protocol, owner, "host/");
        add_settings(random, items, owner + "settings/");
    }
    for (uint32_t n = random.below(6); n > 0; --n) {
        const std::string &function = random.one_of(list_functions());
        std::vector<TupleField> fields;
        std::vector<TupleField> names;
        if (function == "accounting") {
            fields = {{false, 0, {}},
                      {false, random.once_in(8) ? 1 : 0, {}},
                      {false, random.once_in(2) ? 1 : 0, {}}};
        }
        const uint32_t methods = random.below(5);
        for (uint32_t i = 0; i < 4; ++i) {
            const uint32_t method = i < methods ? random.below(18) : 0;
            fields.push_back({false, static_cast<int32_t>(method), {}});
            names.push_back({true, 0, method == 10 ? random.one_of(kNames) : ""});
        }
        fields.insert(fields.end(), names.begin(), names.end());
        items[kRoot + function + "/login/" + random.one_of(kNames)] = tuple_item(fields);
    }
    for (uint32_t n = random.below(3); n > 0; --n) {
        items[kRoot + "site/" + random.one_of(kNames)] = random_item(random);
    }
    // The database lists a directory as an item only while it is empty.
    for (auto at = items.begin(); at != items.end();) {
        const auto next = std::next(at);
        const bool filled =
            at->first.ends_with('/') && next != items.end() && next->first.starts_with(at->first);
        at = filled ? items.erase(at) : next;
    }
    return items;
}

TEST(RunningConfig, EveryConfigurationSurvivesTheRoundTrip) {
    size_t worded = 0;
    size_t all = 0;
    for (uint32_t seed = 1; seed <= 500; ++seed) {
        Random random(seed);
        const Items items = random_items(random);
        const Statements statements = statements_of(items);
        const std::string text = text_of(statements);
        ASSERT_EQ(parse_statements(text), statements) << "seed " << seed << "\n" << text;
        ApplyOptions options = plain_options();
        options.force = true;
        ASSERT_EQ(apply(parse_statements(text), {}, options).items, items) << "seed " << seed << "\n" << text;
        ASSERT_EQ(apply(statements, items, options).items, items) << "seed " << seed << "\n" << text;
        all += statements.size();
        worded += static_cast<size_t>(
            std::count_if(statements.begin(), statements.end(), [](const Statement &statement) {
                return !std::holds_alternative<ItemStatement>(statement.what);
            }));
    }
    EXPECT_GT(worded * 4, all) << "the words are tested too";
}

}  // namespace
