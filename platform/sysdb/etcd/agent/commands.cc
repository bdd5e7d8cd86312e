// SPDX-License-Identifier: Apache-2.0

#include "agent/commands.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/changes.hpp"
#include "agent/listener.hpp"
#include "agent/status.hpp"
#include "joining/import.hpp"
#include "joining/probe.hpp"
#include "mirror_mark.hpp"
#include "net/descriptor.hpp"
#include "platform/sysdb_changes.h"
#include "provider/agent_call.hpp"

namespace sysdb_etcd {
namespace {

using Json = nlohmann::json;

constexpr net::Time kPatience = 10 * net::kSecond;
constexpr std::int64_t kTimeForStatus = 5000;  // milliseconds

void print(const Json &json) {
    std::puts(json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
}

// Keeps an agent from starting while it is held. False: one runs.
bool hold_agents_lock(net::Descriptor &lock) {
    bool runs = false;
    sysdb_lmdb::Database::instance().with(
        sysdb_lmdb::Tree::kOper, [&](const sysdb_lmdb::Environment &environment) -> cerrno {
            lock = net::Descriptor(openat(environment.directory().get(), kAgentLockName,
                                          O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
            runs = lock && flock(lock.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
            return 0;
        });
    return !runs;
}

int cannot_change(cerrno rc) {
    std::fprintf(stderr, "aaa-sysdb-agent: the database of this node cannot be changed: aaactl err 0x%08x\n",
                 rc);
    return 1;
}

Json mark_json(const std::optional<sysdb_lmdb::MirrorMark> &mark) {
    char cluster[20];
    std::snprintf(cluster, sizeof cluster, "%llx", static_cast<unsigned long long>(mark ? mark->cluster : 0));
    return mark ? Json{{"cluster", cluster},
                       {"prefix", mark->prefix},
                       {"revision", mark->is_of_import() ? 0 : mark->revision},
                       {"importing", mark->is_of_import()}}
                : Json(nullptr);
}

// What the cluster says when this node's agent does not.
Json ask_cluster(Settings settings) {
    net::Loop loop;
    const Names names(settings.prefix, settings.node);
    Client client(loop, std::move(settings.address));
    Mirror mirror(loop, client, names);
    Changes changes(loop, client, mirror, names);
    Status status(loop, client, mirror, changes, names, {});
    Json json;
    status.tell([&](const std::string &text) {
        json = Json::parse(text, nullptr, false);
        loop.stop();
    });
    loop.run();
    for (const char *of_the_agent : {"changes", "items", "majority", "name_taken", "last_trouble"}) {
        json.erase(of_the_agent);
    }
    return json;
}

}  // namespace

int import_configuration(Settings settings) {
    net::Loop loop;
    const Names names(settings.prefix, settings.node);
    Client client(loop, std::move(settings.address));
    std::string machine;
    if (const cerrno rc = sysdb_lmdb::have_identity(machine); rc != 0) {
        return cannot_change(rc);
    }
    Import importing(loop, client, names, machine);
    int status = 1;
    importing.start(net::Loop::clock() + kPatience, [&](const Import::Outcome &outcome) {
        if (outcome.fault.empty()) {
            std::printf("the cluster has the %zu items of this node\n", importing.items());
            status = 0;
        } else {
            std::fprintf(stderr, "aaa-sysdb-agent: %s\n", outcome.fault.c_str());
            status = outcome.refused ? kRefused : 1;
        }
        loop.stop();
    });
    loop.run();
    return status;
}

int name_node(const Settings &settings, NodeName::Step step) {
    std::string machine;
    const bool releases = step == NodeName::Step::kRelease;
    if (const cerrno rc = releases ? sysdb_lmdb::read_identity(machine) : sysdb_lmdb::have_identity(machine);
        rc != 0) {
        return cannot_change(rc);
    }
    if (machine.empty()) {
        return 0;
    }
    net::Loop loop;
    const Names names(settings.prefix, settings.node);
    Client client(loop, settings.address);
    NodeName name(loop, client, names, machine);
    int status = 0;
    // Another machine may use the name when the cluster is told so; a node can leave without.
    name.start(step, net::Loop::clock() + (releases ? 0 : kPatience), [&](const std::string &fault) {
        if (!fault.empty()) {
            std::fprintf(stderr, "aaa-sysdb-agent: %s\n", fault.c_str());
            status = 1;
        }
        loop.stop();
    });
    loop.run();
    return status;
}

int adopt(const Settings &settings) {
    std::optional<sysdb_lmdb::MirrorMark> mark;
    sysdb_lmdb::ChangedKeys changed;
    cerrno rc = sysdb_lmdb::read_mirror_mark(mark);
    if (rc == 0 && (!mark || mark->is_of_import() || mark->prefix != settings.prefix)) {
        rc = sysdb_lmdb::store_mirrored({}, {0, 0, settings.prefix}, changed);
    }
    return rc == 0 ? 0 : cannot_change(rc);
}

cerrno read_joined(Joined &joined) {
    std::optional<sysdb_lmdb::MirrorMark> mark;
    const cerrno rc = sysdb_lmdb::read_mirror_mark(mark);
    joined = {mark.has_value(), mark && mark->is_of_import(), mark ? mark->prefix : std::string()};
    return rc;
}

std::string prefix_fault(const Joined &joined, const Settings &settings) {
    if (!joined.joined || joined.prefix == settings.prefix) {
        return {};
    }
    return "agent.conf says prefix " + settings.prefix +
           ", but this node has joined the configuration below " + joined.prefix +
           "; set it back, or change to the other one: aaactl cluster join --prefix " + settings.prefix +
           " --replace";
}

int leave() {
    net::Descriptor lock;
    if (!hold_agents_lock(lock)) {
        std::fputs(
            "aaa-sysdb-agent: the agent of this node runs; end it first: systemctl stop aaa-sysdb-agent\n",
            stderr);
        return 1;
    }
    std::optional<sysdb_lmdb::MirrorMark> mark;
    cerrno rc = sysdb_lmdb::read_mirror_mark(mark);
    if (rc == 0 && mark) {
        rc = sysdb_lmdb::remove_mirror_mark();
    }
    if (rc != 0) {
        return cannot_change(rc);
    }
    std::puts(mark ? "the configuration is this node's own"
                   : "the configuration was this node's own already");
    return 0;
}

int probe(Settings settings) {
    net::Loop loop;
    const Names names(settings.prefix, settings.node);
    Client client(loop, std::move(settings.address));
    std::string machine;
    if (const cerrno rc = sysdb_lmdb::read_identity(machine); rc != 0) {
        return cannot_change(rc);
    }
    Probe probe(loop, client, names, machine);
    probe.start(net::Loop::clock() + kPatience / 2, [&loop] { loop.stop(); });
    loop.run();
    Json json = Json::parse(probe.text(), nullptr, false);
    std::optional<sysdb_lmdb::MirrorMark> mark;
    if (const cerrno rc = sysdb_lmdb::read_mirror_mark(mark); rc != 0) {
        return cannot_change(rc);
    }
    json["mark"] = mark_json(mark);
    print(json);
    return 0;
}

int print_status(Settings settings, const std::vector<std::string> &faults) {
    std::optional<sysdb_lmdb::MirrorMark> mark;
    const cerrno read = sysdb_lmdb::read_mirror_mark(mark);
    Answer answer;
    const cerrno asked =
        ask_agent({Ask::kStatus, static_cast<std::uint64_t>(now_ms() + kTimeForStatus), {}}, answer);
    Json json = asked == 0 && answer.code == 0 ? Json::parse(answer.text, nullptr, false) : Json();
    if (!json.is_object()) {
        const bool can_ask = faults.empty() && !settings.address.endpoints.empty();
        json = can_ask ? ask_cluster(settings) : Json{{"node", settings.node}, {"prefix", settings.prefix}};
        const bool is_refused = asked == SYSDB_ERR_ACCESS || answer.code != 0;
        const bool is_silent = asked == SYSDB_ERR_OUTCOME_UNKNOWN;
        json["state"] = is_refused ? "not allowed" : is_silent ? "no answer" : "no agent";
        json["agent"] = {{"running", is_refused || is_silent}};
        json["revision"] = mark && !mark->is_of_import() ? mark->revision : 0;
    }
    for (const char *list : {"servers", "members", "nodes"}) {
        if (!json.contains(list)) {
            json[list] = Json::array();
        }
    }
    json["database_fault"] = read;
    json["mark"] = mark_json(mark);
    json["settings_faults"] = faults;
    Joined joined;
    if (read_joined(joined) == 0 && faults.empty()) {
        if (const std::string fault = prefix_fault(joined, settings); !fault.empty()) {
            json["settings_faults"].push_back(fault);
        }
    }
    print(json);
    return 0;
}

}  // namespace sysdb_etcd
