// SPDX-License-Identifier: Apache-2.0
//
// Reading segments: all of them at the start, and piece by piece for the delivery.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "records/segments.hpp"

namespace accounting {

namespace {

// One piece for the delivery: so long appends may have to wait for a read.
constexpr std::size_t kChunk = 262'144;

// What opening it says of a file that the service has not made.
bool is_not_a_file_of_ours(int error) {
    return error == EPERM || error == ELOOP || error == EISDIR || error == ENXIO;
}

std::string bytes_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

bool Segments::report(const SegmentName &name, const SegmentReader::Item &item, std::size_t base,
                      std::string_view bytes) {
    const std::string_view bad = bytes.substr(item.at, item.size);
    if (bad.find_first_not_of('\0') == std::string_view::npos) {
        return true;  // what a file system leaves after a loss of power
    }
    std::string file;
    const Aside::Kept kept = aside_.keep(name.first, base + item.at, bad, file);
    if (kept != Aside::Kept::kBefore) {
        const char *what =
            item.found == SegmentReader::Found::kTail
                ? " at its end are no whole record, as after the end of the service while it wrote"
                : " are damaged; records in them are lost";
        log_(directory_.path() + "/" + name.text() + ": " + bytes_text(item.size) + " at offset " +
             std::to_string(base + item.at) + what +
             (kept == Aside::Kept::kYes ? "; kept in " + file : "; they could not be copied to " + file));
    }
    return kept != Aside::Kept::kNot;
}

void Segments::cut(const SegmentName &name, net::Descriptor &file, std::size_t size) {
    if (files_.truncate(file.get(), static_cast<off_t>(size)) != 0 || files_.sync(file.get()) != 0) {
        complain("cannot cut the end of " + directory_.path() + "/" + name.text() + ": " +
                 std::strerror(errno));
    }
}

// A segment that the disk does not return is neither delivered nor removed.
void Segments::put_away(const SegmentName &name) {
    const std::string text = name.text();
    const std::string away = "unreadable-" + text;
    const bool renamed = directory_.rename(text, away);
    log_(directory_.path() + "/" + text + ": the disk cannot read it; its records are not delivered. " +
         (renamed ? "It is now " + away : "It could not be renamed to " + away));
    std::erase_if(list_, [&](const SegmentInfo &other) { return other.first == name.first; });
    std::erase_if(names_, [&](const SegmentName &other) { return other.first == name.first; });
    if (current_ && current_->name.first == name.first) {
        current_.reset();
    }
}

bool Segments::recover_segment(const SegmentName &name, const std::function<void(const Record &)> &visit,
                               std::string &error) {
    const std::string text = name.text();
    net::Descriptor file = directory_.open_file(text, O_RDWR);
    struct stat status = {};
    std::string bytes;
    next_ = std::max(next_, name.first);
    if (!file && is_not_a_file_of_ours(errno)) {
        log_(directory_.path() + "/" + text + " is ignored: it is not a plain file of the service's user");
        return true;
    }
    if (!file || fstat(file.get(), &status) != 0 ||
        !files_.read_up_to(file.get(), static_cast<std::size_t>(status.st_size), 0, bytes)) {
        if (errno != EIO) {
            error = "cannot read " + directory_.path() + "/" + text + ": " + std::strerror(errno);
            return false;
        }
        // Its sequences are not given to other records.
        next_ += static_cast<std::uint64_t>(status.st_size) / kFrameHead + 1;
        put_away(name);
        return true;
    }
    // The mark of the head goes first: a file may have been renamed.
    const SegmentName marked = decode_head(bytes).value_or(name);
    SegmentInfo info{name.first, name.first - 1, bytes.size()};
    bool keep = false;
    const std::string_view body = std::string_view(bytes).substr(std::min(bytes.size(), kSegmentHead));
    SegmentReader reader(body, marked.mark, true, next_ - 1);
    for (SegmentReader::Item item = reader.next(); item.found != SegmentReader::Found::kEnd;
         item = reader.next()) {
        if (item.found == SegmentReader::Found::kRecord) {
            info.last = item.record.sequence;
            next_ = info.last + 1;
            visit(item.record);
            continue;
        }
        const bool copied = report(marked, item, kSegmentHead, body);
        keep = keep || !copied;
        if (item.found == SegmentReader::Found::kTail && copied) {
            info.bytes = kSegmentHead + item.at;
            cut(name, file, info.bytes);
        }
    }
    if (info.last < info.first && !keep) {
        directory_.remove(text);
        return true;
    }
    list_.push_back(info);
    names_.push_back({name.first, marked.mark});
    return true;
}

bool Segments::recover(const std::function<void(const Record &)> &visit, std::string &error) {
    std::vector<std::string> names;
    if (!directory_.names(names)) {
        error = "cannot list " + directory_.path() + ": " + std::strerror(errno);
        return false;
    }
    for (const std::string &text : names) {
        // The order of the names is that of the numbers in them.
        if (const auto name = SegmentName::parse(text)) {
            if (!recover_segment(*name, visit, error)) {
                return false;
            }
        }
    }
    return true;
}

std::optional<ReadPoint> Segments::segment_from(const ReadPoint &from) const {
    for (const SegmentInfo &segment : list_) {
        if (segment.first == from.segment && from.offset >= kSegmentHead) {
            return from;
        }
        if (segment.last >= from.sequence && segment.last >= segment.first) {
            return ReadPoint{from.sequence, segment.first, kSegmentHead};
        }
    }
    return std::nullopt;
}

bool Segments::read_chunk(const SegmentInfo &segment, std::size_t size, std::uint64_t through, Read &out) {
    const auto name = std::find_if(names_.begin(), names_.end(),
                                   [&](const SegmentName &other) { return other.first == segment.first; });
    const net::Descriptor file = directory_.open_file(name->text(), O_RDONLY);
    std::string bytes;
    const std::uint64_t left = segment.bytes - std::min(segment.bytes, out.next.offset);
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, size));
    const std::size_t base = out.next.offset;
    if (!file || !files_.read_up_to(file.get(), wanted, static_cast<off_t>(base), bytes)) {
        const int error = errno;
        if (error == EIO) {
            put_away(SegmentName(*name));
        } else {
            complain("cannot read " + directory_.path() + "/" + name->text() + ": " + std::strerror(error));
        }
        out.failed = true;
        return true;
    }
    SegmentReader reader(bytes, name->mark, wanted == left, segment.first - 1);
    for (;;) {
        SegmentReader::Item item = reader.next();
        switch (item.found) {
            case SegmentReader::Found::kRecord:
                if (item.record.sequence > through) {
                    out.end = true;
                    return true;
                }
                out.next.segment = segment.first;
                out.next.offset = base + item.at + item.size;
                if (item.record.sequence >= out.next.sequence) {
                    out.next.sequence = item.record.sequence + 1;
                    out.records.push_back(std::make_shared<const Record>(std::move(item.record)));
                }
                break;
            case SegmentReader::Found::kDamage:
            case SegmentReader::Found::kTail:
                report(*name, item, base, bytes);
                out.next.offset = base + item.at + item.size;
                break;
            case SegmentReader::Found::kMore:
                return item.at != 0;
            case SegmentReader::Found::kEnd:
                // The last one may still grow.
                if (segment.first == list_.back().first) {
                    out.end = true;
                } else {
                    out.next = {std::max(out.next.sequence, segment.last + 1), 0, 0};
                }
                return true;
        }
    }
}

Segments::Read Segments::read(ReadPoint from, std::uint64_t through) {
    Read out;
    out.next = from;
    const auto begin = from.sequence <= through ? segment_from(from) : std::nullopt;
    if (!begin) {
        out.end = true;
        return out;
    }
    out.next = *begin;
    const SegmentInfo segment = *find(begin->segment);
    std::size_t size = kChunk;
    while (!read_chunk(segment, size, through, out)) {
        size *= 2;
    }
    return out;
}

}  // namespace accounting
