// SPDX-License-Identifier: Apache-2.0
//
// Following the cluster's changes, and polling the server that sends them.

#include <algorithm>
#include <utility>

#include "agent/mirror.hpp"
#include "host.hpp"

namespace sysdb_etcd {
namespace {

constexpr net::Time kPollPause = net::kSecond;
constexpr net::Time kPollTimeout = net::kSecond;
constexpr unsigned kMostMisses = 2;
// The last change and the format, and no more than a few that others may have put between them.
constexpr std::uint32_t kPolledKeys = 8;

// Of a stream that the server ends. Some versions put words of the transport before it.
std::string reason_of(const WatchReply &reply) {
    constexpr std::string_view kBefore = " desc = ";
    std::string_view reason = reply.reason;
    if (const auto at = reason.find(kBefore); reason.starts_with("rpc error:") && at != std::string::npos) {
        reason.remove_prefix(at + kBefore.size());
    }
    if (reason.empty() && reply.compact_revision != 0) {
        return "the cluster does not have the revision any more";
    }
    return printable(reason);
}

}  // namespace

// From any state: a stream that is replaced is not heard any more.
void Mirror::follow() {
    stop_following();
    stream_fault_.clear();
    stream_endpoint_ = client_.endpoint();
    if (client_.needs_token()) {
        client_.fetch_token([this, alive = alive_](const Reply &reply) {
            if (!*alive || stream_ != 0 || loading_ != nullptr) {
                return;
            }
            if (reply.kind == Reply::Kind::kOk) {
                follow();
            } else {
                follow_again(reply.reason);
            }
        });
        return;
    }
    if (!is_verified_) {
        verify();
        return;
    }
    stream_ = client_.open_stream(
        kWatchPath, watch_request(names_.first(), names_.end(), revision_ + 1),
        {[this](std::string_view line) { return take_line(line); },
         [this, alive = alive_](const Reply &reply) {
             if (!*alive) {
                 return;
             }
             stream_ = 0;
             full_load_ = full_load_ || reply.too_large;
             const std::string &why = stream_fault_.empty() ? reply.reason : stream_fault_;
             follow_again(why.empty() ? "the server ended the stream" : std::string(why));
         }});
    if (stream_ == 0) {
        follow_again("no memory for a request");
        return;
    }
    next_poll_.set(loop_.now());
}

// Before changes after revision_ are taken: those up to there must still be the ones that were stored.
void Mirror::verify() {
    client_.call_at(stream_endpoint_, kRangePath, range_request({names_.changed(), {}, revision_, 0, false}),
                    [this, alive = alive_](const Reply &reply) {
                        if (*alive && stream_ == 0 && loading_ == nullptr) {
                            take_verification(reply);
                        }
                    });
}

void Mirror::take_verification(const Reply &reply) {
    RangeReply range;
    if (reply.kind == Reply::Kind::kOk && !parse_range(reply.body, range)) {
        follow_again("the server's reply is malformed");
        return;
    }
    const bool has_no_such_revision =
        reply.kind == Reply::Kind::kRefused && reply.reason.find("revision") != std::string::npos;
    if (reply.kind != Reply::Kind::kOk && !has_no_such_revision) {
        follow_again(reply.reason);
        return;
    }
    LastChange last;
    if (!range.items.empty()) {
        last = {range.items[0].mod_revision, range.items[0].value};
    }
    if (has_no_such_revision) {
        report_missing_revision(revision_);
        load(false);
        return;
    }
    if (range.header.cluster != cluster_ || last != last_change_) {
        sysdb_lmdb::log(
            sysdb_lmdb::kLogWarning,
            "the cluster has another history than before, as one that was restored from a backup; "
            "comparing with its newest revision");
        load(false);
        return;
    }
    is_verified_ = true;
    follow();
}

void Mirror::stop_following() {
    client_.cancel(stream_);
    stream_ = 0;
    next_poll_.cancel();
}

void Mirror::follow_again(const std::string &why) {
    is_verified_ = false;
    client_.leave_endpoint(stream_endpoint_);
    if (state_ == State::kFollowing) {
        sysdb_lmdb::log(sysdb_lmdb::kLogWarning, "the connection to the cluster is lost (%s); trying %s",
                        why.c_str(), client_.endpoint_name().c_str());
    }
    retry_later(State::kConnecting, why);
}

// Without it the fault would be libcurl's, of a transfer that was ended.
bool Mirror::end_stream(std::string why) {
    stream_fault_ = std::move(why);
    return false;
}

// False ends the stream; `ended` is called then.
bool Mirror::take_line(std::string_view line) {
    WatchReply reply;
    if (!parse_watch(line, reply)) {
        sysdb_lmdb::log(sysdb_lmdb::kLogError, "a reply of %s is malformed; trying another server",
                        client_.endpoints()[stream_endpoint_].c_str());
        return end_stream("the server's reply is malformed");
    }
    if (reply.canceled) {
        full_load_ = full_load_ || reply.compact_revision != 0;
        client_.take_refusal(reply.reason);
        return end_stream(reason_of(reply));
    }
    if (reply.header.cluster != cluster_) {
        full_load_ = true;
        return end_stream("the server is one of another cluster than before");
    }
    if (reply.created) {
        failures_ = 0;
        enter(State::kFollowing, {});
    }
    if (!reply.events.empty()) {
        return take_events(reply);
    }
    // From time to time a server says that there was nothing else up to a revision. The stream can go on from
    // there after the revisions before have been compacted.
    if (!reply.created && reply.header.revision > revision_) {
        revision_ = reply.header.revision;
        wake_waiters();
    }
    return true;
}

// A reply has whole revisions. All of its changes are stored as one.
bool Mirror::take_events(const WatchReply &reply) {
    std::vector<sysdb_lmdb::MirroredItem> items;
    std::map<std::string, std::uint64_t> changed;
    std::uint64_t newest = revision_;
    LastChange last_change = last_change_;
    for (const WatchEvent &event : reply.events) {
        if (event.item.mod_revision < newest || event.item.mod_revision <= revision_) {
            return end_stream("the server's changes are not in their order");
        }
        newest = event.item.mod_revision;
        if (event.item.key == names_.format()) {
            // Someone removes the configuration of all nodes, or begins to import another one.
            full_load_ = true;
            return end_stream("the configuration of the cluster is removed or imported");
        }
        if (event.item.key == names_.changed()) {
            last_change =
                event.deleted ? LastChange() : LastChange{event.item.mod_revision, event.item.value};
            continue;
        }
        const std::string_view path = names_.path_of(event.item.key);
        if (path.empty()) {
            continue;
        }
        const auto key = database_key(path);
        std::uint32_t datatype = 0;
        std::string_view value;
        const bool fits = event.deleted || (key && parse_cluster_value(event.item.value, datatype, value) &&
                                            value.size() <= sysdb_lmdb::kMaxValue);
        if (!fits) {
            report_odd_key(event.item.key);
        }
        if (key) {  // one that cannot be used replaces what was there
            items.push_back({std::string(key->view()), event.deleted || !fits, datatype, std::string(value)});
            changed[std::string(path)] = event.deleted ? 0 : event.item.mod_revision;
        }
    }
    if (!items.empty() && !store(items, newest)) {
        return true;  // the stream has been cancelled
    }
    for (const auto &[path, revision] : changed) {
        if (revision != 0) {
            revisions_[path] = revision;
        } else {
            revisions_.erase(path);
        }
    }
    revision_ = newest;
    last_change_ = std::move(last_change);
    wake_waiters();
    return true;
}

// A majority must agree to the reply, so it also shows whether there is one.
void Mirror::poll() {
    client_.call_at(
        stream_endpoint_, kRangePath, range_request({names_.changed(), names_.end(), 0, kPolledKeys, false}),
        [this, stream = stream_, known = revision_, alive = alive_](Reply reply) {
            if (*alive && stream == stream_ && stream != 0) {
                take_poll(std::move(reply), known);
            }
        },
        kPollTimeout);
}

// The reply is as new as the poll at least. What the stream has brought since then can be newer.
void Mirror::take_poll(Reply reply, std::uint64_t known) {
    if (!check_mark()) {
        return;
    }
    RangeReply range;
    if (reply.kind == Reply::Kind::kOk && parse_range(reply.body, range)) {
        misses_ = 0;
        polled_ = 0;
        for (const KeyValue &item : range.items) {
            polled_ = std::max(polled_, item.mod_revision);
        }
        if (range.header.revision < known) {
            full_load_ = true;
            follow_again("the cluster was set back to an older revision");
            return;
        }
    } else if (++misses_ >= kMostMisses) {
        misses_ = 0;
        follow_again("the server answers no more: " + reply.reason);
        return;
    }
    next_poll_.set(net::Loop::clock() + (misses_ == 0 ? kPollPause : 0));
}

}  // namespace sysdb_etcd
