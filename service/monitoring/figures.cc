// SPDX-License-Identifier: Apache-2.0

#include "monitoring/figures.hpp"

#include <algorithm>
#include <string>

namespace service {

namespace {

constexpr const char *kAlarms[] = {"level", "full", "failed"};

double seconds(net::Time time) {
    return static_cast<double>(time) / static_cast<double>(net::kSecond);
}

void clear(metrics::Registry &registry, const char *name) {
    registry.remove(name, [](const metrics::Labels &) { return true; });
}

// What a client of either protocol has counted.
struct Counted {
    std::uint64_t repeats = 0;
    std::uint64_t dropped = 0;
    std::size_t in_flight = 0;
    net::Time round_trip = 0;
};

Counted counted(ServerClient &server, Use use) {
    Counted out;
    if (!server.fault().empty()) {
        return out;
    }
    if (server.server().protocol == Protocol::kRadius) {
        const radius::Client &client = server.radius(use);
        const radius::Counters &counters = client.counters();
        out.repeats = counters.retransmissions;
        out.round_trip = counters.round_trip;
        out.in_flight = client.under_way();
        out.dropped = counters.unexpected;
        for (const std::uint64_t count : counters.dropped) {
            out.dropped += count;
        }
    } else {
        const tacacs::Counters counters = server.tacacs().counters();
        out.repeats = counters.repeats;
        out.round_trip = counters.round_trip;
        out.in_flight = counters.in_flight + counters.waiting;
        out.dropped = counters.late;
        for (const std::uint64_t count : counters.faults) {
            out.dropped += count;
        }
    }
    return out;
}

// A server that is in several groups with other settings in each has one series: the sums, and
// the worst state.
void write_server(metrics::Registry &registry, ServerClient &server, Use use, bool is_up, bool is_first) {
    const metrics::Labels labels = {{"server", server.name()}, {"use", use_word(use)}};
    const Counted figures = counted(server, use);
    metrics::Gauge &up = registry.gauge(
        "aaad_server_up", "0 while a server is marked as silent, or cannot be used; otherwise 1", labels);
    up.set(is_up && server.fault().empty() && (is_first || up.value() != 0) ? 1 : 0);
    metrics::Gauge &in_flight =
        registry.gauge("aaad_server_in_flight", "Questions to a server that are not answered yet", labels);
    in_flight.set(in_flight.value() + static_cast<double>(figures.in_flight));
    registry
        .gauge("aaad_server_round_trip_seconds",
               "Smoothed time from a question to its answer; 0 before the first", labels)
        .set(seconds(figures.round_trip));
    registry.counter("aaad_server_repeats_total", "Questions that were sent to a server again", labels)
        .add(figures.repeats);
    registry
        .counter("aaad_server_dropped_total",
                 "Packets of a server that were no valid answer, or came too late", labels)
        .add(figures.dropped);
    const ServerFigures &asked = server.figures(use);
    for (const auto &[result, count] :
         {std::pair("answer", asked.probe_answers), std::pair("none", asked.probes - asked.probe_answers)}) {
        registry
            .counter("aaad_server_probes_total",
                     "Requests that ask a silent server only whether it answers, and what came of them",
                     {{"server", server.name()}, {"use", use_word(use)}, {"result", result}})
            .add(count);
    }
}

void write_destination(metrics::Registry &registry, const std::string &group,
                       const accounting::DestinationFigures &figures) {
    const metrics::Labels labels = {{"group", group}};
    const auto gauge = [&](const char *name, const char *help, double value) {
        registry.gauge(name, help, labels).set(value);
    };
    const auto counter = [&](const char *name, const char *help, std::uint64_t value) {
        registry.counter(name, help, labels).set(value);
    };
    gauge("aaad_journal_group_configured", "1 while a group with records has a usable server",
          figures.configured ? 1 : 0);
    gauge("aaad_journal_group_down", "1 while no server of a group takes records", figures.down ? 1 : 0);
    gauge("aaad_journal_group_queue", "Records that wait for a group", static_cast<double>(figures.waiting));
    gauge("aaad_journal_group_in_flight", "Records that are being sent to a group",
          static_cast<double>(figures.in_flight));
    counter("aaad_journal_group_delivered_total", "Records that a server of a group has taken",
            figures.delivered);
    counter("aaad_journal_group_unanswered_total", "Tries that no server of a group has answered",
            figures.unanswered);
    counter("aaad_journal_group_refused_total", "Records that can never be delivered to a group",
            figures.refused);
    counter("aaad_journal_group_dropped_total", "Records for a group that were given up", figures.dropped);
}

}  // namespace

const char *use_word(Use use) {
    return use == Use::kAccounting ? "accounting" : "login";
}

void write_servers(metrics::Registry &registry, Groups &groups, net::Time now) {
    for (const char *name :
         {"aaad_server_up", "aaad_server_in_flight", "aaad_server_round_trip_seconds",
          "aaad_server_repeats_total", "aaad_server_dropped_total", "aaad_server_probes_total"}) {
        clear(registry, name);
    }
    std::vector<std::string> seen;
    for (const ServerClientPtr &server : groups.clients().all()) {
        const bool is_first = std::find(seen.begin(), seen.end(), server->name()) == seen.end();
        seen.push_back(server->name());
        for (const Use use : {Use::kRights, Use::kAccounting}) {
            const bool is_up = groups.health().state(server->health(use), now) == ServerHealth::State::kAlive;
            write_server(registry, *server, use, is_up, is_first);
        }
    }
}

void write_journal(metrics::Registry &registry, const std::optional<accounting::Figures> &figures,
                   const Recorder::Counts &counts) {
    const accounting::Figures now = figures.value_or(accounting::Figures());
    const auto gauge = [&](const char *name, const char *help, double value) {
        registry.gauge(name, help).set(value);
    };
    const auto counter = [&](const char *name, const char *help, std::uint64_t value) {
        registry.counter(name, help).set(value);
    };
    gauge("aaad_journal_open", "1 while accounting records are kept on disk", figures ? 1 : 0);
    gauge("aaad_journal_bytes", "Bytes of accounting records on disk", static_cast<double>(now.bytes));
    gauge("aaad_journal_limit_bytes", "Bytes that they may take", static_cast<double>(now.most_bytes));
    gauge("aaad_journal_waiting", "Records that wait for the disk", static_cast<double>(now.waiting));
    gauge("aaad_sessions_open", "Accounting sessions that are open", static_cast<double>(now.open_sessions));
    counter("aaad_sessions_not_kept_total", "Sessions that get no interim and closing records: too many",
            now.sessions_not_kept);
    counter("aaad_journal_recorded_total", "Records that were put on disk", now.recorded);
    counter("aaad_journal_refused_total", "Records that could not be put on disk", now.refused);
    counter("aaad_sessions_interim_total", "Interim records that the service made itself", counts.interim);
    counter("aaad_sessions_closed_total", "Closing records that the service made itself", counts.closing);
    const bool raised[] = {now.level_alarm, now.full_alarm, now.failed_alarm};
    for (std::size_t i = 0; i < std::size(kAlarms); ++i) {
        const metrics::Labels labels = {{"alarm", kAlarms[i]}};
        registry.gauge("aaad_journal_alarm", "1 while an alarm lasts", labels).set(raised[i] ? 1 : 0);
        registry.counter("aaad_journal_alarms_total", "Alarms that were raised", labels)
            .set(counts.alarms[i]);
    }
    for (const char *name : {"aaad_journal_group_configured", "aaad_journal_group_down",
                             "aaad_journal_group_queue", "aaad_journal_group_in_flight",
                             "aaad_journal_group_delivered_total", "aaad_journal_group_unanswered_total",
                             "aaad_journal_group_refused_total", "aaad_journal_group_dropped_total"}) {
        clear(registry, name);
    }
    for (const auto &[group, destination] : now.destinations) {
        write_destination(registry, group, destination);
    }
}

}  // namespace service
