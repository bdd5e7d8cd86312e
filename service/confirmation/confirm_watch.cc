// SPDX-License-Identifier: Apache-2.0

#include "confirmation/confirm_watch.hpp"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "base/log.hpp"
#include "store/presence.hpp"

namespace service {

namespace {

void log_reverted(const history::Reverted &reverted) {
    const std::string outside =
        reverted.outside == 0
            ? ""
            : "; what was changed without a commit meanwhile is commit " + std::to_string(reverted.outside);
    const std::string as = reverted.commit != 0 ? ", as commit " + std::to_string(reverted.commit)
                                                : history::not_recorded(reverted);
    log(Level::kWarning, "REVERTED",
        "commit %u of the configuration was not confirmed in time: the state of commit %u is in force "
        "again%s%s",
        reverted.waited, reverted.base, as.c_str(), outside.c_str());
}

}  // namespace

ConfirmWatch::ConfirmWatch(Alarm alarm, history::Watcher::Clock clock)
    : alarm_(std::move(alarm)), clock_(std::move(clock)) {}

ConfirmWatch::~ConfirmWatch() {
    stop();
}

bool ConfirmWatch::start() {
    stop_ = net::Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    std::string fault = stop_ ? "" : std::strerror(errno);
    // The thread gets no signals: they are the loop's.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        if (fault.empty()) {
            thread_ = std::thread([this] { run(); });
        }
    } catch (const std::system_error &error) {
        fault = error.what();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!fault.empty()) {
        log(Level::kError, "NO_CONFIRM_WATCH",
            "commits that are not confirmed are not reverted: %s; run \"aaactl watch-confirm\" meanwhile",
            fault.c_str());
    }
    return fault.empty();
}

void ConfirmWatch::stop() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        while (write(stop_.get(), &one, sizeof one) < 0 && errno == EINTR) {
        }
        thread_.join();
    }
}

void ConfirmWatch::run() {
    history::Watcher::Reports reports;
    reports.waits = [](const std::string &text) {
        log(Level::kNotice, "CONFIRM", "%s",
            text.empty() ? "no commit of the configuration waits for its confirmation any more"
                         : text.c_str());
    };
    reports.reverted = log_reverted;
    reports.fails = [this](const std::string &text, bool known) {
        if (!known) {
            return;  // the keeper says that the database is away
        }
        alarm_(text.empty() ? ""
                            : "commits that are not confirmed in time cannot be reverted: " + text +
                                  "; it is tried again; to revert one by hand, say as root: aaactl cancel");
        if (!text.empty()) {
            log(Level::kError, "NO_REVERT",
                "commits that are not confirmed in time cannot be reverted: %s; it is tried again",
                text.c_str());
        }
    };
    const history::Presence presence("aaad");
    history::Watcher watcher(history::program("aaad"), reports, clock_);
    watcher.run(stop_.get());
}

}  // namespace service
