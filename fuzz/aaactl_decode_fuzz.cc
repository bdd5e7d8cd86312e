// SPDX-License-Identifier: Apache-2.0
//
// aaactl's decode with messages of unknown origin. The input is a kind (1 byte,
// see kKinds) and the message; with kind 255 the rest is hexadecimal text.
// The verdict on a list is compared with the library's. Encoding either description of
// a well-formed message must give the same bytes, and a description without
// --show-secrets must never be encoded as if it were complete.

#include <memory>
#include <string>
#include <string_view>

#include "aaa/checked.h"
#include "aaa/result_codes.h"
#include "fuzz_input.hpp"
#include "message/hex_input.hpp"
#include "message/message_json.hpp"
#include "message/message_text.hpp"

namespace {

using aaactl::Failure;
using aaactl::Json;
using aaactl::Message;

constexpr uint8_t kHexText = 255;

cerrno verdict(const std::string &bytes) {
    avlist *list = nullptr;
    REQUIRE(aaa_avpair_create_list(nullptr, &list) == AAA_OK);
    const std::unique_ptr<avlist, void (*)(avlist *)> owner(list, aaa_avpair_free_list);
    return aaa_avpair_unpack_msg_checked(list, bytes.data(), bytes.size());
}

// No control byte may reach a terminal.
void require_printable(const std::string &text) {
    for (const char c : text) {
        REQUIRE(c == '\n' || (static_cast<unsigned char>(c) >= ' ' && c != '\x7f'));
    }
}

template <typename Encode>
bool encodes(Encode encode, const std::string &bytes) {
    try {
        return write_message(encode()) == bytes;
    } catch (const Failure &failure) {
        REQUIRE(failure.code() == aaactl::ExitCode::bad_input);
        return false;
    }
}

void round_trip(const Message &message, const std::string &bytes) {
    for (const bool secrets : {true, false}) {
        const std::string text = to_text(message, secrets);
        const Json document = to_json(message, secrets);
        const std::string json = document.dump();
        require_printable(text);
        require_printable(json);
        REQUIRE(Json::parse(json) == document);  // no byte was malformed UTF-8
        const bool from_text = encodes([&] { return aaactl::from_text(text); }, bytes);
        const bool from_json = encodes([&] { return aaactl::from_json(document); }, bytes);
        REQUIRE(from_text == from_json);
        REQUIRE(!secrets || from_text);
    }
}

void decode(const std::string &bytes, std::string_view kind, bool describe) {
    const Message message = aaactl::read_message(bytes, kind);
    const std::string written = write_message(message);
    if (kind == "list") {
        REQUIRE((message.fault ? message.fault->rc : cerrno{AAA_OK}) == verdict(bytes));
    }
    if (message.fault) {
        REQUIRE(message.fault->offset <= bytes.size());
        REQUIRE(bytes.starts_with(written));
    } else {
        REQUIRE(written == bytes);
    }
    if (describe && message.fault) {
        require_printable(to_json(message, false).dump());
    } else if (describe) {
        round_trip(message, bytes);
    }
}

void read_hex(const std::string &text) {
    try {
        REQUIRE(aaactl::bytes_of_hex(text).size() <= text.size() / 2);
    } catch (const Failure &failure) {
        REQUIRE(failure.code() == aaactl::ExitCode::bad_input);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t kind = input.byte();
    const std::string bytes = input.rest();
    if (kind == kHexText) {
        read_hex(bytes);
    } else if (!bytes.empty()) {
        // Descriptions take ten times as long as reading.
        decode(bytes, aaactl::message_kinds()[kind % aaactl::message_kinds().size()].name,
               fuzz::Sample(data, size).one_in(16));
    }
    return 0;
}
