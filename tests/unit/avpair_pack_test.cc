// SPDX-License-Identifier: Apache-2.0
//
// Packing and unpacking, byte by byte: the gather form, the flat form, and
// what a list looks like after either direction.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "support/assertion_report.hpp"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/guarded_page.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace aaatest;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr uint32_t kUser = 257;     // text
constexpr uint32_t kInteger = 10;   // format 1
constexpr uint32_t kAddress = 264;  // format 3
constexpr uint32_t kBinary = 19;    // format 2

void add(avlist *list, uint32_t type, std::string_view value, uint32_t flags = 0, uint32_t tag = 0) {
    ASSERT_EQ(aaa_avpair_add(type, flags, value.data(), tag, static_cast<uint32_t>(value.size()), list),
              AAA_OK);
}

void erase(avlist *list, uint32_t type, uint32_t instance = 0) {
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(type, instance, list, nullptr), AAA_OK);
}

std::string le32(uint32_t v) {
    return {reinterpret_cast<const char *>(&v), sizeof v};
}
std::string be32(uint32_t v) {
    return le32(__builtin_bswap32(v));
}

std::string bytes_of(const void *p, std::size_t n) {
    return {static_cast<const char *>(p), n};
}
std::string record_of(const avlist *list) {
    return bytes_of(list, sizeof *list);
}

// Used bytes of all buffers.
std::string buffers_of(const avlist *list) {
    std::string bytes;
    for (const avpair_buffer_t *buf = list->avpair_first_buf; buf != nullptr; buf = buf->hdr.next) {
        const auto *first = reinterpret_cast<const char *>(buf) + 32;
        bytes.append(first,
                     static_cast<std::size_t>(reinterpret_cast<const char *>(buf->hdr.free_mem) - first));
    }
    return bytes;
}

// The flat form as documented, put together independently.
std::string header(uint32_t total, uint16_t count, std::string_view name) {
    std::string bytes = be32(total) + "\0\0"s;
    bytes += {static_cast<char>(count >> 8), static_cast<char>(count)};
    bytes += std::string(16, '\0');
    bytes += std::string(name) + std::string(32 - name.size(), '\0');
    return bytes;
}

std::string pair(uint32_t type, std::string_view wire_value, uint32_t flags = 0, uint32_t tag = 0) {
    std::string bytes = be32(type) + be32(tag) + be32(static_cast<uint32_t>(wire_value.size())) + be32(flags);
    bytes += wire_value;
    bytes.resize((bytes.size() + 3) / 4 * 4, '\0');
    return bytes;
}

std::string message(uint16_t count, std::string_view name, std::string_view pairs) {
    return header(static_cast<uint32_t>(56 + pairs.size()), count, name) + std::string(pairs);
}

// Packs into a buffer of exactly the size that is needed.
std::string pack(avlist *list) {
    avpair_mem_stats_t stats{};
    EXPECT_EQ(aaa_avpair_get_mem_usage(list, &stats), AAA_OK);
    std::vector<char> buf(56 + stats.used_mem, '\xee');
    auto len = static_cast<uint32_t>(buf.size());
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list, buf.data(), &len), AAA_OK);
    EXPECT_EQ(len, buf.size());
    return {buf.data(), len};
}

ListPtr unpack(std::string msg) {
    avlist *list = nullptr;
    std::vector<char> exact(msg.begin(), msg.end());
    EXPECT_EQ(aaa_avpair_unpack_msg_create(&list, exact.data(), static_cast<uint32_t>(exact.size())), AAA_OK);
    EXPECT_STREQ(verify_list(list, ListOrigin::unpacked).fault, "");
    return ListPtr(list);
}

// Three buffers: the values are too long for two of them to share one.
ListPtr three_buffers(const char *name = "three") {
    ListPtr list = make_list(name);
    add(list.get(), kUser, std::string(300, 'a'), 1, 11);
    add(list.get(), kInteger, le32(0x01020304), 2, 12);
    add(list.get(), kUser, std::string(300, 'b'), 3, 13);
    add(list.get(), kUser, std::string(300, 'c'), 4, 14);
    return list;
}

// ---- Flat form: golden bytes ---------------------------------------------------------

TEST(AvpairPack, WritesAnEmptyListAs56Bytes) {
    const ListPtr list = make_list("nobody");
    EXPECT_EQ(pack(list.get()), header(0x38, 0, "nobody"));
}

TEST(AvpairPack, WritesOnePair) {
    const ListPtr list = make_list("one");
    add(list.get(), kUser, "alice\0"s, 0x01020304);
    const std::string msg = pack(list.get());
    EXPECT_EQ(msg.size(), 56u + 24u);
    EXPECT_EQ(msg.substr(56), "\0\0\1\1\0\0\0\0\0\0\0\6\1\2\3\4alice\0\0\0"s);
    EXPECT_EQ(msg.substr(0, 56), header(80, 1, "one"));
}

TEST(AvpairPack, ConvertsIntegersAndAddressesOfFourBytesOnly) {
    const ListPtr list = make_list();
    add(list.get(), kInteger, "\1\2\3\4");
    add(list.get(), kAddress, "\1\2\3\4");
    add(list.get(), kBinary, "\1\2\3\4");
    add(list.get(), kUser, "\1\2\3\4");
    add(list.get(), 23, "\1\2\3\4\5\6\7\10");  // an integer type that is stored with eight bytes
    add(list.get(), kInteger, "\1\2\3");
    add(list.get(), kInteger, "\1\2\3\4\5");
    add(list.get(), kInteger, "");
    EXPECT_EQ(pack(list.get()).substr(56), pair(kInteger, "\4\3\2\1") + pair(kAddress, "\4\3\2\1") +
                                               pair(kBinary, "\1\2\3\4") + pair(kUser, "\1\2\3\4") +
                                               pair(23, "\1\2\3\4\5\6\7\10") + pair(kInteger, "\1\2\3") +
                                               pair(kInteger, "\1\2\3\4\5") + pair(kInteger, ""));
}

