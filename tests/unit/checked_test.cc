// SPDX-License-Identifier: Apache-2.0
//
// Entry points for bytes of unknown origin: malformed messages at every length, and
// the outputs after a failure.

#include "aaa/checked.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "aaa/accessors.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/guarded_page.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using aaatest::GuardedPage;
using aaatest::ListOrigin;
using aaatest::ListPtr;
using aaatest::make_list;
using aaatest::ModelPair;
using aaatest::read_pairs;
using aaatest::verify_list;

constexpr uint32_t kInteger = AAA_STATUS_ATTR;  // travels in network order
constexpr uint32_t kText = AAA_USERNAME_ATTR;
constexpr uint32_t kDeleted = AAA_ATTR_MAX;
constexpr std::size_t kHeader = 56;

void put_be32(std::string &message, std::size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        message[at + static_cast<std::size_t>(i)] = static_cast<char>(value >> (24 - 8 * i));
    }
}

std::string pack(avlist *list) {
    std::string bytes(1 << 20, '\0');
    auto len = static_cast<uint32_t>(bytes.size());
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list, bytes.data(), &len), AAA_OK);
    bytes.resize(len);
    return bytes;
}

void add(const ListPtr &list, uint32_t type, const std::string &value, uint32_t flags = 0, uint32_t tag = 0) {
    ASSERT_EQ(aaa_avpair_add(type, flags, value.data(), tag, static_cast<uint32_t>(value.size()), list.get()),
              AAA_OK);
}

void erase(const ListPtr &list, uint32_t type, uint32_t instance) {
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(type, instance, list.get(), nullptr), AAA_OK);
}

// 56 + 20 + 24 + 16 bytes: a four-byte integer, a text, and a pair without value.
constexpr std::size_t kFirst = kHeader;
constexpr std::size_t kSecond = kFirst + 20;
constexpr std::size_t kThird = kSecond + 24;
constexpr std::size_t kTotal = kThird + 16;

std::string sample() {
    const ListPtr list = make_list("sample");
    add(list, kInteger, std::string("\1\2\3\4", 4), 0x400, 7);
    add(list, kText, "alice");
    add(list, AAA_CMD_ATTR, "", 4);
    std::string message = pack(list.get());
    EXPECT_EQ(message.size(), kTotal);
    return message;
}

// A packed list with pairs of the given types and no values.
std::string pairs_of_types(const std::vector<uint32_t> &types, uint16_t count) {
    std::string message(kHeader + 16 * types.size(), '\0');
    put_be32(message, 0, static_cast<uint32_t>(message.size()));
    message[6] = static_cast<char>(count >> 8);
    message[7] = static_cast<char>(count & 0xff);
    for (std::size_t i = 0; i < types.size(); ++i) {
        put_be32(message, kHeader + 16 * i, types[i]);
    }
    return message;
}

// Result of unpacking when nothing after the message may be read. A refusal
// leaves the list empty and named as it was, and writes no trace.
cerrno unpack(const std::string &message, std::size_t avail) {
    const GuardedPage page(avail);
    const ListPtr list = make_list("mine");
    const std::string before(reinterpret_cast<const char *>(list.get()), sizeof(avlist));
    const char *const at = page.place(std::string_view(message).substr(0, avail));
    const cerrno rc = aaa_avpair_unpack_msg_checked(list.get(), at, avail);
    EXPECT_STREQ(verify_list(list.get(), ListOrigin::unpacked).fault, "");
    EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 1);
    if (rc != AAA_OK) {
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(list.get()), sizeof(avlist)), before);
        EXPECT_EQ(aaa_avpair_add(kText, 0, "x", 0, 1, list.get()), AAA_OK)
            << "the list is of no use any more";
        EXPECT_EQ(list->av_cnt, 1);
    }
    return rc;
}

cerrno unpack(const std::string &message) {
    return unpack(message, message.size());
}

std::string record_bytes(const avlist *list) {
    std::string bytes(reinterpret_cast<const char *>(list), sizeof *list);
    std::memset(bytes.data() + 8, 0, 16);  // the buffers have addresses of their own
    return bytes;
}

// Both forms give the same list.
void expect_like_plain(const std::string &message, std::size_t avail) {
    const ListPtr checked = make_list("mine");
    const ListPtr plain = make_list("mine");
    std::string copy = message;
    ASSERT_EQ(aaa_avpair_unpack_msg_checked(checked.get(), message.data(), avail), AAA_OK);
    ASSERT_EQ(aaa_avpair_unpack_msg(plain.get(), copy.data()), AAA_OK);
    EXPECT_EQ(record_bytes(checked.get()), record_bytes(plain.get()));
    EXPECT_EQ(read_pairs(checked.get()), read_pairs(plain.get()));
    EXPECT_STREQ(verify_list(checked.get(), ListOrigin::unpacked).fault, "");
    EXPECT_EQ(aaa_avpair_list_is_sane(checked.get()), 1);
}

}  // namespace

// ---- Unpacking: what is accepted -------------------------------------------------

TEST(CheckedUnpack, GivesWhatThePlainFormGives) {
    const std::string message = sample();
    expect_like_plain(message, message.size());
}

TEST(CheckedUnpack, ReadsThePairsOfTheMessage) {
    const std::string message = sample();
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_unpack_msg_checked(list.get(), message.data(), message.size()), AAA_OK);
    EXPECT_EQ(read_pairs(list.get()),
              (std::vector<ModelPair>{{kInteger, 7, 0x400, std::string("\1\2\3\4", 4)},
                                      {kText, 0, 0, "alice"},
                                      {AAA_CMD_ATTR, 0, 4, ""}}));
    EXPECT_STREQ(list->av_name, "sample");
}

