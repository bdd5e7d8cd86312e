// SPDX-License-Identifier: Apache-2.0
//
// The provider for many nodes passes the tests that all providers must pass, on a cluster of
// three.

#include <gtest/gtest.h>

#include "etcd/cluster.hpp"
#include "platform/sysdb_conformance.hpp"

void prepare_database() {
    // The suite makes 3000 changes as one.
    static etcd_test::Cluster cluster({.more = {"--max-txn-ops", "16384"}});
    static etcd_test::Node node(cluster, "one");
    cluster.start_all();
    const etcd_test::Ended imported = node.import();
    ASSERT_EQ(0, imported.status) << imported.output;
    node.start();
    ASSERT_TRUE(node.wait_until_following()) << node.log();
    node.use();
    // A busy machine must not change the result.
    setenv("AAA_SYSDB_WAIT_MS", "60000", 1);
}

unsigned longest_path() {
    return 511;
}
