// SPDX-License-Identifier: Apache-2.0
//
// Questions and records in the form of RADIUS, and what its answers mean.
#pragma once

#include <optional>
#include <string>

#include "backends/backend.hpp"
#include "groups/record.hpp"
#include "radius/question.hpp"
#include "radius/vendor_map.hpp"

namespace service {

// A login with its password. Null, with a reason, when it does not fit into a packet.
std::optional<radius::Question> radius_login(const Question &question, std::string &error);
// An accounting record whose event was `delay` seconds ago. Null, with a reason, when it does
// not fit.
std::optional<radius::Question> radius_record(const AccountingRecord &record, std::uint32_t delay,
                                              std::string &error);

// What an Access-Accept gives: the privilege level, and attributes for the client.
struct RadiusRights {
    std::optional<std::uint32_t> privilege;
    std::vector<Attribute> attributes;
    std::string refusal;  // why the accept must be taken for a reject; empty otherwise
};
RadiusRights radius_rights(const radius::Answer &accept, const radius::VendorMap &map, std::uint32_t service);

}  // namespace service
