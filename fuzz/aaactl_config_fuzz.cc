// SPDX-License-Identifier: Apache-2.0
//
// The reader of aaactl's load with configuration text. Accepted text, written and read again, must give the
// same statements. What they store, shown as text and stored again, must give the same items. Every other
// input must throw a Failure, and no other exception.

#include <string>

#include "fuzz_input.hpp"
#include "running_config/statements.hpp"

namespace {

using namespace aaactl;

ApplyOptions options() {
    ApplyOptions options;
    options.seal = [](const Item &) { return text_item("01" + std::string(90, 'c')); };
    options.force = true;
    return options;
}

void check_round_trip(const Items &items) {
    const Statements statements = statements_of(items);
    REQUIRE(parse_statements(text_of(statements)) == statements);
    REQUIRE(apply(statements, {}, options()).items == items);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    try {
        const Statements statements = parse_statements({reinterpret_cast<const char *>(data), size});
        Items items;
        try {
            REQUIRE(parse_statements(text_of(statements)) == statements);
        } catch (const Failure &) {
            REQUIRE(false);
        }
        items = apply(statements, {}, options()).items;
        try {
            check_round_trip(items);
        } catch (const Failure &) {
            REQUIRE(false);
        }
    } catch (const Failure &failure) {
        REQUIRE(failure.code() == ExitCode::bad_input || failure.code() == ExitCode::not_found ||
                failure.code() == ExitCode::negative);
    }
    return 0;
}
