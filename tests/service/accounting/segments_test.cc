// SPDX-License-Identifier: Apache-2.0

#include "records/segments.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

// Segments in a directory, opened again as after a restart.
class SegmentsTest : public testing::Test {
  protected:
    std::vector<Record> reopen() {
        segments.reset();
        directory = std::make_unique<Directory>(files);
        std::string error;
        EXPECT_TRUE(directory->open(path, error)) << error;
        segments = std::make_unique<Segments>(*directory, 0, lines.log());
        std::vector<Record> found;
        EXPECT_TRUE(segments->recover([&](const Record &record) { found.push_back(record); }, error))
            << error;
        return found;
    }
    // Appends records with these sequences.
    Segments::Appended append(std::uint64_t first, std::uint64_t last, std::size_t payload = 20) {
        std::vector<Unwritten> batch;
        for (std::uint64_t sequence = first; sequence <= last; ++sequence) {
            batch.push_back({sequence, body_of(record_of(sequence, payload))});
        }
        return segments->append(batch);
    }
    static Record record_of(std::uint64_t sequence, std::size_t payload = 20) {
        Record record = sample("s" + std::to_string(sequence % 5), Kind::kInterim, {"billing"},
                               std::string(payload, static_cast<char>('a' + sequence % 26)));
        record.sequence = sequence;
        return record;
    }
    static void expect_range(const std::vector<Record> &records, std::uint64_t first, std::uint64_t last,
                             std::size_t payload = 20) {
        ASSERT_EQ(records.size(), last - first + 1);
        for (const Record &record : records) {
            EXPECT_TRUE(same(record, record_of(first, payload))) << record.sequence << " for " << first;
            ++first;
        }
    }
    std::vector<Record> read_all(std::uint64_t from, std::uint64_t through) {
        std::vector<Record> records;
        ReadPoint point{from, 0, 0};
        for (bool end = false; !end;) {
            const Segments::Read read = segments->read(point, through);
            EXPECT_FALSE(read.failed);
            for (const RecordPointer &record : read.records) {
                records.push_back(*record);
            }
            point = read.next;
            end = read.end || read.failed;
        }
        return records;
    }
    std::vector<std::string> names(const std::string &prefix) { return names_in(path, prefix); }

    TempDir temp;
    std::string path = temp.path("journal");
    FailingFiles files;
    Lines lines;
    std::unique_ptr<Directory> directory;
    std::unique_ptr<Segments> segments;
};

TEST_F(SegmentsTest, FindsWhatWasAppended) {
    EXPECT_TRUE(reopen().empty());
    EXPECT_EQ(segments->next_sequence(), 1U);
    const Segments::Appended appended = append(1, 10);
    EXPECT_EQ(appended.result, Result::kOk);
    EXPECT_EQ(appended.durable, 10U);
    ASSERT_EQ(appended.places.size(), 10U);
    expect_range(reopen(), 1, 10);
    EXPECT_EQ(segments->next_sequence(), 11U);
    append(11, 12);
    expect_range(reopen(), 1, 12);
    EXPECT_EQ(names("records-").size(), 2U);
    EXPECT_EQ(lines.all(), "");
}

TEST_F(SegmentsTest, SyncsOnceForAllRecordsOfACall) {
    reopen();
    append(1, 1);
    const int before = files.calls(FailingFiles::kSyncData);
    append(2, 33);
    EXPECT_EQ(files.calls(FailingFiles::kSyncData), before + 1);
}

