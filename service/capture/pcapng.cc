// SPDX-License-Identifier: Apache-2.0
//
//   block    type 4, length 4, body, length 4; all a multiple of 4
//   option   code 2, length 2, value, zeros up to a multiple of 4; code 0 ends them

#include "capture/pcapng.hpp"

#include <cstring>

namespace service::pcapng {

namespace {

constexpr std::uint32_t kSection = 0x0a0d0d0a;
constexpr std::uint32_t kByteOrder = 0x1a2b3c4d;
constexpr std::uint32_t kInterface = 1;
constexpr std::uint32_t kStatistics = 5;
constexpr std::uint32_t kPacket = 6;
constexpr std::uint32_t kSecrets = 10;
constexpr std::uint8_t kNanoseconds = 9;  // 10 to the power of -9

template <typename T>
void put(std::string &out, T value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.append(bytes, sizeof bytes);
}

void pad(std::string &out) {
    out.resize((out.size() + 3) / 4 * 4);
}

void put_option(std::string &out, std::uint16_t code, std::string_view value) {
    put(out, code);
    put(out, static_cast<std::uint16_t>(value.size()));
    out += value;
    pad(out);
}

template <typename T>
void put_option(std::string &out, std::uint16_t code, T value) {
    std::string bytes;
    put(bytes, value);
    put_option(out, code, std::string_view(bytes));
}

void end_options(std::string &out) {
    put(out, std::uint32_t{0});
}

// Two words, the more significant first.
void put_time(std::string &out, std::int64_t wall) {
    put(out, static_cast<std::uint32_t>(static_cast<std::uint64_t>(wall) >> 32));
    put(out, static_cast<std::uint32_t>(wall));
}

void put_time_option(std::string &out, std::uint16_t code, std::int64_t wall) {
    std::string value;
    put_time(value, wall);
    put_option(out, code, std::string_view(value));
}

std::string block(std::uint32_t type, const std::string &body) {
    const auto length = static_cast<std::uint32_t>(body.size() + 12);
    std::string out;
    out.reserve(length);
    put(out, type);
    put(out, length);
    out += body;
    put(out, length);
    return out;
}

}  // namespace

std::string section(std::string_view program) {
    std::string body;
    put(body, kByteOrder);
    put(body, std::uint16_t{1});  // version 1.0
    put(body, std::uint16_t{0});
    put(body, std::int64_t{-1});  // of any length
    put_option(body, 4, program);
    end_options(body);
    return block(kSection, body);
}

std::string interface(std::uint16_t link_type, std::string_view name, std::string_view description) {
    std::string body;
    put(body, link_type);
    put(body, std::uint16_t{0});
    put(body, std::uint32_t{0});  // frames are whole
    put_option(body, 2, name);
    put_option(body, 3, description);
    put_option(body, 9, kNanoseconds);
    end_options(body);
    return block(kInterface, body);
}

std::string packet(const Packet &packet) {
    std::string body;
    const auto length = static_cast<std::uint32_t>(packet.bytes.size());
    put(body, packet.interface);
    put_time(body, packet.wall);
    put(body, length);
    put(body, length);
    body += packet.bytes;
    pad(body);
    if (!packet.comment.empty()) {
        put_option(body, 1, packet.comment);
    }
    put_option(body, 2, std::uint32_t{packet.is_outbound ? 2u : 1u});
    if (packet.dropped > 0) {
        put_option(body, 4, packet.dropped);
    }
    end_options(body);
    return block(kPacket, body);
}

std::string statistics(const Statistics &figures) {
    std::string body;
    put(body, figures.interface);
    put_time(body, figures.ended);
    if (!figures.comment.empty()) {
        put_option(body, 1, figures.comment);
    }
    put_time_option(body, 2, figures.started);
    put_time_option(body, 3, figures.ended);
    put_option(body, 4, figures.seen);
    put_option(body, 5, figures.dropped);
    end_options(body);
    return block(kStatistics, body);
}

std::string secrets(std::uint32_t kind, std::string_view text) {
    std::string body;
    put(body, kind);
    put(body, static_cast<std::uint32_t>(text.size()));
    body += text;
    pad(body);
    end_options(body);
    return block(kSecrets, body);
}

}  // namespace service::pcapng
