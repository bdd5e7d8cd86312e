// SPDX-License-Identifier: Apache-2.0

#include "records/segment.hpp"

#include <gtest/gtest.h>

#include <vector>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

using Found = SegmentReader::Found;
constexpr std::uint64_t kMark = 0x0123456789abcdef;

std::string frames_of(const std::vector<Record> &records) {
    std::string bytes;
    for (const Record &record : records) {
        encode_frame(kMark, record.sequence, body_of(record), bytes);
    }
    return bytes;
}

std::vector<Record> some_records(int count) {
    std::vector<Record> records;
    for (int i = 1; i <= count; ++i) {
        records.push_back(sample("s" + std::to_string(i), Kind::kStart, {"d"},
                                 std::string(static_cast<std::size_t>(i), 'x')));
        records.back().sequence = static_cast<std::uint64_t>(2 * i);
    }
    return records;
}

std::vector<SegmentReader::Item> read_all(std::string_view bytes, std::uint64_t after = 0) {
    SegmentReader reader(bytes, kMark, true, after);
    std::vector<SegmentReader::Item> items;
    for (;;) {
        items.push_back(reader.next());
        if (items.back().found == Found::kEnd) {
            items.pop_back();
            return items;
        }
    }
}

TEST(SegmentName, IsReadAsItWasWritten) {
    const SegmentName name{0x1a, kMark};
    EXPECT_EQ(name.text(), "records-000000000000001a-0123456789abcdef");
    const auto read = SegmentName::parse(name.text());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->first, 0x1aU);
    EXPECT_EQ(read->mark, kMark);
}

TEST(SegmentName, IsNothingElse) {
    for (const char *text :
         {"", "lock", "records-", "records-000000000000001a-0123456789abcde",
          "records-000000000000001A-0123456789abcdef", "records-000000000000001a_0123456789abcdef",
          "Records-000000000000001a-0123456789abcdef", "records-000000000000001a-0123456789abcdef.new"}) {
        EXPECT_FALSE(SegmentName::parse(text)) << text;
    }
}

TEST(SegmentHead, IsReadOnlyWhole) {
    const std::string head = encode_head({7, kMark});
    EXPECT_EQ(head.size(), kSegmentHead);
    const auto read = decode_head(head + "more");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->first, 7U);
    EXPECT_EQ(read->mark, kMark);
    for (std::size_t i = 0; i < head.size(); ++i) {
        EXPECT_FALSE(decode_head(head.substr(0, i)));
        std::string damaged = head;
        damaged[i] ^= 1;
        EXPECT_FALSE(decode_head(damaged)) << i;
    }
}

TEST(Frame, HasThisForm) {
    std::string bytes;
    encode_frame(kMark, 5, "body!", bytes);
    ASSERT_EQ(bytes.size(), 32U);
    EXPECT_EQ(bytes.substr(0, 12), std::string("\xef\xcd\xab\x89\x67\x45\x23\x01\x05\0\0\0", 12));
    EXPECT_EQ(bytes.substr(16), std::string("\x05\0\0\0\0\0\0\0body!\0\0\0", 16));
    EXPECT_EQ(frame_size(5), 32U);
    EXPECT_EQ(frame_size(8), 32U);
    EXPECT_EQ(frame_size(9), 40U);
}

TEST(SegmentReader, GivesAllRecords) {
    const std::vector<Record> records = some_records(20);
    const auto items = read_all(frames_of(records));
    ASSERT_EQ(items.size(), records.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        EXPECT_EQ(items[i].found, Found::kRecord);
        EXPECT_TRUE(same(items[i].record, records[i]));
    }
}

TEST(SegmentReader, LosesOneRecordForADamagedByte) {
    const std::vector<Record> records = some_records(4);
    const std::string bytes = frames_of(records);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const char bit : {'\x01', '\x80', '\xff'}) {
            std::string damaged = bytes;
            damaged[at] = static_cast<char>(damaged[at] ^ bit);
            std::size_t good = 0, bad = 0, covered = 0;
            for (const SegmentReader::Item &item : read_all(damaged)) {
                EXPECT_EQ(item.at, covered);
                covered += item.size;
                if (item.found == Found::kRecord) {
                    ++good;
                    EXPECT_TRUE(std::any_of(records.begin(), records.end(), [&](const Record &record) {
                        return same(record, item.record);
                    })) << at;
                } else {
                    ++bad;
                }
            }
            EXPECT_EQ(covered, bytes.size());
            EXPECT_GE(good, 3U) << at;
            EXPECT_LE(bad, 1U) << at;
            EXPECT_EQ(good + bad, 4U) << at;
        }
    }
}

TEST(SegmentReader, ReportsATornEndAtEveryLength) {
    const std::vector<Record> records = some_records(3);
    const std::string bytes = frames_of(records);
    const std::size_t last = frames_of({records[2]}).size();
    for (std::size_t size = bytes.size() - last + 1; size < bytes.size(); ++size) {
        const auto items = read_all(bytes.substr(0, size));
        ASSERT_EQ(items.size(), 3U) << size;
        EXPECT_EQ(items[2].found, Found::kTail);
        EXPECT_EQ(items[2].at, bytes.size() - last);
        EXPECT_EQ(items[2].at + items[2].size, size);
    }
}

TEST(SegmentReader, SkipsWhatIsBetweenRecords) {
    const std::vector<Record> records = some_records(2);
    const std::string bytes = frames_of({records[0]}) + std::string(64, '\0') + frames_of({records[1]});
    const auto items = read_all(bytes);
    ASSERT_EQ(items.size(), 3U);
    EXPECT_EQ(items[1].found, Found::kDamage);
    EXPECT_EQ(items[1].size, 64U);
    EXPECT_TRUE(same(items[2].record, records[1]));
}

TEST(SegmentReader, TakesNoSequenceTwice) {
    const std::vector<Record> records = some_records(3);
    const auto repeated = read_all(frames_of({records[0], records[1], records[0], records[2]}));
    ASSERT_EQ(repeated.size(), 4U);
    EXPECT_EQ(repeated[2].found, Found::kDamage);
    EXPECT_EQ(repeated[3].record.sequence, 6U);
    const auto after = read_all(frames_of(records), 4);
    ASSERT_EQ(after.size(), 2U);
    EXPECT_EQ(after[0].found, Found::kDamage);
    EXPECT_EQ(after[1].record.sequence, 6U);
}

// A user's command that looks like a frame must not become a record when the bytes before
// it are damaged.
TEST(SegmentReader, TakesNothingFromInsideARecord) {
    std::string forged;
    encode_frame(kMark + 1, 100, body_of(sample("forged")), forged);
    std::vector<Record> records = some_records(2);
    const std::size_t before = kFrameHead + body_size(records[0]) - records[0].payload.size();
    records[0].payload = std::string((8 - before % 8) % 8, ' ') + forged;
    std::string bytes = frames_of(records);
    bytes[8] ^= 1;
    const auto items = read_all(bytes);
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[0].found, Found::kDamage);
    EXPECT_EQ(items[1].record.session, "s2");
}

TEST(SegmentReader, AsksForMoreOfAPart) {
    const std::vector<Record> records = some_records(3);
    const std::string bytes = frames_of(records);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SegmentReader reader(std::string_view(bytes).substr(0, size), kMark, false, 0);
        SegmentReader::Item item = reader.next();
        std::size_t covered = 0;
        for (; item.found == Found::kRecord; item = reader.next()) {
            covered += item.size;
        }
        EXPECT_EQ(item.found, Found::kMore) << size;
        EXPECT_EQ(item.at, covered);
    }
}

}  // namespace
}  // namespace accounting
