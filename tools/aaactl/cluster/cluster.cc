// SPDX-License-Identifier: Apache-2.0

#include "cluster/cluster.hpp"

#include "cli/commands.hpp"
#include "cluster/agent_settings.hpp"
#include "database/sysdb_values.hpp"

namespace aaactl {

void note_servers_in_clear(Output &out, const std::vector<std::string> &servers) {
    const std::vector<std::string> in_clear = servers_in_clear(servers);
    if (in_clear.empty()) {
        return;
    }
    std::string named;
    for (const std::string &server : in_clear) {
        named += (named.empty() ? "" : ", ") + escaped(server);
    }
    std::string all;
    for (const std::string &server : servers) {
        const size_t host = server.find("://");
        all += (all.empty() ? "https://" : ",https://") +
               (host == std::string::npos ? server : server.substr(host + 3));
    }
    out.note(
        "aaactl: " + named +
        ": no TLS, so others on the network can read and change the configuration; when the servers have "
        "certificates: aaactl cluster join " +
        shell_word(escaped(all)) + " --ca FILE");
}

void add_settings_option(Command sub, std::string &file) {
    sub.option("--config", file, "The agent's settings").type("FILE").shows_default();
}

void add_cluster(Command root) {
    Command cluster =
        root.group("cluster", "Share the configuration with other nodes: join, leave and show a cluster");
    cluster.footer(
        "The nodes of an etcd cluster have one configuration. An agent on each node keeps its database equal "
        "to the\n"
        "cluster's: all programs and commands, such as sysdb, sg and commit, work as without one.\n"
        "\"aaactl sysdb dump -a --show-secrets\" is the backup of the cluster's configuration, on any node.");
    add_cluster_join(cluster);
    add_cluster_leave(cluster);
    add_cluster_status(cluster);
}

}  // namespace aaactl
