// SPDX-License-Identifier: Apache-2.0
//
// A server that answers each request with what a test has prepared, well-formed
// or not. It serves one connection.

#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "aaa/aaautil.h"
#include "support/replies.hpp"
#include "support/transport.hpp"

namespace aaactl_test {

// One received request, as a test looks at it.
struct Request {
    std::string bytes;
    avlist *list = nullptr;

    std::string text(uint32_t type) const {
        char value[2048] = "";
        uint32_t len = 0;
        return aaa_util_avlist_value_copy(list, type, 0, value, sizeof value - 1, &len) == AAA_OK ? value
                                                                                                  : "";
    }
};

// The bytes to send for a request; none: say nothing.
using Answer = std::function<std::string(const Request &)>;

class ScriptedServer {
  public:
    // Answers the n-th request with the n-th answer; then the connection is closed, unless `stay`: then only
    // when the client has gone.
    ScriptedServer(const std::string &path, std::vector<Answer> answers, bool stay = false)
        : listener_(transport_test::listen_at(path)), answers_(std::move(answers)), stay_(stay) {
        thread_ = std::thread([this] { serve(); });
    }
    ~ScriptedServer() {
        shutdown(transport_test::descriptor(listener_), SHUT_RDWR);  // maybe no one has come
        thread_.join();
    }
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

  private:
    static Request request_of(const aaa_transport_msg_t &msg) {
        aaa_transport_head_t head;
        avlist *list = nullptr;
        EXPECT_EQ(aaa_transport_read_request(&msg, &head), AAA_OK);
        EXPECT_EQ(aaa_transport_unpack(&msg, head.list_at, &list), AAA_OK);
        return {std::string(reinterpret_cast<const char *>(msg.u.bytes), msg.len), list};
    }

    void serve() {
        const transport_test::Transport client = transport_test::accept_from(listener_);
        if (client == nullptr) {
            return;
        }
        const auto msg = std::make_unique<aaa_transport_msg_t>();
        const auto receive = [&] {
            return aaa_transport_receive(client.get(), msg.get(), AAA_TRANSPORT_NEVER) == AAA_OK;
        };
        for (const Answer &answer : answers_) {
            if (!receive()) {
                break;
            }
            const Request request = request_of(*msg);
            const std::string bytes = answer(request);
            aaa_avpair_free_list(request.list);
            if (!bytes.empty()) {
                transport_test::send_raw(client, bytes);
            }
        }
        while (stay_ && receive()) {
        }
    }

    transport_test::Transport listener_;
    std::vector<Answer> answers_;
    bool stay_;
    std::thread thread_;
};

using replies::add_text;
using replies::classic_reply;
using replies::Fill;
using replies::status;
using replies::with_length;

inline Answer always(const std::string &bytes) {
    return [bytes](const Request &) { return bytes; };
}

}  // namespace aaactl_test
