// SPDX-License-Identifier: Apache-2.0
//
// Shared by the tests of the delivery: the whole of accounting on real files, and a
// sender that is scripted.
#pragma once

#include "service/accounting/support.hpp"

namespace accounting {

using Payloads = std::vector<std::string>;

class DestinationTest : public testing::Test {
  protected:
    Result record(const std::string &session, const std::string &payload,
                  const std::vector<std::string> &destinations = {"billing"}) {
        return service.record(
            sample(session, session.empty() ? Kind::kEvent : Kind::kInterim, destinations, payload));
    }
    // The payloads of what is being sent.
    static Payloads open(const ScriptedSender &sender) {
        Payloads payloads;
        for (const auto &sent : sender.open()) {
            payloads.push_back(sent.record->payload);
        }
        return payloads;
    }
    void wait_for_sent(ScriptedSender &sender, std::size_t count) {
        service.run_until([&] { return sender.log().size() >= count; });
    }
    std::string refused_file() { return temp.read(std::string("journal/") + kRefusedName); }

    TempDir temp;
    Service service{temp.path("journal")};
};

}  // namespace accounting