// Row 0 is an integer row, but the format of type 0 is "none".
TEST(AvpairPack, FollowsTheFormatOfEveryType) {
    std::vector<uint32_t> types{2071, 0x7fffffff, 0x80000000, 0xffffffff};
    for (uint32_t type = 0; type < 2070; type++) {
        types.push_back(type);
    }
    unsigned converted = 0;
    for (const uint32_t type : types) {
        const ListPtr list = make_list();
        add(list.get(), type, "\1\2\3\4");
        const uint32_t format = aaa_attribute_format(static_cast<int32_t>(type));
        const bool is_number = format == 1 || format == 3;
        converted += is_number ? 1 : 0;
        const std::string msg = pack(list.get());
        ASSERT_EQ(msg.substr(56), pair(type, is_number ? "\4\3\2\1" : "\1\2\3\4")) << "type " << type;
        ASSERT_EQ(read_pairs(unpack(msg).get()), (std::vector<ModelPair>{{type, 0, 0, "\1\2\3\4"}})) << type;
    }
    EXPECT_GT(converted, 200u);
    EXPECT_EQ(aaa_attribute_format(809), 1u);  // among them: the empty row that has a format
}

TEST(AvpairPack, CarriesMarkerAndReservedBytesButNoAddresses) {
    const ListPtr list = make_list("marked");
    add(list.get(), kUser, "x");
    list->reserved0 = 0xdddddddd;
    list->marker = 0x4d;
    list->reserved5 = 0x5e;
    list->pad55 = 0x6f;
    std::string wanted = message(1, "marked", pair(kUser, "x"));
    wanted[4] = 0x4d;
    wanted[5] = 0x5e;
    wanted[55] = 0x6f;
    EXPECT_EQ(pack(list.get()), wanted);
}

TEST(AvpairPack, SendsDeletedPairsBetweenLiveOnes) {
    const ListPtr list = make_list("holes");
    add(list.get(), kUser, "first");
    add(list.get(), kInteger, le32(0x01020304), 5, 6);
    add(list.get(), kUser, "last");
    add(list.get(), kBinary, "never seen");
    erase(list.get(), kInteger);
    erase(list.get(), kBinary);
    // The value of a deleted number stays in host order: its type is gone.
    const std::string msg = pack(list.get());
    EXPECT_EQ(msg, message(2, "holes",
                           pair(kUser, "first") + pair(2070, le32(0x01020304), 5, 6) + pair(kUser, "last")));
    const ListPtr copy = unpack(msg);
    EXPECT_EQ(read_pairs(copy.get()),
              (std::vector<ModelPair>{{kUser, 0, 0, "first"}, {kUser, 0, 0, "last"}}));
    aaa_avpair_iterator_t it{};
    avpair_t *at = nullptr;
    ASSERT_EQ(aaa_avpair_iterator_init(&it, copy.get(), &at), AAA_OK);
    EXPECT_EQ(at->av_len, 5u);
    ASSERT_EQ(aaa_avpair_iterator_get_next(&it, &at), AAA_OK);
    EXPECT_EQ(at->av_len, 4u);
    EXPECT_EQ(aaa_avpair_iterator_get_next(&it, &at), AAA_STATUS_END_OF_LIST);
}

TEST(AvpairPack, PutsBuffersAfterEachOther) {
    const ListPtr list = three_buffers();
    EXPECT_EQ(
        pack(list.get()),
        message(4, "three",
                pair(kUser, std::string(300, 'a'), 1, 11) + pair(kInteger, be32(0x01020304), 2, 12) +
                    pair(kUser, std::string(300, 'b'), 3, 13) + pair(kUser, std::string(300, 'c'), 4, 14)));
}

// The hex block of docs/wire-format.md: lines of an offset, bytes, and a
// remark after a semicolon.
std::string documented_message() {
    std::ifstream doc(AAA_SOURCE_DIR "/docs/wire-format.md");
    std::string line;
    std::string bytes;
    while (std::getline(doc, line) && line != "```hex") {
    }
    while (std::getline(doc, line) && line != "```") {
        std::istringstream words(line.substr(0, line.find(';')));
        std::string word;
        words >> word;
        EXPECT_EQ(std::stoul(word, nullptr, 16), bytes.size()) << line;
        while (words >> word) {
            bytes += static_cast<char>(std::stoul(word, nullptr, 16));
        }
    }
    return bytes;
}

TEST(AvpairPack, WritesTheDocumentedExample) {
    const ListPtr list = make_list("login");
    add(list.get(), AAA_TYPE_ATTR, le32(1), 0x400);
    add(list.get(), AAA_USERNAME_ATTR, "alice\0"s);
    add(list.get(), AAA_TTYNAME_ATTR, "con0\0"s);
    add(list.get(), AAA_IPADDR_ATTR, le32(0xc0000207), 0, 9);
    add(list.get(), AAA_PID_ATTR, "\x12\x34\x56\x78");
    erase(list.get(), AAA_TTYNAME_ATTR);
    const std::string msg = pack(list.get());
    EXPECT_EQ(msg, documented_message());
    EXPECT_EQ(msg.size(), 164u);
}

TEST(AvpairUnpack, ReadsTheDocumentedExample) {
    const ListPtr list = unpack(documented_message());
    EXPECT_STREQ(list->av_name, "login");
    EXPECT_EQ(read_pairs(list.get()), (std::vector<ModelPair>{{AAA_TYPE_ATTR, 0, 0x400, le32(1)},
                                                              {AAA_USERNAME_ATTR, 0, 0, "alice\0"s},
                                                              {AAA_IPADDR_ATTR, 9, 0, le32(0xc0000207)},
                                                              {AAA_PID_ATTR, 0, 0, "\x12\x34\x56\x78"}}));
}

// ---- Flat form: what happens to the list --------------------------------------------

