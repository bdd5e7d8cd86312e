// SPDX-License-Identifier: Apache-2.0
//
// What aaactl's exit status says. Scripts rely on the numbers: they stay.

#pragma once

namespace aaactl {

enum class ExitCode : int {
    ok = 0,           // done, and the answer is yes
    negative = 1,     // done, and the answer is no: denied, differences, findings
    usage = 2,        // the command line is wrong; nothing was done
    bad_input = 3,    // a message, a text, a file or a stored item does not say what it should
    not_found = 4,    // what was asked for is not there
    unavailable = 5,  // the system database, a key file or a server cannot be reached
    failed = 6,       // anything else went wrong; the message says what
};

}  // namespace aaactl
