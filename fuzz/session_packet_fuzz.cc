// SPDX-License-Identifier: Apache-2.0
//
// Whole session packets: built and read back field by field, and bytes of
// unknown origin given to the checked reader. The input is an operation (1
// byte) and
//
//   0   buffer size (2 bytes), then the bytes of a packet
//   1   type, key, value a, value b, connection id (4 bytes each), data: a
//       request is built and read back
//   2   the same for a response; value a is the error, value b the base of the others
//   3   as 1 or 2, by the lowest bit of the next byte; the packet is cut to a
//       length (2 bytes) and one byte changed (2 bytes position, 1 byte change)
//
// Every block has exactly the size that the contract requires.

#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "aaa/checked.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "fuzz_input.hpp"
#include "platform/node.h"
#include "testkit/fake_platform.hpp"

namespace {

constexpr std::size_t kHeader = 72;
constexpr std::size_t kDataAt = kHeader + 8;
constexpr uint32_t kMostData = 255;
constexpr char kFill = '\x3c';

using Bytes = std::string;

uint32_t word_at(const Bytes &packet, std::size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, packet.data() + at, sizeof value);
    return value;
}

std::unique_ptr<char[]> block(const Bytes &bytes) {
    auto copy = std::make_unique<char[]>(bytes.size());
    bytes.copy(copy.get(), bytes.size());
    return copy;
}

bool carries_data(uint32_t type) {
    return type == 11 || type == 16;
}

// ---- the checked reader ---------------------------------------------------------

cerrno expected_code(const Bytes &packet, std::size_t room) {
    if (packet.size() < kDataAt) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    if (!carries_data(word_at(packet, 8))) {
        return AAA_ERR_INVALID_MSG_TYPE;
    }
    const uint32_t length = word_at(packet, kHeader + 4);
    if (length > kMostData || kDataAt + length > packet.size()) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    return length > room ? AAA_ERR_BUFFER_TOO_SMALL : AAA_OK;
}

// A packet with space for all of its data, as the plain reader assumes.
void compare_with_plain(const Bytes &packet, const Bytes &data) {
    if (packet.size() < kDataAt + kMostData) {
        return;
    }
    for (const auto get : {aaa_sess_get_msg_req_type_data, aaa_sess_get_msg_res_type_data}) {
        Bytes out(kMostData, kFill);
        uint32_t length = 0;
        const auto bytes = block(packet);
        REQUIRE(get(bytes.get() + kHeader, out.data(), &length, word_at(packet, 8)) == AAA_OK);
        REQUIRE(out.substr(0, length) == data);
    }
}

void read_checked(const Bytes &packet, std::size_t room) {
    constexpr uint32_t kUntouched = 0xdead;
    const auto bytes = block(packet);
    const auto out = block(Bytes(room, kFill));
    uint32_t length = kUntouched;
    const cerrno rc = aaa_sess_get_type_data_checked(bytes.get(), packet.size(), out.get(), room, &length);
    REQUIRE(rc == expected_code(packet, room));
    if (rc != AAA_OK) {
        REQUIRE(Bytes(out.get(), room) == Bytes(room, kFill));
        REQUIRE(length == (rc == AAA_ERR_BUFFER_TOO_SMALL ? word_at(packet, kHeader + 4) : kUntouched));
        return;
    }
    const Bytes data = packet.substr(kDataAt, word_at(packet, kHeader + 4));
    REQUIRE(length == data.size());
    REQUIRE(Bytes(out.get(), room) == data + Bytes(room - data.size(), kFill));
    compare_with_plain(packet, data);
}

// ---- packets that are built -----------------------------------------------------

struct Parameters {
    uint32_t type, key, a, b, connection;
    Bytes data;

    explicit Parameters(fuzz::Input &input)
        : type(any_type(input.word())),
          key(input.word()),
          a(input.word()),
          b(input.word()),
          connection(input.word()),
          data(input.rest()) {}

    // Known types are frequent, any other is possible.
    static uint32_t any_type(uint32_t value) { return value < 0x100 ? value % 28 : value - 0x100; }
    [[nodiscard]] Bytes stored() const { return data.substr(0, data.size() <= 255 ? data.size() : 254); }
};

void check_header(const Bytes &packet, const Parameters &p, uint32_t key, const void *list, char unwritten) {
    aaa_sess_hdr_t hdr{};
    hdr.marker = 16;
    hdr.key = key;
    hdr.type = p.type;
    hdr.conn_id = p.connection;
    hdr.pid = static_cast<uint32_t>(getpid());
    hdr.tid = static_cast<uint32_t>(qm_gettid());
    hdr.magic = 0x414E;
    hdr.version = 2;
    std::memset(&hdr.unwritten60, unwritten, sizeof hdr.unwritten60);
    hdr.list = reinterpret_cast<uintptr_t>(list);
    REQUIRE(packet.substr(0, kHeader) == Bytes(reinterpret_cast<const char *>(&hdr), sizeof hdr));
}

Bytes words(std::initializer_list<uint32_t> values) {
    Bytes bytes;
    for (const uint32_t value : values) {
        bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
    }
    return bytes;
}

// The payload of each type, as the packets are documented.
Bytes request_payload(const Parameters &p) {
    if (p.type == 0) {
        return Bytes(36, '\0');
    }
    if (p.type == 1 || p.type == 2) {
        return Bytes(p.type == 1 ? 4 : 8, '\0');
    }
    if (p.type > 26) {
        return "";
    }
    const bool takes_a = (p.type >= 8 && p.type <= 12) || p.type >= 24;
    return words({takes_a ? p.a : p.b});
}

