// SPDX-License-Identifier: Apache-2.0
//
// One pair as a line of text, and the address formatters. Expected lines are
// in tests/vectors/print_attr.txt; here are its runner, the sweep over all
// types, the bounds of buffer and value, and the calls meanwhile.

#include "aaa/dictionary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

constexpr std::size_t kRoom = 1024;  // what the list printers pass

// A value in a block of exactly its size, so that a sanitizer sees a read past it.
class Value {
  public:
    explicit Value(std::string_view bytes) : size_(bytes.size()), bytes_(new char[bytes.size()]) {
        std::copy(bytes.begin(), bytes.end(), bytes_.get());
    }
    [[nodiscard]] const void *data() const { return bytes_.get(); }
    [[nodiscard]] uint32_t size() const { return static_cast<uint32_t>(size_); }

  private:
    std::size_t size_;
    std::unique_ptr<char[]> bytes_;
};

std::string print(uint32_t type, uint32_t flags, std::string_view bytes) {
    const Value value(bytes);
    char line[kRoom];
    EXPECT_EQ(aaa_util_print_attr(type, value.size(), flags, value.data(), line, sizeof line), line);
    return line;
}

std::string u32(uint32_t number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

// ---- Text vectors ----------------------------------------------------------

struct Case {
    unsigned line;
    uint32_t type;
    uint32_t flags;
    std::optional<std::string> value;  // none: a null of `length` bytes
    uint32_t length;
    std::string expected;
};

void add_piece(const std::string &piece, std::string &bytes) {
    if (piece.starts_with("u32:")) {
        bytes += u32(static_cast<uint32_t>(std::stoul(piece.substr(4))));
    } else if (piece.starts_with("i32:")) {
        bytes += u32(static_cast<uint32_t>(std::stol(piece.substr(4))));
    } else if (piece != "empty") {
        ASSERT_EQ(piece.size(), 2u) << piece;
        bytes += static_cast<char>(std::stoul(piece, nullptr, 16));
    }
}

Case parse(unsigned line, const std::string &input) {
    Case out{line, 0, 0, std::string(), 0, ""};
    std::istringstream in(input);
    in >> out.type >> std::hex >> out.flags >> std::dec >> std::ws;
    while (in.good()) {
        if (in.peek() == '"') {
            std::string text;
            in.get();
            std::getline(in, text, '"');
            *out.value += text;
        } else {
            std::string piece;
            in >> piece;
            if (piece.starts_with("null/")) {
                out.value.reset();
                out.length = static_cast<uint32_t>(std::stoul(piece.substr(5)));
                return out;
            }
            add_piece(piece, *out.value);
        }
        in >> std::ws;
    }
    out.length = static_cast<uint32_t>(out.value->size());
    return out;
}

std::vector<Case> read_vectors() {
    std::ifstream in(AAA_SOURCE_DIR "/tests/vectors/print_attr.txt");
    EXPECT_TRUE(in);
    std::vector<Case> cases;
    unsigned number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        cases.push_back(parse(number, line));
        EXPECT_TRUE(std::getline(in, cases.back().expected))
            << "line " << number << " lacks its expected text";
        ++number;
    }
    return cases;
}

TEST(PrintAttr, Vectors) {
    const std::vector<Case> cases = read_vectors();
    ASSERT_GT(cases.size(), 200u);
    for (const Case &one : cases) {
        const Value bytes(one.value.value_or(""));
        char line[kRoom];
        EXPECT_EQ(aaa_util_print_attr(one.type, one.length, one.flags, one.value ? bytes.data() : nullptr,
                                      line, sizeof line),
                  line);
        EXPECT_EQ(line, one.expected + "\n") << "print_attr.txt:" << one.line;
    }
}

// ---- Every type ------------------------------------------------------------

// Types with a rule of their own, other than those rendered as text with length.
const std::set<uint32_t> kNamed = {2, 3, 39, 43, 262};
const std::set<uint32_t> kDotted = {264, 265};
const std::set<uint32_t> kHidden = {258, 1372};
const std::set<uint32_t> kTextWithLength = {5,    6,    7,    12,   17,   20,   37,   40,  48,
                                            50,   60,   61,   257,  266,  269,  274,  280, 281,
                                            1299, 1308, 1312, 1379, 1382, 1384, 1385, 1391};
