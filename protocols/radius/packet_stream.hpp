// SPDX-License-Identifier: Apache-2.0
//
// Packets out of a stream of bytes, which may be split anywhere.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace radius {

class PacketStream {
  public:
    void add(std::string_view bytes);

    // The next packet, valid until the next call of add(). Empty when it is not there yet,
    // and for ever when the stream is damaged.
    std::string_view next();
    // True when a length cannot be that of a packet: no later packet can be found.
    bool is_damaged() const { return is_damaged_; }

  private:
    std::string bytes_;
    std::size_t taken_ = 0;  // bytes of packets that were returned
    bool is_damaged_ = false;
};

}  // namespace radius
