// SPDX-License-Identifier: Apache-2.0
//
// The steps of requests, as the service's trace tells them, in lines for people.

#pragma once

#include <string>

#include "cli/output.hpp"

namespace aaactl {

class StepPrinter {
  public:
    explicit StepPrinter(Output &out) : out_(out) {}

    // Prints one step; a blank line before another login, a line before another day.
    void print(const Json &event);

  private:
    Output &out_;
    std::string last_id_, last_date_;
};

}  // namespace aaactl
