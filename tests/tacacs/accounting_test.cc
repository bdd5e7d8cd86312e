// SPDX-License-Identifier: Apache-2.0
//
// Accounting packets, against those of another implementation.

#include "tacacs/accounting.hpp"

#include "tacacs/vectors.hpp"

namespace tacacs {
namespace {

using tacacs_test::body_of;

const Subject kAlice = {.user = "alice",
                        .port = "tty0",
                        .remote_address = "192.0.2.7",
                        .privilege = 15,
                        .method = Method::kTacacs};

std::string made(Record record, const std::vector<std::string> &arguments) {
    SecretBytes packet = begin_packet(0);
    EXPECT_EQ(append_accounting(record, kAlice, arguments, packet), "");
    Session session(Type::kAccounting, 0, tacacs_test::protection(), tacacs_test::kSession);
    EXPECT_TRUE(session.seal(packet, false));
    return std::string(packet.view());
}

TEST(AccountingRequest, CarriesRecordSubjectAndArguments) {
    const std::vector<std::string> stop = {"task_id=7", "service=shell", "elapsed_time=12"};
    EXPECT_EQ(made(Record::kStart, {"task_id=7", "service=shell"}), tacacs_test::vector("start"));
    EXPECT_EQ(made(Record::kStop, stop), tacacs_test::vector("stop"));
    EXPECT_EQ(made(Record::kWatchdog, stop), tacacs_test::vector("watchdog"));
}

TEST(AccountingRequest, RefusesWhatDoesNotFit) {
    SecretBytes packet = begin_packet(0);
    const std::vector<std::string> arguments = {"cmd=" + std::string(252, 'x')};
    EXPECT_NE(append_accounting(Record::kStop, kAlice, arguments, packet), "");
}

TEST(AccountingReply, IsReadFieldByField) {
    AccountingReply reply;
    const std::string success = body_of("accounted", Type::kAccounting);
    ASSERT_EQ(AccountingReply::read(success, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AccountingStatus::kSuccess);
    const std::string error = body_of("not_accounted", Type::kAccounting);
    ASSERT_EQ(AccountingReply::read(error, reply), Fault::kNone);
    EXPECT_EQ(reply.status, AccountingStatus::kError);
    EXPECT_EQ(reply.message, "disk full");
    EXPECT_EQ(reply.data, "no space");
}

TEST(AccountingReply, OfAnyOtherLengthIsRefused) {
    const std::string body = body_of("not_accounted", Type::kAccounting);
    AccountingReply reply;
    const auto refuse = [&](const std::string &other) {
        EXPECT_EQ(AccountingReply::read(other, reply), Fault::kMalformed) << other.size();
    };
    tacacs_test::for_each_other_length(body, refuse);
    for (std::size_t at = 0; at < 4; ++at) {
        std::string other = body;
        other[at] = static_cast<char>(other[at] ^ 1);
        refuse(other);
    }
}

TEST(AccountingReply, WithAnUnknownStatusIsRefused) {
    std::string body = body_of("accounted", Type::kAccounting);
    AccountingReply reply;
    for (int status = 0; status < 256; ++status) {
        body[4] = static_cast<char>(status);
        const bool is_known = status == 1 || status == 2 || status == 0x21;
        EXPECT_EQ(AccountingReply::read(body, reply), is_known ? Fault::kNone : Fault::kMalformed) << status;
    }
}

}  // namespace
}  // namespace tacacs
