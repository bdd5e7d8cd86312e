// SPDX-License-Identifier: Apache-2.0
//
// The records on disk: segment files that are written one after the other and removed as
// wholes. One thread uses this at a time.
//
// No space is reserved for a segment: on ext4 that made little difference to the time of
// fdatasync(), and it would fail on a disk that still has room for records.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "records/aside.hpp"
#include "records/directory.hpp"
#include "records/segment.hpp"

namespace accounting {

enum class Result {
    kOk,
    kFull,     // no room on the disk, or within the limit
    kBusy,     // too many records wait for the disk
    kInvalid,  // not a record that can be kept
    kFailed,   // the disk failed
};

// Words for a log line.
const char *describe(Result result);

struct SegmentInfo {
    std::uint64_t first = 0;  // identifies it
    std::uint64_t last = 0;   // the last record's sequence; less than first when there is none
    std::uint64_t bytes = 0;
};

// Where a record is, or where reading goes on.
struct ReadPoint {
    std::uint64_t sequence = 0;
    std::uint64_t segment = 0;  // 0: not known
    std::uint64_t offset = 0;
};

// A record that is to be written.
struct Unwritten {
    std::uint64_t sequence = 0;
    std::string body;
};

class Segments {
  public:
    Segments(const Directory &directory, std::uint64_t segment_bytes, Log log);

    // Finds all segments and calls `visit` for each of their records, in order. What is no
    // record is kept aside; at the end of a segment it is cut off. False: `error` says why.
    bool recover(const std::function<void(const Record &)> &visit, std::string &error);
    // Greater than that of every record there has been, as far as segments show.
    std::uint64_t next_sequence() const { return next_; }
    const std::vector<SegmentInfo> &list() const { return list_; }

    struct Appended {
        std::size_t durable = 0;           // so many records, the first ones, will survive everything
        std::size_t failed = 0;            // the others
        Result result = Result::kOk;       // of the others
        bool broken = false;               // and of all further ones
        std::vector<ReadPoint> places;     // of the durable ones
        std::vector<SegmentInfo> written;  // segments that have changed, as they are now
    };
    Appended append(std::span<const Unwritten> records);

    struct Read {
        std::vector<RecordPointer> records;
        ReadPoint next;
        bool end = false;     // there is nothing more up to `through`
        bool failed = false;  // try again later
    };
    // Some records from a place on, up to the sequence `through`.
    Read read(ReadPoint from, std::uint64_t through);

    // Removes a segment if its last record is still `last`. True when it is gone.
    bool remove(std::uint64_t first, std::uint64_t last);
    // Why nothing can be written any more; empty while that is not so.
    const std::string &broken() const { return broken_; }

  private:
    struct Current {
        net::Descriptor file;
        SegmentName name;
        std::uint64_t size = 0;
    };

    bool recover_segment(const SegmentName &name, const std::function<void(const Record &)> &visit,
                         std::string &error);
    void put_away(const SegmentName &name);
    // False when the bytes are nowhere but in the segment.
    bool report(const SegmentName &name, const SegmentReader::Item &item, std::size_t base,
                std::string_view bytes);
    void cut(const SegmentName &name, net::Descriptor &file, std::size_t size);
    Result make_current(std::uint64_t first);
    Result write(std::string_view frames);
    bool current_was_removed();
    void forget(std::uint64_t first);
    Result give_up(const std::string &what);
    void complain(const std::string &what);
    SegmentInfo *find(std::uint64_t first);
    std::optional<ReadPoint> segment_from(const ReadPoint &from) const;
    bool read_chunk(const SegmentInfo &segment, std::size_t size, std::uint64_t through, Read &out);
    std::string name_of(std::uint64_t first) const;

    const Directory &directory_;
    Files &files_;
    Aside aside_;
    std::uint64_t segment_bytes_;
    Log log_;
    std::string broken_;
    std::string complaint_;  // the last one, which is not repeated
    std::vector<SegmentInfo> list_;
    std::vector<SegmentName> names_;  // of the same segments
    std::uint64_t next_ = 1;
    std::optional<Current> current_;
};

}  // namespace accounting
