// SPDX-License-Identifier: Apache-2.0

#include "pam/host.hpp"

using namespace pam_test;

namespace {

class Authenticate : public PamTest {};

TEST_F(Authenticate, SendsNamePasswordTerminalAndAddress) {
    Login login(dir_, options());
    login.item(PAM_TTY, "/dev/pts/3").item(PAM_RHOST, "192.0.2.9");
    EXPECT_EQ(login.authenticate({"s3cret"}), PAM_SUCCESS);
    const auto requests = service_.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].type, static_cast<uint32_t>(AAA_REQ_AUTHEN));
    EXPECT_EQ(requests[0].message_type, static_cast<uint32_t>(AAA_MT_ASCII_LOGIN));
    EXPECT_EQ(requests[0].user, "alice");
    EXPECT_EQ(requests[0].password, "s3cret");
    EXPECT_EQ(requests[0].terminal, "pts/3");
    EXPECT_EQ(requests[0].address, "192.0.2.9");
    EXPECT_EQ(requests[0].list, "default");
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_PROMPT_ECHO_OFF, "Password: "}}));
}

struct Outcome {
    uint32_t status;
    int result;
};

TEST_F(Authenticate, GivesTheResultThatFitsTheStatus) {
    for (const Outcome &o : std::vector<Outcome>{{AAA_STAT_PASS, PAM_SUCCESS},
                                                 {AAA_STAT_BYPASS, PAM_SUCCESS},
                                                 {AAA_STAT_FAIL, PAM_AUTH_ERR},
                                                 {AAA_STAT_ABORT, PAM_MAXTRIES},
                                                 {AAA_STAT_ERROR, PAM_AUTHINFO_UNAVAIL},
                                                 {AAA_STAT_NONE, PAM_AUTHINFO_UNAVAIL},
                                                 {AAA_STAT_NOT_REQUIRED, PAM_AUTHINFO_UNAVAIL},
                                                 {4711, PAM_AUTHINFO_UNAVAIL},
                                                 {0xffffffff, PAM_AUTHINFO_UNAVAIL}}) {
        service_.set([&](const Request &) { return status(o.status); });
        Login login(dir_, options());
        EXPECT_EQ(login.authenticate({"x"}), o.result) << "status " << o.status;
    }
}

TEST_F(Authenticate, DoesNotTakeAnAnswerWithoutStatusForOne) {
    service_.set([](const Request &) { return answer([](avlist *) {}); });
    EXPECT_EQ(Login(dir_, options()).authenticate({"x"}), PAM_AUTHINFO_UNAVAIL);
    service_.set([](const Request &) { return accounted(); });
    EXPECT_EQ(Login(dir_, options()).authenticate({"x"}), PAM_AUTHINFO_UNAVAIL);
    service_.set([](const Request &) { return answer(replies::status(AAA_STAT_PASS), AAA_ERR_NOMEM); });
    EXPECT_EQ(Login(dir_, options()).authenticate({"x"}), PAM_AUTHINFO_UNAVAIL);
    EXPECT_TRUE(logged("cannot process"));
}

TEST_F(Authenticate, ShowsTextsOfTheServiceWithoutControlCharacters) {
    service_.set(
        [](const Request &) { return say(AAA_STAT_FAIL, "No\x1b[2J \xc2\x9b way\r\nüç \xe2\x80\xae!"); });
    Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"x"}), PAM_AUTH_ERR);
    ASSERT_EQ(login.heard().size(), 2u);
    EXPECT_EQ(login.heard()[1], (Said{PAM_ERROR_MSG, "No?[2J ? way?\nüç ?!"}));
}

TEST_F(Authenticate, SaysNothingToAProgramThatWantsSilence) {
    service_.set([](const Request &) { return say(AAA_STAT_PASS, "Welcome"); });
    Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"x"}, PAM_SILENT), PAM_SUCCESS);
    EXPECT_EQ(login.heard().size(), 1u);
}

