// SPDX-License-Identifier: Apache-2.0
//
// Names, addresses and life of the datagram sockets.

#include "watcher_socket.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "files.hpp"
#include "host.hpp"
#include "result.hpp"

namespace sysdb_lmdb {
namespace {

constexpr mode_t kSocketMode = 0660;
constexpr int kNameAttempts = 16;
constexpr std::size_t kNameSize = 32;

// A socket address takes 107 bytes of path. A longer path goes through the
// directory's descriptor, which is kept as long as the address.
class SocketAddress {
  public:
    SocketAddress(const std::string &directory, const std::string &name) {
        std::string path = directory + "/" + name;
        if (path.size() >= sizeof address_.sun_path) {
            directory_.reset(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            path = "/proc/self/fd/" + std::to_string(directory_.get()) + "/" + name;
        }
        address_.sun_family = AF_UNIX;
        std::snprintf(address_.sun_path, sizeof address_.sun_path, "%s", path.c_str());
    }

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address_); }
    static socklen_t size() { return sizeof(sockaddr_un); }

  private:
    sockaddr_un address_{};
    Descriptor directory_;
};

// A pid is reused; the random part keeps the name unique.
std::string new_name() {
    unsigned random = 0;
    if (getrandom(&random, sizeof random, GRND_NONBLOCK) != sizeof random) {
        static constinit std::atomic<unsigned> counter{0};
        random = counter.fetch_add(1, std::memory_order_relaxed);
    }
    char name[kNameSize];
    std::snprintf(name, sizeof name, "%ld.%08x", static_cast<long>(getpid()), random);
    return name;
}

// Rows of the watch table are written by other processes. A name must not lead out
// of the watcher directory.
bool is_socket_name(std::string_view name) {
    return !name.empty() && name.size() < kNameSize && name.front() != '.' &&
           name.find_first_not_of("0123456789abcdef.") == std::string_view::npos;
}

bool means_dead(int error) {
    return error == ECONNREFUSED || error == ENOENT || error == ENOTSOCK || error == EPROTOTYPE;
}

}  // namespace

void Descriptor::reset(int fd) {
    if (fd_ >= 0) {
        close(fd_);
    }
    fd_ = fd;
}

Descriptor make_sender() {
    return Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

cerrno bind_watcher_socket(const std::string &directory, Descriptor &socket, std::string &name) {
    const cerrno rc = ensure_directory(directory);
    if (rc != 0) {
        return rc;
    }
    Descriptor fresh = make_sender();
    for (int attempt = 0; fresh && attempt < kNameAttempts; ++attempt) {
        name = new_name();
        const SocketAddress address(directory, name);
        if (bind(fresh.get(), address.get(), SocketAddress::size()) == 0) {
            chmod((directory + "/" + name).c_str(), kSocketMode);
            socket = std::move(fresh);
            return 0;
        }
        if (errno != EADDRINUSE) {
            break;
        }
    }
    const int error = errno;
    log(kLogError,
        "no socket can be made in %s: %s; changes cannot be watched; check the directory's permissions",
        directory.c_str(), std::strerror(error));
    return Result::of_errno(error).code();
}

Peer wake_peer(const Descriptor &sender, const std::string &directory, const std::string &name) {
    if (!is_socket_name(name)) {
        return Peer::kDead;
    }
    const SocketAddress address(directory, name);
    const char wakeup = 1;
    const ssize_t sent = sendto(sender.get(), &wakeup, sizeof wakeup, MSG_DONTWAIT | MSG_NOSIGNAL,
                                address.get(), SocketAddress::size());
    // A full queue already holds a wake-up.
    return sent < 0 && means_dead(errno) ? Peer::kDead : Peer::kAlive;
}

Peer probe_peer(const std::string &directory, const std::string &name) {
    if (!is_socket_name(name)) {
        return Peer::kDead;
    }
    const Descriptor prober = make_sender();
    const SocketAddress address(directory, name);
    const int rc = connect(prober.get(), address.get(), SocketAddress::size());
    return rc != 0 && means_dead(errno) ? Peer::kDead : Peer::kAlive;
}

void remove_socket_file(const std::string &directory, const std::string &name) {
    if (is_socket_name(name)) {
        unlink((directory + "/" + name).c_str());
    }
}

bool socket_file_exists(const std::string &directory, const std::string &name) {
    struct stat status;
    return lstat((directory + "/" + name).c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

void drain_socket(int fd) {
    char ignored[16];
    while (recv(fd, ignored, sizeof ignored, MSG_DONTWAIT | MSG_TRUNC) >= 0) {
    }
}

}  // namespace sysdb_lmdb
