// SPDX-License-Identifier: Apache-2.0
//
// Handles of the transport that release themselves and a fixture with a path, for
// tests that are a server, a client, or both.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>
#include <string>

#include "aaa/result_codes.h"
#include "aaa/transport.h"
#include "support/temp_dir.hpp"

namespace transport_test {

constexpr uint32_t kShort = 30;  // ms: deadline of calls for which nothing ever comes

// A directory with the path of a socket in it.
class SocketTest : public testing::Test {
  protected:
    TempDir dir_;
    const std::string path_ = dir_.path("socket");
};

struct FreeTransport {
    void operator()(aaa_transport_t *transport) const { aaa_transport_free(transport); }
};
using Transport = std::unique_ptr<aaa_transport_t, FreeTransport>;

inline Transport make_transport() {
    aaa_transport_t *made = nullptr;
    EXPECT_EQ(aaa_transport_create(&made), AAA_OK);
    return Transport(made);
}

inline Transport listen_at(const std::string &path) {
    Transport listener = make_transport();
    EXPECT_EQ(aaa_transport_listen(listener.get(), path.c_str()), AAA_OK)
        << path << ": " << std::strerror(aaa_transport_errno(listener.get()));
    return listener;
}

inline Transport connect_to(const std::string &path) {
    Transport client = make_transport();
    EXPECT_EQ(aaa_transport_connect(client.get(), path.c_str(), AAA_TRANSPORT_ANY_USER, AAA_TRANSPORT_NEVER),
              AAA_OK)
        << path << ": " << std::strerror(aaa_transport_errno(client.get()));
    return client;
}

// Null when the listener was shut down meanwhile.
inline Transport accept_from(const Transport &listener) {
    Transport connection = make_transport();
    const cerrno rc = aaa_transport_accept(listener.get(), connection.get(), AAA_TRANSPORT_NEVER);
    return rc == AAA_OK ? std::move(connection) : nullptr;
}

inline int descriptor(const Transport &transport) {
    return aaa_transport_descriptor(transport.get());
}

// Sends bytes as they are, well-formed or not.
inline bool send_raw(const Transport &transport, const std::string &bytes) {
    return send(descriptor(transport), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

}  // namespace transport_test
