// SPDX-License-Identifier: Apache-2.0
//
// The groups of all protocols as methods, with their accounting records on disk first.
#pragma once

#include <map>
#include <memory>

#include "backends/backend.hpp"

namespace service {

class Recorder;

class JournalBackend : public Backend {
  public:
    explicit JournalBackend(Recorder &recorder) : recorder_(recorder) {}

    // What answers for the groups of a protocol.
    void add(Protocol protocol, std::shared_ptr<Backend> groups) { groups_[protocol] = std::move(groups); }

    std::unique_ptr<Attempt> authenticate(const Question &question, std::shared_ptr<Dialogue> dialogue,
                                          Done done) override;
    std::unique_ptr<Attempt> authorize(const Question &question, Done done) override;
    std::unique_ptr<Attempt> account(const Question &question, Done done) override;
    // One record has all groups of a broadcast as destinations.
    bool takes_for_several(const Question &question) const override;
    bool is_remote() const override { return true; }

  private:
    Backend &groups_of(const Question &question) const {
        return *groups_.at(question.method.group->protocol);
    }

    Recorder &recorder_;
    std::map<Protocol, std::shared_ptr<Backend>> groups_;
};

}  // namespace service
