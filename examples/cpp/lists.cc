// SPDX-License-Identifier: Apache-2.0
//
// Makes a list, packs it, and reads the bytes as a receiver does who does not trust them.
//
//     c++ -std=c++20 lists.cc $(pkg-config --cflags --libs aaautil-cpp)

#include <aaa/aaautil.hpp>
#include <cstdio>

namespace {

// The bytes of a request; the list is spent once they are made.
aaa::result<aaa::buffer> make_request() {
    aaa::result<aaa::list> list = aaa::list::create("request");
    if (!list) {
        return aaa::failure(list.code());
    }
    // The dictionary decides which values an attribute takes: a text here would not compile.
    aaa::result<void> added = list->add<AAA_PRIV_LVL_ATTR>(15);
    if (added) {
        added = list->add<AAA_USERNAME_ATTR>("alice");
    }
    if (added) {
        added = list->add<AAA_IPADDR_ATTR>(aaa::ipv4{0xC0000207}, {.tag = 9});
    }
    if (!added) {
        return aaa::failure(added.code());
    }
    aaa::result<aaa::buffer> bytes = list->pack();
    std::printf("packed again: %s\n", list->pack().error().message().c_str());
    return bytes;
}

void print(std::string_view text) {
    std::printf("%.*s", static_cast<int>(text.size()), text.data());
}

void show(const aaa::list &list) {
    char line[1024];
    for (const aaa::attribute attribute : list) {
        print(attribute.print(line));
    }
    if (const auto address = list.get<AAA_IPADDR_ATTR>()) {
        std::printf("the address has the tag %u: %s\n", list.find(AAA_IPADDR_ATTR)->tag(),
                    text_of(*address).c_str());
    }
    std::printf("session: %s\n", list.get<AAA_SESSIONID_ATTR>().error().message().c_str());
}

}  // namespace

int main() {
    const aaa::result<aaa::buffer> bytes = make_request();
    if (!bytes) {
        std::fprintf(stderr, "%s\n", bytes.error().message().c_str());
        return 1;
    }
    const aaa::result<aaa::list> received = aaa::list::unpack(*bytes);
    if (!received) {
        std::fprintf(stderr, "%s\n", received.error().message().c_str());
        return 1;
    }
    show(*received);
    const auto damaged = aaa::list::unpack(bytes->span().first(bytes->size() - 1));
    std::printf("cut short: %s\n", damaged.error().message().c_str());
    return damaged ? 1 : 0;
}
