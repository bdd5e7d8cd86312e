// SPDX-License-Identifier: Apache-2.0
//
// The waits of retransmission.

#include "radius/retransmission.hpp"

#include <random>

namespace radius {
namespace {

constexpr double kJitter = 0.1;

net::Time scaled(net::Time time, double factor) {
    return static_cast<net::Time>(static_cast<double>(time) * factor);
}

}  // namespace

net::Time wait_after_try(const ServerSettings &settings, net::Time previous, double random) {
    const double change = kJitter * random;
    const net::Time wait =
        previous == 0 ? scaled(settings.timeout, 1 + change) : scaled(previous, 2 + change);
    return wait > settings.longest_timeout ? scaled(settings.longest_timeout, 1 + change) : wait;
}

net::Time longest_wait(const ServerSettings &settings) {
    net::Time sum = 0;
    net::Time wait = 0;
    for (int i = 0; i < settings.tries; ++i) {
        wait = wait_after_try(settings, wait, 1);
        sum += wait;
    }
    return sum;
}

// Not for secrets: it only spreads clients over time.
double random_fraction() {
    thread_local std::minstd_rand engine{std::random_device{}()};
    return std::uniform_real_distribution<double>(-1, 1)(engine);
}

}  // namespace radius