TEST(AvpairPack, LeavesTheListsOwnPairsInNetworkOrder) {
    const ListPtr list = three_buffers();
    const std::string record = record_of(list.get());
    const std::string msg = pack(list.get());
    EXPECT_EQ(record_of(list.get()), record);
    EXPECT_EQ(buffers_of(list.get()), msg.substr(56));
}

// A spent list is for freeing only; a second packing must at least stay
// inside the buffers and the output.
TEST(AvpairPack, StaysInsideWhenAListIsPackedTwice) {
    const ListPtr list = three_buffers();
    const std::size_t size = pack(list.get()).size();
    EXPECT_EQ(pack(list.get()).size(), size);
}

// Pairs near the end of a buffer are handled in another way than those before:
// every length at every distance from the end, in a room of the exact size, and
// back again.
TEST(AvpairPack, ConvertsEveryLengthAtEveryDistanceFromTheEnd) {
    const GuardedPage page;
    const auto value = [](std::size_t len) {
        return std::string("abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMN", len);
    };
    const auto wire = [](const std::string &v) {
        return v.size() == 4 ? std::string(v.rbegin(), v.rend()) : v;
    };
    for (std::size_t first = 0; first <= 50; first++) {
        for (std::size_t second = 0; second <= 50; second++) {
            SCOPED_TRACE(std::to_string(first) + ", " + std::to_string(second));
            const ListPtr list = make_list();
            add(list.get(), kUser, value(4), 1, 2);
            add(list.get(), kInteger, value(first), 3, 4);
            add(list.get(), kAddress, value(second), 5, 6);
            const std::vector<ModelPair> pairs = read_pairs(list.get());
            const std::string wanted =
                message(3, "",
                        pair(kUser, value(4), 1, 2) + pair(kInteger, wire(value(first)), 3, 4) +
                            pair(kAddress, wire(value(second)), 5, 6));
            auto room = static_cast<uint32_t>(wanted.size());
            char *at = page.end() - room;
            ASSERT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), at, &room), AAA_OK);
            ASSERT_EQ(bytes_of(at, room), wanted);
            ASSERT_EQ(buffers_of(list.get()), wanted.substr(56));
            avlist *copy = nullptr;
            ASSERT_EQ(aaa_avpair_unpack_msg_create(&copy, at, room), AAA_OK);
            const ListPtr owner(copy);
            ASSERT_EQ(read_pairs(copy), pairs);
        }
    }
}

// ---- Flat form: room in the output ----------------------------------------------------

TEST(AvpairPack, CopiesWholePartsThatFitAndStops) {
    const std::string original = buffers_of(three_buffers().get());
    const uint32_t first = 316 + 20;
    const uint32_t second = 316;
    const uint32_t third = 316;
    const uint32_t total = 56 + first + second + third;
    for (uint32_t limit = 0; limit <= total + 1; limit++) {
        const ListPtr list = three_buffers();
        const std::string record = record_of(list.get());
        std::vector<char> buf(total + 8, '\xee');
        uint32_t len = limit;
        const cerrno code = aaa_avpair_pack_msg_to_buf(list.get(), buf.data(), &len);
        // Also when nothing was copied the list is spent.
        const std::string converted = buffers_of(list.get());
        ASSERT_NE(converted, original);
        uint32_t wanted = 0;
        for (const uint32_t part : {56u, first, second, third}) {
            if (wanted + part > limit) {
                break;
            }
            wanted += part;
        }
        ASSERT_EQ(code, wanted == total ? AAA_OK : AAA_ERR_NOMEM) << limit;
        ASSERT_EQ(len, wanted) << limit;
        std::string expected = (record + converted).substr(0, wanted);
        if (code == AAA_OK) {
            expected.replace(0, 56, header(total, 4, "three"));
        }
        ASSERT_EQ(bytes_of(buf.data(), buf.size()), expected + std::string(buf.size() - wanted, '\xee'))
            << limit;
    }
}

// Whether a list is spent does not depend on the room in the output.
TEST(AvpairPack, ConvertsEveryPairAlsoWithoutRoom) {
    for (const uint32_t limit : {0u, 56u, 400u}) {
        const ListPtr list = three_buffers();
        add(list.get(), kAddress, "\1\2\3\4", 5, 6);
        add(list.get(), kInteger, "\1\2\3\4\5\6\7\10");
        char buf[400];
        uint32_t len = limit;
        EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf, &len), AAA_ERR_NOMEM);
        EXPECT_EQ(buffers_of(list.get()),
                  pair(kUser, std::string(300, 'a'), 1, 11) + pair(kInteger, be32(0x01020304), 2, 12) +
                      pair(kUser, std::string(300, 'b'), 3, 13) + pair(kUser, std::string(300, 'c'), 4, 14) +
                      pair(kAddress, "\4\3\2\1", 5, 6) + pair(kInteger, "\1\2\3\4\5\6\7\10"))
            << limit;
    }
}

// Part sizes are not sorted: a small buffer that would still fit after a big
// one that did not is not copied.
TEST(AvpairPack, CopiesNothingAfterThePartThatDidNotFit) {
    const ListPtr list = make_list();
    add(list.get(), kUser, std::string(600, 'a'));
    add(list.get(), kUser, "b");
    std::vector<char> buf(200, '\xee');
    auto len = static_cast<uint32_t>(buf.size());
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf.data(), &len), AAA_ERR_NOMEM);
    EXPECT_EQ(len, 56u);
    EXPECT_EQ(bytes_of(buf.data() + 56, 144), std::string(144, '\xee'));
}

// Sizes are counted in int.
TEST(AvpairPack, TakesARoomBeyondIntAsNone) {
    for (const uint32_t limit : {0x80000000u, 0xffffffffu}) {
        const ListPtr list = three_buffers();
        char buf[2000];
        std::memset(buf, '\xee', sizeof buf);
        uint32_t len = limit;
        EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf, &len), AAA_ERR_NOMEM);
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(bytes_of(buf, sizeof buf), std::string(sizeof buf, '\xee'));
    }
    const ListPtr list = three_buffers();
    char buf[2000];
    uint32_t len = 0x7fffffff;
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf, &len), AAA_OK);
    EXPECT_EQ(len, 56u + 336 + 316 + 316);
}

