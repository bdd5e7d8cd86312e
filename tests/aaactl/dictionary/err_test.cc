// SPDX-License-Identifier: Apache-2.0
//
// aaactl err: every code has a row, and the statements about the library are true.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>

#include "aaa/result_codes.h"
#include "aaactl/support/program_run.hpp"

namespace {

using aaactl_test::aaactl;

struct Row {
    const char *name;
    const char *text;
};

constexpr Row kTable[] = {
#define AAA_RESULT_CODE(index, name, text) {#name, text},
#include "aaa/result_codes.def"
};

TEST(Err, HasCauseAndRemedyForEveryCode) {
    const auto codes = aaactl({"err", "--list", "--json"}).json()["codes"];
    ASSERT_GT(codes.size(), std::size(kTable));
    for (size_t i = 0; i < std::size(kTable); ++i) {
        EXPECT_EQ(codes[i]["name"], kTable[i].name);
        EXPECT_EQ(codes[i]["text"], kTable[i].text);
        EXPECT_EQ(codes[i]["code"], i == 0 ? 0 : AAA_ERR_CODE(i));
    }
    std::set<std::string> causes;
    for (const auto &code : codes) {
        EXPECT_GT(code["cause"].text().size(), 20u) << code;
        EXPECT_GT(code["remedy"].text().size(), 10u) << code;
        causes.insert(code["cause"].text());
    }
    EXPECT_EQ(causes.size(), codes.size()) << "each has a different cause";
}

struct PlatformCode {
    uint32_t code;
    const char *text;
};

constexpr PlatformCode kPlatform[] = {
#define PLATFORM_CODE(name, code, text) {code, text},
#include "platform/linux/platform_codes.def"
};

TEST(Err, HasCauseAndRemedyForEveryCodeOfThePlatform) {
    const auto codes = aaactl({"err", "--list", "--json"}).json()["codes"];
    std::map<uint64_t, std::string> names;
    for (const auto &code : codes) {
        EXPECT_TRUE(names.emplace(code["code"].number(), code["name"].text()).second) << code["name"];
    }
    for (const PlatformCode &row : kPlatform) {
        ASSERT_TRUE(names.contains(row.code)) << row.text;
        const auto by_name = aaactl({"err", names[row.code], "--json"}).json()["codes"][0];
        EXPECT_EQ(by_name["code"], row.code) << names[row.code];
        EXPECT_EQ(by_name["text"], row.text);
        const auto by_number = aaactl({"err", std::to_string(row.code), "--json"}).json()["codes"][0];
        EXPECT_EQ(by_number["name"], names[row.code]);
        EXPECT_GT(by_number["remedy"].text().size(), 10u);
    }
    EXPECT_EQ(names.size(), std::size(kTable) + std::size(kPlatform) + 2) << "and two more of the library";
}

// Where a header has a macro of the name, its number is that of the code.
TEST(Err, NamesOfThePlatformsCodesAreThoseOfItsHeaders) {
    const std::regex macro("#define ((?:SYSDB|EVENT)_ERR_[A-Z_]+) +(0x[0-9a-f]{8})u");
    size_t found = 0;
    for (const char *header : {"sysdb.h", "sysdb_changes.h", "event_manager.h"}) {
        std::ifstream in(std::string(AAA_SOURCE_DIR "/platform/include/platform/") + header);
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        for (std::sregex_iterator it(text.begin(), text.end(), macro), end; it != end; ++it) {
            const auto code = aaactl({"err", (*it)[1], "--json"}).json()["codes"][0];
            EXPECT_EQ(code["hex"], (*it)[2].str()) << (*it)[1];
            ++found;
        }
    }
    EXPECT_GE(found, 24u);
}

// Names of codes that the library's sources return or compare with.
std::set<std::string> names_in_the_library() {
    std::set<std::string> names;
    const std::regex name(
        "\\b(AAA_ERR_[A-Z_]+|AAA_STATUS_END_OF_LIST|AAA_OK|SYSDB_ERR_[A-Z_]+|EVENT_CONN_RETRY|"
        "LINE_NO_CONTROLLING_TTY)\\b");
    for (const auto &entry : std::filesystem::directory_iterator(AAA_SOURCE_DIR "/aaa/lib/util/src")) {
        if (!entry.is_regular_file()) {
            continue;
        }
        std::ifstream in(entry.path());
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        for (std::sregex_iterator it(text.begin(), text.end(), name), end; it != end; ++it) {
            names.insert((*it)[1]);
        }
    }
    return names;
}

TEST(Err, KnowsWhichCodesTheLibraryReturns) {
    const auto used = names_in_the_library();
    ASSERT_GT(used.size(), 15u);
    const auto codes = aaactl({"err", "--list", "--json"}).json()["codes"];
    for (const auto &code : codes) {
        EXPECT_EQ(code["by_library"].truth(), used.count(code["name"].text()) == 1) << code["name"];
    }
}

TEST(Err, TakesNumbersAndNames) {
    const auto expected = aaactl({"err", "AAA_ERR_SG_IN_USE"});
    EXPECT_EQ(expected.status, 0);
    EXPECT_NE(expected.out.find("Server group is in use and cannot be deleted"), std::string::npos)
        << expected.out;
    for (const char *form :
         {"0xa2465600", "0XA2465600", "2722518528", "-1572448768", "sg_in_use", "err_sg_in_use"}) {
        EXPECT_EQ(aaactl({"err", form}).out, expected.out) << form;
    }
    const auto two = aaactl({"err", "1", "AAA_OK", "--json"}).json()["codes"];
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0]["text"], "Operation not permitted");
    EXPECT_EQ(two[1]["text"], "Success");
}

