// SPDX-License-Identifier: Apache-2.0

#include "control/control.hpp"

#include <grp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "base/log.hpp"

namespace service {

namespace {

constexpr int kBacklog = 32;
constexpr int kAcceptedInARound = 32;
constexpr std::size_t kMostClients = 32;
constexpr std::size_t kForOthers = 24;  // the rest is for root
constexpr std::size_t kPerUser = 12;
constexpr net::Time kRetry = 100 * net::kMillisecond;
constexpr mode_t kMode = 0660;

kel_msg_limit_t refusal_limit = {1, {}};

net::Descriptor stream_socket() {
    return net::Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Whether a process listens at an address. One whose queue is full does.
bool is_in_use(const sockaddr_un &address) {
    const net::Descriptor probe = stream_socket();
    return !probe ||
           connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ||
           errno != ECONNREFUSED;
}

std::optional<gid_t> aaa_group() {
    const group *found = getgrnam("aaa");
    return found != nullptr ? std::optional(found->gr_gid) : std::nullopt;
}

}  // namespace

Control::Control(ControlSources sources, Trace &trace)
    : sources_(std::move(sources)),
      trace_(trace),
      host_{sources_, [this] { return connections_.size(); },
            [this](ControlConnection *connection) { remove(connection); }},
      retry_(sources_.loop, [this] { watch_.want(EPOLLIN); }) {
    follower_ = trace_.follow([this](const TraceEvent &) { show_soon(); });
    sources_.capture.on_frames([this] { show_soon(); });
}

Control::~Control() {
    trace_.unfollow(follower_);
    sources_.capture.on_frames({});
    show_events();  // the last ones, as far as they can be sent at once
    for (ControlConnection *connection : present()) {
        connection->end_capture();
    }
    if (socket_ && can_be_found()) {
        unlink(path_.c_str());
    }
}

bool Control::can_be_found() const {
    struct stat status;
    return lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

void Control::provide(ControlRequest::Kind kind, ControlFigures figures) {
    sources_.figures[kind] = std::move(figures);
}

std::string Control::open(const std::string &path) {
    path_ = path;
    group_ = aaa_group();
    socket_ = stream_socket();
    if (!socket_) {
        return std::strerror(errno);
    }
    if (std::string fault = bind_socket(); !fault.empty()) {
        socket_.reset();
        return fault;
    }
    struct stat status;
    if (lstat(path.c_str(), &status) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
    give_to_group();
    watch_ = net::Watch(sources_.loop, socket_.get(), EPOLLIN, [this](std::uint32_t) { accept_clients(); });
    return listen(socket_.get(), kBacklog) == 0 && watch_.usable() ? "" : path + ": " + std::strerror(errno);
}

std::string Control::bind_socket() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) {
        return path_ + ": the path of a socket has at most " + std::to_string(sizeof address.sun_path - 1) +
               " bytes; set control-socket in aaad.conf";
    }
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto *name = reinterpret_cast<const sockaddr *>(&address);
    // The file gets the mode of the socket, less the mask, and so never has a wider one.
    fchmod(socket_.get(), kMode);
    const mode_t before = umask(0);
    int rc = bind(socket_.get(), name, sizeof address);
    struct stat status;
    if (rc != 0 && errno == EADDRINUSE && lstat(path_.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            umask(before);
            return path_ + ": it is not a socket; move it away, or set control-socket in aaad.conf";
        }
        if (is_in_use(address)) {
            umask(before);
            return path_ + ": another process listens there; end it, or set control-socket in aaad.conf";
        }
        rc = unlink(path_.c_str()) == 0 ? bind(socket_.get(), name, sizeof address) : -1;
    }
    umask(before);
    return rc == 0 ? "" : path_ + ": " + std::strerror(errno);
}

// Only root can, or a service whose user is a member; otherwise root and the service's own
// user can connect.
void Control::give_to_group() const {
    if (group_ && lchown(path_.c_str(), static_cast<uid_t>(-1), *group_) != 0) {
        log(Level::kInfo, "CONTROL_GROUP", "%s does not belong to the group aaa: %s", path_.c_str(),
            std::strerror(errno));
    }
}

void Control::accept_clients() {
    for (int i = 0; i < kAcceptedInARound && accept_one(); ++i) {
    }
}

bool Control::may_ask(const Peer &peer) const {
    return peer.uid == 0 || peer.uid == geteuid() || (group_ && peer.is_member(*group_));
}

std::string Control::refusal(const Peer &peer) const {
    if (!may_ask(peer)) {
        return error_line("not-allowed", "only root, the group aaa and the user of the service may ask");
    }
    const auto own = static_cast<std::size_t>(
        std::count_if(connections_.begin(), connections_.end(),
                      [&](const auto &entry) { return entry.second->peer().uid == peer.uid; }));
    const bool has_room = peer.uid == 0 ? connections_.size() < kMostClients
                                        : connections_.size() < kForOthers && own < kPerUser;
    return has_room ? "" : error_line("too-many", "too many programs ask already; end some, and try again");
}

bool Control::accept_one() {
    net::Descriptor client(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client && (errno == EINTR || errno == ECONNABORTED)) {
        return true;
    }
    if (!client) {
        if (errno != EAGAIN) {
            watch_.want(0);  // the socket stays readable: do not spin
            retry_.set(sources_.loop.now() + kRetry);
        }
        return false;
    }
    Peer peer;
    if (!read_peer(client.get(), peer)) {
        return true;
    }
    if (const std::string line = refusal(peer); !line.empty()) {
        log_limited(refusal_limit, Level::kWarning, "CONTROL_REFUSED",
                    "client %d of user %u of the control socket is turned away: %s", peer.pid, peer.uid,
                    may_ask(peer) ? "there are too many" : "he is not in the group aaa");
        // The first bytes into an empty buffer.
        static_cast<void>(send(client.get(), line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
        return true;
    }
    auto connection = std::make_unique<ControlConnection>(host_, std::move(client), std::move(peer));
    if (connection->usable()) {
        ControlConnection *key = connection.get();
        connections_.emplace(key, std::move(connection));
    }
    return true;
}

// A round of the loop makes many events and frames; the clients are served once.
void Control::show_soon() {
    if (!connections_.empty() && !std::exchange(is_told_, true)) {
        sources_.loop.post([this, alive = std::weak_ptr<int>(alive_)] {
            if (alive.lock()) {
                show_events();
            }
        });
    }
}

std::vector<ControlConnection *> Control::present() const {
    std::vector<ControlConnection *> all;
    all.reserve(connections_.size());
    for (const auto &[key, connection] : connections_) {
        all.push_back(key);
    }
    return all;
}

void Control::show_events() {
    is_told_ = false;
    for (ControlConnection *connection : present()) {
        connection->on_news();  // which removes no other one
    }
}

void Control::remove(ControlConnection *connection) {
    const auto found = connections_.find(connection);
    if (found != connections_.end()) {
        const auto gone = std::move(found->second);
        connections_.erase(found);
    }
}

}  // namespace service
