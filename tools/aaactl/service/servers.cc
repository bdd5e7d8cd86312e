// SPDX-License-Identifier: Apache-2.0
//
// status and servers: how the service is, and the servers that it asks.

#include <cstdio>
#include <memory>

#include "cli/commands.hpp"
#include "service/control_client.hpp"

namespace aaactl {
namespace {

std::string megabytes(const Json &figures, const char *name) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", static_cast<double>(number_of(figures, name)) / 1e6);
    return text;
}

void print_accounting(Output &out, const Json &figures) {
    if (figures["journal"] != Json(true)) {
        out.line("accounting records are not kept on disk" +
                 out.styled(Style::bad, ", and lost when no server takes them"));
        return;
    }
    const char *alarm = figures["failed"] == Json(true)        ? "; the disk fails: see the log of aaad"
                        : figures["full"] == Json(true)        ? "; full: records are refused or dropped"
                        : figures["nearly_full"] == Json(true) ? "; nearly full"
                                                               : "";
    out.line("accounting records on disk: " + megabytes(figures, "bytes") + " of " +
             megabytes(figures, "most_bytes") + " MB" + out.styled(Style::bad, alarm));
    for (const Json &group :
         figures.contains("groups") ? figures["groups"].elements() : std::vector<Json>()) {
        const std::string name = escaped(text_of(group, "group"));
        const auto waiting = number_of(group, "waiting");
        if (waiting == 0) {
            continue;
        }
        std::string why;
        if (group["configured"] != Json(true)) {
            why = "; the group is not configured; to give them up, stop aaad and say: aaad --drop-queue " +
                  name;
        } else if (group["answers"] != Json(true)) {
            why = "; no server answers";
        }
        out.line("  " + name + ": " + std::to_string(waiting) +
                 (waiting == 1 ? " record waits" : " records wait") + out.styled(Style::bad, why));
    }
}

ExitCode show_status(Output &out, const ControlOptions &options) {
    const Json status = ControlClient(options).ask("status");
    const Json &configuration = status["configuration"];
    out.result(shown(status), [&] {
        out.line(escaped(text_of(status, "program")) + ", process " +
                 std::to_string(number_of(status, "pid")) + ", since " +
                 date_and_time(number_of(status, "since")));
        out.line("listens at " + escaped(text_of(status, "socket")) +
                 ", clients: " + std::to_string(number_of(status, "clients")));
        out.line("configuration " + std::to_string(number_of(configuration, "revision")) +
                 ", lists: " + std::to_string(number_of(configuration, "lists")) +
                 (configuration["fallback"] == Json(true)
                      ? ", " + out.styled(Style::bad, "the fallback of aaad.conf; see: aaad --check")
                      : ""));
        for (const Json &alarm : status["alarms"].elements()) {
            out.line(out.styled(Style::bad, escaped(text_of(alarm, "alarm"))) + ", since " +
                     date_and_time(number_of(alarm, "since")) + ": " + escaped(text_of(alarm, "text")));
        }
        if (status.contains("accounting")) {
            print_accounting(out, status["accounting"]);
        }
    });
    return ExitCode::ok;
}

// Servers that were never asked have no state yet.
std::string state_of(const Json &server) {
    const std::string state = text_of(server, "state");
    return state == "up" && number_of(server, "asked") == 0 ? "not asked" : escaped(state);
}

class ServerTable {
  public:
    explicit ServerTable(const Json &groups) {
        for (const Json &group : groups.elements()) {
            const std::string name = text_of(group, "group");
            if (group["servers"].elements().empty()) {
                reasons_.push_back("the group " + escaped(name) + " has no usable server; see: aaad --check");
            }
            for (const Json &server : group["servers"].elements()) {
                add(name.empty() ? text_of(group, "protocol") : name, server);
            }
        }
    }
    bool all_up() const { return reasons_.empty(); }
    void print(Output &out) const {
        if (rows_.empty() && reasons_.empty()) {
            out.line("No server is configured.");
            return;
        }
        out.table({"GROUP", "SERVER", "USE", "STATE", "SINCE", "LAST", "AVERAGE", "ASKED", "TRIES",
                   "TIME-OUTS", "ERRORS", "PROBES", "IN FLIGHT", "QUEUED"},
                  rows_);
        for (const std::string &reason : reasons_) {
            out.line(reason);
        }
    }

