// SPDX-License-Identifier: Apache-2.0

#include "joining/import.hpp"

#include <algorithm>
#include <ctime>
#include <optional>
#include <utility>

#include "keys/plan.hpp"

namespace sysdb_etcd {
namespace {

constexpr net::Time kPause = 200 * net::kMillisecond;
constexpr net::Time kPatience = 10 * net::kSecond;  // with each step
constexpr net::Time kRenewAfter = kClaimSeconds / 3 * net::kSecond;
// Below what servers take as one transaction by default: 128 operations, 1.5 MiB.
constexpr std::size_t kMostOperations = 100;
constexpr std::size_t kMostBytes = std::size_t{512} << 10;
// The format and the claim, and no more than a few that others may have put between them.
constexpr std::uint32_t kMostLooked = 16;

std::string time_text(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm parts{};
    char text[40] = "";
    if (gmtime_r(&time, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    }
    return text;
}

const KeyValue *find_key(const std::vector<KeyValue> &items, const std::string &key) {
    for (const KeyValue &item : items) {
        if (item.key == key) {
            return &item;
        }
    }
    return nullptr;
}

}  // namespace

Import::Import(net::Loop &loop, Client &client, Names names, std::string machine)
    : loop_(loop),
      client_(client),
      names_(std::move(names)),
      claim_{names_.node(), std::move(machine), random_name()},
      pause_(loop, [this] { (this->*next_step_)(); }) {}

void Import::start(net::Time until, std::function<void(const Outcome &)> done) {
    until_ = until;
    done_ = std::move(done);
    look();
}

// When no transaction that was sent can complete the import any more, the configuration is this node's own.
void Import::end(const std::string &fault) {
    std::string text = fault;
    if (!text.empty() && std::exchange(has_mark_, false)) {
        if (finishing_) {
            text += "; repeat the command, or undo it: aaactl cluster leave";
        } else if (sysdb_lmdb::remove_mirror_mark() != 0) {
            text += "; then make the configuration this node's own again: aaactl cluster leave";
        }
    }
    std::exchange(done_, nullptr)({text, false});
}

std::string Import::text_of_other(const ImportRecord *record, bool in_force) const {
    const std::string who = record != nullptr ? "node " + printable(record->node) : "another node";
    const std::string take = "--replace takes it, and keeps this node's own in a file";
    if (in_force) {
        return who + " has imported its configuration below " + names_.prefix() +
               (record != nullptr && record->time != 0 ? " at " + time_text(record->time) : "") +
               ", and that is in force; join without --import: " + take;
    }
    return who + " imports its configuration below " + names_.prefix() +
           " at present; when that has ended, join without --import: " + take +
           "; if it was interrupted, repeat the command there, or this one in " +
           std::to_string(kClaimSeconds) + " seconds";
}

// The mark stays for another process of this node that goes on with the import.
void Import::refuse(const ImportRecord *record, bool in_force) {
    const bool is_own = record != nullptr && record->machine == claim_.machine;
    if (std::exchange(has_mark_, false) && !is_own) {
        sysdb_lmdb::remove_mirror_mark();
    }
    std::exchange(done_, nullptr)({text_of_other(record, in_force), true});
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
    if (rc == 0 && (!mark || (mark->is_of_import() && mark->prefix != names_.prefix()))) {
        mark = sysdb_lmdb::MirrorMark::of_import(names_.prefix());
        rc = sysdb_lmdb::store_mirrored({}, *mark, changed);
    }
    has_mark_ = rc == 0 && mark && mark->is_of_import();
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

// ---- the claim

void Import::look() {
    client_.call(kRangePath, range_request({names_.format(), names_.import() + '\0', 0, kMostLooked, false}),
                 [this](const Reply &reply) { take_look(reply); });
}

void Import::take_look(const Reply &reply) {
    RangeReply range;
    if (reply.kind != Reply::Kind::kOk || !parse_range(reply.body, range)) {
        again(&Import::look, reply);
        return;
    }
    const KeyValue *const claim = find_key(range.items, names_.import());
    ImportRecord record;
    const bool is_record = claim != nullptr && parse_import_record(claim->value, record);
    if (find_key(range.items, names_.format()) != nullptr) {
        refuse(is_record ? &record : nullptr, true);
        return;
    }
    // One that is complete is of a configuration that was deleted. One of this node is of a command that has
    // ended, or that ends when it finds the claim changed.
    if (is_record && !record.complete && record.machine != claim_.machine) {
        refuse(&record, false);
        return;
    }
    claim_revision_ = claim != nullptr ? claim->mod_revision : 0;
    ask_lease();
}

void Import::ask_lease() {
    client_.call(kLeasePath, lease_request(kClaimSeconds), [this](const Reply &reply) {
        if (reply.kind != Reply::Kind::kOk || !parse_lease(reply.body, lease_)) {
            again(&Import::ask_lease, reply);
            return;
        }
        renew_at_ = net::Loop::clock() + kRenewAfter;
        put_claim();
    });
}

std::string Import::claim_text(bool complete) {
    claim_.time = std::time(nullptr);
    claim_.complete = complete;
    return text_of(claim_);
}

TxnRequest Import::claimed_request() const {
    TxnRequest txn;
    txn.compare(names_.format(), 0);
    txn.compare(names_.import(), claim_revision_);
    txn.otherwise(names_.format());
    txn.otherwise(names_.import());
    return txn;
}

void Import::put_claim() {
    TxnRequest txn = claimed_request();
    txn.put(names_.import(), claim_text(false), lease_);
    client_.call(kTxnPath, txn.text(), [this](const Reply &reply) { take_claim(reply); });
}

void Import::take_claim(const Reply &reply) {
    TxnReply result;
    if (reply.kind != Reply::Kind::kOk || !parse_txn(reply.body, result)) {
        again(&Import::put_claim, reply);
        return;
    }
    if (!result.succeeded) {
        take_other_claim(result);
        return;
    }
    claim_revision_ = result.header.revision;
    if (!std::exchange(claimed_, true)) {
        if (const std::string fault = read_own(); !fault.empty()) {
            end(fault);
            return;
        }
    }
    send_next();
}

// The claim is not as this process knows it: by a transaction of its own whose reply was lost, or by others.
void Import::take_other_claim(const TxnReply &result) {
    const KeyValue *const claim = find_key(result.read, names_.import());
    const bool has_format = find_key(result.read, names_.format()) != nullptr;
    ImportRecord record;
    const bool is_record = claim != nullptr && parse_import_record(claim->value, record);
    if (is_record && record.attempt == claim_.attempt) {
        claim_revision_ = claim->mod_revision;
        if (record.complete) {
            take_end(result.header.cluster, claim->mod_revision);
        } else if (!std::exchange(claimed_, true)) {
            if (const std::string fault = read_own(); !fault.empty()) {
                end(fault);
            } else {
                send_next();
            }
        } else {
            send_next();
        }
    } else if (!claimed_ && !has_format) {
        look();
    } else {
        refuse(is_record ? &record : nullptr, has_format);
    }
}

// ---- the items

// First what an import that was interrupted has left goes.
void Import::send_next() {
    if (net::Loop::clock() >= renew_at_) {
        ask_lease();
        return;
    }
    TxnRequest txn = claimed_request();
    sending_ = sent_;
    finishing_ = cleared_ && sent_ == items_.size();
    if (!cleared_) {
        const std::string tree = names_.item("/cfg/");
        txn.erase(tree, end_of_prefix(tree));
    } else if (finishing_) {
        txn.put(names_.format(), kFormat);
        txn.put(names_.import(), claim_text(true));
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
    if (!result.succeeded) {
        take_other_claim(result);
        return;
    }
    if (finishing_) {
        take_end(result.header.cluster, result.header.revision);
        return;
    }
    sent_ = sending_;
    until_ = std::max(until_, net::Loop::clock() + kPatience);
    cleared_ = true;
    send_next();
}

void Import::take_end(std::uint64_t cluster, std::uint64_t revision) {
    sysdb_lmdb::ChangedKeys changed;
    if (std::exchange(has_mark_, false) &&
        sysdb_lmdb::store_mirrored({}, {cluster, revision, names_.prefix()}, changed) != 0) {
        end("the cluster has the configuration of this node, "
            "but the database of this node cannot be changed; repeat the command");
        return;
    }
    end("");
}

}  // namespace sysdb_etcd
