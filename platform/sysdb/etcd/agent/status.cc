// SPDX-License-Identifier: Apache-2.0

#include "agent/status.hpp"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include <nlohmann/json.hpp>

#include "host.hpp"
#include "keys/remedy.hpp"

namespace sysdb_etcd {
namespace {

using Json = nlohmann::json;

constexpr net::Time kBetweenLines = 10 * net::kSecond;
constexpr net::Time kAtLeast = 30 * net::kSecond;
// Of a node that has said nothing for three times as long, the cluster removes the line.
constexpr std::uint32_t kLeaseSeconds = 90;

std::string hex(std::uint64_t number) {
    char text[20];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(number));
    return text;
}

std::string dump(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Another machine wrote it.
std::uint64_t number_in(const Json &line, const char *name) {
    const auto found = line.find(name);
    return found != line.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
}

}  // namespace

const char *state_word(Mirror::State state) {
    switch (state) {
        case Mirror::State::kConnecting:
            return "connecting";
        case Mirror::State::kLoading:
            return "loading";
        case Mirror::State::kFollowing:
            return "following";
        case Mirror::State::kNoConfiguration:
            return "no configuration";
        case Mirror::State::kCannotStore:
            return "cannot store";
    }
    return "?";
}

struct Status::Question {
    std::function<void(std::string)> done;
    std::size_t open = 0;
    std::vector<Member> members;
    std::map<std::size_t, StatusReply> servers;  // by endpoint
    std::map<std::size_t, std::string> faults;
    std::vector<KeyValue> nodes;
};

Status::Status(net::Loop &loop, Client &client, Mirror &mirror, Changes &changes, Names names,
               std::string machine)
    : loop_(loop),
      client_(client),
      mirror_(mirror),
      changes_(changes),
      names_(std::move(names)),
      machine_(std::move(machine)),
      next_(loop, [this] { publish(); }),
      since_(std::time(nullptr)) {}

void Status::start() {
    next_.set(loop_.now() + net::kSecond);
}

void Status::take_note() {
    if (!mirror_.trouble().empty()) {
        last_trouble_ = mirror_.trouble();
        last_trouble_at_ = std::time(nullptr);
    }
}

std::string Status::own_line() const {
    return dump({{"revision", mirror_.revision()},
                 {"cluster_revision", std::max(mirror_.revision(), mirror_.cluster_revision())},
                 {"items", mirror_.items()},
                 {"version", AAA_VERSION},
                 {"time", static_cast<std::int64_t>(std::time(nullptr))}});
}

// The own line is a change of the cluster's, too, so it is not written for its own revision.
void Status::publish() {
    next_.set(net::Loop::clock() + kBetweenLines);
    const net::Time now = net::Loop::clock();
    if (!mirror_.is_usable() || (now - published_at_ < kAtLeast && published_at_ != 0)) {
        return;
    }
    published_at_ = now;
    // A new lease each time: there is nothing to keep alive, and the old one ends without a key.
    client_.call(kLeasePath, lease_request(kLeaseSeconds), [this](const Reply &reply) {
        std::uint64_t lease = 0;
        if (reply.kind == Reply::Kind::kOk && parse_lease(reply.body, lease)) {
            put_line(lease);
        }
    });
}

void Status::put_line(std::uint64_t lease) {
    TxnRequest txn;
    txn.compare(names_.format(), mirror_.revision_of(names_.format()));
    txn.put(names_.state(), own_line(), lease);
    if (!machine_.empty()) {
        txn.compare(names_.machine(), machine_revision_);
        txn.otherwise(names_.machine());
        if (machine_revision_ == 0) {
            txn.put(names_.machine(), machine_);
        }
    }
    client_.call(kTxnPath, txn.text(), [this, lease](const Reply &reply) { take_put(reply, lease); });
}

void Status::take_put(const Reply &reply, std::uint64_t lease) {
    TxnReply result;
    if (reply.kind != Reply::Kind::kOk || !parse_txn(reply.body, result) || machine_.empty()) {
        return;
    }
    if (result.succeeded) {
        machine_revision_ = machine_revision_ != 0 ? machine_revision_ : result.header.revision;
        name_taken_ = false;
        return;
    }
    const KeyValue machine = result.read.empty() ? KeyValue() : result.read.front();
    if (machine.mod_revision != 0 && machine.value != machine_) {
        if (!std::exchange(name_taken_, true)) {
            sysdb_lmdb::log(
                sysdb_lmdb::kLogError,
                "another machine is the node %s of this cluster; give this one another name: aaactl "
                "cluster join --node NAME",
                names_.node().c_str());
        }
    } else if (machine.mod_revision != std::exchange(machine_revision_, machine.mod_revision)) {
        put_line(lease);
    }
}

void Status::tell(std::function<void(std::string)> done) {
    const auto question = std::make_shared<Question>();
    question->done = std::move(done);
    const std::size_t servers = client_.endpoints().size();
    question->open = servers + 2;
    for (std::size_t i = 0; i < servers; ++i) {
        client_.call_at(i, kStatusPath, "{}", [this, question, i](const Reply &reply) {
            StatusReply status;
            if (reply.kind == Reply::Kind::kOk && parse_status(reply.body, status)) {
                question->servers[i] = status;
            } else {
                question->faults[i] = reply.reason.empty() ? "malformed reply" : reply.reason;
            }
            finish(question);
        });
    }
    client_.call(kMembersPath, "{}", [this, question](const Reply &reply) {
        if (reply.kind != Reply::Kind::kOk || !parse_members(reply.body, question->members)) {
            question->members.clear();
        }
        finish(question);
    });
    client_.call(kRangePath, range_request({names_.nodes(), end_of_prefix(names_.nodes()), 0, 0, false}),
                 [this, question](const Reply &reply) {
                     RangeReply range;
                     if (reply.kind == Reply::Kind::kOk && parse_range(reply.body, range)) {
                         question->nodes = std::move(range.items);
                     }
                     finish(question);
                 });
}

void Status::finish(const std::shared_ptr<Question> &question) {
    if (--question->open != 0) {
        return;
    }
    Json json = {
        {"node", names_.node()},
        {"prefix", names_.prefix()},
        {"cluster", hex(mirror_.cluster())},
        {"state", state_word(mirror_.state())},
        {"trouble", mirror_.trouble()},
        {"remedy", remedy_of(mirror_.trouble(), names_.prefix())},
        {"last_trouble",
         {{"text", last_trouble_},
          {"time", last_trouble_at_},
          {"remedy", remedy_of(last_trouble_, names_.prefix())}}},
        {"agent", {{"running", true}, {"pid", getpid()}, {"since", since_}, {"version", AAA_VERSION}}},
        {"name_taken", name_taken_},
        {"majority", mirror_.has_majority()},
        {"revision", mirror_.revision()},
        {"cluster_revision", mirror_.cluster_revision()},
        {"items", mirror_.items()},
        {"changes",
         {{"made", changes_.made()}, {"refused", changes_.refused()}, {"under_way", changes_.under_way()}}}};
    std::uint64_t leader = 0;
    json["servers"] = Json::array();
    for (std::size_t i = 0; i < client_.endpoints().size(); ++i) {
        Json server = {{"endpoint", client_.endpoints()[i]}, {"used", i == client_.endpoint()}};
        const auto found = question->servers.find(i);
        server["answers"] = found != question->servers.end();
        if (found != question->servers.end()) {
            server["member"] = hex(found->second.header.member);
            server["revision"] = found->second.header.revision;
            server["version"] = found->second.version;
            server["leader"] =
                found->second.leader != 0 && found->second.leader == found->second.header.member;
            server["has_leader"] = found->second.leader != 0;
            leader = found->second.leader != 0 ? found->second.leader : leader;
        } else {
            server["fault"] = question->faults[i];
            server["remedy"] = remedy_of(question->faults[i], names_.prefix());
        }
        json["servers"].push_back(std::move(server));
    }
    json["members"] = Json::array();
    for (const Member &member : question->members) {
        json["members"].push_back({{"id", hex(member.id)},
                                   {"name", member.name},
                                   {"leader", leader != 0 && member.id == leader},
                                   {"urls", member.urls}});
    }
    json["nodes"] = Json::array();
    for (const KeyValue &item : question->nodes) {
        constexpr std::string_view kState = "/state";
        if (!item.key.starts_with(names_.nodes())) {
            continue;  // a server need not answer what it was asked
        }
        const std::string_view rest = std::string_view(item.key).substr(names_.nodes().size());
        const Json line = Json::parse(item.value, nullptr, false);
        if (rest.ends_with(kState) && line.is_object()) {
            json["nodes"].push_back({{"node", rest.substr(0, rest.size() - kState.size())},
                                     {"revision", number_in(line, "revision")},
                                     {"cluster_revision", number_in(line, "cluster_revision")},
                                     {"items", number_in(line, "items")},
                                     {"time", number_in(line, "time")}});
        }
    }
    question->done(dump(json));
}

}  // namespace sysdb_etcd
