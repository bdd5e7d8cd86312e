// SPDX-License-Identifier: Apache-2.0
//
// aaactl attr: the dictionary, compared with an independent copy.

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "aaa/dictionary.h"
#include "aaactl/support/program_run.hpp"
#include "dictionary/attributes.hpp"

namespace {

using aaactl_test::aaactl;

std::string csv_copy() {
    std::ifstream in(AAA_SOURCE_DIR "/tests/vectors/dictionary.csv", std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(in), {}};
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

TEST(Attr, ExportsCsvThatEqualsTheCopy) {
    const auto run = aaactl({"attr", "export", "--format", "csv"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, csv_copy());
}

TEST(Attr, ExportsEveryAttributeInEveryForm) {
    const auto json = aaactl({"attr", "export", "--format", "json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(json.json()["attributes"].size(), size_t{AAA_ATTR_DEFINED_ROWS});
    EXPECT_EQ(aaactl({"attr", "list", "--json"}).out, json.out);
    const auto text = aaactl({"attr", "export"});
    EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), AAA_ATTR_DEFINED_ROWS + 1);
    EXPECT_EQ(aaactl({"attr", "export", "--format", "xml"}).status, 2);
}

TEST(Attr, ShowsAnAttributeByAnyOfItsNames) {
    const auto expected = aaactl({"attr", "show", "AAA_USERNAME_ATTR"});
    EXPECT_EQ(expected.status, 0);
    EXPECT_NE(expected.out.find("257"), std::string::npos) << expected.out;
    for (const char *name : {"257", "0x101", "username", "aaa_username", "USERNAME_ATTR"}) {
        EXPECT_EQ(aaactl({"attr", "show", name}).out, expected.out) << name;
    }
    const auto document = aaactl({"attr", "show", "password", "--json"}).json();
    EXPECT_EQ(document["type"], 258);
    EXPECT_EQ(document["format"], "string");
    EXPECT_EQ(document["secret"], true);
}

TEST(Attr, ShowsNothingForTypesWithoutAnAttribute) {
    for (const char *name : {"90", "809", "2070", "2071", "4294967296", "-1", "no-such-attribute", ""}) {
        const auto run = aaactl({"attr", "show", name});
        EXPECT_EQ(run.status, 4) << name;
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err, "");
    }
    EXPECT_EQ(aaactl({"attr", "show"}).status, 2);
}

TEST(Attr, SearchesNames) {
    const auto found = aaactl({"attr", "search", "Passwd", "--json"});
    EXPECT_EQ(found.status, 0);
    std::set<std::string> names;
    const auto rows = found.json()["attributes"];
    for (const auto &row : rows) {
        names.insert(row["name"].text());
    }
    EXPECT_EQ(names, (std::set<std::string>{"AAA_CHAP_PASSWD_ATTR", "AAA_ASND_CHANGE_PASSWD_ATTR",
                                            "AAA_ASND_PASSWD_EXPIRY_ATTR", "AAA_ASND_SEND_PASSWD_ATTR"}));
    const auto none = aaactl({"attr", "search", "no such thing"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(aaactl({"attr", "search", "no such thing", "--json"}).json()["attributes"].size(), 0u);
}

TEST(Attr, ListsByFormat) {
    const auto run = aaactl({"attr", "list", "--type", "address", "--json"});
    const auto rows = run.json()["attributes"];
    EXPECT_EQ(rows.size(), 28u);
    for (const auto &row : rows) {
        EXPECT_EQ(row["format"], "address");
    }
    EXPECT_EQ(aaactl({"attr", "list", "--type", "float"}).status, 2);
}

// A new attribute with a secret-sounding name must be added to one of the two lists.
TEST(Attr, EveryNameThatSoundsLikeASecretIsDecidedUpon) {
    const std::set<std::string> shown{
        "AAA_RSA_PUBKEY_TYPE_ATTR", "AAA_PASSWORD_RETRY_ATTR",    "AAA_ASND_PASSWD_EXPIRY_ATTR",
        "AAA_ASND_TOKEN_IDLE_ATTR", "AAA_ASND_TOKEN_EXPIRY_ATTR", "AAA_ACC_ACE_TOKEN_TTL",
        "AAA_VS1_SAVE_PASSWORD",    "AAA_VS1_USER_SAVE_PASSWORD", "AAA_MSCHAP_ERROR_ATTR",
        "AAA_MSCHAP_DOMAIN_ATTR",   "AAA_ASND_PW_LIFETIME_ATTR",
    };
    std::set<std::string> undecided;
    for (const aaa_table_row_t &row : aaa_table) {
        const std::string name = row.name != nullptr ? row.name : "";
        bool sounds = false;
        for (const char *word : {"PASS_", "PASSW", "_PWD", "SECRET", "KEY", "CHAP", "TOKEN", "_PW_"}) {
            sounds = sounds || name.find(word) != std::string::npos;
        }
        if (sounds && aaactl::is_secret(row.type) == (shown.count(name) == 1)) {
            undecided.insert(name);
        }
    }
    EXPECT_EQ(undecided, std::set<std::string>{});
}

TEST(Attr, SuggestsTheNameThatWasMeant) {
    EXPECT_NE(aaactl({"attr", "show", "usernaem"}).err.find("; did you mean USERNAME?"), std::string::npos);
    EXPECT_NE(aaactl({"attr", "show", "AAA_USERNAM_ATTR"}).err.find("; did you mean AAA_USERNAME_ATTR?"),
              std::string::npos);
    EXPECT_EQ(aaactl({"attr", "show", "nothing-like-it"}).err.find("did you mean"), std::string::npos);
}

}  // namespace