const std::set<uint32_t> kInteger = {8,    10,   13,   22,   27,   55,   268,  1383,
                                     1386, 1387, 1388, 1389, 1390, 1392, 1394, 1395};

// The value "B\x81" 00 'D' as the rule of the type renders it.
std::string expected_value(uint32_t type) {
    if (kHidden.contains(type)) {
        return "*";
    }
    if (kDotted.contains(type)) {
        return "68.0.129.66";
    }
    if (kTextWithLength.contains(type)) {
        return "B\x81 (length 4)";
    }
    const uint32_t format = kInteger.contains(type) ? 1 : aaa_attribute_format(static_cast<int32_t>(type));
    return format == 0 ? "B\x81" : format == 1 ? "1140883778" : "42 ffffff81 0 44 ...";
}

TEST(PrintAttr, EveryTypeByItsRule) {
    const std::string value("B\x81\0D", 4);
    for (uint32_t type = 0; type < 2200; ++type) {
        if (kNamed.contains(type)) {
            continue;
        }
        const char *const name = aaa_attribute_pname(static_cast<int32_t>(type));
        const std::string number = std::to_string(type);
        EXPECT_EQ(print(type, 0, value), std::string("    ") + (name != nullptr ? name : "(null)") + " (" +
                                             number + "/4) * " + expected_value(type) + "\n");
    }
}

// ---- The caller's buffer ---------------------------------------------------

TEST(PrintAttr, NullBufferIsNull) {
    EXPECT_EQ(aaa_util_print_attr(257, 3, 0, "abc", nullptr, 0), nullptr);
    EXPECT_EQ(aaa_util_print_attr(257, 3, 0, "abc", nullptr, 1024), nullptr);
    EXPECT_EQ(aaa_util_print_attr(39, 4, 0, u32(1000).data(), nullptr, 1024), nullptr);
    EXPECT_TRUE(fake::calls().empty());
}

// The line at every size is the beginning of the whole line, terminated, and
// nothing after the buffer is touched.
void expect_cut_lines(uint32_t type, uint32_t flags, std::string_view value_bytes) {
    const std::string whole = print(type, flags, value_bytes);
    const Value value(value_bytes);
    constexpr std::size_t kGuard = 64;
    for (uint32_t size = 1; size <= whole.size() + 2; ++size) {
        std::string buffer(size + kGuard, '\xa5');
        EXPECT_EQ(aaa_util_print_attr(type, value.size(), flags, value.data(), buffer.data(), size),
                  buffer.data());
        EXPECT_STREQ(buffer.c_str(), whole.substr(0, size - 1).c_str()) << type << " in " << size;
        EXPECT_EQ(buffer.find_first_not_of('\xa5', size), std::string::npos) << type << " in " << size;
    }
}

TEST(PrintAttr, LineIsCutWhereTheBufferEnds) {
    fake::sysdb::put_string("/oper/aaa/gl/group-server/sg_num_map/radius/0x3e9", "radius-servers");
    expect_cut_lines(257, 0xc, "a name of some length");
    expect_cut_lines(258, 0x8, "secret");
    expect_cut_lines(4, 0x4, std::string(300, 'x'));
    expect_cut_lines(2, 0, u32(5));
    expect_cut_lines(39, 0xc, u32(1001));
    expect_cut_lines(43, 0, u32(32768));
    expect_cut_lines(262, 0, u32(6));
    expect_cut_lines(264, 0, u32(0xFFFFFFFF));
    expect_cut_lines(9, 0, "\xff\xff\xff\xff");
    expect_cut_lines(0xFFFFFFFF, 0, "\xff\xff\xff\xff");
    expect_cut_lines(809, 0, u32(0x80000000));
}

TEST(PrintAttr, BufferOfNoBytesIsNotTouched) {
    char byte = 'u';
    EXPECT_EQ(aaa_util_print_attr(257, 3, 0xc, "abc", &byte, 0), &byte);
    EXPECT_EQ(aaa_util_print_attr(257, 3, 0xc, nullptr, &byte, 0), &byte);
    EXPECT_EQ(byte, 'u');
}

TEST(PrintAttr, SizeMayBeLargerThanAnyLine) {
    std::vector<char> buffer(4096, 'u');
    aaa_util_print_attr(257, 3, 0, "abc", buffer.data(), 0xFFFFFFFF);
    EXPECT_STREQ(buffer.data(), "    AAA_USERNAME_ATTR (257/3) * abc (length 3)\n");
}