TEST(AvpairPack, RefusesNullArguments) {
    const ListPtr list = three_buffers();
    const std::string before = record_of(list.get()) + buffers_of(list.get());
    char buf[64];
    uint32_t len = sizeof buf;
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(nullptr, buf, &len), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), nullptr, &len), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(len, sizeof buf);
    EXPECT_EQ(record_of(list.get()) + buffers_of(list.get()), before);
}

TEST(AvpairPack, AllocatesNothing) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    const ListPtr list = three_buffers();
    char buf[2000];
    uint32_t len = sizeof buf;
    fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1, fake::FailAlloc::Mode::all_from_there);
    EXPECT_EQ(fail.run([&] { return aaa_avpair_pack_msg_to_buf(list.get(), buf, &len); }), AAA_OK);
    EXPECT_EQ(fail.counted(), 0u);
}

TEST(AvpairPack, TracesNameAndCount) {
    fake::enable_tracing(8);
    const ListPtr list = three_buffers("traced");
    const ListPtr empty = make_list();
    fake::clear_journal();
    pack(list.get());
    pack(empty.get());
    EXPECT_EQ(fake::traces_of(8), (Lines{"Packing avlist 'traced', count 4", "Packing avlist '', count 0"}));
    EXPECT_EQ(fake::traces().size(), 2u);
}

TEST(AvpairPack, TracesAlsoWithoutRoomButNotWithoutArguments) {
    const ListPtr list = three_buffers("traced");
    fake::enable_tracing(8);
    char buf[60];
    uint32_t len = sizeof buf;
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf, &len), AAA_ERR_NOMEM);
    EXPECT_EQ(fake::traces_of(8), (Lines{"Packing avlist 'traced', count 4"}));
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(nullptr, buf, &len), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg(nullptr, buf), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_2(list.get(), nullptr, 56), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_create(nullptr, buf, 56), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::traces().empty());
    fake::disable_all_tracing();
}

// A relayed list shows its count as it is stored.
TEST(AvpairPack, TracesTheCountOfAnUnpackedListAsItIsStored) {
    const ListPtr list = unpack(message(1, "relayed", pair(kUser, "x")));
    fake::enable_tracing(8);
    pack(list.get());
    EXPECT_EQ(fake::traces_of(8), (Lines{"Packing avlist 'relayed', count 256"}));
    fake::disable_all_tracing();
}

TEST(AvpairPack, IsSilentAndAsksOnceWhileTracingIsOff) {
    const ListPtr list = three_buffers();
    fake::clear_journal();
    pack(list.get());
    EXPECT_TRUE(fake::traces().empty());
    EXPECT_EQ(fake::count("aaa_debugging"), fake::has_debug_word() ? 0u : 1u);
}

// ---- Gather form ----------------------------------------------------------------------

TEST(AvpairGather, PointsAtTheRecordAndEveryBuffer) {
    const ListPtr list = three_buffers();
    const std::string record = record_of(list.get());
    const std::string pairs = buffers_of(list.get());
    iov_t iov[6];
    uint32_t len = 6;
    ASSERT_EQ(aaa_avpair_pack_msg(list.get(), iov, &len), AAA_OK);
    ASSERT_EQ(len, 4u);
    EXPECT_EQ(iov[0].base, list.get());
    EXPECT_EQ(iov[0].len, 56u);
    const avpair_buffer_t *buf = list->avpair_first_buf;
    for (uint32_t i = 1; i < 4; i++, buf = buf->hdr.next) {
        EXPECT_EQ(iov[i].base, reinterpret_cast<const char *>(buf) + 32);
        EXPECT_EQ(iov[i].len, i == 1 ? 336u : 316u);
    }
    EXPECT_EQ(record_of(list.get()), record);
    EXPECT_EQ(buffers_of(list.get()), pairs);
}

TEST(AvpairGather, NeedsOneElementForAnEmptyList) {
    const ListPtr list = make_list();
    iov_t iov[2] = {{nullptr, 7}, {nullptr, 7}};
    uint32_t len = 2;
    ASSERT_EQ(aaa_avpair_pack_msg(list.get(), iov, &len), AAA_OK);
    EXPECT_EQ(len, 1u);
    EXPECT_EQ(iov[0].base, list.get());
    EXPECT_EQ(iov[1].len, 7u);
}

TEST(AvpairGather, FillsWhatThereIsRoomFor) {
    const ListPtr list = three_buffers();
    for (uint32_t room = 1; room <= 4; room++) {
        iov_t iov[5] = {{nullptr, 7}, {nullptr, 7}, {nullptr, 7}, {nullptr, 7}, {nullptr, 7}};
        uint32_t len = room;
        EXPECT_EQ(aaa_avpair_pack_msg(list.get(), iov, &len), room == 4 ? AAA_OK : AAA_ERR_BUFFER_TOO_SMALL);
        EXPECT_EQ(len, room);
        EXPECT_NE(iov[room - 1].len, 7u);
        EXPECT_EQ(iov[room].len, 7u);
    }
}

