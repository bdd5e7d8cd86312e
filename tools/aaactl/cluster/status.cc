// SPDX-License-Identifier: Apache-2.0
//
// cluster status.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>

#include "cluster/agent_program.hpp"
#include "cluster/cluster.hpp"
#include "service/control_client.hpp"

namespace aaactl {
namespace {

// Nodes write their line twice a minute; those that have ended are not there after 90 seconds.
constexpr uint64_t kMostAge = 60;

bool is_true(const Json &document, std::string_view name) {
    return document[name] == Json(true);
}

bool agent_runs(const Json &status) {
    return is_true(status["agent"], "running");
}

bool has_joined(const Json &status) {
    return status["mark"].is_object();
}

bool follows(const Json &status) {
    return text_of(status, "state") == "following";
}

std::string with_remedy(const Json &where, const char *fault, const char *remedy) {
    const std::string what = text_of(where, remedy);
    return escaped(text_of(where, fault)) + (what.empty() ? "" : "; " + escaped(what));
}

std::string head_of(const Json &status) {
    const std::string name = escaped(text_of(status, "node"));
    const std::string node = name.empty() ? "this node" : "node " + name;
    if (!has_joined(status) && number_of(status, "database_fault") != 0) {
        return node + ": whether it has joined a cluster is not known";
    }
    if (!has_joined(status)) {
        return node + " has not joined a cluster; to join: aaactl cluster join URL";
    }
    std::string head = node + ", below " + escaped(text_of(status["mark"], "prefix")) + ": ";
    if (agent_runs(status)) {
        head += escaped(text_of(status, "state"));
    } else {
        head += "the agent does not run";
    }
    return head + ", revision " + std::to_string(number_of(status, "revision"));
}

// ---- what is wrong

constexpr char kCannotBeChanged[] = "the configuration can be read, but not changed";

// Servers answer, and none of them knows a leader: each lacks the others.
bool lacks_leader(const Json &status) {
    bool answers = false;
    for (const Json &server : status["servers"].elements()) {
        answers = answers || is_true(server, "answers");
        if (is_true(server, "has_leader")) {
            return false;
        }
    }
    return answers;
}

std::string no_majority(const Json &status) {
    std::string lists[2];
    for (const Json &server : status["servers"].elements()) {
        std::string &list = lists[is_true(server, "answers") ? 0 : 1];
        list += (list.empty() ? "" : ", ") + escaped(text_of(server, "endpoint"));
    }
    return std::string("no majority of the servers: ") + kCannotBeChanged +
           (lists[0].empty() ? "" : "; reached: " + lists[0]) +
           (lists[1].empty() ? "" : "; not reached: " + lists[1]) +
           "; start those that are down, or mend the network between them; see: etcdctl endpoint status "
           "--cluster";
}

class Troubles {
  public:
    explicit Troubles(const Json &status) {
        if (const Json &code = status["database_fault"]; code.is_natural() && code.natural() != 0) {
            char text[96];
            std::snprintf(text, sizeof text, "the database of this node cannot be read: aaactl err 0x%08x",
                          static_cast<unsigned>(code.natural()));
            lines_.emplace_back(text);
        }
        for (const Json &fault : status["settings_faults"].elements()) {
            lines_.push_back(escaped(fault.is_string() ? fault.text() : ""));
        }
        if (status["mark"]["importing"] == Json(true)) {
            lines_.emplace_back(
                "the import of this node's configuration has not ended: it can be read, but not changed; "
                "repeat "
                "the import: aaactl cluster join --import; or undo it: aaactl cluster leave");
        } else if (has_joined(status)) {
            add_of_agent(status);
        }
        if (is_true(status, "name_taken")) {
            lines_.push_back("another machine is the node " + escaped(text_of(status, "node")) +
                             " of this cluster; give this one another name: aaactl cluster join --node NAME");
        }
        add_of_servers(status);
    }
    const std::vector<std::string> &lines() const { return lines_; }

  private:
    void add_of_agent(const Json &status) {
        const std::string state = text_of(status, "state");
        if (state == "no agent") {
            lines_.emplace_back(
                "the agent does not run: the configuration can be read, but not changed; start it: systemctl "
                "start aaa-sysdb-agent");
        } else if (state == "no answer") {
            lines_.emplace_back(
                "the agent does not answer: the configuration can be read, but not changed; start it again: "
                "systemctl restart aaa-sysdb-agent");
        } else if (state == "not allowed") {
            lines_.emplace_back("only root and the group aaa may ask the agent");
        } else if (follows(status) ? !is_true(status, "majority") : lacks_leader(status)) {
            lines_.push_back(no_majority(status));
        } else if (!follows(status)) {
            lines_.push_back(text_of(status, "trouble").empty()
                                 ? "not following the cluster yet"
                                 : "not following the cluster: " + with_remedy(status, "trouble", "remedy"));
            lines_.emplace_back(kCannotBeChanged);
        }
    }
    void add_of_servers(const Json &status) {
        for (const Json &server : status["servers"].elements()) {
            if (!is_true(server, "answers")) {
                lines_.push_back(escaped(text_of(server, "endpoint")) +
                                 " does not answer: " + with_remedy(server, "fault", "remedy"));
            }
        }
    }

