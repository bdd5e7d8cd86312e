// SPDX-License-Identifier: Apache-2.0
//
// Figures that are kept elsewhere, as metrics. Each function writes all series of its kind
// anew, so that nothing stays of a server or group that has gone.
#pragma once

#include <optional>

#include "accounting/accounting.hpp"
#include "groups/groups.hpp"
#include "journal/recorder.hpp"
#include "metrics/registry.hpp"

namespace service {

// "login" or "accounting", the label "use" of servers.
const char *use_word(Use use);

void write_servers(metrics::Registry &registry, Groups &groups, net::Time now);
// Null while no journal is open.
void write_journal(metrics::Registry &registry, const std::optional<accounting::Figures> &figures,
                   const Recorder::Counts &counts);

}  // namespace service
