// SPDX-License-Identifier: Apache-2.0
//
// The loop's side of the journal.
#include "accounting/journal.hpp"

#include <algorithm>
#include <utility>

#include "probes/probes.hpp"

namespace accounting {

namespace {

// Several segments, so that there are always some to remove.
constexpr std::uint64_t kLeastSegments = 8;
// The newest segment is removed when it holds only delivered records and this part of the
// size of a segment: a new one costs two more writes to the disk.
constexpr std::uint64_t kWorthRemoving = 8;
// The level alarm is over when the level has fallen by so many percent.
constexpr unsigned kHysteresis = 5;

JournalSettings checked(JournalSettings settings) {
    settings.most_bytes = std::max(settings.most_bytes, kLeastBytes);
    settings.disk.segment_bytes = std::clamp(settings.disk.segment_bytes, kLeastBytes / kLeastSegments,
                                             settings.most_bytes / kLeastSegments);
    settings.alarm_percent = std::clamp(settings.alarm_percent, 1U, 100U);
    return settings;
}

}  // namespace

Journal::Journal(net::Loop &loop, JournalSettings settings, Files &files, Events events)
    : loop_(loop),
      settings_(checked(std::move(settings))),
      events_(std::move(events)),
      disk_(files, settings_.disk, [this](const std::string &line) { tell(line); }) {}

Journal::~Journal() = default;

void Journal::tell(const std::string &line) {
    if (thread_ == nullptr) {
        events_.log(line);  // during open()
    } else {
        thread_->tell_loop([this, line] { events_.log(line); });
    }
}

bool Journal::open(Recovered &recovered, std::string &error) {
    const auto nothing = [](const Record &) {};
    if (!disk_.directory.open(settings_.disk.directory, error) ||
        !disk_.positions.load(recovered.positions, error) ||
        !disk_.sessions.load(recovered.session ? recovered.session : nothing, recovered.sessions_through,
                             error) ||
        !disk_.segments.recover(recovered.record ? recovered.record : nothing, error)) {
        return false;
    }
    for (const SegmentInfo &segment : disk_.segments.list()) {
        set_segment(segment);
    }
    // A position may be ahead of the segments, whose last records a loss of power took. A
    // new record with one of their sequences would count as delivered.
    next_ = std::max(disk_.segments.next_sequence(), recovered.sessions_through + 1);
    for (const auto &[name, position] : recovered.positions) {
        next_ = std::max(next_, position.cursor);
    }
    last_durable_ = next_ - 1;
    thread_ = std::make_unique<DiskThread>(loop_, disk_,
                                           [this](const Segments::Appended &appended) { written(appended); });
    if (!thread_->start()) {
        error = "the system gives no thread for accounting records";
        return false;
    }
    check_level();
    return true;
}

void Journal::set_limits(std::uint64_t most_bytes, unsigned alarm_percent, WhenFull when_full) {
    // Room for the newest segment and another one, or nothing could ever be removed.
    settings_.most_bytes = std::max({most_bytes, kLeastBytes, 2 * settings_.disk.segment_bytes});
    settings_.alarm_percent = std::clamp(alarm_percent, 1U, 100U);
    settings_.when_full = when_full;
    check_level();
}

void Journal::answer(Result result, Done done) {
    loop_.post([watch = std::weak_ptr<int>(alive_), result, done = std::move(done)] {
        if (!watch.expired()) {
            done(result);
        }
    });
}

Result Journal::admit(std::size_t bytes) {
    if (raised(Alarm::kFailed)) {
        return Result::kFailed;
    }
    if (waiting_.size() >= settings_.most_waiting || waiting_bytes_ + bytes > settings_.most_waiting_bytes) {
        return Result::kBusy;
    }
    // Segments are at least half full, so this is enough for the heads of new ones.
    const std::uint64_t frames = waiting_bytes_ + bytes;
    const std::uint64_t heads = (2 + 2 * frames / settings_.disk.segment_bytes) * kSegmentHead;
    const auto fits = [&] { return bytes_ + frames + heads <= settings_.most_bytes; };
    while (!fits() && settings_.when_full == WhenFull::kDropOldest && segments_.size() > 1) {
        drop_oldest();
    }
    if (!fits()) {
        full_by_limit_ = true;
        set_alarm(Alarm::kFull, true,
                  "the accounting records on disk have reached their limit of " +
                      std::to_string(settings_.most_bytes) + " bytes; new ones are refused");
        return Result::kFull;
    }
    return Result::kOk;
}

void Journal::append(Record record, Done done) {
    const std::size_t bytes = frame_size(body_size(record));
    const std::string fault = fault_of(record);
    const Result admitted = fault.empty() ? admit(bytes) : Result::kInvalid;
    if (!fault.empty()) {
        events_.log("an accounting record is refused: " + fault);
    }
    if (admitted != Result::kOk) {
        answer(admitted, std::move(done));
        return;
    }
    record.sequence = next_++;
    Unwritten unwritten{record.sequence, {}};
    encode_body(record, unwritten.body);
    waiting_bytes_ += bytes;
    AAA_PROBE2(journal_append, record.sequence, bytes);
    waiting_[record.sequence] = {std::make_shared<const Record>(std::move(record)), bytes, std::move(done)};
    thread_->append(std::move(unwritten));
}

// The oldest waiting records are those that the disk's thread reports.
void Journal::written(const Segments::Appended &appended) {
    for (const SegmentInfo &segment : appended.written) {
        set_segment(segment);
        current_ = segment.first;
    }
    std::vector<Durable> durable;
    std::vector<Done> done;
    const std::size_t count = appended.durable + appended.failed;
    AAA_PROBE2(journal_written, appended.durable, appended.failed);
    for (std::size_t i = 0; i < count; ++i) {
        auto first = waiting_.extract(waiting_.begin());
        waiting_bytes_ -= first.mapped().bytes;
        done.push_back(std::move(first.mapped().done));
        if (i < appended.durable) {
            last_durable_ = first.key();
            durable.push_back({std::move(first.mapped().record), appended.places[i]});
        }
    }
    if (appended.result == Result::kFull) {
        full_by_limit_ = false;
        set_alarm(Alarm::kFull, true,
                  "there is no room on the disk of " + settings_.disk.directory +
                      "; accounting records are refused");
        if (settings_.when_full == WhenFull::kDropOldest && !segments_.empty()) {
            drop_oldest();
        }
    } else if (appended.result == Result::kFailed && appended.broken) {
        set_alarm(Alarm::kFailed, true, "");  // the disk's thread has said why
    } else if (appended.result == Result::kOk && !full_by_limit_) {
        set_alarm(Alarm::kFull, false, "accounting records are accepted again");
    }
    check_level();
    const std::weak_ptr<int> watch = alive_;
    if (durable_ && !durable.empty()) {
        durable_(durable);
    }
    for (std::size_t i = 0; i < done.size() && !watch.expired(); ++i) {
        done[i](i < appended.durable ? Result::kOk : appended.result);
    }
}

void Journal::set_segment(const SegmentInfo &segment) {
    SegmentInfo &known = segments_[segment.first];
    bytes_ += segment.bytes - known.bytes;
    known = segment;
}

void Journal::forget_segment(std::uint64_t first) {
    const auto found = segments_.find(first);
    if (found != segments_.end()) {
        bytes_ -= found->second.bytes;
        segments_.erase(found);
    }
}

void Journal::read(ReadPoint from, std::function<void(Segments::Read, std::uint64_t)> done) {
    const std::uint64_t through = last_durable_;
    thread_->run([this, from, through, done = std::move(done)](Disk &disk) {
        thread_->tell_loop(
            [done, through, read = disk.segments.read(from, through)] { done(read, through); });
    });
}

void Journal::on_disk(DiskThread::Job work, std::function<void()> done) {
    thread_->run([this, work = std::move(work), done = std::move(done)](Disk &disk) {
        work(disk);
        if (done) {
            thread_->tell_loop(done);
        }
    });
}

std::vector<SegmentInfo> Journal::removable(std::uint64_t below) const {
    std::vector<SegmentInfo> found;
    for (const auto &[first, segment] : segments_) {
        if (segment.last >= below) {
            break;
        }
        const bool worth =
            segment.bytes >= settings_.disk.segment_bytes / kWorthRemoving || raised(Alarm::kFull);
        if (first != current_ || (waiting_.empty() && worth)) {
            found.push_back(segment);
        }
    }
    return found;
}

void Journal::remove(std::vector<SegmentInfo> segments, DiskThread::Job before, DiskThread::Job after) {
    for (const SegmentInfo &segment : segments) {
        forget_segment(segment.first);
    }
    const auto kept = std::make_shared<std::vector<SegmentInfo>>();
    on_disk(
        [=](Disk &disk) {
            before(disk);
            for (const SegmentInfo &segment : segments) {
                if (!disk.segments.remove(segment.first, segment.last)) {
                    kept->push_back(segment);
                }
            }
            after(disk);
        },
        [this, kept] {
            for (const SegmentInfo &segment : *kept) {
                if (!segments_.contains(segment.first)) {
                    set_segment(segment);
                }
            }
            check_level();
        });
}

void Journal::drop_oldest() {
    full_by_limit_ = true;
    const SegmentInfo oldest = segments_.begin()->second;
    forget_segment(oldest.first);
    const auto records = std::make_shared<std::vector<RecordPointer>>();
    const auto removed = std::make_shared<bool>(false);
    on_disk(
        [=](Disk &disk) {
            ReadPoint at{oldest.first, oldest.first, kSegmentHead};
            for (bool end = false; !end;) {
                const Segments::Read read = disk.segments.read(at, oldest.last);
                records->insert(records->end(), read.records.begin(), read.records.end());
                end = read.end || read.failed || read.next.segment != oldest.first;
                at = read.next;
            }
            *removed = disk.segments.remove(oldest.first, oldest.last);
        },
        [this, oldest, records, removed] {
            if (!*removed && !segments_.contains(oldest.first)) {
                set_segment(oldest);
            }
            set_alarm(Alarm::kFull, true, "there is no room for accounting records; the oldest are dropped");
            if (*removed && dropped_) {
                dropped_(*records);
            }
        });
}

void Journal::check_level() {
    const unsigned percent = settings_.alarm_percent;
    const std::uint64_t high = settings_.most_bytes / 100 * percent;
    const std::uint64_t low =
        percent > kHysteresis ? settings_.most_bytes / 100 * (percent - kHysteresis) : 1;
    if (bytes_ >= high) {
        set_alarm(Alarm::kLevel, true,
                  "the accounting records on disk take " + std::to_string(bytes_) + " of at most " +
                      std::to_string(settings_.most_bytes) + " bytes; is a server group unavailable?");
    } else if (bytes_ < low) {
        set_alarm(Alarm::kLevel, false,
                  "the accounting records on disk take " + std::to_string(bytes_) + " bytes again");
    }
    // With room for a segment, not just for the next record: an alarm must not flap.
    const std::uint64_t room = settings_.most_bytes - settings_.disk.segment_bytes;
    if (full_by_limit_ && bytes_ < (settings_.when_full == WhenFull::kDropOldest ? low : room)) {
        full_by_limit_ = false;
        set_alarm(Alarm::kFull, false, "accounting records are accepted again, and none is dropped");
    }
}

void Journal::set_alarm(Alarm alarm, bool raised, const std::string &text) {
    bool &state = raised_[static_cast<std::size_t>(alarm)];
    if (state == raised) {
        return;
    }
    state = raised;
    if (!text.empty()) {
        events_.log(text);
    }
    if (events_.alarm) {
        events_.alarm(alarm, raised);
    }
}

}  // namespace accounting
