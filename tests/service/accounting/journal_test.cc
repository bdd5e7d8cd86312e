// SPDX-License-Identifier: Apache-2.0

#include "accounting/journal.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>

#include "service/accounting/support.hpp"
#include "support/machine.hpp"

namespace accounting {
namespace {

class JournalTest : public testing::Test {
  protected:
    JournalTest() { settings.disk.directory = temp.path("journal"); }

    void reopen() {
        journal.reset();
        found.clear();
        Events events;
        events.log = lines.log();
        events.alarm = [this](Alarm alarm, bool raised) { alarms.emplace_back(alarm, raised); };
        journal = std::make_unique<Journal>(loop, settings, files, events);
        Journal::Recovered recovered;
        recovered.record = [this](const Record &record) { found.push_back(record.payload); };
        std::string error;
        ASSERT_TRUE(journal->open(recovered, error)) << error;
        journal->on_durable([this](const std::vector<Durable> &records) {
            for (const Durable &each : records) {
                durable.push_back(each.record->payload);
            }
        });
    }
    void append(const std::string &payload) {
        journal->append(sample("s", Kind::kEvent, {"billing"}, payload),
                        [this, payload](Result result) { answers.emplace_back(payload, result); });
    }
    void wait_for_answers(std::size_t count) {
        run_until(loop, [&] { return answers.size() >= count; });
    }
    Result append_and_wait(const std::string &payload) {
        append(payload);
        wait_for_answers(answers.size() + 1);
        return answers.back().second;
    }
    void remove_all() {
        bool removed = false;
        journal->remove(
            journal->removable(UINT64_MAX), [](Disk &) {}, [](Disk &) {});
        journal->on_disk([](Disk &) {}, [&] { removed = true; });
        run_until(loop, [&] { return removed; });
    }

