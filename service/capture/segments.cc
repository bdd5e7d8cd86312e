// SPDX-License-Identifier: Apache-2.0

#include "capture/segments.hpp"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace service {

namespace {

constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;
constexpr std::uint8_t kFin = 1, kSyn = 2, kPush = 8, kAck = 16;
constexpr std::size_t kMostInSegment = 32768;  // a packet has at most 65535 bytes
constexpr std::uint8_t kHops = 64;

void put8(std::string &out, unsigned value) {
    out += static_cast<char>(value);
}
void put16(std::string &out, unsigned value) {
    put8(out, value >> 8 & 0xff);
    put8(out, value & 0xff);
}
void put32(std::string &out, std::uint32_t value) {
    put16(out, value >> 16);
    put16(out, value & 0xffff);
}

// The sum of RFC 1071.
std::uint16_t checksum(std::string_view bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(byte) << 8 : byte;
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

// The bytes of an address. A socket that says none has zeros in the family of its server.
std::string host_bytes(const net::Address &address, int family) {
    std::string bytes(family == AF_INET6 ? 16 : 4, '\0');
    if (address.family() != family) {
        return bytes;
    }
    if (family == AF_INET6) {
        std::memcpy(bytes.data(), &reinterpret_cast<const sockaddr_in6 *>(address.get())->sin6_addr, 16);
    } else {
        std::memcpy(bytes.data(), &reinterpret_cast<const sockaddr_in *>(address.get())->sin_addr, 4);
    }
    return bytes;
}

struct Ends {
    std::string source, target;
    unsigned source_port, target_port;
};

Ends ends_of(const net::Tap::Path &path, net::Tap::Way way) {
    const int family = path.server.family();
    const unsigned local_port = path.local.family() == family ? path.local.port() : 0;
    Ends ends{host_bytes(path.local, family), host_bytes(path.server, family), local_port,
              path.server.port()};
    if (way == net::Tap::Way::kReceived) {
        std::swap(ends.source, ends.target);
        std::swap(ends.source_port, ends.target_port);
    }
    return ends;
}

void set16(std::string &bytes, std::size_t at, unsigned value) {
    bytes[at] = static_cast<char>(value >> 8);
    bytes[at + 1] = static_cast<char>(value & 0xff);
}

// Puts the sum into a packet of UDP or TCP, and the header of IP before it.
std::string ip_packet(const Ends &ends, std::uint8_t protocol, std::string inner, std::size_t sum_at) {
    std::string pseudo = ends.source + ends.target;
    const bool is_v6 = ends.source.size() == 16;
    if (is_v6) {
        put32(pseudo, static_cast<std::uint32_t>(inner.size()));
        put32(pseudo, protocol);
    } else {
        put16(pseudo, protocol);
        put16(pseudo, static_cast<unsigned>(inner.size()));
    }
    const unsigned sum = checksum(pseudo + inner);
    set16(inner, sum_at, sum == 0 && protocol == kUdp ? 0xffff : sum);
    std::string out;
    if (is_v6) {
        put32(out, 0x60000000);
        put16(out, static_cast<unsigned>(inner.size()));
        put8(out, protocol);
        put8(out, kHops);
        return out + ends.source + ends.target + inner;
    }
    put16(out, 0x4500);
    put16(out, static_cast<unsigned>(inner.size() + 20));
    put32(out, 0x00004000);  // not to be cut
    put8(out, kHops);
    put8(out, protocol);
    put16(out, 0);
    out += ends.source + ends.target;
    set16(out, 10, checksum(out));
    return out + inner;
}

std::string segment(const Ends &ends, std::uint32_t number, std::uint32_t acknowledged, std::uint8_t flags,
                    std::string_view bytes = {}) {
    std::string inner;
    put16(inner, ends.source_port);
    put16(inner, ends.target_port);
    put32(inner, number);
    put32(inner, acknowledged);
    put8(inner, 5 << 4);  // the header has five words
    put8(inner, flags);
    put16(inner, 65535);
    put32(inner, 0);
    inner += bytes;
    return ip_packet(ends, kTcp, std::move(inner), 16);
}

}  // namespace

std::string Segments::datagram(const net::Tap::Path &path, Way way, std::string_view bytes) {
    const Ends ends = ends_of(path, way);
    std::string inner;
    put16(inner, ends.source_port);
    put16(inner, ends.target_port);
    put16(inner, static_cast<unsigned>(bytes.size() + 8));
    put16(inner, 0);
    inner += bytes;
    return ip_packet(ends, kUdp, std::move(inner), 6);
}

Segments::Flow &Segments::flow_of(const net::Tap::Path &path) {
    return flows_[path.local.text() + " " + path.server.text()];
}

std::vector<std::string> Segments::opened(const net::Tap::Path &path) {
    flow_of(path) = {};
    const Ends sent = ends_of(path, Way::kSent);
    const Ends received = ends_of(path, Way::kReceived);
    return {segment(sent, 0, 0, kSyn), segment(received, 0, 1, kSyn | kAck), segment(sent, 1, 1, kAck)};
}

std::vector<std::string> Segments::bytes(const net::Tap::Path &path, Way way, std::string_view bytes) {
    Flow &flow = flow_of(path);
    const Ends ends = ends_of(path, way);
    std::uint32_t &number = way == Way::kSent ? flow.sent : flow.received;
    const std::uint32_t other = way == Way::kSent ? flow.received : flow.sent;
    std::vector<std::string> packets;
    for (std::size_t at = 0; at < bytes.size(); at += kMostInSegment) {
        const std::string_view part = bytes.substr(at, kMostInSegment);
        packets.push_back(segment(ends, number, other, kPush | kAck, part));
        number += static_cast<std::uint32_t>(part.size());
    }
    return packets;
}

std::vector<std::string> Segments::closed(const net::Tap::Path &path, Way way) {
    const Flow flow = flow_of(path);
    flows_.erase(path.local.text() + " " + path.server.text());
    const bool is_sent = way == Way::kSent;
    const std::uint32_t number = is_sent ? flow.sent : flow.received;
    const std::uint32_t other = is_sent ? flow.received : flow.sent;
    const Ends first = ends_of(path, way);
    const Ends second = ends_of(path, is_sent ? Way::kReceived : Way::kSent);
    return {segment(first, number, other, kFin | kAck), segment(second, other, number + 1, kFin | kAck),
            segment(first, number + 1, other + 1, kAck)};
}

}  // namespace service
