// SPDX-License-Identifier: Apache-2.0
//
// The records on disk, as the control socket shows them.
#pragma once

#include "control/json.hpp"
#include "journal/recorder.hpp"

namespace service {

// Writes members: "journal", whether records are kept on disk; then their number and size, the
// alarms, and "groups" with the records that wait for each.
void write_accounting(JsonWriter &out, const Recorder &recorder);

}  // namespace service
