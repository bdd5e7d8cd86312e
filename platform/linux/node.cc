// SPDX-License-Identifier: Apache-2.0
//
// The kind of node, and services that are one system call.

#include "platform/node.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config_file.hpp"
#include "log.hpp"

namespace aaaplatform {

namespace {

constexpr char kNodeFile[] = "/etc/aaa/node.conf";

// 0 = not asked yet, else the answer plus 1. A node does not change its kind
// while a process runs.
constinit std::atomic<int> g_line_card{0};

int node_type_is_line_card(const char *type, const char *from) {
    if (std::strcmp(type, "line-card") == 0) {
        return 1;
    }
    if (std::strcmp(type, "route-processor") != 0) {
        log(kLogWarning, "BAD_SETTING",
            "%s: node type \"%.32s\" is neither line-card nor route-processor; using route-processor", from,
            type);
    }
    return 0;
}

int read_line_card() {
    const char *type = secure_getenv("AAA_NODE_TYPE");
    if (type != nullptr && *type != '\0') {
        return node_type_is_line_card(type, "AAA_NODE_TYPE");
    }
    const char *path = config_path("AAA_NODE_CONF", kNodeFile);
    ConfigFile file;
    if (!file.open(path)) {
        return 0;
    }
    ConfigLine line;
    while (file.next(&line)) {
        if (line.words == 2 && std::strcmp(line.word[0], "node-type") == 0) {
            return node_type_is_line_card(line.word[1], path);
        }
        file.complain("expected \"node-type line-card\" or \"node-type route-processor\"");
    }
    return 0;
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

int platform_am_i_lc(void) {
    int known = g_line_card.load(std::memory_order_relaxed);
    if (known == 0) {
        const int saved_errno = errno;
        known = read_line_card() + 1;
        g_line_card.store(known, std::memory_order_relaxed);
        errno = saved_errno;
    }
    return known - 1;
}

int32_t qm_gettid(void) {
    return static_cast<int32_t>(gettid());
}

const char *qm_inet_ntop(int family, const void *address, char *buffer, size_t limit) {
    if (address == nullptr || buffer == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    // A limit beyond the C library's type exceeds any text.
    const socklen_t size = limit > INET6_ADDRSTRLEN ? INET6_ADDRSTRLEN : static_cast<socklen_t>(limit);
    return inet_ntop(family, address, buffer, size);
}

int qm_close(int fd) {
    return close(fd);
}

}  // extern "C"
