// SPDX-License-Identifier: Apache-2.0
//
// A segment: one file of the journal, as bytes. Numbers are little-endian.
//
//   head    "AAAACCT1", mark (8), first sequence (8), checksum of these 24 bytes (4), 0 (4)
//   frame   mark (8), length of the body (4), checksum (4), sequence (8), body,
//           zeros up to a multiple of 8
//
// The mark is a random number of the segment, also part of its file's name. A frame is
// found by its mark after damage, so what a user puts into a record must not look like a
// frame; a user does not know the mark. The checksum of a frame is that of mark, length,
// sequence and body.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "records/record.hpp"

namespace accounting {

inline constexpr std::size_t kSegmentHead = 32;
inline constexpr std::size_t kFrameHead = 24;
inline constexpr std::size_t kFrameAlignment = 8;
inline constexpr std::size_t kMaxFrame = (kFrameHead + kMaxBody + kFrameAlignment - 1) / 8 * 8;

struct SegmentName {
    std::uint64_t first = 0;  // the first sequence that may be in it
    std::uint64_t mark = 0;

    // "records-0000000000000001-89abcdef01234567"
    std::string text() const;
    static std::optional<SegmentName> parse(std::string_view text);
};

std::string encode_head(const SegmentName &name);
std::optional<SegmentName> decode_head(std::string_view bytes);

inline std::size_t frame_size(std::size_t body) {
    return (kFrameHead + body + kFrameAlignment - 1) / kFrameAlignment * kFrameAlignment;
}
void encode_frame(std::uint64_t mark, std::uint64_t sequence, std::string_view body, std::string &out);

// Reads the frames of a segment, or of a part of it that begins at a frame.
class SegmentReader {
  public:
    enum class Found {
        kRecord,
        kDamage,  // bytes that are no record, with a record after them
        kTail,    // bytes that are no record, up to the end
        kMore,    // not known without the bytes that follow
        kEnd,
    };
    struct Item {
        Found found = Found::kEnd;
        std::size_t at = 0;    // in the bytes
        std::size_t size = 0;  // of the frame, or of what is damaged
        Record record;
    };

    // `whole`: the bytes are all that there are up to the end of the segment. `after`:
    // sequences up to this one are not accepted, because they only increase.
    SegmentReader(std::string_view bytes, std::uint64_t mark, bool whole, std::uint64_t after)
        : bytes_(bytes), mark_(mark), whole_(whole), last_(after) {}

    Item next();

  private:
    // The size of the record's frame at a place, or 0.
    std::size_t frame_at(std::size_t at, Record &record) const;

    std::string_view bytes_;
    std::uint64_t mark_;
    bool whole_;
    std::uint64_t last_;
    std::size_t at_ = 0;
};

}  // namespace accounting
