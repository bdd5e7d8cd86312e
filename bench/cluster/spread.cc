// SPDX-License-Identifier: Apache-2.0

#include "cluster/spread.hpp"

#include <algorithm>
#include <cstdio>

namespace cluster_bench {

std::uint64_t now() {
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
}

Spread spread_of(std::vector<double> values) {
    if (values.empty()) {
        return {};
    }
    std::sort(values.begin(), values.end());
    return {values[values.size() / 2], values[values.size() * 99 / 100], values.back(), values.size()};
}

std::string text(const Spread &spread) {
    char text[96];
    std::snprintf(text, sizeof text, "%.1f / %.1f / %.1f", spread.median, spread.high, spread.most);
    return text;
}

}  // namespace cluster_bench
