// SPDX-License-Identifier: Apache-2.0
//
// The open sessions on disk: the journal forgets the record that opened a session when
// all destinations have it. The file has the form of a segment, with the records that
// opened the sessions; its first sequence is that up to which the journal is contained.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "records/aside.hpp"
#include "records/directory.hpp"
#include "records/record.hpp"

namespace accounting {

class SessionFile {
  public:
    SessionFile(const Directory &directory, Log log) : directory_(directory), log_(std::move(log)) {}

    // Calls `visit` for each open session's record, in order. Returns the sequence up to
    // which the journal is contained, 0 without a file. False: `error` says why.
    bool load(const std::function<void(const Record &)> &visit, std::uint64_t &through, std::string &error);
    // Replaces the file; the sessions are ordered by sequence. False with errno.
    bool save(std::uint64_t through, const std::vector<RecordPointer> &sessions);

  private:
    const Directory &directory_;
    Log log_;
};

}  // namespace accounting
