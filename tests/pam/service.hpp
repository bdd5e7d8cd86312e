// SPDX-License-Identifier: Apache-2.0
//
// The AAA service as a test wants it: a thread that answers each request with what a
// function of the test says, or not at all.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "aaa/aaautil.h"
#include "support/replies.hpp"
#include "support/transport.hpp"

namespace pam_test {

// What a test looks at in a request.
struct Request {
    uint32_t type = 0;          // AAA_REQ_...
    uint32_t message_type = 0;  // AAA_MT_..., 0 when there is none
    uint32_t service = 0;
    uint32_t option = 0;
    uint32_t session = 0;
    uint32_t login = 0;  // number that the client gives its login
    std::string user, password, terminal, address, list, state, command, data;
};

struct Action {
    std::string bytes;     // sent when not empty
    bool hang_up = false;  // close the connection then
};

using Script = std::function<Action(const Request &)>;

inline Action answer(const replies::Fill &fill, cerrno result = AAA_OK) {
    return {replies::classic_reply(fill, result)};
}
inline Action status(uint32_t value) {
    return answer(replies::status(value));
}
inline Action say(uint32_t value, const std::string &message) {
    return answer([&](avlist *list) {
        replies::status(value)(list);
        replies::add_text(list, AAA_REPLYMSG_ATTR, message);
    });
}

// An answer to an accounting request has no list.
Action accounted();

class Service {
  public:
    Service(std::string path, Script script);
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    void set(Script script);
    std::vector<Request> requests();
    size_t connections();                  // accepted so far
    void wait_for_hang_ups(size_t count);  // until so many connections were closed by the script

  private:
    void serve();
    bool handle(const transport_test::Transport &client);

    std::string path_;
    transport_test::Transport listener_;
    int stop_;
    std::mutex mutex_;
    Script script_;
    std::vector<Request> requests_;
    size_t connections_ = 0;
    size_t hang_ups_ = 0;
    std::condition_variable hung_up_;
    std::thread thread_;
};

// Everything passes: the service of tests that look at something else.
Action agree(const Request &request);

}  // namespace pam_test
