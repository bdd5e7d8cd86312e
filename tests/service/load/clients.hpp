// SPDX-License-Identifier: Apache-2.0
//
// Clients of aaad for a test of load: each sends requests of all kinds, one after another, and
// checks that each gets one answer, and that it is the answer to that request.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "service/aaad.hpp"

namespace load_test {

// What all clients have seen.
struct Counts {
    std::atomic<std::uint64_t> sent = 0;      // requests that must be answered
    std::atomic<std::uint64_t> answered = 0;  // with a decision, a question or an error
    std::atomic<std::uint64_t> errors = 0;    // of them: the service could not decide
    std::atomic<std::uint64_t> wrong = 0;     // of them: not what this request must get
    std::atomic<std::uint64_t> surplus = 0;   // answers to no request
    std::atomic<std::uint64_t> left = 0;      // requests whose client left before the answer

    // The first text that says what was wrong.
    void complain(const std::string &what);
    std::string complaint() const;

  private:
    mutable std::mutex mutex_;
    std::string complaint_;
};

inline constexpr int kUsers = 50;  // u0 to u49, password "secret", at the TACACS+ server and in the file

class LoadClient {
  public:
    LoadClient(std::string socket, unsigned number, bool has_radius, Counts &counts)
        : socket_(std::move(socket)), random_(number), has_radius_(has_radius), counts_(counts) {}

    // Sends so many requests.
    void run(int requests);

  private:
    void one();
    void log_in();
    void log_in_with_a_wrong_password();
    void answer_questions();
    void run_command();
    void record();
    void log_in_at_radius();
    void log_in_locally();
    void ping();
    void leave();

    aaad_test::Client &client();
    aaad_test::Ask ask(const std::string &list);
    // Counts an answer. False when it is none, or an error.
    bool take(const aaad_test::Reply &reply, const char *what);
    void expect(bool right, const char *what, const aaad_test::Reply &reply);
    int pick(int most) { return std::uniform_int_distribution<int>(0, most - 1)(random_); }

    const std::string socket_;
    std::mt19937 random_;
    const bool has_radius_;
    Counts &counts_;
    std::unique_ptr<aaad_test::Client> client_;
};

}  // namespace load_test
