// SPDX-License-Identifier: Apache-2.0

#include "store/watcher.hpp"

#include <poll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <utility>

#include "platform/cerr.h"

namespace history {

namespace {

constexpr std::int64_t kRetry = 5'000;  // milliseconds, at first
constexpr std::int64_t kLongestRetry = 60'000;
// Other machines than that of the commit leave it the time to do it itself.
constexpr std::int64_t kGrace = 60'000;

// A time limit that goes on while the machine sleeps, which that of poll() does not.
class Alarm {
  public:
    Alarm() : fd_(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK)) {}
    ~Alarm() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Alarm(const Alarm &) = delete;
    Alarm &operator=(const Alarm &) = delete;

    int fd() const { return fd_; }
    void set(std::optional<std::int64_t> milliseconds) const {
        itimerspec when{};
        if (milliseconds) {
            const std::int64_t wait = std::max<std::int64_t>(*milliseconds, 1);
            when.it_value.tv_sec = wait / 1000;
            when.it_value.tv_nsec = wait % 1000 * 1'000'000;
        }
        timerfd_settime(fd_, 0, &when, nullptr);
    }
    void clear() const {
        std::uint64_t times = 0;
        while (read(fd_, &times, sizeof times) > 0) {
        }
    }

  private:
    int fd_;
};

}  // namespace

std::string time_text(std::int64_t seconds) {
    const auto when = static_cast<time_t>(seconds);
    tm utc{};
    char text[64];
    const bool told = gmtime_r(&when, &utc) != nullptr &&
                      std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc) != 0;
    return told ? text : std::to_string(seconds);
}

Watcher::Watcher(Author author, Reports reports, Clock clock)
    : author_(std::move(author)), reports_(std::move(reports)), clock_(std::move(clock)) {}

Watcher::~Watcher() {
    disconnect();
}

bool Watcher::connect() {
    cerrno rc = _sysdb_bind(&cfg_, kTree, SYSDB_BIND_PRIVATE);
    if (rc == 0) {
        rc = sysdb_conn_to_coid(cfg_, &channel_);
    }
    if (rc == 0) {
        rc = _sysdb_register_notification(
            cfg_, kHistory, SYSDB_EVENT_SET | SYSDB_EVENT_DELETE, SYSDB_NOTIFY_CHANGES,
            [](const void *, void *, void *) { return std::int32_t{0}; }, nullptr, 0, nullptr, 0,
            &notification_);
    }
    if (rc != 0) {
        report_failure(std::string("the system database cannot be used: ") + cerr_strerror(rc),
                       !told_.empty());
        disconnect();
    }
    return rc == 0;
}

void Watcher::disconnect() {
    if (cfg_ != 0) {
        sysdb_notification_unregister(cfg_, notification_);
        _sysdb_unbind(cfg_);
    }
    cfg_ = 0;
    channel_ = -1;
    notification_ = 0;
}

void Watcher::report_failure(const std::string &text, bool known) {
    if (failed_ != text) {
        failed_ = text;
        reports_.fails(text, known);
    }
}

std::int64_t Watcher::next_retry() {
    retry_ = std::min(std::max(retry_ * 2, kRetry), kLongestRetry);
    return retry_;
}

std::int64_t Watcher::left_of(const Waiting &waiting, const Now &now) {
    if (const auto known = left(waiting.deadline, now)) {
        return *known;
    }
    if (seen_ != waiting) {
        seen_ = waiting;
        seen_at_ = now.since_boot;
    }
    return seen_at_ + std::int64_t{waiting.deadline.minutes} * 60'000 + kGrace - now.since_boot;
}

std::optional<std::int64_t> Watcher::look() {
    if (cfg_ == 0 && !connect()) {
        return next_retry();
    }
    const Store store(cfg_);
    const Head head = store.head();
    if (!head.waiting) {
        seen_.reset();
        if (!std::exchange(told_, "").empty()) {
            reports_.waits("");
        }
        return std::nullopt;
    }
    const Now now = clock_();
    const std::int64_t wait = left_of(*head.waiting, now);
    if (wait > 0) {
        const std::string text = "commit " + std::to_string(head.waiting->commit) +
                                 " waits for its confirmation until " +
                                 time_text(head.waiting->deadline.wall);
        if (told_ != text) {
            told_ = text;
            reports_.waits(text);
        }
        return wait;
    }
    const auto reverted =
        revert(store, head.waiting->commit, author_,
               "commit " + std::to_string(head.waiting->commit) + " was not confirmed in time", now);
    told_.clear();
    if (reverted) {
        reports_.reverted(*reverted);
    }
    return 1;  // what the head is now is another question
}

void Watcher::run(int stop) {
    const Alarm alarm;
    for (;;) {
        std::optional<std::int64_t> wait;
        try {
            wait = look();
            if (cfg_ != 0) {
                report_failure("", true);
                retry_ = 0;
            }
        } catch (const Error &error) {
            report_failure(error.what(), error.why() != Error::Why::database || !told_.empty());
            if (error.why() == Error::Why::database) {
                disconnect();
            }  // otherwise a change of the history is what mends it, and the connection tells of it
            wait = next_retry();
        }
        alarm.set(wait);
        pollfd ready[3] = {{stop, POLLIN, 0}, {alarm.fd(), POLLIN, 0}, {channel_, POLLIN, 0}};
        while (poll(ready, 3, -1) < 0 && errno == EINTR) {
        }
        if (ready[0].revents != 0) {
            return;
        }
        alarm.clear();
        if (cfg_ != 0 && ready[2].revents != 0 && sysdb_dispatch(cfg_) != 0) {
            disconnect();
        }
    }
}

}  // namespace history
