// SPDX-License-Identifier: Apache-2.0

#include "accounting/positions.hpp"

#include <gtest/gtest.h>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

class PositionsTest : public testing::Test {
  protected:
    std::map<std::string, Position> reopen() {
        positions.reset();
        directory = std::make_unique<Directory>(files);
        std::string error;
        EXPECT_TRUE(directory->open(path, error)) << error;
        positions = std::make_unique<PositionFiles>(*directory, lines.log());
        std::map<std::string, Position> loaded;
        EXPECT_TRUE(positions->load(loaded, error)) << error;
        return loaded;
    }

    TempDir temp;
    std::string path = temp.path("journal");
    FailingFiles files;
    Lines lines;
    std::unique_ptr<Directory> directory;
    std::unique_ptr<PositionFiles> positions;
};

TEST(Position, KnowsWhatIsDone) {
    const Position position{10, {3, 7}};
    for (std::uint64_t sequence = 1; sequence < 12; ++sequence) {
        EXPECT_EQ(position.is_done(sequence), sequence < 10 && sequence != 3 && sequence != 7) << sequence;
    }
    EXPECT_EQ(position.lowest(), 3U);
    EXPECT_EQ((Position{10, {}}.lowest()), 10U);
}

TEST(Position, IsLimitedToTheSafeSide) {
    Position position{100'000, {}};
    for (std::uint64_t i = 0; i < 2 * kMaxUndelivered; ++i) {
        position.undelivered.push_back(3 * i + 1);
    }
    const Position less = limited(position);
    EXPECT_EQ(less.undelivered.size(), kMaxUndelivered);
    for (std::uint64_t sequence = 1; sequence < 100'000; ++sequence) {
        EXPECT_TRUE(position.is_done(sequence) || !less.is_done(sequence)) << sequence;
    }
}

TEST(PositionFileName, IsPlainAndUnique) {
    EXPECT_EQ(position_file_name("billing-1_A"), "position-billing-1_A");
    EXPECT_EQ(position_file_name("../etc"), "position-%2E%2E%2Fetc");
    EXPECT_EQ(position_file_name("a%41\xff"), "position-a%2541%FF");
}

TEST_F(PositionsTest, AreFoundAgain) {
    EXPECT_TRUE(reopen().empty());
    EXPECT_TRUE(positions->save("billing", {10, {3, 7}}, false));
    EXPECT_TRUE(positions->save("../x y", {20, {}}, true));
    EXPECT_TRUE(positions->save("billing", {12, {7}}, false));
    std::map<std::string, Position> expected{{"billing", {12, {7}}}, {"../x y", {20, {}}}};
    EXPECT_EQ(reopen(), expected);
    expected["billing"].cursor = 13;
    EXPECT_TRUE(positions->save("billing", expected["billing"], false));
    EXPECT_EQ(reopen(), expected);
    EXPECT_TRUE(positions->remove("billing"));
    EXPECT_TRUE(positions->remove("billing"));
    EXPECT_EQ(reopen().size(), 1U);
}

TEST_F(PositionsTest, DamageOfTheNewestGivesTheOneBefore) {
    reopen();
    positions->save("billing", {10, {3}}, false);
    positions->save("billing", {20, {}}, false);
    const std::string file = "journal/position-billing";
    const std::string bytes = temp.read(file);
    ASSERT_EQ(bytes.size(), 2 * kPositionSlot);
    int before = 0, newest = 0;
    for (std::size_t at = 0; at < bytes.size(); at += at % kPositionSlot < 64 ? 1 : 61) {
        std::string damaged = bytes;
        damaged[at] = static_cast<char>(damaged[at] ^ 4);
        directory.reset();
        temp.write(file, damaged);
        const Position loaded = reopen()["billing"];
        EXPECT_TRUE(loaded.cursor == 10 || loaded.cursor == 20);
        ++(loaded.cursor == 10 ? before : newest);
    }
    EXPECT_GT(before, 64);
    EXPECT_GT(newest, 64);
    EXPECT_EQ(lines.all(), "");
}

TEST_F(PositionsTest, DamageOfBothBeginsAtTheBeginning) {
    reopen();
    positions->save("billing", {10, {}}, false);
    directory.reset();
    temp.write("journal/position-billing", std::string(100, 'x'));
    EXPECT_EQ(reopen()["billing"], Position{});
    EXPECT_TRUE(lines.has("position-billing is damaged"));
    EXPECT_TRUE(positions->save("billing", {11, {}}, false));
    EXPECT_EQ(reopen()["billing"].cursor, 11U);
}

// A copied file must not make another destination skip its records.
TEST_F(PositionsTest, OfOneDestinationIsNotThatOfAnother) {
    reopen();
    positions->save("billing", {10, {}}, false);
    std::filesystem::copy(path + "/position-billing", path + "/position-audit");
    EXPECT_EQ(reopen()["audit"], Position{});
}

TEST_F(PositionsTest, AreWrittenOnAFullDiskOnceTheyAreThere) {
    reopen();
    files.leave_room(5000);
    EXPECT_FALSE(positions->save("billing", {10, {}}, false));
    EXPECT_TRUE(lines.has("cannot write"));
    EXPECT_FALSE(positions->save("billing", {10, {}}, false));
    EXPECT_EQ(lines.count(), 1U);
    files.leave_room(INT64_MAX / 2);
    EXPECT_TRUE(positions->save("billing", {11, {}}, false));
    EXPECT_EQ(reopen()["billing"].cursor, 11U);
}

TEST_F(PositionsTest, ThatCannotBeReadStopTheStart) {
    reopen();
    positions->save("billing", {10, {}}, false);
    files.fail(FailingFiles::kOpen, EMFILE, FailingFiles::kForever, "position-");
    PositionFiles others(*directory, lines.log());
    std::map<std::string, Position> loaded;
    std::string error;
    EXPECT_FALSE(others.load(loaded, error));
    EXPECT_NE(error.find("position-billing"), std::string::npos);
}

}  // namespace
}  // namespace accounting
