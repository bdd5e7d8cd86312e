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

// A question of one round of a change.
Action ask(uint32_t value, const std::string &state) {
    return answer([&](avlist *list) {
        replies::status(value)(list);
        replies::add_text(list, AAA_RADIUS_STATE_ATTR, state.c_str());
    });
}

// Asks for the old password, the new one, and the new one again. The preliminary check is a
// change that the module begins and leaves.
class ChangingService {
  public:
    Action operator()(const Request &request) {
        EXPECT_EQ(request.message_type, static_cast<uint32_t>(AAA_MT_ASCII_CHPASS));
        EXPECT_EQ(request.user, "alice");
        if (request.state.empty()) {
            got->clear();
        }
        got->push_back(request.password);
        const std::vector<Action> actions{ask(AAA_STAT_GETPASS, "1"), ask(AAA_STAT_GETDATA, "2"),
                                          ask(AAA_STAT_GETDATA, "3"), changed()};
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

    service_.set([&](const Request &request) {
        return request.state.empty()  ? ask(AAA_STAT_GETPASS, "1")
               : request.state == "1" ? ask(AAA_STAT_GETDATA, "2")
                                      : status(AAA_STAT_PASS);
    });
    Login second(dir_, options());
    EXPECT_EQ(second.change({"old", "new", "new"}), PAM_AUTHTOK_ERR);

    service_.set([](const Request &request) {  // before it has the new password
        return request.state.empty() ? ask(AAA_STAT_GETPASS, "1") : changed();
    });
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

// Another module's password must not be changed when this one cannot be.
TEST_F(Password, IsRefusedBeforeAnyoneTypesOne) {
    service_.set([](const Request &) { return say(AAA_STAT_FAIL, "Ask the administrator."); });
    Login login(dir_, options());
    EXPECT_EQ(login.change({}), PAM_AUTHTOK_ERR);
    EXPECT_EQ(login.asked(), 0);
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_ERROR_MSG, "Ask the administrator."}}));
    EXPECT_EQ(service_.requests().size(), 1u) << "the preliminary check has ended it";
}

TEST_F(Password, IsLeftToTheNextModuleWhenItIsNotTheServices) {
    service_.set([](const Request &) { return status(AAA_STAT_NOT_REQUIRED); });
    Login next(dir_, Lines{"password required " AAA_PAM_MODULE " " + options() +
                           "\npassword required pam_permit.so\n"});
    EXPECT_EQ(next.change({}), PAM_SUCCESS);
    Login none(dir_, options());
    EXPECT_NE(none.change({}), PAM_SUCCESS) << "without another module nothing has changed it";
}

TEST_F(Password, MayBeTheOldOrTheNewOneWhenTheServiceDiesAtTheEnd) {
    service_.set([](const Request &request) {
        return request.state.empty()  ? ask(AAA_STAT_GETPASS, "1")
               : request.state == "1" ? ask(AAA_STAT_GETDATA, "2")
                                      : status(AAA_STAT_ERROR);
    });
    Login login(dir_, options());
    EXPECT_EQ(login.change({"old", "new", "new"}), PAM_AUTHINFO_UNAVAIL);
    EXPECT_EQ(login.heard().back().text,
              "The AAA service does not answer. Your password may be the old or the new one.");
}

TEST_F(Password, ComesFromEarlierModulesWithUseFirstPass) {
    const ChangingService changing;
    service_.set(changing);
    Login login(dir_, options("use_first_pass"));
    EXPECT_EQ(login.change({"old", "new", "new"}), PAM_AUTHTOK_RECOVERY_ERR);
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
