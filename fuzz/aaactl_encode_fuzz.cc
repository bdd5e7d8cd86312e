// SPDX-License-Identifier: Apache-2.0
//
// aaactl's encode with descriptions of messages, as text or (beginning with '{') as
// JSON. An accepted description must give a well-formed message, and decode's
// description of it must encode to the same bytes. Every other input must throw a
// Failure, and no other exception.

#include <string>

#include "fuzz_input.hpp"
#include "message/encode.hpp"
#include "message/message_json.hpp"
#include "message/message_text.hpp"

namespace {

using aaactl::Failure;
using aaactl::Message;

void require_inverse(const Message &made) {
    const std::string bytes = write_message(made);
    const Message message = aaactl::read_message(bytes, made.kind);
    REQUIRE(!message.fault);
    REQUIRE(write_message(message) == bytes);
    REQUIRE(write_message(aaactl::from_text(to_text(message, true))) == bytes);
    REQUIRE(write_message(aaactl::from_json(to_json(message, true))) == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    try {
        const Message made = aaactl::message_of({reinterpret_cast<const char *>(data), size});
        if (fuzz::Sample(data, size).one_in(4)) {
            require_inverse(made);
        }
    } catch (const Failure &failure) {
        REQUIRE(failure.code() == aaactl::ExitCode::bad_input);
        for (const char c : std::string(failure.what())) {
            REQUIRE(static_cast<unsigned char>(c) >= ' ' && c != '\x7f');
        }
    }
    return 0;
}
