// SPDX-License-Identifier: Apache-2.0
//
// aaa-sysdb-agent: keeps the configuration of this node's database equal to that of a cluster.

#include <getopt.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "aaa/result_codes.h"
#include "agent/changes.hpp"
#include "agent/commands.hpp"
#include "agent/listener.hpp"
#include "agent/settings.hpp"
#include "agent/status.hpp"
#include "host.hpp"
#include "main/notify.hpp"
#include "mirror_mark.hpp"
#include "platform/logging.h"

namespace sysdb_etcd {
namespace {

constexpr char kUsage[] =
    "usage: aaa-sysdb-agent [--foreground] [--config FILE] [--if-joined | MODE]\n"
    "\n"
    "Keeps the configuration of this node's system database equal to that of an etcd cluster.\n"
    "\n"
    "  --foreground   write log lines to standard error\n"
    "  --config FILE  settings, default /etc/aaa/agent.conf\n"
    "  --if-joined    end with success on a node that aaactl cluster join was not run on;\n"
    "                 without it the agent refuses to start there, with status 1\n"
    "\n"
    "With one of these it does that, and ends; aaactl cluster uses them:\n"
    "  --check        say what is wrong with the settings\n"
    "  --probe        say whether this node can join the cluster, as JSON\n"
    "  --status       say how the agent and the cluster are, as JSON\n"
    "  --claim-name   have the node's name in the cluster, unless another machine has it\n"
    "  --take-name    have it all the same\n"
    "  --release-name let other machines have it\n"
    "  --import       make this node's configuration that of a cluster which has none\n"
    "  --adopt        have this node's configuration replaced by the cluster's when the agent runs\n"
    "  --leave        while no agent runs: make the configuration this node's own again\n";

enum class Mode {
    kRun,
    kCheck,
    kProbe,
    kStatus,
    kClaimName,
    kTakeName,
    kReleaseName,
    kImport,
    kAdopt,
    kLeave
};

struct Options {
    std::string config = "/etc/aaa/agent.conf";
    bool foreground = false;
    bool if_joined = false;
    Mode mode = Mode::kRun;
};

enum : int { kForeground = 1000, kConfig, kIfJoined, kHelp, kVersion, kModes };

constexpr int option_of(Mode mode) {
    return kModes + static_cast<int>(mode);
}

constexpr option kOptions[] = {{"foreground", no_argument, nullptr, kForeground},
                               {"config", required_argument, nullptr, kConfig},
                               {"if-joined", no_argument, nullptr, kIfJoined},
                               {"check", no_argument, nullptr, option_of(Mode::kCheck)},
                               {"probe", no_argument, nullptr, option_of(Mode::kProbe)},
                               {"status", no_argument, nullptr, option_of(Mode::kStatus)},
                               {"claim-name", no_argument, nullptr, option_of(Mode::kClaimName)},
                               {"take-name", no_argument, nullptr, option_of(Mode::kTakeName)},
                               {"release-name", no_argument, nullptr, option_of(Mode::kReleaseName)},
                               {"import", no_argument, nullptr, option_of(Mode::kImport)},
                               {"adopt", no_argument, nullptr, option_of(Mode::kAdopt)},
                               {"leave", no_argument, nullptr, option_of(Mode::kLeave)},
                               {"help", no_argument, nullptr, kHelp},
                               {"version", no_argument, nullptr, kVersion},
                               {nullptr, 0, nullptr, 0}};

std::optional<Options> read_options(int argc, char **argv, int &status) {
    Options options;
    unsigned modes = 0;
    for (int option; (option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (option) {
            case kForeground:
                options.foreground = true;
                break;
            case kConfig:
                options.config = optarg;
                break;
            case kIfJoined:
                options.if_joined = true;
                break;
            case kHelp:
                std::fputs(kUsage, stdout);
                status = 0;
                return std::nullopt;
            case kVersion:
                std::puts("aaa-sysdb-agent " AAA_VERSION);
                status = 0;
                return std::nullopt;
            default:
                if (option >= kModes) {
                    options.mode = static_cast<Mode>(option - kModes);
                    ++modes;
                    break;
                }
                std::fputs(kUsage, stderr);
                status = 2;
                return std::nullopt;
        }
    }
    if (optind < argc || modes > 1) {
        std::fprintf(stderr, "aaa-sysdb-agent: %s\n%s",
                     optind < argc ? "it takes options only" : "it does one of these at a time", kUsage);
        status = 2;
        return std::nullopt;
    }
    return options;
}

void log_line(std::uint32_t severity, const char *mnemonic, const char *text) {
    kel_msg_rec_t record{};
    record.format = "%s";
    record.facility = "AAA";
    record.category = "CLUSTER";
    record.mnemonic = mnemonic;
    record.severity = severity << 16;
    kel_errmsg(&record, severity, text);
}

constexpr sysdb_host_t kHost = {SYSDB_PROVIDER_ABI, sizeof(sysdb_host_t), log_line, nullptr};

void raise_descriptor_limit() {
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
}

class Agent {
  public:
    Agent(Settings settings, std::string machine)
        : names_(settings.prefix, settings.node),
          client_(loop_, std::move(settings.address)),
          mirror_(loop_, client_, names_),
          changes_(loop_, client_, mirror_, names_),
          status_(loop_, client_, mirror_, changes_, names_, std::move(machine)),
          listener_(loop_, [this](Request request, const Listener::Reply &reply) {
              handle(std::move(request), reply);
          }) {}

    int run() {
        if (!loop_.usable() || !watch_signals()) {
            sysdb_lmdb::log(sysdb_lmdb::kLogError, "the agent cannot start: %s", std::strerror(errno));
            return 1;
        }
        if (const std::string fault = listener_.open(); !fault.empty()) {
            sysdb_lmdb::log(sysdb_lmdb::kLogError, "the agent cannot start: %s", fault.c_str());
            return 1;
        }
        mirror_.on_left([this] {
            sysdb_lmdb::log(sysdb_lmdb::kLogWarning, "this node has left the cluster; the agent ends");
            loop_.stop();
        });
        mirror_.on_state([this] { report_state(); });
        mirror_.start();
        status_.start();
        notify_.ready();
        loop_.run();
        notify_.stopping();
        return 0;
    }

  private:
    bool watch_signals() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGTERM);
        sigaddset(&set, SIGINT);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        signals_ = net::Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
        signal_watch_ = net::Watch(loop_, signals_.get(), EPOLLIN, [this](std::uint32_t) { loop_.stop(); });
        return signals_ && signal_watch_.usable();
    }

