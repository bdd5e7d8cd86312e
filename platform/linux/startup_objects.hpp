// SPDX-License-Identifier: Apache-2.0
//
// The objects that were mapped with the program and remain to its end.
#pragma once

namespace aaaplatform {

// Whether the object that holds this code address was loaded at the start of
// the program: the program itself, its direct and indirect dependencies, and the
// objects in LD_PRELOAD. Enters the dynamic loader.
bool is_startup_object(const void *address);

}  // namespace aaaplatform
