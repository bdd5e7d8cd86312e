// SPDX-License-Identifier: Apache-2.0

#include "journal/carrier.hpp"

#include <algorithm>
#include <utility>

#include "journal/forms.hpp"

namespace service {

namespace {

// The time of all tries at all servers, and some more.
net::Time patience_for(const std::vector<ServerClientPtr> &servers) {
    net::Time patience = net::kSecond;
    for (const ServerClientPtr &server : servers) {
        patience += server->longest_wait() / 10 * 12;
    }
    return patience;
}

}  // namespace

class Carrier::GroupSender : public accounting::Sender {
  public:
    GroupSender(Carrier &carrier, std::string destination)
        : carrier_(carrier), destination_(std::move(destination)) {}
    void send(accounting::RecordPointer record, std::uint32_t delay, Done done) override {
        carrier_.send(destination_, *record, delay, done);
    }

  private:
    Carrier &carrier_;
    const std::string destination_;
};

Carrier::~Carrier() = default;

std::shared_ptr<accounting::Sender> Carrier::sender(const std::string &destination) {
    return std::make_shared<GroupSender>(*this, destination);
}

void Carrier::use(SnapshotPtr snapshot) {
    snapshot_ = std::move(snapshot);
    by_destination_.clear();
    // A name stands for the group of the first protocol that has one.
    for (const Protocol protocol : kProtocols) {
        for (const auto &group : snapshot_->groups) {
            if (group->protocol == protocol) {
                by_destination_.try_emplace(destination_of(*group), group);
            }
        }
    }
}

std::shared_ptr<const Group> Carrier::group(const std::string &destination) const {
    const auto found = by_destination_.find(destination);
    return found != by_destination_.end() && !found->second->servers.empty() ? found->second : nullptr;
}

void Carrier::send(const std::string &destination, const accounting::Record &record, std::uint32_t delay,
                   const accounting::Sender::Done &done) {
    const auto group = this->group(destination);
    const auto content = unpack_record(record.payload);
    if (group == nullptr) {
        done(accounting::Outcome::kUnavailable, "it has no usable server");
        return;
    }
    if (!content) {
        done(accounting::Outcome::kRefused, "this version of the service cannot read the record");
        return;
    }
    Question question;
    question.id = content->id;
    question.function = Function::kAccounting;
    question.user = content->user;
    question.snapshot = snapshot_;
    question.deadline = loop_.now() + patience_for(groups_.clients(*group));
    const std::uint64_t number = ++last_;
    auto attempt =
        groups_.send(question, *group, *content, delay, [this, number, done](const Outcome &outcome) {
            const auto over = under_way_.extract(number);  // until here: it is the caller
            switch (outcome.kind) {
                case Outcome::Kind::kPass:
                    done(accounting::Outcome::kDelivered, "");
                    break;
                case Outcome::Kind::kFail:
                    done(accounting::Outcome::kRefused, outcome.reason);
                    break;
                default:
                    done(accounting::Outcome::kUnavailable, outcome.reason);
                    break;
            }
        });
    under_way_.emplace(number, std::move(attempt));
}

}  // namespace service
