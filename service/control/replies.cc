// SPDX-License-Identifier: Apache-2.0

#include "control/replies.hpp"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <utility>

namespace service {

namespace {

JsonWriter reply(const char *word) {
    JsonWriter out;
    out.begin().number("version", kControlVersion).text("reply", word);
    return out;
}

std::int64_t wall_seconds() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

// Microseconds since 1970 of a time of the loop's clock.
std::int64_t wall_of(net::Time at) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000 -
           (net::Loop::clock() - at) / net::kMicrosecond;
}

struct ServerState {
    const char *word = "up";
    std::int64_t left_s = -1;  // of a dead one: until it is asked again
};

// A wrong key of TACACS+ or a dead time of 0 leaves a server that answers no one unmarked.
ServerState state_of(const ServerClient &client, const ServerFigures &figures, const ServerHealth::Mark *mark,
                     net::Time now) {
    if (!client.fault().empty()) {
        return {"unusable"};
    }
    if (mark == nullptr) {
        return {figures.failure.empty() ? "up" : "failing"};
    }
    if (mark->until <= now) {
        return {"due", 0};
    }
    return {mark->is_probed ? "probing" : "dead", (mark->until - now + net::kSecond - 1) / net::kSecond};
}

void write_figures(JsonWriter &out, const ServerFigures &figures) {
    const auto count = [&](const char *name, std::uint64_t number) {
        out.number(name, static_cast<std::int64_t>(number));
    };
    count("asked", figures.asked);
    count("tries", figures.tries);
    count("answers", figures.answers);
    count("timeouts", figures.silent);
    count("unreachable", figures.unreachable);
    count("errors", figures.errors);
    count("overloads", figures.overloads);
    count("probes", figures.probes);
    count("probe_answers", figures.probe_answers);
    if (figures.round_trip > 0) {
        out.number("last_us", figures.last_round_trip / net::kMicrosecond);
        out.number("average_us", figures.round_trip / net::kMicrosecond);
    }
    if (figures.last_answer > 0) {
        out.number("last_answer", wall_of(figures.last_answer));
    }
}

void write_server(JsonWriter &out, const ControlSources &sources, const Group &group, const Server &server,
                  Use use) {
    const ServerClient *client = sources.groups.clients().present(server);
    if (client == nullptr || (use == Use::kAccounting && !client->has_two_ports())) {
        return;
    }
    const ServerFigures &figures = client->figures(use);
    const ServerState state =
        state_of(*client, figures, sources.groups.health().mark(client->health(use)), sources.loop.now());
    const ServerClient::Load load = client->load(use);
    out.begin();
    out.text("server", client->name());
    out.text("use", !client->has_two_ports()  ? "all"
                    : use == Use::kAccounting ? "accounting"
                                              : "authentication");
    out.text("transport", server.transport);
    out.text("state", state.word);
    out.number("since", wall_of(figures.since));
    const std::string &why = !client->fault().empty() ? client->fault()
                             : !figures.why.empty()   ? figures.why
                                                      : figures.failure;
    if (!why.empty()) {
        out.text("why", why);
    }
    if (sources.snapshot()->kept_keys.contains(key_place(group, server))) {
        out.truth("key_kept", true);
    }
    if (state.left_s >= 0) {
        out.number("asked_again_s", state.left_s);
    }
    write_figures(out, figures);
    out.number("in_flight", static_cast<std::int64_t>(load.in_flight));
    out.number("queued", static_cast<std::int64_t>(load.waiting));
    out.end();
}

// A member that is left out when it is empty.
void text_if_any(JsonWriter &out, const char *name, std::string_view value) {
    if (!value.empty()) {
        out.text(name, value);
    }
}

void write_request(JsonWriter &out, const TraceRequest &request) {
    text_if_any(out, "service", request.service);
    text_if_any(out, "list", request.list);
    text_if_any(out, "remote", request.remote);
    text_if_any(out, "terminal", request.terminal);
    text_if_any(out, "command", request.command);
    out.number("client_pid", request.client_pid);
    out.number("client_uid", request.client_uid);
}

}  // namespace