TEST_F(SegmentsTest, BeginsANewOneWhenOneIsFull) {
    reopen();
    EXPECT_EQ(append(1, 9, 40'000).durable, 9U);
    EXPECT_EQ(names("records-").size(), 9U);
    expect_range(read_all(1, 9), 1, 9, 40'000);
    expect_range(reopen(), 1, 9, 40'000);
}

TEST_F(SegmentsTest, ReadsFromAnyPlaceUpToAnyOther) {
    reopen();
    append(1, 40, 20'000);
    for (const std::uint64_t from : {1, 2, 17, 40}) {
        for (const std::uint64_t through : {1, 16, 17, 39, 40}) {
            const std::vector<Record> records = read_all(from, through);
            if (from > through) {
                EXPECT_TRUE(records.empty());
            } else {
                expect_range(records, from, through, 20'000);
            }
        }
    }
    EXPECT_TRUE(read_all(41, 40).empty());
    EXPECT_TRUE(read_all(41, 100).empty());
}

TEST_F(SegmentsTest, ReadsFromThePlaceOfARecord) {
    reopen();
    const Segments::Appended appended = append(1, 30);
    for (const ReadPoint &place : appended.places) {
        const Segments::Read read = segments->read(place, 30);
        ASSERT_FALSE(read.records.empty());
        EXPECT_EQ(read.records.front()->sequence, place.sequence);
        EXPECT_EQ(read.records.size(), 31 - place.sequence);
    }
}

TEST_F(SegmentsTest, GoesOnReadingWhereTheNewestOneHasGrown) {
    reopen();
    append(1, 3);
    Segments::Read read = segments->read({1, 0, 0}, 3);
    EXPECT_TRUE(read.end);
    append(4, 5);
    const ReadPoint next = read.next;
    EXPECT_NE(next.segment, 0U);
    read = segments->read(next, 5);
    ASSERT_EQ(read.records.size(), 2U);
    EXPECT_EQ(read.records[0]->sequence, 4U);
    // And in the one after it.
    append(6, 8, 60'000);
    std::vector<std::uint64_t> seen;
    for (ReadPoint at = read.next; !read.end || seen.empty() || seen.back() != 8; at = read.next) {
        read = segments->read(at, 8);
        for (const RecordPointer &record : read.records) {
            seen.push_back(record->sequence);
        }
    }
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{6, 7, 8}));
}

TEST_F(SegmentsTest, RemovesOnlyWhatItWasToldOf) {
    reopen();
    append(1, 3);
    EXPECT_FALSE(segments->remove(1, 2));  // one record came in between
    EXPECT_EQ(names("records-").size(), 1U);
    EXPECT_TRUE(segments->remove(1, 3));
    EXPECT_TRUE(names("records-").empty());
    EXPECT_TRUE(segments->remove(1, 3));
    EXPECT_EQ(append(4, 5).result, Result::kOk);
    expect_range(reopen(), 4, 5);
}

// ---- damage -------------------------------------------------------------------------------

TEST_F(SegmentsTest, LosesOneRecordForEachDamagedByte) {
    reopen();
    append(1, 3);
    const std::string name = names("records-").at(0);
    const std::string bytes = temp.read("journal/" + name);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        std::string damaged = bytes;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
        directory.reset();
        segments.reset();
        temp.write("journal/" + name, damaged);
        lines = {};
        const std::vector<Record> found = reopen();
        EXPECT_GE(found.size(), 2U) << at;
        EXPECT_TRUE(found.size() == 3 || lines.count() == 1) << at << "\n" << lines.all();
        EXPECT_EQ(names("damaged-").size(), found.size() == 3 ? 0U : 1U) << at;
        for (const Record &record : found) {
            EXPECT_TRUE(same(record, record_of(record.sequence))) << at;
        }
        for (const std::string &kept : names("damaged-")) {
            EXPECT_NE(damaged.find(temp.read("journal/" + kept)), std::string::npos);
            std::filesystem::remove(temp.path("journal/" + kept));
        }
    }
}

TEST_F(SegmentsTest, KeepsDamagedBytesOnce) {
    reopen();
    append(1, 3);
    const std::string name = names("records-").at(0);
    std::string bytes = temp.read("journal/" + name);
    bytes[kSegmentHead + 20] ^= 1;
    temp.write("journal/" + name, bytes);
    EXPECT_EQ(reopen().size(), 2U);
    EXPECT_TRUE(lines.has("are damaged; records in them are lost; kept in damaged-0000000000000001-32"))
        << lines.all();
    EXPECT_EQ(lines.count(), 1U);
    EXPECT_EQ(reopen().size(), 2U);
    EXPECT_EQ(lines.count(), 1U) << lines.all();
    expect_range(read_all(1, 3), 2, 3);
    EXPECT_EQ(lines.count(), 1U) << lines.all();
}

TEST_F(SegmentsTest, CutsATornEndAtEveryLength) {
    reopen();
    append(1, 2);
    const std::string name = names("records-").at(0);
    const std::string bytes = temp.read("journal/" + name);
    const std::size_t last = frame_size(body_of(record_of(2)).size());
    for (std::size_t size = bytes.size() - last; size < bytes.size(); ++size) {
        temp.write("journal/" + name, bytes.substr(0, size));
        expect_range(reopen(), 1, 1);
        EXPECT_EQ(temp.read("journal/" + name).size(), bytes.size() - last) << size;
        EXPECT_EQ(segments->next_sequence(), 2U);
        for (const std::string &kept : names("damaged-")) {
            std::filesystem::remove(temp.path("journal/" + kept));
        }
    }
}

TEST_F(SegmentsTest, RemovesAnEmptyOne) {
    temp.write("none", "");
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    temp.write("journal/" + SegmentName{5, 1}.text(), "");
    temp.write("journal/" + SegmentName{6, 1}.text(), encode_head({6, 1}));
    temp.write("journal/" + SegmentName{7, 1}.text(), encode_head({7, 1}) + std::string(4096, '\0'));
    EXPECT_TRUE(reopen().empty());
    EXPECT_TRUE(names("records-").empty());
    EXPECT_TRUE(names("damaged-").empty());
    EXPECT_GE(segments->next_sequence(), 7U);
}

TEST_F(SegmentsTest, DoesNotFillTheDiskWithDamage) {
    reopen();
    append(1, 200);
    const std::string name = names("records-").at(0);
    std::string bytes = temp.read("journal/" + name);
    const std::size_t frame = frame_size(body_of(record_of(1)).size());
    for (std::size_t i = 0; i < 200; i += 2) {
        bytes[kSegmentHead + i * frame + 20] ^= 1;
    }
    temp.write("journal/" + name, bytes);
    EXPECT_EQ(reopen().size(), 100U);
    EXPECT_EQ(names("damaged-").size(), 64U);
    EXPECT_TRUE(lines.has("could not be copied"));
}

TEST_F(SegmentsTest, IgnoresWhatIsNotItsOwn) {
    reopen();
    append(1, 2);
    temp.write("outside", "x");
    ASSERT_EQ(symlink(temp.path("outside").c_str(), (path + "/" + SegmentName{9, 9}.text()).c_str()), 0);
    ASSERT_EQ(mkdir((path + "/" + SegmentName{10, 9}.text()).c_str(), 0700), 0);
    ASSERT_EQ(mkfifo((path + "/" + SegmentName{11, 9}.text()).c_str(), 0600), 0);
    expect_range(reopen(), 1, 2);
    EXPECT_EQ(lines.count(), 3U);
    EXPECT_TRUE(lines.has("is ignored: it is not a plain file of the service's user")) << lines.all();
    EXPECT_GE(segments->next_sequence(), 11U);
}

TEST_F(SegmentsTest, ThatCannotBeReadNowStopTheStart) {
    reopen();
    append(1, 2);
    files.fail(FailingFiles::kOpen, EMFILE, FailingFiles::kForever, "records-");
    Segments others(*directory, 0, lines.log());
    std::string error;
    EXPECT_FALSE(others.recover([](const Record &) {}, error));
    EXPECT_NE(error.find("cannot read"), std::string::npos) << error;
}

TEST_F(SegmentsTest, PutsAwayWhatTheDiskDoesNotReturn) {
    reopen();
    append(1, 2);
    reopen();
    append(3, 4);
    const std::string first = names("records-").at(0);
    files.fail(FailingFiles::kRead, EIO, 1);
    EXPECT_TRUE(segments->read({1, 0, 0}, 4).failed);
    expect_range(read_all(1, 4), 3, 4);
    EXPECT_EQ(names("unreadable-"), std::vector<std::string>{"unreadable-" + first});
    EXPECT_TRUE(lines.has("the disk cannot read it"));
}

// ---- a disk that is full or fails ---------------------------------------------------------

TEST_F(SegmentsTest, AFullDiskCostsNothingThatWasThere) {
    reopen();
    append(1, 5);
    const auto size = std::filesystem::file_size(path + "/" + names("records-").at(0));
    for (const int room : {0, 1, 8, 100, 150}) {
        files.leave_room(room);
        const Segments::Appended appended = append(10, 12);
        EXPECT_EQ(appended.result, Result::kFull);
        EXPECT_EQ(appended.durable, 0U);
        EXPECT_EQ(appended.failed, 3U);
        EXPECT_FALSE(appended.broken);
        EXPECT_EQ(std::filesystem::file_size(path + "/" + names("records-").at(0)), size) << room;
    }
    files.leave_room(INT64_MAX / 2);
    EXPECT_EQ(append(13, 14).result, Result::kOk);
    EXPECT_EQ(reopen().size(), 7U);
    EXPECT_EQ(lines.all(), "");
}

TEST_F(SegmentsTest, AFullDiskThatCannotEvenCutTheEnd) {
    reopen();
    append(1, 5);
    files.leave_room(60);
    files.fail(FailingFiles::kTruncate, EIO);
    EXPECT_EQ(append(6, 7).result, Result::kFull);
    files.mend();
    files.leave_room(INT64_MAX / 2);
    EXPECT_EQ(append(8, 9).result, Result::kOk);
    EXPECT_EQ(read_all(1, 9).size(), 7U);
    EXPECT_EQ(reopen().size(), 7U);
    EXPECT_EQ(names("damaged-").size(), 1U);
}

TEST_F(SegmentsTest, NoRoomForANewOne) {
    reopen();
    files.fail(FailingFiles::kOpen, ENOSPC, FailingFiles::kForever, "records-");
    EXPECT_EQ(append(1, 1).result, Result::kFull);
    files.mend();
    files.leave_room(10);
    EXPECT_EQ(append(2, 2).result, Result::kFull);
    EXPECT_TRUE(names("records-").empty());
    files.leave_room(INT64_MAX / 2);
    EXPECT_EQ(append(3, 3).result, Result::kOk);
    EXPECT_EQ(reopen().size(), 1U);
}

TEST_F(SegmentsTest, TooManyOpenFilesPass) {
    reopen();
    files.fail(FailingFiles::kOpen, EMFILE, FailingFiles::kForever, "records-");
    const Segments::Appended appended = append(1, 1);
    EXPECT_EQ(appended.result, Result::kFailed);
    EXPECT_FALSE(appended.broken);
    append(2, 2);
    EXPECT_EQ(lines.count(), 2U);  // the names differ
    files.mend();
    EXPECT_EQ(append(3, 3).result, Result::kOk);
}

// After EIO the page cache may have dropped what it could not write.
// Someone deletes the file that is being written: what is answered must be in another one.
TEST_F(SegmentsTest, ARemovedFileIsFollowedByAnother) {
    reopen();
    append(1, 2);
    for (const std::string &name : names_in(path, "records-")) {
        std::filesystem::remove(path + "/" + name);
    }
    const Segments::Appended appended = append(3, 4);
    EXPECT_EQ(appended.durable, 2U);
    EXPECT_EQ(appended.result, Result::kOk);
    EXPECT_TRUE(lines.has("was removed while records were written to it"));
    expect_range(read_all(3, 4), 3, 4);
    expect_range(reopen(), 3, 4);
}

TEST_F(SegmentsTest, ARemovedDirectoryIsFinal) {
    reopen();
    append(1, 2);
    std::filesystem::remove_all(path);
    const Segments::Appended appended = append(3, 4);
    EXPECT_EQ(appended.durable, 0U);
    EXPECT_EQ(appended.result, Result::kFailed);
    EXPECT_TRUE(appended.broken);
    EXPECT_TRUE(lines.has("the directory was removed while the service uses it"));
    EXPECT_EQ(append(5, 5).result, Result::kFailed);
}

TEST_F(SegmentsTest, AFailedSyncIsFinal) {
    for (const FailingFiles::Call call :
         {FailingFiles::kSyncData, FailingFiles::kWrite, FailingFiles::kSync}) {
        std::filesystem::remove_all(path);
        reopen();
        if (call != FailingFiles::kSync) {
            append(1, 2);
        }
        files.fail(call, EIO, 1);
        Segments::Appended appended = append(3, 4);
        EXPECT_EQ(appended.result, Result::kFailed) << call;
        EXPECT_TRUE(appended.broken);
        EXPECT_EQ(appended.durable, 0U);
        appended = append(5, 6);
        EXPECT_EQ(appended.result, Result::kFailed) << call;
        EXPECT_TRUE(appended.broken);
        EXPECT_TRUE(lines.has("refused until the disk is repaired"));
        EXPECT_GE(reopen().size(), call == FailingFiles::kSync ? 0U : 2U);
        EXPECT_EQ(append(7, 8).result, Result::kOk);
    }
}

}  // namespace
}  // namespace accounting
