// SPDX-License-Identifier: Apache-2.0
//
// Requests are put together as text: their keys and values are base64, which needs no quoting.

#include "gateway/messages.hpp"

#include <charconv>

#include <nlohmann/json.hpp>

#include "gateway/base64.hpp"

namespace sysdb_etcd {
namespace {

using Json = nlohmann::json;

// No reply of the gateway is deeper; the parser's recursion is bounded by the library.
constexpr int kDeepest = 16;
// The largest page of keys has a tenth of them.
constexpr std::size_t kMostValues = std::size_t{4} << 20;

void append_member(std::string &text, const char *name, std::string_view bytes) {
    text += text.ends_with('{') ? "\"" : ",\"";
    text += name;
    text += "\":\"";
    append_base64(text, bytes);
    text += '"';
}

void append_member(std::string &text, const char *name, std::uint64_t number) {
    text += text.ends_with('{') ? "\"" : ",\"";
    text += name;
    text += "\":\"" + std::to_string(number) + '"';
}

void separate(std::string &list) {
    if (!list.empty()) {
        list += ',';
    }
}

// ---- reading

bool parse(std::string_view text, Json &json) {
    const auto shallow = [](int depth, Json::parse_event_t, Json &) { return depth <= kDeepest; };
    json = Json::parse(text.begin(), text.end(), shallow, false);
    return json.is_object();
}

const Json *member_of(const Json &json, const char *name) {
    const auto found = json.find(name);
    return found != json.end() && !found->is_null() ? &*found : nullptr;
}

// A number that is missing is 0.
bool read_number(const Json &json, const char *name, std::uint64_t &number) {
    number = 0;
    const Json *member = member_of(json, name);
    if (member == nullptr) {
        return true;
    }
    if (member->is_number_unsigned()) {
        number = member->get<std::uint64_t>();
        return true;
    }
    if (!member->is_string()) {
        return false;
    }
    const std::string &text = member->get_ref<const std::string &>();
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

bool read_truth(const Json &json, const char *name, bool &truth) {
    const Json *member = member_of(json, name);
    truth = member != nullptr && member->is_boolean() && member->get<bool>();
    return member == nullptr || member->is_boolean();
}

bool read_text(const Json &json, const char *name, std::string &text) {
    text.clear();
    const Json *member = member_of(json, name);
    if (member == nullptr) {
        return true;
    }
    if (member->is_string()) {
        text = member->get_ref<const std::string &>();
    }
    return member->is_string();
}

bool read_bytes(const Json &json, const char *name, std::string &bytes) {
    const Json *member = member_of(json, name);
    bytes.clear();
    return member == nullptr ||
           (member->is_string() && decode_base64(member->get_ref<const std::string &>(), bytes));
}

bool read_header(const Json &json, Header &header) {
    const Json *member = member_of(json, "header");
    return member != nullptr && member->is_object() && read_number(*member, "cluster_id", header.cluster) &&
           read_number(*member, "member_id", header.member) &&
           read_number(*member, "revision", header.revision);
}

bool read_item(const Json &json, KeyValue &item) {
    return json.is_object() && read_bytes(json, "key", item.key) && !item.key.empty() &&
           read_bytes(json, "value", item.value) && read_number(json, "mod_revision", item.mod_revision) &&
           item.mod_revision != 0;
}

// call(element) for each of a list that may be missing.
template <typename Call>
bool read_list(const Json &json, const char *name, Call call) {
    const Json *list = member_of(json, name);
    if (list == nullptr) {
        return true;
    }
    if (!list->is_array()) {
        return false;
    }
    for (const Json &element : *list) {
        if (!call(element)) {
            return false;
        }
    }
    return true;
}

bool read_items(const Json &json, std::vector<KeyValue> &items) {
    return read_list(json, "kvs",
                     [&items](const Json &element) { return read_item(element, items.emplace_back()); });
}

bool read_event(const Json &json, WatchEvent &event) {
    std::string type;
    if (!json.is_object() || !read_text(json, "type", type) ||
        (!type.empty() && type != "PUT" && type != "DELETE")) {
        return false;
    }
    event.deleted = type == "DELETE";
    const Json *item = member_of(json, "kv");
    return item != nullptr && read_item(*item, event.item);
}

}  // namespace

std::string end_of_prefix(std::string_view prefix) {
    std::string end(prefix);
    end.back() = static_cast<char>(static_cast<unsigned char>(end.back()) + 1);
    return end;
}

std::string range_request(const RangeQuery &query) {
    std::string text = "{";
    append_member(text, "key", query.key);
    if (!query.end.empty()) {
        append_member(text, "range_end", query.end);
    }
    if (query.revision != 0) {
        append_member(text, "revision", query.revision);
    }
    if (query.limit != 0) {
        append_member(text, "limit", query.limit);
    }
    text += query.count_only ? ",\"count_only\":true" : "";
    return text + (query.keys_only ? ",\"keys_only\":true}" : "}");
}

std::string watch_request(std::string_view key, std::string_view end, std::uint64_t first_revision) {
    std::string text = "{\"create_request\":{";
    append_member(text, "key", key);
    append_member(text, "range_end", end);
    append_member(text, "start_revision", first_revision);
    return text + ",\"progress_notify\":true}}";
}

std::string lease_request(std::uint32_t seconds) {
    std::string text = "{";
    append_member(text, "TTL", std::uint64_t{seconds});
    return text + '}';
}

std::string authenticate_request(const std::string &name, const std::string &password) {
    return Json{{"name", name}, {"password", password}}.dump(-1, ' ', true, Json::error_handler_t::replace);
}

void TxnRequest::compare(std::string_view key, std::uint64_t mod_revision) {
    separate(compare_);
    compare_ += "{\"target\":\"MOD\",\"result\":\"EQUAL\"";
    append_member(compare_, "key", key);
    append_member(compare_, "mod_revision", mod_revision);
    compare_ += '}';
    ++comparisons_;
}

void TxnRequest::compare_older(std::string_view key, std::string_view end, std::uint64_t revision) {
    separate(compare_);
    compare_ += "{\"target\":\"MOD\",\"result\":\"LESS\"";
    append_member(compare_, "key", key);
    append_member(compare_, "range_end", end);
    append_member(compare_, "mod_revision", revision);
    compare_ += '}';
    ++comparisons_;
}

void TxnRequest::put(std::string_view key, std::string_view value, std::uint64_t lease) {
    separate(success_);
    success_ += "{\"request_put\":{";
    append_member(success_, "key", key);
    append_member(success_, "value", value);
    if (lease != 0) {
        append_member(success_, "lease", lease);
    }
    success_ += "}}";
    ++operations_;
}

void TxnRequest::erase(std::string_view key, std::string_view end) {
    separate(success_);
    success_ += "{\"request_delete_range\":{";
    append_member(success_, "key", key);
    if (!end.empty()) {
        append_member(success_, "range_end", end);
    }
    success_ += "}}";
    ++operations_;
}

void TxnRequest::otherwise(std::string_view key) {
    separate(failure_);
    failure_ += "{\"request_range\":{";
    append_member(failure_, "key", key);
    failure_ += "}}";
}

std::string TxnRequest::text() const {
    return "{\"compare\":[" + compare_ + "],\"success\":[" + success_ + "],\"failure\":[" + failure_ + "]}";
}

// What begins or separates values, outside of their texts.
std::string excess_of(std::string_view text) {
    std::size_t values = 0;
    int depth = 0;
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            quoted = !quoted;
        } else if (quoted) {
            i += c == '\\' ? 1 : 0;
        } else if (c == '[' || c == '{') {
            ++values;
            if (++depth > kDeepest) {
                return "the server's reply is nested more than " + std::to_string(kDeepest) + " deep";
            }
        } else if (c == ']' || c == '}') {
            --depth;
        } else if (c == ',' || c == ':') {
            ++values;
        }
        if (values > kMostValues) {
            return "the server's reply has more than " + std::to_string(kMostValues) + " values";
        }
    }
    return {};
}

