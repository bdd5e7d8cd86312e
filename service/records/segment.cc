// SPDX-License-Identifier: Apache-2.0
//
// Names, heads and frames of segments.
#include "records/segment.hpp"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

#include "records/bytes.hpp"
#include "records/crc32c.hpp"

namespace accounting {

namespace {

constexpr std::string_view kMagic = "AAAACCT1";
constexpr std::string_view kPrefix = "records-";
constexpr std::size_t kHexDigits = 16;
constexpr std::size_t kHeadSummed = 24;

std::optional<std::uint64_t> parse_hex(std::string_view text) {
    std::uint64_t value = 0;
    for (const char c : text) {
        const std::size_t digit = std::string_view("0123456789abcdef").find(c);
        if (digit == std::string_view::npos) {
            return std::nullopt;
        }
        value = value << 4 | digit;
    }
    return value;
}

std::uint32_t frame_checksum(std::string_view frame, std::size_t body) {
    // Without the field that holds it.
    return crc32c(frame.substr(16, 8 + body), crc32c(frame.substr(0, 12)));
}

}  // namespace

std::string SegmentName::text() const {
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%s%016" PRIx64 "-%016" PRIx64, kPrefix.data(), first, mark);
    return text.data();
}

std::optional<SegmentName> SegmentName::parse(std::string_view text) {
    if (text.size() != kPrefix.size() + 2 * kHexDigits + 1 || !text.starts_with(kPrefix) ||
        text[kPrefix.size() + kHexDigits] != '-') {
        return std::nullopt;
    }
    const auto first = parse_hex(text.substr(kPrefix.size(), kHexDigits));
    const auto mark = parse_hex(text.substr(kPrefix.size() + kHexDigits + 1));
    return first && mark ? std::optional<SegmentName>({*first, *mark}) : std::nullopt;
}

std::string encode_head(const SegmentName &name) {
    std::string head(kMagic);
    put(head, name.mark);
    put(head, name.first);
    put(head, crc32c(head));
    put(head, std::uint32_t{0});
    return head;
}

std::optional<SegmentName> decode_head(std::string_view bytes) {
    ByteReader in(bytes);
    const std::string_view magic = in.text(kMagic.size());
    SegmentName name;
    name.mark = in.number<std::uint64_t>();
    name.first = in.number<std::uint64_t>();
    const auto checksum = in.number<std::uint32_t>();
    const auto zero = in.number<std::uint32_t>();
    if (!in.fine() || magic != kMagic || zero != 0 || checksum != crc32c(bytes.substr(0, kHeadSummed))) {
        return std::nullopt;
    }
    return name;
}

void encode_frame(std::uint64_t mark, std::uint64_t sequence, std::string_view body, std::string &out) {
    const std::size_t begin = out.size();
    put(out, mark);
    put(out, static_cast<std::uint32_t>(body.size()));
    put(out, std::uint32_t{0});
    put(out, sequence);
    out += body;
    std::string checksum;
    put(checksum, frame_checksum(std::string_view(out).substr(begin), body.size()));
    out.replace(begin + 12, checksum.size(), checksum);
    out.append(frame_size(body.size()) - kFrameHead - body.size(), '\0');
}

std::size_t SegmentReader::frame_at(std::size_t at, Record &record) const {
    const std::string_view frame = bytes_.substr(at);
    ByteReader in(frame);
    const auto mark = in.number<std::uint64_t>();
    const auto length = in.number<std::uint32_t>();
    const auto checksum = in.number<std::uint32_t>();
    const auto sequence = in.number<std::uint64_t>();
    if (!in.fine() || mark != mark_ || length > kMaxBody || frame.size() < frame_size(length) ||
        sequence <= last_ || frame_checksum(frame, length) != checksum) {
        return 0;
    }
    record.sequence = sequence;
    return decode_body(frame.substr(kFrameHead, length), record) ? frame_size(length) : 0;
}

SegmentReader::Item SegmentReader::next() {
    Item item{.found = Found::kEnd, .at = at_, .size = 0, .record = {}};
    if (at_ == bytes_.size()) {
        item.found = whole_ ? Found::kEnd : Found::kMore;
        return item;
    }
    item.size = frame_at(at_, item.record);
    if (item.size != 0) {
        item.found = Found::kRecord;
        last_ = item.record.sequence;
        at_ += item.size;
        return item;
    }
    if (!whole_) {
        item.found = Found::kMore;
        return item;
    }
    Record following;
    std::size_t end = at_;
    do {
        end = std::min(end + kFrameAlignment, bytes_.size());
    } while (end < bytes_.size() && frame_at(end, following) == 0);
    item.found = end < bytes_.size() ? Found::kDamage : Found::kTail;
    item.size = end - at_;
    at_ = end;
    return item;
}

}  // namespace accounting
