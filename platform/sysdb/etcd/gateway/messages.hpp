// SPDX-License-Identifier: Apache-2.0
//
// Requests and replies of etcd's HTTP/JSON gateway. A reply comes from another machine: every
// reader checks the form of all that it uses, and takes nothing of a reply that is malformed.
//
// The gateway writes 64-bit numbers as strings, bytes as base64, and leaves out what is zero.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sysdb_etcd {

inline constexpr char kRangePath[] = "/v3/kv/range";
inline constexpr char kTxnPath[] = "/v3/kv/txn";
inline constexpr char kWatchPath[] = "/v3/watch";
inline constexpr char kLeasePath[] = "/v3/lease/grant";
inline constexpr char kAuthenticatePath[] = "/v3/auth/authenticate";
inline constexpr char kStatusPath[] = "/v3/maintenance/status";
inline constexpr char kMembersPath[] = "/v3/cluster/member/list";

// The end of the range of all keys that begin with `prefix`, whose last byte is not 0xff.
std::string end_of_prefix(std::string_view prefix);

// ---- requests

struct RangeQuery {
    std::string key;
    std::string end;             // empty: one key
    std::uint64_t revision = 0;  // 0: the newest
    std::uint32_t limit = 0;     // 0: none
    bool count_only = false;
    bool keys_only = false;
};
std::string range_request(const RangeQuery &query);
std::string watch_request(std::string_view key, std::string_view end, std::uint64_t first_revision);
// The cluster removes keys that are put with the lease when that time is over.
std::string lease_request(std::uint32_t seconds);
std::string authenticate_request(const std::string &name, const std::string &password);

// A transaction: all comparisons hold and all operations are made, or none and `otherwise` is read.
class TxnRequest {
  public:
    // The key was last changed at this revision; 0: there is no such key.
    void compare(std::string_view key, std::uint64_t mod_revision);
    // All keys of the range were last changed before this revision; with 1, there are none.
    void compare_older(std::string_view key, std::string_view end, std::uint64_t revision);
    void put(std::string_view key, std::string_view value, std::uint64_t lease = 0);
    void erase(std::string_view key, std::string_view end = {});
    void otherwise(std::string_view key);
    std::string text() const;
    // As the servers count them for --max-txn-ops.
    std::size_t operations() const { return operations_ > comparisons_ ? operations_ : comparisons_; }

  private:
    std::string compare_;
    std::string success_;
    std::string failure_;
    std::size_t comparisons_ = 0;
    std::size_t operations_ = 0;
};

// ---- replies

// Why a reply is not read: it would use many times its size as values. Empty: it is read.
std::string excess_of(std::string_view text);

struct Header {
    std::uint64_t cluster = 0;
    std::uint64_t member = 0;
    std::uint64_t revision = 0;
};

struct KeyValue {
    std::string key;
    std::string value;
    std::uint64_t mod_revision = 0;
};

struct RangeReply {
    Header header;
    std::vector<KeyValue> items;
    bool more = false;
};
bool parse_range(std::string_view text, RangeReply &reply);

struct TxnReply {
    Header header;
    bool succeeded = false;
    std::vector<KeyValue> read;  // of "otherwise"
};
bool parse_txn(std::string_view text, TxnReply &reply);

struct WatchEvent {
    bool deleted = false;
    KeyValue item;
};

// One line of a watch.
struct WatchReply {
    Header header;
    bool created = false;
    bool canceled = false;
    std::uint64_t compact_revision = 0;  // with canceled: older revisions are not kept any more
    std::string reason;                  // with canceled, also for an error of the stream
    std::vector<WatchEvent> events;
};
bool parse_watch(std::string_view text, WatchReply &reply);

bool parse_lease(std::string_view text, std::uint64_t &lease);
bool parse_token(std::string_view text, std::string &token);

struct StatusReply {
    Header header;
    std::string version;
    std::uint64_t leader = 0;  // a member's number; 0: there is none
    std::uint64_t size = 0;    // of the database, in bytes
};
bool parse_status(std::string_view text, StatusReply &reply);

struct Member {
    std::uint64_t id = 0;
    std::string name;
    std::vector<std::string> urls;
};
bool parse_members(std::string_view text, std::vector<Member> &members);

// A reply of an HTTP status other than 200. False: it is not of the gateway.
struct ErrorReply {
    int code = 0;  // of gRPC
    std::string message;
};
bool parse_error(std::string_view text, ErrorReply &reply);

}  // namespace sysdb_etcd
