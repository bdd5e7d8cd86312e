// SPDX-License-Identifier: Apache-2.0

#include "main/daemon.hpp"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "aaa/result_codes.h"
#include "base/log.hpp"
#include "config/messages.hpp"
#include "main/accounting_figures.hpp"

namespace service {

namespace {

// Nothing under way has longer: see "longest-request".
constexpr net::Time kLastCall = 30 * net::kSecond;
// For which a socket that someone has removed keeps users from logging in.
constexpr net::Time kLook = 5 * net::kSecond;
constexpr net::Time kTryKeys = 60 * net::kSecond;

// Directories of the socket that a boot removes: as the packages make them.
void make_directory(const std::string &socket) {
    const std::string directory = socket.substr(0, socket.rfind('/'));
    if (!directory.empty() && mkdir(directory.c_str(), 0755) == 0) {
        log(Level::kInfo, "DIRECTORY", "made %s", directory.c_str());
    }
}

void raise_descriptor_limit() {
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
}

}  // namespace

Daemon::Daemon(const Options &options)
    : options_(options),
      groups_(loop_, trace_),
      recorder_(loop_, groups_),
      last_call_(loop_, [this] { loop_.stop(); }),
      next_look_(loop_, [this] { look_for_sockets(); }) {}

Daemon::~Daemon() {
    confirmation_.stop();
    if (keeper_ != nullptr) {
        keeper_->stop();  // it posts to the loop
    }
    control_.reset();
    monitor_.reset();
    listener_.reset();
    workers_.reset();
}

bool Daemon::watch_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&set, number);
    }
    signals_ = net::Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    signal_watch_ = net::Watch(loop_, signals_.get(), EPOLLIN, [this](std::uint32_t) { on_signal(); });
    return signals_ && signal_watch_.usable();
}

void Daemon::take(SnapshotPtr snapshot) {
    present_ = std::move(snapshot);
    capture_.use(present_);
    if (listener_ != nullptr) {  // otherwise it is the first
        groups_.use(*present_);
        recorder_.use(present_);
        monitor_->use(present_);
        listener_->use(present_);
    }
}

int Daemon::run() {
    raise_descriptor_limit();
    if (!loop_.usable() || !watch_signals()) {
        log(Level::kError, "NO_LOOP", "the service cannot start: %s", std::strerror(errno));
        return 1;
    }
    keeper_ = std::make_unique<Keeper>(
        KeeperOptions{options_.config, options_.socket, options_.force}, [this](SnapshotPtr snapshot) {
            loop_.post([this, snapshot = std::move(snapshot)]() mutable { take(std::move(snapshot)); });
        });
    if (!keeper_->start()) {
        log(Level::kError, "NOT_STARTED", "the service does not start; say \"aaad --check\" for all faults");
        return 1;
    }
    loop_.run_once(0);  // the first snapshot has been posted
    const SnapshotPtr first = present_;
    const Settings &settings = *first->settings;
    workers_ = std::make_unique<Workers>(loop_, settings.hash_threads);
    add_local_backends(backends_, loop_, *workers_);
    groups_.add_to(backends_);
    groups_.use(*first);
    recorder_.add_to(backends_);
    recorder_.use(first);
    recorder_.open();
    deciders_ = std::make_unique<Deciders>(
        Deciders{loop_, *workers_, backends_, lockout_, trace_, turns_,
                 [this](const Question &question, const Answer &answer, net::Time took) {
                     monitor_->answered(question, answer, took);
                 }});
    listener_ = std::make_unique<Listener>(*deciders_, capture_,
                                           [this](const Request &request, std::function<void(cerrno)> done) {
                                               configure(request, std::move(done));
                                           });
    listener_->use(first);
    monitor_ = std::make_unique<Monitor>(
        loop_, Sources{groups_, recorder_, lockout_, turns_, *workers_, *listener_, *keeper_});
    groups_.observe([this](const ServerClient &server, Use use, ServerResult::Kind kind, net::Time took) {
        monitor_->server_answered(server, use, kind, took);
    });
    make_directory(settings.socket);
    if (const std::string fault = listener_->open(settings.socket, settings.socket_mode); !fault.empty()) {
        log(Level::kError, "NO_SOCKET", "%s", fault.c_str());
        return 1;
    }
    monitor_->use(first);
    open_control();
    look_for_sockets();
    confirmation_.start();
    log(Level::kNotice, "READY", "listening at %s%s", settings.socket.c_str(),
        first->is_fallback ? ", with the fallback of aaad.conf" : "");
    notify_.ready();
    loop_.run();
    log(Level::kNotice, "ENDED", "the service has ended");
    return 0;
}

