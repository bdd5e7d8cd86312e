// SPDX-License-Identifier: Apache-2.0

#include "agent/listener.hpp"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "database.hpp"

namespace sysdb_etcd {
namespace {

constexpr net::Time kTimeToAsk = 5 * net::kSecond;  // and to take the answer
constexpr net::Time kLook = 5 * net::kSecond;       // for a socket that someone has removed
constexpr mode_t kSocketMode = 0660;

std::string system_text() {
    return std::strerror(errno);
}

// Reached by the descriptor: the directory's path may be longer than an address.
sockaddr_un address_in(int directory) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", directory, kSocketName);
    return address;
}

}  // namespace

cerrno refusal_of(const Peer &peer) {
    return sysdb_lmdb::Database::instance().with(
        sysdb_lmdb::Tree::kCfg, [&peer](const sysdb_lmdb::Environment &environment) -> cerrno {
            struct stat directory;
            struct stat file;
            const bool known =
                fstat(environment.directory().get(), &directory) == 0 &&
                fstatat(environment.directory().get(), sysdb_lmdb::name_of(environment.file()).c_str(), &file,
                        AT_SYMLINK_NOFOLLOW) == 0;
            if (!known || !may_enter(peer, directory)) {
                return SYSDB_ERR_ACCESS;
            }
            return may_write(peer, file) ? 0 : SYSDB_ERR_READ_ONLY;
        });
}

class Listener::Client : public std::enable_shared_from_this<Client> {
  public:
    Client(Listener &owner, std::uint64_t number, net::Descriptor socket, Peer peer)
        : owner_(owner),
          number_(number),
          peer_(std::move(peer)),
          socket_(std::move(socket)),
          limit_(owner.loop_, [this] { on_limit(); }) {}

    void begin() {
        watch_ = net::Watch(owner_.loop_, socket_.get(), EPOLLIN, [self = weak_from_this()](std::uint32_t) {
            if (const auto client = self.lock()) {
                client->on_ready();
            }
        });
        limit_.set(net::Loop::clock() + kTimeToAsk);
    }
    uid_t user() const { return peer_.user; }

  private:
    void on_ready() {
        if (!answering_.empty()) {
            write_on();
        } else if (asked_) {
            owner_.remove(number_);  // it has ended, or says more than a request
        } else {
            read_on();
        }
    }

    // The agent itself may have been busy for that long.
    void on_limit() {
        const auto self = shared_from_this();
        const std::size_t before = request_.size() + answering_.size();
        on_ready();
        if (request_.size() + answering_.size() == before) {
            owner_.remove(number_);
        } else if (!asked_ || !answering_.empty()) {
            limit_.set(net::Loop::clock() + kTimeToAsk);
        }
    }

