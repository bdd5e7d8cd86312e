// SPDX-License-Identifier: Apache-2.0

#include "groups/radius_forms.hpp"

#include <charconv>
#include <cstdio>

#include "groups/request_kind.hpp"
#include "groups/server_text.hpp"
#include "radius/answer.hpp"

namespace service {

namespace {

using radius::Type;

// Service-Type (RFC 2865, 5.6).
constexpr std::uint32_t kLogin = 1;
constexpr std::uint32_t kFramed = 2;
constexpr std::uint32_t kAdministrative = 6;
constexpr std::uint32_t kNasPrompt = 7;
constexpr std::uint32_t kAuthenticateOnly = 8;
// NAS-Port-Type (RFC 2865, 5.41).
constexpr std::uint32_t kAsync = 0;
constexpr std::uint32_t kVirtual = 5;
// Acct-Authentic (RFC 2866, 5.6).
constexpr std::uint32_t kByRadius = 1;
constexpr std::uint32_t kByLocal = 2;
constexpr std::uint32_t kByRemote = 3;
// Acct-Terminate-Cause (RFC 2866, 5.10).
constexpr std::uint32_t kUserRequest = 1;
constexpr std::uint32_t kLostCarrier = 2;
constexpr std::uint32_t kNasReboot = 11;

constexpr std::uint32_t kLowestPrivilege = 1;

std::uint32_t terminate_cause(AccountingRecord::End end) {
    switch (end) {
        case AccountingRecord::End::kByProgram:
            return kUserRequest;
        case AccountingRecord::End::kProgramGone:
            return kLostCarrier;
        case AccountingRecord::End::kMachineRestarted:
            return kNasReboot;
    }
    return kUserRequest;
}

bool add_text(radius::Question &question, Type type, const std::string &text) {
    return text.empty() || question.add(type, text);
}

// The user and where he is.
bool add_place(radius::Question &question, const std::string &user, const std::string &terminal,
               const std::string &remote) {
    return add_text(question, Type::kUserName, user) && add_text(question, Type::kNasPortId, terminal) &&
           question.add_number(Type::kNasPortType, remote.empty() ? kAsync : kVirtual) &&
           add_text(question, Type::kCallingStationId, remote);
}

std::uint32_t service_type(std::uint32_t service, bool is_enable) {
    return is_enable                                             ? kAdministrative
           : service == AAA_SVC_PPP || service == AAA_SVC_FRAMED ? kFramed
                                                                 : kLogin;
}

bool is_framed(std::uint32_t service) {
    return service_type(service, false) == kFramed;
}

std::uint32_t authentic(std::uint32_t method) {
    return method == AAA_METHOD_RADIUS                               ? kByRadius
           : method == AAA_METHOD_LOCAL || method == AAA_METHOD_LINE ? kByLocal
                                                                     : kByRemote;
}

void add_attribute(RadiusRights &rights, std::uint32_t type, std::uint32_t number) {
    rights.attributes.push_back({type, std::string(reinterpret_cast<const char *>(&number), sizeof number)});
}

void add_attribute(RadiusRights &rights, std::uint32_t type, const std::string &text) {
    rights.attributes.push_back({type, text + '\0'});
}

std::optional<std::uint32_t> privilege_in(const std::string &text) {
    std::uint32_t level = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, level);
    return error == std::errc() && stop == end && level <= kHighestPrivilege ? std::optional(level)
                                                                             : std::nullopt;
}

// A server asks for a kind of service with it, and one that cannot be given is a refusal (RFC 2865,
// 5.6).
void read_service_type(std::uint32_t type, std::uint32_t service, RadiusRights &rights) {
    if (type == kAdministrative) {
        rights.privilege = kHighestPrivilege;
    } else if (type == kLogin || type == kNasPrompt) {
        rights.privilege = kLowestPrivilege;
    } else if (type != kAuthenticateOnly && !(type == kFramed && is_framed(service))) {
        rights.refusal = "the server gives Service-Type " + std::to_string(type) +
                         ", which is not one of a login; have it send 1, 6 or 7, or none";
    }
}

void read_mapped(const radius::VendorMap::Value &value, RadiusRights &rights) {
    if (value.name == "privilege") {
        rights.privilege = privilege_in(value.text);
        if (!rights.privilege) {
            rights.refusal = "the server gives the privilege level \"" + text_for_log(value.text) +
                             "\", which is not 0 to 15";
        }
    } else if (value.name == "group") {
        add_attribute(rights, AAA_USERGROUPS_ATTR, value.text);
    } else if (value.name == "task-group") {
        add_attribute(rights, AAA_TASKGROUP_ATTR, value.text);
    }
}

}  // namespace

std::optional<radius::Question> radius_login(const Question &question, std::string &error) {
    radius::Question request = radius::Question::access();
    if (question.password->text().size() > radius::kMaxPassword) {
        error =
            "the password is longer than the " + std::to_string(radius::kMaxPassword) + " bytes of RADIUS";
        return std::nullopt;
    }
    if (!add_place(request, question.user, question.terminal, question.remote) ||
        !request.add_number(Type::kServiceType, service_type(question.service, is_enable(question)))) {
        error =
            "the user name, terminal or remote address is longer than the 253 bytes of a RADIUS attribute";
        return std::nullopt;
    }
    request.set_password(question.password->text());
    return request;
}

std::optional<radius::Question> radius_record(const AccountingRecord &record, std::uint32_t delay,
                                              std::string &error) {
    using Kind = AccountingRecord::Kind;
    char session[9];
    std::snprintf(session, sizeof session, "%08x", record.session);
    radius::Accounting event;
    event.status = record.kind == Kind::kStart  ? radius::AccountingStatus::kStart
                   : record.kind == Kind::kStop ? radius::AccountingStatus::kStop
                                                : radius::AccountingStatus::kInterim;
    event.session_id = session;
    event.event_time = record.time;
    event.delay = delay;
    event.classes = record.classes;
    event.session_time = record.elapsed;
    if (record.kind == Kind::kStop) {
        event.terminate_cause = terminate_cause(record.end);
    }
    radius::Question request = radius::Question::accounting(std::move(event));
    if (!add_place(request, record.user, record.terminal, record.remote) ||
        !request.add_number(Type::kServiceType, service_type(record.service, false)) ||
        !request.add_number(Type::kAcctAuthentic, authentic(record.method))) {
        error =
            "the user name, terminal or remote address is longer than the 253 bytes of a RADIUS attribute";
        return std::nullopt;
    }
    return request;
}

RadiusRights radius_rights(const radius::Answer &accept, const radius::VendorMap &map,
                           std::uint32_t service) {
    RadiusRights rights;
    if (const auto type = accept.service_type()) {
        read_service_type(*type, service, rights);
    }
    const radius::VendorMap::Values mapped = map.read(accept.attributes());
    for (const radius::VendorMap::Value &value : mapped.values) {
        read_mapped(value, rights);
    }
    if (!mapped.faults.empty()) {
        rights.refusal = mapped.faults.front();
    }
    if (const auto seconds = accept.session_timeout()) {
        add_attribute(rights, AAA_TIMEOUT_ATTR, *seconds);
    }
    if (const auto seconds = accept.idle_timeout()) {
        add_attribute(rights, AAA_IDLETIME_ATTR, *seconds);
    }
    return rights;
}

}  // namespace service
