// SPDX-License-Identifier: Apache-2.0
//
// The library itself, the baseline of every ratio.

#include "aaa/avpair.h"
#include "peer.hpp"

namespace peers {

namespace {

struct Aaautil {
    static constexpr char kName[] = "aaautil";
    static constexpr char kWithout[] = "";
    static constexpr bool kRecord = false;
    using Sent = avlist *;
    using Received = avlist *;

    static avlist *build(const Message &message) {
        avlist *list = nullptr;
        cerrno rc = aaa_avpair_create_list("bench", &list);
        for (const Attribute &a : message.attributes) {
            rc |= aaa_avpair_add(a.type, 0, a.value, 0, a.len, list);
        }
        bench::require(rc == 0, "build");
        return list;
    }

    static uint32_t pack(avlist *list, Buffer &out) {
        auto len = static_cast<uint32_t>(out.size());
        bench::require(aaa_avpair_pack_msg_to_buf(list, out.data(), &len) == 0, "pack");
        return len;
    }

    static avlist *unpack(char *message, uint32_t len) {
        avlist *list = nullptr;
        bench::require(aaa_avpair_unpack_msg_create(&list, message, len) == 0, "unpack");
        return list;
    }

    static Value find(const avlist *list, uint32_t type) {
        void *value = nullptr;
        uint32_t len = 0;
        if (aaa_avpair_find_type(type, nullptr, &value, &len, 0, list) != 0) {
            return {};
        }
        if (!is_number(type)) {
            return Value::of_text(value, len);
        }
        uint32_t number;
        std::memcpy(&number, value, sizeof number);
        return Value::of_number(number);
    }

    static void release(avlist *list) { aaa_avpair_free_list(list); }
};

}  // namespace

void add_aaautil() {
    add_rows<Aaautil>();
}

}  // namespace peers
