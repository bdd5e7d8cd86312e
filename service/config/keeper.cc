// SPDX-License-Identifier: Apache-2.0
//
// The thread of the configuration. It blocks on the host's event manager, which connects to
// the database and connects again when it is lost.

#include "config/keeper.hpp"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/log.hpp"
#include "platform/cerr.h"

namespace service {

namespace {

constexpr char kConfigRoot[] = "/cfg/gl/aaa/";
constexpr char kMapsRoot[] = "/oper/aaa/gl/group-server/";

// The keeper's thread gets no signals: they are the loop's.
template <typename Work>
std::thread thread_without_signals(Work work) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(std::move(work));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

void log_warnings(const FilesRead &files) {
    for (const std::string &warning : files.warnings) {
        log(Level::kWarning, "CONFIGURATION", "%s", warning.c_str());
    }
}

}  // namespace

Keeper::Keeper(KeeperOptions options, Apply apply) : options_(std::move(options)), apply_(std::move(apply)) {}

Keeper::~Keeper() {
    stop();
}

bool Keeper::start() {
    FilesRead files = read_files(options_, accounts_);
    take_faults(files.faults, reported_files_);
    log_warnings(files);
    if (files.settings == nullptr) {
        return false;
    }
    settings_ = files.settings;
    users_ = files.users;
    host_names_ = files.host_names;
    events_ = event_manager_create(0, "aaad configuration", 0, nullptr);
    wake_ = events_ != nullptr ? event_async_attach(events_, 128, nullptr, nullptr) : -1;
    if (wake_ < 0 || !connect_database()) {
        log(Level::kError, "NO_EVENTS", "the event manager cannot be used: %s", std::strerror(errno));
        return false;
    }
    // The first read is made here: the service does not say that it is ready before it knows
    // its configuration, or that there is none.
    if (event_conn_open(database_event_) != 0) {
        make_snapshot();
    }
    watch_users();
    thread_ = thread_without_signals([this] { run(); });
    return true;
}

void Keeper::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    if (thread_.joinable()) {
        event_send_async(events_, wake_, 0);
        thread_.join();
    }
    if (events_ != nullptr) {
        event_manager_destroy(events_);
        events_ = nullptr;
    }
    watch_.reset();
    config_.close();
    maps_.close();
}

void Keeper::run() {
    alignas(8) unsigned char buffer[256];
    event_block_ctx_t context{};
    context.evm = events_;
    context.buffer = buffer;
    context.size = sizeof buffer;
    for (;;) {
        if (event_block(&context) == 0) {
            qm_event_dispatch(&context, 0);
        } else if (errno != EINTR) {
            log(Level::kError, "NO_EVENTS", "changes of the configuration are no longer noticed: %s",
                std::strerror(errno));
            return;
        }
        {
            const std::lock_guard lock(mutex_);
            if (stopping_) {
                return;
            }
        }
        handle_jobs();
        if (std::exchange(users_changed_, false)) {
            read_users_again();
        }
        if (std::exchange(changed_, false)) {
            make_snapshot();
        }
        if (connected_ && config_.get() == 0) {
            reconnect();
        }
    }
}

void Keeper::handle_jobs() {
    std::vector<std::function<void()>> jobs;
    {
        const std::lock_guard lock(mutex_);
        jobs.swap(jobs_);
    }
    for (const auto &job : jobs) {
        job();
    }
}

bool Keeper::post(std::function<void()> job) {
    const std::lock_guard lock(mutex_);
    if (stopping_ || !thread_.joinable()) {
        return false;
    }
    jobs_.push_back(std::move(job));
    return event_send_async(events_, wake_, 0) == 0;
}

void Keeper::reload(std::function<void()> done) {
    post([this, done = std::move(done)] { read_everything(done); });
}

bool Keeper::change(std::function<cerrno(sysdb_conn_t)> change, std::function<void(cerrno)> done) {
    return post([this, change = std::move(change), done = std::move(done)] {
        const cerrno rc = change(config_.get());
        if (rc == 0) {
            make_snapshot();  // not when the database tells of the change: whoever made it may rely on it
        }
        done(rc);
    });
}

// ---- the database

bool Keeper::connect_database() {
    const auto up = [](void *, void *self) { return static_cast<Keeper *>(self)->bring_up(); };
    const auto down = [](void *, void *self) {
        static_cast<Keeper *>(self)->bring_down();
        return int32_t{0};
    };
    return event_conn_create(&database_event_, events_, up, this, EVENT_CONN_TYPE_SYSDB) == 0 &&
           event_conn_notify(database_event_, EVENT_CONN_NOTIFY_DOWN, down) == 0;
}