TEST(AvpairGather, RefusesNullArguments) {
    const ListPtr list = three_buffers();
    iov_t iov[4];
    uint32_t len = 4;
    EXPECT_EQ(aaa_avpair_pack_msg(nullptr, iov, &len), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_pack_msg(list.get(), nullptr, &len), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_pack_msg(list.get(), iov, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(len, 4u);
}

TEST(AvpairGather, TracesNameAndCount) {
    fake::enable_tracing(8);
    const ListPtr list = three_buffers("gathered");
    fake::clear_journal();
    iov_t iov[4];
    uint32_t len = 4;
    ASSERT_EQ(aaa_avpair_pack_msg(list.get(), iov, &len), AAA_OK);
    EXPECT_EQ(fake::traces_of(8), Lines{"Packing avlist 'gathered', count 4"});
    fake::clear_journal();
    len = 2;
    EXPECT_EQ(aaa_avpair_pack_msg(list.get(), iov, &len), AAA_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(fake::traces_of(8), Lines{"Packing avlist 'gathered', count 4"});
    fake::clear_journal();
    EXPECT_EQ(aaa_avpair_pack_msg(list.get(), nullptr, &len), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::traces().empty());
}

// ---- Unpacking: the list that comes out ------------------------------------------------

std::string three_pairs(const char *name = "sender") {
    return message(3, name, pair(kUser, "one", 1, 2) + pair(kInteger, be32(7)) + pair(kUser, "three"));
}

TEST(AvpairUnpack, TakesTheHeaderAsItIs) {
    std::string msg = three_pairs();
    msg[4] = 0x44;
    msg[5] = 0x55;
    msg[55] = 0x66;
    const ListPtr list = unpack(msg);
    EXPECT_EQ(bytes_of(list.get(), 8), msg.substr(0, 8));
    EXPECT_EQ(list->av_cnt, 768);  // 3 in the other byte order: kept
    EXPECT_STREQ(list->av_name, "sender");
    EXPECT_EQ(list->pad55, 0x66);
}

TEST(AvpairUnpack, PutsEverythingIntoOneBuffer) {
    const std::string msg = pack(three_buffers().get());
    const ListPtr list = unpack(msg);
    const std::vector<ModelBuffer> buffers = read_buffers(list.get());
    ASSERT_EQ(buffers.size(), 1u);
    EXPECT_EQ(buffers[0].size, msg.size() - 56 + 32);
    EXPECT_EQ(buffers[0].used(), msg.size() - 56);
    EXPECT_EQ(read_pairs(list.get()), read_pairs(three_buffers().get()));
    EXPECT_EQ(list->avpair_first_buf, list->avpair_last_buf);
    EXPECT_EQ(list->avpair_first_buf->hdr.prev, nullptr);
    EXPECT_EQ(list->avpair_first_buf->hdr.next, nullptr);
}

TEST(AvpairUnpack, SizesTheBuffer) {
    for (const auto &[value, size] : std::vector<std::pair<std::size_t, uint32_t>>{
             {0, 512}, {4, 512}, {464, 512}, {465, 516}, {468, 516}, {1000, 1048}}) {
        const ListPtr list = unpack(message(1, "", pair(kUser, std::string(value, 'v'))));
        EXPECT_EQ(list->avpair_first_buf->hdr.buf_size, size) << value;
    }
}

TEST(AvpairUnpack, MakesAnEmptyListOf56Bytes) {
    const ListPtr list = unpack(header(56, 0, "sender"));
    EXPECT_STREQ(list->av_name, "sender");
    EXPECT_EQ(list->av_cnt, 0);
    EXPECT_EQ(list->avpair_first_buf, nullptr);
    EXPECT_EQ(list->avpair_last_buf, nullptr);
    add(list.get(), kUser, "more");
    EXPECT_EQ(list->av_cnt, 1);
}

// The addresses in a header are never the receiver's.
TEST(AvpairUnpack, NeverTakesOverAddresses) {
    std::string empty = header(56, 0, "");
    empty.replace(8, 16, std::string(16, '\x7f'));
    EXPECT_EQ(unpack(empty)->avpair_first_buf, nullptr);
    std::string msg = three_pairs();
    msg.replace(8, 16, std::string(16, '\x7f'));
    EXPECT_EQ(read_pairs(unpack(msg).get()).size(), 3u);
}

TEST(AvpairUnpack, EndsANameThatDoesNotEnd) {
    std::string msg = header(56, 0, "");
    msg.replace(24, 32, std::string(32, 'n'));
    const ListPtr list = unpack(msg);
    EXPECT_EQ(std::string(list->av_name), std::string(30, 'n'));
    EXPECT_EQ(list->pad55, 'n');
}

TEST(AvpairUnpack, RefusesLessThanAHeader) {
    std::string msg = three_pairs();
    for (uint32_t len = 0; len < 56; len++) {
        const ListPtr list = make_list("receiver");
        const std::string before = record_of(list.get());
        EXPECT_EQ(aaa_avpair_unpack_msg_2(list.get(), msg.data(), len), AAA_ERR_INVALID_MSG_SIZE) << len;
        EXPECT_EQ(record_of(list.get()), before) << len;
        std::string liar = be32(len) + msg.substr(4);
        EXPECT_EQ(aaa_avpair_unpack_msg(list.get(), liar.data()), AAA_ERR_INVALID_MSG_SIZE) << len;
        EXPECT_EQ(record_of(list.get()), before) << len;
        avlist *created = list.get();
        EXPECT_EQ(aaa_avpair_unpack_msg_create(&created, msg.data(), len), AAA_ERR_INVALID_MSG_SIZE) << len;
        EXPECT_EQ(created, nullptr) << len;
    }
}

TEST(AvpairUnpack, TakesTheLengthFromTheMessage) {
    std::string msg = three_pairs() + "what follows is somebody else's";
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_unpack_msg(list.get(), msg.data()), AAA_OK);
    EXPECT_EQ(read_pairs(list.get()).size(), 3u);
}

TEST(AvpairUnpack, GoesByTheLengthGivenNotTheOneInTheMessage) {
    std::string msg = three_pairs();
    msg.replace(0, 4, be32(0xffffffff));
    EXPECT_EQ(read_pairs(unpack(msg).get()).size(), 3u);
}

TEST(AvpairUnpack, RefusesNullArguments) {
    std::string msg = three_pairs();
    const ListPtr list = make_list();
    avlist *untouched = list.get();
    EXPECT_EQ(aaa_avpair_unpack_msg(nullptr, msg.data()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_2(nullptr, msg.data(), 56), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_2(list.get(), nullptr, 56), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_create(nullptr, msg.data(), 56), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_create(&untouched, nullptr, 56), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(untouched, list.get());
    EXPECT_STREQ(verify_list(list.get()).fault, "");
}

// ---- Unpacking: memory ------------------------------------------------------------------

TEST(AvpairUnpack, KeepsTheHeaderWhenThereIsNoMemory) {
    std::string msg = three_pairs();
    msg[4] = 0x44;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr list = make_list("receiver");
        const cerrno code = fail.run([&] { return aaa_avpair_unpack_msg(list.get(), msg.data()); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(fail.counted(), 1u);  // one allocation, for any number of pairs
        EXPECT_STREQ(list->av_name, "sender");
        EXPECT_EQ(bytes_of(list.get(), 6), msg.substr(0, 6));
        if (fail.fired()) {
            EXPECT_EQ(list->av_cnt, 0);
            EXPECT_EQ(list->avpair_first_buf, nullptr);
            EXPECT_EQ(list->avpair_last_buf, nullptr);
            add(list.get(), kUser, "usable");
            EXPECT_EQ(read_pairs(list.get()).size(), 1u);
        }
    });
}

TEST(AvpairUnpack, CreatesNothingWhenThereIsNoMemory) {
    std::string msg = three_pairs();
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        avlist *list = nullptr;
        const cerrno code = fail.run([&] {
            return aaa_avpair_unpack_msg_create(&list, msg.data(), static_cast<uint32_t>(msg.size()));
        });
        const ListPtr owner(list);
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(list == nullptr, fail.fired());
    });
}

TEST(AvpairUnpack, ReadsNothingAfterTheMessage) {
    const GuardedPage page;
    for (std::size_t len = 0; len <= 70; len++) {
        const std::string msg = message(2, "", pair(kInteger, "1234") + pair(kUser, std::string(len, 'v')));
        char *at = page.place(msg);
        avlist *list = nullptr;
        ASSERT_EQ(aaa_avpair_unpack_msg_create(&list, at, static_cast<uint32_t>(msg.size())), AAA_OK);
        const ListPtr owner(list);
        EXPECT_EQ(read_pairs(list)[1].value, std::string(len, 'v'));
    }
}

TEST(AvpairPack, WritesNothingAfterTheRoom) {
    const GuardedPage page;
    for (std::size_t len = 0; len <= 70; len++) {
        const ListPtr list = make_list();
        add(list.get(), kInteger, "1234");
        add(list.get(), kUser, std::string(len, 'v'));
        const std::string wanted =
            message(2, "", pair(kInteger, "4321") + pair(kUser, std::string(len, 'v')));
        auto room = static_cast<uint32_t>(wanted.size());
        char *at = page.end() - room;
        ASSERT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), at, &room), AAA_OK);
        EXPECT_EQ(bytes_of(at, room), wanted);
    }
}

