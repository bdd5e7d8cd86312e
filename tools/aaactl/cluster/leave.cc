// SPDX-License-Identifier: Apache-2.0
//
// cluster leave. The agent ends first: it would make the database a mirror again.

#include <memory>

#include "cluster/agent_program.hpp"
#include "cluster/cluster.hpp"
#include "commits/recording.hpp"
#include "service/control_client.hpp"

namespace aaactl {
namespace {

struct LeaveOptions {
    std::string settings = kAgentSettings;
    bool force = false;
};

// The commit would wait on this node and in the cluster, each without the other: one is confirmed, and the
// other one goes back.
void refuse_while_waiting() {
    try {
        Database database(Database::Use::reading);
        if (database.connection(kCfgTree) == 0) {
            return;
        }
        const history::Store store = store_of(database);
        aaactl::refuse_while_waiting(store, store.head(),
                                     "; with --force this node leaves all the same, and the commit waits on "
                                     "it for a confirmation of its own");
    } catch (const history::Error &) {  // a node whose history is damaged can leave
    }
}

ExitCode leave(Output &out, const LeaveOptions &options) {
    const std::string &settings = options.settings;
    const Json before = ask_agent(settings, "--status", settings);
    if (before["mark"].is_object() && !options.force) {
        refuse_while_waiting();
    }
    if (is_managed(settings)) {
        manage({"disable", "--quiet", "--now", kAgentUnit});
    } else if (before["agent"]["running"] == Json(true)) {
        throw Failure(ExitCode::negative,
                      "the agent runs; " + how_to_end_agent(before) + "; then repeat the command");
    }
    const Ended ended = run_agent(settings, "--leave");
    if (ended.status != 0) {
        throw Failure(ExitCode::failed, messages_of(ended));
    }
    const bool had_joined = before["mark"].is_object();
    if (had_joined) {
        run_agent(settings, "--release-name");  // the cluster need not be there
    }
    out.result({{"left", had_joined}}, [&] {
        out.line(had_joined ? "This node has left the cluster, and keeps the configuration as its own."
                            : "This node has not joined a cluster.");
    });
    return ExitCode::ok;
}

}  // namespace

void add_cluster_leave(Command cluster) {
    auto options = std::make_shared<LeaveOptions>();
    Command sub = cluster.command("leave", "Keep the configuration as this node's own from now on",
                                  [options](Output &out) { return leave(out, *options); });
    sub.flag("--force", options->force, "Leave also while a commit waits for its confirmation");
    add_settings_option(sub, options->settings);
    sub.footer(
        "The agent's settings stay, so that \"aaactl cluster join\" needs none. The cluster and the other "
        "nodes "
        "are\n"
        "not changed, and need not be there. While a commit waits for its confirmation, nothing is done: "
        "exit status 1.\n"
        "JSON: {left: false when the node had not joined}\n"
        "Example: aaactl cluster leave");
}

}  // namespace aaactl
