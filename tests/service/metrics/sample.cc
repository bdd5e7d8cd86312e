// SPDX-License-Identifier: Apache-2.0
//
// Prints one of each kind of metric, for Prometheus' check.

#include <cstdio>

#include "metrics/registry.hpp"

int main() {
    metrics::Registry registry;
    registry.counter("aaad_requests_total", "Requests, by kind.", {{"kind", "login"}}).add(3);
    registry
        .counter("aaad_requests_total", "Requests, by kind.", {{"kind", "a \"quoted\" \\ and\ntwo lines"}})
        .add();
    registry.gauge("aaad_journal_bytes", "Bytes of accounting records\non disk, with a \\.").set(1.5e9);
    metrics::Histogram &seconds =
        registry.histogram("aaad_request_duration_seconds", "Time until the answer.", {0.001, 0.01, 0.1, 1},
                           {{"kind", "login"}});
    seconds.observe(0.0005);
    seconds.observe(0.3);
    seconds.observe(30);
    return std::fputs(registry.text().c_str(), stdout) < 0 ? 1 : 0;
}
