// SPDX-License-Identifier: Apache-2.0

#include "groups/record.hpp"

#include <gtest/gtest.h>

#include "aaa/names.h"

namespace service {
namespace {

AccountingRecord full() {
    AccountingRecord record;
    record.kind = AccountingRecord::Kind::kStop;
    record.end = AccountingRecord::End::kMachineRestarted;
    record.id = 0x14f1c00a7;
    record.session = 4711;
    record.time = 1700000060;
    record.start = 1700000000;
    record.service = AAA_SVC_EXEC;
    record.method = AAA_METHOD_RADIUS;
    record.privilege = 15;
    record.elapsed = 60;
    record.user = "ann";
    record.terminal = "vty0";
    record.remote = "192.0.2.1";
    record.command = "";
    record.classes = {"one", std::string("\0two", 4)};
    return record;
}

bool same(const AccountingRecord &one, const AccountingRecord &other) {
    return one.kind == other.kind && one.end == other.end && one.id == other.id &&
           one.session == other.session && one.time == other.time && one.start == other.start &&
           one.service == other.service && one.method == other.method && one.privilege == other.privilege &&
           one.elapsed == other.elapsed && one.user == other.user && one.terminal == other.terminal &&
           one.remote == other.remote && one.command == other.command && one.classes == other.classes;
}

TEST(Record, ReadsWhatItPacks) {
    for (AccountingRecord record : {full(), AccountingRecord{}}) {
        const auto read = unpack_record(pack_record(record));
        ASSERT_TRUE(read);
        EXPECT_TRUE(same(*read, record));
        record.command = "show version";
        EXPECT_EQ(unpack_record(pack_record(record))->command, "show version");
    }
}

TEST(Record, RefusesOtherBytes) {
    const std::string bytes = pack_record(full());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_FALSE(unpack_record(std::string_view(bytes).substr(0, length))) << length;
    }
    EXPECT_FALSE(unpack_record(bytes + "x"));
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        std::string changed = bytes;
        changed[at] = '\xff';
        const auto read = unpack_record(changed);
        EXPECT_TRUE(!read || pack_record(*read) == changed) << at;
    }
}

TEST(Record, OfAQuestionKnowsTheSession) {
    Logins logins;
    Question question;
    question.user = "ann";
    question.session = 7;
    question.record = AAA_MT_ACCT_START;
    auto record = record_of(question, logins, 5 * net::kSecond, 1000);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->kind, AccountingRecord::Kind::kStart);
    EXPECT_EQ(record->elapsed, std::nullopt);
    question.record = AAA_MT_ACCT_UPDATE;
    record = record_of(question, logins, 15 * net::kSecond, 900);  // the wall clock was set back
    EXPECT_EQ(record->kind, AccountingRecord::Kind::kInterim);
    EXPECT_EQ(record->elapsed, 10u);
    EXPECT_EQ(record->start, 1000u);
    question.record = AAA_MT_ACCT_STOP;
    for (int group = 0; group < 2; ++group) {
        record = record_of(question, logins, 25 * net::kSecond, 1020);
        EXPECT_EQ(record->kind, AccountingRecord::Kind::kStop);
        EXPECT_EQ(record->elapsed, 20u);
    }
    question.session = 8;
    record = record_of(question, logins, 25 * net::kSecond, 1020);
    EXPECT_EQ(record->elapsed, std::nullopt) << "begun before a restart";
    question.record = 99;
    EXPECT_FALSE(record_of(question, logins, 0, 0));
}

}  // namespace
}  // namespace service
