// SPDX-License-Identifier: Apache-2.0
//
// The first configuration of a cluster: that of this node. It is sent in several transactions;
// the key of the format comes last, and no agent uses the configuration without it.
//
// An import is claimed first: one transaction writes a key that must not be there, with a lease, which is
// renewed while the import lasts. Each transaction compares the claim's revision, so that at most one import
// writes below a prefix at a time, and one whose claim has ended writes nothing more.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gateway/client.hpp"
#include "keys/import_record.hpp"
#include "keys/names.hpp"
#include "mirror_mark.hpp"

namespace sysdb_etcd {

class Import {
  public:
    struct Outcome {
        std::string fault;     // for people; empty: the cluster has this node's configuration
        bool refused = false;  // the cluster's configuration is another node's, or is about to be
    };

    Import(net::Loop &loop, Client &client, Names names, std::string machine);

    void start(net::Time until, std::function<void(const Outcome &)> done);
    std::size_t items() const { return items_.size(); }

  private:
    struct Item {
        std::string key;
        std::string value;
    };

    std::string read_own();
    void look();
    void take_look(const Reply &reply);
    void ask_lease();
    void put_claim();
    void take_claim(const Reply &reply);
    void send_next();
    void take_sent(const Reply &reply);
    void take_other_claim(const TxnReply &result);
    void take_end(std::uint64_t cluster, std::uint64_t revision);
    TxnRequest claimed_request() const;
    std::string claim_text(bool complete);
    std::string text_of_other(const ImportRecord *record, bool in_force) const;
    void again(void (Import::*step)(), const Reply &reply);
    void end(const std::string &fault);
    void refuse(const ImportRecord *record, bool in_force);

    net::Loop &loop_;
    Client &client_;
    const Names names_;
    ImportRecord claim_;
    net::Timer pause_;
    net::Time until_ = 0;
    std::function<void(const Outcome &)> done_;
    void (Import::*next_step_)() = nullptr;
    std::vector<Item> items_;
    std::uint64_t claim_revision_ = 0;  // of the claim's key as seen, or as written by this process
    std::uint64_t lease_ = 0;
    net::Time renew_at_ = 0;
    std::size_t sent_ = 0;
    std::size_t sending_ = 0;
    bool claimed_ = false;
    bool cleared_ = false;
    bool finishing_ = false;
    bool has_mark_ = false;  // the database's mark says that an import has begun
};

}  // namespace sysdb_etcd
