// SPDX-License-Identifier: Apache-2.0
//
// Session packets and the data in them. Every block has exactly the size that the
// contract requires, so that a sanitizer sees the first byte too many.
//
// An input is an operation (1 byte), a message type (4), a length (4), and
// bytes that become the received payload or the data to store. Every operation
// ends with a comparison with a small model.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "testkit/fake_platform.hpp"

namespace {

constexpr std::size_t kPayload = 8 + 255;
constexpr std::size_t kRoom = 255;
constexpr uint8_t kFill = 0xC3;

using Bytes = std::vector<uint8_t>;

void require(bool holds, const char *what) {
    if (!holds) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

class Input {
  public:
    explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    uint8_t byte() {
        if (bytes_.empty()) {
            return 0;
        }
        const uint8_t value = bytes_[0];
        bytes_ = bytes_.subspan(1);
        return value;
    }
    uint32_t word() {
        uint32_t value = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            value |= uint32_t{byte()} << shift;
        }
        return value;
    }
    // The rest, cut or padded to the given size.
    Bytes rest(std::size_t size) const {
        Bytes result(size, kFill);
        std::copy_n(bytes_.begin(), std::min(size, bytes_.size()), result.begin());
        return result;
    }

  private:
    std::span<const uint8_t> bytes_;
};

bool carries_data(uint32_t type) {
    return type == 11 || type == 16;
}
uint32_t kept(uint32_t length) {
    return length <= 255 ? length : 254;
}

uint32_t stored_length(const Bytes &payload) {
    uint32_t length = 0;
    std::memcpy(&length, payload.data() + 4, sizeof length);
    return length;
}

// Reads an unchanged payload with any claimed length.
void read(Input input, uint32_t type, bool response) {
    const Bytes payload = input.rest(kPayload);
    Bytes out(kRoom, kFill);
    uint32_t length = 0xDEAD;
    const auto get = response ? aaa_sess_get_msg_res_type_data : aaa_sess_get_msg_req_type_data;
    const cerrno rc = get(payload.data(), out.data(), &length, type);

    Bytes expected(kRoom, kFill);
    if (carries_data(type)) {
        const uint32_t copied = kept(stored_length(payload));
        std::copy_n(payload.begin() + 8, copied, expected.begin());
        require(rc == AAA_OK && length == copied, "a payload was not read completely");
    } else {
        require(rc == (response ? 0xFFFFFFFFu : AAA_ERR_INVALID_ARG) && length == 0xDEAD,
                "a type without data was read");
    }
    require(out == expected, "other bytes than the data were read");
}

// Stores data of any claimed length and reads it back.
void write(Input input, uint32_t type, uint32_t length, bool response) {
    const Bytes data = input.rest(kept(length));
    Bytes payload(kPayload, kFill);
    const auto fill = response ? aaa_sess_fill_msg_res_type_data : aaa_sess_fill_msg_req_type_data;
    // An empty vector may have a null address, which has another meaning as an argument.
    const uint8_t nothing = 0;
    const cerrno rc = fill(payload.data(), data.empty() ? &nothing : data.data(), length, type);

    Bytes expected(kPayload, kFill);
    if (carries_data(type)) {
        const uint32_t stored = kept(length);
        std::memcpy(expected.data() + 4, &stored, sizeof stored);
        std::copy(data.begin(), data.end(), expected.begin() + 8);
        require(rc == AAA_OK, "data refused");
    } else {
        require(rc == (response ? AAA_ERR_INVALID_ARG : AAA_OK), "wrong code for a type without data");
    }
    require(payload == expected, "other bytes than the data were stored");
    if (carries_data(type)) {
        Bytes out(kRoom, kFill);
        uint32_t got = 0;
        require(aaa_sess_get_msg_req_type_data(payload.data(), out.data(), &got, type) == AAA_OK,
                "the data is not read back");
        require(got == data.size() && std::equal(data.begin(), data.end(), out.begin()),
                "other data is read back");
    }
}

std::size_t request_size(uint32_t type) {
    if (type == 0) {
        return 72 + 36;
    }
    if (type == 2) {
        return 72 + 8;
    }
    return type <= 26 ? 72 + 4 : 72;
}

// A request in a record of exactly the size that its type needs.
void request(uint32_t type, uint32_t value) {
    Bytes packet(request_size(type), kFill);
    require(aaa_session_fill_request(packet.data(), nullptr, type, value, value) == AAA_OK,
            "a request was refused");
    uint32_t stored = 0;
    std::memcpy(&stored, packet.data() + 8, sizeof stored);
    require(stored == type, "another type");
    require(std::count(packet.begin() + 60, packet.begin() + 64, kFill) == 4, "bytes 60 to 63 were written");
}

// A response with data, if it has space for data.
void response(Input input, uint32_t type, uint32_t length) {
    aaa_sess_ctx_t context{type, 1};
    void *made = nullptr;
    require(aaa_session_fill_response(&made, nullptr, &context, length, 2, 3, 4, 5, 6) == AAA_OK,
            "no response");
    const std::unique_ptr<void, void (*)(void *)> packet(made, std::free);
    require((made != nullptr) == (type <= 26), "a packet for an unknown type, or none for a known one");
    if (made == nullptr || !carries_data(type)) {
        return;
    }
    uint8_t *const payload = static_cast<uint8_t *>(made) + 72;
    const Bytes data = input.rest(kRoom);
    require(aaa_sess_fill_msg_res_type_data(payload, data.data(), length, type) == AAA_OK, "data refused");
    uint32_t error = 0;
    std::memcpy(&error, payload, sizeof error);
    require(error == length, "the data overwrote the error");
    require(payload[kPayload] == 0, "a byte past the data was written");
}

// Types with a meaning are frequent, any other is possible.
uint32_t any_type(uint32_t value) {
    constexpr uint32_t kCommon[] = {11, 16, 11, 16, 0, 2, 26, 27};
    return value < 0x80 ? kCommon[value % 8] : value - 0x80;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fake::clear_journal();
    Input input({data, size});
    const uint8_t operation = input.byte();
    const uint32_t type = any_type(input.word());
    const uint32_t length = input.word();
    switch (operation % 6) {
        case 0:
        case 1:
            read(input, type, operation % 6 == 1);
            break;
        case 2:
        case 3:
            write(input, type, length, operation % 6 == 3);
            break;
        case 4:
            request(type, length);
            break;
        default:
            response(input, type, length);
            break;
    }
    return 0;
}
