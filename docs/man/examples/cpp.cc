// SPDX-License-Identifier: Apache-2.0
#include <aaa/aaautil.hpp>
#include <cstdio>

// Packs the name of a user; the list is spent then.
static aaa::result<aaa::buffer> pack(const char *name) {
    auto list = aaa::list::create("request");
    if (!list) {
        return aaa::failure(list.code());
    }
    if (auto added = list->add<AAA_USERNAME_ATTR>(name); !added) {
        return aaa::failure(added.code());
    }
    return list->pack();
}

int main() {
    const auto bytes = pack("alice");
    if (!bytes) {
        return 1;
    }
    const auto list = aaa::list::unpack(*bytes);
    if (!list) {
        return 1;
    }
    for (const aaa::attribute pair : *list) {
        std::printf("%s, %zu bytes\n", pair.name().data(),
                    pair.value().size());
    }
    const auto level = list->get<AAA_PRIV_LVL_ATTR>();
    std::puts(level.error().message().c_str());
    return 0;
}