TEST(CheckedUnpack, AnEmptyListIsAMessageToo) {
    const ListPtr list = make_list("nothing");
    const std::string message = pack(list.get());
    ASSERT_EQ(message.size(), kHeader);
    expect_like_plain(message, message.size());
    EXPECT_EQ(unpack(message), AAA_OK);
}

TEST(CheckedUnpack, BytesAfterTheTotalLengthAreIgnored) {
    const std::string message = sample();
    expect_like_plain(message + "\xff\xff\xff\xff\xff", message.size() + 5);
    expect_like_plain(message + std::string(4096, '\xff'), message.size() + 4096);
}

TEST(CheckedUnpack, NeedsNoAlignment) {
    const std::string message = sample();
    for (std::size_t offset = 0; offset < 8; ++offset) {
        std::string shifted(offset, '#');
        shifted += message;
        const ListPtr list = make_list();
        ASSERT_EQ(aaa_avpair_unpack_msg_checked(list.get(), shifted.data() + offset, message.size()), AAA_OK);
        EXPECT_EQ(read_pairs(list.get()).size(), 3u);
    }
}

TEST(CheckedUnpack, DeletedPairsBetweenLiveOnesAreAccepted) {
    const ListPtr list = make_list();
    for (const char *value : {"one", "two", "three", "four"}) {
        add(list, kText, value);
    }
    erase(list, kText, 1);
    erase(list, kText, 0);
    const std::string message = pack(list.get());
    expect_like_plain(message, message.size());
}

TEST(CheckedUnpack, ListsOfSeveralBuffersAreAccepted) {
    const ListPtr list = make_list();
    for (int i = 0; i < 50; ++i) {
        add(list, kText, std::string(static_cast<std::size_t>(i * 7), 'a'));
    }
    const std::string message = pack(list.get());
    expect_like_plain(message, message.size());
}

TEST(CheckedUnpack, ARelayedListIsAccepted) {
    // Unpacked and packed again, its count is in the other byte order.
    const std::string message = sample();
    const ListPtr relay = make_list();
    ASSERT_EQ(aaa_avpair_unpack_msg_checked(relay.get(), message.data(), message.size()), AAA_OK);
    const std::string relayed = pack(relay.get());
    EXPECT_NE(relayed.substr(6, 2), message.substr(6, 2));
    expect_like_plain(relayed, relayed.size());
}

TEST(CheckedUnpack, EveryAttributeFormatAndShortValueIsAccepted) {
    const ListPtr list = make_list();
    for (uint32_t type = 0; type <= kDeleted + 1; ++type) {
        if (type != kDeleted) {
            add(list, type, std::string(type % 9, static_cast<char>(type)));
        }
    }
    const std::string message = pack(list.get());
    expect_like_plain(message, message.size());
}

TEST(CheckedUnpack, TheHighestNumberOfPairsIsAccepted) {
    EXPECT_EQ(AAA_CHECKED_MAX_PAIRS, 65279u);
    const std::string message = pairs_of_types(std::vector<uint32_t>(65279, kText), 65279);
    expect_like_plain(message, message.size());
}

// A peer sent 65535 pairs, the server appended one, which wrapped the count to 0, and
// the next look at the list stopped the server.
TEST(CheckedUnpack, AServerCanAppend256PairsToWhateverIsAccepted) {
    // The peer's count in either byte order, and false counts.
    for (const uint16_t count : std::initializer_list<uint16_t>{65279, 0xfffe, 1, 0xffff, 0xff00}) {
        const std::string message = pairs_of_types(std::vector<uint32_t>(65279, kText), count);
        const ListPtr list = make_list();
        ASSERT_EQ(aaa_avpair_unpack_msg_checked(list.get(), message.data(), message.size()), AAA_OK) << count;
        for (int i = 0; i < 256; ++i) {
            add(list, AAA_CMD_ATTR, "x");
            ASSERT_NE(list->av_cnt, 0) << "after pair " << i;
        }
        void *value = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(aaa_avpair_find_type(AAA_CMD_ATTR, nullptr, &value, &length, 255, list.get()), AAA_OK);
        EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 1);
        EXPECT_STREQ(verify_list(list.get(), ListOrigin::unpacked).fault, "");
    }
}

TEST(CheckedUnpack, TheHighestNumberOfPairsCanBeRelayed) {
    const std::string message = pairs_of_types(std::vector<uint32_t>(65279, kText), 65279);
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_unpack_msg_checked(list.get(), message.data(), message.size()), AAA_OK);
    const std::string relayed = pack(list.get());
    expect_like_plain(relayed, relayed.size());
}

// ---- Unpacking: what is refused --------------------------------------------------