  private:
    void add(const std::string &group, const Json &server) {
        const auto number = [&](const char *name) { return std::to_string(number_of(server, name)); };
        const std::string state = text_of(server, "state");
        const std::string name = escaped(text_of(server, "server"));
        rows_.push_back({escaped(group), name, escaped(text_of(server, "use")), state_of(server),
                         when(number_of(server, "since")), milliseconds(server, "last_us"),
                         milliseconds(server, "average_us"), number("asked"), number("tries"),
                         number("timeouts"),
                         std::to_string(number_of(server, "errors") + number_of(server, "unreachable") +
                                        number_of(server, "overloads")),
                         number("probes"), number("in_flight"), number("queued")});
        if (server["key_kept"] == Json(true)) {
            reasons_.push_back(name +
                               " is asked with the key that was opened before, because its key cannot be "
                               "opened now; see: aaactl status");
        }
        if (state != "up") {
            reasons_.push_back(name + " is " + escaped(state) + ": " + escaped(text_of(server, "why")) +
                               again(server, state));
        }
    }
    static std::string again(const Json &server, const std::string &state) {
        return state == "dead"
                   ? "; it is asked again in " + std::to_string(number_of(server, "asked_again_s")) + " s"
               : state == "failing" ? "; requests ask it all the same"
               : state == "due"     ? "; the next request asks it again"
               : state == "probing" ? "; it is being asked whether it is there again"
                                    : "";
    }

    std::vector<std::vector<std::string>> rows_;
    std::vector<std::string> reasons_;
};

ExitCode show_servers(Output &out, const ControlOptions &options) {
    const Json servers = ControlClient(options).ask("servers");
    const ServerTable table(servers["groups"]);
    out.result(shown(servers), [&] { table.print(out); });
    return table.all_up() ? ExitCode::ok : ExitCode::negative;
}

}  // namespace

void add_status(Command root) {
    auto options = std::make_shared<ControlOptions>();
    Command sub = root.command("status", "Show whether the service runs, and with which configuration",
                               [options](Output &out) { return show_status(out, *options); });
    add_control_options(sub, *options);
    sub.footer(
        "Alarms: database (it cannot be read), keys (those of servers cannot be opened), faults (of the "
        "database),\n"
        "files (of the configuration), lockout (a configuration that lets no one log in).\n"
        "Exit status: 0 it runs, also with alarms, 5 it does not.\n"
        "JSON: {program, pid, since, now, socket, clients, control_clients, events, configuration: "
        "{revision, fallback,\n"
        "lists, groups}, alarms: [{alarm, since, text}], accounting: {journal, bytes, most_bytes, recorded, "
        "refused, open_sessions, "
        "nearly_full, full,\n"
        "failed, groups: [{group, configured, answers, waiting, in_flight, delivered, unanswered, refused, "
        "dropped}]}}\n"
        "Example: aaactl status --json");
}

void add_servers(Command root) {
    auto options = std::make_shared<ControlOptions>();
    Command sub = root.command("servers", "Show the servers that the service asks, and whether they answer",
                               [options](Output &out) { return show_servers(out, *options); });
    add_control_options(sub, *options);
    sub.footer(
        "States: up, failing (the last request had no answer; it is asked all the same), dead (asked only "
        "when nothing\n"
        "else is left), due and probing (it is asked whether it is there again), unusable (its settings are "
        "wrong).\n"
        "LAST and AVERAGE are round trips of answers to first tries.\n"
        "Exit status: 0 all servers are up, 1 some are not, 5 no service.\n"
        "JSON: {groups: [{group, protocol, servers: [{server, use, transport, state, since, why, "
        "key_kept, asked_again_s, asked,\n"
        "tries, answers, timeouts, unreachable, errors, overloads, last_us, average_us, last_answer, "
        "in_flight, queued}]}]}\n"
        "Example: aaactl servers");
}

}  // namespace aaactl
