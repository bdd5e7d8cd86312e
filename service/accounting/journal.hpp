// SPDX-License-Identifier: Apache-2.0
//
// The journal as the loop sees it: records are appended and answered when they are on
// disk, within limits of size, with alarms.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "accounting/disk.hpp"
#include "net/loop.hpp"
#include "records/record.hpp"

namespace accounting {

enum class WhenFull {
    kRefuse,      // new records are answered with kFull
    kDropOldest,  // the oldest segment is removed with what is in it
};

struct JournalSettings {
    DiskSettings disk;
    std::uint64_t most_bytes = 256 << 20;  // of all segments; at least kLeastBytes
    unsigned alarm_percent = 80;           // 1 to 100
    WhenFull when_full = WhenFull::kRefuse;
    // What may wait for the disk at a time.
    std::size_t most_waiting = 4096;
    std::size_t most_waiting_bytes = 4 << 20;
};

inline constexpr std::uint64_t kLeastBytes = 1 << 20;

enum class Alarm {
    kLevel,   // the journal is fuller than the alarm level
    kFull,    // records are refused, or dropped
    kFailed,  // the disk failed; ends only with the service
};

struct Events {
    Log log;                                 // a line for the administrator
    std::function<void(Alarm, bool)> alarm;  // raised (true), or over
};

// A record that is on disk, and where.
struct Durable {
    RecordPointer record;
    ReadPoint place;
};

class Journal {
  public:
    using Done = std::function<void(Result)>;

    struct Recovered {
        std::map<std::string, Position> positions;
        std::function<void(const Record &)> session;  // an open session of the file
        std::function<void(const Record &)> record;   // all records, in order, after the sessions
        std::uint64_t sessions_through = 0;
    };

    // `events` and all callbacks are called by the loop's thread.
    Journal(net::Loop &loop, JournalSettings settings, Files &files, Events events);
    // Writes first what was appended; does not answer any more.
    ~Journal();

    // Opens the files and starts the thread. Calls the functions of `recovered`, whose
    // `positions` are complete before the first record. False: `error` says what to do.
    bool open(Recovered &recovered, std::string &error);
    // Is told of all records that have become durable, in order, before they are answered.
    void on_durable(std::function<void(const std::vector<Durable> &)> call) { durable_ = std::move(call); }
    // Is told of the records of a dropped segment.
    void on_dropped(std::function<void(const std::vector<RecordPointer> &)> call) {
        dropped_ = std::move(call);
    }

    // New limits, from now on. The size of segments stays.
    void set_limits(std::uint64_t most_bytes, unsigned alarm_percent, WhenFull when_full);

    // Gives the record a sequence, and calls `done` once, later, by the loop: kOk when the
    // record survives everything.
    void append(Record record, Done done);

    // Reads what is durable from a place on.
    void read(ReadPoint from, std::function<void(Segments::Read, std::uint64_t through)> done);
    // Has work done with the files, and then `done` called by the loop.
    void on_disk(DiskThread::Job work, std::function<void()> done = nullptr);

    // Segments that hold only records below a sequence. The newest is one of them where it
    // is worth it.
    std::vector<SegmentInfo> removable(std::uint64_t below) const;
    // Removes those segments, after `before`, which is called with the files.
    void remove(std::vector<SegmentInfo> segments, DiskThread::Job before, DiskThread::Job after);

    // A line for the administrator, from the disk's thread.
    void tell(const std::string &line);

    std::uint64_t last_durable() const { return last_durable_; }
    std::uint64_t bytes() const { return bytes_; }
    std::uint64_t most_bytes() const { return settings_.most_bytes; }
    std::size_t waiting() const { return waiting_.size(); }
    bool raised(Alarm alarm) const { return raised_[static_cast<std::size_t>(alarm)]; }

  private:
    struct Waiting {
        RecordPointer record;
        std::size_t bytes;
        Done done;
    };

    void answer(Result result, Done done);
    Result admit(std::size_t bytes);
    void written(const Segments::Appended &appended);
    void set_segment(const SegmentInfo &segment);
    void forget_segment(std::uint64_t first);
    void drop_oldest();
    void check_level();
    void set_alarm(Alarm alarm, bool raised, const std::string &text);

    net::Loop &loop_;
    JournalSettings settings_;
    Events events_;
    std::function<void(const std::vector<Durable> &)> durable_;
    std::function<void(const std::vector<RecordPointer> &)> dropped_;

    std::uint64_t next_ = 1;
    std::uint64_t last_durable_ = 0;
    std::uint64_t bytes_ = 0;
    std::map<std::uint64_t, SegmentInfo> segments_;
    std::uint64_t current_ = 0;  // the segment that was written last
    std::map<std::uint64_t, Waiting> waiting_;
    std::size_t waiting_bytes_ = 0;
    bool raised_[3] = {};
    bool full_by_limit_ = false;  // the alarm is for the limit, not for the disk

    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    Disk disk_;
    std::unique_ptr<DiskThread> thread_;
};

}  // namespace accounting
