// SPDX-License-Identifier: Apache-2.0

#include "provider/agent_call.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "call/peer.hpp"
#include "database.hpp"
#include "host.hpp"
#include "platform/sysdb_changes.h"

namespace sysdb_etcd {
namespace {

using sysdb_lmdb::Descriptor;

constexpr int kTimeToConnect = 2000;  // milliseconds
// The agent answers in time, so that what it says is known.
constexpr int kTimeToSpare = 2000;

bool wait_until(int socket, short events, std::int64_t until) {
    for (;;) {
        const std::int64_t left = until - now_ms();
        pollfd waiting = {socket, events, 0};
        const int ready = poll(&waiting, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            errno = ready == 0 ? ETIMEDOUT : errno;
            return false;
        }
    }
}

// The socket that is reached through the descriptor of its file cannot be exchanged meanwhile.
Descriptor connect_in(const sysdb_lmdb::Directory &directory) {
    const Descriptor file = sysdb_lmdb::open_at(directory.get(), kSocketName, O_PATH | O_NOFOLLOW);
    Descriptor link = sysdb_lmdb::make_descriptor(
        [] { return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); });
    if (!file || !link) {
        return {};
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s",
                  sysdb_lmdb::DescriptorPath(file.get()).get());
    const std::int64_t until = now_ms() + kTimeToConnect;
    while (connect(link.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const bool is_full = errno == EAGAIN;  // the agent's queue: there is nothing to wait for
        if (!is_full || now_ms() >= until) {
            return {};
        }
        const timespec moment = {0, 5'000'000};
        nanosleep(&moment, nullptr);
    }
    return link;
}

// Another member of the group could have put a socket there, who may write the database as well.
bool is_one_who_may_write(const Descriptor &link, const sysdb_lmdb::Directory &directory) {
    Peer peer;
    struct stat status;
    return identify_peer(link.get(), peer) && fstat(directory.get(), &status) == 0 && may_write(peer, status);
}

cerrno connect_to_agent(Descriptor &link) {
    std::string path;
    const cerrno rc = sysdb_lmdb::Database::instance().with(
        sysdb_lmdb::Tree::kOper, [&](const sysdb_lmdb::Environment &environment) -> cerrno {
            path = environment.directory().path();
            link = connect_in(environment.directory());
            if (link && !is_one_who_may_write(link, environment.directory())) {
                link.reset();
                errno = EPERM;
            }
            return 0;
        });
    if (rc != 0 || link) {
        return rc;
    }
    if (errno == EACCES) {
        return SYSDB_ERR_ACCESS;
    }
    sysdb_lmdb::log(sysdb_lmdb::kLogError,
                    "%s/%s: %s; configuration cannot be changed until the agent runs: systemctl start "
                    "aaa-sysdb-agent",
                    path.c_str(), kSocketName, sysdb_lmdb::Result::of_errno(errno).text());
    return SYSDB_ERR_NO_AGENT;
}

// False when nothing can have reached the agent as a whole request.
bool send_all(const Descriptor &link, std::string_view bytes, std::int64_t until) {
    while (!bytes.empty()) {
        const ssize_t count = send(link.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN ? !wait_until(link.get(), POLLOUT, until) : errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool receive(const Descriptor &link, std::string &bytes, std::size_t size, std::int64_t until) {
    bytes.clear();
    while (bytes.size() < size) {
        char buffer[4096];
        const std::size_t wanted = size - bytes.size();
        const ssize_t count =
            recv(link.get(), buffer, wanted < sizeof buffer ? wanted : sizeof buffer, MSG_DONTWAIT);
        if (count > 0) {
            bytes.append(buffer, static_cast<std::size_t>(count));
        } else if (count == 0 ||
                   (errno == EAGAIN ? !wait_until(link.get(), POLLIN, until) : errno != EINTR)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

cerrno ask_agent(const Request &request, Answer &answer) {
    const auto bytes = pack_request(request);
    if (!bytes) {
        return SYSDB_ERR_TOO_MANY_CHANGES;
    }
    Descriptor link;
    if (const cerrno rc = connect_to_agent(link); rc != 0) {
        return rc;
    }
    const std::int64_t until = static_cast<std::int64_t>(request.until_ms) + kTimeToSpare;
    if (!send_all(link, *bytes, until)) {
        return SYSDB_ERR_NO_AGENT;
    }
    std::string received;
    if (receive(link, received, kLengthSize, until)) {
        const std::size_t length = unpack_length(received.data());
        if (length <= kMostReply && receive(link, received, length, until) &&
            unpack_answer(received, answer)) {
            return 0;
        }
    }
    sysdb_lmdb::log(sysdb_lmdb::kLogError,
                    "the agent of the database has not answered; it is not known whether a change was made");
    return SYSDB_ERR_OUTCOME_UNKNOWN;
}

}  // namespace sysdb_etcd
