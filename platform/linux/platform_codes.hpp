// SPDX-License-Identifier: Apache-2.0
//
// Names of the host platform's result codes; rows and texts are in
// platform_codes.def.
#pragma once

#include "aaa/types.h"

namespace aaaplatform {

enum PlatformCode : cerrno {
#define PLATFORM_CODE(name, code, text) name = code,
#include "platform_codes.def"
};

}  // namespace aaaplatform
