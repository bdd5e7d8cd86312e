// SPDX-License-Identifier: Apache-2.0
//
// radcli: attributes as RADIUS carries them.

#include <radcli/radcli.h>

#include "peer.hpp"

namespace peers {

namespace {

rc_handle *handle() {
    static rc_handle *const made = rc_new();
    return made;
}

struct Radcli {
    static constexpr char kName[] = "radcli";
    static constexpr char kWithout[] =
        "build_pack, round_trip: packs only inside the functions that send to a server with a shared secret; "
        "it unpacks attributes that the benchmark encoded";
    static constexpr bool kRecord = false;
    using Sent = VALUE_PAIR *;
    using Received = VALUE_PAIR *;

    static VALUE_PAIR *build(const Message &message) {
        VALUE_PAIR *list = nullptr;
        for (const Field &field : message.fields) {
            const bool added =
                field.text == nullptr
                    ? rc_avpair_add(handle(), &list, field.radius, &field.number, 0, 0) != nullptr
                    : rc_avpair_add(handle(), &list, field.radius, field.text, static_cast<int>(field.len),
                                    0) != nullptr;
            bench::require(added, "radcli: build");
        }
        return list;
    }

    // Type, length, value; a number with its most significant byte first.
    static Buffer made_elsewhere(const Message &message) {
        Buffer result;
        for (const Field &field : message.fields) {
            result.push_back(static_cast<char>(field.radius));
            result.push_back(static_cast<char>(field.len + 2));
            if (field.text != nullptr) {
                result.insert(result.end(), field.text, field.text + field.len);
            } else {
                const uint32_t number = __builtin_bswap32(field.number);
                const char *bytes = reinterpret_cast<const char *>(&number);
                result.insert(result.end(), bytes, bytes + sizeof number);
            }
        }
        return result;
    }

    static VALUE_PAIR *unpack(const char *message, uint32_t len) {
        VALUE_PAIR *list = rc_avpair_gen(handle(), nullptr, reinterpret_cast<const unsigned char *>(message),
                                         static_cast<int>(len), 0);
        bench::require(list != nullptr, "radcli: unpack");
        return list;
    }

    static Value find(VALUE_PAIR *list, uint32_t type) {
        VALUE_PAIR *pair = rc_avpair_get(list, radius_number(type), 0);
        if (pair == nullptr) {
            return {};
        }
        return is_number(type) ? Value::of_number(pair->lvalue)
                               : Value::of_text(pair->strvalue, pair->lvalue);
    }

    static void release(VALUE_PAIR *list) { rc_avpair_free(list); }
};

}  // namespace

void add_radcli() {
    bench::require(rc_read_dictionary(handle(), PEERS_DICTIONARY_DIR "/dictionary") == 0,
                   "radcli: cannot read bench/peers/dictionary");
    add_rows<Radcli>();
}

}  // namespace peers
