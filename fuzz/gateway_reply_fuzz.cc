// SPDX-License-Identifier: Apache-2.0
//
// Replies of a server of the configuration on many nodes, and the lines of a watch. The first byte chooses
// the reader. What it takes holds what its users rely on, and means the same when another writer writes it
// again, in the form that servers have. Of an HTTP status and any body, only printable text is shown.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz_input.hpp"
#include "gateway/base64.hpp"
#include "gateway/client.hpp"
#include "gateway/messages.hpp"

namespace {

using namespace sysdb_etcd;
using nlohmann::json;

// Numbers of 64 bits are texts.
std::string number(std::uint64_t value) {
    return std::to_string(value);
}

// Written with bits and not by bytes, unlike the one under test.
std::string base64(const std::string &bytes) {
    constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : bytes) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (count += 8; count >= 6; count -= 6) {
            text += kAlphabet[bits >> (count - 6) & 63];
        }
    }
    if (count > 0) {
        text += kAlphabet[bits << (6 - count) & 63];
    }
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

json head_of(const Header &header) {
    return {{"cluster_id", number(header.cluster)},
            {"member_id", number(header.member)},
            {"revision", number(header.revision)}};
}
bool same(const Header &a, const Header &b) {
    return a.cluster == b.cluster && a.member == b.member && a.revision == b.revision;
}

json item_of(const KeyValue &item) {
    return {{"key", base64(item.key)},
            {"value", base64(item.value)},
            {"mod_revision", number(item.mod_revision)}};
}
bool same(const KeyValue &a, const KeyValue &b) {
    return a.key == b.key && a.value == b.value && a.mod_revision == b.mod_revision;
}
bool same(const std::vector<KeyValue> &a, const std::vector<KeyValue> &b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const KeyValue &one, const KeyValue &other) { return same(one, other); });
}
json items_of(const std::vector<KeyValue> &items) {
    json list = json::array();
    for (const KeyValue &item : items) {
        REQUIRE(!item.key.empty() && item.mod_revision != 0);
        list.push_back(item_of(item));
    }
    return list;
}

void range(const std::string &text) {
    RangeReply reply;
    if (!parse_range(text, reply)) {
        return;
    }
    const json again = {
        {"header", head_of(reply.header)}, {"kvs", items_of(reply.items)}, {"more", reply.more}};
    RangeReply second;
    REQUIRE(parse_range(again.dump(), second));
    REQUIRE(same(reply.header, second.header) && same(reply.items, second.items) &&
            reply.more == second.more);
}

void transaction(const std::string &text) {
    TxnReply reply;
    if (!parse_txn(text, reply)) {
        return;
    }
    REQUIRE(reply.header.revision != 0);
    const json again = {{"header", head_of(reply.header)},
                        {"succeeded", reply.succeeded},
                        {"responses", {{{"response_range", {{"kvs", items_of(reply.read)}}}}}}};
    TxnReply second;
    REQUIRE(parse_txn(again.dump(), second));
    REQUIRE(same(reply.header, second.header) && same(reply.read, second.read) &&
            reply.succeeded == second.succeeded);
}

void watch(const std::string &text) {
    WatchReply reply;
    if (!parse_watch(text, reply)) {
        return;
    }
    json events = json::array();
    for (const WatchEvent &event : reply.events) {
        REQUIRE(!event.item.key.empty() && event.item.mod_revision != 0);
        events.push_back({{"type", event.deleted ? "DELETE" : "PUT"}, {"kv", item_of(event.item)}});
    }
    const json again = {{"result",
                         {{"header", head_of(reply.header)},
                          {"created", reply.created},
                          {"canceled", reply.canceled},
                          {"compact_revision", number(reply.compact_revision)},
                          {"cancel_reason", reply.reason},
                          {"events", events}}}};
    WatchReply second;
    REQUIRE(parse_watch(again.dump(), second));
    REQUIRE(same(reply.header, second.header) && reply.created == second.created &&
            reply.canceled == second.canceled && reply.compact_revision == second.compact_revision &&
            reply.reason == second.reason && reply.events.size() == second.events.size());
    for (std::size_t i = 0; i < reply.events.size(); ++i) {
        REQUIRE(reply.events[i].deleted == second.events[i].deleted &&
                same(reply.events[i].item, second.events[i].item));
    }
}

void others(const std::string &text) {
    std::string token;
    if (parse_token(text, token)) {
        // A line of a request's head.
        REQUIRE(!token.empty() && token.find_first_of("\r\n \t") == std::string::npos);
    }
    StatusReply status;
    if (parse_status(text, status)) {
        const json again = {{"header", head_of(status.header)},
                            {"version", status.version},
                            {"leader", number(status.leader)},
                            {"dbSize", number(status.size)}};
        StatusReply second;
        REQUIRE(parse_status(again.dump(), second));
        REQUIRE(same(status.header, second.header) && status.version == second.version &&
                status.leader == second.leader && status.size == second.size);
    }
    std::vector<Member> members;
    if (parse_members(text, members)) {
        json list = json::array();
        for (const Member &member : members) {
            list.push_back({{"ID", number(member.id)}, {"name", member.name}, {"clientURLs", member.urls}});
        }
        std::vector<Member> second;
        REQUIRE(parse_members(json{{"members", list}}.dump(), second));
        REQUIRE(members.size() == second.size());
        for (std::size_t i = 0; i < members.size(); ++i) {
            REQUIRE(members[i].id == second[i].id && members[i].name == second[i].name &&
                    members[i].urls == second[i].urls);
        }
    }
}

void http(const std::string &text, long status, uint8_t kind) {
    HttpResult result;
    result.kind = kind % 3 == 0   ? HttpResult::Kind::kReply
                  : kind % 3 == 1 ? HttpResult::Kind::kNotSent
                                  : HttpResult::Kind::kLost;
    result.status = status;
    result.body = text;
    result.reason = text;
    const Reply reply = reply_of(result);
    REQUIRE((reply.kind == Reply::Kind::kOk) == (kind % 3 == 0 && status == 200));
    REQUIRE(reply.kind != Reply::Kind::kNotSent || kind % 3 == 1);  // it would be sent again
    for (const char c : reply.reason) {
        REQUIRE(c >= ' ' && c <= '~');
    }
    REQUIRE(reply.reason.size() <= 200);
}

void bytes(const std::string &text) {
    std::string decoded;
    if (decode_base64(text, decoded)) {
        REQUIRE(base64(decoded) == text);
    }
    std::string encoded;
    append_base64(encoded, text);
    REQUIRE(encoded == base64(text));
    REQUIRE(decode_base64(encoded, decoded) && decoded == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    switch (input.byte() % 6) {
        case 0:
            range(input.rest());
            break;
        case 1:
            transaction(input.rest());
            break;
        case 2:
            watch(input.rest());
            break;
        case 3:
            others(input.rest());
            break;
        case 4: {
            const uint8_t kind = input.byte();
            const long status = 200 + (kind & 0xf0);
            http(input.rest(), status, kind & 0xf);
            break;
        }
        default:
            bytes(input.rest());
    }
    return 0;
}
