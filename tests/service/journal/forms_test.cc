// SPDX-License-Identifier: Apache-2.0

#include "journal/forms.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include "aaa/names.h"

namespace service {
namespace {

using Kind = AccountingRecord::Kind;

AccountingRecord record_of(Kind kind, std::uint32_t session = 7) {
    AccountingRecord record;
    record.kind = kind;
    record.session = session;
    record.user = "ann";
    record.time = 1000;
    record.start = 1000;
    record.classes = {"one"};
    return record;
}

accounting::Record opened_at(accounting::Moment moment) {
    accounting::Record opened;
    opened.kind = accounting::Kind::kStart;
    opened.session = "ann/00000007";
    opened.arrival = moment;
    opened.destinations = {"corp", "billing"};
    opened.payload = pack_record(record_of(Kind::kStart));
    return opened;
}

accounting::Moment at(std::int64_t seconds, std::uint8_t boot = 1) {
    constexpr std::int64_t kSecond = 1'000'000'000;
    return {{boot}, 1'700'000'000 * kSecond + seconds * kSecond, 1000 * kSecond + seconds * kSecond};
}

TEST(Forms, ADestinationIsAGroupWhateverItsProtocol) {
    Group group;
    group.name = "corp";
    EXPECT_EQ(destination_of(group), "corp");
    group.protocol = Protocol::kTacacs;
    EXPECT_EQ(destination_of(group), "corp");
    group.name = "";
    EXPECT_EQ(destination_of(group), std::string(protocol_word(Protocol::kTacacs)) + "/all");
}

TEST(Forms, OnlyRecordsOfSessionsOpenAndCloseThem) {
    Question question;
    question.client_pid = getpid();
    const auto start = journal_record(question, record_of(Kind::kStart), {"corp"});
    EXPECT_EQ(start.kind, accounting::Kind::kStart);
    EXPECT_EQ(start.session, "ann/00000007");
    EXPECT_EQ(start.process.pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_NE(start.process.started, 0U);
    EXPECT_EQ(journal_record(question, record_of(Kind::kStop), {"corp"}).kind, accounting::Kind::kStop);
    EXPECT_EQ(journal_record(question, record_of(Kind::kInterim), {"corp"}).kind, accounting::Kind::kInterim);
    AccountingRecord command = record_of(Kind::kStart);
    command.command = "show version";
    EXPECT_EQ(journal_record(question, command, {"corp"}).kind, accounting::Kind::kEvent);
    EXPECT_EQ(journal_record(question, command, {"corp"}).session, start.session) << "in its order";
    const auto without = journal_record(question, record_of(Kind::kStart, 0), {"corp"});
    EXPECT_EQ(without.kind, accounting::Kind::kEvent);
    EXPECT_NE(without.session, start.session);
    EXPECT_EQ(fault_of(without), "");
}

TEST(Forms, ARecordIsCompletedFromTheOneThatOpenedItsSession) {
    AccountingRecord stop = record_of(Kind::kStop);
    stop.start = 0;  // the service was restarted
    stop.classes.clear();
    complete(stop, opened_at(at(0)), at(60));
    EXPECT_EQ(stop.start, 1000U);
    EXPECT_EQ(stop.classes, std::vector<std::string>{"one"});
    EXPECT_EQ(stop.elapsed, 60U);
    AccountingRecord known = record_of(Kind::kStop);
    known.start = 900;
    known.elapsed = 5;
    complete(known, opened_at(at(0)), at(60));
    EXPECT_EQ(known.start, 900U) << "what is known stays";
    EXPECT_EQ(known.elapsed, 5U);
}

TEST(Forms, RecordsOfTheServiceItself) {
    const auto interim = interim_record(opened_at(at(0)), at(60), 5000);
    ASSERT_TRUE(interim);
    EXPECT_EQ(interim->kind, accounting::Kind::kInterim);
    EXPECT_EQ(interim->destinations, (std::vector<std::string>{"corp", "billing"}));
    auto record = unpack_record(interim->payload);
    EXPECT_EQ(record->kind, Kind::kInterim);
    EXPECT_EQ(record->time, 5000U);
    EXPECT_EQ(record->elapsed, 60U);
    EXPECT_EQ(record->classes, std::vector<std::string>{"one"});

    const auto closing = closing_record(opened_at(at(0)), at(60), 5000);
    record = unpack_record(closing->payload);
    EXPECT_EQ(closing->kind, accounting::Kind::kStop);
    EXPECT_EQ(record->kind, Kind::kStop);
    EXPECT_EQ(record->end, AccountingRecord::End::kProgramGone);
    const auto after_boot = closing_record(opened_at(at(0)), at(60, 2), 5000);
    EXPECT_EQ(unpack_record(after_boot->payload)->end, AccountingRecord::End::kMachineRestarted);
}

// The wall clock jumps by years; the machine has run for a minute.
TEST(Forms, AJumpOfTheClockDoesNotMakeASessionLong) {
    accounting::Moment later = at(60);
    later.wall += std::int64_t{3600} * 24 * 365 * 1'000'000'000;
    EXPECT_EQ(unpack_record(interim_record(opened_at(at(0)), later, 5000)->payload)->elapsed, 60U);
    later.wall = 1;
    EXPECT_EQ(unpack_record(interim_record(opened_at(at(0)), later, 5000)->payload)->elapsed, 60U);
}

TEST(Forms, AnUnreadableOpeningRecordGivesNone) {
    accounting::Record opened = opened_at(at(0));
    opened.payload = "of another version";
    EXPECT_FALSE(interim_record(opened, at(60), 5000));
    EXPECT_FALSE(closing_record(opened, at(60), 5000));
    AccountingRecord stop = record_of(Kind::kStop);
    stop.start = 0;
    complete(stop, opened, at(60));
    EXPECT_EQ(stop.start, 0U);
}

}  // namespace
}  // namespace service
