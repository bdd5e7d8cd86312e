// SPDX-License-Identifier: Apache-2.0
//
// Inside of the fake platform: the shared state's lock, the journal entry of
// one call, and the scripts. Library code can run before any static
// constructor of the program, so all state sits in function-local statics
// that are never destroyed.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "testkit/fail_alloc_region.hpp"

namespace fake::detail {

std::mutex &mutex();

// Reports misuse; callable with the state's lock held.
void problem(const std::string &text);
// See expect_the_library().
bool strict();

// Bound path of a database connection; the lock is held.
std::string connection_text(uint64_t connection);
void reset_platform();
void reset_logging();
void reset_events();
void reset_sysdb();
void reset_terminal();
void reset_libc();
void reset_node();

struct Conn {
    uint64_t handle;
};
struct Word {
    std::string_view text;
};

inline std::string render(Conn conn) {
    return connection_text(conn.handle);
}
inline std::string render(Word word) {
    return std::string(word.text);
}
inline std::string render(const char *text) {
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}
inline std::string render(char *text) {
    return render(static_cast<const char *>(text));
}
template <typename T>
std::string render(T value) {
    if constexpr (std::is_pointer_v<T>) {
        return value == nullptr ? "null" : "ptr";
    } else {
        static_assert(std::is_integral_v<T>);
        return std::to_string(value);
    }
}

enum class Journal { yes, no };

// One call of a platform function: holds the state's lock, keeps errno, and
// keeps the fake's allocations out of failure injection.
class Call {
  public:
    template <typename... Args>
    explicit Call(std::string_view function, Args... args) : Call(Journal::yes, function, args...) {}
    template <typename... Args>
    Call(Journal journal, std::string_view function, Args... args) : function_(function) {
        enter();
        if (journal == Journal::yes) {
            std::string text(function);
            text += '(';
            std::string_view separator;
            ((text += separator, text += render(args), separator = ", "), ...);
            text += ')';
            write(text);
        }
    }
    ~Call();
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    // The script's answer for this call, if there is one.
    std::optional<uint32_t> scripted() const { return scripted_; }
    void set_errno(int error) { errno_ = error; }
    // The text that a test gave for this function.
    std::optional<std::string> text() const;
    // Callbacks run without the lock and count for failure injection.
    template <typename F>
    auto unlocked(F &&callback) {
        leave();
        struct Back {
            Call &call;
            ~Back() { call.again(); }
        } back{*this};
        return callback();
    }

  private:
    void enter();
    void leave();
    void again();
    void write(const std::string &text);

    std::string_view function_;
    std::optional<uint32_t> scripted_;
    int errno_ = 0;
};

// Lock for the test's side of the fake.
class Access {
  public:
    Access() : lock_(mutex()) {}

  private:
    FailAlloc::Pause pause_;
    std::lock_guard<std::mutex> lock_;
};

}  // namespace fake::detail
