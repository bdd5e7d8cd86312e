// SPDX-License-Identifier: Apache-2.0
//
// explain: which list a request uses, where its methods lead, and why.

#include "aaactl/config/aaa_config_fixture.hpp"

namespace {

using Result = aaactl_test::Run;

class Explain : public aaactl_test::AaaConfigTest {
  protected:
    static Result explain(std::vector<std::string> args) {
        args.insert(args.begin(), "explain");
        return run(args);
    }
    static Result explain_json(std::vector<std::string> args) {
        args.emplace_back("--json");
        return explain(std::move(args));
    }
};

TEST_F(Explain, ShowsEachStepWithItsServersAndWhatComesNext) {
    groups();
    list("authentication/login/default", R"(10, 10, 2, 0, "corp", "archive", "", "")");
    const Result text = explain({"authentication", "login"});
    EXPECT_EQ(text.status, 0) << text.out << text.err;
    EXPECT_EQ(text.out, R"(authentication of login
list:  default, because neither a list nor a line was named
path:  /cfg/gl/aaa/authentication/login/default

1. server group corp  (radius, number 1001)
     1  192.0.2.20  ports 1812, 1813
     2  2001:db8::21  ports 1645, 1646
   a server refuses:   the request is refused; no further step is asked
   no server answers:  step 2, server group archive

2. server group archive  (tacacs, number 3001)
     1  192.0.2.30
   a server refuses:   the request is refused; no further step is asked
   no server answers:  step 3, local

3. local  (the users of this router)
   refuses:            the request is refused; no further step is asked
   does not answer:    no step is left: the request is refused

Nothing is missing.
)");
    const auto json = explain_json({"authentication", "login"}).json();
    EXPECT_EQ(json["function"], "authentication");
    EXPECT_EQ(json["service"].dump(), R"({"word":"login","number":1})");
    EXPECT_EQ(json["list"]["chosen_by"], "default");
    EXPECT_EQ(json["list"]["path"], "/cfg/gl/aaa/authentication/login/default");
    EXPECT_EQ(json["client"]["methods"].dump(), "[1001,3001,2]") << "as the library resolves them";
    ASSERT_EQ(json["steps"].size(), 3u);
    EXPECT_EQ(json["steps"][0]["group"].dump(), R"({"name":"corp","protocol":"radius","number":1001})");
    EXPECT_EQ(
        json["steps"][0]["servers"][1].dump(),
        R"({"ordinal":2,"host":"2001:db8::21","ports":[1645,1646],"private":false,"key":"not needed"})");
    EXPECT_EQ(json["steps"][0]["on_no_answer"]["next_step"], 2);
    EXPECT_TRUE(json["steps"][2]["on_no_answer"]["next_step"].is_null());
    EXPECT_EQ(json["findings"].size(), 0u);
}

TEST_F(Explain, NoneAsksNobody) {
    list("authorization/commands/default", R"(1, 0, 0, 0, "", "", "", "")");
    const Result text = explain({"authorization", "cmd"});
    EXPECT_EQ(text.status, 0) << text.out;
    EXPECT_TRUE(contains(text.out, "1. none  (no one is asked: every request is accepted)\n\nNothing"))
        << text.out;
    EXPECT_TRUE(explain_json({"authorization", "commands"}).json()["steps"][0]["on_refusal"].is_null());
}

TEST_F(Explain, ReadsTheMethodsOfAnAccountingListBehindItsIntegers) {
    groups();
    list("accounting/exec/default", R"(7, 8, 9, 10, 17, 0, 0, "corp", "", "", "")");
    const auto run = explain_json({"accounting", "exec"});
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(run.json()["client"]["methods"].dump(), "[1001,17]");
    EXPECT_EQ(run.json()["steps"][1]["name"], "syslog");
    EXPECT_EQ(run.json()["steps"][1]["on_no_answer"]["text"], "no step is left: the record is lost");
}

// The service answers when a record for a group is on disk, whatever the servers do.
TEST_F(Explain, ARecordForAGroupWaitsOnDisk) {
    groups();
    list("accounting/exec/default", R"(7, 8, 9, 10, 17, 0, 0, "corp", "", "", "")");
    const auto steps = explain_json({"accounting", "exec"}).json()["steps"];
    EXPECT_EQ(steps[0]["on_no_answer"]["text"],
              "aaad keeps the record on disk and delivers it later; step 2, syslog, is asked only when it "
              "cannot be kept (aaad.conf: journal)");
    EXPECT_EQ(steps[0]["on_refusal"],
              "aaad sends the record again, and sets it aside when it can never be delivered");
    list("accounting/exec/default", R"(7, 8, 9, 10, 0, 0, 0, "corp", "", "", "")");
    EXPECT_TRUE(
        contains(explain({"accounting", "exec"}).out,
                 "   no server answers:  aaad keeps the record on disk and delivers it later; it is lost "
                 "only when it cannot be kept (aaad.conf: journal)\n"));
    // A group that cannot be asked keeps nothing.
    number("tacacs", "hollow", 3001);
    put("/cfg/gl/aaa/group-server/tacacs/hollow/timeout", "u32", "5");
    list("accounting/exec/default", R"(7, 8, 9, 10, 17, 0, 0, "hollow", "", "", "")");
    EXPECT_EQ(explain_json({"accounting", "exec"}).json()["steps"][0]["on_no_answer"]["text"],
              "step 2, syslog");
}

// ---- which list

TEST_F(Explain, ANamedListWinsOverALine) {
    list("authentication/login/ops", R"(2, 0, 0, 0, "", "", "", "")");
    dir().write("lines.conf", "pts/* * vty\n");
    const auto json = explain_json({"authentication", "login", "--list", "ops", "--line", "pts/3"}).json();
    EXPECT_EQ(json["list"]["name"], "ops");
    EXPECT_EQ(json["list"]["chosen_by"], "name");
    EXPECT_EQ(json["line"].dump(), R"({"name":"pts/3","kind":"vty"})");
}

TEST_F(Explain, TheFirstRowForTheLineDecides) {
    for (const char *name : {"vty", "con", "default"}) {
        list("authentication/login/" + std::string(name), R"(2, 0, 0, 0, "", "", "", "")");
    }
    dir().write("lines.conf",
                "# rows\nwrong row\npts/* accounting other\nconsole * con\npts/* * vty\n* * rest\n");
    const auto chosen = [](const std::string &line) {
        const auto json = explain_json({"authentication", "login", "--line", line}).json();
        return json["list"]["name"].text() + " by " + json["list"]["chosen_by"].text();
    };
    EXPECT_EQ(chosen("pts/3"), "vty by line");
    EXPECT_EQ(chosen("/dev/pts/3"), "vty by line");
    EXPECT_EQ(chosen("console"), "con by line");
    EXPECT_EQ(chosen("ttyS0"), "rest by line");
    dir().write("lines.conf", "console * con\n");
    EXPECT_EQ(chosen("pts/3"), "default by default");
    const Result text = explain({"authentication", "login", "--line", "console"});
    EXPECT_TRUE(contains(text.out, "authentication of login on line console (console)\n")) << text.out;
    EXPECT_TRUE(contains(text.out, "list:  con, because no list was named, and the row for \"console\" at " +
                                       dir().path("lines.conf") + ":1 is the first"))
        << text.out;
}

TEST_F(Explain, SomeServicesDoNotGoByLines) {
    dir().write("lines.conf", "* * vty\n");
    list("authentication/login/default", R"(2, 0, 0, 0, "", "", "", "")");
    const auto list_of = [](const std::string &function, const std::string &service) {
        return explain_json({function, service, "--line", "pts/0"}).json()["list"]["name"].text();
    };
    EXPECT_EQ(list_of("authentication", "api"), "default");
    EXPECT_EQ(list_of("authentication", "ksh"), "default");
    EXPECT_EQ(list_of("authentication", "ike"), "default");
    EXPECT_EQ(list_of("authentication", "http"), "vty");
    EXPECT_EQ(list_of("accounting", "system"), "default");
    EXPECT_EQ(list_of("accounting", "ike"), "vty");
}

TEST_F(Explain, AFileOfRowsThatCannotBeUsedFailsAsRequestsDo) {
    list("authentication/login/default", R"(2, 0, 0, 0, "", "", "", "")");
    dir().write("lines.conf", "* * vty\n", 0666);
    const Result run = explain({"authentication", "login", "--line", "pts/0"});
    EXPECT_EQ(run.status, 3) << run.out;
    EXPECT_TRUE(contains(run.err, dir().path("lines.conf") + ": requests that name no list fail")) << run.err;
    EXPECT_EQ(explain({"authentication", "login"}).status, 0) << "the line is not consulted";
}

TEST_F(Explain, RefusesNamesThatNoListCanHave) {
    EXPECT_EQ(run({"explain", "authentication", "login", "--list", "a\x01"}).status, 2);
    EXPECT_EQ(run({"explain", "authentication", "login", "--list", "a b"}).status, 4);
}

TEST_F(Explain, TheLibrarySuppliesTheDefaultForPpp) {
    const auto json = explain_json({"authentication", "ppp"}).json();
    EXPECT_EQ(json["list"]["configured"], false);
    EXPECT_EQ(json["list"]["exists"], true);
    EXPECT_EQ(json["steps"][0]["name"], "local");
    EXPECT_EQ(explain({"authentication", "ppp"}).status, 0);
}

TEST_F(Explain, TheDefaultThatItSuppliesForLoginsHasNoMethod) {
    const auto run = explain_json({"authentication", "login"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(found(run),
              std::vector<std::string>{"error empty-list /cfg/gl/aaa/authentication/login/default"});
}

TEST_F(Explain, SaysWhichListsThereAreInsteadOfAMissingOne) {
    list("authorization/exec/ops", R"(2, 0, 0, 0, "", "", "", "")");
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"authorization", "exec"}, {"authorization", "exec", "--list", "no"}}) {
        const Result run = explain(args);
        EXPECT_EQ(run.status, 4) << run.err;
        EXPECT_TRUE(contains(run.out, "There is no such list: the service has ops.")) << run.out;
        EXPECT_EQ(explain_json(args).json()["lists_of_service"].dump(), R"(["ops"])");
        EXPECT_EQ(explain_json(args).json()["list"]["exists"], false);
    }
    EXPECT_EQ(explain({"authentication", "login", "--list", "no"}).status, 4);
    EXPECT_TRUE(contains(explain({"accounting", "exec"}).out, "the service has none."));
}

