// SPDX-License-Identifier: Apache-2.0
//
// Checking settings.

#include "radius/settings.hpp"

namespace radius {
namespace {

constexpr int kMostTries = 100;
constexpr net::Time kLongestTime = 3600 * net::kSecond;

bool is_time(net::Time time) {
    return time > 0 && time <= kLongestTime;
}

}  // namespace

std::string fault_of(const ServerSettings &settings) {
    if (settings.address.size() == 0 || settings.address.port() == 0) {
        return "the server has no address or no port";
    }
    if (settings.local && settings.local->family() != settings.address.family()) {
        return "the local address and the server's address must both be IPv4 or both IPv6";
    }
    if (settings.local && settings.local->port() != 0) {
        return "the local address must have no port: each socket needs one of its own";
    }
    if (settings.secret.empty() && settings.tls.context == nullptr) {
        return "the server has no shared secret: without one anybody could answer for it";
    }
    if (settings.nas_identifier.size() > kMaxValue) {
        return "the NAS identifier is longer than 253 bytes";
    }
    if (!is_time(settings.timeout) || !is_time(settings.longest_timeout) || settings.rest < 0 ||
        settings.rest > kLongestTime) {
        return "the times must be above 0 and at most an hour";
    }
    if (!is_time(settings.connect_timeout) || !is_time(settings.reconnect) ||
        !is_time(settings.longest_reconnect) || !is_time(settings.watchdog) || !is_time(settings.idle)) {
        return "the times of connections must be above 0 and at most an hour";
    }
    if (settings.longest_timeout < settings.timeout) {
        return "the longest time-out must not be below the first";
    }
    if (settings.tries < 1 || settings.tries > kMostTries) {
        return "the number of tries must be 1 to " + std::to_string(kMostTries);
    }
    if (settings.tls.context != nullptr && settings.tls.name.empty()) {
        return "the name in the server's certificate is not set";
    }
    if (settings.max_connections < 1 || settings.max_connections > 256) {
        return "the number of connections must be 1 to 256";
    }
    if (settings.max_sockets < 1 || settings.max_sockets > 256) {
        return "the number of sockets must be 1 to 256";
    }
    return {};
}

}  // namespace radius
