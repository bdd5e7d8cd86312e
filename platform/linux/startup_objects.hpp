// SPDX-License-Identifier: Apache-2.0
//
// Which objects were mapped with the program and stay to its end.
#pragma once

namespace aaaplatform {

// Whether the object that holds this code address was loaded at the start of
// the program: the program itself, what it needs directly or indirectly, or
// what LD_PRELOAD names. Enters the dynamic loader.
bool is_startup_object(const void *address);

}  // namespace aaaplatform
