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

#include "host.hpp"
#include "result.hpp"

namespace sysdb_lmdb {
namespace {

constexpr mode_t kSocketMode = 0660;
constexpr int kNameAttempts = 16;
constexpr std::size_t kNameSize = 32;

// An address below a descriptor: no component of it can be exchanged, and the directory's
// path may be longer than an address.
class SocketAddress {
  public:
    explicit SocketAddress(const std::string &path) {
        address_.sun_family = AF_UNIX;
        std::snprintf(address_.sun_path, sizeof address_.sun_path, "%s", path.c_str());
    }

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address_); }
    static socklen_t size() { return sizeof(sockaddr_un); }

  private:
    sockaddr_un address_{};
};

// The file of a name if it is a socket, to be reached by its descriptor's path. A
// descriptor of a link is one of the link itself.
Descriptor find_socket(const Directory &directory, const std::string &name) {
    Descriptor file = open_at(directory.get(), name.c_str(), O_PATH | O_NOFOLLOW);
    struct stat status;
    if (file && (fstat(file.get(), &status) != 0 || !S_ISSOCK(status.st_mode))) {
        file.reset();
        errno = ENOTSOCK;
    }
    return file;
}

// Those who may write the directory may send. The umask has cut the mode, and without
// the directory's bit the group is this process's.
void share(const Directory &directory, const std::string &name) {
    const Descriptor file = find_socket(directory, name);
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || status.st_uid != geteuid()) {
        return;
    }
    if (status.st_gid == directory.group() ||
        fchownat(file.get(), "", static_cast<uid_t>(-1), directory.group(), AT_EMPTY_PATH) == 0) {
        chmod(DescriptorPath(file.get()).get(), kSocketMode);
    }
}

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

bool means_no_socket(int error) {
    return error == ENOENT || error == ENOTSOCK;
}

// Of a socket that was found. ENOENT is not one of them: it means that /proc is missing.
bool means_no_listener(int error) {
    return error == ECONNREFUSED || error == EPROTOTYPE;
}

}  // namespace

Descriptor make_sender() {
    return make_descriptor([] { return socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); });
}

cerrno bind_watcher_socket(const Directory &directory, Descriptor &socket, std::string &name) {
    Descriptor fresh = make_sender();
    for (int attempt = 0; fresh && attempt < kNameAttempts; ++attempt) {
        name = new_name();
        const SocketAddress address(DescriptorPath(directory.get()).get() + ("/" + name));
        if (bind(fresh.get(), address.get(), SocketAddress::size()) == 0) {
            share(directory, name);
            socket = std::move(fresh);
            return 0;
        }
        if (errno != EADDRINUSE) {
            break;
        }
    }
    const int error = errno;
    log(kLogError,
        "no socket can be made in %s: %s; changes cannot be watched; check the directory's permissions, and "
        "that /proc is mounted",
        directory.path().c_str(), std::strerror(error));
    return Result::of_errno(error).code();
}

Peer wake_peer(const Descriptor &sender, const Directory &directory, const std::string &name) {
    if (!directory || !is_socket_name(name)) {
        return Peer::kDead;
    }
    const Descriptor file = find_socket(directory, name);
    if (!file) {
        return means_no_socket(errno) ? Peer::kDead : Peer::kAlive;
    }
    const SocketAddress address(DescriptorPath(file.get()).get());
    const char wakeup = 1;
    const ssize_t sent = sendto(sender.get(), &wakeup, sizeof wakeup, MSG_DONTWAIT | MSG_NOSIGNAL,
                                address.get(), SocketAddress::size());
    // A full queue already holds a wake-up.
    return sent < 0 && means_no_listener(errno) ? Peer::kDead : Peer::kAlive;
}

Peer probe_peer(const Directory &directory, const std::string &name) {
    if (!directory || !is_socket_name(name)) {
        return Peer::kDead;
    }
    const Descriptor file = find_socket(directory, name);
    if (!file) {
        return means_no_socket(errno) ? Peer::kDead : Peer::kAlive;
    }
    const Descriptor prober = make_sender();
    const SocketAddress address(DescriptorPath(file.get()).get());
    const int rc = connect(prober.get(), address.get(), SocketAddress::size());
    return rc != 0 && means_no_listener(errno) ? Peer::kDead : Peer::kAlive;
}

void remove_socket_file(const Directory &directory, const std::string &name) {
    if (socket_file_exists(directory, name)) {
        unlinkat(directory.get(), name.c_str(), 0);
    }
}

bool socket_file_exists(const Directory &directory, const std::string &name) {
    struct stat status;
    return is_socket_name(name) &&
           fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISSOCK(status.st_mode);
}

void drain_socket(int fd) {
    char ignored[16];
    while (recv(fd, ignored, sizeof ignored, MSG_DONTWAIT | MSG_TRUNC) >= 0) {
    }
}

}  // namespace sysdb_lmdb
