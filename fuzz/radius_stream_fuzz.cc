// SPDX-License-Identifier: Apache-2.0
//
// Packets out of a stream. The input is the sizes of the parts in which the bytes arrive, each
// one byte, up to a zero, then the bytes.
//
// However they are split, the packets are those that a second reading of the whole finds: each
// has the length that its head says, and none comes after a length that cannot be one.

#include <string>
#include <vector>

#include "fuzz_input.hpp"
#include "radius/packet_stream.hpp"

namespace {

struct Reading {
    std::vector<std::string> packets;
    bool is_damaged = false;
};

Reading second_reading(const std::string &bytes) {
    Reading reading;
    for (std::size_t at = 0; at + 4 <= bytes.size();) {
        const std::size_t length =
            static_cast<unsigned char>(bytes[at + 2]) * 256U + static_cast<unsigned char>(bytes[at + 3]);
        if (length < 20 || length > 4096) {
            reading.is_damaged = true;
            break;
        }
        if (at + length > bytes.size()) {
            break;
        }
        reading.packets.push_back(bytes.substr(at, length));
        at += length;
    }
    return reading;
}

void take_packets(radius::PacketStream &stream, std::vector<std::string> &packets) {
    for (std::string_view packet = stream.next(); !packet.empty(); packet = stream.next()) {
        packets.emplace_back(packet);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    std::vector<std::size_t> parts;
    for (uint8_t part = input.byte(); part != 0; part = input.byte()) {
        parts.push_back(part);
    }
    const std::string bytes = input.rest();
    const Reading expected = second_reading(bytes);
    radius::PacketStream stream;
    std::vector<std::string> packets;
    std::string_view rest = bytes;
    for (std::size_t i = 0; !rest.empty(); ++i) {
        const std::string_view part = rest.substr(0, i < parts.size() ? parts[i] : rest.size());
        stream.add(part);
        take_packets(stream, packets);
        rest.remove_prefix(part.size());
    }
    REQUIRE(packets == expected.packets);
    REQUIRE(stream.is_damaged() == expected.is_damaged);
    return 0;
}
