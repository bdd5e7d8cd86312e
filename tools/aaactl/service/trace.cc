// SPDX-License-Identifier: Apache-2.0
//
// trace: what the service does with requests, step by step.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "cli/commands.hpp"
#include "cli/end_signals.hpp"
#include "service/control_client.hpp"
#include "service/steps.hpp"

namespace aaactl {
namespace {

struct TraceOptions : ControlOptions {
    std::string user, id, since;
    bool all = false;
    bool no_wait = false;
    bool follow = false;
};

// "90", "90s", "15m", "2h", "1d".
uint64_t seconds_of(const std::string &text) {
    constexpr std::pair<char, uint64_t> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto unit = std::find_if(std::begin(kUnits), std::end(kUnits), [&](const auto &each) {
        return digits + 1 == text.size() && each.first == text.back();
    });
    if (digits == 0 || digits > 6 || (digits != text.size() && unit == std::end(kUnits))) {
        throw Failure(ExitCode::usage,
                      "--since: \"" + escaped(text) + "\" is not a time such as 90, 90s, 15m, 2h or 1d");
    }
    return std::stoull(text) * (unit != std::end(kUnits) ? unit->second : 1);
}

Json request_of(const TraceOptions &options) {
    Json request{{"version", 1}, {"request", "trace"}};
    if (!options.user.empty()) {
        request["user"] = options.user;
    }
    if (!options.id.empty()) {
        request["id"] = options.id;
    }
    if (!options.since.empty()) {
        request["seconds"] = seconds_of(options.since);
    } else if (options.all || options.no_wait) {
        request["after"] = 0u;
    }
    if (options.no_wait) {
        request["live"] = false;
    }
    return request;
}

class Tracer {
  public:
    Tracer(Output &out, const TraceOptions &options) : out_(out), options_(options), printer_(out) {}

    ExitCode run() {
        request_ = request_of(options_);
        auto client = std::make_unique<ControlClient>(options_);
        const EndSignals signals;
        for (;;) {
            const End end = show(*client, signals.fd());
            if (end != End::service) {
                break;
            }
            if (!options_.follow) {
                print_kept();
                throw Failure(ExitCode::unavailable,
                              escaped(options_.socket) +
                                  ": the service has ended; to go on when it runs again: --follow");
            }
            out_.note("the service has ended; waiting for it to run again");
            client = connect_again(signals.fd());
            if (client == nullptr) {
                break;
            }
            out_.note("the service runs again");
        }
        print_kept();
        if (options_.no_wait && last_ == 0) {
            say_nothing_is_remembered();
        }
        return ExitCode::ok;
    }

  private:
    enum class End { done, user, service };

    void go_on(ControlClient &client);
    End show(ControlClient &client, int signals);
    bool take(const Json &event);
    void print_kept();
    void say_nothing_is_remembered() const;
    std::unique_ptr<ControlClient> connect_again(int signals) const;

