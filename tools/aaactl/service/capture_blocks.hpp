// SPDX-License-Identifier: Apache-2.0
//
// A stream of pcapng, cut into its blocks.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace aaactl {

struct CaptureBlock {
    enum Type : uint32_t { statistics = 5, packet = 6, secrets = 10, section = 0x0a0d0d0a };

    uint32_t type = 0;
    std::string bytes;  // the whole block

    // Frames that were dropped: of statistics all of the interface, of a packet those before it.
    uint64_t dropped() const;
    // Of statistics: what ended the capture, if its reader did not.
    std::string comment() const;
    // Of secrets: which, and the text.
    uint32_t kind() const;
    std::string_view text() const;
};

class CaptureBlocks {
  public:
    void add(std::string_view bytes) { bytes_ += bytes; }
    // The next whole block. Failure when the bytes are no pcapng.
    std::optional<CaptureBlock> next();

  private:
    std::string bytes_;
    size_t at_ = 0;
    bool has_begun_ = false;
};

}  // namespace aaactl
