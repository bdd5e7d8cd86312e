// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace aaautil {

// Overwrites what has been read from standard input, in the buffer that the C library
// keeps for it. Bytes that have not been read yet stay. errno is kept.
void wipe_consumed_input() noexcept;

}  // namespace aaautil