TEST(CheckedUnpack, NullsAreArgumentErrors) {
    const std::string message = sample();
    const ListPtr list = make_list("mine");
    EXPECT_EQ(aaa_avpair_unpack_msg_checked(nullptr, message.data(), message.size()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_checked(list.get(), nullptr, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_avpair_unpack_msg_checked(nullptr, nullptr, 0), AAA_ERR_INVALID_ARG);
    EXPECT_STREQ(list->av_name, "mine");
}

TEST(CheckedUnpack, EveryShorterMessageIsRefused) {
    const std::string message = sample();
    for (std::size_t avail = 0; avail < message.size(); ++avail) {
        EXPECT_EQ(unpack(message, avail), AAA_ERR_INVALID_MSG_SIZE) << avail;
    }
}

TEST(CheckedUnpack, EveryLengthThatLeavesNoWholePairIsRefused) {
    // A length field that agrees with what was sent.
    std::string message = sample() + std::string(200, '\0');
    for (uint32_t length = 0; length <= 200; ++length) {
        put_be32(message, 0, length);
        cerrno expected = AAA_ERR_AVPAIR_PROCESSING;
        if (length < kHeader || length % 4 != 0) {
            expected = AAA_ERR_INVALID_MSG_SIZE;
        } else if (length == kSecond || length == kThird || length == kTotal ||
                   (length > kTotal && (length - kTotal) % 16 == 0)) {
            expected = AAA_OK;
        }
        EXPECT_EQ(unpack(message, length), expected) << length;
        EXPECT_EQ(unpack(message), expected) << length << ", more readable";
    }
}

TEST(CheckedUnpack, ATotalLengthBeyondTheBytesIsRefused) {
    std::string message = sample();
    for (const uint32_t length : {0x80u, 0x10000u, 0x7FFFFFFCu, 0x80000000u, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
        put_be32(message, 0, length);
        EXPECT_EQ(unpack(message), AAA_ERR_INVALID_MSG_SIZE) << length;
    }
    put_be32(message, 0, static_cast<uint32_t>(message.size()));
    EXPECT_EQ(unpack(message), AAA_OK);
}

TEST(CheckedUnpack, EveryLiedValueLengthIsRefused) {
    const std::string message = sample();
    const struct {
        std::size_t pair;
        uint32_t in_place;
    } pairs[] = {{kFirst, 4}, {kSecond, 5}, {kThird, 0}};
    for (const auto &[pair, in_place] : pairs) {
        const auto room = static_cast<uint32_t>(kTotal - pair - 16);
        for (uint32_t length = 0; length <= 200; ++length) {
            std::string lied = message;
            put_be32(lied, pair + 8, length);
            const cerrno rc = unpack(lied);
            if (length > room) {
                EXPECT_EQ(rc, AAA_ERR_AVPAIR_PROCESSING) << length << " at " << pair;
            }
            if ((length + 3) / 4 == (in_place + 3) / 4) {
                EXPECT_EQ(rc, AAA_OK) << length << " at " << pair;
            }
        }
        for (const uint32_t length :
             {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFECu, 0xFFFFFFEFu, 0xFFFFFFF0u, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
            std::string lied = message;
            put_be32(lied, pair + 8, length);
            EXPECT_EQ(unpack(lied), AAA_ERR_AVPAIR_PROCESSING) << length << " at " << pair;
        }
    }
}

TEST(CheckedUnpack, AMessageAcceptedWithAFalseLengthGivesAWholeList) {
    // A length that swallows whole pairs is a well-formed message of other pairs.
    std::string message = sample();
    put_be32(message, kFirst + 8, kTotal - kFirst - 16);
    const ListPtr list = make_list();
    ASSERT_EQ(aaa_avpair_unpack_msg_checked(list.get(), message.data(), message.size()), AAA_OK);
    EXPECT_EQ(read_pairs(list.get()).size(), 1u);
    EXPECT_STREQ(verify_list(list.get(), ListOrigin::unpacked).fault, "");
}

TEST(CheckedUnpack, ANameWithoutEndIsRefused) {
    std::string message = sample();
    std::memset(message.data() + 24, 'n', 31);
    EXPECT_EQ(unpack(message), AAA_ERR_AVPAIR_PROCESSING);
    message[55] = '\0';  // after the name: does not end it
    EXPECT_EQ(unpack(message), AAA_ERR_AVPAIR_PROCESSING);
    message[54] = '\0';
    EXPECT_EQ(unpack(message), AAA_OK);
}

TEST(CheckedUnpack, TheCountIsZeroExactlyWhenThereAreNoPairs) {
    std::string message = sample();
    message[6] = message[7] = 0;
    EXPECT_EQ(unpack(message), AAA_ERR_AVPAIR_PROCESSING);
    for (const auto &[high, low] : {std::pair{0, 1}, std::pair{1, 0}, std::pair{0xff, 0xff}}) {
        message[6] = static_cast<char>(high);
        message[7] = static_cast<char>(low);
        EXPECT_EQ(unpack(message), AAA_OK) << high << ' ' << low;
        EXPECT_EQ(unpack(pairs_of_types({}, static_cast<uint16_t>(high << 8 | low))),
                  AAA_ERR_AVPAIR_PROCESSING);
    }
    EXPECT_EQ(unpack(pairs_of_types({}, 0)), AAA_OK);
}

TEST(CheckedUnpack, ADeletedPairAtTheEndIsRefused) {
    EXPECT_EQ(unpack(pairs_of_types({kText, kDeleted}, 1)), AAA_ERR_AVPAIR_PROCESSING);
    EXPECT_EQ(unpack(pairs_of_types({kDeleted, kText, kDeleted, kDeleted}, 1)), AAA_ERR_AVPAIR_PROCESSING);
    EXPECT_EQ(unpack(pairs_of_types({kDeleted, kText, kDeleted, kText}, 2)), AAA_OK);
}

TEST(CheckedUnpack, NothingButDeletedPairsIsRefusedWhateverTheCount) {
    for (const uint16_t count : std::initializer_list<uint16_t>{0, 1, 256}) {
        EXPECT_EQ(unpack(pairs_of_types({kDeleted}, count)), AAA_ERR_AVPAIR_PROCESSING) << count;
        EXPECT_EQ(unpack(pairs_of_types({kDeleted, kDeleted}, count)), AAA_ERR_AVPAIR_PROCESSING) << count;
    }
}

TEST(CheckedUnpack, MorePairsThanTheHighestNumberAreRefused) {
    for (const std::size_t number : {65280u, 65535u, 65536u, 65537u, 131072u}) {
        for (const uint16_t count : std::initializer_list<uint16_t>{1, 0xff00, 0x00ff, 0xffff}) {
            EXPECT_EQ(unpack(pairs_of_types(std::vector<uint32_t>(number, kText), count)),
                      AAA_ERR_AVPAIR_PROCESSING)
                << number << " pairs, count " << count;
        }
    }
    std::vector<uint32_t> types(65280, kText);
    types[0] = kDeleted;  // those do not count
    EXPECT_EQ(unpack(pairs_of_types(types, 1)), AAA_OK);
}

TEST(CheckedUnpack, EveryChangedByteEndsInACodeOrAList) {
    const std::string message = sample();
    for (std::size_t at = 0; at < message.size(); ++at) {
        for (const int value : {0x00, 0x01, 0x08, 0x16, 0x7f, 0x80, 0xff}) {
            std::string changed = message;
            changed[at] = static_cast<char>(value);
            const cerrno rc = unpack(changed);
            EXPECT_TRUE(rc == AAA_OK || rc == AAA_ERR_INVALID_MSG_SIZE || rc == AAA_ERR_AVPAIR_PROCESSING)
                << rc;
        }
    }
}

TEST(CheckedUnpack, WithoutMemoryTheListIsLeftAsItWas) {
    const std::string message = sample();
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const ListPtr list = make_list("mine");
        const cerrno rc = fail.run(
            [&] { return aaa_avpair_unpack_msg_checked(list.get(), message.data(), message.size()); });
        if (fail.fired()) {
            EXPECT_EQ(rc, AAA_ERR_NOMEM);
            EXPECT_STREQ(list->av_name, "mine");
            EXPECT_STREQ(verify_list(list.get()).fault, "");
        } else {
            EXPECT_EQ(rc, AAA_OK);
        }
    });
}

TEST(CheckedUnpackDeathTest, AListThatIsNotEmptyStopsTheProcessWhateverTheMessage) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const ListPtr list = make_list();
    add(list, kText, "alice");
    const std::string message = sample();
    EXPECT_DEATH(aaa_avpair_unpack_msg_checked(list.get(), message.data(), message.size()),
                 "aaa_is_list_empty\\(list\\)");
    EXPECT_DEATH(aaa_avpair_unpack_msg_checked(list.get(), message.data(), 3), "aaa_is_list_empty\\(list\\)");
}

TEST(CheckedUnpack, AListChangedAfterwardsStaysSound) {
    // The count is the sender's and may be wrong: later calls must not trust it.
    for (const uint16_t count : std::initializer_list<uint16_t>{1, 2, 256, 65535}) {
        std::string message = sample();
        message[6] = static_cast<char>(count >> 8);
        message[7] = static_cast<char>(count & 0xff);
        const ListPtr list = make_list();
        ASSERT_EQ(aaa_avpair_unpack_msg_checked(list.get(), message.data(), message.size()), AAA_OK);
        for (int i = 0; i < 3; ++i) {
            add(list, kText, "more");
            EXPECT_STREQ(verify_list(list.get(), ListOrigin::unpacked).fault, "") << count;
        }
        for (std::size_t left = read_pairs(list.get()).size(); left != 0; --left) {
            aaa_avpair_iterator_t it{};
            avpair_t *pair = nullptr;
            ASSERT_EQ(aaa_avpair_iterator_init(&it, list.get(), &pair), AAA_OK);
            ASSERT_EQ(aaa_avpair_delete_by_iterator(&it, list.get()), AAA_OK);
            EXPECT_STREQ(verify_list(list.get(), ListOrigin::unpacked).fault, "") << count << ", " << left;
        }
        EXPECT_EQ(list->av_cnt, 0);
    }
}

// ---- Type data of session packets ------------------------------------------------

namespace {

std::string type_data_packet(uint32_t type, const std::string &data) {
    aaa_sess_request_t packet;
    std::memset(&packet, 0, sizeof packet);
    EXPECT_EQ(aaa_session_fill_request(&packet, nullptr, type, 0, 0), AAA_OK);
    EXPECT_EQ(
        aaa_sess_fill_msg_req_type_data(&packet.u, data.data(), static_cast<uint32_t>(data.size()), type),
        AAA_OK);
    return {reinterpret_cast<const char *>(&packet), sizeof packet};
}

constexpr std::size_t kDataAt = 80;
constexpr uint32_t kUntouched = 0xabcdef01;

struct TypeData {
    cerrno rc;
    uint32_t length;
    std::string bytes;  // the whole room, '#' where nothing was written
    bool operator==(const TypeData &) const = default;
};
std::ostream &operator<<(std::ostream &out, const TypeData &d) {
    return out << std::hex << d.rc << ", length " << d.length << ", " << testing::PrintToString(d.bytes);
}

TypeData get_type_data(const std::string &packet, std::size_t packet_len, std::size_t room) {
    const GuardedPage in;
    const GuardedPage out;
    const char *const from = in.place(std::string_view(packet).substr(0, packet_len));
    char *const to = out.place(std::string(room, '#'));
    uint32_t length = kUntouched;
    const cerrno rc = aaa_sess_get_type_data_checked(from, packet_len, to, room, &length);
    return {rc, length, std::string(to, room)};
}

}  // namespace

TEST(CheckedTypeData, CopiesTheDataOfBothTypes) {
    for (const uint32_t type : {11u, 16u}) {
        const std::string packet = type_data_packet(type, "operators");
        EXPECT_EQ(get_type_data(packet, packet.size(), 12), (TypeData{AAA_OK, 9, "operators###"}));
        EXPECT_EQ(get_type_data(packet, packet.size(), 9), (TypeData{AAA_OK, 9, "operators"}));
        EXPECT_EQ(get_type_data(packet, kDataAt + 9, 9), (TypeData{AAA_OK, 9, "operators"}))
            << "exactly as long";
    }
}

TEST(CheckedTypeData, EqualsThePlainFormAtEveryLength) {
    for (std::size_t length = 0; length <= 255; ++length) {
        const std::string data(length, static_cast<char>(length));
        const std::string packet = type_data_packet(11, data);
        char plain[255];
        uint32_t plain_length = 0;
        ASSERT_EQ(aaa_sess_get_msg_req_type_data(packet.data() + 72, plain, &plain_length, 11), AAA_OK);
        EXPECT_EQ(get_type_data(packet, packet.size(), 255).bytes.substr(0, length),
                  std::string(plain, plain_length));
        EXPECT_EQ(plain_length, length);
    }
}

TEST(CheckedTypeData, ReadsResponsesAsWell) {
    aaa_sess_ctx_t context{16, 0};
    void *packet = nullptr;
    ASSERT_EQ(aaa_session_fill_response(&packet, nullptr, &context, 0, 0, 0, 0, 0, 0), AAA_OK);
    ASSERT_EQ(aaa_sess_fill_msg_res_type_data(static_cast<char *>(packet) + 72, "admins", 6, 16), AAA_OK);
    EXPECT_EQ(
        get_type_data({static_cast<const char *>(packet), AAA_SESS_RSP_SIZE_DATA}, AAA_SESS_RSP_SIZE_DATA, 6),
        (TypeData{AAA_OK, 6, "admins"}));
    std::free(packet);
}

TEST(CheckedTypeData, EveryShorterPacketIsRefused) {
    const std::string packet = type_data_packet(11, "operators");
    for (std::size_t length = 0; length < kDataAt + 9; ++length) {
        EXPECT_EQ(get_type_data(packet, length, 16),
                  (TypeData{AAA_ERR_INVALID_MSG_SIZE, kUntouched, std::string(16, '#')}))
            << length;
    }
}

TEST(CheckedTypeData, WrongLengthsAreRefused) {
    std::string packet = type_data_packet(16, "x") + std::string(1024, 'y');
    for (const uint32_t length : {256u, 257u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        std::memcpy(packet.data() + 76, &length, sizeof length);
        EXPECT_EQ(get_type_data(packet, packet.size(), 300).rc, AAA_ERR_INVALID_MSG_SIZE) << length;
    }
    const uint32_t longest = 255;
    std::memcpy(packet.data() + 76, &longest, sizeof longest);
    EXPECT_EQ(get_type_data(packet, packet.size(), 300).rc, AAA_OK);
    EXPECT_EQ(get_type_data(packet, kDataAt + 254, 300).rc, AAA_ERR_INVALID_MSG_SIZE);
}

TEST(CheckedTypeData, OtherTypesCarryNone) {
    std::string packet = type_data_packet(11, "x");
    for (uint32_t type = 0; type <= 30; ++type) {
        std::memcpy(packet.data() + 8, &type, sizeof type);
        const bool carries = type == 11 || type == 16;
        EXPECT_EQ(get_type_data(packet, packet.size(), 4).rc, carries ? AAA_OK : AAA_ERR_INVALID_MSG_TYPE)
            << type;
    }
}

TEST(CheckedTypeData, TooLittleRoomNamesTheRoomThatIsNeeded) {
    const std::string packet = type_data_packet(11, "operators");
    for (std::size_t room = 0; room < 9; ++room) {
        EXPECT_EQ(get_type_data(packet, packet.size(), room),
                  (TypeData{AAA_ERR_BUFFER_TOO_SMALL, 9, std::string(room, '#')}));
    }
    uint32_t length = 0;
    EXPECT_EQ(aaa_sess_get_type_data_checked(packet.data(), packet.size(), nullptr, 0, &length),
              AAA_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 9u);
}

TEST(CheckedTypeData, NoDataNeedsNoRoom) {
    const std::string packet = type_data_packet(11, "");
    uint32_t length = kUntouched;
    EXPECT_EQ(aaa_sess_get_type_data_checked(packet.data(), packet.size(), nullptr, 0, &length), AAA_OK);
    EXPECT_EQ(length, 0u);
}

TEST(CheckedTypeData, NullsAreArgumentErrors) {
    const std::string packet = type_data_packet(11, "x");
    char out[4];
    uint32_t length = kUntouched;
    EXPECT_EQ(aaa_sess_get_type_data_checked(nullptr, packet.size(), out, sizeof out, &length),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_sess_get_type_data_checked(packet.data(), packet.size(), nullptr, 1, &length),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_sess_get_type_data_checked(packet.data(), packet.size(), out, sizeof out, nullptr),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(length, kUntouched);
}

TEST(CheckedTypeData, NeedsNoAlignment) {
    const std::string packet = "#" + type_data_packet(16, "x");
    char out = 0;
    uint32_t length = 0;
    EXPECT_EQ(aaa_sess_get_type_data_checked(packet.data() + 1, packet.size() - 1, &out, 1, &length), AAA_OK);
    EXPECT_EQ(out, 'x');
}

// ---- Method list -----------------------------------------------------------------

namespace {

struct Methods {
    cerrno rc;
    uint32_t count;
    std::vector<uint32_t> values;
    bool operator==(const Methods &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Methods &m) {
    return out << std::hex << m.rc << ", " << m.count << ": " << testing::PrintToString(m.values);
}

constexpr uint32_t kFill = 0x23232323;

Methods copy_methods(const ListPtr &list, uint32_t capacity) {
    const GuardedPage page;
    const std::string fill(capacity * sizeof(uint32_t), '#');
    auto *const to = reinterpret_cast<uint32_t *>(page.place(fill));
    uint32_t count = kUntouched;
    const cerrno rc = aaa_util_avlist_methodlist_copy(list.get(), to, capacity, &count);
    return {rc, count, std::vector<uint32_t>(to, to + capacity)};
}

void add_methods(const ListPtr &list, const std::vector<uint32_t> &methods) {
    add(list, AAA_METHODLIST_ATTR,
        {reinterpret_cast<const char *>(methods.data()), methods.size() * sizeof(uint32_t)});
}

}  // namespace

TEST(CheckedMethodList, CopiesWholeValues) {
    const ListPtr list = make_list();
    add_methods(list, {3, 0x01020304, 9});
    EXPECT_EQ(copy_methods(list, 3), (Methods{AAA_OK, 3, {3, 0x01020304, 9}}));
    EXPECT_EQ(copy_methods(list, 5), (Methods{AAA_OK, 3, {3, 0x01020304, 9, kFill, kFill}}));
}

TEST(CheckedMethodList, EqualsThePlainForm) {
    const ListPtr list = make_list();
    add_methods(list, {7, 8});
    uint32_t plain[2];
    uint32_t count = 0;
    ASSERT_EQ(aaa_util_avlist_methodlist_get_all(plain, &count, list.get()), 1);
    EXPECT_EQ(copy_methods(list, count), (Methods{AAA_OK, count, {plain[0], plain[1]}}));
}

TEST(CheckedMethodList, TheFirstOfSeveralCounts) {
    const ListPtr list = make_list();
    add_methods(list, {1});
    add_methods(list, {2, 3});
    EXPECT_EQ(copy_methods(list, 1), (Methods{AAA_OK, 1, {1}}));
}

TEST(CheckedMethodList, OddBytesAtTheEndAreLeftOut) {
    const ListPtr list = make_list();
    add(list, AAA_METHODLIST_ATTR, std::string("\1\0\0\0\2\0\0", 7));
    EXPECT_EQ(copy_methods(list, 2), (Methods{AAA_OK, 1, {1, kFill}}));
}

TEST(CheckedMethodList, TooLittleRoomNamesTheNumberThatIsNeeded) {
    const ListPtr list = make_list();
    add_methods(list, {1, 2, 3});
    EXPECT_EQ(copy_methods(list, 2), (Methods{AAA_ERR_BUFFER_TOO_SMALL, 3, {kFill, kFill}}));
    uint32_t count = 0;
    EXPECT_EQ(aaa_util_avlist_methodlist_copy(list.get(), nullptr, 0, &count), AAA_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 3u);
}

TEST(CheckedMethodList, AMissingListIsNotFound) {
    const ListPtr list = make_list();
    EXPECT_EQ(copy_methods(list, 1), (Methods{AAA_ERR_AVPAIR_NOT_FOUND, 0, {kFill}}));
    add(list, kText, "alice");
    EXPECT_EQ(copy_methods(list, 1), (Methods{AAA_ERR_AVPAIR_NOT_FOUND, 0, {kFill}}));
    add_methods(list, {});
    EXPECT_EQ(copy_methods(list, 1), (Methods{AAA_OK, 0, {kFill}}));
}

TEST(CheckedMethodList, NullsAreArgumentErrors) {
    const ListPtr list = make_list();
    uint32_t value = 0;
    uint32_t count = kUntouched;
    EXPECT_EQ(aaa_util_avlist_methodlist_copy(nullptr, &value, 1, &count), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_methodlist_copy(list.get(), nullptr, 1, &count), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_methodlist_copy(list.get(), &value, 1, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(count, kUntouched);
}

// ---- Values ----------------------------------------------------------------------

namespace {

TypeData copy_value(const ListPtr &list, uint32_t type, uint32_t instance, std::size_t room) {
    const GuardedPage page;
    char *const to = page.place(std::string(room, '#'));
    uint32_t length = kUntouched;
    const cerrno rc = aaa_util_avlist_value_copy(list.get(), type, instance, to, room, &length);
    return {rc, length, std::string(to, room)};
}

}  // namespace

TEST(CheckedValue, CopiesTheWantedOccurrence) {
    const ListPtr list = make_list();
    add(list, kText, "alice");
    add(list, AAA_CMD_ATTR, "show");
    add(list, kText, "bob");
    EXPECT_EQ(copy_value(list, kText, 0, 5), (TypeData{AAA_OK, 5, "alice"}));
    EXPECT_EQ(copy_value(list, kText, 1, 5), (TypeData{AAA_OK, 3, "bob##"}));
    EXPECT_EQ(copy_value(list, AAA_CMD_ATTR, 0, 4), (TypeData{AAA_OK, 4, "show"}));
}

TEST(CheckedValue, AMissingOccurrenceIsNotFound) {
    const ListPtr list = make_list();
    EXPECT_EQ(copy_value(list, kText, 0, 2), (TypeData{AAA_ERR_AVPAIR_NOT_FOUND, 0, "##"}));
    add(list, kText, "alice");
    EXPECT_EQ(copy_value(list, kText, 1, 2), (TypeData{AAA_ERR_AVPAIR_NOT_FOUND, 0, "##"}));
    EXPECT_EQ(copy_value(list, AAA_CMD_ATTR, 0, 2), (TypeData{AAA_ERR_AVPAIR_NOT_FOUND, 0, "##"}));
    EXPECT_EQ(copy_value(list, kDeleted, 0, 2), (TypeData{AAA_ERR_AVPAIR_NOT_FOUND, 0, "##"}));
}

TEST(CheckedValue, ADeletedPairIsNotFoundByItsMarker) {
    const ListPtr list = make_list();
    add(list, kText, "alice");
    add(list, kText, "bob");
    erase(list, kText, 0);
    EXPECT_EQ(copy_value(list, kDeleted, 0, 8).rc, AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(copy_value(list, kText, 0, 3), (TypeData{AAA_OK, 3, "bob"}));
}

TEST(CheckedValue, TooLittleRoomNamesTheRoomThatIsNeeded) {
    const ListPtr list = make_list();
    add(list, kText, "alice");
    EXPECT_EQ(copy_value(list, kText, 0, 4), (TypeData{AAA_ERR_BUFFER_TOO_SMALL, 5, "####"}));
    uint32_t length = 0;
    EXPECT_EQ(aaa_util_avlist_value_copy(list.get(), kText, 0, nullptr, 0, &length),
              AAA_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 5u);
}

TEST(CheckedValue, AnEmptyValueNeedsNoRoom) {
    const ListPtr list = make_list();
    add(list, kText, "");
    EXPECT_EQ(copy_value(list, kText, 0, 2), (TypeData{AAA_OK, 0, "##"}));
    uint32_t length = kUntouched;
    EXPECT_EQ(aaa_util_avlist_value_copy(list.get(), kText, 0, nullptr, 0, &length), AAA_OK);
    EXPECT_EQ(length, 0u);
}

TEST(CheckedValue, NullsAreArgumentErrors) {
    const ListPtr list = make_list();
    char out = 0;
    uint32_t length = kUntouched;
    EXPECT_EQ(aaa_util_avlist_value_copy(nullptr, kText, 0, &out, 1, &length), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_value_copy(list.get(), kText, 0, nullptr, 1, &length), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_value_copy(list.get(), kText, 0, &out, 1, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(length, kUntouched);
}

// ---- Sanity of a list ------------------------------------------------------------

namespace {

// A list of three buffers, broken for a test and put right again, so that it
// can be freed.
class BreakableList : public testing::Test {
  protected:
    BreakableList() : list_(make_list("three")) {
        for (int i = 0; i < 3; ++i) {
            add(list_, kText, std::string(300, 'a'));
            add(list_, kInteger, "four");
        }
        first_ = list_->avpair_first_buf;
        second_ = first_->hdr.next;
        third_ = second_->hdr.next;
        EXPECT_EQ(third_, list_->avpair_last_buf);
    }

    static avpair_t *pair(avpair_buffer_t *buf, unsigned index) {
        avpair_t *at = aaa_avpair_get_first_avpair_in_buf(buf);
        while (index-- != 0) {
            at = aaa_avpair_get_adjacent(at);
        }
        return at;
    }

    // The list is sound, is not with the field changed, and is sound again.
    template <typename T, typename V>
    void expect_broken_by(T &field, V value) {
        EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 1);
        const T before = field;
        field = static_cast<T>(value);
        EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 0);
        EXPECT_STRNE(verify_list(list_.get(), ListOrigin::unpacked).fault, "");
        field = before;
        EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 1);
    }

    ListPtr list_;
    avpair_buffer_t *first_, *second_, *third_;
};

avpair_buffer_t *shifted(avpair_buffer_t *buf, int by) {
    return reinterpret_cast<avpair_buffer_t *>(reinterpret_cast<uintptr_t>(buf) + static_cast<uintptr_t>(by));
}

}  // namespace

using ListIsSane = BreakableList;

TEST_F(ListIsSane, SoundLists) {
    EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 1);
    EXPECT_EQ(aaa_avpair_list_is_sane(make_list().get()), 1);
    const ListPtr list = make_list(std::string(30, 'n').c_str());
    EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 1);
    add(list, kText, "");
    EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 1);
    add(list, kText, std::string(464, 'v'));
    erase(list, kText, 0);
    EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 1);
    erase(list, kText, 0);
    EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 1);
}

TEST_F(ListIsSane, ANullIsNot) {
    EXPECT_EQ(aaa_avpair_list_is_sane(nullptr), 0);
}

TEST_F(ListIsSane, ANameWithoutEnd) {
    std::memset(list_->av_name, 'n', sizeof list_->av_name);
    EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 0);
    list_->av_name[30] = '\0';
    EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 1);
}

