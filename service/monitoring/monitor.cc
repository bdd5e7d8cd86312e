// SPDX-License-Identifier: Apache-2.0

#include "monitoring/monitor.hpp"

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

#include "aaa/names.h"
#include "base/log.hpp"
#include "monitoring/figures.hpp"

namespace service {

namespace {

const std::vector<double> kSeconds = {0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                      0.25,   0.5,   1,      2.5,   5,    10,    30};

double seconds(net::Time time) {
    return static_cast<double>(time) / static_cast<double>(net::kSecond);
}

const char *result_word(std::uint32_t status) {
    switch (status) {
        case AAA_STAT_PASS:
            return "pass";
        case AAA_STAT_FAIL:
            return "refused";
        case AAA_STAT_ERROR:
            return "error";
        default:
            return "challenge";
    }
}

const char *kind_word(ServerResult::Kind kind) {
    switch (kind) {
        case ServerResult::Kind::kAnswer:
            return "answer";
        case ServerResult::Kind::kSilent:
            return "timeout";
        case ServerResult::Kind::kRefused:
            return "unreachable";
        case ServerResult::Kind::kBroken:
            return "error";
        case ServerResult::Kind::kOverload:
            return "overload";
    }
    return "error";
}

}  // namespace

Monitor::Monitor(net::Loop &loop, const Sources &sources) : loop_(loop), sources_(sources) {
    registry_.gauge("aaad_start_time_seconds", "When the service started, in seconds since 1970")
        .set(static_cast<double>(std::time(nullptr)));
    registry_.before_text([this] { take(); });
    // So that an alarm on a rate sees the first event too.
    for (const Function function :
         {Function::kAuthentication, Function::kAuthorization, Function::kAccounting}) {
        for (const char *result : {"pass", "refused", "error"}) {
            registry_.counter("aaad_requests_total", "Requests by what they were answered with",
                              {{"function", function_word(function)}, {"result", result}});
        }
    }
}

void Monitor::use(const SnapshotPtr &snapshot) {
    const bool is_first = std::exchange(snapshot_, snapshot) == nullptr;
    const MetricsSettings before = std::exchange(settings_, snapshot->settings->metrics);
    if (is_first || !(before == settings_)) {
        open_socket();
    }
    const auto is_gone = [this](const metrics::Labels &labels) {
        const std::vector<ServerClientPtr> &all = sources_.groups.clients().all();
        return std::none_of(all.begin(), all.end(), [&](const ServerClientPtr &server) {
            return server->name() == labels.front().second;
        });
    };
    registry_.remove("aaad_server_questions_total", is_gone);
    registry_.remove("aaad_server_answer_seconds", is_gone);
}

void Monitor::open_socket() {
    server_.reset();
    if (settings_.socket.empty()) {
        return;
    }
    std::string error;
    metrics::ServerSettings settings;
    settings.path = settings_.socket;
    settings.mode = settings_.mode;
    server_ = std::make_unique<metrics::Server>(loop_, registry_, settings);
    if (!server_->open(error)) {
        server_.reset();
        log(Level::kError, "NO_METRICS", "there are no figures for monitoring: %s; SIGHUP tries again",
            error.c_str());
        settings_ = MetricsSettings{"", 0};  // differs from those of the next snapshot
    }
}

void Monitor::answered(const Question &question, const Answer &answer, net::Time took) {
    const char *result = result_word(answer.status);
    registry_
        .counter("aaad_requests_total", "Requests by what they were answered with",
                 {{"function", function_word(question.function)}, {"result", result}})
        .add();
    if (question.function == Function::kAuthentication) {
        registry_
            .histogram("aaad_login_seconds", "Time from a login's request to its answer, for each round",
                       kSeconds, {{"result", result}})
            .observe(seconds(took));
    }
}

void Monitor::server_answered(const ServerClient &server, Use use, ServerResult::Kind kind, net::Time took) {
    if (!sources_.groups.clients().has_health(server.health(use))) {
        return;  // it went with an earlier configuration
    }
    const metrics::Labels labels = {{"server", server.name()}, {"use", use_word(use)}};
    metrics::Labels with_result = labels;
    with_result.emplace_back("result", kind_word(kind));
    registry_
        .counter("aaad_server_questions_total", "Questions to a server by what came of them", with_result)
        .add();
    if (kind == ServerResult::Kind::kAnswer) {
        registry_
            .histogram("aaad_server_answer_seconds", "Time from a question to its answer, with all tries",
                       kSeconds, labels)
            .observe(seconds(took));
    }
}

void Monitor::take() {
    const net::Time now = net::Loop::clock();
    const auto gauge = [&](const char *name, const char *help, double value) {
        registry_.gauge(name, help).set(value);
    };
    const auto counter = [&](const char *name, const char *help, std::uint64_t value) {
        registry_.counter(name, help).set(value);
    };
    gauge("aaad_clients", "Clients that are connected", static_cast<double>(sources_.listener.clients()));
    gauge("aaad_hash_queue", "Passwords that wait for a thread that hashes them",
          static_cast<double>(sources_.workers.waiting()));
    counter("aaad_hash_refused_total", "Passwords that were not checked because too many waited",
            sources_.workers.refused());
    counter("aaad_lockouts_total", "Lock-outs after failed logins", sources_.lockout.begun());
    gauge("aaad_lockouts", "Users and addresses that are locked out now",
          static_cast<double>(sources_.lockout.locked(now)));
    gauge("aaad_logins_waiting", "Logins that wait for others of their user or source",
          static_cast<double>(sources_.turns.waiting()));
    counter("aaad_logins_delayed_total", "Logins that had to wait for others of their user or source",
            sources_.turns.delayed());
    const net::Time read_at = sources_.keeper.read_at();
    gauge("aaad_configuration_age_seconds",
          "Time since the configuration was read from the database; -1: never",
          read_at != 0 ? seconds(std::max<net::Time>(now - read_at, 0)) : -1);
    gauge("aaad_configuration_fallback", "1 while the fallback of aaad.conf is used",
          snapshot_ != nullptr && snapshot_->is_fallback ? 1 : 0);
    gauge("aaad_configuration_alarms",
          "What is wrong with the configuration now, as \"aaactl status\" shows it",
          static_cast<double>(sources_.keeper.alarms().size()));
    counter("aaad_configuration_failed_reads_total",
            "Times that the database or a file of the configuration could not be used",
            sources_.keeper.failed_reads());
    write_servers(registry_, sources_.groups, now);
    write_journal(registry_, sources_.recorder.figures(), sources_.recorder.counts());
}

}  // namespace service
