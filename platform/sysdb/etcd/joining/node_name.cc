// SPDX-License-Identifier: Apache-2.0

#include "joining/node_name.hpp"

#include <utility>

namespace sysdb_etcd {
namespace {

constexpr net::Time kPause = 200 * net::kMillisecond;

}  // namespace

std::string taken_text(const std::string &node) {
    return "another machine is the node " + node +
           " of this cluster; give this one another name: --node NAME; "
           "when this machine was installed again, or replaces the other one, which is gone: --take-name";
}

NodeName::NodeName(net::Loop &loop, Client &client, Names names, std::string machine)
    : client_(client),
      names_(std::move(names)),
      machine_(std::move(machine)),
      pause_(loop, [this] { look(); }) {}

void NodeName::start(Step step, net::Time until, std::function<void(const std::string &)> done) {
    step_ = step;
    until_ = until;
    done_ = std::move(done);
    look();
}

void NodeName::again(const Reply &reply) {
    if (reply.kind == Reply::Kind::kRefused || net::Loop::clock() >= until_) {
        end(client_.endpoint_name() + ": " + reply.reason);
        return;
    }
    pause_.set(net::Loop::clock() + kPause);
}

void NodeName::look() {
    client_.call(kRangePath, range_request({names_.machine(), {}, 0, 0, false}),
                 [this](const Reply &reply) { take_look(reply); });
}

void NodeName::take_look(const Reply &reply) {
    RangeReply range;
    if (reply.kind != Reply::Kind::kOk || !parse_range(reply.body, range)) {
        again(reply);
        return;
    }
    const bool is_there = !range.items.empty();
    const bool is_own = is_there && range.items.front().value == machine_;
    if (step_ == Step::kRelease ? !is_own : is_own) {
        end("");
    } else if (step_ == Step::kClaim && is_there) {
        end(taken_text(names_.node()));
    } else {
        change(is_there ? range.items.front().mod_revision : 0);
    }
}

// When others were faster, or the reply is lost, the next look tells.
void NodeName::change(std::uint64_t revision) {
    TxnRequest txn;
    txn.compare(names_.machine(), revision);
    if (step_ == Step::kRelease) {
        txn.erase(names_.own(), end_of_prefix(names_.own()));
    } else {
        txn.put(names_.machine(), machine_);
    }
    client_.call(kTxnPath, txn.text(), [this](const Reply &reply) {
        TxnReply result;
        if (reply.kind != Reply::Kind::kOk || !parse_txn(reply.body, result)) {
            again(reply);
        } else if (result.succeeded) {
            end("");
        } else {
            look();
        }
    });
}

}  // namespace sysdb_etcd
