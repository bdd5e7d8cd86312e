// SPDX-License-Identifier: Apache-2.0
//
// The bytes of a TACACS+ connection. The input is flags (1 byte), the lengths of pieces
// (4 bytes, used in turn), and bytes:
//
//   flag 1   the session is one of TLS
//   flag 2   the first packet gets the id, type and sequence number that the session waits for
//
// The packets are the same however the bytes are split, and together they are the
// beginning of the bytes. A session accepts a packet exactly when a second reading of its
// head does, and covering what it uncovered gives the packet again.

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz_input.hpp"
#include "tacacs/reader.hpp"

namespace {

constexpr std::uint32_t kSession = 0x01020304;
constexpr char kHead[] = {'\xc0', 2, 2};

struct Found {
    std::vector<std::string> packets;
    tacacs::Fault fault = tacacs::Fault::kNone;
    std::size_t pending = 0;

    bool operator==(const Found &) const = default;
};

void take_all(tacacs::PacketReader &reader, Found &found) {
    std::string packet;
    while ((found.fault = reader.next(packet)) == tacacs::Fault::kNone && !packet.empty()) {
        found.packets.push_back(packet);
    }
    found.pending = reader.pending();
}

Found split(const std::string &bytes, std::string_view lengths) {
    tacacs::PacketReader reader;
    Found found;
    std::size_t turn = 0;
    for (std::size_t at = 0; at < bytes.size() && found.fault == tacacs::Fault::kNone;) {
        const std::size_t length = 1 + static_cast<unsigned char>(lengths[turn++ % lengths.size()]);
        reader.add(std::string_view(bytes).substr(at, length));
        at += length;
        take_all(reader, found);
    }
    return found;
}

bool second_reading(const std::string &packet, bool is_tls) {
    const bool expected_session = packet.compare(4, 4, "\1\2\3\4") == 0;
    return expected_session && packet[1] == 2 && packet[2] == 2 && ((packet[3] & 1) != 0) == is_tls;
}

void open(const std::string &packet, bool is_tls) {
    static const tacacs::Protection secret = tacacs::Protection::secret("testing123");
    static const tacacs::Protection tls = tacacs::Protection::tls();
    const tacacs::Protection &protection = is_tls ? tls : secret;
    tacacs::Session session(tacacs::Type::kAuthorization, 0, protection, kSession);
    tacacs::SecretBytes request = tacacs::begin_packet(0);
    REQUIRE(session.seal(request, false));
    std::string opened = packet;
    tacacs::Head head;
    const tacacs::Fault fault = session.open(opened, head);
    REQUIRE((fault == tacacs::Fault::kNone) == second_reading(packet, is_tls));
    if (fault == tacacs::Fault::kNone && !is_tls) {
        REQUIRE(protection.combine(head, opened.data() + tacacs::kHeadSize, head.length));
    }
    REQUIRE(opened == packet);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t flags = input.byte();
    const std::string lengths = input.text(4);
    std::string bytes = input.rest();
    const bool is_tls = (flags & 1) != 0;
    if ((flags & 2) != 0 && bytes.size() >= tacacs::kHeadSize) {
        bytes.replace(0, sizeof kHead, kHead, sizeof kHead);
        bytes[3] = static_cast<char>((bytes[3] & ~1) | (is_tls ? 1 : 0));
        bytes.replace(4, 4, "\1\2\3\4");
    }
    tacacs::PacketReader reader;
    Found whole;
    reader.add(bytes);
    take_all(reader, whole);
    Found pieces = lengths.size() == 4 ? split(bytes, lengths) : whole;
    if (whole.fault != tacacs::Fault::kNone) {
        pieces.pending = whole.pending;  // the rest was not even offered
    }
    REQUIRE(pieces == whole || bytes.empty());
    std::string together;
    for (const std::string &packet : whole.packets) {
        together += packet;
        open(packet, is_tls);
    }
    REQUIRE(bytes.compare(0, together.size(), together) == 0);
    REQUIRE(together.size() + whole.pending == bytes.size());
    return 0;
}
