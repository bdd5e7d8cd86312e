// SPDX-License-Identifier: Apache-2.0
//
// msgpack-c: the attributes are a map of type to value.

#include <msgpack.h>

#include "peer.hpp"

namespace peers {

namespace {

// The packer's output, in the caller's buffer; msgpack's own growing buffer would need a copy.
struct Cursor {
    char *at;
    char *end;
};

int write(void *data, const char *bytes, size_t len) {
    auto *cursor = static_cast<Cursor *>(data);
    if (len > static_cast<size_t>(cursor->end - cursor->at)) {
        return -1;
    }
    std::memcpy(cursor->at, bytes, len);
    cursor->at += len;
    return 0;
}

struct Msgpack {
    static constexpr char kName[] = "msgpack";
    static constexpr char kWithout[] =
        "build: no list to fill; the packer writes the message directly from the caller's values";
    static constexpr bool kRecord = false;
    using Received = msgpack_unpacked;

    static uint32_t build_pack(const Message &message, Buffer &out) {
        Cursor cursor{out.data(), out.data() + out.size()};
        msgpack_packer packer;
        msgpack_packer_init(&packer, &cursor, write);
        int rc = msgpack_pack_map(&packer, message.fields.size());
        for (const Field &field : message.fields) {
            rc |= msgpack_pack_uint32(&packer, field.type);
            rc |= field.text == nullptr ? msgpack_pack_uint32(&packer, field.number)
                                        : msgpack_pack_str_with_body(&packer, field.text, field.len);
        }
        bench::require(rc == 0, "msgpack: pack");
        return static_cast<uint32_t>(cursor.at - out.data());
    }

    static msgpack_unpacked unpack(const char *message, uint32_t len) {
        msgpack_unpacked received;
        msgpack_unpacked_init(&received);
        bench::require(msgpack_unpack_next(&received, message, len, nullptr) == MSGPACK_UNPACK_SUCCESS &&
                           received.data.type == MSGPACK_OBJECT_MAP,
                       "msgpack: unpack");
        return received;
    }

    static Value find(const msgpack_unpacked &received, uint32_t type) {
        const msgpack_object_map &map = received.data.via.map;
        for (uint32_t i = 0; i < map.size; i++) {
            const msgpack_object_kv &pair = map.ptr[i];
            if (pair.key.via.u64 != type) {
                continue;
            }
            return pair.val.type == MSGPACK_OBJECT_STR
                       ? Value::of_text(pair.val.via.str.ptr, pair.val.via.str.size)
                       : Value::of_number(static_cast<uint32_t>(pair.val.via.u64));
        }
        return {};
    }

    static void release(msgpack_unpacked &received) { msgpack_unpacked_destroy(&received); }
};

}  // namespace

void add_msgpack() {
    add_rows<Msgpack>();
}

}  // namespace peers