// The sender is trusted, and so are wrong lengths, but no memory outside message
// and buffer is touched.
TEST(AvpairUnpack, StaysInsideWhenLengthsLie) {
    const GuardedPage page;
    const std::string good = three_pairs();
    for (const uint32_t lie : {0u, 1u, 40u, 200u, 0x7fffffffu, 0xfffffff0u, 0xffffffffu}) {
        for (const std::size_t at_pair : {56, 76, 96}) {
            std::string msg = good;
            msg.replace(at_pair + 8, 4, be32(lie));
            char *at = page.place(msg);
            avlist *list = nullptr;
            ASSERT_EQ(aaa_avpair_unpack_msg_create(&list, at, static_cast<uint32_t>(msg.size())), AAA_OK);
            aaa_avpair_free_list(list);
        }
    }
    for (std::size_t len = 56; len < good.size(); len++) {
        char *at = page.place(good.substr(0, len));
        avlist *list = nullptr;
        ASSERT_EQ(aaa_avpair_unpack_msg_create(&list, at, static_cast<uint32_t>(len)), AAA_OK);
        const auto *end = list->avpair_first_buf != nullptr ? list->avpair_first_buf->hdr.free_mem : nullptr;
        EXPECT_EQ(end, len == 56 ? nullptr
                                 : reinterpret_cast<unsigned char *>(list->avpair_first_buf) + 32 + len - 56);
        aaa_avpair_free_list(list);
    }
}

// The pairs of any message as a list holds them: word by word in host order
// up to a length that leads out of the message; the rest as it was sent.
std::string as_held(std::string bytes) {
    const auto swap = [&bytes](std::size_t at) { std::reverse(&bytes[at], &bytes[at] + 4); };
    const auto word = [&bytes](std::size_t at) {
        uint32_t v = 0;
        std::memcpy(&v, &bytes[at], sizeof v);
        return v;
    };
    std::size_t at = 0;
    while (bytes.size() - at >= 16) {
        for (const std::size_t offset : {0u, 4u, 8u, 12u}) {
            swap(at + offset);
        }
        const uint32_t type = word(at);
        const std::size_t len = word(at + 8);
        const uint32_t format = aaa_attribute_format(static_cast<int32_t>(type));
        at += 16;
        if (len == 4 && (format == 1 || format == 3) && bytes.size() - at >= 4) {
            swap(at);
        }
        at += std::min((len + 3) / 4 * 4, bytes.size() - at);
    }
    return bytes;
}

