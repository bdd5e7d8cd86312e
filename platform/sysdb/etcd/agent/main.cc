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
#include "agent/import.hpp"
#include "agent/listener.hpp"
#include "agent/settings.hpp"
#include "agent/status.hpp"
#include "host.hpp"
#include "main/notify.hpp"
#include "platform/logging.h"

namespace sysdb_etcd {
namespace {

constexpr char kUsage[] =
    "usage: aaa-sysdb-agent [--foreground] [--config FILE] [--check | --import | --leave]\n"
    "\n"
    "Keeps the configuration of this node's system database equal to that of an etcd cluster.\n"
    "\n"
    "  --foreground   write log lines to standard error\n"
    "  --config FILE  settings, default /etc/aaa/agent.conf\n"
    "  --check        say what is wrong with the settings, and end\n"
    "  --import       make this node's configuration that of a cluster which has none, and end\n"
    "  --leave        while no agent runs: make the configuration this node's own again, and end\n";

struct Options {
    std::string config = "/etc/aaa/agent.conf";
    bool foreground = false;
    bool check = false;
    bool import = false;
    bool leave = false;
};

enum : int { kForeground = 1000, kConfig, kCheck, kImport, kLeave, kHelp, kVersion };

constexpr option kOptions[] = {
    {"foreground", no_argument, nullptr, kForeground}, {"config", required_argument, nullptr, kConfig},
    {"check", no_argument, nullptr, kCheck},           {"import", no_argument, nullptr, kImport},
    {"leave", no_argument, nullptr, kLeave},           {"help", no_argument, nullptr, kHelp},
    {"version", no_argument, nullptr, kVersion},       {nullptr, 0, nullptr, 0}};

std::optional<Options> read_options(int argc, char **argv, int &status) {
    Options options;
    for (int option; (option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (option) {
            case kForeground:
                options.foreground = true;
                break;
            case kConfig:
                options.config = optarg;
                break;
            case kCheck:
                options.check = true;
                break;
            case kImport:
                options.import = true;
                break;
            case kLeave:
                options.leave = true;
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
                std::fputs(kUsage, stderr);
                status = 2;
                return std::nullopt;
        }
    }
    if (optind < argc || options.check + options.import + options.leave > 1) {
        std::fprintf(
            stderr, "aaa-sysdb-agent: %s\n%s",
            optind < argc ? "it takes options only" : "--check, --import and --leave are one at a time",
            kUsage);
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

// The provider has checked it, but a client need not be the provider.
bool path_fits(const ItemChange &change) {
    const bool directory = change.path.ends_with('/');
    if (!database_key(change.path)) {
        return false;
    }
    switch (change.operation) {
        case SYSDB_CHANGE_PRUNE:
        case kDeleteTree:
            return directory;
        case SYSDB_CHANGE_DELETE:
            return change.path != "/cfg/";
        case SYSDB_CHANGE_EXPECT:
            if (directory && change.datatype == SYSDB_TYPE_ANY) {
                return true;  // nothing is in the directory
            }
            [[fallthrough]];
        default:
            return directory == (change.datatype == SYSDB_TYPE_DIRECTORY) && change.path != "/cfg/";
    }
}

class Agent {
  public:
    explicit Agent(Settings settings)
        : names_(settings.prefix, settings.node),
          client_(loop_, std::move(settings.address)),
          mirror_(loop_, client_, names_),
          changes_(loop_, client_, mirror_, names_),
          status_(loop_, client_, mirror_, changes_, names_),
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
        for (std::size_t i = 0; i < request.changes.size(); ++i) {
            const ItemChange &change = request.changes[i];
            if (!path_fits(change)) {
                reply({SYSDB_ERR_BAD_PATH, static_cast<std::uint32_t>(i), {}});
                return;
            }
            if (change.value.size() > sysdb_lmdb::kMaxValue) {
                reply({SYSDB_ERR_VALUE_TOO_LARGE, static_cast<std::uint32_t>(i), {}});
                return;
            }
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

int run_import(Settings settings) {
    constexpr net::Time kPatience = 10 * net::kSecond;
    net::Loop loop;
    const Names names(settings.prefix, settings.node);
    Client client(loop, std::move(settings.address));
    Import import(loop, client, names);
    int status = 1;
    import.start(net::Loop::clock() + kPatience, [&](const std::string &fault) {
        if (fault.empty()) {
            std::printf("the cluster has the %zu items of this node\n", import.items());
    status = 0;
}
else {
    std::fprintf(stderr, "aaa-sysdb-agent: %s\n", fault.c_str());
}
loop.stop();
}  // namespace
);
loop.run();
return status;
}  // namespace sysdb_etcd

int leave() {
    std::optional<sysdb_lmdb::MirrorMark> mark;
    cerrno rc = sysdb_lmdb::read_mirror_mark(mark);
    if (rc == 0 && mark) {
        rc = sysdb_lmdb::remove_mirror_mark();
    }
    if (rc != 0) {
        std::fprintf(stderr,
                     "aaa-sysdb-agent: the database of this node cannot be changed: aaactl err %08x\n", rc);
        return 1;
    }
    std::puts(mark ? "the configuration is this node's own"
                   : "the configuration was this node's own already");
    return 0;
}

int run(const Options &options) {
    sysdb_lmdb::set_host(&kHost);
    sysdb_lmdb::become_the_mirrors_writer();
    if (options.leave) {
        return leave();
    }
    std::vector<std::string> faults;
    Settings settings = read_settings(options.config, faults);
    for (const std::string &fault : faults) {
        if (options.check || options.import) {
            std::fprintf(stderr, "%s\n", fault.c_str());
        } else {
            sysdb_lmdb::log(sysdb_lmdb::kLogError, "%s", fault.c_str());
        }
    }
    if (!faults.empty() || options.check) {
        return faults.empty() ? 0 : 1;
    }
    if (options.import) {
        return run_import(std::move(settings));
    }
    raise_descriptor_limit();
    return Agent(std::move(settings)).run();
}

}  // namespace
}  // namespace sysdb_etcd

int main(int argc, char **argv) {
    int status = 0;
    const auto options = sysdb_etcd::read_options(argc, argv, status);
    if (!options) {
        return status;
    }
    if (options->foreground || options->check || options->import || options->leave) {
        setenv("AAA_LOG", "stderr", 0);
    }
    signal(SIGPIPE, SIG_IGN);
    umask(0077);
    return sysdb_etcd::run(*options);
}
