// SPDX-License-Identifier: Apache-2.0
//
// A conversation with a running aaad over its control socket: lines of JSON in both directions.

#pragma once

#include <optional>
#include <string>
#include <utility>

#include "cli/command_line.hpp"
#include "cli/json.hpp"

namespace aaactl {

inline constexpr char kControlSocket[] = "/run/aaa/control.sock";

struct ControlOptions {
    std::string socket = kControlSocket;
    unsigned seconds = 10;
};
void add_control_options(Command sub, ControlOptions &options);

class ControlClient {
  public:
    // Failure(unavailable) when no service can be asked; the text says what to do.
    explicit ControlClient(ControlOptions options);
    ~ControlClient();
    ControlClient(const ControlClient &) = delete;
    ControlClient &operator=(const ControlClient &) = delete;

    // Sends a request; its reply is one of the next lines.
    void send(const Json &request);
    // The reply to a request that has one.
    Json ask(const std::string &request);
    // The reply to a request that was sent. Failure when none comes within the time, for the service's
    // error, and for what is no reply of aaad.
    Json reply(std::string_view request);
    // The same, with the events that precede it.
    Json event_or_reply(std::string_view request);
    // The next event of those that have arrived; nullopt when there is none.
    std::optional<Json> next_event();
    // Reads what has arrived. False at the end of the connection.
    bool read_some();
    // What has arrived and was not taken as lines, for answers that go on with other bytes.
    std::string take_bytes() { return std::exchange(in_, std::string()); }
    // No further requests.
    void end_requests();
    int fd() const { return fd_; }

  private:
    void connect();
    void wait_for_line();
    std::optional<Json> take_line();
    [[noreturn]] void silent() const;

    ControlOptions options_;
    int fd_ = -1;
    std::string in_;
};

// A copy in which every text is as people can read it: see escaped().
Json shown(const Json &document);

// A member, or what stands for it when the service has not sent it.
std::string text_of(const Json &document, std::string_view name);
uint64_t number_of(const Json &document, std::string_view name);
// A member with a number of microseconds, such as "1.5 ms"; "-" without the member.
std::string milliseconds(const Json &document, std::string_view name);

// "2026-11-22 13:05:46" and "13:05:46.123", local time.
std::string date_and_time(uint64_t seconds);
std::string time_of_day(uint64_t microseconds);
std::string when(uint64_t microseconds);  // the time of today, or the day
std::string date_of(uint64_t microseconds);

}  // namespace aaactl
