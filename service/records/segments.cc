// SPDX-License-Identifier: Apache-2.0
//
// Writing and removing segments.
#include "records/segments.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace accounting {

namespace {

bool random_mark(std::uint64_t &mark) {
    return getrandom(&mark, sizeof mark, 0) == static_cast<ssize_t>(sizeof mark);
}

}  // namespace

const char *describe(Result result) {
    switch (result) {
        case Result::kOk:
            return "on disk";
        case Result::kFull:
            return "no room";
        case Result::kBusy:
            return "too many records wait for the disk";
        case Result::kInvalid:
            return "not a record that can be kept";
        case Result::kFailed:
            return "the disk failed";
    }
    return "unknown";
}

Segments::Segments(const Directory &directory, std::uint64_t segment_bytes, Log log)
    : directory_(directory),
      files_(directory.files()),
      aside_(directory),
      segment_bytes_(std::max<std::uint64_t>(segment_bytes, kSegmentHead + kMaxFrame)),
      log_(std::move(log)) {}

SegmentInfo *Segments::find(std::uint64_t first) {
    const auto found = std::find_if(list_.begin(), list_.end(),
                                    [first](const SegmentInfo &segment) { return segment.first == first; });
    return found == list_.end() ? nullptr : &*found;
}

std::string Segments::name_of(std::uint64_t first) const {
    const auto found = std::find_if(names_.begin(), names_.end(),
                                    [first](const SegmentName &name) { return name.first == first; });
    return found == names_.end() ? std::string() : found->text();
}

void Segments::complain(const std::string &what) {
    if (what != complaint_) {
        complaint_ = what;
        log_(what);
    }
}

// After a failed write or fdatasync() the system may drop what it could not write and
// report success the next time. So no later success proves anything.
Result Segments::give_up(const std::string &what) {
    broken_ = what + " in " + directory_.path() + ": " + std::strerror(errno) +
              "; accounting requests are refused until the disk is repaired and the service restarted";
    log_(broken_);
    current_.reset();
    return Result::kFailed;
}

Result Segments::make_current(std::uint64_t first) {
    Current next;
    next.name.first = first;
    if (!random_mark(next.name.mark)) {
        complain(std::string("no random number for a new file of accounting records: ") +
                 std::strerror(errno));
        return Result::kFailed;
    }
    const std::string name = next.name.text();
    next.file = directory_.open_file(name, O_RDWR | O_CREAT | O_EXCL);
    if (!next.file) {
        if (errno == ENOENT) {
            return give_up("the directory was removed while the service uses it: cannot make " + name);
        }
        const bool full = is_no_room(errno);
        if (!full) {
            complain("cannot make " + directory_.path() + "/" + name + ": " + std::strerror(errno));
        }
        return full ? Result::kFull : Result::kFailed;
    }
    const std::string head = encode_head(next.name);
    next.size = head.size();
    if (!files_.write_all(next.file.get(), head, 0)) {
        const int error = errno;
        directory_.remove(name);
        errno = error;
        return is_no_room(error) ? Result::kFull : give_up("cannot write " + name);
    }
    // The head becomes durable with the first record, the name has to be so before.
    if (!directory_.sync()) {
        const int error = errno;
        directory_.remove(name);
        errno = error;
        return give_up("cannot make the name " + name + " durable");
    }
    list_.push_back({first, first - 1, next.size});
    names_.push_back(next.name);
    current_ = std::move(next);
    return Result::kOk;
}

// A file that has lost its name ends with the service, and all records in it.
bool Segments::current_was_removed() {
    struct stat status;
    if (fstat(current_->file.get(), &status) != 0 || status.st_nlink != 0) {
        return false;
    }
    log_(directory_.path() + "/" + current_->name.text() +
         " was removed while records were written to it; what it held may be lost if the service ends now");
    forget(current_->name.first);
    current_.reset();
    return true;
}

void Segments::forget(std::uint64_t first) {
    std::erase_if(names_, [first](const SegmentName &other) { return other.first == first; });
    std::erase_if(list_, [first](const SegmentInfo &other) { return other.first == first; });
}

Result Segments::write(std::string_view frames) {
    if (!files_.write_all(current_->file.get(), frames, static_cast<off_t>(current_->size))) {
        if (!is_no_room(errno)) {
            return give_up("cannot write " + current_->name.text());
        }
        // The part that was written is no record. Where it cannot be removed, reading will
        // find a tail, and nothing may follow it.
        if (files_.truncate(current_->file.get(), static_cast<off_t>(current_->size)) != 0) {
            current_.reset();
        }
        return Result::kFull;
    }
    if (files_.sync_data(current_->file.get()) != 0) {
        return give_up("cannot make " + current_->name.text() + " durable");
    }
    current_->size += frames.size();
    complaint_.clear();
    return Result::kOk;
}

Segments::Appended Segments::append(std::span<const Unwritten> records) {
    Appended out;
    std::string frames;
    while (out.durable < records.size() && out.result == Result::kOk) {
        const std::size_t first_size = frame_size(records[out.durable].body.size());
        if (current_ && current_->size + first_size > segment_bytes_) {
            current_.reset();
        }
        if (!broken_.empty()) {
            out.result = Result::kFailed;
            break;
        }
        if (!current_ && (out.result = make_current(records[out.durable].sequence)) != Result::kOk) {
            break;
        }
        frames.clear();
        std::vector<ReadPoint> places;
        for (std::size_t i = out.durable; i < records.size(); ++i) {
            const Unwritten &record = records[i];
            if (current_->size + frames.size() + frame_size(record.body.size()) > segment_bytes_) {
                break;
            }
            places.push_back({record.sequence, current_->name.first, current_->size + frames.size()});
            encode_frame(current_->name.mark, record.sequence, record.body, frames);
        }
        out.result = write(frames);
        if (out.result == Result::kOk && current_was_removed()) {
            continue;  // the same records again, to a new segment
        }
        SegmentInfo &info = list_.back();
        if (out.result == Result::kOk) {
            info.last = places.back().sequence;
            info.bytes = current_->size;
            next_ = info.last + 1;
            out.durable += places.size();
            out.places.insert(out.places.end(), places.begin(), places.end());
        }
        out.written.push_back(info);
    }
    out.failed = records.size() - out.durable;
    out.broken = !broken_.empty();
    return out;
}

bool Segments::remove(std::uint64_t first, std::uint64_t last) {
    const SegmentInfo *segment = find(first);
    if (segment == nullptr) {
        return true;
    }
    if (segment->last != last) {
        return false;
    }
    if (current_ && current_->name.first == first) {
        current_.reset();
    }
    // Not made durable: a segment that is back after a loss of power is removed again, or
    // is delivered once more.
    const std::string name = name_of(first);
    if (!directory_.remove(name) && errno != ENOENT) {
        complain("cannot remove " + directory_.path() + "/" + name + ": " + std::strerror(errno));
    }
    forget(first);
    return true;
}

}  // namespace accounting