Bytes response_payload(const Parameters &p) {
    const uint32_t error = p.a;
    const uint32_t roleover = error != 0 ? p.b : 0;
    const uint32_t status = error != 0 ? p.b + 1 : 0;
    if (p.type == 0) {
        return words({p.b + 2, 2, 0, error});
    }
    if (p.type >= 3 && p.type <= 7) {
        return words({status, error, roleover, 0});
    }
    if (p.type == 8) {
        return words({error, p.b + 3, p.b + 4, 0});
    }
    if (p.type == 14 || p.type == 15) {
        return words({error != 0 ? 1u : 0u, error, roleover, 0});
    }
    Bytes payload = words({error});
    payload.resize(carries_data(p.type) ? AAA_SESS_RSP_SIZE_DATA - kHeader
                                        : AAA_SESS_RSP_SIZE_OTHER - kHeader);
    return payload;
}

// Adds the data after the first word, which does not change.
void add_data(Bytes &payload, const Parameters &p, std::size_t room) {
    const uint32_t size = static_cast<uint32_t>(p.stored().size());
    payload.replace(4, 4, words({size}));
    payload.replace(8, size, p.stored());
    REQUIRE(payload.size() == room);
}

Bytes build_request(const Parameters &p) {
    const bool with_data = carries_data(p.type);
    Bytes expected = request_payload(p);
    expected.resize(with_data ? 8 + kMostData : expected.size(), kFill);
    const auto packet = block(Bytes(kHeader + expected.size(), kFill));
    avlist list{};
    REQUIRE(aaa_session_fill_request(packet.get(), &list, p.type, p.a, p.b) == AAA_OK);
    REQUIRE(aaa_session_mngr_set_connection_id(packet.get(), p.connection) == AAA_OK);
    if (with_data) {
        REQUIRE(aaa_sess_fill_msg_req_type_data(packet.get() + kHeader, p.data.data(),
                                                static_cast<uint32_t>(p.data.size()), p.type) == AAA_OK);
        add_data(expected, p, 8 + kMostData);
    }
    Bytes built(packet.get(), kHeader + expected.size());
    check_header(built, p, 0, &list, kFill);
    REQUIRE(built.substr(kHeader) == expected);
    return built;
}

Bytes build_response(const Parameters &p) {
    aaa_sess_ctx_t context{p.type, p.key};
    void *made = nullptr;
    REQUIRE(aaa_session_fill_response(&made, nullptr, &context, p.a, p.b, p.b + 1, p.b + 2, p.b + 3,
                                      p.b + 4) == AAA_OK);
    const std::unique_ptr<void, void (*)(void *)> packet(made, std::free);
    REQUIRE((made != nullptr) == (p.type <= 26));
    if (made == nullptr) {
        return "";
    }
    REQUIRE(aaa_session_mngr_set_connection_id(made, p.connection) == AAA_OK);
    Bytes expected = response_payload(p);
    if (carries_data(p.type)) {
        REQUIRE(aaa_sess_fill_msg_res_type_data(static_cast<char *>(made) + kHeader, p.data.data(),
                                                static_cast<uint32_t>(p.data.size()), p.type) == AAA_OK);
        add_data(expected, p, AAA_SESS_RSP_SIZE_DATA - kHeader);
    }
    Bytes built(static_cast<const char *>(made), kHeader + expected.size());
    check_header(built, p, p.key, nullptr, '\0');
    REQUIRE(built.substr(kHeader) == expected);
    return built;
}

Bytes build(fuzz::Input &input, bool response) {
    const Parameters parameters(input);
    return response ? build_response(parameters) : build_request(parameters);
}

// Reading a built packet must give its data, or the refusal of its type.
void build_and_read(fuzz::Input &input, bool response) {
    const Parameters p(input);
    const Bytes packet = response ? build_response(p) : build_request(p);
    read_checked(packet, kMostData);
    read_checked(packet, p.data.empty() ? 0 : p.data.size() - 1);
    if (carries_data(p.type)) {
        Bytes out(kMostData, kFill);
        uint32_t length = 0;
        REQUIRE(aaa_sess_get_type_data_checked(packet.data(), packet.size(), out.data(), out.size(),
                                               &length) == AAA_OK);
        REQUIRE(out.substr(0, length) == p.stored());
    }
}

void read_damaged(fuzz::Input &input) {
    const bool response = input.byte() % 2 != 0;
    const std::size_t cut = input.number(2);
    const std::size_t place = input.number(2);
    const uint8_t change = input.byte();
    Bytes packet = build(input, response);
    packet.resize(std::min(packet.size(), cut % 400));
    if (!packet.empty()) {
        char &byte = packet[place % packet.size()];
        byte = static_cast<char>(byte ^ change);
    }
    read_checked(packet, kMostData);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fake::clear_journal();
    fuzz::Input input(data, size);
    const uint8_t operation = input.byte() % 4;
    if (operation == 0) {
        const std::size_t room = input.number(2) % 300;
        read_checked(input.rest(), room);
    } else if (operation == 3) {
        read_damaged(input);
    } else {
        build_and_read(input, operation == 2);
    }
    return 0;
}
