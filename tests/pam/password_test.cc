// SPDX-License-Identifier: Apache-2.0

#include "pam/host.hpp"

using namespace pam_test;

namespace {

Action changed() {
    return answer([](avlist *list) {
        replies::status(AAA_STAT_PASS)(list);
        EXPECT_EQ(aaa_util_avlist_msgtype_add(AAA_MT_ASCII_CHPASS, list), AAA_OK);
        replies::add_text(list, AAA_REPLYMSG_ATTR, "Changed.");
    });
}

// Asks for the old password, the new one, and the new one again.
class ChangingService {
  public:
    Action operator()(const Request &request) {
        EXPECT_EQ(request.message_type, static_cast<uint32_t>(AAA_MT_ASCII_CHPASS));
        EXPECT_EQ(request.user, "alice");
        got->push_back(request.password);
        const std::vector<Action> actions{status(AAA_STAT_GETPASS), status(AAA_STAT_GETDATA),
                                          status(AAA_STAT_GETDATA), changed()};
        return actions[std::min(got->size(), actions.size()) - 1];
    }
    std::shared_ptr<std::vector<std::string>> got = std::make_shared<std::vector<std::string>>();
};

class Password : public PamTest {};

TEST_F(Password, IsChangedInTheRoundsOfTheService) {
    const ChangingService changing;
    service_.set(changing);
    Login login(dir_, options());
    EXPECT_EQ(login.change({"old", "new", "new"}), PAM_SUCCESS);
    EXPECT_EQ(*changing.got, (std::vector<std::string>{"", "old", "new", "new"}));
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_PROMPT_ECHO_OFF, "Current password: "},
                                                {PAM_PROMPT_ECHO_OFF, "New password: "},
                                                {PAM_PROMPT_ECHO_OFF, "Retype new password: "},
                                                {PAM_TEXT_INFO, "Changed."}}));
}

TEST_F(Password, IsNotSentWhenTheUserMistypesIt) {
    const ChangingService changing;
    service_.set(changing);
    Login login(dir_, options());
    EXPECT_EQ(login.change({"old", "new", "nwe"}), PAM_TRY_AGAIN);
    EXPECT_EQ(*changing.got, (std::vector<std::string>{"", "old"}));

    const ChangingService another;
    service_.set(another);
    EXPECT_EQ(Login(dir_, options()).change({"old", "", ""}), PAM_AUTHTOK_ERR);
    EXPECT_EQ(*another.got, (std::vector<std::string>{"", "old"}));
}

// A service that knows logins only accepts the old password and would ask for a code.
TEST_F(Password, IsNotTakenForChangedByAServiceThatLogsIn) {
    service_.set([](const Request &) { return status(AAA_STAT_PASS); });
    Login login(dir_, options());
    EXPECT_EQ(login.change({"old", "new", "new"}), PAM_AUTHTOK_ERR);
    EXPECT_EQ(login.heard().back().text,
              "The AAA service does not change passwords. The password is unchanged.");

    int round = 0;
    service_.set([&](const Request &) {
        return status(std::vector<uint32_t>{AAA_STAT_GETPASS, AAA_STAT_GETDATA, AAA_STAT_PASS}.at(round++));
    });
    Login second(dir_, options());
    EXPECT_EQ(second.change({"old", "new", "new"}), PAM_AUTHTOK_ERR);

    service_.set([](const Request &) { return changed(); });  // before it has the new password
    EXPECT_EQ(Login(dir_, options()).change({"old", "new", "new"}), PAM_AUTHTOK_ERR);
}

TEST_F(Password, IsUnchangedAfterARefusal) {
    service_.set([](const Request &) { return say(AAA_STAT_FAIL, "Too short."); });
    Login login(dir_, options());
    EXPECT_EQ(login.change({"old", "new", "new"}), PAM_AUTHTOK_ERR);
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_ERROR_MSG, "Too short."}}));
    service_.set([](const Request &) { return status(AAA_STAT_GETDATA); });
    EXPECT_EQ(Login(dir_, options("max_challenge=2")).change({"new", "new"}), PAM_AUTHTOK_ERR);
}

TEST_F(Password, IsNotAskedForWithoutAService) {
    Login login(dir_, "socket=/nonexistent/socket");
    EXPECT_NE(login.change({"old", "new", "new"}), PAM_SUCCESS);
    EXPECT_EQ(login.asked(), 0);
}

TEST_F(Password, ComesFromAnEarlierModuleWithUseAuthtok) {
    Login login(dir_, options("use_authtok"));
    const ChangingService changing;
    service_.set(changing);
    EXPECT_EQ(login.change({"old"}), PAM_AUTHTOK_ERR);
    EXPECT_EQ(login.asked(), 1);
}

}  // namespace
