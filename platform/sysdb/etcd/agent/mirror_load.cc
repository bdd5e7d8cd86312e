// SPDX-License-Identifier: Apache-2.0
//
// Reading all of the cluster's configuration as of one revision, and storing what differs.

#include <algorithm>
#include <utility>

#include "agent/mirror.hpp"
#include "host.hpp"
#include "settings.hpp"

namespace sysdb_etcd {
namespace {

// As many keys as fit into a reply when all of them have the longest value.
constexpr std::uint32_t kMostKeys = 1024;
constexpr std::uint32_t kLeastKeys = 16;
// A server counts all keys that follow for each page, so a million keys in pages of 1024 take it minutes.
// Pages of short values become larger one by one.
constexpr std::uint32_t kMostShortKeys = 16384;
constexpr std::size_t kSmallPage = std::size_t{2} << 20;  // bytes of a reply
// Of the bytes that a database can have, what its items may have in the cluster, where each key has the
// prefix too. More cannot be stored, and a server that never ends would otherwise take all memory.
constexpr std::size_t kTimesTheDatabase = 4;

}  // namespace

void Mirror::load(bool from_mark) {
    stop_following();
    loading_ = std::make_unique<Loading>();
    loading_->limit = kMostKeys;
    loading_->next = names_.first();
    loading_->end = names_.end();
    std::optional<sysdb_lmdb::MirrorMark> mark;
    if (const cerrno rc = sysdb_lmdb::read_mirror_mark(mark); rc != 0) {
        char code[16];
        std::snprintf(code, sizeof code, "%08x", rc);
        retry_later(
            State::kCannotStore,
            std::string("the database of this node cannot be read: aaactl err 0x") + code + " says more");
        return;
    }
    if (!mark && left_ != nullptr) {
        take_other_mark(mark);
        return;
    }
    mark_ = mark;
    if (from_mark && mark && mark->prefix == names_.prefix()) {
        loading_->asked = mark->revision;
        loading_->cluster = mark->cluster;
    }
    if (state_ != State::kLoading) {
        enter(state_ == State::kFollowing ? State::kLoading : state_, trouble_);
    }
    load_page();
}

void Mirror::load_page() {
    const std::uint64_t number = ++load_number_;
    const std::uint64_t as_of = loading_->revision != 0 ? loading_->revision : loading_->asked;
    const std::uint64_t revision = loading_->is_own ? 0 : as_of;  // this node's keys as they are now
    client_.call(kRangePath, range_request({loading_->next, loading_->end, revision, loading_->limit, false}),
                 [this, number, alive = alive_](Reply reply) {
                     if (*alive && loading_ != nullptr && number == load_number_) {
                         take_page(std::move(reply));
                     }
                 });
}

void Mirror::take_page(Reply reply) {
    if (reply.too_large && loading_->limit > kLeastKeys) {
        loading_->limit /= 2;
        load_page();
        return;
    }
    if (reply.kind == Reply::Kind::kRefused && loading_->asked != 0 &&
        reply.reason.find("revision") != std::string::npos) {
        report_missing_revision(loading_->asked);
        load(false);
        return;
    }
    RangeReply page;
    if (reply.kind == Reply::Kind::kOk && !parse_range(reply.body, page)) {
        reply.kind = Reply::Kind::kRefused;
        reply.reason = "the server's reply is malformed";
        client_.next_endpoint();
    }
    if (reply.kind != Reply::Kind::kOk) {
        retry_later(State::kConnecting, reply.reason);
        return;
    }
    if (loading_->revision == 0) {
        if (loading_->asked != 0 && page.header.cluster != loading_->cluster) {
            sysdb_lmdb::log(sysdb_lmdb::kLogWarning,
                            "this is another cluster than before, or one that was restored from a backup; "
                            "comparing with its newest revision");
            load(false);
            return;
        }
        loading_->revision = loading_->asked != 0 ? loading_->asked : page.header.revision;
        loading_->cluster = page.header.cluster;
    }
    loading_->own_as_of = page.header.revision;
    for (const KeyValue &item : page.items) {
        // One that gives the same keys again would never come to an end.
        if (item.key < loading_->next) {
            client_.next_endpoint();
            retry_later(State::kConnecting, "the server's keys are not in their order");
            return;
        }
        loading_->next = item.key + '\0';
        loading_->bytes += item.key.size() + item.value.size();
        if (const std::size_t room = sysdb_lmdb::read_settings().map_bytes;
            loading_->bytes / kTimesTheDatabase > room) {
            retry_later(State::kCannotStore,
                        "the cluster's configuration is larger than a database of this node can be, " +
                            std::to_string(room >> 20) + " MiB (AAA_SYSDB_MAP_MIB)");
            return;
        }
        if (!take_loaded(item)) {
            return;
        }
    }
    if (page.more && !page.items.empty()) {
        if (reply.body.size() < kSmallPage) {
            loading_->limit = std::min(loading_->limit * 2, std::max(loading_->limit, kMostShortKeys));
        }
        load_page();
    } else if (!std::exchange(loading_->is_own, true)) {
        loading_->next = names_.own();
        loading_->end = end_of_prefix(loading_->next);
        load_page();
    } else {
        finish_load();
    }
}

// Compares with what the database has, so that only what differs is kept.
bool Mirror::take_loaded(const KeyValue &item) {
    if (item.key == names_.format()) {
        loading_->has_format = item.value == kFormat;
        loading_->own[item.key] = item.mod_revision;
        return true;
    }
    if (item.key == names_.changed()) {
        loading_->last_change = {item.mod_revision, item.value};
        return true;
    }
    const std::string_view path = names_.path_of(item.key);
    if (path.empty()) {
        loading_->own[item.key] = item.mod_revision;
        return true;
    }
    const auto key = database_key(path);
    std::uint32_t datatype = 0;
    std::string_view value;
    if (!key) {
        report_odd_key(item.key);
        return true;
    }
    loading_->revisions.emplace(path, item.mod_revision);
    if (!parse_cluster_value(item.value, datatype, value) || value.size() > sysdb_lmdb::kMaxValue) {
        report_odd_key(item.key);
        loading_->differing.push_back({std::string(key->view()), true, 0, {}});
        return true;
    }
    const cerrno rc = sysdb_lmdb::Database::instance().read(sysdb_lmdb::Tree::kCfg, [&](sysdb_lmdb::ReadTxn
                                                                                            &txn) {
        sysdb_lmdb::Item stored{};
        const cerrno found = sysdb_lmdb::find_item(txn, key->view(), stored);
        if (found != 0 || stored.datatype != datatype || stored.value != value) {
            loading_->differing.push_back({std::string(key->view()), false, datatype, std::string(value)});
        }
        return found == SYSDB_ERR_NOT_FOUND || found == SYSDB_ERR_BAD_VALUE ? 0 : found;
    });
    if (rc != 0) {
        retry_later(State::kCannotStore, "the database of this node cannot be read");
        return false;
    }
    return true;
}

void Mirror::finish_load() {
    Loading &loaded = *loading_;
    if (!loaded.has_format) {
        full_load_ = true;  // there is nothing to follow, also not from a revision of before
        retry_later(State::kNoConfiguration, "the cluster has no configuration below " + names_.prefix() +
                                                 ", or one of another version; import that of a node");
        return;
    }
    const cerrno rc = sysdb_lmdb::for_each_configured([&](std::string_view key, const sysdb_lmdb::Item &) {
        if (!loaded.revisions.contains(sysdb_lmdb::decode(key))) {
            loaded.differing.push_back({std::string(key), true, 0, {}});
        }
    });
    if (rc != 0) {
        retry_later(State::kCannotStore, "the database of this node cannot be read");
        return;
    }
    cluster_ = loaded.cluster;
    const std::unique_ptr<Loading> done = std::move(loading_);
    if (!store(done->differing, done->revision)) {
        return;
    }
    if (!done->differing.empty()) {
        sysdb_lmdb::log(sysdb_lmdb::kLogInfo,
                        "the mirror differed in %zu items from revision %llu of the cluster",
                        done->differing.size(), static_cast<unsigned long long>(done->revision));
    }
    revisions_ = std::move(done->revisions);
    own_ = std::move(done->own);
    own_as_of_ = done->own_as_of;
    revision_ = done->revision;
    last_change_ = std::move(done->last_change);
    is_verified_ = true;
    polled_ = 0;
    follow();
    wake_waiters();
}

}  // namespace sysdb_etcd
