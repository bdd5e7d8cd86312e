// SPDX-License-Identifier: Apache-2.0
//
// The event loop.
#include "net/loop.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>

namespace net {

namespace {

constexpr std::uint64_t kWakeKey = UINT64_MAX;
constexpr int kEventsPerRound = 64;

std::uint64_t key_of(std::uint32_t slot, std::uint32_t generation) {
    return std::uint64_t{slot} << 32 | generation;
}

}  // namespace

Time Loop::clock() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * kSecond + time.tv_nsec;
}

Loop::Loop()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), now_(clock()) {
    epoll_event event = {.events = EPOLLIN, .data = {.u64 = kWakeKey}};
    if (usable() && epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wake_.get(), &event) != 0) {
        wake_.reset();
    }
}

Loop::~Loop() = default;

void Loop::wake() {
    const std::uint64_t value = 1;
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(wake_.get(), &value, sizeof value);
    errno = error;
}

void Loop::drain_wake() {
    std::uint64_t value;
    [[maybe_unused]] const ssize_t taken = read(wake_.get(), &value, sizeof value);
}

void Loop::stop() {
    stopping_ = true;
    wake();
}

void Loop::post(std::function<void()> work) {
    bool first;
    {
        const std::lock_guard lock(posted_mutex_);
        first = posted_.empty();
        posted_.push_back(std::move(work));
    }
    if (first) {
        wake();
    }
}

void Loop::run() {
    while (!stopping_) {
        run_once(INT64_MAX);
    }
    stopping_ = false;
}

void Loop::run_once(Time until) {
    std::array<epoll_event, kEventsPerRound> events;
    const int count = epoll_wait(epoll_.get(), events.data(), kEventsPerRound, time_to_wait(until));
    now_ = clock();
    for (std::size_t i = 0; static_cast<int>(i) < count; ++i) {
        dispatch(events[i].data.u64, events[i].events);
    }
    run_posted();
    run_timers();
}

// Milliseconds for epoll_wait(), rounded up: a wait that ends too early would be repeated.
int Loop::time_to_wait(Time until) const {
    constexpr Time kLongest = 3600 * kSecond;
    const Time next = heap_.empty() ? until : std::min(until, heap_.front()->at_);
    const Time left = std::clamp<Time>(next, 0, INT64_MAX - kMillisecond) - clock();
    return left <= 0 ? 0 : static_cast<int>((std::min(left, kLongest) + kMillisecond - 1) / kMillisecond);
}

void Loop::dispatch(std::uint64_t key, std::uint32_t events) {
    if (key == kWakeKey) {
        drain_wake();
        return;
    }
    const Slot &slot = slots_[key >> 32];
    if (slot.generation != static_cast<std::uint32_t>(key) || slot.call == nullptr) {
        return;
    }
    // The function may destroy its watch, and with it the slot's hold on the function.
    const auto call = slot.call;
    (*call)(events);
}

void Loop::run_posted() {
    std::vector<std::function<void()>> work;
    {
        const std::lock_guard lock(posted_mutex_);
        work.swap(posted_);
    }
    for (std::function<void()> &call : work) {
        call();
    }
}

void Loop::run_timers() {
    // A timer that is set by another one waits for the next round, or two that set each
    // other would keep the loop here.
    const std::uint64_t set_before = timers_set_;
    while (!heap_.empty() && heap_.front()->at_ <= now_ && heap_.front()->order_ <= set_before) {
        Timer *timer = heap_.front();
        heap_remove(timer);
        const auto call = timer->call_;
        (*call)();
    }
}

std::uint32_t Loop::take_slot(std::function<void(std::uint32_t)> call) {
    if (free_slots_.empty()) {
        free_slots_.push_back(static_cast<std::uint32_t>(slots_.size()));
        slots_.emplace_back();
    }
    const std::uint32_t number = free_slots_.back();
    free_slots_.pop_back();
    slots_[number].call = std::make_shared<std::function<void(std::uint32_t)>>(std::move(call));
    return number;
}