TEST_F(ListIsSane, CountAndBufferPointersThatDoNotAgree) {
    expect_broken_by(list_->av_cnt, 0);
    expect_broken_by(list_->avpair_first_buf, nullptr);
    expect_broken_by(list_->avpair_last_buf, nullptr);

    avlist empty{};
    EXPECT_EQ(aaa_avpair_list_is_sane(&empty), 1);
    empty.av_cnt = 1;
    EXPECT_EQ(aaa_avpair_list_is_sane(&empty), 0);
    empty.av_cnt = 0;
    empty.avpair_first_buf = first_;
    EXPECT_EQ(aaa_avpair_list_is_sane(&empty), 0);
    empty.avpair_first_buf = nullptr;
    empty.avpair_last_buf = first_;
    EXPECT_EQ(aaa_avpair_list_is_sane(&empty), 0);
}

TEST_F(ListIsSane, ACountInTheOtherByteOrderIsSound) {
    list_->av_cnt = __builtin_bswap16(list_->av_cnt);
    EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 1);
}

TEST_F(ListIsSane, LinksThatDoNotLeadBack) {
    expect_broken_by(first_->hdr.prev, first_);
    expect_broken_by(second_->hdr.prev, nullptr);
    expect_broken_by(third_->hdr.prev, first_);
    expect_broken_by(first_->hdr.next, third_);
    expect_broken_by(first_->hdr.next, nullptr);
    expect_broken_by(list_->avpair_first_buf, second_);
    expect_broken_by(list_->avpair_last_buf, second_);
}

