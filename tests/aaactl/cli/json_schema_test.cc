// SPDX-License-Identifier: Apache-2.0
//
// The checker of documents, which every test of a document relies on: it finds what is wrong, and knows which
// schema belongs to a command line.

#include <gtest/gtest.h>

#include "aaactl/support/json_schema.hpp"

namespace {

using aaactl_test::JsonDocument;
using aaactl_test::schema_fault;
using aaactl_test::schema_of;

std::string fault(const char *document, const char *file = "sysdb-ls.schema.json") {
    const std::string why = schema_fault(JsonDocument::parse(document), file);
    return why.substr(0, why.find("; or "));
}

TEST(Schema, FindsWhatIsNotDocumented) {
    EXPECT_EQ(fault(R"({"path": "/cfg/", "entries": []})"), "");
    EXPECT_EQ(fault(R"({"path": "/cfg/", "entries": [], "more": 1})"), "/more is not documented");
    EXPECT_EQ(fault(R"({"path": "/cfg/"})"), " lacks entries");
    EXPECT_EQ(fault(R"({"path": 1, "entries": []})"), "/path is not of type string");
    EXPECT_EQ(fault(R"({"path": "/", "entries": {}})"), "/entries is not of type array");
    EXPECT_EQ(fault(R"({"path": "/", "entries": [{"name": "a", "type": "u32", "value": 1}]})"), "");
    EXPECT_EQ(fault(R"({"path": "/", "entries": [{"name": "a", "type": "u32", "masked": false}]})"),
              "/entries/0/masked is not true");
    EXPECT_EQ(fault(R"({"path": "/", "entries": [{"name": "a", "type": "u32", "x": 1}]})"),
              "/entries/0/x is not documented");
    EXPECT_EQ(fault(R"([])"), " is not of type object");
}

TEST(Schema, ChecksNumbersAndWords) {
    EXPECT_EQ(fault(R"({"file": "x", "generation": -1})", "key-new-master.schema.json"),
              "/generation is less than 0");
    EXPECT_EQ(fault(R"({"file": "x", "generation": 1.5})", "key-new-master.schema.json"),
              "/generation is not of type integer");
    EXPECT_EQ(fault(R"({"error": {"message": "x", "exit": 6}})", "key-new-master.schema.json"), "");
    EXPECT_NE(schema_fault(JsonDocument::parse(R"({"error": {"message": "x", "exit": 7}})"),
                           "key-new-master.schema.json")
                  .find("/error/exit is more than 6"),
              std::string::npos);
    EXPECT_NE(fault(R"({"event": "made", "time": 1, "path": "/", "revision": 1})", "sysdb-watch.schema.json")
                  .find("not one of"),
              std::string::npos);
}

TEST(Schema, FollowsReferences) {
    EXPECT_EQ(fault(R"({"path": "/", "entries": [{"name": "a/", "type": "directory", "entries": [
                        {"name": "b", "type": "tuple", "value": [1, "x"]}]}]})",
                    "sysdb-tree.schema.json"),
              "");
    EXPECT_NE(fault(R"({"path": "/", "entries": [{"name": "a/", "type": "directory", "entries": [
                        {"name": "b", "type": "tuple", "value": [1, null]}]}]})",
                    "sysdb-tree.schema.json")
                  .find("/entries/0/entries/0/value"),
              std::string::npos);
}

TEST(Schema, BelongsToACommand) {
    EXPECT_EQ(schema_of({"--json", "sysdb", "get", "/cfg/x"}), "sysdb-get.schema.json");
    EXPECT_EQ(schema_of({"--color", "never", "decode", "file", "--json"}), "decode.schema.json");
    EXPECT_EQ(schema_of({"no-such", "--json"}), "");
    EXPECT_EQ(schema_of({"--json"}), "");
}

}  // namespace
