// SPDX-License-Identifier: Apache-2.0
//
// Finding and loading the sysdb provider.
#pragma once

#include "platform/sysdb_provider.h"

namespace aaaplatform {

// The provider, loaded if necessary. Null when there is none, when it cannot be
// loaded, or when the calling library is being unloaded and the load does not end
// soon. Never enters the dynamic loader on the calling thread.
const sysdb_provider_t *obtain_sysdb_provider();

// The provider if it is loaded, else null.
const sysdb_provider_t *loaded_sysdb_provider();

// One attempt on the calling thread, which may be inside the dynamic loader but
// must not be joined by a thread that holds the loader's lock.
void sysdb_load_now();

// Unloading began or ended: waiting threads give up, new ones wait briefly.
void sysdb_loader_set_unloading(bool unloading);

}  // namespace aaaplatform
