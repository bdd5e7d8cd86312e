// SPDX-License-Identifier: Apache-2.0

#include "groups/tacacs_forms.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "aaa/dictionary.h"
#include "aaa/names.h"

namespace service {
namespace {

using Texts = std::vector<std::string>;
using Status = tacacs::AuthorizationStatus;

Question asking(std::uint32_t service, std::optional<std::string> command = {}) {
    Question question;
    question.function = Function::kAuthorization;
    question.service = service;
    question.command = std::move(command);
    return question;
}

Outcome rights(Status status, Texts arguments, const Texts &asked = {"service=shell", "cmd="}) {
    tacacs::AuthorizationOutcome answer;
    answer.result = tacacs::Result::kAnswer;
    answer.status = status;
    answer.arguments = std::move(arguments);
    return tacacs_rights(answer, asked);
}

TEST(TacacsForms, AsksForAShellOrACommandWithArguments) {
    EXPECT_EQ(tacacs_rights_asked(asking(AAA_SVC_EXEC)), (Texts{"service=shell", "cmd="}));
    EXPECT_EQ(tacacs_rights_asked(asking(AAA_SVC_CMD, "show")), (Texts{"service=shell", "cmd=show"}));
    EXPECT_EQ(tacacs_rights_asked(asking(AAA_SVC_CMD, "  show  ip  route ")),
              (Texts{"service=shell", "cmd=show", "cmd-arg=ip", "cmd-arg=route"}));
    EXPECT_EQ(tacacs_rights_asked(asking(AAA_SVC_CMD, "  ")), (Texts{"service=shell", "cmd="}));
    EXPECT_EQ(tacacs_rights_asked(asking(AAA_SVC_PPP)), (Texts{"service=ppp"}));
}

TEST(TacacsForms, NothingIsCut) {
    Question question = asking(AAA_SVC_CMD, "show " + std::string(247, 'x'));
    EXPECT_EQ(tacacs_misfit(tacacs_subject(question), tacacs_rights_asked(question)), "");
    question.command = "show " + std::string(248, 'x');
    EXPECT_NE(tacacs_misfit(tacacs_subject(question), tacacs_rights_asked(question)), "");
    question.command = "show";
    question.user = std::string(256, 'u');
    EXPECT_NE(tacacs_misfit(tacacs_subject(question), tacacs_rights_asked(question)), "");
}

TEST(TacacsForms, AppliesWhatItKnows) {
    const Outcome outcome =
        rights(Status::kPassAdd, {"priv-lvl=15", "idletime=10", "timeout*2", "autocmd=show x", "odd*1"});
    EXPECT_EQ(outcome.kind, Outcome::Kind::kPass);
    EXPECT_EQ(outcome.privilege, 15u);
    ASSERT_EQ(outcome.attributes.size(), 3u);
    EXPECT_EQ(outcome.attributes[0].type, std::uint32_t{AAA_IDLETIME_ATTR});
    std::uint32_t seconds = 0;
    std::memcpy(&seconds, outcome.attributes[0].value.data(), sizeof seconds);
    EXPECT_EQ(seconds, 600u) << "minutes become seconds";
    EXPECT_EQ(outcome.attributes[2].value, std::string("show x") + '\0');
}

TEST(TacacsForms, RefusesWhatItCannotDo) {
    for (const Texts &arguments : {Texts{"vault=open"}, Texts{"priv-lvl=16"}, Texts{"priv-lvl=-1"},
                                   Texts{"priv-lvl*"}, Texts{"idletime=71582789"}, Texts{"cmd=reload"},
                                   Texts{"service=shell", "cmd=show", "cmd-arg=all"}}) {
        for (const Status status : {Status::kPassAdd, Status::kPassReplace}) {
            EXPECT_EQ(rights(status, arguments, {"service=shell", "cmd=show"}).kind, Outcome::Kind::kFail)
                << arguments[0];
        }
    }
}

TEST(TacacsForms, TheSameCommandAgainIsNoChange) {
    const Texts asked = {"service=shell", "cmd=show", "cmd-arg=ip"};
    EXPECT_EQ(rights(Status::kPassReplace, asked, asked).kind, Outcome::Kind::kPass);
    EXPECT_EQ(rights(Status::kPassAdd, asked, asked).kind, Outcome::Kind::kPass);
    EXPECT_EQ(rights(Status::kPassReplace, {"service=shell", "cmd=show"}, asked).kind, Outcome::Kind::kFail)
        << "without its argument it is another command";
    EXPECT_EQ(rights(Status::kPassReplace, {"priv-lvl=1"}, asked).privilege, 1u);
}

TEST(TacacsForms, ARefusalGivesNothing) {
    const Outcome outcome = rights(Status::kFail, {"priv-lvl=15"});
    EXPECT_EQ(outcome.kind, Outcome::Kind::kFail);
    EXPECT_EQ(outcome.privilege, std::nullopt);
    EXPECT_TRUE(outcome.attributes.empty());
}

TEST(TacacsForms, RecordsHaveTimesAndTask) {
    AccountingRecord record;
    record.kind = AccountingRecord::Kind::kStop;
    record.session = 7;
    record.time = 160;
    record.start = 100;
    record.elapsed = 60;
    record.privilege = 15;
    record.service = AAA_SVC_CMD;
    record.command = "show ip";
    EXPECT_EQ(tacacs_record(record), (Texts{"task_id=7", "start_time=100", "stop_time=160", "elapsed_time=60",
                                            "service=shell", "cmd=show", "cmd-arg=ip", "priv-lvl=15"}));
    record = {};
    record.session = 7;
    record.time = 100;
    EXPECT_EQ(tacacs_record(record), (Texts{"task_id=7", "start_time=100", "service=shell"}));
}

}  // namespace
}  // namespace service