bool parse_range(std::string_view text, RangeReply &reply) {
    Json json;
    return parse(text, json) && read_header(json, reply.header) && read_truth(json, "more", reply.more) &&
           read_items(json, reply.items);
}

bool parse_txn(std::string_view text, TxnReply &reply) {
    Json json;
    return parse(text, json) && read_header(json, reply.header) && reply.header.revision != 0 &&
           read_truth(json, "succeeded", reply.succeeded) &&
           read_list(json, "responses", [&reply](const Json &element) {
               const Json *range = element.is_object() ? member_of(element, "response_range") : nullptr;
               return element.is_object() &&
                      (range == nullptr || (range->is_object() && read_items(*range, reply.read)));
           });
}

bool parse_watch(std::string_view text, WatchReply &reply) {
    Json json;
    if (!parse(text, json)) {
        return false;
    }
    const Json *error = member_of(json, "error");
    if (error != nullptr) {
        reply.canceled = true;
        return error->is_object() ? read_text(*error, "message", reply.reason)
                                  : read_text(json, "error", reply.reason);
    }
    const Json *result = member_of(json, "result");
    return result != nullptr && result->is_object() && read_header(*result, reply.header) &&
           read_truth(*result, "created", reply.created) && read_truth(*result, "canceled", reply.canceled) &&
           read_number(*result, "compact_revision", reply.compact_revision) &&
           read_text(*result, "cancel_reason", reply.reason) &&
           read_list(*result, "events", [&reply](const Json &element) {
               return read_event(element, reply.events.emplace_back());
           });
}

bool parse_lease(std::string_view text, std::uint64_t &lease) {
    Json json;
    return parse(text, json) && read_number(json, "ID", lease) && lease != 0;
}

bool parse_token(std::string_view text, std::string &token) {
    Json json;
    if (!parse(text, json) || !read_text(json, "token", token) || token.empty()) {
        return false;
    }
    // It becomes a line of the next request's head.
    for (const char c : token) {
        if (c <= ' ' || c > '~') {
            return false;
        }
    }
    return true;
}

bool parse_status(std::string_view text, StatusReply &reply) {
    Json json;
    return parse(text, json) && read_header(json, reply.header) &&
           read_text(json, "version", reply.version) && read_number(json, "leader", reply.leader) &&
           read_number(json, "dbSize", reply.size);
}

bool parse_members(std::string_view text, std::vector<Member> &members) {
    Json json;
    return parse(text, json) && read_list(json, "members", [&members](const Json &element) {
               Member &member = members.emplace_back();
               return element.is_object() && read_number(element, "ID", member.id) &&
                      read_text(element, "name", member.name) &&
                      read_list(element, "clientURLs", [&member](const Json &url) {
                          if (url.is_string()) {
                              member.urls.push_back(url.get_ref<const std::string &>());
                          }
                          return url.is_string();
                      });
           });
}

bool parse_error(std::string_view text, ErrorReply &reply) {
    Json json;
    std::uint64_t code = 0;
    if (!parse(text, json) || !read_number(json, "code", code) || code == 0 || code > 16 ||
        !read_text(json, "message", reply.message)) {
        return false;
    }
    reply.code = static_cast<int>(code);
    return true;
}

}  // namespace sysdb_etcd