void Loop::release_slot(std::uint32_t slot) {
    // What the function captured may own watches itself, so it is destroyed last.
    const auto call = std::move(slots_[slot].call);
    slots_[slot].call = nullptr;
    ++slots_[slot].generation;
    free_slots_.push_back(slot);
}

Watch::Watch(Loop &loop, int fd, std::uint32_t events, std::function<void(std::uint32_t)> call)
    : fd_(fd), events_(events), slot_(loop.take_slot(std::move(call))) {
    epoll_event event = {.events = events, .data = {.u64 = key_of(slot_, loop.slots_[slot_].generation)}};
    if (epoll_ctl(loop.epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        const int error = errno;
        loop.release_slot(slot_);
        errno = error;
        return;
    }
    loop_ = &loop;
}

Watch::Watch(Watch &&other) noexcept
    : loop_(std::exchange(other.loop_, nullptr)),
      fd_(other.fd_),
      events_(other.events_),
      slot_(other.slot_) {}

Watch &Watch::operator=(Watch &&other) noexcept {
    if (this != &other) {
        reset();
        loop_ = std::exchange(other.loop_, nullptr);
        fd_ = other.fd_;
        events_ = other.events_;
        slot_ = other.slot_;
    }
    return *this;
}

void Watch::want(std::uint32_t events) {
    if (loop_ == nullptr || events == events_) {
        return;
    }
    epoll_event event = {.events = events, .data = {.u64 = key_of(slot_, loop_->slots_[slot_].generation)}};
    if (epoll_ctl(loop_->epoll_.get(), EPOLL_CTL_MOD, fd_, &event) == 0) {
        events_ = events;
    }
}

void Watch::reset() {
    if (Loop *loop = std::exchange(loop_, nullptr)) {
        epoll_ctl(loop->epoll_.get(), EPOLL_CTL_DEL, fd_, nullptr);
        loop->release_slot(slot_);
    }
}

Timer::Timer(Loop &loop, std::function<void()> call)
    : loop_(loop), call_(std::make_shared<std::function<void()>>(std::move(call))) {}

void Timer::set(Time at) {
    cancel();
    at_ = at;
    order_ = ++loop_.timers_set_;
    loop_.heap_insert(this);
}

void Timer::cancel() {
    if (is_set()) {
        loop_.heap_remove(this);
    }
}

void Loop::heap_put(std::size_t place, Timer *timer) {
    heap_[place] = timer;
    timer->place_ = place;
}

void Loop::heap_insert(Timer *timer) {
    heap_.push_back(timer);
    timer->place_ = heap_.size() - 1;
    heap_up(timer->place_);
}

void Loop::heap_remove(Timer *timer) {
    const std::size_t place = std::exchange(timer->place_, Timer::kNowhere);
    Timer *last = heap_.back();
    heap_.pop_back();
    if (last == timer) {
        return;
    }
    heap_put(place, last);
    heap_up(place);
    heap_down(last->place_);
}

void Loop::heap_up(std::size_t place) {
    Timer *timer = heap_[place];
    while (place > 0 && timer->before(*heap_[(place - 1) / 2])) {
        heap_put(place, heap_[(place - 1) / 2]);
        place = (place - 1) / 2;
    }
    heap_put(place, timer);
}

void Loop::heap_down(std::size_t place) {
    Timer *timer = heap_[place];
    for (;;) {
        std::size_t child = 2 * place + 1;
        if (child >= heap_.size()) {
            break;
        }
        if (child + 1 < heap_.size() && heap_[child + 1]->before(*heap_[child])) {
            ++child;
        }
        if (!heap_[child]->before(*timer)) {
            break;
        }
        heap_put(place, heap_[child]);
        place = child;
    }
    heap_put(place, timer);
}

}  // namespace net
