// SPDX-License-Identifier: Apache-2.0
//
// Replies of a server, as the library composes them and the transport sends them, for
// tests that are the server.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"

namespace replies {

// Puts pairs into the list of a reply.
using Fill = std::function<void(avlist *)>;

inline Fill status(uint32_t value) {
    return [value](avlist *list) { EXPECT_EQ(aaa_util_avlist_status_add(value, 4, list), AAA_OK); };
}

inline void add_text(avlist *list, uint32_t type, const std::string &text) {
    EXPECT_EQ(aaa_util_avpair_add_attr(list, type, text.c_str(), static_cast<uint32_t>(text.size()) + 1, 0),
              AAA_OK);
}

// A classic reply as the library composes it and the transport sends it.
inline std::string classic_reply(const Fill &fill, cerrno result = AAA_OK) {
    avlist *list = nullptr;
    EXPECT_EQ(aaa_avpair_create_list("reply", &list), AAA_OK);
    fill(list);
    aaa_reply_hdr_t header{};
    header.status = result;
    iov_t *iov = nullptr;
    uint32_t count = 0;
    std::vector<char> buffer(32768);
    EXPECT_EQ(aaa_util_reply_compose(&header, &iov, &count, buffer.data(),
                                     static_cast<uint32_t>(buffer.size()), list, 0, nullptr),
              AAA_OK);
    std::string bytes;
    for (uint32_t i = 0; i < count; ++i) {
        bytes.append(static_cast<const char *>(iov[i].base), iov[i].len);
    }
    const uint32_t fields[2] = {AAA_TRANSPORT_MAGIC, static_cast<uint32_t>(bytes.size())};
    std::memcpy(bytes.data(), fields, sizeof fields);
    aaa_avpair_free_list(list);
    std::free(iov);
    return bytes;
}

// The length in a classic header is what the message has.
inline std::string with_length(std::string bytes) {
    const auto length = static_cast<uint32_t>(bytes.size());
    if (bytes.size() >= 8) {
        std::memcpy(bytes.data() + 4, &length, sizeof length);
    }
    return bytes;
}

}  // namespace replies
