// SPDX-License-Identifier: Apache-2.0
//
// The embedded provider passes the tests that all providers must pass.

#include "support/sysdb.hpp"
#include "sysdb_conformance.hpp"

void prepare_database() {
    static const DatabaseSandbox sandbox;
}

unsigned longest_path() {
    return 511;
}
