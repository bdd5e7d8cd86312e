// SPDX-License-Identifier: Apache-2.0

#include "groups/groups.hpp"

#include <ctime>
#include <utility>

#include "groups/radius_backend.hpp"
#include "groups/tacacs_backend.hpp"

namespace service {

void Groups::add_to(Backends &backends) {
    backends.add(Protocol::kRadius, make_radius_backend(context_, logins_));
    backends.add(Protocol::kTacacs, make_tacacs_backend(context_, logins_));
}

void Groups::use(const Snapshot &snapshot) {
    clients_.use(snapshot);
    health_.keep_only([this](const std::string &name) { return clients_.has_health(name); });
    probes_.keep_only(clients_);
}

std::optional<AccountingRecord> Groups::record_of(const Question &question) {
    return service::record_of(question, logins_, context_.loop.now(), std::time(nullptr));
}

std::unique_ptr<Attempt> Groups::send(const Question &question, const Group &group,
                                      const AccountingRecord &record, std::uint32_t delay,
                                      Backend::Done done) {
    return group.protocol == Protocol::kRadius
               ? send_radius_record(context_, question, group, record, delay, std::move(done))
               : send_tacacs_record(context_, question, group, record, std::move(done));
}

}  // namespace service