    void report_state() {
        status_.take_note();
        if (mirror_.state() == Mirror::State::kFollowing) {
            sysdb_lmdb::log(sysdb_lmdb::kLogInfo, "following %s from revision %llu",
                            client_.endpoint_name().c_str(),
                            static_cast<unsigned long long>(mirror_.revision()));
        } else if (!mirror_.trouble().empty()) {
            sysdb_lmdb::log(sysdb_lmdb::kLogWarning, "not following the cluster: %s",
                            mirror_.trouble().c_str());
        }
    }

    void handle(Request request, const Listener::Reply &reply) {
        if (request.ask == Ask::kStatus) {
            status_.tell([reply](std::string text) { reply({0, 0, std::move(text)}); });
            return;
        }
        std::uint32_t at = 0;
        if (const cerrno rc = check_changes(request.changes, at); rc != 0) {
            reply({rc, at, {}});
            return;
        }
        constexpr std::uint64_t kNever = INT64_MAX / net::kMillisecond;
        const net::Time until =
            static_cast<net::Time>(std::min(request.until_ms, kNever)) * net::kMillisecond;
        changes_.make(std::move(request.changes), until, [reply](cerrno rc, std::uint32_t failed) {
            reply({rc, failed, {}});
        });
    }

    net::Loop loop_;
    const Names names_;
    Client client_;
    Mirror mirror_;
    Changes changes_;
    Status status_;
    Listener listener_;
    net::Descriptor signals_;
    net::Watch signal_watch_;
    const service::Notify notify_;
};

// A configuration that no one has given up must not be replaced because an agent was started, by its unit or
// by hand. The exit status; nothing on a node that has joined.
std::optional<int> refusal(const Options &options, Joined &joined) {
    if (const cerrno rc = read_joined(joined); rc != 0) {
        sysdb_lmdb::log(sysdb_lmdb::kLogError,
                        "the agent cannot start: the database of this node cannot be read: aaactl err 0x%08x",
                        rc);
        return 1;
    }
    if (joined.importing) {
        sysdb_lmdb::log(
            sysdb_lmdb::kLogError,
            "the import of this node's configuration has not ended; repeat it: aaactl cluster join "
            "--import; or undo it: aaactl cluster leave");
        return options.if_joined ? 0 : 1;
    }
    if (joined.joined) {
        return std::nullopt;
    }
    if (options.if_joined) {
        sysdb_lmdb::log(sysdb_lmdb::kLogWarning,
                        "this node has not joined a cluster; run: aaactl cluster join URL");
        return 0;
    }
    sysdb_lmdb::log(sysdb_lmdb::kLogError,
                    "this node has not joined a cluster, and the agent would replace its configuration; run: "
                    "aaactl cluster join URL");
    return 1;
}

int run(const Options &options) {
    sysdb_lmdb::set_host(&kHost);
    sysdb_lmdb::become_the_mirrors_writer();
    if (options.mode == Mode::kLeave) {
        return leave();
    }
    Joined joined;
    if (options.mode == Mode::kRun) {
        if (const auto status = refusal(options, joined)) {
            return *status;
        }
    }
    std::vector<std::string> faults;
    Settings settings = read_settings(options.config, faults);
    if (const std::string fault = prefix_fault(joined, settings); faults.empty() && !fault.empty()) {
        faults.push_back(fault);
    }
    if (options.mode == Mode::kStatus) {
        return print_status(std::move(settings), faults);
    }
    for (const std::string &fault : faults) {
        if (options.mode != Mode::kRun) {
            std::fprintf(stderr, "%s\n", fault.c_str());
        } else {
            sysdb_lmdb::log(sysdb_lmdb::kLogError, "%s", fault.c_str());
        }
    }
    if (!faults.empty()) {
        return 1;
    }
    switch (options.mode) {
        case Mode::kCheck:
            return 0;
        case Mode::kProbe:
            return probe(std::move(settings));
        case Mode::kClaimName:
            return name_node(settings, NodeName::Step::kClaim);
        case Mode::kTakeName:
            return name_node(settings, NodeName::Step::kTake);
        case Mode::kReleaseName:
            return name_node(settings, NodeName::Step::kRelease);
        case Mode::kImport:
            return import_configuration(std::move(settings));
        case Mode::kAdopt:
            return adopt(settings);
        default: {
            std::string machine;
            sysdb_lmdb::have_identity(machine);  // a full database works as before
            raise_descriptor_limit();
            return Agent(std::move(settings), std::move(machine)).run();
        }
    }
}

}  // namespace
}  // namespace sysdb_etcd

int main(int argc, char **argv) {
    int status = 0;
    const auto options = sysdb_etcd::read_options(argc, argv, status);
    if (!options) {
        return status;
    }
    if (options->mode == sysdb_etcd::Mode::kStatus || options->mode == sysdb_etcd::Mode::kProbe) {
        setenv("AAA_LOG", "none", 0);  // the document says it
    } else if (options->foreground || options->mode != sysdb_etcd::Mode::kRun) {
        setenv("AAA_LOG", "stderr", 0);
    }
    signal(SIGPIPE, SIG_IGN);
    umask(0077);
    return sysdb_etcd::run(*options);
}
