// SPDX-License-Identifier: Apache-2.0
//
// One accounting record, and its form in files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/clock.hpp"

namespace accounting {

enum class Kind : std::uint8_t {
    kStart = 1,    // opens a session
    kStop = 2,     // closes it
    kInterim = 3,  // of an open session
    kEvent = 4,    // has nothing to do with open sessions, for example a command
};

// The process whose session it is. The start time tells it from a later process with the
// same number.
struct Process {
    std::uint32_t pid = 0;  // 0: unknown
    std::uint64_t started = 0;

    bool operator==(const Process &) const = default;
};

struct Record {
    std::uint64_t sequence = 0;  // given by the journal, increasing
    Kind kind = Kind::kEvent;
    Process process;
    Moment arrival;
    // Records with the same name of a session are delivered in their order. Without a
    // name a record waits for no other one.
    std::string session;
    std::vector<std::string> destinations;
    std::string payload;  // what is sent; unknown here
};

using RecordPointer = std::shared_ptr<const Record>;

inline constexpr std::size_t kMaxSession = 1024;
inline constexpr std::size_t kMaxDestinations = 16;
inline constexpr std::size_t kMaxDestinationName = 64;
inline constexpr std::size_t kMaxPayload = 65536;

// What is wrong with a record that is to be kept; empty when nothing is.
std::string fault_of(const Record &record);

// The body of a record, which is everything but its sequence number; numbers are
// little-endian:
//
//   kind (1), number of destinations (1), length of the session's name (2), pid (4),
//   start of the process (8), boot id (16), wall clock (8), uptime (8),
//   name of the session, for each destination: length (1) and name, payload
void encode_body(const Record &record, std::string &out);
std::size_t body_size(const Record &record);
// False when the bytes are not a body that encode_body() makes. The sequence stays.
bool decode_body(std::string_view bytes, Record &record);

inline constexpr std::size_t kBodyHead = 48;
inline constexpr std::size_t kMaxBody =
    kBodyHead + kMaxSession + kMaxDestinations * (1 + kMaxDestinationName) + kMaxPayload;

}  // namespace accounting
