// SPDX-License-Identifier: Apache-2.0
//
// An event loop on epoll: descriptors, timers, and work from other threads.
//
// One thread runs a loop, and calls everything that is declared here except where a
// function says otherwise. Functions that the loop calls may create and destroy watches
// and timers, also the one that is being called. They must not block and must not throw.
//
// Times are nanoseconds of CLOCK_MONOTONIC, as in aaa/transport.h.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "net/descriptor.hpp"

namespace net {

using Time = std::int64_t;

inline constexpr Time kMicrosecond = 1000;
inline constexpr Time kMillisecond = 1000 * kMicrosecond;
inline constexpr Time kSecond = 1000 * kMillisecond;

class Tap;
class Timer;
class Watch;

class Loop {
  public:
    // Where the system refuses epoll or an event descriptor, the loop is not usable.
    Loop();
    // All watches and timers of the loop must have been destroyed before.
    ~Loop();
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    bool usable() const { return epoll_ && wake_; }

    // Runs until stop() was called.
    void run();
    // Waits until there is something to do, at most until a time, and does it.
    void run_once(Time until);
    // Makes run() return after the present round, or at once when it is called next. Safe in
    // any thread and in signal handlers.
    void stop();

    // Has `work` called by the loop's thread, once, after what was posted before it. Safe
    // in any thread. What is posted to a loop that runs no more is destroyed with it.
    void post(std::function<void()> work);

    // What the sockets of the loop's thread show their traffic to; null: nothing.
    Tap *tap() const { return tap_; }
    void set_tap(Tap *tap) { tap_ = tap; }

    // When the present round began: the same for everything that is done in it.
    Time now() const { return now_; }
    // The clock now. Safe in any thread.
    static Time clock();

  private:
    friend class Timer;
    friend class Watch;

    // What is called for a descriptor. The generation tells an event for a watch that has
    // gone from one for the watch that took its place in the same round.
    struct Slot {
        std::uint32_t generation = 0;
        std::shared_ptr<std::function<void(std::uint32_t)>> call;
    };

    int time_to_wait(Time until) const;
    void dispatch(std::uint64_t key, std::uint32_t events);
    void run_posted();
    void run_timers();
    void wake();
    void drain_wake();

    std::uint32_t take_slot(std::function<void(std::uint32_t)> call);
    void release_slot(std::uint32_t slot);

    // The timers that are set, a binary heap by time; each timer knows its place.
    void heap_insert(Timer *timer);
    void heap_remove(Timer *timer);
    void heap_up(std::size_t place);
    void heap_down(std::size_t place);
    void heap_put(std::size_t place, Timer *timer);

    Descriptor epoll_;
    Descriptor wake_;
    std::atomic<bool> stopping_ = false;
    Tap *tap_ = nullptr;
    Time now_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_slots_;
    std::vector<Timer *> heap_;
    std::uint64_t timers_set_ = 0;

    std::mutex posted_mutex_;
    std::vector<std::function<void()>> posted_;
};

// A descriptor that the loop watches. The descriptor stays the caller's, and must be
// closed only after the watch was destroyed.
class Watch {
  public:
    // A watch of nothing.
    Watch() = default;
    // Has `call` called with the events (EPOLLIN, EPOLLOUT; EPOLLERR and EPOLLHUP are
    // always reported) for as long as they last.
    Watch(Loop &loop, int fd, std::uint32_t events, std::function<void(std::uint32_t)> call);
    ~Watch() { reset(); }
    Watch(Watch &&other) noexcept;
    Watch &operator=(Watch &&other) noexcept;

    // False when the system could not add the descriptor; errno says why.
    bool usable() const { return loop_ != nullptr; }
    // Replaces the events that are waited for. Costs nothing when they are the same.
    void want(std::uint32_t events);
    void reset();

  private:
    Loop *loop_ = nullptr;
    int fd_ = -1;
    std::uint32_t events_ = 0;
    std::uint32_t slot_ = 0;
};

// A time at which the loop calls something, once for each set().
class Timer {
  public:
    Timer(Loop &loop, std::function<void()> call);
    ~Timer() { cancel(); }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    // Timers that are due in one round are called in the order of their times, those of
    // the same time in the order in which they were set. A time in the past is due in the
    // next round, so a timer that sets itself again lets descriptors be served between.
    void set(Time at);
    void cancel();
    bool is_set() const { return place_ != kNowhere; }

  private:
    friend class Loop;

    static constexpr std::size_t kNowhere = SIZE_MAX;

    bool before(const Timer &other) const {
        return at_ != other.at_ ? at_ < other.at_ : order_ < other.order_;
    }

    Loop &loop_;
    std::shared_ptr<std::function<void()>> call_;
    Time at_ = 0;
    std::uint64_t order_ = 0;
    std::size_t place_ = kNowhere;
};

}  // namespace net
