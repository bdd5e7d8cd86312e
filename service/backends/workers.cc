// SPDX-License-Identifier: Apache-2.0

#include "backends/workers.hpp"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "base/log.hpp"

namespace service {

namespace {

constexpr int kNicer = 5;

void lower_priority() {
    // On Linux this is the priority of the calling thread.
    errno = 0;
    const int now = getpriority(PRIO_PROCESS, 0);
    if (errno == 0) {
        setpriority(PRIO_PROCESS, 0, now + kNicer);
    }
}

}  // namespace

Workers::Workers(net::Loop &loop, unsigned threads, std::size_t most_waiting)
    : loop_(loop), most_waiting_(most_waiting) {
    const unsigned count = threads != 0 ? threads : std::max(1U, std::thread::hardware_concurrency());
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // signals are the loop's
    try {
        while (threads_.size() < count) {
            threads_.emplace_back([this] { serve(); });
        }
    } catch (const std::system_error &error) {
        log(Level::kWarning, "THREADS", "%zu of %u threads for passwords: %s", threads_.size(), count,
            error.what());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Workers::~Workers() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    ready_.notify_all();
    for (std::thread &thread : threads_) {
        thread.join();
    }
}

bool Workers::run(std::function<void()> work, std::function<void()> then) {
    {
        const std::lock_guard lock(mutex_);
        if (waiting_.size() >= most_waiting_ || threads_.empty()) {
            ++refused_;
            return false;
        }
        waiting_.push_back({std::move(work), std::move(then)});
    }
    ready_.notify_one();
    return true;
}

std::size_t Workers::waiting() {
    const std::lock_guard lock(mutex_);
    return waiting_.size();
}

std::uint64_t Workers::refused() {
    const std::lock_guard lock(mutex_);
    return refused_;
}

void Workers::serve() {
    lower_priority();
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            ready_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
            if (stopping_) {
                return;
            }
            job = std::move(waiting_.front());
            waiting_.pop_front();
        }
        job.work();
        loop_.post(std::move(job.then));
    }
}

}  // namespace service
