// SPDX-License-Identifier: Apache-2.0
//
// The file of keys that belongs to a capture: a log of TLS keys, as programs for captures read it,
// with comments that hold the keys of RADIUS and TACACS+ as options of tshark.

#pragma once

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
    std::string tacacs_;  // all so far: tshark takes one option for all servers
};

}  // namespace aaactl