// ---- The value -------------------------------------------------------------

TEST(PrintAttr, TextStopsAtTheStoredLength) {
    const std::string neighbour = "alice" + std::string(4, 'N');  // the next pair begins where the text ends
    char line[kRoom];
    aaa_util_print_attr(257, 5, 0, neighbour.data(), line, sizeof line);
    EXPECT_STREQ(line, "    AAA_USERNAME_ATTR (257/5) * alice (length 5)\n");
    aaa_util_print_attr(288, 5, 0, neighbour.data(), line, sizeof line);
    EXPECT_STREQ(line, "    AAA_NAS_ID_ATTR (288/5) * alice\n");
}

TEST(PrintAttr, LengthBeyondASignedNumberStillEndsAtTheNul) {
    char line[kRoom];
    aaa_util_print_attr(257, 0xFFFFFFFF, 0, "alice", line, sizeof line);
    EXPECT_STREQ(line, "    AAA_USERNAME_ATTR (257/-1) * alice (length -1)\n");
    aaa_util_print_attr(288, 0x80000000, 0, "nas", line, sizeof line);
    EXPECT_STREQ(line, "    AAA_NAS_ID_ATTR (288/-2147483648) * nas\n");
}

// Values of 0 to 3 bytes in blocks of their own: under a sanitizer a fourth
// byte would be a finding.
TEST(PrintAttr, ShortValuesAreNotReadPastTheirEnd) {
    for (uint32_t type = 0; type <= 2071; ++type) {
        for (std::size_t length = 0; length < 4; ++length) {
            const std::string line = print(type, 0, std::string(length, '\x01'));
            EXPECT_TRUE(line.ends_with("\n")) << type;
        }
    }
    EXPECT_EQ(print(10, 0, "\x05"), "    AAA_PRIV_LVL_ATTR (10/1) * 5\n");
    EXPECT_EQ(print(264, 0, std::string_view("\x01\x02", 2)), "    AAA_IPADDR_ATTR (264/2) * 0.0.2.1\n");
}

TEST(PrintAttr, PasswordNeverShows) {
    const std::string secret = "correct horse battery staple";
    for (const uint32_t type : {258u, 1372u}) {
        for (const uint32_t flags : {0u, 0x4u, 0x8u, 0xFFFFFFFFu}) {
            const std::string line = print(type, flags, secret);
            EXPECT_TRUE(line.ends_with(" *\n")) << line;
            for (std::size_t i = 0; i + 3 <= secret.size(); ++i) {
                EXPECT_EQ(line.find(secret.substr(i, 3)), std::string::npos) << line;
            }
        }
    }
}

// ---- Methods that are server groups ----------------------------------------

TEST(PrintAttr, GroupNumbersPrintTheGroupsName) {
    fake::sysdb::put_string("/oper/aaa/gl/group-server/sg_num_map/tacacs/0x3e8", "tac-group");
    EXPECT_EQ(print(39, 0, u32(1000)), "    AAA_AUTHEN_METHOD_ATTR (39/4) * tac-group\n");
    EXPECT_EQ(print(39, 0, u32(1001)), "    AAA_AUTHEN_METHOD_ATTR (39/4) * <null>\n");
}

TEST(PrintAttr, MethodOutOfMemoryPrintsNull) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const std::string value = u32(3);
        char line[kRoom];
        fail.run([&] { return aaa_util_print_attr(39, 4, 0, value.data(), line, sizeof line); });
        EXPECT_STREQ(line, fail.fired() ? "    AAA_AUTHEN_METHOD_ATTR (39/4) * <null>\n"
                                        : "    AAA_AUTHEN_METHOD_ATTR (39/4) * radius\n");
    });
}

// ---- Side effects ----------------------------------------------------------

TEST(PrintAttr, AllocatesForMethodsOnly) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "this build's sanitizer does not let a program replace malloc";
    }
    char line[kRoom];
    for (uint32_t type = 0; type <= 2071; ++type) {
        fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1);
        fail.run([&] { return aaa_util_print_attr(type, 4, 0xc, "\1\0\0", line, sizeof line); });
        EXPECT_EQ(fail.counted(), type == AAA_AUTHEN_METHOD_ATTR ? 1u : 0u) << type;
    }
}

