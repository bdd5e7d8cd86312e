// SPDX-License-Identifier: Apache-2.0

#include "report/groups.hpp"

#include <algorithm>
#include <map>

#include "report/parts.hpp"

namespace aaactl {
namespace {

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

// What aaad says of the groups, by protocol and name: a search for each would take minutes with thousands.
using RunningGroups = std::map<std::pair<std::string, std::string>, const Json *>;

RunningGroups running_groups(const Facts &facts) {
    RunningGroups running;
    for (const Json &group : array_of(facts.servers, "groups")) {
        running.try_emplace({text_of(group, "protocol"), text_of(group, "group")}, &group);
    }
    return running;
}

size_t count_not_up(const Json &running) {
    const std::vector<Json> &servers = array_of(running, "servers");
    return static_cast<size_t>(std::count_if(
        servers.begin(), servers.end(), [](const Json &server) { return text_of(server, "state") != "up"; }));
}

// What is wrong with a group in few words, for a heading that may be all that is shown of it; "" if nothing
// is.
std::string trouble_of(const ReportedGroup &reported, const Json *running) {
    const std::vector<Server> &servers = reported.group.servers;
    if (servers.empty()) {
        return "no servers";
    }
    size_t unusable = 0;
    for (size_t i = 0; i < servers.size(); ++i) {
        unusable += is_sound(servers[i]) && is_asked_with(reported.keys[i].state) ? 0 : 1;
    }
    if (unusable != 0) {
        return plural(unusable, "server") + " not usable";
    }
    if (running == nullptr) {
        return "";
    }
    if (array_of(*running, "servers").empty()) {
        return "none is usable for aaad";
    }
    const size_t down = count_not_up(*running);
    return down == 0 ? "" : std::to_string(down) + " not up";
}

void write_group_servers(Html &page, const ReportedGroup &reported, const Json *running) {
    const Group &group = reported.group;
    if (group.servers.empty()) {
        page.line("p", "no servers", {{"class", "bad"}});
    } else {
        page.open("ul");
        for (size_t i = 0; i < group.servers.size(); ++i) {
            write_stored(page, group.servers[i], reported.keys[i].state);
        }
        page.close();
    }
    if (running != nullptr) {
        write_running_servers(page, *running);
    }
}

void write_group(Html &page, const ReportedGroup &reported, const Json *running, bool folded) {
    const Group &group = reported.group;
    open_card(page, folded, group.name, plural(group.servers.size(), "server"),
              folded ? trouble_of(reported, running) : "");
    page.line("p",
              std::string(group.protocol.word) + ", " +
                  (group.number ? "number " + std::to_string(*group.number) : "no number") +
                  (group.configured ? "" : ", not configured any more"),
              {{"class", group.configured ? "dim" : "bad"}});
    write_group_servers(page, reported, running);
    page.close();
}

}  // namespace

void write_groups(Html &page, const Facts &facts) {
    const RunningGroups running = running_groups(facts);
    const bool folded = fold(page, facts.groups.size(), "groups");
    for (const ReportedGroup &group : facts.groups) {
        const auto found = running.find({group.group.protocol.word, group.group.name});
        write_group(page, group, found == running.end() ? nullptr : found->second, folded);
    }
    for (const auto &[name, group] : running) {
        if (name.second.empty()) {
            page.open("section", {{"class", "card"}});
            page.line("h3", "Servers without a group: " + name.first);
            write_running_servers(page, *group);
            page.close();
        }
    }
    if (facts.groups.empty()) {
        page.line("p", "No group is configured.", {{"class", "dim"}});
    }
}

}  // namespace aaactl
