// SPDX-License-Identifier: Apache-2.0

#include "control/request.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include "control/json.hpp"

namespace service {

namespace {

using Kind = ControlRequest::Kind;

constexpr Kind kKinds[] = {Kind::kStatus,     Kind::kServers, Kind::kSessions,
                           Kind::kAccounting, Kind::kTrace,   Kind::kCapture};

std::optional<LoginId> read_id(const std::string &text) {
    if (text.empty() || text.size() > 16 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoull(text, nullptr, 16);
}

template <typename T, typename Field>
bool take(const JsonMember &member, Field &field, std::string &error) {
    const T *value = std::get_if<T>(&member.value);
    if (value == nullptr) {
        error = "the member \"" + member.name + "\" is of another type";
        return false;
    }
    field = *value;
    return true;
}

bool take_id(const JsonMember &member, std::optional<LoginId> &field, std::string &error) {
    std::string text;
    if (!take<std::string>(member, text, error)) {
        return false;
    }
    field = read_id(text);
    if (!field) {
        error = "an id has 1 to 16 hexadecimal digits";
    }
    return field.has_value();
}

bool take_version(const JsonMember &member, std::string &error) {
    std::uint64_t version = 0;
    if (take<std::uint64_t>(member, version, error) && version != kControlVersion) {
        error = "this service knows version 1 of requests only";
    }
    return error.empty();
}

bool take_kind(const JsonMember &member, Kind &field, std::string &error) {
    std::string word;
    if (!take<std::string>(member, word, error)) {
        return false;
    }
    const auto found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                    [&](Kind kind) { return word == request_word(kind); });
    if (found == std::end(kKinds)) {
        error = "there is no such request; use status, servers, sessions, accounting, trace or capture";
        return false;
    }
    field = *found;
    return true;
}

bool take_of_trace(const JsonMember &member, ControlRequest &request, std::string &error) {
    if (member.name == "user") {
        return take<std::string>(member, request.user, error);
    }
    if (member.name == "id") {
        return take_id(member, request.id, error);
    }
    if (member.name == "mine") {
        return take<bool>(member, request.mine, error);
    }
    if (member.name == "after") {
        return take<std::uint64_t>(member, request.after, error);
    }
    if (member.name == "seconds") {
        return take<std::uint64_t>(member, request.seconds, error);
    }
    if (member.name == "live") {
        return take<bool>(member, request.live, error);
    }
    // A misspelt filter would show what was not asked for.
    error = "a member is not known; a trace has user, id, mine, after, seconds and live";
    return false;
}

bool take_of_capture(const JsonMember &member, ControlRequest &request, std::string &error) {
    if (member.name == "user") {
        return take<std::string>(member, request.user, error);
    }
    if (member.name == "secrets") {
        return take<bool>(member, request.secrets, error);
    }
    if (member.name == "servers") {
        return take<bool>(member, request.servers, error);
    }
    if (member.name == "keys") {
        return take<bool>(member, request.keys, error);
    }
    error = "a member is not known; a capture has user, secrets, servers and keys";
    return false;
}

bool take_member(const JsonMember &member, ControlRequest &request, std::string &error) {
    switch (request.kind) {
        case Kind::kTrace:
            return take_of_trace(member, request, error);
        case Kind::kCapture:
            return take_of_capture(member, request, error);
        default:
            error = "only a trace and a capture have further members";
            return false;
    }
}

// What a packet to a server says of the user is for the server to read.
std::string contradiction(const ControlRequest &request) {
    if (request.keys && !request.servers) {
        return "keys are those of servers: ask for servers too";
    }
    return request.servers && request.user ? "packets of servers cannot be chosen by user: leave out the user"
                                           : "";
}

}  // namespace

const char *request_word(Kind kind) {
    switch (kind) {
        case Kind::kStatus:
            return "status";
        case Kind::kServers:
            return "servers";
        case Kind::kSessions:
            return "sessions";
        case Kind::kAccounting:
            return "accounting";
        case Kind::kTrace:
            return "trace";
        case Kind::kCapture:
            return "capture";
    }
    return "?";
}

std::optional<ControlRequest> read_control_request(std::string_view line, std::string &error) {
    const auto members = read_flat_object(line, error);
    if (!members) {
        return std::nullopt;
    }
    ControlRequest request;
    bool has_kind = false;
    // The kind decides what the others may be, wherever it is.
    for (const JsonMember &member : *members) {
        if (member.name == "request") {
            has_kind = true;
            if (!take_kind(member, request.kind, error)) {
                return std::nullopt;
            }
        }
    }
    if (!has_kind) {
        error = "the member \"request\" is missing";
        return std::nullopt;
    }
    for (const JsonMember &member : *members) {
        if (member.name != "request" &&
            !(member.name == "version" ? take_version(member, error) : take_member(member, request, error))) {
            return std::nullopt;
        }
    }
    error = contradiction(request);
    return error.empty() ? std::optional(std::move(request)) : std::nullopt;
}

}  // namespace service
