// SPDX-License-Identifier: Apache-2.0
//
// Applies operations that a string of bytes spells to a list and to its model
// alike, checks every result, and compares and verifies the list after every
// step or at the end. Any bytes are a valid script. Shared by the randomized test and the
// fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace aaatest {

// A comparison takes longer than most operations. The results of each operation are
// checked in any case.
enum class Compare { after_every_step, at_the_end };

// Empty when list and model agreed throughout, else the step and what differed.
std::string drive_list(std::span<const uint8_t> script, Compare compare = Compare::after_every_step);

}  // namespace aaatest
