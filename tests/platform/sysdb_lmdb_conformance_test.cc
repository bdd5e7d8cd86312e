// SPDX-License-Identifier: Apache-2.0
//
// The embedded provider passes the tests that all providers must pass.

#include "sysdb_conformance.hpp"
#include "sysdb_support.hpp"

void prepare_database() {
    static const DatabaseSandbox sandbox;
}

unsigned longest_path() {
    return 511;
}