    std::vector<std::string> lines_;
};

// ---- tables

std::string state_of(const Json &server) {
    return std::string(is_true(server, "answers") ? "up" : "silent") +
           (is_true(server, "leader") ? ", leader" : "") + (is_true(server, "used") ? ", used" : "");
}

void print_servers(Output &out, const Json &status) {
    std::vector<std::vector<std::string>> rows;
    for (const Json &server : status["servers"].elements()) {
        const bool answers = is_true(server, "answers");
        rows.push_back({escaped(text_of(server, "endpoint")), state_of(server),
                        answers ? escaped(text_of(server, "version")) : "-",
                        answers ? std::to_string(number_of(server, "revision")) : "-"});
    }
    if (!rows.empty()) {
        out.table({"SERVER", "STATE", "VERSION", "REVISION"}, rows);
    }
}

std::string difference(uint64_t more, uint64_t less) {
    return std::to_string(more > less ? more - less : 0);
}

std::string age_of(const Json &node) {
    const auto now = static_cast<uint64_t>(std::time(nullptr));
    const uint64_t age = now - std::min(now, number_of(node, "time"));
    return std::to_string(age) + " s ago" + (age > kMostAge ? ", away" : "");
}

void print_nodes(Output &out, const Json &status) {
    const std::string own = text_of(status, "node");
    std::vector<std::vector<std::string>> rows;
    const auto add = [&](const Json &node, const std::string &name, const std::string &seen) {
        rows.push_back({name, std::to_string(number_of(node, "revision")),
                        difference(number_of(node, "cluster_revision"), number_of(node, "revision")),
                        std::to_string(number_of(node, "items")), seen});
    };
    if (agent_runs(status)) {
        add(status, escaped(own) + " (this one)", "now");
    }
    for (const Json &node : status["nodes"].elements()) {
        if (text_of(node, "node") != own || !agent_runs(status)) {
            add(node, escaped(text_of(node, "node")), age_of(node));
        }
    }
    if (!rows.empty()) {
        out.table({"NODE", "REVISION", "BEHIND", "ITEMS", "SEEN"}, rows);
    }
}

void print_last_trouble(Output &out, const Json &status) {
    const Json &last = status["last_trouble"];
    if (follows(status) && !text_of(last, "text").empty()) {
        out.line("last trouble, over now: " + date_and_time(number_of(last, "time")) + ": " +
                 with_remedy(last, "text", "remedy"));
    }
}

ExitCode status_exit(const Json &status, const Troubles &troubles) {
    if (has_joined(status) && !(follows(status) && is_true(status, "majority"))) {
        return ExitCode::unavailable;
    }
    return has_joined(status) && troubles.lines().empty() ? ExitCode::ok : ExitCode::negative;
}

ExitCode show(Output &out, const std::string &settings) {
    Json status = ask_agent(settings, "--status", settings);
    // A node that never joined has no settings.
    if (!has_joined(status) && access(settings.c_str(), F_OK) != 0) {
        status["settings_faults"] = Json::array();
    }
    std::vector<std::string> servers;
    for (const Json &server : status["servers"].elements()) {
        servers.push_back(text_of(server, "endpoint"));
    }
    note_servers_in_clear(out, servers);
    const Troubles troubles(status);
    status["joined"] = has_joined(status);
    out.result(shown(status), [&] {
        out.line(head_of(status));
        print_servers(out, status);
        print_nodes(out, status);
        for (const std::string &line : troubles.lines()) {
            out.line(out.styled(Style::bad, line));
        }
        if (troubles.lines().empty()) {
            print_last_trouble(out, status);
        }
    });
    return status_exit(status, troubles);
}

}  // namespace

void add_cluster_status(Command cluster) {
    auto settings = std::make_shared<std::string>(kAgentSettings);
    Command sub = cluster.command("status", "Show the cluster's servers and nodes, and what is wrong",
                                  [settings](Output &out) { return show(out, *settings); });
    add_settings_option(sub, *settings);
    sub.footer(
        "States of the agent: connecting, loading, following, no configuration (the cluster has none), "
        "cannot "
        "store\n"
        "(this node's database takes no changes), no agent, no answer, not allowed. Without the agent the "
        "servers are\n"
        "asked directly. BEHIND is 0 for a node that had the newest configuration when it was seen.\n"
        "Exit status: 0 following and all servers answer, 1 not joined, or something is wrong, 5 the "
        "configuration cannot\n"
        "be changed: the agent does not follow the cluster, or most servers do not answer.\n"
        "JSON: {joined, node, prefix, cluster, state, trouble, remedy, last_trouble: {text, time, remedy}, "
        "agent: {running, pid,\n"
        "since, version}, majority, revision, cluster_revision, items, changes: {made, refused, under_way}, "
        "servers:\n"
        "[{endpoint, used, answers, member, revision, version, leader, fault, remedy}], members: [{id, name, "
        "leader, urls}],\n"
        "nodes: [{node, revision, cluster_revision, items, time}], mark: {cluster, prefix, revision} or "
        "null, "
        "database_fault,\n"
        "settings_faults}\n"
        "Example: aaactl cluster status");
}

}  // namespace aaactl
