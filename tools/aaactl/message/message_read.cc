// SPDX-License-Identifier: Apache-2.0
//
// From bytes to parts, by a kind that is given or detected: each kind is tried, and
// the first that fits to the last byte is taken.

#include <algorithm>

#include "aaa/session_packets.h"
#include "cli/output.hpp"
#include "message/message_reader.hpp"

namespace aaactl {
namespace {

constexpr KindHelp kHelp[] = {
    {"auto", "the kind that fits: a packed list, a session packet, a request, a reply"},
    {"list", "a packed list"},
    {"request", "a request of a classic message: header, blocks, list"},
    {"config", "the same, of types 17 to 23 only"},
    {"server-connect", "the server's side of connect"},
    {"server-disconnect", "the server's side of disconnect"},
    {"reply", "the kind of reply that fits; the header does not say which it is"},
    {"reply-generic", "reply to authentication, authorization and most others"},
    {"reply-async-authentication", "reply to the asynchronous form; no list"},
    {"reply-async-authorization", "the same, its status in host order"},
    {"reply-accounting", "reply to accounting, ping, ikepost and disconnect"},
    {"reply-callback", "reply to get callback"},
    {"reply-config", "reply to a configuration message"},
    {"reply-connect", "reply to connect"},
    {"reply-data", "reply to get task map and user group"},
    {"session", "a session packet, request or response, and its list"},
    {"session-request", "a session request and its list"},
    {"session-response", "a session response and its list"},
};

Message read_as(std::string_view bytes, const Kind &kind) {
    Reader reader(bytes, kind.name);
    kind.read(reader);
    return reader.take();
}

bool whole(const Message &message) {
    if (message.fault || message.parts.empty()) {
        return false;
    }
    const auto *last = std::get_if<Bytes>(&message.parts.back().content);
    return last == nullptr || last->name != "trailing";
}

// A malformed list must not be taken for a request, whose texts may be anything:
// its secrets would be shown as text.
bool looks_like_list(std::string_view bytes) {
    const auto zero = [&](size_t at, size_t size) {
        return bytes.substr(at, size).find_first_not_of('\0') == std::string_view::npos;
    };
    if (bytes.size() < kListHeader) {
        return false;
    }
    constexpr size_t kTotal = offsetof(avlist, reserved0);
    constexpr size_t kAddresses = offsetof(avlist, avpair_first_buf);
    return network_word(bytes, kTotal) == bytes.size() ||
           (!zero(kTotal, sizeof(avlist::reserved0)) && zero(kTotal, 1) &&
            zero(kAddresses, offsetof(avlist, av_name) - kAddresses) &&
            zero(offsetof(avlist, pad55), sizeof(avlist::pad55)));
}

// A key of 0 means a request: types with data have the same size in both directions.
bool is_session_response_first(std::string_view bytes) {
    return bytes.size() >= offsetof(aaa_sess_hdr_t, type) &&
           host_word(bytes, offsetof(aaa_sess_hdr_t, marker)) == kSessionMarker &&
           host_word(bytes, offsetof(aaa_sess_hdr_t, key)) != 0;
}

// How far a failed attempt could read is a measure of how well the kind fits.
bool better(const Message &candidate, const Message &best) {
    if (candidate.fault.has_value() != best.fault.has_value()) {
        return !candidate.fault;
    }
    return candidate.fault && candidate.fault->offset > best.fault->offset;
}

// No kind fits, so blocks and texts may be anything.
void hide_bytes(Message &message) {
    for (Part &part : message.parts) {
        if (auto *bytes = std::get_if<Bytes>(&part.content)) {
            bytes->leftover = true;
        }
    }
}

Message read_group(std::string_view bytes, std::string_view group) {
    std::vector<Kind> candidates;
    for (const Kind &kind : kinds()) {
        if (group == "auto" ? kind.detected : group == kind.group) {
            candidates.push_back(kind);
        }
    }
    if (is_session_response_first(bytes)) {
        std::stable_partition(candidates.begin(), candidates.end(), [](const Kind &kind) {
            return std::string_view(kind.name) == "session-response";
        });
    }
    std::optional<Message> best;
    for (const Kind &kind : candidates) {
        Message message = read_as(bytes, kind);
        if (whole(message)) {
            return message;
        }
        if (!best || better(message, *best)) {
            best = std::move(message);
        }
    }
    if (best->fault) {
        hide_bytes(*best);
    }
    return std::move(*best);
}

}  // namespace

std::span<const KindHelp> message_kinds() {
    return kHelp;
}

Message read_message(std::string_view bytes, std::string_view kind) {
    for (const Kind &known : kinds()) {
        if (kind == known.name) {
            return read_as(bytes, known);
        }
    }
    if (kind != "auto" && kind != "reply" && kind != "session") {
        throw Failure(ExitCode::bad_input, "no kind of message is called '" + escaped(kind) + "'");
    }
    return read_group(bytes, kind == "auto" && looks_like_list(bytes) ? "list" : kind);
}

}  // namespace aaactl
