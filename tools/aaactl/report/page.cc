// SPDX-License-Identifier: Apache-2.0
//
// The sections of a report. A further one is a function in kSections.

#include "report/page.hpp"

#include <map>

#include "report/flow.hpp"
#include "report/groups.hpp"
#include "report/parts.hpp"
#include "report/style.hpp"

namespace aaactl {
namespace {

// ---- the service ------------------------------------------------------------------

void write_service(Html &page, const Facts &facts) {
    if (facts.status.is_null()) {
        page.line("p", "The service was not asked: " + facts.no_service, {{"class", "warn"}});
        page.line("p", facts.no_database.empty()
                           ? "What follows is what is stored; states of servers and counters are missing."
                           : "States of servers and counters are missing, too.");
        return;
    }
    const Json &configuration = facts.status["configuration"];
    page.open("dl");
    pair(page, "Program",
         text_of(facts.status, "program") + ", process " + std::to_string(number_of(facts.status, "pid")));
    pair(page, "Since", date_and_time(number_of(facts.status, "since")));
    pair(page, "Clients", std::to_string(number_of(facts.status, "clients")));
    const bool fallback = configuration["fallback"] == Json(true);
    pair(page, "Configuration",
         "revision " + std::to_string(number_of(configuration, "revision")) +
             (fallback ? "; the fallback of aaad.conf is used, see: aaad --check" : ""),
         fallback ? "bad" : "");
    page.close();
    if (array_of(facts.status, "alarms").empty()) {
        page.line("p", "No alarms.", {{"class", "good"}});
        return;
    }
    page.open("ul", {{"class", "plain"}});
    for (const Json &alarm : array_of(facts.status, "alarms")) {
        page.open("li").line("strong", text_of(alarm, "alarm"), {{"class", "bad"}});
        page.text(", since " + date_and_time(number_of(alarm, "since")) + ": " + text_of(alarm, "text"))
            .close();
    }
    page.close();
}

// ---- lists ----------------------------------------------------------------------------

void write_list(Html &page, const ReportedList &list, size_t number, bool folded) {
    open_card(page, folded, list.title);
    if (!list.explanation) {
        page.line("p", list.defect, {{"class", "bad"}});
    } else if (!list.explanation->is_tried()) {
        page.line("p", "Programs that ask the library try no step of it; see the findings.",
                  {{"class", "bad"}});
        page.open("ol");
        for (const Explanation::Step &step : list.explanation->steps) {
            page.line("li", step_word(step) + " (" + step_meaning(*list.explanation, step) + ")");
        }
        page.close();
    } else {
        write_flow(page, *list.explanation, "flow" + std::to_string(number));
    }
    page.close();
}

void write_lists(Html &page, const Facts &facts) {
    page.line(
        "p",
        "The first step that accepts or refuses decides. Only a step that does not answer is followed by "
        "the next one.");
    const bool folded = fold(page, facts.lists.size(), "lists");
    size_t number = 0;
    for (const ReportedList &list : facts.lists) {
        write_list(page, list, ++number, folded);
    }
    if (facts.lists.empty()) {
        page.line("p", "No list is configured.", {{"class", "dim"}});
    }
}

// ---- findings ------------------------------------------------------------------------------

void write_finding(Html &page, const Finding &finding) {
    const bool error = finding.severity == Severity::error;
    page.open("li").line("strong", error ? "Error" : "Warning", {{"class", error ? "bad" : "warn"}});
    page.text(" " + finding.code + ": " + finding.text);
    page.line("p", finding.path, {{"class", "dim"}}).line("p", "Remedy: " + finding.remedy).close();
}

// Those of one kind below one line.
void write_folded_findings(Html &page, const Findings &findings) {
    std::map<std::pair<bool, std::string>, std::vector<const Finding *>> kinds;  // errors first
    for (const Finding &finding : findings) {
        kinds[{finding.severity != Severity::error, finding.code}].push_back(&finding);
    }
    for (const auto &[kind, members] : kinds) {
        page.open("details", {{"class", "card"}}).open("summary");
        page.line("strong", kind.first ? "Warning" : "Error", {{"class", kind.first ? "warn" : "bad"}});
        page.text(" " + kind.second + ": " + plural(members.size(), "time")).close();
        page.open("ul", {{"class", "plain"}});
        for (const Finding *finding : members) {
            write_finding(page, *finding);
        }
        page.close().close();
    }
}

void write_findings(Html &page, const Facts &facts) {
    const Findings &findings = facts.checked.findings;
    page.line("p", plural(count(findings, Severity::error), "error") + ", " +
                       plural(count(findings, Severity::warning), "warning"));
    if (fold(page, findings.size(), "findings")) {
        write_folded_findings(page, findings);
        return;
    }
    if (findings.empty()) {
        return;
    }
    page.open("ul", {{"class", "plain"}});
    for (const Finding &finding : findings) {
        write_finding(page, finding);
    }
    page.close();
}

// ---- counters --------------------------------------------------------------------------------

uint64_t sum_of(const Json &servers, const char *name) {
    uint64_t sum = 0;
    for (const Json &group : array_of(servers, "groups")) {
        for (const Json &server : array_of(group, "servers")) {
            sum += number_of(server, name);
        }
    }
    return sum;
}

void write_accounting(Html &page, const Json &figures) {
    page.line("h3", "Accounting").open("dl");
    if (figures["journal"] != Json(true)) {
        pair(page, "On disk", "no: records are lost when no server takes them", "bad");
    } else {
        const bool alarm = figures["failed"] == Json(true) || figures["full"] == Json(true);
        pair(page, "On disk",
             std::to_string(number_of(figures, "bytes")) + " of " +
                 std::to_string(number_of(figures, "most_bytes")) + " bytes" +
                 (figures["failed"] == Json(true) ? "; the disk fails"
                  : figures["full"] == Json(true) ? "; full"
                                                  : ""),
             alarm ? "bad" : "");
        pair(page, "Recorded", std::to_string(number_of(figures, "recorded")));
        pair(page, "Refused", std::to_string(number_of(figures, "refused")));
        pair(page, "Open sessions", std::to_string(number_of(figures, "open_sessions")));
    }
    page.close();
    for (const Json &group : array_of(figures, "groups")) {
        page.line("h4", text_of(group, "group")).open("dl");
        pair(page, "Waiting", std::to_string(number_of(group, "waiting")));
        pair(page, "Delivered", std::to_string(number_of(group, "delivered")));
        pair(page, "Dropped", std::to_string(number_of(group, "dropped")));
        page.close();
    }
}

void write_counters(Html &page, const Facts &facts) {
    if (facts.status.is_null()) {
        page.line("p", "The service was not asked.", {{"class", "dim"}});
        return;
    }
    page.open("div", {{"class", "card"}}).line("h3", "Servers").open("dl");
    for (const auto &[name, member] : {std::pair("Requests", "asked"), std::pair("Tries", "tries"),
                                       std::pair("Answers", "answers"), std::pair("Time-outs", "timeouts"),
                                       std::pair("In flight", "in_flight"), std::pair("Queued", "queued")}) {
        pair(page, name, std::to_string(sum_of(facts.servers, member)));
    }
    page.close();
    if (facts.status.contains("accounting")) {
        write_accounting(page, facts.status["accounting"]);
    }
    page.close();
}

// ---- history -------------------------------------------------------------------------------

void write_reported_history(Html &page, const Facts &facts) {
    write_history(page, facts.history);
}

// ---- the page -----------------------------------------------------------------------------------

struct Section {
    const char *id;
    const char *title;
    bool is_of_database;
    void (*write)(Html &page, const Facts &facts);
};

constexpr Section kSections[] = {
    {"service", "Service", false, write_service},
    {"findings", "Findings", true, write_findings},
    {"groups", "Groups and servers", true, write_groups},
    {"lists", "Method lists", true, write_lists},
    {"counters", "Counters", false, write_counters},
    {"history", "History", true, write_reported_history},
};

void write_section(Html &page, const Facts &facts, const Section &section) {
    if (section.is_of_database && !facts.no_database.empty()) {
        page.line("p", "The system database cannot be read: " + facts.no_database, {{"class", "bad"}});
        return;
    }
    section.write(page, facts);
}

void write_head(Html &page, const Facts &facts) {
    page.open("head").empty("meta", {{"charset", "utf-8"}});
    page.empty("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
    // A name that got past the escaping could still neither run nor load anything.
    page.empty("meta", {{"http-equiv", "Content-Security-Policy"},
                        {"content", "default-src 'none'; style-src 'unsafe-inline'"}});
    page.empty("meta", {{"name", "referrer"}, {"content", "no-referrer"}});
    page.line("title", "AAA of " + facts.host + ", " + facts.time);
    page.open("style").literal(kStyle).close().close();
}

}  // namespace

std::string report_page(const Facts &facts) {
    Html page;
    page.literal("<!DOCTYPE html>\n").open("html", {{"lang", "en"}});
    write_head(page, facts);
    page.open("body")
        .open("header")
        .line("h1", "AAA of " + facts.host)
        .line("p", facts.time, {{"class", "dim"}});
    page.open("nav", {{"aria-label", "Sections"}});
    for (const Section &section : kSections) {
        page.line("a", section.title, {{"href", std::string("#") + section.id}}).text(" ");
    }
    page.close().close().open("main");
    for (const Section &section : kSections) {
        page.open("section", {{"id", section.id}}).line("h2", section.title);
        write_section(page, facts, section);
        page.close();
    }
    return std::move(page).take();
}

}  // namespace aaactl
