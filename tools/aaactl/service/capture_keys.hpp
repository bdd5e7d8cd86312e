// SPDX-License-Identifier: Apache-2.0
//
// The file of keys that belongs to a capture: a log of TLS keys, as programs for captures read it,
// with comments that hold the keys of RADIUS and TACACS+ as preferences of Wireshark.

#pragma once

#include <map>
#include <string>

#include "service/capture_blocks.hpp"

namespace aaactl {

// What the file begins with.
std::string keys_header(const std::string &file);

class CaptureKeys {
  public:
    // The lines for a block of secrets; "" for one that is not known.
    std::string lines(const CaptureBlock &block);

  private:
    // All so far, by client and server: tshark has one preference for all of them.
    std::map<std::string, std::string> tacacs_;
};

}  // namespace aaactl
