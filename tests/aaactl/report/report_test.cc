// SPDX-License-Identifier: Apache-2.0
//
// report: what is on the page, what is not, and that names with markup stay text.

#include "aaactl/config/aaa_config_fixture.hpp"
#include "aaactl/support/fixed_service.hpp"
#include "platform/control.h"
#include "report/html.hpp"

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
    std::string page() {
        const Result made = run({"report", "-o", file(), "--socket", socket()});
        EXPECT_EQ(made.status, 0) << made.err;
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
        R"({"reply":"status","program":"aaad <1>","pid":7,"since":1,"clients":3,"configuration":{"revision":9,"fallback":false},)"
        R"("alarms":[{"alarm":"keys","since":1,"text":"<a> of corp"}],)"
        R"("accounting":{"journal":true,"bytes":10,"most_bytes":100,"recorded":42,"groups":[{"group":"<c>","waiting":5}]}})"
        "\n"
        R"({"reply":"servers","groups":[{"group":"corp","protocol":"radius","servers":[{"server":"192.0.2.20:1812","use":"all",)"
        R"("transport":"udp","state":"dead","why":"<no answer>","asked":11,"answers":4,"timeouts":2,"last_us":1500}]},)"
        R"({"group":"","protocol":"tacacs","servers":[]}]})"
        "\n");
    const std::string text = page();
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
        EXPECT_TRUE(contains(page(), "<h3>corp</h3>")) << bytes;
    }
}

TEST_F(Report, SaysWhatItWrote) {
    const auto json = run({"report", "-o", file(), "--json", "--socket", socket()}).json();
    EXPECT_EQ(json["server_groups"].dump(), "2");
    EXPECT_EQ(json["method_lists"].dump(), "2");
    EXPECT_EQ(json["service"].dump(), "false");
    const Result note = run({"report", "-o", file(), "--socket", socket()});
    EXPECT_TRUE(contains(note.err, "the report has no states and counters")) << note.err;
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
