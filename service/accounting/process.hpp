// SPDX-License-Identifier: Apache-2.0
//
// Whether the process of a session is still there.
#pragma once

#include <cstdint>

#include "records/record.hpp"

namespace accounting {

// A process as it is now; pid 0 when it does not exist or cannot be seen.
Process process_of(std::uint32_t pid);

// Whether the process that a record names still runs, in the same run of the machine. True
// for a record that names none.
bool is_alive(const Record &record);

}  // namespace accounting