TEST_F(Authenticate, AnswersTheRoundsOfAChallenge) {
    int round = 0;
    service_.set([&](const Request &request) {
        switch (round++) {
            case 0:
                EXPECT_EQ(request.password, "");
                return answer([](avlist *list) {
                    replies::status(AAA_STAT_GETPASS)(list);
                    replies::add_text(list, AAA_PROMPT_ATTR, "Router password: ");
                    replies::add_text(list, AAA_RADIUS_STATE_ATTR, "one");
                });
            case 1:
                EXPECT_EQ(request.password, "first");
                EXPECT_EQ(request.state, "one");
                return answer([](avlist *list) {
                    replies::status(AAA_STAT_GETDATA)(list);
                    replies::add_text(list, AAA_PROMPT_ATTR, "Code: ");
                    replies::add_text(list, AAA_REPLYMSG_ATTR, "A code was sent.");
                    const uint32_t echo = 1;
                    aaa_util_avpair_add_attr(list, AAA_PROMPT_ECHO_ATTR, &echo, sizeof echo, 0);
                    replies::add_text(list, AAA_RADIUS_STATE_ATTR, std::string("tw\0o", 4));
                });
            default:
                EXPECT_EQ(request.password, "123456");
                EXPECT_EQ(request.state, std::string("tw\0o", 4));
                return status(AAA_STAT_PASS);
        }
    });
    Login login(dir_, options("skip_passwd"));
    EXPECT_EQ(login.authenticate({"first", "123456"}), PAM_SUCCESS);
    EXPECT_EQ(round, 3);
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_PROMPT_ECHO_OFF, "Router password: "},
                                                {PAM_TEXT_INFO, "A code was sent."},
                                                {PAM_PROMPT_ECHO_ON, "Code: "}}));
    EXPECT_EQ(service_.connections(), 1u);  // the rounds of a login belong to one connection
    const void *token = nullptr;            // only a module may read it, so another one is asked
    EXPECT_EQ(pam_get_item(login.handle(), PAM_AUTHTOK, &token), PAM_BAD_ITEM);
}

TEST_F(Authenticate, EndsALoginWhoseQuestionsDoNotEnd) {
    service_.set([](const Request &) { return status(AAA_STAT_GETDATA); });
    Login login(dir_, options("max_challenge=3"));
    EXPECT_EQ(login.authenticate({"a", "b", "c", "d", "e", "f", "g"}), PAM_MAXTRIES);
    EXPECT_EQ(service_.requests().size(), 4u);
}

// sshd goes on with the name that it gave, whatever the module makes of it.
TEST_F(Authenticate, KeepsTheNameThatTheProgramGave) {
    service_.set([](const Request &) { return say(AAA_STAT_GETUSER, "Who are you?"); });
    Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"x", "bob", "bob"}), PAM_USER_UNKNOWN);
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_PROMPT_ECHO_OFF, "Password: "}}));
    for (const Request &request : service_.requests()) {
        EXPECT_EQ(request.user, "alice");
    }
    const void *user = nullptr;
    EXPECT_EQ(pam_get_item(login.handle(), PAM_USER, &user), PAM_SUCCESS);
    EXPECT_STREQ(static_cast<const char *>(user), "alice");
}

TEST_F(Authenticate, AnswersTheQuestionForTheNameOnce) {
    int round = 0;
    service_.set([&](const Request &) { return status(round++ == 0 ? AAA_STAT_GETUSER : AAA_STAT_PASS); });
    EXPECT_EQ(Login(dir_, options()).authenticate({"x"}), PAM_SUCCESS);
    EXPECT_EQ(round, 2);
}

TEST_F(Authenticate, AsksForANameThatTheProgramDoesNotKnow) {
    Login login(dir_, options(), nullptr);
    EXPECT_EQ(login.authenticate({"carol", "x"}), PAM_SUCCESS);
    EXPECT_EQ(service_.requests().at(0).user, "carol");
}

TEST_F(Authenticate, RefusesNamesThatNoRequestCanCarry) {
    const std::string longest(253, 'u');
    EXPECT_EQ(Login(dir_, options(), longest.c_str()).authenticate({"x"}), PAM_SUCCESS);
    EXPECT_EQ(service_.requests().at(0).user, longest);
    EXPECT_EQ(Login(dir_, options(), (longest + "u").c_str()).authenticate({"x"}), PAM_USER_UNKNOWN);
    EXPECT_EQ(Login(dir_, options(), nullptr).authenticate({"", "x"}), PAM_USER_UNKNOWN);
    EXPECT_EQ(service_.requests().size(), 1u);
}

TEST_F(Authenticate, TakesNoAnswerForAnEmptyPassword) {
    EXPECT_EQ(Login(dir_, options()).authenticate({"(null)"}), PAM_SUCCESS);
    EXPECT_EQ(service_.requests().at(0).password, "");
}

TEST_F(Authenticate, FailsWhenTheUserLeaves) {
    EXPECT_EQ(Login(dir_, options()).authenticate({}), PAM_CONV_ERR);
    EXPECT_EQ(service_.requests().size(), 0u);
}

// ---- passwords of other modules

// The first module asks for the password; the service refuses it there.
Lines two_modules(const std::string &first, const std::string &second) {
    return {"auth optional " AAA_PAM_MODULE " " + first + "\nauth required " AAA_PAM_MODULE " " + second +
            "\n"};
}

