// SPDX-License-Identifier: Apache-2.0

#include "agent/changes.hpp"

#include <sys/random.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "host.hpp"
#include "keys/remedy.hpp"

namespace sysdb_etcd {
namespace {

// Between tries for which nothing has changed.
constexpr net::Time kPause = 50 * net::kMillisecond;

// Servers drop what they get while they elect a leader, and no answer comes. An election takes one to three
// seconds. For so long, a change whose reply was lost is sent again soon, so that it waits little longer than
// the election. After that the servers are taken to be slow, and the reply gets its time.
constexpr net::Time kElection = 3 * net::kSecond;
constexpr net::Time kTimeoutInElection = 400 * net::kMillisecond;

std::string random_text() {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
        number = static_cast<std::uint64_t>(net::Loop::clock());
    }
    return std::to_string(number);
}

bool says(const Reply &reply, std::string_view words) {
    return reply.reason.find(words) != std::string::npos;
}

// Of a refusal by the cluster. 0: another try may succeed.
cerrno code_of(const Reply &reply) {
    constexpr int kPermissionDenied = 7;
    constexpr int kUnauthenticated = 16;
    // The last one is of the transport, before a member sees the request.
    if (says(reply, "too many operations") || says(reply, "request is too large") ||
        says(reply, "message larger than max")) {
        return SYSDB_ERR_TOO_MANY_CHANGES;
    }
    if (says(reply, "database space exceeded")) {
        return SYSDB_ERR_FULL;
    }
    if (reply.code == kPermissionDenied || reply.code == kUnauthenticated ||
        says(reply, "authentication failed") || says(reply, "user name is empty")) {
        return SYSDB_ERR_ACCESS;
    }
    return 0;
}

}  // namespace

class Changes::One : public std::enable_shared_from_this<One> {
  public:
    One(Changes &owner, std::vector<ItemChange> changes, net::Time until, Done done)
        : owner_(owner),
          changes_(std::move(changes)),
          until_(until),
          done_(std::move(done)),
          number_(owner.instance_ + '.' + std::to_string(++owner.last_number_) + '.'),
          pause_(owner.loop_, [this] { attempt(); }) {}

    void begin(std::size_t turn) {
        turn_ = turn;
        begun_ = net::Loop::clock();
        attempt();
    }
    net::Time until() const { return until_; }
    std::uint32_t count() const { return static_cast<std::uint32_t>(changes_.size()); }
    void call(cerrno rc, std::uint32_t failed) { std::exchange(done_, nullptr)(rc, failed); }

  private:
    void attempt() {
        const auto self = shared_from_this();
        if (net::Loop::clock() >= until_) {
            give_up();
            return;
        }
        if (owner_.mirror_.state() == Mirror::State::kNoConfiguration && !may_be_made_) {
            finish(SYSDB_ERR_NO_AGENT, count());
            return;
        }
        // One that is sent without a majority may be made when there is one again. Here it can be refused.
        if (owner_.mirror_.revision() == 0 || (owner_.mirror_.lacks_majority() && !may_be_made_)) {
            pause_.set(net::Loop::clock() + kPause);
            return;
        }
        MirrorView view = owner_.mirror_.view();
        plan_changes(changes_, view, plan_);
        if (plan_.refusal == SYSDB_ERR_STORAGE || plan_.refusal == SYSDB_ERR_INVALID_ARG) {
            finish(plan_.refusal, plan_.failed);  // not a question of what the cluster has
            return;
        }
        planned_for_ = view.revision;
        compared_turn_ = turn_revision();
        owner_.client_.call(
            kTxnPath, transaction(),
            [self, alive = owner_.alive_](Reply reply) {
                if (*alive) {
                    self->take(std::move(reply));
                }
            },
            timeout());
    }

    net::Time timeout() const {
        const net::Time now = net::Loop::clock();
        const bool may_be_dropped = may_be_made_ && now < begun_ + kElection;
        return std::min(may_be_dropped ? kTimeoutInElection : Client::kTimeout, until_ - now);
    }

    std::string transaction() const {
        const Names &names = owner_.names_;
        TxnRequest txn;
        txn.compare(names.format(), owner_.mirror_.revision_of(names.format()));
        txn.compare(names.turn(turn_), compared_turn_);
        for (const auto &[path, revision] : plan_.as_expected) {
            txn.compare(names.item(path), revision);
        }
        for (const std::string &directory : plan_.unchanged_since) {
            const std::string key = names.item(directory);
            txn.compare_older(key, end_of_prefix(key), planned_for_ + 1);
        }
        for (const std::string &directory : plan_.empty) {
            const std::string key = names.item(directory);
            txn.compare_older(key, end_of_prefix(key), 1);
        }
        txn.otherwise(names.turn(turn_));
        if (plan_.refusal == 0 && !plan_.writes_nothing()) {
            for (const std::string &directory : plan_.erased) {
                const std::string key = names.item(directory);
                txn.erase(key, end_of_prefix(key));
            }
            for (const auto &[path, value] : plan_.writes) {
                if (value) {
                    txn.put(names.item(path), *value);
                } else {
                    txn.erase(names.item(path));
                }
            }
            txn.put(names.turn(turn_), number_);
            txn.put(names.changed(), names.node() + ' ' + number_);
        } else if (plan_.refusal != 0 && may_be_made_) {
            // Ends the one whose reply was lost: it compares the turn's key, too.
            txn.put(names.turn(turn_), refusal_text());
        }
        return txn.text();
    }

