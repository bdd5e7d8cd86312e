// SPDX-License-Identifier: Apache-2.0
//
// The disk's thread.
#include "accounting/disk.hpp"

#include <pthread.h>

#include <csignal>
#include <system_error>

namespace accounting {

DiskThread::DiskThread(net::Loop &loop, Disk &disk, Written written)
    : loop_(loop), disk_(disk), written_(std::move(written)) {}

bool DiskThread::start() {
    // Signals are for the loop's thread. Blocked SIGXFSZ also makes a write above the
    // process's limit of file sizes an error instead of the end of the process.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool started = true;
    try {
        thread_ = std::thread([this] { work(); });
        pthread_setname_np(thread_.native_handle(), "aaad_acct_disk");
    } catch (const std::system_error &) {
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

DiskThread::~DiskThread() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void DiskThread::append(Unwritten record) {
    bool first;
    {
        const std::lock_guard lock(mutex_);
        first = appended_.empty();
        appended_.push_back(std::move(record));
    }
    if (first) {
        changed_.notify_one();
    }
}

void DiskThread::run(Job job) {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    changed_.notify_one();
}

void DiskThread::tell_loop(std::function<void()> call) {
    loop_.post([watch = watch_, call = std::move(call)] {
        if (!watch.expired()) {
            call();
        }
    });
}

void DiskThread::work() {
    for (;;) {
        std::vector<Unwritten> records;
        Job job;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return stopping_ || !appended_.empty() || !jobs_.empty(); });
            records.swap(appended_);
            if (!jobs_.empty()) {
                job = std::move(jobs_.front());
                jobs_.pop_front();
            }
        }
        if (!records.empty()) {
            tell_loop([this, appended = disk_.segments.append(records)] { written_(appended); });
        } else if (!job) {
            return;
        }
        if (job) {
            job(disk_);
        }
    }
}

}  // namespace accounting
