// SPDX-License-Identifier: Apache-2.0
//
// Packets out of the bytes of a connection, however those were split on their way.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tacacs/packet.hpp"

namespace tacacs {

class PacketReader {
  public:
    void add(std::string_view bytes);
    // Takes the next whole packet. `packet` is empty when more bytes are needed first. After
    // a fault nothing more can be read, since it is unknown where the next packet begins.
    Fault next(std::string &packet);
    // Bytes of a packet that is not whole yet.
    std::size_t pending() const { return bytes_.size() - begin_; }

  private:
    std::string bytes_;
    std::size_t begin_ = 0;
    Fault fault_ = Fault::kNone;
};

}  // namespace tacacs