    void read_on() {
        char buffer[65536];
        const ssize_t count = recv(socket_.get(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (count <= 0) {
            owner_.remove(number_);
            return;
        }
        request_.append(buffer, static_cast<std::size_t>(count));
        if (request_.size() < kLengthSize) {
            return;
        }
        const std::size_t length = unpack_length(request_.data());
        if (length > kMostRequest || request_.size() > kLengthSize + length) {
            owner_.remove(number_);
        } else if (request_.size() == kLengthSize + length) {
            take_request();
        }
    }

    void take_request() {
        asked_ = true;
        limit_.cancel();
        Request request;
        const bool well_formed = unpack_request(std::string_view(request_).substr(kLengthSize), request);
        request_ = {};
        const cerrno refusal = well_formed ? refusal_of(peer_) : SYSDB_ERR_INVALID_ARG;
        const bool may_ask = refusal == 0 || (refusal == SYSDB_ERR_READ_ONLY && request.ask == Ask::kStatus);
        const auto reply = [self = weak_from_this()](const Answer &answer) {
            if (const auto client = self.lock()) {
                client->answer(answer);
            }
        };
        if (may_ask) {
            owner_.handle_(std::move(request), reply);
        } else {
            reply({refusal, static_cast<std::uint32_t>(request.changes.size()), {}});
        }
    }

    void answer(const Answer &answer) {
        answering_ = pack_answer(answer);
        limit_.set(net::Loop::clock() + kTimeToAsk);
        watch_.want(EPOLLOUT);
    }

    void write_on() {
        const ssize_t count =
            send(socket_.get(), answering_.data(), answering_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (count < 0 || static_cast<std::size_t>(count) == answering_.size()) {
            owner_.remove(number_);
        } else {
            answering_.erase(0, static_cast<std::size_t>(count));
        }
    }

    Listener &owner_;
    const std::uint64_t number_;
    const Peer peer_;
    net::Descriptor socket_;
    net::Watch watch_;
    net::Timer limit_;
    std::string request_;
    std::string answering_;
    bool asked_ = false;
};

Listener::Listener(net::Loop &loop, Handle handle)
    : loop_(loop), handle_(std::move(handle)), next_look_(loop, [this] { look_for_socket(); }) {}

Listener::~Listener() {
    clients_.clear();
    if (socket_) {
        sysdb_lmdb::Database::instance().with(sysdb_lmdb::Tree::kOper,
                                              [](const sysdb_lmdb::Environment &environment) -> cerrno {
                                                  unlinkat(environment.directory().get(), kSocketName, 0);
                                                  return 0;
                                              });
    }
}

std::string Listener::open() {
    std::string fault;
    const cerrno rc = sysdb_lmdb::Database::instance().with(
        sysdb_lmdb::Tree::kOper, [&](const sysdb_lmdb::Environment &environment) -> cerrno {
            const int directory = environment.directory().get();
            if (!lock_) {
                lock_ = net::Descriptor(openat(directory, kAgentLockName,
                                               O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
                // For an agent that another user starts later, such as the unit's after root's.
                if (lock_) {
                    fchmod(lock_.get(), kSocketMode);
                }
            }
            if (!lock_ || flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
                fault = errno == EWOULDBLOCK
                            ? "another agent runs for " + environment.directory().path()
                            : environment.directory().path() + "/" + kAgentLockName + ": " + system_text();
            } else {
                fault = bind_socket(directory);
                fault =
                    fault.empty() ? "" : environment.directory().path() + "/" + kSocketName + ": " + fault;
            }
            return 0;
        });
    if (rc != 0) {
        fault = "the run directory of the database cannot be used";
    }
    next_look_.set(loop_.now() + kLook);
    return fault;
}

std::string Listener::bind_socket(int directory) {
    watch_.reset();
    socket_.reset();
    struct stat status;
    if (fstatat(directory, kSocketName, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            return "it is no socket; move it away";
        }
        unlinkat(directory, kSocketName, 0);
    }
    net::Descriptor fresh(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const sockaddr_un address = address_in(directory);
    const mode_t before = umask(0777 & ~kSocketMode);
    const bool bound =
        fresh && bind(fresh.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    umask(before);
    if (!bound || listen(fresh.get(), SOMAXCONN) != 0 ||
        fstatat(directory, kSocketName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return system_text();
    }
    device_ = status.st_dev;
    inode_ = status.st_ino;
    socket_ = std::move(fresh);
    watch_ = net::Watch(loop_, socket_.get(), EPOLLIN, [this](std::uint32_t) { accept_all(); });
    return watch_.usable() ? "" : system_text();
}

// Someone may have emptied /run.
void Listener::look_for_socket() {
    bool is_there = false;
    sysdb_lmdb::Database::instance().with(
        sysdb_lmdb::Tree::kOper, [&](const sysdb_lmdb::Environment &environment) -> cerrno {
            struct stat status;
            is_there =
                fstatat(environment.directory().get(), kSocketName, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                status.st_dev == device_ && status.st_ino == inode_;
            return 0;
        });
    if (!is_there) {
        lock_.reset();
        open();
    }
    next_look_.set(loop_.now() + kLook);
}

std::size_t Listener::clients_of(uid_t user) const {
    return static_cast<std::size_t>(std::count_if(
        clients_.begin(), clients_.end(), [user](const auto &each) { return each.second->user() == user; }));
}

void Listener::accept_all() {
    for (;;) {
        net::Descriptor socket(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket) {
            return;
        }
        Peer peer;
        if (clients_.size() >= kMostClients || !identify_peer(socket.get(), peer) ||
            (peer.user != 0 && clients_of(peer.user) >= kMostOfOneUser)) {
            continue;  // it sees that the connection ends
        }
        const std::uint64_t number = ++last_number_;
        const auto client = std::make_shared<Client>(*this, number, std::move(socket), std::move(peer));
        clients_.emplace(number, client);
        client->begin();
    }
}

// Perhaps in one of its own calls.
void Listener::remove(std::uint64_t number) {
    const auto found = clients_.find(number);
    if (found != clients_.end()) {
        const auto client = std::move(found->second);
        clients_.erase(found);
        loop_.post([client] {});
    }
}

}  // namespace sysdb_etcd
