// SPDX-License-Identifier: Apache-2.0
//
// The FreeRADIUS library: attributes as RADIUS carries them.

#include "freeradius_pairs.h"
#include "peer.hpp"

namespace peers {

namespace {

struct FreeRadius {
    static constexpr char kName[] = "freeradius";
    static constexpr char kWithout[] = "";
    static constexpr bool kRecord = false;
    using Sent = radius_packet *;
    using Received = radius_packet *;

    static radius_packet *build(const Message &message) {
        radius_packet *request = freeradius_request();
        value_pair *tail = nullptr;
        int rc = request == nullptr ? -1 : 0;
        for (const Field &field : message.fields) {
            rc |= field.text == nullptr
                      ? freeradius_add_number(request, &tail, field.radius, field.number)
                      : freeradius_add_text(request, &tail, field.radius, field.text, field.len);
        }
        bench::require(rc == 0, "freeradius: build");
        return request;
    }

    static uint32_t pack(radius_packet *request, Buffer &out) {
        const int len = freeradius_encode(request, out.data(), static_cast<uint32_t>(out.size()));
        bench::require(len > 0, "freeradius: pack");
        return static_cast<uint32_t>(len);
    }

    static radius_packet *unpack(char *message, uint32_t len) {
        radius_packet *packet = freeradius_decode(message, len);
        bench::require(packet != nullptr, "freeradius: unpack");
        return packet;
    }

    static Value find(const radius_packet *packet, uint32_t type) {
        const freeradius_value value = freeradius_find(packet, radius_number(type));
        if (value.len == 0) {
            return {};
        }
        return value.text != nullptr ? Value::of_text(value.text, value.len) : Value::of_number(value.number);
    }

    static void release(radius_packet *packet) { freeradius_release(packet); }
};

}  // namespace

void add_freeradius() {
    bench::require(freeradius_start(PEERS_DICTIONARY_DIR) == 0,
                   "freeradius: cannot read bench/peers/dictionary");
    add_rows<FreeRadius>();
}

}  // namespace peers
