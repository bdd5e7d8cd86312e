// SPDX-License-Identifier: Apache-2.0

#include "capture/radius_mask.hpp"

#include "radius/packet.hpp"

namespace service {

namespace {

constexpr std::size_t kLength = 2;  // where a packet has its length, of two bytes

std::size_t length_of(std::string_view packet) {
    return static_cast<std::size_t>(static_cast<unsigned char>(packet[kLength])) << 8 |
           static_cast<unsigned char>(packet[kLength + 1]);
}

void add_attribute(std::string &out, radius::Type type, std::string_view value) {
    out += static_cast<char>(type);
    out += static_cast<char>(radius::kAttributeHead + value.size());
    out += value;
}

}  // namespace

Masked masked_radius(std::string_view packet, const std::function<bool(const std::string &)> &may_show_name) {
    Masked result{std::string(packet), false};
    if (packet.size() < radius::kHeadSize || packet.size() > radius::kMaxPacket) {
        return result;
    }
    const std::size_t end = length_of(packet);
    if (end < radius::kHeadSize || end > packet.size()) {
        return result;
    }
    const std::string_view attributes = packet.substr(radius::kHeadSize, end - radius::kHeadSize);
    if (!radius::Attributes::are_whole(attributes)) {
        return result;
    }
    std::string shown(packet.substr(0, radius::kHeadSize));
    for (const radius::Attribute attribute : radius::Attributes(attributes)) {
        const bool is_masked =
            attribute.type == radius::Type::kUserName && !may_show_name(std::string(attribute.value));
        result.is_changed = result.is_changed || is_masked;
        add_attribute(shown, attribute.type, is_masked ? kMask : attribute.value);
    }
    if (result.is_changed) {
        shown[kLength] = static_cast<char>(shown.size() >> 8 & 0xff);
        shown[kLength + 1] = static_cast<char>(shown.size() & 0xff);
        result.bytes = shown.append(packet.substr(end));
    }
    return result;
}

}  // namespace service