TEST_F(ListIsSane, ChainsThatLoop) {
    expect_broken_by(third_->hdr.next, first_);
    expect_broken_by(third_->hdr.next, second_);
    expect_broken_by(third_->hdr.next, third_);
    expect_broken_by(first_->hdr.next, first_);
}

TEST_F(ListIsSane, BuffersAtImpossibleAddresses) {
    for (const int by : {1, 2, 4}) {
        avpair_buffer_t *const before = list_->avpair_first_buf;
        list_->avpair_first_buf = shifted(first_, by);
        EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 0) << by;
        list_->avpair_first_buf = before;
        second_->hdr.next = shifted(third_, by);
        EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 0) << by;
        second_->hdr.next = third_;
    }
}

TEST_F(ListIsSane, SizesThatNoBufferHas) {
    for (const uint32_t size : {0u, 32u, 508u, 513u, 514u, 515u}) {
        expect_broken_by(second_->hdr.buf_size, size);
    }
}

// Well-formed pairs do not make up for a size that ends before they do.
TEST(ListIsSaneBuffer, ThatEndsBeforeItsPairs) {
    const ListPtr list = make_list();
    add(list, kText, std::string(600, 'v'));  // the buffer has 648 bytes and is full
    uint32_t &size = list->avpair_first_buf->hdr.buf_size;
    ASSERT_EQ(size, 648u);
    for (const uint32_t shorter : {512u, 640u, 644u}) {
        size = shorter;
        EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 0) << shorter;
    }
    size = 648;
    EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 1);
}

