// SPDX-License-Identifier: Apache-2.0

#include "control/request.hpp"

#include <gtest/gtest.h>

#include "control/json.hpp"

namespace service {
namespace {

std::string error_of(const std::string &line) {
    std::string error;
    const bool is_read = read_control_request(line, error).has_value();
    EXPECT_EQ(is_read, error.empty()) << line;
    return error;
}

TEST(ControlRequest, ReadsATraceWithItsFilters) {
    std::string error;
    const auto request = read_control_request(
        " {\"version\":1, \"request\" : \"trace\",\"user\":\"\\u00e4 "
        "\\ud83d\\ude00\\n\",\"id\":\"4f1C00a7\",\"mine\":true,"
        "\"after\":0,\"seconds\":900,\"live\":false}\r",
        error);
    ASSERT_TRUE(request) << error;
    EXPECT_EQ(request->kind, ControlRequest::Kind::kTrace);
    EXPECT_EQ(request->user, "\u00e4 \U0001F600\n");
    EXPECT_EQ(request->id, 0x4f1c00a7u);
    EXPECT_TRUE(request->mine);
    EXPECT_EQ(request->after, 0u);
    EXPECT_EQ(request->seconds, 900u);
    EXPECT_FALSE(request->live);
}

TEST(ControlRequest, NeedsTheRequestOnly) {
    for (const char *word : {"status", "servers", "sessions", "accounting", "trace", "capture"}) {
        std::string error;
        const auto request = read_control_request(std::string("{\"request\":\"") + word + "\"}", error);
        ASSERT_TRUE(request) << error;
        EXPECT_STREQ(request_word(request->kind), word);
        EXPECT_TRUE(request->live);
    }
}

TEST(ControlRequest, SaysWhatIsWrong) {
    EXPECT_EQ(error_of(""), "a JSON object is missing at byte 1");
    EXPECT_EQ(error_of("{}"), "the member \"request\" is missing");
    EXPECT_NE(error_of("{\"request\":\"reboot\"}").find("use status, servers,"), std::string::npos);
    EXPECT_NE(error_of("{\"request\":\"trace\",\"usr\":\"ann\"}").find("not known"), std::string::npos)
        << "a misspelt filter must not show everyone";
    EXPECT_NE(error_of("{\"request\":\"status\",\"user\":\"ann\"}").find("only a trace"), std::string::npos);
    EXPECT_NE(error_of("{\"request\":\"status\",\"version\":2}").find("version 1"), std::string::npos);
    EXPECT_NE(error_of("{\"request\":\"trace\",\"id\":\"xyz\"}").find("hexadecimal"), std::string::npos);
    EXPECT_NE(error_of("{\"request\":\"trace\",\"id\":\"11112222333344445\"}").find("hexadecimal"),
              std::string::npos);
    EXPECT_NE(error_of("{\"request\":\"trace\",\"after\":\"1\"}").find("another type"), std::string::npos);
    EXPECT_NE(error_of("{\"request\":1}").find("another type"), std::string::npos);
}

TEST(ControlRequest, ACaptureHoldsNoMoreThanIsAskedFor) {
    std::string error;
    auto request = read_control_request("{\"user\":\"ann\",\"request\":\"capture\"}", error);
    ASSERT_TRUE(request) << error;
    EXPECT_EQ(request->user, "ann");
    EXPECT_FALSE(request->secrets || request->servers || request->keys);
    request = read_control_request(
        "{\"request\":\"capture\",\"secrets\":true,\"servers\":true,\"keys\":true}", error);
    ASSERT_TRUE(request) << error;
    EXPECT_TRUE(request->secrets && request->servers && request->keys);
    EXPECT_NE(error_of("{\"request\":\"capture\",\"keys\":true}").find("ask for servers"), std::string::npos);
    EXPECT_NE(
        error_of("{\"request\":\"capture\",\"servers\":true,\"user\":\"ann\"}").find("leave out the user"),
        std::string::npos);
    EXPECT_NE(error_of("{\"request\":\"capture\",\"seconds\":1}").find("a capture has"), std::string::npos);
    EXPECT_NE(error_of("{\"request\":\"trace\",\"secrets\":true}").find("a trace has"), std::string::npos);
}

TEST(ControlRequest, RefusesWhatIsNoFlatObject) {
    for (const char *line : {"[]",
                             "nonsense",
                             "{\"request\"}",
                             "{\"request\":}",
                             "{\"request\":\"status\"",
                             "{\"request\":\"status\",}",
                             "{\"request\":\"status\"} x",
                             "{\"request\":[\"status\"]}",
                             "{\"request\":{}}",
                             "{\"request\":null}",
                             "{\"request\":\"status\",\"request\":\"status\"}",
                             "{\"request\":\"sta\ttus\"}",
                             "{\"request\":\"status}",
                             "{\"request\":\"\\x\"}",
                             "{\"request\":\"\\u12\"}",
                             "{\"request\":\"\\ud800\"}",
                             "{\"request\":\"\\udc00\"}",
                             "{\"request\":\"\\ud800\\u0041\"}",
                             "{\"request\":\"\xff\"}",
                             "{\"request\":\"\xc0\xaf\"}",
                             "{\"request\":\"\xed\xa0\x80\"}",
                             "{\"request\":\"trace\",\"after\":-1}",
                             "{\"request\":\"trace\",\"after\":1.5}",
                             "{\"request\":\"trace\",\"after\":01}",
                             "{\"request\":\"trace\",\"after\":1000000000000000000000}",
                             "{request:\"status\"}",
                             "{,}",
                             "\\",
                             "{\""}) {
        EXPECT_FALSE(error_of(line).empty()) << line;
    }
    std::string many = "{\"request\":\"trace\"";
    for (int i = 0; i < 100; ++i) {
        many += ",\"" + std::to_string(i) + "\":1";
    }
    EXPECT_NE(error_of(many + "}").find("more than 32"), std::string::npos);
}

TEST(ControlRequest, ErrorsQuoteNothing) {
    EXPECT_EQ(error_of("{\"request\":\"hunter2\"}").find("hunter2"), std::string::npos);
    EXPECT_EQ(error_of("{\"hunter2\":\"hunter2\"}").find("hunter2"), std::string::npos);
    EXPECT_EQ(error_of("hunter2").find("hunter2"), std::string::npos);
}

TEST(JsonWriter, WritesOneLineOfAnyBytes) {
    JsonWriter out;
    out.begin().text("a\"b", "x\ny\\\"\x01\x7f\xff\u00e4").number("n", -5).truth("t", true);
    out.begin_array("list").begin().end().begin().number("m", 1).end().end_array();
    EXPECT_EQ(out.begin("o").end().end().line(),
              "{\"a\\\"b\":\"x\\u000ay\\\\\\\"\\u0001\\u007f\xef\xbf\xbd\u00e4\",\"n\":-5,\"t\":true,"
              "\"list\":[{},{\"m\":1}],"
              "\"o\":{}}\n");
}

}  // namespace
}  // namespace service
