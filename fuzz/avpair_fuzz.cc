// SPDX-License-Identifier: Apache-2.0
//
// List operations that the input encodes, compared with a model; the independent
// verifier checks the list after every step, or at the end for most inputs while fuzzing.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_input.hpp"
#include "support/avlist_driver.hpp"
#include "testkit/fake_platform.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    using aaatest::Compare;
    fake::clear_journal();
    const bool every_step = fuzz::Sample(data, size).one_in(16);
    const std::string fault =
        aaatest::drive_list({data, size}, every_step ? Compare::after_every_step : Compare::at_the_end);
    if (!fault.empty()) {
        std::fprintf(stderr, "%s\n", fault.c_str());
        std::abort();
    }
    return 0;
}
