// SPDX-License-Identifier: Apache-2.0
//
// The mirror: keeps the configuration of this node's database equal to the cluster's.
//
// It reads all of it once, as of the revision at which the mirror stopped before, or where the
// cluster does not have that any more, as of now; stores what differs; and follows all later
// revisions in their order. Watchers on this node get what differs in the same way as any change.
// After a lost connection it goes on where it was, if the cluster's last change up to there is still
// the one that it has seen: servers that were restored from a backup have given the same revisions to
// other changes.
// While it follows, it polls the server that it follows: a server that is stopped, or that is
// cut off from the others, says nothing of its own.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/client.hpp"
#include "keys/names.hpp"
#include "keys/plan.hpp"
#include "mirror_mark.hpp"

namespace sysdb_etcd {

class Mirror {
  public:
    enum class State {
        kConnecting,  // no server answers
        kLoading,
        kFollowing,
        kNoConfiguration,  // the cluster has none below the prefix
        kCannotStore       // this node's database takes no changes
    };

    Mirror(net::Loop &loop, Client &client, Names names);
    ~Mirror();
    Mirror(const Mirror &) = delete;
    Mirror &operator=(const Mirror &) = delete;

    void start();

    State state() const { return state_; }
    bool is_usable() const { return state_ == State::kFollowing; }
    // Why it does not follow, for people.
    const std::string &trouble() const { return trouble_; }
    // Whether a majority of the servers answered the last poll.
    bool has_majority() const { return state_ == State::kFollowing && misses_ == 0; }
    // Known to be so: no answer yet is not.
    bool lacks_majority() const { return state_ == State::kConnecting || misses_ != 0; }
    std::uint64_t revision() const { return revision_; }
    // Of the newest change of the cluster's configuration, as of the last poll.
    std::uint64_t cluster_revision() const { return polled_; }
    std::uint64_t cluster() const { return cluster_; }
    std::size_t items() const { return revisions_.size(); }

    // For plan_changes(); valid until the loop's next round.
    MirrorView view();
    // The revision of the last change of the format, or of a key of this node as of own_as_of(): no one else
    // writes those, and they are not watched. 0: none.
    std::uint64_t own_as_of() const { return own_as_of_; }
    std::uint64_t revision_of(const std::string &key) const;

    // Calls `done` when the mirror has all changes up to a revision, perhaps at once; with false
    // when it does not have them at that time.
    void wait_for(std::uint64_t revision, net::Time until, std::function<void(bool)> done);
    // Calls it when the revision is another one than this, or at a time, whatever is first.
    void wait_for_news(std::uint64_t seen, net::Time until, std::function<void()> done);

    // Called when the node has left the cluster: the configuration is its own, and the mirror has stopped.
    void on_left(std::function<void()> call) { left_ = std::move(call); }
    // Called at each change of the state.
    void on_state(std::function<void()> call) { state_changed_ = std::move(call); }

  private:
    // The key of the last change: its revision and value, or 0 and nothing without one.
    struct LastChange {
        std::uint64_t revision = 0;
        std::string value;
        friend bool operator==(const LastChange &, const LastChange &) = default;
    };
    struct Waiter {
        std::uint64_t revision;
        net::Time until;
        std::function<void(bool)> done;
    };
    struct Loading {
        std::uint64_t asked = 0;  // revision; 0: the newest
        std::uint64_t revision = 0;
        std::uint64_t cluster = 0;
        std::uint64_t own_as_of = 0;
        std::size_t bytes = 0;  // of keys and values so far
        std::uint32_t limit = 0;
        std::string next;
        std::string end;
        bool is_own = false;  // after the configuration, the keys of this node
        bool has_format = false;
        LastChange last_change;
        std::map<std::string, std::uint64_t> revisions;
        std::map<std::string, std::uint64_t> own;
        std::vector<sysdb_lmdb::MirroredItem> differing;
    };

    void enter(State state, std::string trouble);
    void retry_later(State state, std::string trouble);
    void retry();
    // mirror_load.cc
    void load(bool from_mark);
    void load_page();
    void take_page(Reply reply);
    bool take_loaded(const KeyValue &item);
    void finish_load();
    // mirror_follow.cc
    void follow();
    void verify();
    void take_verification(const Reply &reply);
    bool take_line(std::string_view line);
    bool end_stream(std::string why);
    bool take_events(const WatchReply &reply);
    void follow_again(const std::string &why);
    void poll();
    void take_poll(Reply reply, std::uint64_t known);
    void stop_following();
    void wake_waiters();
    void run_waiters_out();
    void set_waiters_timer();

    bool check_mark();
    void take_other_mark(const std::optional<sysdb_lmdb::MirrorMark> &mark);
    bool store(const std::vector<sysdb_lmdb::MirroredItem> &items, std::uint64_t revision);
    static void report_missing_revision(std::uint64_t revision);
    void report_odd_key(std::string_view key);

    net::Loop &loop_;
    Client &client_;
    const Names names_;
    net::Timer retry_;
    net::Timer next_poll_;
    net::Timer waiters_timer_;

    State state_ = State::kConnecting;
    std::string trouble_;
    std::function<void()> state_changed_;
    std::function<void()> left_;
    std::optional<sysdb_lmdb::MirrorMark> mark_;  // that the database has
    std::uint64_t revision_ = 0;
    std::uint64_t cluster_ = 0;
    std::uint64_t own_as_of_ = 0;
    std::uint64_t polled_ = 0;
    LastChange last_change_;  // up to revision_
    bool is_verified_ = false;
    std::map<std::string, std::uint64_t> revisions_;  // path to the revision of its last change
    std::map<std::string, std::uint64_t> own_;        // keys of this node
    std::vector<Waiter> waiters_;

    std::unique_ptr<Loading> loading_;
    std::uint64_t load_number_ = 0;
    std::uint64_t stream_ = 0;
    std::size_t stream_endpoint_ = 0;
    std::string stream_fault_;  // why this side ends the stream
    unsigned misses_ = 0;
    unsigned failures_ = 0;
    bool full_load_ = false;  // the next load is of the newest revision
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace sysdb_etcd
