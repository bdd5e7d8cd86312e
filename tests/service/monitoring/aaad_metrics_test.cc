// SPDX-License-Identifier: Apache-2.0
//
// The figures that a collector reads from aaad.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "service/journal/journal_fixture.hpp"

namespace journal_test {
namespace {

std::string get(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const net::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        return "";
    }
    const std::string request = "GET /metrics HTTP/1.0\r\n\r\n";
    EXPECT_EQ(send(socket.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    std::string all;
    char bytes[4096];
    for (ssize_t got; (got = recv(socket.get(), bytes, sizeof bytes, 0)) > 0;) {
        all.append(bytes, static_cast<size_t>(got));
    }
    const size_t body = all.find("\r\n\r\n");
    return body == std::string::npos ? "" : all.substr(body + 4);
}

class AaadMetrics : public JournalTest {
  protected:
    std::string path() const { return aaad_.dir().path("metrics.sock"); }
    std::string text() const { return get(path()); }
    // The value of a series; empty without it.
    std::string value(const std::string &series) const {
        const std::string all = "\n" + text();
        const size_t at = all.find("\n" + series + " ");
        if (at == std::string::npos) {
            return "";
        }
        const size_t begin = at + series.size() + 2;
        return all.substr(begin, all.find('\n', begin) - begin);
    }
    void wait_for(const std::string &series, const std::string &wanted) const {
        wait_until([&] { return value(series) == wanted; });
    }
    std::string of_server(const std::string &name, const std::string &more) const {
        return name + "{server=\"radius/" + entry_of(server_) + "\"," + more + "}";
    }

    UdpServer server_{loop_};
};

TEST_F(AaadMetrics, CountsRequestsByResult) {
    lists({AAA_METHOD_LOCAL});
    aaad_.settings("lockout-failures 2\n");
    aaad_.start();
    EXPECT_EQ(value("aaad_requests_total{function=\"authentication\",result=\"pass\"}"), "0");
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(aaad_.login(ask_as("mallory", "guess")).status, uint32_t{AAA_STAT_FAIL});
    }
    EXPECT_EQ(value("aaad_requests_total{function=\"authentication\",result=\"pass\"}"), "1");
    EXPECT_EQ(value("aaad_requests_total{function=\"authentication\",result=\"refused\"}"), "2");
    EXPECT_EQ(value("aaad_login_seconds_count{result=\"refused\"}"), "2");
    EXPECT_EQ(value("aaad_lockouts_total"), "1");
    EXPECT_EQ(value("aaad_lockouts"), "1");
    const Client client = aaad_.client();
    wait_for("aaad_clients", "1");
    EXPECT_NE(value("aaad_configuration_age_seconds"), "-1");
    const std::string all = text();
    for (const char *word : {"mallory", "alice", "192.0.2.10"}) {
        EXPECT_EQ(all.find(word), std::string::npos) << word << " is in a label";
    }
}

TEST_F(AaadMetrics, ShowsServersAndForgetsThoseThatGo) {
    add_radius(server_, 100);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(value(of_server("aaad_server_up", "use=\"login\"")), "1");
    {
        Login login(aaad_, ask_as("ann", "secret"));
        server_.answer(server_.next());
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    EXPECT_EQ(value(of_server("aaad_server_answer_seconds_count", "use=\"login\"")), "1");
    EXPECT_NE(value(of_server("aaad_server_round_trip_seconds", "use=\"login\"")), "0");
    server_.close();
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS}) << "locally";
    EXPECT_EQ(value(of_server("aaad_server_up", "use=\"login\"")), "0");
    EXPECT_EQ(value(of_server("aaad_server_questions_total", "use=\"login\",result=\"unreachable\"")), "1");
    aaad_.remove("group-server/radius/corp/");
    aaad_.reload();
    EXPECT_EQ(text().find("aaad_server_"), std::string::npos);
}

TEST_F(AaadMetrics, CountsTheProbesOfAServer) {
    add_radius(server_, 50);
    set_number("radius", entry_of(server_), "dead-time", 1);
    set_number("radius", "", "status-server", 1);
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    const auto probes = [this](const std::string &use, const std::string &result) {
        return value(of_server("aaad_server_probes_total", "use=\"" + use + "\",result=\"" + result + "\""));
    };
    EXPECT_EQ(probes("login", "none"), "0");
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_EQ(server_.next().code(), 1);
    EXPECT_EQ(server_.next().code(), 12) << "this one is not answered";
    EXPECT_EQ(probes("login", "answer"), "0");
    int unanswered = 1;
    // On a busy machine an answer may come too late, and the next probe counts.
    for (bool is_first = true; probes("login", "answer") != "1"; is_first = false) {
        unanswered += is_first ? 0 : 1;
        const auto probe = server_.next();
        EXPECT_EQ(probe.code(), 12);
        server_.answer(probe);
        wait_until([&] { return probes("login", "answer") == "1" || server_.has_one(); });
    }
    EXPECT_EQ(probes("login", "none"), std::to_string(unanswered));
    EXPECT_EQ(probes("accounting", "answer"), "0");
    EXPECT_EQ(value(of_server("aaad_server_questions_total", "use=\"login\",result=\"timeout\"")), "1")
        << "a probe is not counted as a question";
}

TEST_F(AaadMetrics, ShowsTheJournalAndItsQueues) {
    add_radius(server_, 100);
    lists({"corp"});
    aaad_.settings("journal-limit 1\njournal-alarm 1\n");
    aaad_.start();
    EXPECT_EQ(value("aaad_journal_open"), "1");
    EXPECT_EQ(value("aaad_journal_limit_bytes"), "1048576");
    server_.close();
    Client client = aaad_.client();
    for (uint32_t number = 1; number <= 200; ++number) {
        ASSERT_EQ(client.account(start_of(number)).result, AAA_OK);
    }
    EXPECT_EQ(value("aaad_journal_recorded_total"), "200");
    EXPECT_EQ(value("aaad_journal_group_queue{group=\"corp\"}"), "200");
    EXPECT_EQ(value("aaad_sessions_open"), "200");
    EXPECT_EQ(value("aaad_journal_alarm{alarm=\"level\"}"), "1");
    EXPECT_EQ(value("aaad_journal_alarms_total{alarm=\"level\"}"), "1");
    EXPECT_EQ(value("aaad_journal_alarm{alarm=\"full\"}"), "0");
    wait_for("aaad_journal_group_down{group=\"corp\"}", "1");
    EXPECT_EQ(value("aaad_requests_total{function=\"accounting\",result=\"pass\"}"), "200");
}

TEST_F(AaadMetrics, TheSocketMovesAndMayBeLeftOut) {
    aaad_.settings("metrics-socket-mode 0600\n");
    aaad_.start();
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    const std::string other = aaad_.dir().path("other.sock");
    aaad_.settings("metrics-socket " + other + "\n");
    aaad_.reload();
    EXPECT_NE(get(other), "");
    EXPECT_NE(stat(path().c_str(), &status), 0);
    aaad_.settings("metrics-socket none\n");
    aaad_.reload();
    EXPECT_EQ(get(other), "");
    aaad_.settings("metrics-socket " + aaad_.dir().path("nowhere/m.sock") + "\n");
    aaad_.reload();
    EXPECT_TRUE(aaad_.wait_for_log("NO_METRICS"));
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
}

// One of every kind: the page and the tool see all of them.
class AaadAllMetrics : public AaadMetrics {
  protected:
    std::string everything() {
        add_radius(server_, 100);
        lists({"corp", AAA_METHOD_LOCAL});
        aaad_.start();
        {
            Login login(aaad_, ask_as("ann", "secret"));
            server_.answer(server_.next());
            EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
        }
        EXPECT_EQ(account(start_of(7)), AAA_OK);
        take(server_);
        wait_for("aaad_journal_group_delivered_total{group=\"corp\"}", "1");
        return text();
    }
};

TEST_F(AaadAllMetrics, AreDocumented) {
    std::ostringstream page;
    page << std::ifstream(AAA_METRICS_PAGE).rdbuf();
    std::istringstream lines(everything());
    size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string hash, kind, name;
        words >> hash >> kind >> name;
        if (kind == "TYPE") {
            ++count;
            EXPECT_NE(page.str().find("`" + name + "`"), std::string::npos)
                << name << " is not in " << AAA_METRICS_PAGE;
        }
    }
    EXPECT_GT(count, 30u);
}

TEST_F(AaadAllMetrics, PleasePromtool) {
    if (access("/usr/bin/promtool", X_OK) != 0) {
        GTEST_SKIP() << "promtool is not installed; scripts/setup test installs it";
    }
    const std::string file = aaad_.dir().write("metrics", everything());
    const std::string output = aaad_.dir().path("promtool");
    EXPECT_EQ(system(("promtool check metrics < " + file + " > " + output + " 2>&1").c_str()), 0);
    EXPECT_EQ(aaad_.dir().read("promtool"), "");
}

}  // namespace
}  // namespace journal_test
