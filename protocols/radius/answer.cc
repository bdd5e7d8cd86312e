// SPDX-License-Identifier: Apache-2.0
//
// Copying answers, and reading their attributes.

#include "radius/answer.hpp"

namespace radius {

Answer::Answer(const Reply &reply) : code_(reply.code()) {
    if (code_ != Code::kAccessReject) {
        bytes_ = reply.bytes();
        return;
    }
    for (const Attribute attribute : reply) {
        if (attribute.type == Type::kReplyMessage) {
            bytes_ += static_cast<char>(attribute.type);
            bytes_ += static_cast<char>(kAttributeHead + attribute.value.size());
            bytes_ += attribute.value;
        }
    }
}

std::vector<std::string> Answer::classes() const {
    std::vector<std::string> all;
    for (const Attribute attribute : attributes()) {
        if (attribute.type == Type::kClass) {
            all.emplace_back(attribute.value);
        }
    }
    return all;
}

std::optional<std::uint32_t> Answer::number(Type type) const {
    const std::optional<Attribute> attribute = attributes().find(type);
    return attribute ? attribute->number() : std::nullopt;
}

}  // namespace radius
