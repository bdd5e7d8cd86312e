// SPDX-License-Identifier: Apache-2.0
//
// Blocks of a pcapng file, in the byte order of this machine, which the first block tells.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace service::pcapng {

inline constexpr std::uint16_t kUser0 = 147;  // link types
inline constexpr std::uint16_t kRawIp = 101;

// Kinds of secrets; the first is of pcapng, the others are this system's own.
inline constexpr std::uint32_t kTlsKeys = 0x544c534b;
inline constexpr std::uint32_t kRadiusKey = 0x61616152;  // "SERVER\tKEY"
inline constexpr std::uint32_t kTacacsKey = 0x61616154;  // "CLIENT\tSERVER\tKEY", addresses without ports

struct Packet {
    std::uint32_t interface = 0;
    std::int64_t wall = 0;  // nanoseconds since 1970
    bool is_outbound = false;
    std::uint64_t dropped = 0;  // frames of the interface between the one before and this one
    std::string_view bytes;
    std::string_view comment = {};  // none if it is empty
};

struct Statistics {
    std::uint32_t interface = 0;
    std::int64_t started = 0, ended = 0;  // nanoseconds since 1970
    std::uint64_t seen = 0, dropped = 0;
    std::string_view comment = {};  // none if it is empty
};

std::string section(std::string_view program);
std::string interface(std::uint16_t link_type, std::string_view name, std::string_view description);
std::string packet(const Packet &packet);
std::string statistics(const Statistics &figures);
std::string secrets(std::uint32_t kind, std::string_view text);

}  // namespace service::pcapng
