// SPDX-License-Identifier: Apache-2.0
//
// An accounting record apart from the request that brought it, so that it can be sent at once
// or later, in the form of either protocol.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backends/backend.hpp"
#include "groups/logins.hpp"

namespace service {

struct AccountingRecord {
    enum class Kind : std::uint8_t { kStart = 1, kStop = 2, kInterim = 3 };
    // Who ended the session: its program, or the service, which found that the program has gone.
    enum class End : std::uint8_t { kByProgram, kProgramGone, kMachineRestarted };

    Kind kind = Kind::kStart;
    End end = End::kByProgram;
    LoginId id = 0;  // of the request, for log and trace
    std::uint32_t session = 0;
    std::uint32_t time = 0;   // of the event, in seconds since 1970
    std::uint32_t start = 0;  // of the session; 0: not known
    std::uint32_t service = 0;
    std::uint32_t method = 0;  // that has authenticated the user, AAA_METHOD_...
    std::optional<std::uint32_t> privilege;
    std::optional<std::uint32_t> elapsed;  // seconds since the session began
    std::string user, terminal, remote;
    std::optional<std::string> command;
    std::vector<std::string> classes;
};

// The record of a question; opens and closes its session in the table. Null for a kind of
// record that is not known.
std::optional<AccountingRecord> record_of(const Question &question, Logins &logins, net::Time now,
                                          std::time_t wall);

// The record as bytes, for a journal.
std::string pack_record(const AccountingRecord &record);
// Reads any bytes. Null when they are not a record.
std::optional<AccountingRecord> unpack_record(std::string_view bytes);

}  // namespace service