int32_t Keeper::bring_up() {
    config_.close();
    std::uint64_t notification = 0;
    int32_t channel = -1;
    cerrno rc = config_.open(kConfigRoot);
    if (rc == 0) {
        rc = _sysdb_register_notification(
            config_.get(), "", SYSDB_EVENT_SET | SYSDB_EVENT_DELETE, SYSDB_NOTIFY_CHANGES,
            [](const void *, void *self, void *) {
                static_cast<Keeper *>(self)->changed_ = true;
                return 0;
            },
            this, 0, nullptr, 0, &notification);
    }
    if (rc == 0) {
        rc = sysdb_conn_to_coid(config_.get(), &channel);
    }
    if (rc == 0 && maps_.get() == 0 && maps_.open(kMapsRoot) != 0) {
        maps_.close();  // numbers of groups are not published, and logins go on
    }
    if (rc == 0) {
        make_snapshot();
        connected_ = config_.get() != 0;
        return connected_ ? channel : -1;
    }
    config_.close();
    lose_database(std::string("the system database cannot be used (") + cerr_strerror(rc) + ")");
    return -1;
}

void Keeper::lose_database(const std::string &why) {
    ++failed_reads_;
    const std::string text =
        why + ": " +
        (current_ != nullptr && !current_->is_fallback ? "the last configuration goes on"
                                                       : "the fallback of aaad.conf applies") +
        ", and it is tried again";
    if (!std::exchange(database_lost_, true)) {
        log(Level::kError, "NO_DATABASE", "%s", text.c_str());
    }
    alarms_.set("database", text +
                                "; changes have no effect until it can be read; to see what the service "
                                "may not read, say as root: runuser -u aaad -- aaad --check");
}

void Keeper::bring_down() {
    connected_ = false;
    config_.close();
    maps_.close();
}

// Fills the lists of a snapshot from the database. False when it cannot be read.
bool Keeper::read_lists(Snapshot &snapshot) {
    if (config_.get() == 0) {
        return false;
    }
    std::vector<std::string> faults;
    if (maps_.get() != 0) {
        publish_groups(config_.get(), maps_.get(), faults);
    }
    ReadResult result = read_database(config_.get(), maps_.get(), keys_, snapshot);
    if (result.failure != 0) {
        lose_database(result.failed_path + " cannot be read (" + cerr_strerror(result.failure) + ")");
        config_.close();  // run() connects again
        return false;
    }
    if (std::exchange(database_lost_, false)) {
        log(Level::kNotice, "DATABASE", "the system database can be read again");
    }
    read_at_ = net::Loop::clock();
    std::move(result.faults.begin(), result.faults.end(), std::back_inserter(faults));
    take_faults(faults, reported_database_);
    result.faults = std::move(faults);
    raise_alarms(snapshot, result);
    return true;
}

// Of a database that has been read.
void Keeper::raise_alarms(const Snapshot &snapshot, const ReadResult &result) {
    alarms_.set("database", "");
    keys_fail_ = !snapshot.kept_keys.empty() || !result.locked.empty();
    std::string keys;
    if (!snapshot.kept_keys.empty()) {
        keys = "the keys of " + std::to_string(snapshot.kept_keys.size()) +
               " server(s) cannot be opened now: these go on with the keys that were opened before, and are "
               "not asked any more when the service is started again";
    }
    if (!result.locked.empty()) {
        keys += (keys.empty() ? "" : "; ") + std::string("the key of ") + result.locked.front() +
                (result.locked.size() > 1
                     ? ", and of " + std::to_string(result.locked.size() - 1) + " other server(s),"
                     : "") +
                " cannot be opened: not asked, the next method decides";
    }
    alarms_.set("keys",
                keys.empty() ? "" : keys + "; they are tried again each minute; " + kMasterKeysAdvice);
    alarms_.set("faults", result.faults.empty()
                              ? ""
                              : result.faults.front() +
                                    (result.faults.size() > 1
                                         ? "; and " + std::to_string(result.faults.size() - 1) +
                                               " other fault(s), see: runuser -u aaad -- aaad --check"
                                         : ""));
}

// A connection whose database could not be read is opened again, by a new record of the event
// manager, which tries at growing intervals.
void Keeper::reconnect() {
    connected_ = false;
    maps_.close();
    event_conn_close(std::exchange(database_event_, nullptr));
    if (connect_database()) {
        event_conn_open(database_event_);
    }
}

