// SPDX-License-Identifier: Apache-2.0

#include "capture/radius_mask.hpp"

#include <algorithm>
#include <optional>

#include "masks/name_mask.hpp"
#include "radius/packet.hpp"

namespace service {

namespace {

constexpr std::size_t kLength = 2;  // where a packet has its length, of two bytes
constexpr std::size_t kVendor = 4;  // bytes of a vendor's number

std::size_t length_of(std::string_view packet) {
    return static_cast<std::size_t>(static_cast<unsigned char>(packet[kLength])) << 8 |
           static_cast<unsigned char>(packet[kLength + 1]);
}

// The attributes of a packet; nothing when they are damaged.
std::optional<std::string_view> attributes_of(std::string_view packet) {
    if (packet.size() < radius::kHeadSize || packet.size() > radius::kMaxPacket) {
        return std::nullopt;
    }
    const std::size_t end = length_of(packet);
    if (end < radius::kHeadSize || end > packet.size()) {
        return std::nullopt;
    }
    const std::string_view attributes = packet.substr(radius::kHeadSize, end - radius::kHeadSize);
    return radius::Attributes::are_whole(attributes) ? std::optional(attributes) : std::nullopt;
}

void add_attribute(std::string &out, radius::Type type, std::string_view value) {
    value = value.substr(0, radius::kMaxValue);
    out += static_cast<char>(type);
    out += static_cast<char>(radius::kAttributeHead + value.size());
    out += value;
}

// Attributes of a vendor have the same form.
std::string vendor_without_name(std::string_view value, const NameMask &name) {
    const std::string_view inner = value.substr(std::min(kVendor, value.size()));
    if (!radius::Attributes::are_whole(inner)) {
        return name.shown(value, kMask);
    }
    std::string shown(value.substr(0, value.size() - inner.size()));
    for (const radius::Attribute attribute : radius::Attributes(inner)) {
        add_attribute(shown, attribute.type, name.shown(attribute.value, kMask));
    }
    return shown;
}

std::string shown_value(const radius::Attribute &attribute, const NameMask &name, const ShownNames &names) {
    using radius::Type;
    switch (attribute.type) {
        case Type::kUserName:
            return std::string(names.may_show(std::string(attribute.value)) ? attribute.value : kMask);
        // Of random bytes, which may hold a short name by chance.
        case Type::kUserPassword:
        case Type::kChapPassword:
        case Type::kChapChallenge:
        case Type::kMessageAuthenticator:
            return std::string(attribute.value);
        case Type::kVendorSpecific:
            return vendor_without_name(attribute.value, name);
        default:
            return name.shown(attribute.value, kMask);
    }
}

}  // namespace

std::string radius_user(std::string_view packet) {
    for (const radius::Attribute attribute : radius::Attributes(attributes_of(packet).value_or(""))) {
        if (attribute.type == radius::Type::kUserName) {
            return std::string(attribute.value);
        }
    }
    return "";
}

Masked masked_radius(std::string_view packet, const ShownNames &names) {
    Masked result{std::string(packet), false};
    const NameMask name(names.user, names.may_show);
    const auto attributes = attributes_of(packet);
    if (!attributes) {
        const std::string_view head = packet.substr(0, radius::kHeadSize);
        result.bytes = std::string(head) + name.shown(packet.substr(head.size()), kMask);
        result.is_changed = result.bytes != packet;
        return result;
    }
    std::string shown(packet.substr(0, radius::kHeadSize));
    for (const radius::Attribute attribute : radius::Attributes(*attributes)) {
        add_attribute(shown, attribute.type, shown_value(attribute, name, names));
    }
    result.is_changed = shown != packet.substr(0, length_of(packet));
    if (result.is_changed) {
        shown[kLength] = static_cast<char>(shown.size() >> 8 & 0xff);
        shown[kLength + 1] = static_cast<char>(shown.size() & 0xff);
        result.bytes = shown.append(packet.substr(length_of(packet)));
    }
    return result;
}

}  // namespace service
