// SPDX-License-Identifier: Apache-2.0
//
// Reading attributes.

#include "radius/packet.hpp"

namespace radius {
namespace {

std::size_t length_of(std::string_view attribute) {
    return static_cast<unsigned char>(attribute[1]);
}

}  // namespace

bool Attributes::are_whole(std::string_view bytes) {
    while (!bytes.empty()) {
        if (bytes.size() < kAttributeHead || length_of(bytes) < kAttributeHead ||
            length_of(bytes) > bytes.size()) {
            return false;
        }
        bytes.remove_prefix(length_of(bytes));
    }
    return true;
}

Attribute Attributes::Iterator::operator*() const {
    return {static_cast<Type>(rest_[0]), rest_.substr(kAttributeHead, length_of(rest_) - kAttributeHead)};
}

Attributes::Iterator &Attributes::Iterator::operator++() {
    rest_.remove_prefix(length_of(rest_));
    return *this;
}

std::optional<Attribute> Attributes::find(Type type) const {
    for (const Attribute attribute : *this) {
        if (attribute.type == type) {
            return attribute;
        }
    }
    return std::nullopt;
}

std::string Attributes::joined(Type type) const {
    std::string all;
    for (const Attribute attribute : *this) {
        if (attribute.type == type) {
            all += attribute.value;
        }
    }
    return all;
}

std::optional<std::uint32_t> Attribute::number() const {
    if (value.size() != 4) {
        return std::nullopt;
    }
    std::uint32_t result = 0;
    for (const char byte : value) {
        result = result << 8 | static_cast<unsigned char>(byte);
    }
    return result;
}

}  // namespace radius