// All is in order but the address.
TEST(ListIsSaneBuffer, ThatIsNotAligned) {
    constexpr std::size_t kSize = 512;
    alignas(avpair_buffer_t) unsigned char room[kSize + sizeof(void *)];
    for (const std::size_t by : {0u, 1u, 2u, 4u, 8u}) {
        unsigned char *const at = room + by;
        const avpair_buffer_t buf{{nullptr, nullptr, at + sizeof buf + sizeof(avpair_t), kSize, 0}};
        const avpair_t pair{kText, 0, 0, 0};
        std::memcpy(at, &buf, sizeof buf);
        std::memcpy(at + sizeof buf, &pair, sizeof pair);
        avlist list{};
        list.av_cnt = 1;
        list.avpair_first_buf = list.avpair_last_buf = reinterpret_cast<avpair_buffer_t *>(at);
        EXPECT_EQ(aaa_avpair_list_is_sane(&list), by % alignof(avpair_buffer_t) == 0 ? 1 : 0) << by;
    }
}

TEST_F(ListIsSane, AFreeMemOutsideItsBufferOrAtItsBeginning) {
    auto *const base = reinterpret_cast<unsigned char *>(second_);
    for (unsigned char *const at :
         {base, base + 28, base + 32, base + second_->hdr.buf_size + 4, base - 4,
          static_cast<unsigned char *>(nullptr), reinterpret_cast<unsigned char *>(third_)}) {
        expect_broken_by(second_->hdr.free_mem, at);
    }
}