TEST(AvpairUnpack, HoldsEveryByteOfAMessageWhoseLengthsLie) {
    const GuardedPage page;
    std::string pairs;
    for (const std::size_t len : {4u, 0u, 3u, 40u, 4u, 32u, 33u, 4u}) {
        pairs += pair(kInteger, std::string("wxyz0123456789abcdefghijklmnopqrstuvwxyz").substr(0, len), 1, 2);
    }
    const auto expect_held = [&page](const std::string &sent) {
        const std::string msg = message(1, "", sent);
        avlist *list = nullptr;
        ASSERT_EQ(aaa_avpair_unpack_msg_create(&list, page.place(msg), static_cast<uint32_t>(msg.size())),
                  AAA_OK);
        const ListPtr owner(list);
        EXPECT_EQ(buffers_of(list), as_held(sent));
    };
    for (std::size_t size = 0; size <= pairs.size(); size++) {
        SCOPED_TRACE(size);
        expect_held(pairs.substr(0, size));
        expect_held(pairs.substr(pairs.size() - pairs.size() / 4 * 4 + size / 4 * 4));
        for (const uint32_t lie : {1u, 4u, 12u, 31u, 47u, 200u, 0x80000000u, 0xfffffffcu, 0xffffffffu}) {
            if (size >= 16) {
                std::string lying = pairs.substr(0, size);
                lying.replace(size / 2 / 4 * 4, 4, be32(lie));
                expect_held(lying);
                expect_held(lying.replace(8, 4, be32(lie)));
            }
        }
    }
}

// ---- Both directions ----------------------------------------------------------------------

TEST(AvpairRoundTrip, KeepsEveryLengthAtEveryAlignment) {
    for (std::size_t shift = 0; shift < 8; shift++) {
        const ListPtr list = make_list("lengths");
        for (std::size_t len = 0; len <= 100; len++) {
            add(list.get(), len % 2 == 0 ? kUser : kInteger,
                std::string(len, static_cast<char>('a' + len % 26)), static_cast<uint32_t>(len),
                static_cast<uint32_t>(~len));
        }
        const std::vector<ModelPair> wanted = read_pairs(list.get());
        std::vector<char> buf(8000 + shift);
        uint32_t len = 8000;
        ASSERT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), buf.data() + shift, &len), AAA_OK);
        const ListPtr copy = make_list();
        ASSERT_EQ(aaa_avpair_unpack_msg(copy.get(), buf.data() + shift), AAA_OK);
        EXPECT_EQ(read_pairs(copy.get()), wanted);
        EXPECT_STREQ(copy->av_name, "lengths");
    }
}

TEST(AvpairRoundTrip, KeepsRandomListsWithDeletions) {
    std::mt19937 random(20240229);
    const auto below = [&random](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 200; round++) {
        const ListPtr list = make_list("random");
        const uint32_t count = below(60);
        for (uint32_t i = 0; i < count; i++) {
            const uint32_t len = below(4) == 0 ? below(700) : below(24);
            const uint32_t type = below(2070);
            add(list.get(), type, std::string(len, static_cast<char>(below(256))), below(0x10000), i);
            if (below(3) == 0) {
                erase(list.get(), type);
            }
        }
        const std::vector<ModelPair> wanted = read_pairs(list.get());
        const ListPtr copy = unpack(pack(list.get()));
        ASSERT_EQ(read_pairs(copy.get()), wanted) << "round " << round;
    }
}

// An unpacked list counts in message order, so its count goes out swapped:
// readers of the wire may only ask whether it is zero.
TEST(AvpairRoundTrip, SwapsTheCountAtEveryRelay) {
    const ListPtr first = unpack(three_pairs());
    EXPECT_EQ(first->av_cnt, 768);
    const std::string relayed = pack(first.get());
    EXPECT_EQ(relayed.substr(6, 2), "\3\0"s);
    const ListPtr second = unpack(relayed);
    EXPECT_EQ(second->av_cnt, 3);
    EXPECT_EQ(read_pairs(second.get()), read_pairs(unpack(three_pairs()).get()));
}

TEST(AvpairRoundTrip, LeavesAListThatCanBeEmptied) {
    const ListPtr list = unpack(three_pairs());
    erase(list.get(), kInteger);
    erase(list.get(), kUser);
    erase(list.get(), kUser);
    EXPECT_EQ(list->av_cnt, 0);
    EXPECT_EQ(list->avpair_first_buf, nullptr);
    EXPECT_EQ(aaa_avpair_find_type(kUser, nullptr, nullptr, nullptr, 0, list.get()),
              AAA_ERR_AVPAIR_NOT_FOUND);
    add(list.get(), kUser, "again");
    EXPECT_EQ(read_pairs(list.get()).size(), 1u);
}

// 256 pairs count as 1 in the other byte order: the count reaches zero long
// before the pairs do.
TEST(AvpairRoundTrip, LeavesAListOf256PairsThatCanBeEmptied) {
    const ListPtr original = make_list("many");
    for (uint32_t i = 0; i < 256; i++) {
        add(original.get(), kInteger, le32(i));
    }
    const ListPtr list = unpack(pack(original.get()));
    EXPECT_EQ(list->av_cnt, 1);
    for (uint32_t i = 0; i < 256; i++) {
        ASSERT_EQ(read_pairs(list.get()).size(), 256 - i);
        erase(list.get(), kInteger);
        ASSERT_STREQ(verify_list(list.get(), ListOrigin::unpacked).fault, "");
    }
    EXPECT_EQ(list->avpair_first_buf, nullptr);
    EXPECT_EQ(list->av_cnt, 0);
}

// ---- Traces of unpacking --------------------------------------------------------------------

// The text of a pair is the dictionary's; how it is framed is tested here.
std::string rendering(const ModelPair &shown) {
    char text[1024];
    aaa_util_print_attr(shown.type, static_cast<uint32_t>(shown.value.size()), shown.flags,
                        shown.value.data(), text, sizeof text);
    return text;
}

TEST(AvpairUnpack, TracesTheWholeList) {
    std::string msg = three_pairs();
    fake::enable_tracing(8);
    const ListPtr list = make_list("receiver");
    fake::clear_journal();
    ASSERT_EQ(aaa_avpair_unpack_msg(list.get(), msg.data()), AAA_OK);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Unpacking message 'receiver', length " + std::to_string(msg.size()),
                     "Unpacking attribute list sender", "sender", rendering({kUser, 2, 1, "one"}),
                     rendering({kInteger, 0, 0, le32(7)}), rendering({kUser, 0, 0, "three"})}));
    EXPECT_EQ(fake::traces_of(8).size(), fake::traces().size());
}