std::string status_line(const ControlSources &sources, std::size_t control_clients) {
    const SnapshotPtr snapshot = sources.snapshot();
    JsonWriter out = reply("status");
    out.text("program", "aaad " + sources.version);
    out.number("pid", getpid());
    out.number("since", sources.since_s);
    out.number("now", wall_seconds());
    out.text("socket", sources.socket);
    out.number("clients", static_cast<std::int64_t>(sources.clients()));
    out.number("control_clients", static_cast<std::int64_t>(control_clients));
    out.number("events", static_cast<std::int64_t>(sources.trace.next() - 1));
    out.begin("configuration");
    out.number("revision", static_cast<std::int64_t>(snapshot->number));
    out.truth("fallback", snapshot->is_fallback);
    out.number("lists", static_cast<std::int64_t>(snapshot->configured_lists()));
    out.number("groups", static_cast<std::int64_t>(snapshot->configured_groups()));
    out.end();
    out.begin_array("alarms");
    for (const Alarm &alarm : sources.alarms ? sources.alarms() : std::vector<Alarm>()) {
        out.begin().text("alarm", alarm.word).number("since", alarm.since_s).text("text", alarm.text).end();
    }
    out.end_array();
    if (const auto found = sources.figures.find(ControlRequest::Kind::kAccounting);
        found != sources.figures.end()) {
        out.begin("accounting");
        found->second(out);
        out.end();
    }
    return out.end().line();
}

std::string servers_line(const ControlSources &sources) {
    const SnapshotPtr snapshot = sources.snapshot();
    JsonWriter out = reply("servers");
    out.begin_array("groups");
    for (const auto &group : snapshot->groups) {
        if (group->name.empty() && group->servers.empty()) {
            continue;  // a protocol that is not used
        }
        out.begin();
        out.text("group", group->name);
        out.text("protocol", protocol_word(group->protocol));
        out.begin_array("servers");
        for (const Server &server : group->servers) {
            write_server(out, sources, *group, server, Use::kRights);
            write_server(out, sources, *group, server, Use::kAccounting);
        }
        out.end_array().end();
    }
    return out.end_array().end().line();
}

std::string figures_line(const ControlSources &sources, ControlRequest::Kind kind) {
    JsonWriter out = reply(request_word(kind));
    const auto found = sources.figures.find(kind);
    out.truth("available", found != sources.figures.end());
    if (found != sources.figures.end()) {
        found->second(out);
    }
    return out.end().line();
}

std::string capture_line(const CaptureOptions &options) {
    return reply("capture")
        .number("pid", getpid())
        .truth("secrets", options.secrets)
        .truth("servers", options.servers)
        .truth("keys", options.keys)
        .end()
        .line();
}

std::string trace_line(const ControlSources &sources) {
    JsonWriter out = reply("trace");
    out.number("pid", getpid());
    out.number("since", sources.since_s);
    out.number("oldest", static_cast<std::int64_t>(sources.trace.oldest()));
    out.number("next", static_cast<std::int64_t>(sources.trace.next()));
    return out.end().line();
}

std::string event_line(const TraceEvent &event, std::string_view user) {
    JsonWriter out;
    out.begin().text("event", "step");
    out.number("number", static_cast<std::int64_t>(event.number));
    out.number("time", event.wall / 1000);
    out.text("id", id_text(event.id));
    out.text("step", step_name(event.step));
    out.text("user", user);
    text_if_any(out, "function", event.function);
    text_if_any(out, "subject", event.subject);
    text_if_any(out, "outcome", event.outcome);
    text_if_any(out, "detail", event.detail);
    text_if_any(out, "text", event.text);
    text_if_any(out, "next", event.next);
    if (event.duration >= 0) {
        out.number("us", event.duration / net::kMicrosecond);
    }
    if (event.tries > 0) {
        out.number("tries", event.tries);
    }
    if (event.request != nullptr) {
        write_request(out, *event.request);
    }
    return out.end().line();
}

std::string lost_line(std::uint64_t count) {
    return JsonWriter()
        .begin()
        .text("event", "lost")
        .number("count", static_cast<std::int64_t>(count))
        .end()
        .line();
}

std::string end_line() {
    return JsonWriter().begin().text("event", "end").end().line();
}

std::string error_line(std::string_view code, std::string_view text) {
    return JsonWriter()
        .begin()
        .number("version", kControlVersion)
        .text("error", text)
        .text("code", code)
        .end()
        .line();
}

}  // namespace service
