// SPDX-License-Identifier: Apache-2.0

#include "agent/import.hpp"

#include <utility>

#include "agent/plan.hpp"
#include "mirror_mark.hpp"

namespace sysdb_etcd {
namespace {

constexpr net::Time kPause = 200 * net::kMillisecond;
// Below what servers take as one transaction by default: 128 operations, 1.5 MiB.
constexpr std::size_t kMostOperations = 100;
constexpr std::size_t kMostBytes = std::size_t{512} << 10;

}  // namespace

Import::Import(net::Loop &loop, Client &client, Names names)
    : loop_(loop),
      client_(client),
      names_(std::move(names)),
      pause_(loop, [this] { (this->*next_step_)(); }) {}

void Import::start(net::Time until, std::function<void(const std::string &)> done) {
    until_ = until;
    done_ = std::move(done);
    look();
}

void Import::end(const std::string &fault) {
    std::exchange(done_, nullptr)(fault);
}

void Import::again(void (Import::*step)(), const Reply &reply) {
    if (reply.kind == Reply::Kind::kRefused || net::Loop::clock() >= until_) {
        end(client_.endpoint_name() + ": " + reply.reason);
        return;
    }
    next_step_ = step;
    pause_.set(net::Loop::clock() + kPause);
}

// While the mark is there, no process changes what is being sent.
std::string Import::read_own() {
    std::optional<sysdb_lmdb::MirrorMark> mark;
    sysdb_lmdb::ChangedKeys changed;
    cerrno rc = sysdb_lmdb::read_mirror_mark(mark);
    if (rc == 0 && !mark) {
        rc = sysdb_lmdb::store_mirrored({}, {0, 0, names_.prefix()}, changed);
    }
    items_.clear();
    if (rc == 0) {
        rc = sysdb_lmdb::for_each_configured([this](std::string_view key, const sysdb_lmdb::Item &item) {
            if (item.datatype != SYSDB_TYPE_ANY) {
                items_.push_back(
                    {names_.item(sysdb_lmdb::decode(key)), cluster_value(item.datatype, item.value)});
            }
        });
    }
    return rc == 0 ? "" : "the database of this node cannot be used";
}

void Import::look() {
    client_.call(kRangePath, range_request({names_.format(), {}, 0, 0, false}),
                 [this](const Reply &reply) { take_look(reply); });
}

void Import::take_look(const Reply &reply) {
    RangeReply range;
    if (reply.kind != Reply::Kind::kOk || !parse_range(reply.body, range)) {
        again(&Import::look, reply);
        return;
    }
    if (!range.items.empty()) {
        end("the cluster has a configuration below " + names_.prefix() +
            " already; join without importing, or choose another prefix");
        return;
    }
    if (const std::string fault = read_own(); !fault.empty()) {
        end(fault);
        return;
    }
    send_next();
}

// First what an import that was interrupted has left goes.
void Import::send_next() {
    TxnRequest txn;
    txn.compare(names_.format(), 0);
    txn.otherwise(names_.format());
    sending_ = sent_;
    finishing_ = cleared_ && sent_ == items_.size();
    if (!cleared_) {
        const std::string tree = names_.item("/cfg/");
        txn.erase(tree, end_of_prefix(tree));
    } else if (finishing_) {
        txn.put(names_.format(), kFormat);
    } else {
        std::size_t bytes = 0;
        for (; sending_ < items_.size() && sending_ - sent_ < kMostOperations && bytes < kMostBytes;
             ++sending_) {
            txn.put(items_[sending_].key, items_[sending_].value);
            bytes += items_[sending_].key.size() + items_[sending_].value.size();
        }
    }
    client_.call(kTxnPath, txn.text(), [this](const Reply &reply) { take_sent(reply); });
}

// What is sent twice is the same as what is sent once.
void Import::take_sent(const Reply &reply) {
    TxnReply result;
    if (reply.kind != Reply::Kind::kOk || !parse_txn(reply.body, result)) {
        again(&Import::send_next, reply);
        return;
    }
    if (!result.succeeded && !finishing_) {
        end("another node imports its configuration at the same time");
        return;
    }
    if (finishing_) {
        end("");
        return;
    }
    sent_ = sending_;
    cleared_ = true;
    send_next();
}

}  // namespace sysdb_etcd
