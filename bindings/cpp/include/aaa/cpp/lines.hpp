/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_LINES_HPP
#define AAA_CPP_LINES_HPP

/**
 * @file
 * @brief Terminal lines and prompted input.
 */

#include <cstdint>
#include <cstring>
#include <string_view>

#include "aaa/cpp/memory.hpp"
#include "aaa/lines.h"

namespace aaa {

/** The name of a line for a device file: "/dev/vty1" becomes "dev-vty1". No text without memory. */
inline c_string line_name(std::string_view device) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({device});
    return texts ? c_string(aaa_util_convert_tty_name((*texts)[0])) : c_string();
}

/** How a line of input is read. */
struct input_options {
    std::uint32_t seconds = 0; /**< time limit; 0 for none */
    bool hidden = false;       /**< without echo, from the controlling terminal */
    bool line_feed = false;    /**< before the prompt */
    std::uint32_t most = 255;  /**< characters */
};

/**
 * Prompts for one line of input.
 *
 * Changes the process's SIGALRM action and its alarm clock; see aaa_util_read_input().
 * @return the characters, without a NUL; overwritten when they are released
 */
inline result<buffer> read_input(std::string_view prompt, input_options options = {}) noexcept {
    if (options.most == 0 || options.most > INT32_MAX) {
        return errc::invalid_argument;
    }
    result<detail::texts<1>> texts = detail::texts<1>::copy({prompt.data() != nullptr ? prompt : ""});
    if (!texts) {
        return failure(texts.code());
    }
    /* The line editor stores as many characters as it is told of, without a NUL. */
    const std::uint32_t told = options.most + (options.hidden ? 1u : 0u);
    result<buffer> line = buffer::make(std::size_t{told} + 1);
    if (!line) {
        return line;
    }
    const std::uint32_t flags =
        (options.hidden ? AAA_READ_HIDDEN : 0u) | (options.line_feed ? AAA_READ_LINEFEED : 0u);
    auto *const text = reinterpret_cast<char *>(line->data());
    if (const cerrno rc = aaa_util_read_input((*texts)[0], text, told, options.seconds, flags);
        rc != AAA_OK) {
        return failure(rc);
    }
    line->shrink(std::strlen(text));
    return line;
}

}  // namespace aaa

#endif /* AAA_CPP_LINES_HPP */
