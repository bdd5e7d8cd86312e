// SPDX-License-Identifier: Apache-2.0
//
// Requests and replies of the gateway. A reply may be anything: it comes from another machine.

#include "gateway/messages.hpp"

#include <gtest/gtest.h>

#include "gateway/base64.hpp"

namespace {

using namespace sysdb_etcd;

std::string base64(std::string_view bytes) {
    std::string text;
    append_base64(text, bytes);
    return text;
}

TEST(EtcdBase64, FollowsTheRfc) {
    const std::pair<const char *, const char *> pairs[] = {{"", ""},
                                                           {"f", "Zg=="},
                                                           {"fo", "Zm8="},
                                                           {"foo", "Zm9v"},
                                                           {"foob", "Zm9vYg=="},
                                                           {"fooba", "Zm9vYmE="},
                                                           {"foobar", "Zm9vYmFy"}};
    for (const auto &[bytes, text] : pairs) {
        EXPECT_EQ(text, base64(bytes));
        std::string decoded = "before";
        EXPECT_TRUE(decode_base64(text, decoded));
        EXPECT_EQ(bytes, decoded);
    }
}

TEST(EtcdBase64, KeepsEveryByte) {
    std::string all;
    for (int i = 0; i < 256; ++i) {
        all += static_cast<char>(i);
        std::string decoded;
        EXPECT_TRUE(decode_base64(base64(all), decoded));
        EXPECT_EQ(all, decoded);
    }
}

TEST(EtcdBase64, RefusesWhatIsNot) {
    for (const char *text : {"Z", "Zg", "Zg=", "Zg===", "Z===", "====", "Zm9v=", "Zm9vY===", "Zm 9", "Zm9\n",
                             "Zm9-", "Zh==", "Zm9=", "=Zg=", "Z=g="}) {
        std::string decoded;
        EXPECT_FALSE(decode_base64(text, decoded)) << text;
    }
}

TEST(EtcdRequests, HaveTheGatewaysForm) {
    EXPECT_EQ("{\"key\":\"YQ==\"}", range_request({"a", "", 0, 0, false}));
    EXPECT_EQ(
        "{\"key\":\"YQ==\",\"range_end\":\"Yg==\",\"revision\":\"7\",\"limit\":\"5\",\"count_only\":true}",
        range_request({"a", "b", 7, 5, true}));
    EXPECT_EQ(
        "{\"create_request\":{\"key\":\"YQ==\",\"range_end\":\"Yg==\",\"start_revision\":\"8\","
        "\"progress_notify\":true}}",
        watch_request("a", "b", 8));
    EXPECT_EQ("{\"name\":\"a\\\"b\",\"password\":\"\\u00e4\\\\\"}",
              authenticate_request("a\"b", "\xc3\xa4\\"));
    EXPECT_EQ("/aaa0", end_of_prefix("/aaa/"));
}

TEST(EtcdRequests, TransactionsCountTheirOperations) {
    TxnRequest txn;
    EXPECT_EQ("{\"compare\":[],\"success\":[],\"failure\":[]}", txn.text());
    txn.compare("a", 3);
    txn.compare_older("b/", "b0", 4);
    txn.put("a", "v");
    txn.erase("b");
    txn.erase("c", "d");
    txn.otherwise("a");
    EXPECT_EQ(
        "{\"compare\":[{\"target\":\"MOD\",\"result\":\"EQUAL\",\"key\":\"YQ==\",\"mod_revision\":\"3\"},"
        "{\"target\":\"MOD\",\"result\":\"LESS\",\"key\":\"Yi8=\",\"range_end\":\"YjA=\",\"mod_revision\":"
        "\"4\"}],"
        "\"success\":[{\"request_put\":{\"key\":\"YQ==\",\"value\":\"dg==\"}},"
        "{\"request_delete_range\":{\"key\":\"Yg==\"}},"
        "{\"request_delete_range\":{\"key\":\"Yw==\",\"range_end\":\"ZA==\"}}],"
        "\"failure\":[{\"request_range\":{\"key\":\"YQ==\"}}]}",
        txn.text());
    EXPECT_EQ(3u, txn.operations());
}

// As etcd 3.4 wrote them.
constexpr char kHeader[] =
    R"("header":{"cluster_id":"14443903163313418560","member_id":"11417610130673999598","revision":"3","raft_term":"2"})";

std::string with_header(const std::string &rest) {
    return std::string("{") + kHeader + rest + "}";
}

TEST(EtcdReplies, RangesAreRead) {
    RangeReply reply;
    ASSERT_TRUE(parse_range(
        with_header(
            R"(,"kvs":[{"key":"YQ==","create_revision":"2","mod_revision":"2","version":"1","value":"dg=="},)"
            R"({"key":"Yg==","mod_revision":"18446744073709551615"}],"more":true,"count":"9")"),
        reply));
    EXPECT_EQ(14443903163313418560u, reply.header.cluster);
    EXPECT_EQ(11417610130673999598u, reply.header.member);
    EXPECT_EQ(3u, reply.header.revision);
    ASSERT_EQ(2u, reply.items.size());
    EXPECT_EQ("a", reply.items[0].key);
    EXPECT_EQ("v", reply.items[0].value);
    EXPECT_EQ(2u, reply.items[0].mod_revision);
    EXPECT_EQ("", reply.items[1].value);
    EXPECT_EQ(UINT64_MAX, reply.items[1].mod_revision);
    EXPECT_TRUE(reply.more);
}

TEST(EtcdReplies, TransactionsAreRead) {
    TxnReply reply;
    ASSERT_TRUE(parse_txn(
        with_header(R"(,"succeeded":true,"responses":[{"response_put":{"header":{"revision":"2"}}}])"),
        reply));
    EXPECT_TRUE(reply.succeeded);
    reply = {};
    ASSERT_TRUE(parse_txn(
        with_header(
            R"(,"responses":[{"response_range":{"header":{},"kvs":[{"key":"YQ==","mod_revision":"2","value":"dg=="}]}}])"),
        reply));
    EXPECT_FALSE(reply.succeeded);
    ASSERT_EQ(1u, reply.read.size());
    EXPECT_EQ("a", reply.read[0].key);
}

TEST(EtcdReplies, StreamsAreRead) {
    WatchReply reply;
    ASSERT_TRUE(parse_watch("{\"result\":" + with_header(R"(,"created":true)") + "}", reply));
    EXPECT_TRUE(reply.created);
    reply = {};
    ASSERT_TRUE(
        parse_watch("{\"result\":" +
                        with_header(R"(,"events":[{"kv":{"key":"YQ==","mod_revision":"2","value":"dg=="}},)"
                                    R"({"type":"DELETE","kv":{"key":"Yg==","mod_revision":"3"}}])") +
                        "}",
                    reply));
    ASSERT_EQ(2u, reply.events.size());
    EXPECT_FALSE(reply.events[0].deleted);
    EXPECT_TRUE(reply.events[1].deleted);
    EXPECT_EQ("b", reply.events[1].item.key);
    reply = {};
    ASSERT_TRUE(
        parse_watch("{\"result\":" + with_header(R"(,"canceled":true,"compact_revision":"3")") + "}", reply));
    EXPECT_TRUE(reply.canceled);
    EXPECT_EQ(3u, reply.compact_revision);
    reply = {};
    ASSERT_TRUE(parse_watch(R"({"error":{"grpc_code":14,"message":"no leader"}})", reply));
    EXPECT_TRUE(reply.canceled);
    EXPECT_EQ("no leader", reply.reason);
}

TEST(EtcdReplies, OthersAreRead) {
    std::string token;
    EXPECT_TRUE(parse_token(with_header(R"(,"token":"abc.12")"), token));
    EXPECT_EQ("abc.12", token);
    StatusReply status;
    ASSERT_TRUE(parse_status(with_header(R"(,"version":"3.4.23","dbSize":"20480","leader":"5")"), status));
    EXPECT_EQ("3.4.23", status.version);
    EXPECT_EQ(5u, status.leader);
    std::vector<Member> members;
    ASSERT_TRUE(parse_members(
        with_header(R"(,"members":[{"ID":"5","name":"n1","clientURLs":["http://a:1"]}])"), members));
    EXPECT_EQ("n1", members.at(0).name);
    EXPECT_EQ("http://a:1", members.at(0).urls.at(0));
    ErrorReply error;
    ASSERT_TRUE(parse_error(R"({"error":"x","message":"etcdserver: request is too large","code":3})", error));
    EXPECT_EQ(3, error.code);
    EXPECT_EQ("etcdserver: request is too large", error.message);
}

// A token becomes a line of the next request's head.
TEST(EtcdReplies, TokensCannotAddALine) {
    std::string token;
    EXPECT_FALSE(parse_token(R"({"token":"a\r\nX: b"})", token));
    EXPECT_FALSE(parse_token(R"({"token":"a b"})", token));
    EXPECT_FALSE(parse_token(R"({"token":""})", token));
    EXPECT_FALSE(parse_token(R"({})", token));
}

TEST(EtcdReplies, MalformedOnesAreRefused) {
    const std::string bad[] = {
        "",
        "{",
        "[]",
        "null",
        "1",
        "{}",
        "{\"header\":1}",
        "{\"header\":{\"revision\":\"x\"}}",
        "{\"header\":{\"revision\":\"-1\"}}",
        "{\"header\":{\"revision\":\"18446744073709551616\"}}",
        "{\"header\":{\"revision\":1.5}}",
        with_header(",\"more\":1"),
        with_header(",\"kvs\":1"),
        with_header(",\"kvs\":[1]"),
        with_header(",\"kvs\":[{}]"),
        with_header(R"(,"kvs":[{"key":"YQ=="}])"),
        with_header(R"(,"kvs":[{"key":"Y","mod_revision":"1"}])"),
        with_header(R"(,"kvs":[{"key":"YQ==","value":7,"mod_revision":"1"}])"),
        with_header(R"(,"kvs":[{"key":"","mod_revision":"1"}])"),
        std::string(100000, '['),
        with_header(",\"kvs\":" + std::string(100000, '[') + std::string(100000, ']'))};
    for (const std::string &text : bad) {
        RangeReply range;
        EXPECT_FALSE(parse_range(text, range)) << text.substr(0, 200);
    }
    for (const char *text : {"", "{}", "{\"result\":{}}", "{\"result\":1}", "{\"error\":1}"}) {
        WatchReply watch;
        EXPECT_FALSE(parse_watch(text, watch)) << text;
    }
    for (const char *rest :
         {",\"succeeded\":\"yes\"", ",\"responses\":[1]", ",\"responses\":[{\"response_range\":1}]"}) {
        TxnReply txn;
        EXPECT_FALSE(parse_txn(with_header(rest), txn)) << rest;
    }
    WatchReply watch;
    EXPECT_FALSE(parse_watch(
        "{\"result\":" +
            with_header(R"(,"events":[{"type":"MOVE","kv":{"key":"YQ==","mod_revision":"1"}}])") + "}",
        watch));
    ErrorReply error;
    for (const char *text : {"Not Found", "{}", "{\"code\":0}", "{\"code\":17}", "{\"code\":\"x\"}"}) {
        EXPECT_FALSE(parse_error(text, error)) << text;
    }
}

// Every cut of a reply is refused or read without harm.
TEST(EtcdReplies, CutOnesAreRefused) {
    const std::string whole =
        with_header(R"(,"kvs":[{"key":"YQ==","mod_revision":"2","value":"dg=="}],"more":true)");
    for (std::size_t size = 0; size < whole.size(); ++size) {
        RangeReply range;
        EXPECT_FALSE(parse_range(whole.substr(0, size), range)) << size;
    }
}

}  // namespace
