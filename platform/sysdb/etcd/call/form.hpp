// SPDX-License-Identifier: Apache-2.0
//
// Messages between a provider and the agent of its node, over a stream socket. Numbers are
// little-endian.
//
//   request   length of the rest (4), version (1), kind (1), time in milliseconds of
//             CLOCK_MONOTONIC until which it may be carried out (8);
//             of changes also their number (4), and for each: operation (4), datatype (4),
//             length of the path (4), the path, length of the value (4), the value
//   reply     length of the rest (4), code (4), index of the refused change (4), text
//
// A connection carries one request and its reply.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sysdb_etcd {

inline constexpr char kSocketName[] = "agent";  // in the run directory of the database
inline constexpr std::size_t kLengthSize = 4;
inline constexpr std::size_t kMostRequest = std::size_t{32} << 20;
inline constexpr std::size_t kMostReply = std::size_t{1} << 20;

enum class Ask : std::uint8_t { kChange = 1, kStatus = 2 };

// Besides those of platform/sysdb_changes.h: delete all below the directory, which must hold something.
inline constexpr std::uint32_t kDeleteTree = 0x100;

struct ItemChange {
    std::uint32_t operation = 0;
    std::uint32_t datatype = 0;
    std::string path;  // absolute
    std::string value;

    friend bool operator==(const ItemChange &, const ItemChange &) = default;
};

struct Request {
    Ask ask = Ask::kStatus;
    // Its sender does not wait longer. A change that came later would follow others that the
    // sender has made since.
    std::uint64_t until_ms = 0;
    std::vector<ItemChange> changes;
};

struct Answer {
    std::uint32_t code = 0;
    std::uint32_t failed = 0;
    std::string text;
};

// With the length. Nothing when it would be longer than the other side takes.
std::optional<std::string> pack_request(const Request &request);
std::string pack_answer(const Answer &answer);

// The length of the rest, of the first four bytes.
std::uint32_t unpack_length(const char *bytes);
// Of the rest. False: it is malformed.
bool unpack_request(std::string_view bytes, Request &request);
bool unpack_answer(std::string_view bytes, Answer &answer);

}  // namespace sysdb_etcd
