// SPDX-License-Identifier: Apache-2.0
//
// Packs a list, unpacks it again as bytes of unknown origin, prints a value.
#include <cstdio>
#include <memory>

#include <aaa/aaautil.h>

struct FreeList {
    void operator()(avlist *list) const { aaa_avpair_free_list(list); }
};
using List = std::unique_ptr<avlist, FreeList>;

static List make_list(const char *name) {
    avlist *list = nullptr;
    aaa_avpair_create_list(name, &list);
    return List(list);
}

int main() {
    const List sent = make_list("sent");
    const List received = make_list("received");
    if (!sent || !received || aaa_util_avlist_username_add("alice", 6, sent.get()) != AAA_OK) {
        return 1;
    }
    char message[256];
    uint32_t length = sizeof message;
    if (aaa_avpair_pack_msg_to_buf(sent.get(), message, &length) != AAA_OK ||
        aaa_avpair_unpack_msg_checked(received.get(), message, length) != AAA_OK) {
        return 2;
    }
    const char *const name = aaa_util_avlist_username_get(received.get());
    if (name == nullptr) {
        return 3;
    }
    std::puts(name);
    const List cut_short = make_list("cut short");
    return aaa_avpair_unpack_msg_checked(cut_short.get(), message, length - 4) == AAA_ERR_INVALID_MSG_SIZE
               ? 0
               : 4;
}
