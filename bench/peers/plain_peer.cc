// SPDX-License-Identifier: Apache-2.0
//
// The plain loops of the list benchmarks, as a lower bound.

#include "peer.hpp"

namespace peers {

namespace {

using bench::PlainList;

struct Plain {
    static constexpr char kName[] = "plain";
    static constexpr char kWithout[] = "";
    static constexpr bool kRecord = false;
    using Sent = PlainList;
    using Received = PlainList;

    static PlainList build(const Message &message) {
        return bench::plain_build(message.attributes, message.pair_bytes);
    }

    static uint32_t pack(const PlainList &list, Buffer &out) {
        return bench::plain_pack(list, reinterpret_cast<unsigned char *>(out.data()), login().numbers.data());
    }

    static PlainList unpack(const char *message, uint32_t len) {
        return bench::plain_unpack(reinterpret_cast<const unsigned char *>(message), len,
                                   login().numbers.data());
    }

    static Value find(const PlainList &list, uint32_t type) {
        const bench::PlainValue value = bench::plain_find(list, type);
        if (value.bytes == nullptr) {
            return {};
        }
        if (!is_number(type)) {
            return Value::of_text(value.bytes, value.len);
        }
        uint32_t number;
        std::memcpy(&number, value.bytes, sizeof number);
        return Value::of_number(number);
    }

    static void release(PlainList &list) { bench::plain_free(list); }
};

}  // namespace

void add_plain() {
    add_rows<Plain>();
}

}  // namespace peers