TEST(Err, GivesThePlatformsTextForOtherFacilities) {
    const auto event = aaactl({"err", "0xa1201000", "--json"}).json()["codes"][0];
    EXPECT_EQ(event["text"], "Invalid argument passed to the event manager");
    EXPECT_EQ(event["facility"], 0x240);
    EXPECT_EQ(event["name"], "EVENT_ERR_INVALID_ARG");
    EXPECT_FALSE(event["by_library"].truth());
    const auto unknown = aaactl({"err", "0xa1300000", "--json"}).json()["codes"][0];
    EXPECT_TRUE(unknown["name"].is_null());
    EXPECT_FALSE(unknown.contains("cause"));
    EXPECT_NE(aaactl({"err", "HOST_KEYS_UNUSABLE"}).out.find("from    the host platform\n"),
              std::string::npos);
    const auto status = aaactl({"err", "0x22466000", "--json"}).json()["codes"][0];
    EXPECT_EQ(status["name"], "AAA_STATUS_END_OF_LIST");
    EXPECT_EQ(status["severity"], "status");
    EXPECT_EQ(status["text"], "Reached end of AVPair list");
}

TEST(Err, SuggestsTheNameThatWasMeant) {
    EXPECT_NE(aaactl({"err", "timeuot"}).err.find("; did you mean TIMEOUT?"), std::string::npos);
    EXPECT_NE(aaactl({"err", "AAA_ERR_TIMEOUTT"}).err.find("; did you mean AAA_ERR_TIMEOUT?"),
              std::string::npos);
}

TEST(Err, RefusesWhatIsNoCode) {
    for (const char *text : {"nonsense", "0x", "4294967296", "0x1a2465600", "12x", ""}) {
        const auto run = aaactl({"err", text});
        EXPECT_EQ(run.status, 4) << text;
        EXPECT_EQ(run.out, "");
    }
    EXPECT_EQ(aaactl({"err"}).status, 2);
    EXPECT_EQ(aaactl({"err", "--list", "1"}).status, 2);
    EXPECT_EQ(aaactl({"err", "1", "nonsense", "--json"}).json()["error"]["exit"], 4)
        << "nothing is half done";
}

}  // namespace
