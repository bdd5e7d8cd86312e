// SPDX-License-Identifier: Apache-2.0
//
// Reading attributes of vendors; included by packet.hpp.
//
//     vendor (4, big-endian), then one or more of: type (1), length with this head (1), value
#pragma once

namespace radius {

template <typename Visit>
bool for_each_vendor_attribute(const Attribute &attribute, Visit visit) {
    constexpr std::size_t kVendorSize = 4;
    constexpr std::size_t kVendorHead = 2;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(attribute.value[at]); };
    if (attribute.value.size() < kVendorSize + kVendorHead) {
        return false;
    }
    std::uint32_t vendor = 0;
    for (std::size_t i = 0; i < kVendorSize; ++i) {
        vendor = vendor << 8 | byte(i);
    }
    std::size_t at = kVendorSize;
    while (at + kVendorHead <= attribute.value.size()) {
        const std::size_t length = byte(at + 1);
        if (length < kVendorHead || length > attribute.value.size() - at) {
            return false;
        }
        visit(VendorAttribute{vendor, byte(at),
                              attribute.value.substr(at + kVendorHead, length - kVendorHead)});
        at += length;
    }
    return at == attribute.value.size();
}

}  // namespace radius
