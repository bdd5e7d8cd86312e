// SPDX-License-Identifier: Apache-2.0
//
// Certificates of servers and nodes for one test, and clusters that use them.
#pragma once

#include <string>

#include "etcd/cluster.hpp"
#include "net/certificates.hpp"

namespace etcd_test {

// Certificates for one test, in files.
class Certificates {
  public:
    Certificates() : authority_(net_test::make_identity({"test CA", "", true})) {
        ca = files_.write("ca.pem", authority_.certificate_pem());
        write("server", {"server", "IP:127.0.0.1", false, -3600, 3600, &authority_});
        write("expired", {"server", "IP:127.0.0.1", false, -7200, -3600, &authority_});
        write("elsewhere", {"server", "IP:127.0.0.2", false, -3600, 3600, &authority_});
        write("node", {"", "", false, -3600, 3600, &authority_});
        const net_test::Identity other = net_test::make_identity({"other CA", "", true});
        other_ca = files_.write("other-ca.pem", other.certificate_pem());
        write("stranger", {"", "", false, -3600, 3600, &other});
    }
    std::string certificate(const std::string &name) const { return files_.path(name + ".pem"); }
    std::string key(const std::string &name) const { return files_.path(name + ".key"); }
    std::string password(const std::string &text) const {
        return files_.write("password", text + "\n", 0640);
    }

    const TempDir &files() const { return files_; }

    std::string ca;
    std::string other_ca;

  private:
    void write(const std::string &name, const net_test::Wanted &wanted) const {
        const net_test::Identity identity = net_test::make_identity(wanted);
        files_.write(name + ".pem", identity.certificate_pem(), 0644);
        files_.write(name + ".key", identity.key_pem(), 0600);
    }

    TempDir files_;
    net_test::Identity authority_;
};

inline Cluster::Options options_with(const Certificates &certificates, const std::string &server,
                                     bool of_clients = false, std::size_t members = 1) {
    Cluster::Options options;
    options.members = members;
    options.scheme = "https";
    options.certificate = certificates.certificate(server);
    options.key = certificates.key(server);
    options.authorities = of_clients ? certificates.ca : "";
    return options;
}

}  // namespace etcd_test
