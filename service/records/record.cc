// SPDX-License-Identifier: Apache-2.0
//
// Bodies of records.
#include "records/record.hpp"

#include <algorithm>
#include <utility>

#include "records/bytes.hpp"

namespace accounting {

namespace {

bool has_control_characters(std::string_view name) {
    return std::any_of(name.begin(), name.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

bool is_destination(std::string_view name) {
    return !name.empty() && name.size() <= kMaxDestinationName && !has_control_characters(name);
}

bool is_kind(std::uint8_t kind) {
    return kind >= static_cast<std::uint8_t>(Kind::kStart) && kind <= static_cast<std::uint8_t>(Kind::kEvent);
}

}  // namespace

std::string fault_of(const Record &record) {
    if (!is_kind(static_cast<std::uint8_t>(record.kind))) {
        return "the kind is unknown";
    }
    if (record.session.size() > kMaxSession) {
        return "the name of the session has more than " + std::to_string(kMaxSession) + " bytes";
    }
    if (record.session.empty() && record.kind != Kind::kEvent) {
        return "a record of a session needs the session's name";
    }
    if (record.payload.size() > kMaxPayload) {
        return "the record has more than " + std::to_string(kMaxPayload) + " bytes";
    }
    if (record.destinations.empty() || record.destinations.size() > kMaxDestinations) {
        return "a record has 1 to " + std::to_string(kMaxDestinations) + " destinations";
    }
    for (auto name = record.destinations.begin(); name != record.destinations.end(); ++name) {
        if (!is_destination(*name)) {
            return "the name of a destination has 1 to " + std::to_string(kMaxDestinationName) +
                   " bytes, none of them a control character";
        }
        if (std::find(record.destinations.begin(), name, *name) != name) {
            return "the destination " + *name + " is named twice";
        }
    }
    return {};
}

std::size_t body_size(const Record &record) {
    std::size_t size = kBodyHead + record.session.size() + record.payload.size();
    for (const std::string &name : record.destinations) {
        size += 1 + name.size();
    }
    return size;
}

void encode_body(const Record &record, std::string &out) {
    put(out, static_cast<std::uint8_t>(record.kind));
    put(out, static_cast<std::uint8_t>(record.destinations.size()));
    put(out, static_cast<std::uint16_t>(record.session.size()));
    put(out, record.process.pid);
    put(out, record.process.started);
    out.append(reinterpret_cast<const char *>(record.arrival.boot.data()), record.arrival.boot.size());
    put(out, record.arrival.wall);
    put(out, record.arrival.uptime);
    out += record.session;
    for (const std::string &name : record.destinations) {
        put(out, static_cast<std::uint8_t>(name.size()));
        out += name;
    }
    out += record.payload;
}

bool decode_body(std::string_view bytes, Record &record) {
    ByteReader in(bytes);
    Record read;
    read.sequence = record.sequence;
    const auto kind = in.number<std::uint8_t>();
    const auto destinations = in.number<std::uint8_t>();
    const auto session = in.number<std::uint16_t>();
    read.process.pid = in.number<std::uint32_t>();
    read.process.started = in.number<std::uint64_t>();
    const std::string_view boot = in.text(read.arrival.boot.size());
    read.arrival.wall = in.number<std::int64_t>();
    read.arrival.uptime = in.number<std::int64_t>();
    read.session = in.text(session);
    if (!in.fine() || !is_kind(kind)) {
        return false;
    }
    read.kind = static_cast<Kind>(kind);
    std::copy(boot.begin(), boot.end(), read.arrival.boot.begin());
    for (unsigned i = 0; i < destinations; ++i) {
        read.destinations.emplace_back(in.text(in.number<std::uint8_t>()));
    }
    read.payload = in.rest();
    if (!in.fine() || !fault_of(read).empty()) {
        return false;
    }
    record = std::move(read);
    return true;
}

}  // namespace accounting
