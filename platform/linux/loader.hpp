// SPDX-License-Identifier: Apache-2.0
//
// The object that a code address belongs to.
#pragma once

namespace aaaplatform {

// Base address of the object that holds a code address, null when unknown.
// Enters the dynamic loader.
const void *object_base(const void *address);

}  // namespace aaaplatform