    Output &out_;
    const TraceOptions &options_;
    StepPrinter printer_;
    Json request_;
    uint64_t instance_ = 0;
    uint64_t since_ = 0;
    uint64_t last_ = 0;  // number of an event
    std::vector<Json> kept_;
};

// False when there will be no other event.
bool Tracer::take(const Json &event) {
    const std::string kind = text_of(event, "event");
    if (kind == "end") {
        return false;
    }
    if (kind == "step") {
        last_ = number_of(event, "number");
        if (options_.no_wait && !out_.json()) {
            kept_.push_back(event);
            return true;
        }
    }
    out_.event(shown(event), [&] {
        if (kind == "step") {
            printer_.print(event);
        } else if (kind == "lost") {
            out_.line(out_.styled(Style::warning, std::to_string(number_of(event, "count")) +
                                                      " events of all users are not shown: they came faster "
                                                      "than this program reads"));
        }
    });
    return true;
}

// All steps of a login together, where nothing is waited for.
void Tracer::print_kept() {
    std::vector<std::string> ids;
    for (const Json &event : kept_) {
        if (std::string id = text_of(event, "id"); std::find(ids.begin(), ids.end(), id) == ids.end()) {
            ids.push_back(std::move(id));
        }
    }
    for (const std::string &id : ids) {
        for (const Json &event : kept_) {
            if (text_of(event, "id") == id) {
                printer_.print(event);
            }
        }
    }
    kept_.clear();
}

void Tracer::say_nothing_is_remembered() const {
    out_.note("the service remembers no such step; it runs since " + date_and_time(since_) +
              ", and keeps about 4000 steps of all requests");
}

// Where the last connection ended; all that is kept, when the service has begun again.
void Tracer::go_on(ControlClient &client) {
    const Json status = client.ask("status");
    since_ = number_of(status, "since");
    const uint64_t instance = since_ << 22 | number_of(status, "pid");
    if (instance_ != 0) {
        request_.erase("seconds");
        request_["after"] = instance == instance_ ? last_ : 0;
    }
    instance_ = instance;
}

Tracer::End Tracer::show(ControlClient &client, int signals) {
    go_on(client);
    client.send(request_);
    client.reply("trace");
    for (;;) {
        while (const auto event = client.next_event()) {
            if (!take(*event)) {
                return End::done;
            }
            if (out_.is_lost()) {
                return End::user;
            }
        }
        pollfd ready[] = {{client.fd(), POLLIN, 0}, {signals, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        if (poll(ready, 3, -1) < 0) {
            if (errno != EINTR) {
                throw Failure(ExitCode::failed, std::string("waiting failed: ") + std::strerror(errno));
            }
            continue;
        }
        if (ready[1].revents != 0 || (ready[2].revents & POLLERR) != 0) {
            return End::user;  // the one who reads has gone, too
        }
        if (ready[0].revents != 0 && !client.read_some()) {
            const auto rest = client.next_event();
            if (!rest) {
                return End::service;
            }
            if (!take(*rest)) {
                return End::done;
            }
        }
    }
}

// Null when the user has had enough.
std::unique_ptr<ControlClient> Tracer::connect_again(int signals) const {
    for (;;) {
        pollfd ready{signals, POLLIN, 0};
        constexpr int kPause = 500;
        if (poll(&ready, 1, kPause) > 0) {
            return nullptr;
        }
        try {
            return std::make_unique<ControlClient>(options_);
        } catch (const Failure &failure) {
            if (failure.code() != ExitCode::unavailable) {
                throw;
            }
        }
    }
}

}  // namespace

void add_trace(Command root) {
    auto options = std::make_shared<TraceOptions>();
    Command sub =
        root.command("trace", "Show each step of requests as the service works on them, until Control-C",
                     [options](Output &out) { return Tracer(out, *options).run(); });
    sub.option("USER", options->user, "Only requests of this user");
    sub.option("--id", options->id, "Only the login with this id, as log lines have it").type("ID");
    Argument since = sub.option("--since", options->since,
                                "First what the service remembers of this time: 90, 90s, 15m, 2h, 1d")
                         .type("TIME");
    sub.flag("--all", options->all, "First all that the service remembers").excludes(since);
    sub.flag("--no-wait", options->no_wait, "End after what the service remembers (without --since: all)");
    sub.flag("--follow", options->follow, "Go on when the service is started again");
    add_control_options(sub, *options);
    sub.footer(
        "A line has the time, the id of the login, the step and what came of it. The service remembers about "
        "4000 steps.\n"
        "JSON, one document a line: {event: step|lost, number, time in microseconds since 1970, id, step: "
        "request|list|\n"
        "method|server|reply|outcome|answer, user, function, subject, outcome, detail, text, next, us, "
        "tries; "
        "of a request\n"
        "service, list, remote, terminal, command, client_pid, client_uid}\n"
        "Example: aaactl trace alice --since 15m");
}

}  // namespace aaactl
