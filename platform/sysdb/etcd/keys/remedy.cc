// SPDX-License-Identifier: Apache-2.0
//
// Faults are recognised by words of their texts: neither the servers nor libcurl have a number for
// each. An unknown text has no remedy, and is shown as it is.

#include "keys/remedy.hpp"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace sysdb_etcd {
namespace {

struct Remedy {
    std::string_view words;  // in lower case
    std::string_view text;   // PREFIX is replaced
};

// The first row that fits counts.
constexpr Remedy kRemedies[] = {
    {"permission denied",
     "give the user's role the rights: etcdctl role grant-permission ROLE readwrite --prefix PREFIX/"},
    {"authentication failed",
     "correct user and password-file in agent.conf; etcdctl user passwd USER sets a "
     "new password"},
    {"user name is empty", "the cluster asks for a user: set user and password-file in agent.conf"},
    {"authentication is not enabled",
     "remove user and password-file from agent.conf, or on the cluster: etcdctl auth enable"},
    {"no configuration below",
     "make the configuration of one node the cluster's: aaactl cluster join --import; or restore the "
     "cluster's "
     "backup"},
    {"certificate",
     "compare ca-file, certificate-file and key-file in agent.conf with the server's: openssl "
     "s_client -connect HOST:PORT -CAfile FILE"},
    {"ssl", "compare the endpoints in agent.conf with the servers: https with TLS, http without"},
    {"could not resolve",
     "name the server by its address in agent.conf, or correct the name: getent hosts HOST"},
    {"couldn't resolve",
     "name the server by its address in agent.conf, or correct the name: getent hosts HOST"},
    {"refused", "see on the server whether etcd runs, and where it listens: systemctl status etcd"},
    {"failed to connect", "see on the server whether etcd runs, and where it listens: systemctl status etcd"},
    {"couldn't connect", "see on the server whether etcd runs, and where it listens: systemctl status etcd"},
    {"no leader", "start the other members: more than half of them must run; etcdctl member list names them"},
    {"timed out", "see whether the servers run and reach each other: etcdctl endpoint health --cluster"},
    {"timeout", "see whether the servers run and reach each other: etcdctl endpoint health --cluster"},
    {"larger than a database",
     "compare prefix in agent.conf with: etcdctl get --prefix --keys-only PREFIX/; or set AAA_SYSDB_MAP_MIB "
     "for the "
     "agent and all programs, in /etc/environment and the unit"},
    {"takes no changes", "make room on the disk of the database: df /var/lib/aaa"},
    {"database space exceeded",
     "compact and defragment the cluster: etcdctl compact REVISION; etcdctl defrag; "
     "etcdctl alarm disarm"},
    {"http status 404", "the server is not etcd, or older than version 3.4; correct endpoint in agent.conf"},
};

}  // namespace

std::string remedy_of(std::string_view fault, const std::string &prefix) {
    std::string lower(fault);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto found = std::find_if(std::begin(kRemedies), std::end(kRemedies), [&](const Remedy &each) {
        return lower.find(each.words) != std::string::npos;
    });
    if (found == std::end(kRemedies)) {
        return {};
    }
    constexpr std::string_view kPlace = "PREFIX";
    std::string text(found->text);
    if (const auto at = text.find(kPlace); at != std::string::npos) {
        text.replace(at, kPlace.size(), prefix);
    }
    return text;
}

}  // namespace sysdb_etcd