TEST_F(Authenticate, UsesThePasswordOfAnEarlierModule) {
    for (const char *how : {"use_first_pass", "try_first_pass"}) {
        Login login(dir_, two_modules(options(), options(how)));
        EXPECT_EQ(login.authenticate({"once"}), PAM_SUCCESS) << how;
        EXPECT_EQ(login.asked(), 1) << how;
        EXPECT_EQ(service_.requests().back().password, "once") << how;
    }
    Login login(dir_, two_modules(options(), options("force_prompt")));
    EXPECT_EQ(login.authenticate({"once", "twice"}), PAM_SUCCESS);
    EXPECT_EQ(service_.requests().back().password, "twice");
}

TEST_F(Authenticate, AsksAgainWhenATriedPasswordIsWrong) {
    service_.set(
        [](const Request &r) { return status(r.password == "right" ? AAA_STAT_PASS : AAA_STAT_FAIL); });
    Login tried(dir_, two_modules(options(), options("try_first_pass")));
    EXPECT_EQ(tried.authenticate({"wrong", "right"}), PAM_SUCCESS);
    Login used(dir_, two_modules(options(), options("use_first_pass")));
    EXPECT_EQ(used.authenticate({"wrong", "right"}), PAM_AUTH_ERR);
    EXPECT_EQ(used.asked(), 1);
}

TEST_F(Authenticate, NeedsAFirstPasswordWithUseFirstPass) {
    Login login(dir_, options("use_first_pass"));
    EXPECT_NE(login.authenticate({"x"}), PAM_SUCCESS);
    EXPECT_EQ(login.asked(), 0);
    EXPECT_EQ(service_.requests().size(), 0u);
    EXPECT_TRUE(logged("no module before this one"));
}

TEST_F(Authenticate, AsksForADelayAfterAFailure) {
    service_.set([](const Request &) { return status(AAA_STAT_FAIL); });
    static unsigned delay;
    const auto record = [](int, unsigned microseconds, void *) { delay = microseconds; };
    void (*recorder)(int, unsigned, void *) = record;
    for (const bool wanted : {true, false}) {
        delay = 0;
        Login login(dir_, wanted ? "socket=" + service_.path() : options());
        login.item(PAM_FAIL_DELAY, reinterpret_cast<const char *>(recorder));
        EXPECT_EQ(login.authenticate({"x"}), PAM_AUTH_ERR);
        EXPECT_EQ(delay != 0, wanted);
    }
}

TEST_F(Authenticate, LogsAFailureInOneLineWithoutThePassword) {
    service_.set([](const Request &) { return status(AAA_STAT_FAIL); });
    Login login(dir_, options("debug log_unknown_names"), "al\nice\x1b[31m");
    login.item(PAM_TTY, "ssh").item(PAM_RHOST, "192.0.2.9");
    EXPECT_EQ(login.authenticate({"s3cr3t-word"}), PAM_AUTH_ERR);
    EXPECT_TRUE(logged("user=al ice?[31m tty=ssh rhost=192.0.2.9"));
    EXPECT_FALSE(logged("s3cr3t-word"));
}

// What is typed for a name may be a password.
TEST_F(Authenticate, LogsNoNameThatNoAccountHas) {
    service_.set([](const Request &) { return status(AAA_STAT_FAIL); });
    EXPECT_EQ(Login(dir_, options("debug"), "s3cr3t-word").authenticate({"x"}), PAM_AUTH_ERR);
    EXPECT_TRUE(logged("authentication failure: user=(unknown name) tty="));
    EXPECT_FALSE(logged("s3cr3t-word"));
    EXPECT_EQ(Login(dir_, options(), "daemon").authenticate({"x"}), PAM_AUTH_ERR);
    EXPECT_TRUE(logged("authentication failure: user=daemon tty="));
}

TEST_F(Authenticate, SetsCredentials) {
    Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"x"}), PAM_SUCCESS);
    EXPECT_EQ(pam_setcred(login.handle(), PAM_ESTABLISH_CRED), PAM_SUCCESS);
}

// The control that the manual recommends: the local accounts only when there is no service.
TEST_F(Authenticate, FallsBackToTheNextModuleOnlyWithoutAService) {
    const std::string rest = "\nauth required pam_permit.so\n";
    const auto with = [&](const std::string &opts) {
        return Lines{"auth [success=done authinfo_unavail=ignore default=die] " AAA_PAM_MODULE " " + opts +
                     rest};
    };
    service_.set([](const Request &) { return status(AAA_STAT_FAIL); });
    EXPECT_NE(Login(dir_, with(options())).authenticate({"x"}), PAM_SUCCESS);
    service_.set([](const Request &) { return status(AAA_STAT_ERROR); });
    EXPECT_EQ(Login(dir_, with(options())).authenticate({"x"}), PAM_SUCCESS);
    EXPECT_EQ(Login(dir_, with("socket=/nonexistent/socket")).authenticate({}), PAM_SUCCESS);
}

}  // namespace