TEST_F(Explain, KnowsServicesByNameNumberAndWord) {
    const auto path = [](const std::string &function, const std::string &service) {
        return explain_json({function, service}).json()["list"]["path"].text();
    };
    EXPECT_EQ(path("authentication", "exec"), "/cfg/gl/aaa/authentication/login/default");
    EXPECT_EQ(path("authorization", "ppp"), "/cfg/gl/aaa/authorization/network/default");
    EXPECT_EQ(path("authorization", "14"), "/cfg/gl/aaa/authorization/commands/default");
    EXPECT_EQ(path("authorization", "network"), "/cfg/gl/aaa/authorization/network/default");
    EXPECT_EQ(path("authorization", "api"), "/cfg/gl/aaa/authorization/api/default");
    EXPECT_EQ(path("accounting", "mgbl-acct"), "/cfg/gl/aaa/accounting/mgbl-rpc/default");
    EXPECT_EQ(explain({"authorization", "no-such"}).status, 2);
    EXPECT_EQ(explain({"authorisation", "exec"}).status, 2);
    list("authorization/own-word/default", R"(2, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(explain({"authorization", "own-word"}).status, 0);
}

// ---- what is missing

TEST_F(Explain, ADanglingGroupKeepsClientsFromReadingTheList) {
    list("authentication/login/default", R"(10, 2, 0, 0, "gone", "", "", "")");
    const Result text = explain({"authentication", "login"});
    EXPECT_EQ(text.status, 1);
    EXPECT_TRUE(
        contains(text.out, "/login/default\n\nThe lookup fails: the server group \"gone\" has no number ("))
        << text.out;
    EXPECT_TRUE(contains(text.out,
                         "); no method is tried, not even \"local\": programs that ask the library refuse "
                         "every login; aaad reads the list itself.\n\nerror: "))
        << text.out;
    EXPECT_FALSE(contains(text.out, "cannot answer")) << text.out;
    EXPECT_FALSE(contains(text.out, "2. local")) << text.out;
    EXPECT_TRUE(contains(
        text.out, "error: /cfg/gl/aaa/authentication/login/default: server group \"gone\" does not exist"))
        << text.out;
    const auto run = explain_json({"authentication", "login"});
    EXPECT_EQ(found(run),
              (std::vector<std::string>{"error lock-out /cfg/gl/aaa/authentication/login/default",
                                        "error dangling-group /cfg/gl/aaa/authentication/login/default"}));
    EXPECT_NE(run.json()["client"]["code"], 0);
    EXPECT_EQ(run.json()["tried"], false);
    EXPECT_EQ(run.json()["steps"].size(), 0u);
}

TEST_F(Explain, AGroupWithoutANumberOrServersIsNamed) {
    server("radius/corp", "0x1/192.0.2.20,1812,1813");
    number("tacacs", "hollow", 3001);
    put("/cfg/gl/aaa/group-server/tacacs/hollow/timeout", "u32", "5");
    list("authentication/login/default", R"(10, 10, 2, 0, "corp", "hollow", "", "")");
    const auto run = explain_json({"authentication", "login"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(found(run),
              (std::vector<std::string>{"error lock-out /cfg/gl/aaa/authentication/login/default",
                                        "error unnumbered-group /cfg/gl/aaa/group-server/radius/corp/",
                                        "error empty-group /cfg/gl/aaa/group-server/tacacs/hollow/"}));
}

// The numbers are operational data: a reboot empties their maps.
// The effect was told last, or was not told.
TEST_F(Explain, SaysFirstWhereAWrongNumberLeads) {
    groups();
    list("authentication/login/default", R"(10, 2, 0, 0, "corp", "", "", "")");
    list("authentication/login/alone", R"(10, 0, 0, 0, "corp", "", "", "")");
    const auto expect_first = [](const std::vector<std::string> &args, const std::string &effect,
                                 const std::string &code) {
        const Result text = explain(args);
        EXPECT_EQ(text.status, 1) << text.out;
        EXPECT_TRUE(contains(text.out, "/" + (args.size() > 2 ? args.back() : "default") + "\n\n" + effect))
            << text.out;
        EXPECT_TRUE(contains(text.out, "[" + code + "]\n    number all server groups: aaactl sg publish"))
            << text.out;
    };
    put(kMaps + "sg_name_map/radius/corp", "u32", "0");
    expect_first(
        {"authentication", "login"},
        "The number of server group \"corp\" is 0, which ends the list: no method is tried, not even "
        "\"local\": programs that ask the library refuse every login; aaad reads the list itself.",
        "lock-out");
    EXPECT_EQ(explain_json({"authentication", "login"}).json()["tried"], false);
    put(kMaps + "sg_name_map/radius/corp", "u32", "1777");
    expect_first(
        {"authentication", "login"},
        "The number 1777 of server group \"corp\" leads to no group, so none of its servers is asked.",
        "wrong-number");
    expect_first(
        {"authentication", "login", "--list", "alone"},
        "The number 1777 of server group \"corp\" leads to no group, so none of its servers is asked: "
        "programs that ask the library refuse every login; aaad reads the list itself.",
        "lock-out");
    put(kMaps + "sg_name_map/radius/corp", "u32", "1001");
    put(kMaps + "sg_num_map/radius/0x3e9", "string", "other");
    expect_first({"authentication", "login"},
                 "The number 1001 of server group \"corp\" leads to the server group \"other\": programs ask "
                 "that one instead.",
                 "wrong-number");
    ASSERT_EQ(run({"sg", "publish"}).status, 0);
    EXPECT_EQ(explain({"authentication", "login"}).status, 0);
}

TEST_F(Explain, WithoutNumbersNoOneCanLogInUntilTheyArePublished) {
    groups();
    list("authentication/login/default", R"(10, 2, 0, 0, "corp", "", "", "")");
    ASSERT_EQ(explain({"authentication", "login"}).status, 0);
    ASSERT_EQ(run({"sysdb", "del", "-r", "/oper/aaa"}).status, 0);
    const Result text = explain({"authentication", "login"});
    EXPECT_EQ(text.status, 1);
    EXPECT_TRUE(contains(text.out, "\n\nThe lookup fails: the server group \"corp\" has no number ("))
        << text.out;
    EXPECT_FALSE(contains(text.out, "1. ")) << text.out;
    EXPECT_TRUE(contains(text.out,
                         "programs that ask the library refuse every login; aaad reads the list itself "
                         "[lock-out]\n    number all server groups: aaactl sg publish"))
        << text.out;
    ASSERT_EQ(run({"sg", "publish"}).status, 0);
    EXPECT_EQ(explain({"authentication", "login"}).status, 0);
    EXPECT_EQ(explain_json({"authentication", "login"}).json()["tried"], true);
}

TEST_F(Explain, ServersWithoutAKeyAreNotAsked) {
    groups();
    list("authentication/login/default", R"(10, 2, 0, 0, "corp", "", "", "")");
    without_tls("radius/corp");
    const Result text = explain({"authentication", "login"});
    EXPECT_EQ(text.status, 1);
    EXPECT_TRUE(contains(text.out, "     1  192.0.2.20  ports 1812, 1813  (not asked: no key)\n"))
        << text.out;
    EXPECT_TRUE(contains(text.out, "   cannot answer:      step 2, local\n")) << text.out;
    const auto run = explain_json({"authentication", "login"});
    EXPECT_EQ(run.json()["steps"][0]["servers"][0]["key"], "missing");
    EXPECT_EQ(found(run), std::vector<std::string>{"error no-key /cfg/gl/aaa/group-server/radius/corp/"});
}

TEST_F(Explain, KeysThatDoNotOpenAreFindings) {
    groups();
    list("authentication/login/default", R"(10, 2, 0, 0, "corp", "", "", "")");
    without_tls("radius/corp");
    const std::string key = "/cfg/gl/aaa/group-server/radius/corp/settings/key";
    put(key, "string", "01" + std::string(98, '0'));
    const auto run = explain_json({"authentication", "login"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(found(run), std::vector<std::string>{"error sealed-key " + key}) << "once for both servers";
    EXPECT_FALSE(contains(explain({"authentication", "login"}).out, "Nothing is missing."));
}

TEST_F(Explain, ServersWithoutAGroupAndWithoutAKeyAreFindings) {
    list("authentication/login/default", R"(3, 2, 0, 0, "", "", "", "")");
    put("/cfg/gl/aaa/radius/host/0x1/192.0.2.1,1812,1813", "u32", "1");
    EXPECT_EQ(found(explain_json({"authentication", "login"})),
              std::vector<std::string>{"error no-key /cfg/gl/aaa/radius/host/0x1/192.0.2.1,1812,1813"});
    EXPECT_FALSE(contains(explain({"authentication", "login"}).out, "Nothing is missing."));
}

TEST_F(Explain, StepsThatNoRequestReachesAreLeftOut) {
    list("authentication/login/default", R"(1, 2, 0, 0, "", "", "", "")");
    const Result text = explain({"authentication", "login"});
    EXPECT_TRUE(contains(text.out, "1. none")) << text.out;
    EXPECT_FALSE(contains(text.out, "2. local")) << text.out;
    EXPECT_EQ(explain_json({"authentication", "login"}).json()["steps"].size(), 1u);
}

TEST_F(Explain, ProgramsCannotAskALineForItsPassword) {
    list("authentication/login/default", R"(12, 2, 0, 0, "", "", "", "")");
    EXPECT_EQ(explain({"authentication", "login"}).status, 0);
    const auto run = explain_json({"authentication", "api"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(found(run),
              std::vector<std::string>{"error unsuitable-list /cfg/gl/aaa/authentication/login/default"});
    EXPECT_EQ(run.json()["tried"], false);
    EXPECT_TRUE(contains(explain({"authentication", "api"}).out,
                         "The library refuses the list for this service; no method is tried: programs that "
                         "ask the library refuse every login; aaad reads the list itself."));
}

TEST_F(Explain, EscapesWhatTheDatabaseHolds) {
    list("authentication/login/default", R"(10, 0, 0, 0, "\x1b[31m", "", "", "")");
    for (const char *form : {"--color=never", "--json"}) {
        const Result run = explain({"authentication", "login", form});
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(contains(run.out, "x1b[31m")) << run.out;
        EXPECT_FALSE(contains(run.out, "\x1b")) << run.out;
    }
}

TEST_F(Explain, WithoutADatabaseItSaysSo) {
    const ScopedEnv provider("AAA_SYSDB_PROVIDER", dir().path("absent.so"));
    EXPECT_EQ(explain({"authentication", "login"}).status, 5);
}

}  // namespace
