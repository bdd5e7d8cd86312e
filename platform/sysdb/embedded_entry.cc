// SPDX-License-Identifier: Apache-2.0
//
// The export of the embedded provider. It is by itself: another provider has the same objects
// and an export of its own.

#include "provider.hpp"

extern "C" {

const sysdb_provider_t *sysdb_provider_table(uint32_t abi, const sysdb_host_t *host) {
    return abi == SYSDB_PROVIDER_ABI && host != nullptr ? &sysdb_lmdb::embedded_provider(host) : nullptr;
}

}  // extern "C"
