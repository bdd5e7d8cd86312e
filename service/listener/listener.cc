// SPDX-License-Identifier: Apache-2.0

#include "listener/listener.hpp"

#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include "aaa/result_codes.h"
#include "base/log.hpp"
#include "platform/cerr.h"

namespace service {

namespace {

constexpr net::Time kRetry = 100 * net::kMillisecond;  // when the system has no descriptors left
constexpr std::size_t kOwnDescriptors = 64;            // kept for files, servers and the database
constexpr int kAcceptedInARound = 32;

kel_msg_limit_t limit_of_lines = {1, {}};
kel_msg_limit_t limit_of_places = {1, {}};

Transport make_transport() {
    aaa_transport_t *made = nullptr;
    aaa_transport_create(&made);
    return Transport(made);
}

// Numbers of two runs of the service differ, so that its log lines can be told apart.
std::uint64_t first_login() {
    std::uint32_t random = 0;
    if (getrandom(&random, sizeof random, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof random)) {
        random = static_cast<std::uint32_t>(time(nullptr)) << 16;
    }
    return std::uint64_t{random} + 1;
}

std::size_t descriptors() {
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur == RLIM_INFINITY) {
        return 65536;
    }
    return files.rlim_cur > 2 * kOwnDescriptors ? files.rlim_cur - kOwnDescriptors : kOwnDescriptors;
}

}  // namespace

Listener::Listener(const Deciders &deciders, Capture &capture, Configure configure)
    : deciders_(deciders),
      capture_(capture),
      configure_(std::move(configure)),
      user_names_(deciders.loop, deciders.workers),
      buffer_(std::make_unique<aaa_transport_msg_t>()),
      next_login_(first_login()),
      retry_(deciders.loop, [this] {
          if (socket_ != nullptr) {
              watch_.want(EPOLLIN);
          }
      }) {}

Listener::~Listener() {
    watch_.reset();
}

std::string Listener::open(const std::string &path, std::uint32_t mode) {
    watch_.reset();
    socket_.reset();  // and its lock
    path_ = path;
    socket_ = make_transport();
    if (socket_ == nullptr) {
        return "no memory";
    }
    // The lock file next to the socket must not be writable for others: whoever could lock it
    // could keep the service from starting.
    const mode_t before = umask(0177);
    const cerrno rc = aaa_transport_listen(socket_.get(), path.c_str());
    umask(before);
    if (rc != AAA_OK) {
        const int error = aaa_transport_errno(socket_.get());
        socket_.reset();
        return path + ": " +
               (error == EADDRINUSE ? "another service listens there, or the path is not a socket; "
                                      "end the other one, or use --socket PATH"
                : error == ENOENT
                    ? "its directory does not exist; make it: systemd-tmpfiles --create aaa.conf, "
                      "or mkdir where the socket is at another place"
                : error != 0 ? std::strerror(error)
                             : cerr_strerror(rc));
    }
    if (chmod(path.c_str(), mode) != 0) {
        return path + ": " + std::strerror(errno);
    }
    watch_ = net::Watch(deciders_.loop, aaa_transport_descriptor(socket_.get()), EPOLLIN,
                        [this](std::uint32_t) { accept_clients(); });
    struct stat made {};
    if (lstat(path.c_str(), &made) == 0) {
        device_ = made.st_dev;
        inode_ = made.st_ino;
    }
    return watch_.usable() ? "" : std::strerror(errno);
}

bool Listener::can_be_found() const {
    struct stat found {};
    return lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_;
}

void Listener::use(SnapshotPtr snapshot) {
    snapshot_ = std::move(snapshot);
    deciders_.trace.names().use(
        [current = snapshot_](const std::string &name) { return current->may_show(name); });
}

void Listener::accept_clients() {
    for (int i = 0; i < kAcceptedInARound && accept_one(); ++i) {
    }
}

void Listener::pause() {
    watch_.want(0);
    retry_.set(deciders_.loop.now() + kRetry);
}

// Some places are for root: other users could fill the rest.
bool Listener::has_room(const Peer &peer) const {
    const Settings &settings = *snapshot_->settings;
    const std::size_t most = std::min<std::size_t>(settings.clients_max, descriptors());
    if (peer.uid == 0) {
        return connections_.size() < most;
    }
    const auto own = by_user_.find(peer.uid);
    return connections_.size() < most - most / 4 &&
           (own == by_user_.end() || own->second < settings.clients_per_user);
}

