// SPDX-License-Identifier: Apache-2.0
//
// The sections of a report. A further one is a function in kSections.

#include "report/page.hpp"

#include <cstdio>

#include "report/flow.hpp"
#include "report/html.hpp"
#include "report/style.hpp"

namespace aaactl {
namespace {

// ---- parts ----------------------------------------------------------------------

// The elements of a member; none when there is no service, or it has not sent the member.
const std::vector<Json> &array_of(const Json &document, std::string_view name) {
    static const std::vector<Json> none;
    const Json &value = document[name];
    return value.is_array() ? value.elements() : none;
}

void pair(Html &page, const char *name, const std::string &value, const char *kind = "") {
    page.line("dt", name).line("dd", value, {{"class", kind}});
}

std::string milliseconds(const Json &server, const char *name) {
    if (!server.contains(name)) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(number_of(server, name)) / 1000);
    return text;
}

std::string plural(size_t number, const std::string &noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

// ---- the service ------------------------------------------------------------------

void write_service(Html &page, const Facts &facts) {
    if (facts.status.is_null()) {
        page.line("p", "The service was not asked: " + facts.no_service, {{"class", "warn"}});
        page.line("p", "What follows is what is stored; states of servers and counters are missing.");
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

// ---- groups and servers -------------------------------------------------------------

// A key is there or not; it is never shown, sealed neither.
const char *key_words(KeyState state) {
    switch (state) {
        case KeyState::opens:
        case KeyState::unchecked:
            return "has a key";
        case KeyState::not_needed:
            return "needs no key";
        case KeyState::missing:
            return "has no key";
        case KeyState::unusable:
            return "has a key that cannot be opened";
        case KeyState::unprintable:
            return "has a key that other programs may refuse";
    }
    return "";
}

void write_stored(Html &page, const Server &server, KeyState key) {
    page.open("li")
        .line("strong", server_text(server))
        .text(server.is_private ? " (of this group only), " : ", ");
    const bool sound = is_sound(server);
    page.line("span", sound ? key_words(key) : "not usable: " + server.defect,
              {{"class", sound && is_asked_with(key) ? "dim" : "bad"}});
    page.close();
}

void write_running(Html &page, const Json &server) {
    const std::string state = text_of(server, "state");
    const bool asked = number_of(server, "asked") != 0;
    page.open("li").line("strong", text_of(server, "server")).open("dl");
    const bool up = state == "up";
    pair(page, "State", up && !asked ? "not asked yet" : state, !up ? "bad" : asked ? "good" : "dim");
    if (!up) {
        pair(page, "Why", text_of(server, "why"));
    }
    pair(page, "Used for", text_of(server, "use") + ", " + text_of(server, "transport"));
    pair(page, "Round trip",
         milliseconds(server, "last_us") + ", average " + milliseconds(server, "average_us"));
    pair(page, "Asked",
         std::to_string(number_of(server, "asked")) + ", answers " +
             std::to_string(number_of(server, "answers")) + ", time-outs " +
             std::to_string(number_of(server, "timeouts")) + ", errors " +
             std::to_string(number_of(server, "errors") + number_of(server, "unreachable")));
    page.close().close();
}

void write_running_servers(Html &page, const Json &group) {
    if (array_of(group, "servers").empty()) {
        page.line("p", "aaad has no usable server of it; see: aaad --check", {{"class", "bad"}});
        return;
    }
    page.line("h4", "As aaad sees them").open("ul", {{"class", "plain"}});
    for (const Json &server : array_of(group, "servers")) {
        write_running(page, server);
    }
    page.close();
}

void write_group(Html &page, const ReportedGroup &reported, const Json &servers) {
    const Group &group = reported.group;
    page.open("section", {{"class", "card"}}).line("h3", group.name);
    page.line("p",
              std::string(group.protocol.word) + ", " +
                  (group.number ? "number " + std::to_string(*group.number) : "no number") +
                  (group.configured ? "" : ", not configured any more"),
              {{"class", group.configured ? "dim" : "bad"}});
    if (group.servers.empty()) {
        page.line("p", "no servers", {{"class", "bad"}});
    } else {
        page.open("ul");
        for (size_t i = 0; i < group.servers.size(); ++i) {
            write_stored(page, group.servers[i], reported.keys[i].state);
        }
        page.close();
    }
    for (const Json &running : array_of(servers, "groups")) {
        if (text_of(running, "group") == group.name && text_of(running, "protocol") == group.protocol.word) {
            write_running_servers(page, running);
        }
    }
    page.close();
}

void write_groups(Html &page, const Facts &facts) {
    for (const ReportedGroup &group : facts.groups) {
        write_group(page, group, facts.servers);
    }
    for (const Json &running : array_of(facts.servers, "groups")) {
        if (text_of(running, "group").empty()) {
            page.open("section", {{"class", "card"}});
            page.line("h3", "Servers without a group: " + text_of(running, "protocol"));
            write_running_servers(page, running);
            page.close();
        }
    }
    if (facts.groups.empty()) {
        page.line("p", "No group is configured.", {{"class", "dim"}});
    }
}

// ---- lists ----------------------------------------------------------------------------

void write_list(Html &page, const ReportedList &list, size_t number) {
    page.open("section", {{"class", "card"}}).line("h3", list.title);
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
    size_t number = 0;
    for (const ReportedList &list : facts.lists) {
        write_list(page, list, ++number);
    }
    if (facts.lists.empty()) {
        page.line("p", "No list is configured.", {{"class", "dim"}});
    }
}

// ---- findings ------------------------------------------------------------------------------

void write_findings(Html &page, const Facts &facts) {
    const Findings &findings = facts.checked.findings;
    page.line("p", plural(count(findings, Severity::error), "error") + ", " +
                       plural(count(findings, Severity::warning), "warning"));
    if (findings.empty()) {
        return;
    }
    page.open("ul", {{"class", "plain"}});
    for (const Finding &finding : findings) {
        const bool error = finding.severity == Severity::error;
        page.open("li").line("strong", error ? "Error" : "Warning", {{"class", error ? "bad" : "warn"}});
        page.text(" " + finding.code + ": " + finding.text);
        page.line("p", finding.path, {{"class", "dim"}}).line("p", "Remedy: " + finding.remedy).close();
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

// ---- the page -----------------------------------------------------------------------------------

struct Section {
    const char *id;
    const char *title;
    void (*write)(Html &page, const Facts &facts);
};

constexpr Section kSections[] = {
    {"service", "Service", write_service},          {"findings", "Findings", write_findings},
    {"groups", "Groups and servers", write_groups}, {"lists", "Method lists", write_lists},
    {"counters", "Counters", write_counters},
};

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
        section.write(page, facts);
        page.close();
    }
    return std::move(page).take();
}

}  // namespace aaactl
