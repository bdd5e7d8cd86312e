// SPDX-License-Identifier: Apache-2.0
//
// A segment of accounting records. The input is flags (1 byte), a place (2 bytes) and
// bytes:
//
//   flag 1 set     the frames of a segment as they are on disk, with a mark that the
//                  fuzzer can find
//   flag 1 unset   for each frame a step of the sequence (1 byte), a length (2 bytes) and
//                  a body; the frames get right checksums, and a mark that depends on the
//                  whole input, so that no body contains a frame
//
// Whatever is read covers the bytes without a gap, has rising sequences, and is found in
// the same way when the segment is read in two parts that meet at the place, as the
// delivery reads it. A record is written again as the bytes that it was read from. Of the
// frames that were made here, exactly those with well-formed bodies are records.

#include <functional>
#include <vector>

#include "fuzz_input.hpp"
#include "records/segment.hpp"

namespace {

using accounting::SegmentReader;
using Found = SegmentReader::Found;

constexpr std::uint64_t kKnownMark = 0x4b52414d4b52414d;  // "MARKMARK"
std::uint64_t g_mark;

struct Seen {
    Found found;
    std::size_t at, size;
    std::uint64_t sequence;

    bool operator==(const Seen &) const = default;
};

void check_record(std::string_view frame, const accounting::Record &record) {
    REQUIRE(accounting::fault_of(record).empty());
    std::string body, again;
    accounting::encode_body(record, body);
    REQUIRE(body.size() == accounting::body_size(record));
    accounting::encode_frame(g_mark, record.sequence, body, again);
    // What fills a frame up is not covered by the checksum.
    REQUIRE(again.size() == frame.size());
    REQUIRE(frame.starts_with(std::string_view(again).substr(0, accounting::kFrameHead + body.size())));
}

std::vector<Seen> read(std::string_view bytes, std::uint64_t after) {
    std::vector<Seen> all;
    SegmentReader reader(bytes, g_mark, true, after);
    std::size_t covered = 0;
    std::uint64_t last = after;
    for (SegmentReader::Item item = reader.next(); item.found != Found::kEnd; item = reader.next()) {
        REQUIRE(item.found != Found::kMore && item.at == covered && item.size > 0);
        covered += item.size;
        REQUIRE(covered <= bytes.size());
        if (item.found == Found::kRecord) {
            REQUIRE(item.record.sequence > last);
            last = item.record.sequence;
            check_record(bytes.substr(item.at, item.size), item.record);
        } else {
            REQUIRE((item.found == Found::kTail) == (covered == bytes.size()));
        }
        all.push_back({item.found, item.at, item.size, item.record.sequence});
    }
    REQUIRE(covered == bytes.size());
    return all;
}

// The first part ends anywhere; the second begins where the first could not go on.
void read_in_parts(std::string_view bytes, std::size_t place, const std::vector<Seen> &whole) {
    std::vector<Seen> all;
    SegmentReader first(bytes.substr(0, place), g_mark, false, 0);
    std::size_t covered = 0;
    std::uint64_t last = 0;
    for (SegmentReader::Item item = first.next(); item.found == Found::kRecord; item = first.next()) {
        all.push_back({item.found, item.at, item.size, item.record.sequence});
        covered += item.size;
        last = item.record.sequence;
    }
    for (Seen seen : read(bytes.substr(covered), last)) {
        seen.at += covered;
        all.push_back(seen);
    }
    REQUIRE(all == whole);
}

std::string frames_of(fuzz::Input &input, std::vector<Seen> &expected) {
    std::string bytes;
    std::uint64_t sequence = 0;
    while (!input.empty()) {
        sequence += 1 + input.byte();
        const std::string body = input.text(static_cast<std::size_t>(input.number(2)));
        const std::size_t at = bytes.size();
        accounting::Record record;
        accounting::encode_frame(g_mark, sequence, body, bytes);
        if (accounting::decode_body(body, record)) {
            expected.push_back({Found::kRecord, at, bytes.size() - at, sequence});
        }
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t flags = input.byte();
    const std::size_t place = static_cast<std::size_t>(input.number(2));
    g_mark = (flags & 1) != 0 ? kKnownMark
                              : std::hash<std::string_view>{}({reinterpret_cast<const char *>(data), size});
    std::vector<Seen> expected;
    const std::string bytes = (flags & 1) != 0 ? input.rest() : frames_of(input, expected);
    const std::vector<Seen> whole = read(bytes, 0);
    read_in_parts(bytes, std::min(place, bytes.size()), whole);
    if ((flags & 1) == 0) {
        std::vector<Seen> records;
        for (const Seen &seen : whole) {
            if (seen.found == Found::kRecord) {
                records.push_back(seen);
            }
        }
        REQUIRE(records == expected);
    }
    return 0;
}
