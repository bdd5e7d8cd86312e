// SPDX-License-Identifier: Apache-2.0
//
// report: what is on the page, what is not, and that names with markup stay text.

#include "aaactl/config/aaa_config_fixture.hpp"
#include "aaactl/support/fixed_service.hpp"
#include "platform/control.h"
#include "report/html.hpp"
#include "support/machine.hpp"

#include <sys/stat.h>

#include <fstream>
#include <sstream>

namespace {

using Result = aaactl_test::Run;

class Report : public aaactl_test::AaaConfigTest {
  protected:
    void SetUp() override {
        groups();
        list("authentication/login/default", R"(10, 2, 0, 0, "corp", "", "", "")");
        list("accounting/exec/default", R"(0, 0, 0, 10, 0, 0, 0, "corp", "", "", "")");
    }

    static std::string contents(const std::string &path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    std::string file() const { return dir().path("report.html"); }
    std::string socket() const { return dir().path("none.sock"); }
    // The status is that of a machine on which aaad does not run.
    std::string page(int status = 5) {
        const Result made = run({"report", "-o", file(), "--socket", socket()});
        EXPECT_EQ(made.status, status) << made.err;
        EXPECT_EQ(made.out, "");
        return contents(file());
    }
    static size_t times(const std::string &text, const std::string &part) {
        size_t count = 0;
        for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
};

TEST_F(Report, ShowsWhatIsStored) {
    const std::string text = page();
    EXPECT_TRUE(text.starts_with("<!DOCTYPE html>\n<html lang=\"en\">"));
    EXPECT_TRUE(contains(text, "<h3>corp</h3>"));
    EXPECT_TRUE(contains(text, "<strong>192.0.2.20,1812,1813</strong>, <span class=\"dim\">needs no key"));
    EXPECT_TRUE(contains(text, "radius, number 1001"));
    EXPECT_EQ(times(text, "<svg "), 2u);
    EXPECT_TRUE(contains(text, "no answer: go on"));
    EXPECT_TRUE(contains(text, "refused: sent again")) << "records of groups are kept on disk";
    EXPECT_TRUE(contains(text, "If it does not answer: step 2, local."));
    EXPECT_TRUE(contains(text, "The service was not asked"));
    EXPECT_TRUE(text.ends_with("</html>\n"));
}

TEST_F(Report, IsOneFileThatRunsAndLoadsNothing) {
    const std::string text = page();
    for (const char *const part :
         {"<script", "<link", "<img", "<iframe", "http:", "https:", "url(", "@import", "src="}) {
        EXPECT_FALSE(contains(text, part)) << part;
    }
    EXPECT_TRUE(contains(text, "default-src &#39;none&#39;; style-src &#39;unsafe-inline&#39;"));
    EXPECT_TRUE(contains(text, "prefers-color-scheme:dark"));
    EXPECT_TRUE(contains(text, "@media print"));
    EXPECT_TRUE(contains(text, "width=device-width"));
}

TEST_F(Report, NamesWithMarkupStayText) {
    const std::string name = "<b onclick=x>&\"'";
    server("radius/" + name, "0x1/<i>,1812,1813");
    number("radius", name, 1002);
    list("authentication/login/<u>", R"(10, 2, 0, 0, "<b onclick=x>&\"'", "", "", "")");
    const std::string text = page();
    EXPECT_FALSE(contains(text, "<b "));
    EXPECT_FALSE(contains(text, "<i>"));
    EXPECT_FALSE(contains(text, "<u>"));
    EXPECT_TRUE(contains(text, "<h3>&lt;b onclick=x&gt;&amp;&quot;&#39;</h3>"));
    EXPECT_TRUE(contains(text, "authentication login &lt;u&gt;"));
}

TEST(ReportHtml, EscapesTextsAndAttributes) {
    EXPECT_EQ(aaactl::html_text("<&>\"'"), "&lt;&amp;&gt;&quot;&#39;");
    EXPECT_EQ(aaactl::html_text("a\x01\x1b[2Jb"), "a\\x01\\x1b[2Jb");
    EXPECT_EQ(aaactl::html_text("back\\slash"), "back\\slash");
    EXPECT_EQ(aaactl::html_text("\xc3\xa9"), "\xc3\xa9");
    EXPECT_EQ(aaactl::html_text("\xff<"), "\\xff&lt;");
    // A character that turns the direction of what follows would show another name than the stored one.
    EXPECT_EQ(aaactl::html_text("a\u202eb\u2066c"), "a\\xe2\\x80\\xaeb\\xe2\\x81\\xa6c");
    aaactl::Html html;
    html.open("p", {{"title", "\"><script>"}}).text("</p>");
    EXPECT_EQ(std::move(html).take(), "<p title=\"&quot;&gt;&lt;script&gt;\">&lt;/p&gt;</p>\n");
}

TEST_F(Report, HasNoKey) {
    ASSERT_EQ(run({"key", "new-master"}).status, 0);
    without_tls("radius/corp");
    const Result stored = aaactl_test::aaactl({"sg", "key", "radius", "corp"}, "very-secret-word\n");
    ASSERT_EQ(stored.status, 0) << stored.err;
    const auto sealed = run(
        {"--show-secrets", "sysdb", "get", "--json", "/cfg/gl/aaa/group-server/radius/corp/settings/key"});
    ASSERT_EQ(sealed.status, 0) << sealed.err;
    const std::string value = sealed.json()["value"].text();
    ASSERT_GT(value.size(), 8u);
    const std::string text = page();
    EXPECT_TRUE(contains(text, "has a key"));
    EXPECT_FALSE(contains(text, "very-secret-word"));
    EXPECT_FALSE(contains(text, value));
}

TEST_F(Report, ShowsFindings) {
    list("authentication/login/open", R"(1, 0, 0, 0, "", "", "", "")");
    const std::string text = page();
    EXPECT_TRUE(contains(text, "<strong class=\"warn\">Warning</strong>"));
    EXPECT_TRUE(contains(text, "accepted"));
    EXPECT_TRUE(contains(text, "/cfg/gl/aaa/authentication/login/open"));
}

TEST_F(Report, ListsThatProgramsCannotReadAreShownWithTheirSteps) {
    ASSERT_EQ(run({"sysdb", "del", "-r", "/oper/aaa"}).status, 0);
    const std::string text = page();
    EXPECT_TRUE(contains(text, "Programs that ask the library try no step of it"));
    EXPECT_TRUE(contains(text, "server group corp (radius, no number)"));
    EXPECT_TRUE(contains(text, "aaactl sg publish"));
}

TEST_F(Report, AnEmptyDatabaseGivesAPage) {
    ASSERT_EQ(run({"sysdb", "del", "-r", "/cfg/gl"}).status, 0);
    ASSERT_EQ(run({"sysdb", "del", "-r", "/oper/aaa"}).status, 0);
    const std::string text = page();
    EXPECT_TRUE(contains(text, "No group is configured."));
    EXPECT_TRUE(contains(text, "No list is configured."));
}

TEST_F(Report, ShowsWhatTheServiceSays) {
    const aaactl_test::FixedService service(
        socket(),
        R"({"reply":"status","program":"aaad <1>","pid":7,"since":1,"socket":"/s","clients":3,"configuration":{"revision":9,"fallback":false},)"
        R"("alarms":[{"alarm":"keys","since":1,"text":"<a> of corp"}],)"
        R"("accounting":{"journal":true,"bytes":10,"most_bytes":100,"recorded":42,"groups":[{"group":"<c>","waiting":5}]}})"
        "\n"
        R"({"reply":"servers","groups":[{"group":"corp","protocol":"radius","servers":[{"server":"192.0.2.20:1812","use":"all",)"
        R"("transport":"udp","state":"dead","why":"<no answer>","asked":11,"answers":4,"timeouts":2,"last_us":1500}]},)"
        R"({"group":"","protocol":"tacacs","servers":[]}]})"
        "\n");
    const std::string text = page(0);
    EXPECT_TRUE(contains(text, "aaad &lt;1&gt;, process 7"));
    EXPECT_TRUE(contains(text, "&lt;a&gt; of corp"));
    EXPECT_TRUE(contains(text, "<dd class=\"bad\">dead</dd>"));
    EXPECT_TRUE(contains(text, "&lt;no answer&gt;"));
    EXPECT_TRUE(contains(text, "1.5 ms"));
    EXPECT_TRUE(contains(text, "Servers without a group: tacacs"));
    EXPECT_TRUE(contains(text, "<h4>&lt;c&gt;</h4>"));
    EXPECT_TRUE(contains(text, "<dd class=\"\">42</dd>"));
    EXPECT_FALSE(contains(text, "was not asked"));
}

// An answer that is not what it should be costs the states, not the report.
TEST_F(Report, SurvivesAServiceThatMisbehaves) {
    for (const char *const bytes : {"", "no json\n", "{}\n{}\n", "{\"error\":\"<x>\",\"code\":\"failed\"}\n",
                                    "{\"groups\":7}\n{\"groups\":[1,{\"servers\":[2]}],\"alarms\":3}\n"}) {
        unlink(socket().c_str());
        const aaactl_test::FixedService service(socket(), bytes);
        run({"report", "-o", file(), "--socket", socket()});
        EXPECT_TRUE(contains(contents(file()), "<h3>corp</h3>")) << bytes;
        unlink(file().c_str());
    }
}

constexpr char kNoServers[] =
    R"({"reply":"status","program":"aaad","pid":7,"since":1,"socket":"/s","configuration":{},"alarms":[]})"
    "\n"
    R"({"reply":"servers","groups":[]})"
    "\n";

TEST_F(Report, SaysWhatItWrote) {
    const aaactl_test::FixedService service(socket(), kNoServers);
    const Result made = run({"report", "-o", file(), "--json", "--socket", socket()});
    EXPECT_EQ(made.status, 0) << made.err;
    const auto json = made.json();
    EXPECT_EQ(json["server_groups"].dump(), "2");
    EXPECT_EQ(json["method_lists"].dump(), "2");
    EXPECT_EQ(json["commits"].dump(), "0");
    EXPECT_EQ(json["database"].dump(), "true");
    EXPECT_EQ(json["service"].dump(), "true");
}

TEST_F(Report, WithoutTheServiceItIsWrittenAndTheStatusSaysSo) {
    const Result made = run({"report", "-o", file(), "--json", "--socket", socket()});
    EXPECT_EQ(made.status, 5);
    EXPECT_TRUE(contains(made.err, "the report has no states and counters")) << made.err;
    EXPECT_EQ(made.json()["service"].dump(), "false");
    EXPECT_EQ(made.json()["server_groups"].dump(), "2");
    EXPECT_TRUE(contains(contents(file()), "The service was not asked"));
}

TEST_F(Report, WithoutTheDatabaseThePageSaysSo) {
    run({"sysdb", "ls", "/cfg/"});
    const ScopedEnv none("AAA_SYSDB_PROVIDER", dir().path("none.so"));
    const Result made = run({"report", "-o", file(), "--json", "--socket", socket()});
    EXPECT_EQ(made.status, 5) << made.err;
    EXPECT_TRUE(contains(made.err, "the report has no configuration")) << made.err;
    EXPECT_EQ(made.json()["database"].dump(), "false");
    const std::string text = contents(file());
    EXPECT_EQ(times(text, "The system database cannot be read: "), 4u) << "of each section that needs it";
    EXPECT_FALSE(contains(text, "No group is configured."));
    EXPECT_TRUE(text.ends_with("</html>\n"));
}

TEST_F(Report, IsPrinted) {
    const std::string text = page();
    const Result printed = run({"report", "-o", "-", "--socket", socket()});
    EXPECT_EQ(printed.status, 5);
    EXPECT_TRUE(printed.out.starts_with("<!DOCTYPE html>\n"));
    EXPECT_TRUE(printed.out.ends_with("</html>\n"));
    EXPECT_FALSE(printed.out.ends_with("\n\n"));
    EXPECT_EQ(times(printed.out, "<h3>"), times(text, "<h3>"));
    const Result both = run({"report", "-o", "-", "--json"});
    EXPECT_EQ(both.status, 2);
    EXPECT_TRUE(contains(both.err, "with --json, name a file")) << both.err;
}

// ---- the file

mode_t mode_of(const std::string &path) {
    struct stat found {};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 07777;
}

TEST_F(Report, OthersCannotReadIt) {
    const mode_t before = umask(0);
    page();
    EXPECT_EQ(mode_of(file()), 0640u) << "a new file";
    chmod(file().c_str(), 0666);
    page();
    EXPECT_EQ(mode_of(file()), 0640u) << "a file that everyone could read";
    chmod(file().c_str(), 0600);
    page();
    EXPECT_EQ(mode_of(file()), 0600u) << "a file that only its owner could read";
    umask(before);
}

TEST_F(Report, ItsOwnersLinkIsFollowed) {
    ASSERT_EQ(symlink(dir().path("target.html").c_str(), file().c_str()), 0);
    page();
    EXPECT_TRUE(contains(contents(dir().path("target.html")), "<h3>corp</h3>"));
    EXPECT_EQ(mode_of(dir().path("target.html")), 0640u);
}

constexpr uid_t kStranger = 65534;

TEST_F(Report, LinksOfOtherUsersAreRefused) {
    SKIP_WITHOUT_ROOT("only root can make links of other users");
    const std::string precious = dir().write("precious", "old");
    for (const std::string &target : {precious, dir().path("new")}) {
        ASSERT_EQ(symlink(target.c_str(), file().c_str()), 0);
        ASSERT_EQ(lchown(file().c_str(), kStranger, kStranger), 0);
        const Result refused = run({"report", "-o", file(), "--socket", socket()});
        EXPECT_EQ(refused.status, 6);
        EXPECT_TRUE(
            contains(refused.err, file() + ": this symbolic link belongs to another user (uid 65534)"))
            << refused.err;
        ASSERT_EQ(unlink(file().c_str()), 0);
    }
    EXPECT_EQ(dir().read("precious"), "old");
    EXPECT_NE(access(dir().path("new").c_str(), F_OK), 0);
}

// Its owner could read what is written there.
TEST_F(Report, FilesOfOtherUsersAreRefusedExceptInTheirDirectories) {
    SKIP_WITHOUT_ROOT("only root can make files of other users");
    dir().write("report.html", "old");
    ASSERT_EQ(chown(file().c_str(), kStranger, kStranger), 0);
    const Result refused = run({"report", "-o", file(), "--socket", socket()});
    EXPECT_EQ(refused.status, 6);
    EXPECT_TRUE(contains(refused.err, "this file belongs to another user (uid 65534)")) << refused.err;
    EXPECT_EQ(dir().read("report.html"), "old");

    ASSERT_EQ(mkdir(dir().path("home").c_str(), 0755), 0);
    const std::string theirs = dir().write("home/report.html", "old");
    ASSERT_EQ(chown(theirs.c_str(), kStranger, kStranger), 0);
    ASSERT_EQ(chown(dir().path("home").c_str(), kStranger, kStranger), 0);
    EXPECT_EQ(run({"report", "-o", theirs, "--socket", socket()}).status, 5);
    EXPECT_TRUE(contains(contents(theirs), "<h3>corp</h3>"));
}

// The owner of a link on the way would choose where a page replaces a file.
TEST_F(Report, LinksOfOtherUsersOnTheWayAreRefused) {
    SKIP_WITHOUT_ROOT("only root can make links of other users");
    ASSERT_EQ(mkdir(dir().path("real").c_str(), 0755), 0);
    dir().write("real/page", "precious");
    const std::string link = dir().path("link");
    ASSERT_EQ(symlink("real", link.c_str()), 0);
    ASSERT_EQ(lchown(link.c_str(), kStranger, kStranger), 0);
    for (const std::string name : {"/page", "/new", "/./../link/page"}) {
        const Result refused = run({"report", "-o", link + name, "--socket", socket()});
        EXPECT_EQ(refused.status, 6);
        EXPECT_TRUE(contains(refused.err, link + name + ": the symbolic link link in this path belongs to"))
            << refused.err;
    }
    EXPECT_EQ(dir().read("real/page"), "precious");
    EXPECT_NE(access(dir().path("real/new").c_str(), F_OK), 0);
    // A link at the end leads through it.
    ASSERT_EQ(symlink((link + "/page").c_str(), file().c_str()), 0);
    EXPECT_EQ(run({"report", "-o", file(), "--socket", socket()}).status, 6);
    EXPECT_EQ(dir().read("real/page"), "precious");
    ASSERT_EQ(lchown(link.c_str(), 0, 0), 0);
    EXPECT_EQ(run({"report", "-o", link + "/page", "--socket", socket()}).status, 5);
    EXPECT_TRUE(contains(contents(dir().path("real/page")), "<h3>corp</h3>"));
}

// ---- the history

class ReportOfHistory : public Report {
  protected:
    // A change and its commit.
    static void change(int number, const std::vector<std::string> &options) {
        std::vector<std::string> words{"load", "--force", "-"};
        words.insert(words.end(), options.begin(), options.end());
        const Result made =
            aaactl_test::aaactl(words, "item /cfg/gl/aaa/site/limit u32 " + std::to_string(number) + "\n");
        ASSERT_EQ(made.status, 0) << made.err;
    }
};

TEST_F(ReportOfHistory, HasNoCommit) {
    EXPECT_TRUE(contains(page(), "There is no commit yet; aaactl commit LABEL makes one."));
}

TEST_F(ReportOfHistory, SaysWhoMadeWhat) {
    page();
    change(1, {"--label", "up<grade", "-m", "because of <b>"});
    const std::string text = page();
    EXPECT_TRUE(contains(text, ": up&lt;grade</strong>"));
    EXPECT_TRUE(contains(text, "because of &lt;b&gt;"));
    EXPECT_TRUE(contains(text, " UTC by ")) << text;
    EXPECT_FALSE(contains(text, "is in force again"));
    EXPECT_TRUE(contains(text, "without a commit")) << "what was there before";
}

TEST_F(ReportOfHistory, SaysWhatWaits) {
    page();
    change(1, {"--label", "risky", "--confirm", "30"});
    const std::string text = page();
    EXPECT_TRUE(contains(text, "waits for its confirmation until "));
    EXPECT_TRUE(contains(text, "29 minutes left when this page was written")) << text;
    EXPECT_TRUE(contains(text, "is in force again. aaactl confirm keeps it"));
    EXPECT_EQ(run({"confirm"}).status, 0);
    EXPECT_FALSE(contains(page(), "left when this page was written"));
    EXPECT_TRUE(contains(page(), "; confirmed by "));
}

TEST_F(ReportOfHistory, ShowsTheNewest) {
    page();
    for (int i = 1; i <= 21; ++i) {
        change(i, {"--label", "change" + std::to_string(i) + "."});
    }
    const std::string text = page();
    EXPECT_EQ(times(text, "<strong>Commit "), 20u);
    EXPECT_LT(text.find(": change21."), text.find(": change20."));
    EXPECT_FALSE(contains(text, ": change1.<"));
    EXPECT_TRUE(contains(text, "And 2 older commits; aaactl history lists all."))
        << "one of them from before";
}

TEST_F(ReportOfHistory, ADamagedRecordIsNamedAndOthersAreShown) {
    page();
    change(1, {"--label", "first"});
    change(2, {"--label", "second"});
    ASSERT_EQ(
        aaactl_test::aaactl(
            {"sysdb", "set", "/cfg/.history/commit/0x2/record", "--type", "string", "--force"}, "no record")
            .status,
        0);
    const std::string text = page();
    EXPECT_TRUE(contains(text, "/cfg/.history/commit/0x2/record is not a record of a commit"));
    EXPECT_TRUE(contains(text, "deletes that commit only"));
    EXPECT_TRUE(contains(text, ": second</strong>"));
}

// ---- many of them

TEST_F(Report, ManyGroupsAreFolded) {
    for (int i = 3; i <= 20; ++i) {
        server("radius/group" + std::to_string(i), "0x1/192.0.2.40,1812,1813");
    }
    EXPECT_EQ(times(page(), "<details"), 0u);
    server("radius/one-more", "0x1/192.0.2.40,1812,1813");
    const std::string text = page();
    EXPECT_TRUE(contains(text, "21 groups; open one to see more."));
    EXPECT_TRUE(contains(text, "<summary><h3>corp</h3>\n 2 servers</summary>")) << text;
    EXPECT_FALSE(contains(text, "<details open"));
    EXPECT_TRUE(contains(text, "details::details-content{content-visibility:visible")) << "for prints";
}

// Closed, its heading still says that something is wrong.
TEST_F(Report, FoldedGroupsSayWhatIsWrong) {
    for (int i = 3; i <= 21; ++i) {
        server("radius/group" + std::to_string(i), "0x1/192.0.2.40,1812,1813");
    }
    put("/cfg/gl/aaa/group-server/radius/empty/settings/transport", "string", "tls");
    const aaactl_test::FixedService service(
        socket(),
        R"({"reply":"status","program":"aaad","pid":7,"since":1,"socket":"/s","clients":3,"configuration":{"revision":9,"fallback":false},"alarms":[]})"
        "\n"
        R"({"reply":"servers","groups":[{"group":"corp","protocol":"tacacs","servers":[]},)"
        R"({"group":"corp","protocol":"radius","servers":[{"server":"a","state":"dead"},{"server":"b","state":"up"}]},)"
        R"({"group":"group3","protocol":"radius","servers":[{"server":"c","state":"up"}]}]})"
        "\n");
    const std::string text = page(0);
    EXPECT_TRUE(contains(text, "<h3>corp</h3>\n 2 servers, <span class=\"bad\">1 not up</span></summary>"))
        << text;
    EXPECT_TRUE(contains(text, "<h3>group3</h3>\n 1 server</summary>"));
    EXPECT_TRUE(
        contains(text, "<h3>empty</h3>\n 0 servers, <span class=\"bad\">no servers</span></summary>"));
    EXPECT_EQ(times(text, "As aaad sees them"), 2u) << "of the right protocol";
}

TEST_F(Report, LosesNothingWhenItCannotWrite) {
    page();
    const std::string before = contents(file());
    const Result refused = run({"report", "-o", dir().path("none/report.html"), "--socket", socket()});
    EXPECT_NE(refused.status, 0);
    EXPECT_TRUE(contains(refused.err, "none/report.html")) << refused.err;
    EXPECT_EQ(run({"report"}).status, 2);
    EXPECT_EQ(contents(file()), before);
}

}  // namespace
