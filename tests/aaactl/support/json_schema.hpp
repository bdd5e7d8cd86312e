// SPDX-License-Identifier: Apache-2.0
//
// Checks documents of aaactl against the installed schemas in docs/schema/.
//
// Stricter than a validator: a member that the schema does not name is an error here, while programs that
// read the documents have to accept members of later versions. So no document can have a part that is not
// documented. A schema may use only the keywords that this checker knows.

#pragma once

#include <string>
#include <vector>

#include "aaactl/support/json_document.hpp"

namespace aaactl_test {

// Why the document is not one of the schema in this file, or "".
std::string schema_fault(const JsonDocument &document, const std::string &file);

// The file of the command with these arguments, "sysdb-get.schema.json"; "" for an unknown command.
std::string schema_of(const std::vector<std::string> &args);

// Fails the test if what aaactl printed with --json is not as documented. Without --json it does nothing.
void expect_documented(const std::vector<std::string> &args, const std::string &out);

}  // namespace aaactl_test
