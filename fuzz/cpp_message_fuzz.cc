// SPDX-License-Identifier: Apache-2.0
//
// Messages of unknown origin through the C++ interface: the first byte chooses a reader and a
// type of request, the rest is the message. What is accepted must be made of its own bytes,
// and its list must survive packing.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <span>

#include "aaa/cpp/decode.hpp"
#include "testkit/fake_platform.hpp"

namespace {

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

bool is_inside(std::span<const std::byte> part, std::span<const std::byte> whole) {
    return part.empty() ||
           (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

// Every pair can be read as every type; the packed list gives the same pairs again.
void check_list(std::optional<aaa::list> &attributes) {
    if (!attributes) {
        return;
    }
    require(attributes->is_sane(), "an accepted list is malformed");
    std::size_t count = 0;
    for (const aaa::attribute pair : *attributes) {
        (void)pair.get<std::uint64_t>();
        (void)pair.get<std::uint32_t>();
        (void)pair.get<aaa::ipv4>();
        require(pair.get<std::string_view>()->size() <= pair.value().size(),
                "a text is longer than its value");
        ++count;
    }
    const aaa::list original = attributes->clone().value();
    aaa::list again = aaa::list::unpack(attributes->pack().value()).value();
    require(again.size() == count, "packing lost pairs");
    auto expected = original.begin();
    for (const aaa::attribute pair : again) {
        require(pair == *expected++, "packing changed a pair");
    }
    require(attributes->is_spent() && attributes->empty(), "a packed list can be read");
}

void check_request(aaa::result<aaa::request> read, std::span<const std::byte> message) {
    if (read) {
        require(is_inside(read->block, message) && is_inside(bytes_of(read->text), message) &&
                    is_inside(bytes_of(read->text2), message),
                "a part of a request is not in the message");
        check_list(read->attributes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto message = std::as_bytes(std::span(data + 1, size - 1));
    if (data[0] == 0xff) {
        check_request(aaa::decode_server_message(message), message);
    } else if (data[0] >= 0x80) {
        auto read = aaa::decode_reply(static_cast<aaa::request_type>(data[0] - 0x80), message);
        if (read) {
            require(is_inside(read->data, message), "the data of a reply are not in the message");
            check_list(read->attributes);
        }
    } else {
        check_request(aaa::decode_request(message), message);
    }
    return 0;
}
