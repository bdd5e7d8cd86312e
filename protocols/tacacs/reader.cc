// SPDX-License-Identifier: Apache-2.0
//
// Packets out of the bytes of a connection.

#include "tacacs/reader.hpp"

namespace tacacs {

void PacketReader::add(std::string_view bytes) {
    bytes_.erase(0, begin_);
    begin_ = 0;
    if (fault_ == Fault::kNone) {
        bytes_ += bytes;
    }
}

Fault PacketReader::next(std::string &packet) {
    packet.clear();
    const std::string_view rest = std::string_view(bytes_).substr(begin_);
    if (fault_ != Fault::kNone || rest.empty()) {
        return fault_;
    }
    // Another protocol may send less than a head and wait.
    if ((static_cast<unsigned char>(rest[0]) & 0xf0) != 0xc0) {
        return fault_ = Fault::kNotTacacs;
    }
    if (rest.size() < kHeadSize) {
        return Fault::kNone;
    }
    Head head;
    fault_ = read_head(rest, head);
    if (fault_ == Fault::kNone && rest.size() - kHeadSize >= head.length) {
        packet = rest.substr(0, kHeadSize + head.length);
        begin_ += packet.size();
    }
    return fault_;
}

}  // namespace tacacs
