// SPDX-License-Identifier: Apache-2.0
//
// Reassembly of packets.

#include "radius/packet_stream.hpp"

#include "radius/packet.hpp"

namespace radius {

void PacketStream::add(std::string_view bytes) {
    bytes_.erase(0, taken_);
    taken_ = 0;
    if (!is_damaged_) {
        bytes_ += bytes;
    }
}

std::string_view PacketStream::next() {
    const std::string_view rest = std::string_view(bytes_).substr(taken_);
    constexpr std::size_t kLengthEnd = 4;
    if (is_damaged_ || rest.size() < kLengthEnd) {
        return {};
    }
    const std::size_t length =
        static_cast<unsigned char>(rest[2]) * 256U + static_cast<unsigned char>(rest[3]);
    is_damaged_ = length < kHeadSize || length > kMaxPacket;
    if (is_damaged_ || rest.size() < length) {
        return {};
    }
    taken_ += length;
    return rest.substr(0, length);
}

}  // namespace radius
