// SPDX-License-Identifier: Apache-2.0
//
// A user with a full credential, and the attributes that the credential turns
// into, for the tests of the requests.
#pragma once

#include "aaa/credentials.h"
#include "support/messages.hpp"

namespace messages {

inline constexpr uint32_t kMethodRadius = 3;

// Every text in writable memory of its own, as callers have it.
struct User {
    User() {
        cred.username = name;
        cred.password = password;
        cred.ttyname = tty;
        cred.remote_addr = remote;
        cred.ifh = 0x11;
        cred.ipaddr = 0x0A000001;
        cred.authen_method = kMethodRadius;
        cred.tty_mnemonic = mnemonic;
        cred.user_db_flag = 0x22;
    }
    User(const User &) = delete;
    User &operator=(const User &) = delete;

    char name[8] = "alice";
    char password[8] = "pw";
    char tty[16] = "/dev/vty0";
    char remote[16] = "192.0.2.9";
    char mnemonic[8] = "vty0";
    aaa_usercred_t cred{};
};

// What a User adds to a request. Services that log a user in add the terminal
// and the address that the user comes from; accounting adds no password.
enum class Service { with_terminal, plain };
enum class Kind { request, accounting };

inline Pairs user_pairs(Service service, Kind kind = Kind::request) {
    Pairs pairs = {text(257, "alice"), u32(39, kMethodRadius, 0x400)};
    if (service == Service::with_terminal) {
        pairs = pairs + Pairs{text(20, "/dev/vty0"), text(61, "vty0"), u32(62, 0x22), text(37, "192.0.2.9")};
    }
    pairs = pairs + Pairs{u32(22, 0x11), u32(264, 0x0A000001)};
    if (kind == Kind::request) {
        pairs = pairs + Pairs{text(258, "pw", 0x400)};
    }
    return pairs;
}

inline Pair message_type(uint32_t type) {
    return u32(3, type, 0x400);
}

// Where a request goes: record, outputs, buffer.
struct Place {
    explicit Place(std::size_t capacity = 4096) : buffer(capacity, '\x5A') {}
    uint32_t size() const { return static_cast<uint32_t>(buffer.size()); }
    bool buffer_untouched() const { return buffer == std::vector<char>(buffer.size(), '\x5A'); }

    Record record;
    Iov iov;
    std::vector<char> buffer;
};

// The pointers of a Place, some of them left out.
struct Pointers {
    // Bits of `missing`: 1 record, 2 io-vector, 4 count, 8 buffer, 16 size.
    explicit Pointers(Place &place, unsigned missing = 0)
        : record((missing & 1) != 0 ? nullptr : place.record.data()),
          iov((missing & 2) != 0 ? nullptr : place.iov.out()),
          count((missing & 4) != 0 ? nullptr : place.iov.count_out()),
          buffer((missing & 8) != 0 ? nullptr : place.buffer.data()),
          size((missing & 16) != 0 ? 0 : place.size()) {}

    void *record;
    iov_t **iov;
    uint32_t *count;
    char *buffer;
    uint32_t size;
};
inline constexpr unsigned kNoRecord = 1, kNoIov = 2, kNoCount = 4, kNoBuffer = 8, kNoSize = 16,
                          kAllMissing = 31;

// Traces of the given flags but those of the credential functions, which
// begin with the function's name.
inline Traces own_traces(std::initializer_list<uint32_t> flags = {1, 2, 3}) {
    Traces traces = compose_traces(flags);
    std::erase_if(traces, [](const fake::Trace &trace) { return trace.text.starts_with("[aaa_lib_"); });
    return traces;
}

// A packet's list after a successful fill, to be freed by its consumer.
inline List take_list(const Record &packet) {
    return List(packet.list());
}

}  // namespace messages