TEST_F(ListIsSane, AFreeMemThatIsNotTheEndOfAPair) {
    unsigned char *const end = second_->hdr.free_mem;
    for (const int by : {-1, -2, -3, -4, -16, 4, 12, 1, 2}) {
        if (end + by <= reinterpret_cast<unsigned char *>(second_) + second_->hdr.buf_size) {
            std::memset(end, 0, 16);
            expect_broken_by(second_->hdr.free_mem, end + by);
        }
    }
}

TEST_F(ListIsSane, ValuesThatPassTheEnd) {
    avpair_t *const last = pair(third_, 1);
    for (const uint32_t length : {5u, 400u, 0x7FFFFFFFu, 0xFFFFFFECu, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        expect_broken_by(last->av_len, length);
    }
    for (const uint32_t length : {400u, 0xFFFFFFFFu}) {
        expect_broken_by(pair(first_, 0)->av_len, length);
    }
    expect_broken_by(last->av_len, 0) /* the four bytes that follow are not a head */;
}

TEST_F(ListIsSane, ADeletedPairAtTheEndOfABuffer) {
    expect_broken_by(pair(first_, 1)->av_type, kDeleted);
    expect_broken_by(pair(third_, 1)->av_type, kDeleted);
    pair(first_, 0)->av_type = kDeleted;
    EXPECT_EQ(aaa_avpair_list_is_sane(list_.get()), 1);
}

TEST(ListIsSaneCount, MorePairsThanCanBeCountedAreNot) {
    const std::string message = pairs_of_types(std::vector<uint32_t>(65536, kText), 1);
    const ListPtr list = make_list();
    std::string copy = message;
    ASSERT_EQ(aaa_avpair_unpack_msg(list.get(), copy.data()), AAA_OK);
    EXPECT_EQ(aaa_avpair_list_is_sane(list.get()), 0);
}
