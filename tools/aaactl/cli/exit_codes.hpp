// SPDX-License-Identifier: Apache-2.0
//
// The exit statuses of aaactl. Scripts rely on the numbers: do not change them.

#pragma once

namespace aaactl {

enum class ExitCode : int {
    ok = 0,  // done, and the answer is yes
    negative =
        1,  // done, and the answer is no: denied, differences, findings; or refused for what is configured
    usage = 2,        // the command line is wrong; nothing was done
    bad_input = 3,    // a message, a text, a file or a stored item is malformed
    not_found = 4,    // the requested item does not exist
    unavailable = 5,  // the system database, a key file or a server cannot be reached
    failed = 6,       // any other failure; the message names it
};

}  // namespace aaactl
