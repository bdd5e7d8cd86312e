// SPDX-License-Identifier: Apache-2.0

#include "base/siphash.hpp"

#include <sys/random.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace service {

namespace {

struct State {
    std::uint64_t v0, v1, v2, v3;

    void round() {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }

    void take(std::uint64_t word) {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
    }
};

}  // namespace

SipHash::SipHash() : key_{} {
    // Without random bytes the service does not start: the kernel has them once it has booted.
    while (getrandom(key_.data(), sizeof key_, 0) != static_cast<ssize_t>(sizeof key_)) {
        if (errno != EINTR) {
            std::abort();
        }
    }
}

std::uint64_t SipHash::operator()(std::string_view text) const {
    State state{0x736f6d6570736575 ^ key_[0], 0x646f72616e646f6d ^ key_[1], 0x6c7967656e657261 ^ key_[0],
                0x7465646279746573 ^ key_[1]};
    std::uint64_t last = std::uint64_t{text.size()} << 56;
    for (; text.size() >= sizeof(std::uint64_t); text.remove_prefix(sizeof(std::uint64_t))) {
        std::uint64_t word = 0;
        for (std::size_t i = 0; i < sizeof word; ++i) {
            word |= std::uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
        }
        state.take(word);
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        last |= std::uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
    }
    state.take(last);
    state.v2 ^= 0xff;
    for (int i = 0; i < 4; ++i) {
        state.round();
    }
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace service
