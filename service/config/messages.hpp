// SPDX-License-Identifier: Apache-2.0
//
// Configuration messages: each is carried out as one change of the system database, so it
// outlives the service, every process sees it, and the service follows it like any other.
#pragma once

#include <cstdint>

#include "aaa/avpair.h"
#include "aaa/types.h"
#include "platform/sysdb.h"

namespace service {

// Applies a message of the types 17 to 23. `config` is bound at /cfg/gl/aaa/.
//
// AAA_OK; AAA_ERR_INVALID_CLIENT_DATA: malformed; AAA_ERR_NOT_FOUND: no such group, server or
// list; AAA_ERR_SG_IN_USE: a list names the group; AAA_ERR_NOT_SUPPORTED: another type;
// AAA_ERR_INIT_FAILED: a key cannot be sealed; a code of the database. On failure nothing is
// changed.
cerrno apply_configuration(sysdb_conn_t config, std::uint32_t type, const avlist *list);

}  // namespace service
