// SPDX-License-Identifier: Apache-2.0

#include "groups/radius_forms.hpp"

#include <gtest/gtest.h>

#include "aaa/names.h"

namespace service {
namespace {

using radius::Type;

Question login() {
    Question question;
    question.user = "ann";
    question.password = Secret("secret");
    question.terminal = "vty0";
    question.remote = "192.0.2.1";
    question.service = AAA_SVC_LOGIN;
    return question;
}

std::uint32_t number(const radius::Question &question, Type type) {
    const auto found = question.attributes().find(type);
    return found ? found->number().value_or(0xffff) : 0xffff;
}

TEST(RadiusForms, ALoginSaysWhoWhereAndWhatFor) {
    std::string error;
    auto request = radius_login(login(), error);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->attributes().joined(Type::kUserName), "ann");
    EXPECT_EQ(request->attributes().joined(Type::kNasPortId), "vty0");
    EXPECT_EQ(request->attributes().joined(Type::kCallingStationId), "192.0.2.1");
    EXPECT_EQ(number(*request, Type::kNasPortType), 5u);
    EXPECT_EQ(number(*request, Type::kServiceType), 1u);
    Question console = login();
    console.remote.clear();
    console.privilege = 15;
    request = radius_login(console, error);
    EXPECT_EQ(number(*request, Type::kNasPortType), 0u);
    EXPECT_EQ(number(*request, Type::kServiceType), 6u) << "a higher level is asked for";
    EXPECT_FALSE(request->attributes().find(Type::kCallingStationId));
    Question ppp = login();
    ppp.service = AAA_SVC_PPP;
    EXPECT_EQ(number(*radius_login(ppp, error), Type::kServiceType), 2u);
}

TEST(RadiusForms, WhatDoesNotFitIsRefusedAndNotCut) {
    std::string error;
    Question question = login();
    question.password = Secret(std::string(128, 'x'));
    EXPECT_TRUE(radius_login(question, error));
    question.password = Secret(std::string(129, 'x'));
    EXPECT_FALSE(radius_login(question, error));
    EXPECT_NE(error.find("128 bytes"), std::string::npos);
    question = login();
    question.user = std::string(253, 'u');
    EXPECT_TRUE(radius_login(question, error));
    question.user = std::string(254, 'u');
    EXPECT_FALSE(radius_login(question, error));
    AccountingRecord record;
    record.user = std::string(254, 'u');
    EXPECT_FALSE(radius_record(record, 0, error));
}

TEST(RadiusForms, ARecordSaysWhoHasAuthenticated) {
    std::string error;
    AccountingRecord record;
    record.user = "ann";
    for (const auto &[method, value] :
         {std::pair{AAA_METHOD_RADIUS, 1u}, std::pair{AAA_METHOD_LOCAL, 2u}, std::pair{AAA_METHOD_LINE, 2u},
          std::pair{AAA_METHOD_TACACSPLUS, 3u}}) {
        record.method = static_cast<std::uint32_t>(method);
        EXPECT_EQ(number(*radius_record(record, 0, error), Type::kAcctAuthentic), value);
    }
}

}  // namespace
}  // namespace service
