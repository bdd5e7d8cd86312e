// SPDX-License-Identifier: Apache-2.0
//
// The watch of the file of local users.

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/log.hpp"
#include "config/keeper.hpp"

namespace service {

namespace {

constexpr std::uint32_t kReadable = 1;

std::string directory_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

}  // namespace

// Watches the directory, because editors put a new file in place of the old one.
void Keeper::watch_users() {
    if (watch_event_ != nullptr) {
        event_conn_close(std::exchange(watch_event_, nullptr));
    }
    watch_.reset();
    const auto up = [](void *, void *self) { return static_cast<Keeper *>(self)->open_watch(); };
    const auto input = [](void *, void *self) {
        static_cast<Keeper *>(self)->drain_watch();
        return int32_t{0};
    };
    if (event_conn_create(&watch_event_, events_, up, this, EVENT_CONN_TYPE_FD) == 0 &&
        event_conn_evm_handler(watch_event_, kReadable, input, nullptr) == 0) {
        event_conn_open(watch_event_);
    }
}

int32_t Keeper::open_watch() {
    net::Descriptor fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    const std::string directory = directory_of(settings_->users);
    if (!fd || inotify_add_watch(fd.get(), directory.c_str(),
                                 IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_ATTRIB | IN_ONLYDIR) < 0) {
        if (!std::exchange(watch_failed_, true)) {
            log(Level::kWarning, "USERS",
                "changes of %s are not noticed (%s); after a change send the service SIGHUP",
                settings_->users.c_str(), std::strerror(errno));
        }
        return -1;
    }
    if (std::exchange(watch_failed_, false)) {
        users_changed_ = true;  // perhaps while it was not watched
    }
    watch_ = std::move(fd);
    return watch_.get();
}

void Keeper::drain_watch() {
    alignas(inotify_event) char events[4096];
    const std::string name = settings_->users.substr(settings_->users.rfind('/') + 1);
    ssize_t count;
    while ((count = read(watch_.get(), events, sizeof events)) > 0) {
        for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= count;) {
            inotify_event event;
            std::memcpy(&event, events + at, sizeof event);
            const char *about = events + at + sizeof event;
            users_changed_ =
                users_changed_ || (event.mask & IN_Q_OVERFLOW) != 0 || (event.len > 0 && name == about);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

}  // namespace service
