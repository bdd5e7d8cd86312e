// SPDX-License-Identifier: Apache-2.0
//
// List operations that the input encodes, compared with a model; the independent
// verifier checks the list after every step.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/avlist_driver.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string fault = aaatest::drive_list({data, size});
    if (!fault.empty()) {
        std::fprintf(stderr, "%s\n", fault.c_str());
        std::abort();
    }
    return 0;
}
