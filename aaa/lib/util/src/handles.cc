// SPDX-License-Identifier: Apache-2.0
//
// The shared connection handles; this file goes when the lifecycle area,
// which owns them, arrives.

#include "aaa/lifecycle.h"

uint64_t aaa_sgmap_sysdb_connid;
uint64_t aaa_cfg_sysdb_connid;