    TempDir temp;
    net::Loop loop;
    FailingFiles files;
    Lines lines;
    JournalSettings settings;
    std::vector<std::pair<Alarm, bool>> alarms;
    std::vector<std::string> found, durable;
    std::vector<std::pair<std::string, Result>> answers;
    std::unique_ptr<Journal> journal;
};

using Alarms = std::vector<std::pair<Alarm, bool>>;

TEST_F(JournalTest, AnswersInOrderWhenRecordsAreOnDisk) {
    reopen();
    for (int i = 0; i < 1000; ++i) {
        append(std::to_string(i));
    }
    EXPECT_TRUE(answers.empty());  // never from inside append()
    wait_for_answers(1000);
    EXPECT_EQ(durable.size(), 1000U);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(answers[i].first, std::to_string(i));
        EXPECT_EQ(answers[i].second, Result::kOk);
    }
    EXPECT_LT(files.calls(FailingFiles::kSyncData), 1000);
    reopen();
    EXPECT_EQ(found, durable);
}

TEST_F(JournalTest, WritesWhatWasAppendedBeforeItEnds) {
    reopen();
    for (int i = 0; i < 100; ++i) {
        append(std::to_string(i));
    }
    journal.reset();
    EXPECT_TRUE(answers.empty());
    loop.run_once(0);
    EXPECT_TRUE(answers.empty());
    reopen();
    EXPECT_EQ(found.size(), 100U);
}

TEST_F(JournalTest, RefusesWhatIsNoRecord) {
    reopen();
    journal->append(Record{}, [this](Result result) { answers.emplace_back("", result); });
    wait_for_answers(1);
    EXPECT_EQ(answers[0].second, Result::kInvalid);
    EXPECT_TRUE(lines.has("an accounting record is refused: a record has 1 to 16 destinations"));
}

TEST_F(JournalTest, RefusesMoreThanMayWait) {
    settings.most_waiting = 10;
    reopen();
    for (int i = 0; i < 15; ++i) {
        append(std::to_string(i));
    }
    wait_for_answers(15);
    EXPECT_EQ(std::count_if(answers.begin(), answers.end(),
                            [](const auto &a) { return a.second == Result::kBusy; }),
              5);
    EXPECT_EQ(append_and_wait("later"), Result::kOk);
    settings.most_waiting = 1000;
    settings.most_waiting_bytes = 1000;
    reopen();
    append(std::string(700, 'x'));
    append(std::string(700, 'x'));
    answers.clear();
    wait_for_answers(2);
    EXPECT_EQ(answers[0].second, Result::kBusy);  // refused at once, the other waits for the disk
    EXPECT_EQ(answers[1].second, Result::kOk);
}

TEST_F(JournalTest, RefusesAtItsLimitAndRaisesAlarms) {
    settings.most_bytes = kLeastBytes;
    reopen();
    int kept = 0;
    while (append_and_wait(std::string(10'000, 'x')) == Result::kOk) {
        ++kept;
    }
    EXPECT_EQ(answers.back().second, Result::kFull);
    EXPECT_GT(kept, 95);
    EXPECT_LE(journal->bytes(), kLeastBytes);
    EXPECT_EQ(alarms, (Alarms{{Alarm::kLevel, true}, {Alarm::kFull, true}}));
    EXPECT_TRUE(lines.has("new ones are refused"));
    EXPECT_EQ(append_and_wait(std::string(10'000, 'x')), Result::kFull);
    EXPECT_EQ(alarms.size(), 2U);
    reopen();
    EXPECT_EQ(found.size(), static_cast<std::size_t>(kept));
    alarms.clear();
    EXPECT_EQ(append_and_wait(std::string(10'000, 'x')), Result::kFull);
    remove_all();
    EXPECT_EQ(alarms, (Alarms{{Alarm::kFull, true}, {Alarm::kLevel, false}, {Alarm::kFull, false}}));
    EXPECT_EQ(append_and_wait("x"), Result::kOk);
}

TEST_F(JournalTest, DropsTheOldestWhereItIsToldTo) {
    settings.most_bytes = kLeastBytes;
    settings.when_full = WhenFull::kDropOldest;
    reopen();
    std::vector<std::string> dropped;
    journal->on_dropped([&](const std::vector<RecordPointer> &records) {
        for (const RecordPointer &record : records) {
            dropped.push_back(record->payload);
        }
    });
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(append_and_wait(std::to_string(i) + std::string(10'000, 'x')), Result::kOk) << i;
        ASSERT_LE(journal->bytes(), kLeastBytes);
    }
    EXPECT_TRUE(lines.has("the oldest are dropped"));
    EXPECT_TRUE(journal->raised(Alarm::kFull));
    reopen();
    // Everything was dropped or is there.
    std::vector<std::string> all = dropped;
    all.insert(all.end(), found.begin(), found.end());
    EXPECT_EQ(all, durable);
    EXPECT_GT(dropped.size(), 150U);
}

TEST_F(JournalTest, SaysWhenTheDiskIsFullAndWhenItIsNotAnyMore) {
    reopen();
    EXPECT_EQ(append_and_wait("1"), Result::kOk);
    files.leave_room(10);
    EXPECT_EQ(append_and_wait("2"), Result::kFull);
    EXPECT_EQ(append_and_wait("3"), Result::kFull);
    EXPECT_EQ(alarms, (Alarms{{Alarm::kFull, true}}));
    files.leave_room(INT64_MAX / 2);
    EXPECT_EQ(append_and_wait("4"), Result::kOk);
    EXPECT_EQ(alarms, (Alarms{{Alarm::kFull, true}, {Alarm::kFull, false}}));
    reopen();
    EXPECT_EQ(found, (std::vector<std::string>{"1", "4"}));
}

TEST_F(JournalTest, AcknowledgesNothingAfterTheDiskFailed) {
    reopen();
    EXPECT_EQ(append_and_wait("1"), Result::kOk);
    files.fail(FailingFiles::kSyncData, EIO, 1);
    for (const char *payload : {"2", "3", "4"}) {
        EXPECT_EQ(append_and_wait(payload), Result::kFailed);
    }
    EXPECT_EQ(alarms, (Alarms{{Alarm::kFailed, true}}));
    EXPECT_TRUE(lines.has("Input/output error; accounting requests are refused until the disk is repaired"));
    reopen();
    EXPECT_EQ(append_and_wait("5"), Result::kOk);
    EXPECT_EQ(found.at(0), "1");
}

// A loss of power can take the last records and leave what is newer: a position, or the
// open sessions. A new record must not get a sequence that counts as delivered.
TEST_F(JournalTest, GivesNoSequenceThatCountsAsDelivered) {
    reopen();
    append_and_wait("1");
    journal->on_disk([](Disk &disk) {
        disk.positions.save("billing", {100, {}}, true);
        disk.sessions.save(200, {});
    });
    reopen();
    append_and_wait("2");
    EXPECT_EQ(journal->last_durable(), 201U);
    journal->on_disk([](Disk &disk) { disk.positions.save("billing", {300, {}}, true); });
    reopen();
    append_and_wait("3");
    EXPECT_EQ(journal->last_durable(), 300U);
}

TEST_F(JournalTest, KeepsTheNewestSegmentWhileItIsSmall) {
    reopen();
    append_and_wait("1");
    EXPECT_TRUE(journal->removable(UINT64_MAX).empty());
    reopen();  // not written to any more
    EXPECT_EQ(journal->removable(UINT64_MAX).size(), 1U);
    EXPECT_TRUE(journal->removable(1).empty());
}

TEST_F(JournalTest, DoesNotRemoveASegmentThatHasGrownMeanwhile) {
    settings.most_bytes = kLeastBytes;  // segments of 128 KiB
    reopen();
    append_and_wait(std::string(60'000, 'x'));
    const auto removable = journal->removable(2);
    ASSERT_EQ(removable.size(), 1U);
    append("2");  // before the thread removes anything
    wait_for_answers(2);
    bool done = false;
    journal->remove(
        removable, [](Disk &) {}, [](Disk &) {});
    journal->on_disk([](Disk &) {}, [&] { done = true; });
    run_until(loop, [&] { return done; });
    EXPECT_GT(journal->bytes(), 60'000U);
    reopen();
    EXPECT_EQ(found.size(), 2U);
}

// ---- a disk that is really full -----------------------------------------------------------

// A small tmpfs in a mount namespace of this process; it ends with the process.
bool mount_small_disk(const std::string &path, const char *options) {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("small", path.c_str(), "tmpfs", 0, options) == 0;
}

TEST_F(JournalTest, OnAFullDiskLosesNothingAndRecovers) {
    SKIP_WITHOUT_ROOT("needs the right to mount a small file system");
    SKIP_WITHOUT("mounts", mount_small_disk(temp.path(""), "size=1m,mode=0700"),
                 std::string("a small file system cannot be mounted: ") + std::strerror(errno));
    reopen();
    std::vector<std::string> kept;
    for (int i = 0; answers.empty() || answers.back().second == Result::kOk; ++i) {
        const std::string payload = std::to_string(i) + std::string(5'000, 'x');
        if (append_and_wait(payload) == Result::kOk) {
            kept.push_back(payload);
        }
    }
    EXPECT_EQ(answers.back().second, Result::kFull);
    EXPECT_GT(kept.size(), 150U);
    EXPECT_TRUE(journal->raised(Alarm::kFull));
    // Not even a start on the full disk loses anything.
    reopen();
    EXPECT_EQ(found, kept);
    EXPECT_EQ(append_and_wait(std::string(60'000, 'x')), Result::kFull);
    remove_all();
    EXPECT_EQ(append_and_wait("room again"), Result::kOk);
    EXPECT_FALSE(journal->raised(Alarm::kFull));
    journal.reset();
    umount2(temp.path("").c_str(), MNT_DETACH);
}

// The limit of the process's file sizes must not end the service.
TEST_F(JournalTest, SurvivesALimitOfFileSizes) {
    reopen();
    EXPECT_EQ(append_and_wait("1"), Result::kOk);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small = {2000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const Result result = append_and_wait(std::string(5'000, 'x'));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(result, Result::kFull);
    EXPECT_EQ(append_and_wait("2"), Result::kOk);
    reopen();
    EXPECT_EQ(found, (std::vector<std::string>{"1", "2"}));
}

}  // namespace
}  // namespace accounting
