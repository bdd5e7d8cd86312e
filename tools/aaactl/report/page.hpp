// SPDX-License-Identifier: Apache-2.0
//
// The report as one page: no scripts, and nothing that is loaded from elsewhere.

#pragma once

#include <string>

#include "report/facts.hpp"

namespace aaactl {

std::string report_page(const Facts &facts);

}  // namespace aaactl