// Logins are answered without it, too.
void Daemon::open_control() {
    const Settings &settings = *present_->settings;
    const std::string path = settings.control_path();
    if (path.empty()) {
        return;
    }
    make_directory(path);
    control_ = std::make_unique<Control>(
        ControlSources{loop_, trace_, groups_, capture_, [this] { return present_; },
                       [this] { return listener_->clients(); }, AAA_VERSION, settings.socket,
                       static_cast<std::int64_t>(std::time(nullptr)), [this] { return keeper_->alarms(); }},
        trace_);
    control_->provide(ControlRequest::Kind::kSessions, [this](JsonWriter &out) {
        out.number("sessions", static_cast<std::int64_t>(groups_.sessions()));
    });
    control_->provide(ControlRequest::Kind::kAccounting,
                      [this](JsonWriter &out) { write_accounting(out, recorder_); });
    if (const std::string fault = control_->open(path); !fault.empty()) {
        log(Level::kError, "NO_CONTROL", "aaactl cannot show what the service does: %s", fault.c_str());
        control_.reset();
    }
}

// A program that cleans /run, or a mistake, can remove the sockets of a running service.
void Daemon::look_for_sockets() {
    if (stopping_) {
        return;
    }
    static kel_msg_limit_t limit = {60, {}};
    const Settings &settings = *present_->settings;
    next_look_.set(loop_.now() + kLook);
    if (const std::string path = listener_->path(); !listener_->can_be_found()) {
        make_directory(path);
        const std::string fault = listener_->open(path, settings.socket_mode);
        if (fault.empty()) {
            log(Level::kWarning, "SOCKET_GONE", "%s was removed and is there again", path.c_str());
        } else {
            log_limited(limit, Level::kError, "SOCKET_GONE",
                        "%s was removed, and no one can log in until it is there: %s", path.c_str(),
                        fault.c_str());
        }
    }
    if (loop_.now() >= next_keys_) {
        next_keys_ = loop_.now() + kTryKeys;
        keeper_->try_keys_again();
    }
    if (control_ != nullptr && !control_->can_be_found()) {
        control_.reset();
        open_control();
    }
}

void Daemon::on_signal() {
    signalfd_siginfo info{};
    while (read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo == SIGHUP) {
            reload();
        } else {
            stop();
        }
    }
}

void Daemon::reload() {
    if (stopping_) {
        return;
    }
    log(Level::kNotice, "RELOADING", "reading the configuration again");
    notify_.reloading();
    keeper_->reload([this] {
        loop_.post([this] {
            recorder_.open();
            look_for_sockets();
            log(Level::kNotice, "RELOADED", "the configuration has been read again");
            notify_.ready();
        });
    });
}

void Daemon::stop() {
    if (std::exchange(stopping_, true)) {
        loop_.stop();  // the second signal does not wait
        return;
    }
    log(Level::kNotice, "STOPPING", "answering what is under way, for %zu clients", listener_->clients());
    notify_.stopping();
    last_call_.set(loop_.now() + kLastCall);
    listener_->drain([this] { loop_.stop(); });
}

// The database is changed on the keeper's thread: writing waits for the disk.
void Daemon::configure(const Request &request, std::function<void(cerrno)> done) {
    const auto call = std::make_shared<std::function<void(cerrno)>>(std::move(done));
    const bool accepted =
        keeper_->change([type = request.head.type, list = request.list](
                            sysdb_conn_t config) { return apply_configuration(config, type, list.get()); },
                        [this, call](cerrno rc) { loop_.post([call, rc] { (*call)(rc); }); });
    if (!accepted) {
        loop_.post([call] { (*call)(AAA_ERR_NOT_CONNECTED); });
    }
}

}  // namespace service
