// SPDX-License-Identifier: Apache-2.0
//
// A method list as a diagram: what happens when a step accepts, refuses or does not answer.

#pragma once

#include <string>

#include "config/explanation.hpp"
#include "report/html.hpp"

namespace aaactl {

// `id`: of the element, unique in the page. The text of the steps follows the diagram as a list, so that
// nothing is only in the picture.
void write_flow(Html &page, const Explanation &list, const std::string &id);

}  // namespace aaactl
