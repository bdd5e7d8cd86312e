// SPDX-License-Identifier: Apache-2.0
//
// State of the mirror, its view for changes, and those who wait for a revision.

#include "agent/mirror.hpp"

#include <algorithm>
#include <utility>

#include "host.hpp"
#include "watch_table.hpp"

namespace sysdb_etcd {
namespace {

constexpr net::Time kLeastPause = 100 * net::kMillisecond;
constexpr net::Time kMostPause = net::kSecond;

}  // namespace

Mirror::Mirror(net::Loop &loop, Client &client, Names names)
    : loop_(loop),
      client_(client),
      names_(std::move(names)),
      retry_(loop, [this] { retry(); }),
      next_poll_(loop, [this] { poll(); }),
      waiters_timer_(loop, [this] { run_waiters_out(); }) {}

Mirror::~Mirror() {
    *alive_ = false;
    client_.cancel(stream_);
}

void Mirror::start() {
    retry_.set(loop_.now());
}

void Mirror::enter(State state, std::string trouble) {
    const bool changed = state != state_ || trouble != trouble_;
    state_ = state;
    trouble_ = std::move(trouble);
    if (changed && state_changed_ != nullptr) {
        state_changed_();
    }
}

void Mirror::retry_later(State state, std::string trouble) {
    stop_following();
    loading_.reset();
    enter(state, std::move(trouble));
    const net::Time pause = std::min(kLeastPause << std::min(failures_, 8U), kMostPause);
    ++failures_;
    retry_.set(net::Loop::clock() + pause);
}

// What was stored stays. Where this process has read all of it once, it goes on from there.
void Mirror::retry() {
    if (revision_ != 0 && !full_load_) {
        follow();
    } else {
        load(!std::exchange(full_load_, false));
    }
}

MirrorView Mirror::view() {
    MirrorView view;
    view.revision = revision_;
    view.failure = SYSDB_ERR_STORAGE;
    view.find = [this](const std::string &path, std::optional<Stored> &item) {
        item.reset();
        const auto found = revisions_.find(path);
        if (found == revisions_.end()) {
            return true;
        }
        const auto key = database_key(path);
        return key &&
               sysdb_lmdb::Database::instance().read(sysdb_lmdb::Tree::kCfg, [&](sysdb_lmdb::ReadTxn &txn) {
                   sysdb_lmdb::Item stored{};
                   const cerrno rc = sysdb_lmdb::find_item(txn, key->view(), stored);
                   const bool is_odd = rc == SYSDB_ERR_NOT_FOUND;  // the cluster's value is not used
                   if (rc == 0 || is_odd) {
                       item = Stored{found->second, stored.datatype, std::string(stored.value)};
                   }
                   return is_odd ? 0 : rc;
               }) == 0;
    };
    view.below = [this](const std::string &directory, const std::function<void(const std::string &)> &call) {
        for (auto each = revisions_.lower_bound(directory);
             each != revisions_.end() && each->first.starts_with(directory); ++each) {
            call(each->first);
        }
    };
    return view;
}

std::uint64_t Mirror::revision_of(const std::string &key) const {
    const auto found = own_.find(key);
    return found != own_.end() ? found->second : 0;
}

// ---- waiting

void Mirror::wait_for(std::uint64_t revision, net::Time until, std::function<void(bool)> done) {
    if (revision_ >= revision) {
        done(true);
        return;
    }
    waiters_.push_back({revision, until, std::move(done)});
    set_waiters_timer();
}

void Mirror::wait_for_news(std::uint64_t seen, net::Time until, std::function<void()> done) {
    wait_for(seen + 1, until, [done = std::move(done)](bool) { done(); });
}

// A call may begin to wait again.
void Mirror::wake_waiters() {
    std::vector<Waiter> ready;
    const auto first = std::stable_partition(waiters_.begin(), waiters_.end(), [this](const Waiter &waiter) {
        return waiter.revision > revision_;
    });
    std::move(first, waiters_.end(), std::back_inserter(ready));
    waiters_.erase(first, waiters_.end());
    for (const Waiter &waiter : ready) {
        waiter.done(true);
    }
    set_waiters_timer();
}

void Mirror::run_waiters_out() {
    const net::Time now = net::Loop::clock();
    std::vector<Waiter> late;
    const auto first = std::stable_partition(waiters_.begin(), waiters_.end(),
                                             [now](const Waiter &waiter) { return waiter.until > now; });
    std::move(first, waiters_.end(), std::back_inserter(late));
    waiters_.erase(first, waiters_.end());
    for (const Waiter &waiter : late) {
        waiter.done(false);
    }
    set_waiters_timer();
}

void Mirror::set_waiters_timer() {
    const auto first = std::min_element(waiters_.begin(), waiters_.end(),
                                        [](const Waiter &a, const Waiter &b) { return a.until < b.until; });
    if (first == waiters_.end()) {
        waiters_timer_.cancel();
    } else {
        waiters_timer_.set(first->until);
    }
}

// ---- the database

// The watchers of this node are woken after the commit.
bool Mirror::store(const std::vector<sysdb_lmdb::MirroredItem> &items, std::uint64_t revision) {
    sysdb_lmdb::ChangedKeys changed;
    const sysdb_lmdb::MirrorMark mark{cluster_, revision, names_.prefix()};
    const cerrno rc = sysdb_lmdb::store_mirrored(items, mark, changed, &mark_);
    if (rc == SYSDB_ERR_CONFLICT) {
        check_mark();
        return false;
    }
    if (rc != 0) {
        char code[16];
        std::snprintf(code, sizeof code, "%08x", rc);
        retry_later(
            State::kCannotStore,
            std::string("the database of this node takes no changes: aaactl err 0x") + code + " says more");
        return false;
    }
    mark_ = mark;
    sysdb_lmdb::notify_watchers(changed);
    return true;
}

// Compacted, or of a cluster that was set back: what differs is found by comparison.
void Mirror::report_missing_revision(std::uint64_t revision) {
    sysdb_lmdb::log(sysdb_lmdb::kLogInfo,
                    "the cluster does not have revision %llu any more; comparing with the newest one",
                    static_cast<unsigned long long>(revision));
}

// Commands change the mark while no agent runs. One that does not find this agent, because /run was emptied,
// may change it all the same.
bool Mirror::check_mark() {
    std::optional<sysdb_lmdb::MirrorMark> mark;
    if (sysdb_lmdb::read_mirror_mark(mark) != 0 || mark == mark_) {
        return true;
    }
    take_other_mark(mark);
    return false;
}

void Mirror::take_other_mark(const std::optional<sysdb_lmdb::MirrorMark> &mark) {
    if (!mark && left_ != nullptr) {
        stop_following();
        loading_.reset();
        retry_.cancel();
        left_();
        return;
    }
    full_load_ = true;
    retry_later(State::kLoading, "the database has been changed by another command");
}

// Someone else's program wrote it.
void Mirror::report_odd_key(std::string_view key) {
    std::string shown(key.substr(0, 100));
    for (char &c : shown) {
        c = c < ' ' || c > '~' ? '?' : c;
    }
    sysdb_lmdb::log(sysdb_lmdb::kLogWarning,
                    "the cluster's key %s is not an item of the configuration, and is not used; delete it",
                    shown.c_str());
}

}  // namespace sysdb_etcd