TEST(PrintAttr, CallsNoServiceAndTracesNothing) {
    fake::enable_tracing(AAA_DBG_AVLIST);
    fake::clear_journal();
    for (uint32_t type = 0; type <= 2071; ++type) {
        print(type, 0, u32(1));
    }
    EXPECT_TRUE(fake::calls().empty());
    EXPECT_TRUE(fake::traces().empty());
}

// ---- Addresses -------------------------------------------------------------

TEST(FormatIpaddr, WritesTheDottedFormAndItsLength) {
    struct Address {
        uint32_t address;
        const char *text;
    };
    for (const Address &one : {Address{0xC0A80101, "192.168.1.1"}, Address{0, "0.0.0.0"},
                               Address{0xFFFFFFFF, "255.255.255.255"}, Address{0x7F000001, "127.0.0.1"},
                               Address{0x01020304, "1.2.3.4"}, Address{0x80000000, "128.0.0.0"}}) {
        const std::unique_ptr<char[]> buffer(new char[16]);  // just large enough for the longest
        EXPECT_EQ(aaa_util_format_ipaddr(one.address, buffer.get()), static_cast<int>(std::strlen(one.text)));
        EXPECT_STREQ(buffer.get(), one.text);
    }
}

TEST(FormatIpaddr, NullBufferCountsNothing) {
    EXPECT_EQ(aaa_util_format_ipaddr(0xC0A80101, nullptr), 0);
}

using Lines = std::vector<std::string>;

aaa_ip_addr_t address(uint8_t family, std::initializer_list<uint8_t> bytes) {
    aaa_ip_addr_t out{};
    out.family = family;
    std::copy(bytes.begin(), bytes.end(), out.addr.bytes);
    return out;
}

TEST(FormatV4V6Ipaddr, RecordIsTwentyBytes) {
    EXPECT_EQ(sizeof(aaa_ip_addr_t), 20u);
}

TEST(FormatV4V6Ipaddr, Ipv4HasALimitOf16) {
    const std::unique_ptr<char[]> buffer(new char[16]);
    EXPECT_EQ(aaa_util_format_v4v6_ipaddr(buffer.get(), address(2, {255, 255, 255, 254})), buffer.get());
    EXPECT_STREQ(buffer.get(), "255.255.255.254");
    EXPECT_EQ(fake::calls(), (Lines{"qm_inet_ntop(2, ptr, ptr, 16)"}));
}

TEST(FormatV4V6Ipaddr, Ipv6HasALimitOf46) {
    const std::unique_ptr<char[]> buffer(new char[46]);
    EXPECT_EQ(aaa_util_format_v4v6_ipaddr(buffer.get(), address(10, {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0,
                                                                     0, 0xab, 0xcd, 0, 0x10})),
              buffer.get());
    EXPECT_STREQ(buffer.get(), "2001:db8::abcd:10");
    EXPECT_EQ(fake::calls(), (Lines{"qm_inet_ntop(10, ptr, ptr, 46)"}));
}

TEST(FormatV4V6Ipaddr, OtherFamiliesAreHandedOnAsTheyAre) {
    char buffer[46];
    fake::answer("qm_inet_ntop", 0);
    EXPECT_EQ(aaa_util_format_v4v6_ipaddr(buffer, address(0, {})), nullptr);
    EXPECT_EQ(aaa_util_format_v4v6_ipaddr(buffer, address(255, {})), nullptr);
    EXPECT_EQ(fake::calls(), (Lines{"qm_inet_ntop(0, ptr, ptr, 46)", "qm_inet_ntop(255, ptr, ptr, 46)"}));
}

TEST(FormatV4V6Ipaddr, FailureIsNull) {
    char buffer[16];
    fake::answer("qm_inet_ntop", 0, 1);
    EXPECT_EQ(aaa_util_format_v4v6_ipaddr(buffer, address(2, {1, 2, 3, 4})), nullptr);
}

TEST(FormatV4V6Ipaddr, NullBufferIsNull) {
    EXPECT_EQ(aaa_util_format_v4v6_ipaddr(nullptr, address(2, {1, 2, 3, 4})), nullptr);
    EXPECT_TRUE(fake::calls().empty());
}

}  // namespace
