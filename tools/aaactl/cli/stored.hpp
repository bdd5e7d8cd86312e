// SPDX-License-Identifier: Apache-2.0
//
// Whether the command has changed the database: when its output is lost, its user has to know that.

#pragma once

namespace aaactl {

inline bool &change_is_stored() {
    static bool is_stored = false;
    return is_stored;
}

}  // namespace aaactl
