// SPDX-License-Identifier: Apache-2.0
//
// The C++ interface, without exceptions in the program's own code: a list that another process may have sent.
#include <cstdio>

#include <aaa/aaautil.hpp>

int main() {
    auto sent = aaa::list::create("sent");
    if (!sent || !sent->add<AAA_USERNAME_ATTR>("alice") || !sent->add<AAA_PRIV_LVL_ATTR>(15)) {
        return 1;
    }
    const auto bytes = sent->pack();
    if (!bytes || sent->add<AAA_PRIV_LVL_ATTR>(1).error() != aaa::errc::spent_list) {
        return 2;
    }
    const auto received = aaa::list::unpack(*bytes);
    if (!received || aaa::list::unpack(bytes->span().first(57))) {
        return 3;
    }
    for (const aaa::attribute pair : *received) {
        std::printf("%s ", pair.name().data());
    }
    std::puts(received->get<AAA_USERNAME_ATTR>()->data());
    return 0;
}
