// SPDX-License-Identifier: Apache-2.0
//
// What an accept of a RADIUS server is worth: privilege levels, authorization, records.

#include <gtest/gtest.h>

#include "service/groups/group_fixture.hpp"

namespace groups_test {
namespace {

using radius::Code;
using radius::Type;
using radius_test::Packet;
using radius_test::UdpServer;

class AaadRadiusRights : public GroupTest {
  protected:
    UdpServer first_{loop_};
};

TEST_F(AaadRadiusRights, TheServiceTypeOfAnAcceptIsThePrivilegeLevel) {
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    const struct {
        std::string attributes;
        uint32_t status;
        std::optional<uint32_t> privilege;
    } rows[] = {
        {"", AAA_STAT_PASS, std::nullopt},
        {number_attribute(6, 1), AAA_STAT_PASS, 1},
        {number_attribute(6, 7), AAA_STAT_PASS, 1},
        {number_attribute(6, 8), AAA_STAT_PASS, std::nullopt},
        {number_attribute(6, 2), AAA_STAT_FAIL, std::nullopt},  // framed: no login
        {number_attribute(6, 99), AAA_STAT_FAIL, std::nullopt},
    };
    for (const auto &row : rows) {
        Login login(aaad_, ask_as("ann", "secret"));
        first_.answer(first_.next(), Code::kAccessAccept, row.attributes);
        const Reply reply = login.wait();
        EXPECT_EQ(reply.status, row.status);
        EXPECT_EQ(reply.privilege, row.privilege);
    }
}

TEST_F(AaadRadiusRights, AMapSaysWhatAttributesOfVendorsMean) {
    add_radius(first_);
    set_text("radius", "", "vendor-map",
             aaad_.dir().write("vendors", "32473 2 number privilege\n32473 1 text group\n"));
    lists({"corp"});
    aaad_.start();
    const auto vendor = [](int type, const std::string &value) {
        return attribute(26, std::string("\0\0\x7e\xd9", 4) + attribute(type, value));
    };
    const struct {
        std::string attributes;
        uint32_t status;
        std::optional<uint32_t> privilege;
    } rows[] = {
        {vendor(2, std::string("\0\0\0\7", 4)), AAA_STAT_PASS, 7},
        {number_attribute(6, 6) + vendor(2, std::string("\0\0\0\3", 4)), AAA_STAT_PASS, 3},
        {number_attribute(6, 6) + vendor(2, std::string("\0\0\0\x10", 4)), AAA_STAT_FAIL, std::nullopt},
        {number_attribute(6, 6) + vendor(2, "15"), AAA_STAT_FAIL, std::nullopt},  // no number
    };
    for (const auto &row : rows) {
        Login login(aaad_, ask_as("ann", "secret"));
        first_.answer(first_.next(), Code::kAccessAccept, row.attributes);
        const Reply reply = login.wait();
        EXPECT_EQ(reply.status, row.status);
        EXPECT_EQ(reply.privilege, row.privilege);
    }
}

TEST_F(AaadRadiusRights, RightsOfALoginAreThoseOfItsAccept) {
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = ask_as("ann", "secret");
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_ERROR}) << "not authenticated here";
    {
        Login login(client, ask);
        first_.answer(first_.next(), Code::kAccessAccept, number_attribute(6, 6));
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    Reply reply = client.authorize(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.privilege, 15u);
    Ask other = ask;
    other.user = "ben";
    EXPECT_EQ(client.authorize(other).status, uint32_t{AAA_STAT_ERROR}) << "of another user";
    ask.command = "show version";
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_ERROR});
    EXPECT_TRUE(aaad_.wait_for_log("RADIUS cannot authorize commands"));
    EXPECT_FALSE(first_.has_one()) << "no server is asked";
}

TEST_F(AaadRadiusRights, RecordsCarryTheClassOfTheLogin) {
    add_radius(first_);
    lists({"corp"});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = ask_as("ann", "secret");
    {
        Login login(client, ask);
        first_.answer(first_.next(), Code::kAccessAccept, attribute(25, "one") + attribute(25, "two"));
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    for (const auto &[record, status] :
         {std::pair{AAA_ACCT_START_OPT, 1u}, std::pair{AAA_ACCT_STOP_OPT, 2u}}) {
        ask.record = static_cast<uint32_t>(record);
        Reply reply;
        std::thread thread([&] { reply = client.account(ask); });
        const Packet request = first_.next();
        EXPECT_EQ(request.code(), 4);
        EXPECT_EQ(request.number(Type::kAcctStatusType), status);
        EXPECT_EQ(request.text(Type::kAcctSessionId), "00001267");
        EXPECT_EQ(request.text(Type::kClass), "onetwo");
        EXPECT_EQ(request.text(Type::kUserName), "ann");
        EXPECT_EQ(request.number(Type::kAcctSessionTime).has_value(), status == 2);
        first_.answer(request, Code::kAccountingResponse);
        thread.join();
        EXPECT_EQ(reply.result, AAA_OK);
    }
}

TEST_F(AaadRadiusRights, ARecordThatNoServerTakesIsAnError) {
    add_radius(first_, 50);
    lists({"corp"});
    aaad_.settings("journal none\n");
    aaad_.start();
    EXPECT_EQ(aaad_.client().account(ask_as("ann", std::nullopt)).result, AAA_ERR_ACCT_SERVICE);
}

}  // namespace
}  // namespace groups_test