    std::string refusal_text() const {
        return number_ + " refused " + std::to_string(plan_.refusal) + ' ' + std::to_string(plan_.failed);
    }
    // What a transaction of this change wrote into its turn's key.
    void take_outcome(const KeyValue &turn) {
        unsigned code = 0;
        unsigned failed = 0;
        if (turn.value == number_) {
            is_made(turn.mod_revision);
        } else if (std::sscanf(turn.value.c_str() + number_.size(), " refused %u %u", &code, &failed) == 2) {
            finish(code, failed);
        } else {
            finish(SYSDB_ERR_OUTCOME_UNKNOWN, count());
        }
    }

    // The newest that this process knows, from a reply or from reading all of the configuration. Turns are
    // not watched: only this agent writes them.
    std::uint64_t turn_revision() const {
        const Turn &told = owner_.turns_[turn_];
        return told.as_of > owner_.mirror_.own_as_of()
                   ? told.revision
                   : owner_.mirror_.revision_of(owner_.names_.turn(turn_));
    }

    void take(Reply reply) {
        TxnReply result;
        if (reply.kind == Reply::Kind::kOk && !parse_txn(reply.body, result)) {
            reply.kind = Reply::Kind::kLost;
            reply.reason = "the server's reply is malformed";
        }
        switch (reply.kind) {
            case Reply::Kind::kOk:
                take_result(result);
                return;
            case Reply::Kind::kRefused:
                if (const cerrno rc = code_of(reply); rc != 0 && !may_be_made_) {
                    const std::string remedy = remedy_of(reply.reason, owner_.names_.prefix());
                    sysdb_lmdb::log(sysdb_lmdb::kLogError, "the cluster refuses a change: %s%s%s",
                                    reply.reason.c_str(), remedy.empty() ? "" : "; ", remedy.c_str());
                    finish(rc, count());
                    return;
                }
                break;
            case Reply::Kind::kLost:
                may_be_made_ = true;
                break;
            case Reply::Kind::kNotSent:
                break;
        }
        pause_.set(net::Loop::clock() + kPause);
    }

    void take_result(const TxnReply &result) {
        if (result.succeeded) {
            if (plan_.refusal != 0) {
                finish(plan_.refusal, plan_.failed);
            } else if (plan_.writes_nothing()) {
                finish(0, count());
            } else {
                is_made(result.header.revision);
            }
            return;
        }
        KeyValue turn;
        for (const KeyValue &item : result.read) {
            if (item.key == owner_.names_.turn(turn_)) {
                turn = item;
            }
        }
        owner_.turns_[turn_] = {turn.mod_revision, result.header.revision};
        if (turn.value.starts_with(number_)) {  // by one whose reply was lost
            take_outcome(turn);
            return;
        }
        if (turn.mod_revision != compared_turn_) {
            may_be_made_ = false;  // those whose replies were lost compare what is no more
        }
        const auto self = shared_from_this();
        if (owner_.mirror_.revision() != planned_for_) {
            pause_.set(net::Loop::clock());
            return;
        }
        owner_.mirror_.wait_for_news(planned_for_, std::min(until_, net::Loop::clock() + kPause),
                                     [self, alive = owner_.alive_] {
                                         if (*alive) {
                                             self->pause_.set(net::Loop::clock());
                                         }
                                     });
    }

    void is_made(std::uint64_t revision) {
        owner_.turns_[turn_] = {revision, revision};
        const auto self = shared_from_this();
        owner_.mirror_.wait_for(revision, until_, [self, alive = owner_.alive_](bool reached) {
            if (*alive) {
                self->finish(reached ? 0 : SYSDB_ERR_OUTCOME_UNKNOWN, self->count());
            }
        });
    }

    void give_up() { finish(may_be_made_ ? SYSDB_ERR_OUTCOME_UNKNOWN : SYSDB_ERR_NO_MAJORITY, count()); }

    void finish(cerrno rc, std::uint32_t failed) {
        const auto self = shared_from_this();
        pause_.cancel();
        ++(rc == 0 ? owner_.made_ : owner_.refused_);
        Changes &owner = owner_;
        const auto alive = owner.alive_;
        call(rc, failed);
        if (*alive) {
            owner.use_turn(turn_);
        }
    }

    Changes &owner_;
    const std::vector<ItemChange> changes_;
    const net::Time until_;
    Done done_;
    const std::string number_;
    net::Timer pause_;
    net::Time begun_ = 0;
    std::size_t turn_ = 0;
    Plan plan_;
    std::uint64_t planned_for_ = 0;
    std::uint64_t compared_turn_ = 0;
    bool may_be_made_ = false;
};

Changes::Changes(net::Loop &loop, Client &client, Mirror &mirror, Names names)
    : loop_(loop), client_(client), mirror_(mirror), names_(std::move(names)), instance_(random_text()) {}

Changes::~Changes() {
    *alive_ = false;
}

std::size_t Changes::under_way() const {
    return waiting_.size() + kTurns -
           static_cast<std::size_t>(std::count(running_.begin(), running_.end(), nullptr));
}

void Changes::make(std::vector<ItemChange> changes, net::Time until, Done done) {
    const auto count = static_cast<std::uint32_t>(changes.size());
    if (changes.empty()) {
        done(0, 0);
        return;
    }
    if (waiting_.size() >= kMostWaiting) {
        done(SYSDB_ERR_BUSY, count);
        return;
    }
    waiting_.push_back(std::make_shared<One>(*this, std::move(changes), until, std::move(done)));
    const auto turn = std::find(running_.begin(), running_.end(), nullptr);
    if (turn != running_.end()) {
        use_turn(static_cast<std::size_t>(turn - running_.begin()));
    }
}

void Changes::use_turn(std::size_t turn) {
    running_[turn].reset();
    if (waiting_.empty()) {
        return;
    }
    const std::shared_ptr<One> next = std::move(waiting_.front());
    waiting_.pop_front();
    running_[turn] = next;
    next->begin(turn);
}

}  // namespace sysdb_etcd
