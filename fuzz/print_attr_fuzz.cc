// SPDX-License-Identifier: Apache-2.0
//
// The rendering of one pair. The input is
//
//   bytes 0 to 3   type
//   bytes 4 to 7   flags
//   bytes 8 and 9  size of the caller's buffer
//   byte  10       0: a null value
//   from 11        the value
//
// (numbers in host order). For every pair the line ends with a line feed, is
// terminated and stays inside its buffer. A buffer that is too small cuts the line but
// does not change it. The line does not depend on a password.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "aaa/dictionary.h"
#include "testkit/fake_platform.hpp"

namespace {

constexpr std::size_t kHead = 11;
constexpr std::size_t kGuard = 32;
constexpr char kGuardByte = '\xa5';

struct Pair {
    uint32_t type;
    uint32_t flags;
    const void *value;
    uint32_t length;
};

void require(bool holds, const char *what) {
    if (!holds) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

// The line of the pair in a buffer of the given size, which is not 0.
std::string print(const Pair &pair, uint32_t size) {
    std::vector<char> buffer(size + kGuard, kGuardByte);
    char *const returned =
        aaa_util_print_attr(pair.type, pair.length, pair.flags, pair.value, buffer.data(), size);
    require(returned == buffer.data(), "the buffer is not returned");
    require(std::all_of(buffer.begin() + size, buffer.end(), [](char c) { return c == kGuardByte; }),
            "written past the buffer");
    const std::size_t length = strnlen(buffer.data(), size);
    require(length < size, "not terminated");
    return {buffer.data(), length};
}

void check_line(const Pair &pair, const std::string &line) {
    char head[64];
    std::snprintf(head, sizeof head, " (%d/%d) ", static_cast<int>(pair.type), static_cast<int>(pair.length));
    require(line.starts_with("    "), "no leading blanks");
    require(line.find(head) != std::string::npos, "no type and length");
    require(line.ends_with("\n"), "no line feed at the end");
    require((line.find("[out] ") != std::string::npos) || (pair.flags & AAA_AVF_PRINT_OUT) == 0,
            "the flag for output is not shown");
}

void check_password(Pair pair, const std::string &line) {
    if ((pair.type == AAA_PASSWORD_ATTR || pair.type == AAA_VS1_TUNNEL_PASSWORD) && pair.value != nullptr) {
        const std::vector<char> other(pair.length + std::size_t{1}, 'Q');
        pair.value = other.data();
        require(print(pair, static_cast<uint32_t>(line.size() + 1)) == line,
                "the line depends on the password");
    }
}

void check_cut(const Pair &pair, const std::string &line, uint32_t size) {
    if (size == 0) {
        char byte = kGuardByte;
        aaa_util_print_attr(pair.type, pair.length, pair.flags, pair.value, &byte, 0);
        require(byte == kGuardByte, "written into a buffer of size 0");
        return;
    }
    require(print(pair, size) == line.substr(0, size - 1),
            "the cut line is not the beginning of the complete line");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size < kHead) {
        return 0;
    }
    fake::reset();
    fake::sysdb::put_string("/oper/aaa/gl/group-server/sg_num_map/radius/0x3e8", "a-group");
    // A block of exactly its size, so that a sanitizer sees a read past it.
    const std::size_t length = size - kHead;
    const std::unique_ptr<uint8_t[]> value(new uint8_t[length]);
    std::copy(data + kHead, data + size, value.get());

    Pair pair{0, 0, data[10] == 0 ? nullptr : value.get(), static_cast<uint32_t>(length)};
    uint16_t room = 0;
    std::memcpy(&pair.type, data, sizeof pair.type);
    std::memcpy(&pair.flags, data + 4, sizeof pair.flags);
    std::memcpy(&room, data + 8, sizeof room);

    const std::string line = print(pair, static_cast<uint32_t>(length + 1024));
    check_line(pair, line);
    check_password(pair, line);
    check_cut(pair, line, room);
    return 0;
}