// Bytes of a peer are printed as text, never used as a format.
TEST(AvpairUnpack, TracesConversionsInTheListAsText) {
    const std::string hostile = "%s %n %d 100%";
    const ListPtr sent = make_list("%s%n%d");
    add(sent.get(), kUser, hostile);
    std::string msg = pack(sent.get());
    const ListPtr list = make_list("%p%s");
    fake::enable_tracing(8);
    fake::clear_journal();
    ASSERT_EQ(aaa_avpair_unpack_msg(list.get(), msg.data()), AAA_OK);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Unpacking message '%p%s', length " + std::to_string(msg.size()),
                     "Unpacking attribute list %s%n%d", "%s%n%d", rendering({kUser, 0, 0, hostile})}));
    EXPECT_NE(fake::traces_of(8).back().find(hostile), std::string::npos);
}

TEST(AvpairUnpack, TracesOnlyTheLengthOfAListWithoutPairs) {
    std::string msg = header(56, 0, "sender");
    fake::enable_tracing(8);
    const ListPtr list = make_list("receiver");
    fake::clear_journal();
    ASSERT_EQ(aaa_avpair_unpack_msg_2(list.get(), msg.data(), 56), AAA_OK);
    EXPECT_EQ(fake::traces_of(8), Lines{"Unpacking message 'receiver', length 56"});
}

TEST(AvpairUnpack, TracesTheListThatItCreatesWithoutAName) {
    std::string msg = three_pairs();
    const auto size = static_cast<uint32_t>(msg.size());
    fake::enable_tracing(8);
    avlist *list = nullptr;
    ASSERT_EQ(aaa_avpair_unpack_msg_create(&list, msg.data(), size), AAA_OK);
    const ListPtr owner(list);
    const Lines lines = fake::traces_of(8);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[0], "Unpacking message '', length " + std::to_string(size));
    EXPECT_EQ(lines[1], "Unpacking attribute list sender");
    fake::disable_all_tracing();
}

TEST(AvpairUnpack, TracesNoListWhenThereIsNoMemory) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    std::string msg = three_pairs();
    const ListPtr list = make_list("receiver");
    fake::enable_tracing(8);
    fake::FailAlloc fail(1);
    const cerrno code = aaa_avpair_unpack_msg(list.get(), msg.data());
    fail.disarm();
    EXPECT_EQ(code, AAA_ERR_NOMEM);
    EXPECT_EQ(fake::traces_of(8),
              (Lines{"Unpacking message 'receiver', length " + std::to_string(msg.size())}));
    fake::disable_all_tracing();
}

TEST(AvpairUnpack, TracesALengthThatIsRefused) {
    std::string msg = header(56, 0, "sender");
    fake::enable_tracing(8);
    const ListPtr list = make_list("receiver");
    fake::clear_journal();
    ASSERT_EQ(aaa_avpair_unpack_msg_2(list.get(), msg.data(), 55), AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_EQ(fake::traces_of(8), Lines{"Unpacking message 'receiver', length 55"});
}

TEST(AvpairUnpack, IsSilentAndAsksOnceWhileTracingIsOff) {
    std::string msg = three_pairs();
    const ListPtr list = make_list();
    fake::clear_journal();
    ASSERT_EQ(aaa_avpair_unpack_msg(list.get(), msg.data()), AAA_OK);
    EXPECT_TRUE(fake::traces().empty());
    EXPECT_EQ(fake::count("aaa_debugging"), fake::has_debug_word() ? 0u : 1u);
}

// ---- Broken invariants ------------------------------------------------------------------------

TEST(AvpairPackDeathTest, StopsOnNoRoomForAnyElement) {
    const ListPtr list = make_list();
    iov_t iov[1];
    uint32_t len = 0;
    EXPECT_ASSERTION(aaa_avpair_pack_msg(list.get(), iov, &len), kAvpairSource, "*len >= 1");
}

TEST(AvpairPackDeathTest, StopsOnUnpackingIntoAListWithPairs) {
    std::string msg = three_pairs();
    const ListPtr list = three_buffers();
    EXPECT_ASSERTION(aaa_avpair_unpack_msg(list.get(), msg.data()), kAvpairSource, "aaa_is_list_empty(list)");
    EXPECT_ASSERTION(aaa_avpair_unpack_msg_2(list.get(), msg.data(), 56), kAvpairSource,
                     "aaa_is_list_empty(list)");
}

TEST(AvpairPackDeathTest, StopsOnACountThatContradictsTheBuffers) {
    std::string msg = three_pairs();
    char buf[64];
    iov_t iov[1];
    uint32_t len = 1;
    avlist without_buffers{};
    without_buffers.av_cnt = 1;
    EXPECT_ASSERTION(aaa_avpair_pack_msg_to_buf(&without_buffers, buf, &len), kAvpairHeader,
                     "list->avpair_first_buf != NULL");
    EXPECT_ASSERTION(aaa_avpair_pack_msg(&without_buffers, iov, &len), kAvpairHeader,
                     "list->avpair_first_buf != NULL");
    EXPECT_ASSERTION(aaa_avpair_unpack_msg_2(&without_buffers, msg.data(), 56), kAvpairHeader,
                     "list->avpair_first_buf != NULL");
    const ListPtr list = three_buffers();
    avlist without_count = *list;
    without_count.av_cnt = 0;
    EXPECT_ASSERTION(aaa_avpair_pack_msg_to_buf(&without_count, buf, &len), kAvpairHeader,
                     "list->avpair_first_buf == NULL");
    EXPECT_ASSERTION(aaa_avpair_unpack_msg_2(&without_count, msg.data(), 56), kAvpairHeader,
                     "list->avpair_first_buf == NULL");
}

}  // namespace