// Every user can start programs that are root's clients, such as su, and leave them at their
// prompts. They must not keep out the logins of others.
bool Listener::make_room(const Peer &peer) {
    if (peer.uid != 0) {
        return false;
    }
    Connection *oldest = nullptr;
    const auto rank = [](const Connection &connection) {
        return std::pair(connection.has_login(), connection.idle_since());
    };
    for (const auto &[key, connection] : connections_) {
        if (key->peer().uid == 0 && (oldest == nullptr || rank(*key) < rank(*oldest)) && key->is_idle()) {
            oldest = key;
        }
    }
    if (oldest == nullptr) {
        // One that waits for others is answered in a moment, so this is one client too many until then.
        if (!deciders_.turns.cut_longest()) {
            return false;
        }
        log_limited(limit_of_places, Level::kWarning, "FULL",
                    "all places for clients are taken: the last login of the longest queue "
                    "makes room");
        return true;
    }
    log_limited(limit_of_places, Level::kWarning, "FULL",
                "all places for clients are taken: client %d of user %u, which asks nothing, makes room",
                oldest->peer().pid, oldest->peer().uid);
    remove(oldest);
    return has_room(peer);
}

bool Listener::accept_one() {
    Transport client = make_transport();
    const cerrno rc = client != nullptr ? aaa_transport_accept(socket_.get(), client.get(), AAA_TRANSPORT_NOW)
                                        : AAA_ERR_NOMEM;
    if (rc == AAA_ERR_TIMEOUT) {
        return false;
    }
    if (rc != AAA_OK) {
        const int error = aaa_transport_errno(socket_.get());
        log_limited(limit_of_lines, Level::kError, "NO_CLIENT", "a client cannot be accepted: %s",
                    error != 0 ? std::strerror(error) : cerr_strerror(rc));
        pause();  // the socket stays readable: do not spin
        return false;
    }
    Peer peer;
    if (!read_peer(aaa_transport_descriptor(client.get()), peer)) {
        return true;
    }
    if (!has_room(peer) && !make_room(peer)) {
        log_limited(
            limit_of_lines, Level::kWarning, "TOO_MANY_CLIENTS",
            "client %d of user %u is turned away: see \"clients\" and \"clients-per-user\" in aaad.conf",
            peer.pid, peer.uid);
        return true;
    }
    ++by_user_[peer.uid];
    auto connection = std::make_unique<Connection>(static_cast<ConnectionHost &>(*this), std::move(client),
                                                   std::move(peer));
    Connection *key = connection.get();
    const bool usable = connection->usable();
    connections_.emplace(key, std::move(connection));
    if (!usable) {
        remove(key);
    }
    return true;
}

void Listener::remove(Connection *connection) {
    const auto found = connections_.find(connection);
    if (found == connections_.end()) {
        return;
    }
    if (--by_user_[connection->peer().uid] == 0) {
        by_user_.erase(connection->peer().uid);
    }
    const auto gone = std::move(found->second);
    connections_.erase(found);
    if (drained_ != nullptr && connections_.empty()) {
        deciders_.loop.post(drained_);
    }
}

// Where there are too many, leaving must not make a try free.
bool Listener::keep(std::unique_ptr<Decision> decision) {
    Decision *const key = decision.get();
    const auto over = [this, key] {
        without_client_.remove_if([key](const auto &kept) { return kept.get() == key; });
    };
    if (without_client_.size() >= snapshot_->settings->clients_max) {
        key->count_as_refused();
        return false;
    }
    if (!key->goes_on_without_client(over)) {
        return false;
    }
    without_client_.push_back(std::move(decision));
    return true;
}

void Listener::drain(std::function<void()> done) {
    retry_.cancel();
    watch_.reset();
    if (socket_ != nullptr) {
        unlink(path_.c_str());
        socket_.reset();
    }
    drained_ = std::move(done);
    std::vector<Connection *> idle;
    for (const auto &[key, connection] : connections_) {
        if (!connection->is_working()) {
            idle.push_back(key);
        }
    }
    if (connections_.empty()) {
        deciders_.loop.post(drained_);
    }
    for (Connection *connection : idle) {
        remove(connection);
    }
}

}  // namespace service