// What goes on when the present state cannot be used: the lists that were in force, or the
// fallback.
void Keeper::go_on_with_last(Snapshot &snapshot) const {
    if (current_ != nullptr && !current_->is_fallback) {
        snapshot.lists = current_->lists;
        snapshot.groups = current_->groups;
        snapshot.kept_keys = current_->kept_keys;
    } else {
        snapshot.groups.clear();
        use_fallback(snapshot);
    }
}

// Puts the last usable state in place of one that lets no one in, unless that is wanted.
void Keeper::refuse_lockout(Snapshot &snapshot) {
    const std::string lockout = locks_everybody_out(snapshot);
    if (lockout.empty() || options_.force || settings_->force_configuration) {
        reported_refusal_.clear();
        alarms_.set("lockout", "");
        return;
    }
    const bool has_last = current_ != nullptr && !current_->is_fallback;
    const std::string text = "a configuration that lets no one log in is not used: " + lockout + "; " +
                             (has_last ? "the one before goes on" : "the fallback of aaad.conf applies") +
                             "; to use it all the same, set \"force-configuration yes\" in " +
                             options_.settings_path;
    if (std::exchange(reported_refusal_, lockout) != lockout) {
        log(Level::kError, "LOCKOUT_REFUSED", "%s", text.c_str());
    }
    alarms_.set("lockout", text);
    if (has_last) {
        snapshot.users = current_->users;
    }
    go_on_with_last(snapshot);
}

void Keeper::make_snapshot() {
    auto made = std::make_shared<Snapshot>();
    made->settings = settings_;
    made->users = users_;
    made->host_names = host_names_;
    if (!read_lists(*made)) {
        go_on_with_last(*made);
    }
    refuse_lockout(*made);
    made->number = ++made_;
    current_ = made;
    log(Level::kDebug, "CONFIGURATION", "configuration %llu: %zu lists, %zu users%s",
        static_cast<unsigned long long>(made->number), made->configured_lists(),
        made->users != nullptr ? made->users->users.size() : 0, made->is_fallback ? ", fallback" : "");
    apply_(made);
}

// ---- files

void Keeper::take_faults(const std::vector<std::string> &faults, std::vector<std::string> &reported) {
    for (const std::string &fault : faults) {
        if (std::find(reported.begin(), reported.end(), fault) == reported.end()) {
            log(Level::kError, "CONFIGURATION", "%s", fault.c_str());
        }
    }
    reported = faults;
    if (&reported == &reported_files_) {
        alarms_.set("files", faults.empty()
                                 ? ""
                                 : faults.front() +
                                       (faults.size() > 1
                                            ? "; and " + std::to_string(faults.size() - 1) + " other fault(s)"
                                            : "") +
                                       "; what was read before, if anything, goes on; correct it, and then: "
                                       "systemctl reload aaad");
    }
}

void Keeper::try_keys_again() {
    if (keys_fail_) {
        post([this] { make_snapshot(); });
    }
}

void Keeper::read_everything(const std::function<void()> &done) {
    reported_files_.clear();  // whoever asks for it wants to see them again
    reported_database_.clear();
    reported_refusal_.clear();
    FilesRead files = read_files(options_, accounts_);
    take_faults(files.faults, reported_files_);
    failed_reads_ += files.faults.empty() ? 0 : 1;
    log_warnings(files);
    if (files.settings == nullptr) {
        log(Level::kError, "CONFIGURATION", "%s is not used: the settings before go on",
            options_.settings_path.c_str());
    } else {
        if (files.settings->socket != settings_->socket) {
            log(Level::kWarning, "CONFIGURATION",
                "the socket is moved when the service is started the next time");
        }
        settings_ = files.settings;
        host_names_ = files.host_names;
        if (files.users != nullptr && files.faults.empty()) {
            users_ = files.users;
        } else if (users_ != nullptr) {
            log(Level::kError, "USERS", "%s is not used: the users before go on", settings_->users.c_str());
        }
        watch_users();
    }
    make_snapshot();
    done();
}

void Keeper::read_users_again() {
    FilesRead files = read_files(options_, accounts_);
    take_faults(files.faults, reported_files_);
    if (files.settings == nullptr || files.settings->users != settings_->users) {
        return;  // settings are taken over when the service is told to
    }
    if (files.users == nullptr || !files.faults.empty()) {
        log(Level::kError, "USERS", "%s is not used: the users before go on", settings_->users.c_str());
        return;
    }
    users_ = files.users;
    host_names_ = files.host_names;
    log(Level::kInfo, "USERS", "%s: %zu users", settings_->users.c_str(), users_->users.size());
    make_snapshot();
}

}  // namespace service
