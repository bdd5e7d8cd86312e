// SPDX-License-Identifier: Apache-2.0
//
// Threads for what takes long: hashing passwords, the host's accounts. They run at a lower
// priority than the loop, so that many logins at once do not delay the requests that need no
// hash.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "net/loop.hpp"

namespace service {

class Workers {
  public:
    // `threads` 0: one for each processor.
    Workers(net::Loop &loop, unsigned threads, std::size_t most_waiting = 256);
    // Waits for the work that has begun; what has not is dropped.
    ~Workers();
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;

    // Runs `work` on a thread, then `then` on the loop's. False when too much waits.
    bool run(std::function<void()> work, std::function<void()> then);

    // For figures: what waits now, and what was refused since the start.
    std::size_t waiting();
    std::uint64_t refused();

  private:
    struct Job {
        std::function<void()> work;
        std::function<void()> then;
    };

    void serve();

    net::Loop &loop_;
    const std::size_t most_waiting_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Job> waiting_;
    std::uint64_t refused_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace service
