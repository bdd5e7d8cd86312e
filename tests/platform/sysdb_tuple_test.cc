// SPDX-License-Identifier: Apache-2.0
//
// Tuples as bytes: exact bytes, the way back, and every kind of malformed bytes.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/cerr.h"
#include "platform/event_manager.h"
#include "support/sysdb.hpp"

namespace {

using Bytes = std::vector<unsigned char>;

template <typename... Arguments>
Bytes packed(const char *format, Arguments... arguments) {
    void *tuple = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(0u, sysdb_tuple_pack(&tuple, &length, format, arguments...)) << format;
    const auto *bytes = static_cast<unsigned char *>(tuple);
    Bytes result(bytes, bytes + length);
    free(tuple);
    return result;
}

// A field as the library declares it, with guards on both sides.
struct Name {
    char before = '#';
    char text[50];
    char after = '#';
    Name() { std::memset(text, '?', sizeof text); }
    bool untouched() const { return std::string(text, sizeof text) == std::string(50, '?'); }
};

constexpr char kList[] = "%d%d%d%d%s%s%s%s";
constexpr char kAccountingList[] = "%d%d%d%d%d%d%d%s%s%s%s";

struct MethodList {
    uint32_t methods[4] = {77, 77, 77, 77};
    Name names[4];

    int unpack(const Bytes &tuple) {
        return tuple_unpack_mask(tuple.data(), kList, &methods[0], &methods[1], &methods[2], &methods[3],
                                 names[0].text, names[1].text, names[2].text, names[3].text);
    }
    void expect_untouched() const {
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(77u, methods[i]);
            EXPECT_TRUE(names[i].untouched());
        }
    }
};

TEST(SysdbTuple, GoldenBytes) {
    const Bytes expected = {'T', 'P', 1,   3,   24,  0, 0, 0,  // header: three fields, 24 bytes
                            'd', 4,   3,   2,   1,             // 0x01020304
                            's', 4,   'G', 'R', 'P', 0,        // "GRP"
                            'd', 255, 255, 255, 255};          // -1
    EXPECT_EQ(expected, packed("%d%s%d", 0x01020304u, "GRP", -1));
}

TEST(SysdbTuple, MethodListComesBack) {
    MethodList list;
    ASSERT_EQ(0, list.unpack(packed(kList, 10, 2, 0, -1, "GRP1", "", static_cast<const char *>(nullptr),
                                    std::string(49, 'n').c_str())));
    EXPECT_EQ(10u, list.methods[0]);
    EXPECT_EQ(2u, list.methods[1]);
    EXPECT_EQ(0u, list.methods[2]);
    EXPECT_EQ(0xffffffffu, list.methods[3]);
    EXPECT_STREQ("GRP1", list.names[0].text);
    EXPECT_STREQ("", list.names[1].text);
    EXPECT_STREQ("", list.names[2].text);
    EXPECT_EQ(std::string(49, 'n'), list.names[3].text);
    for (const Name &name : list.names) {
        EXPECT_EQ('#', name.before);
        EXPECT_EQ('#', name.after);
    }
}

TEST(SysdbTuple, AccountingListIsReadWithBothFormats) {
    const Bytes tuple = packed(kAccountingList, 1, 2, 3, 10, 2, 0, 0, "GRP1", "b", "c", "d");
    MethodList list;
    ASSERT_EQ(0, list.unpack(tuple));
    EXPECT_EQ(10u, list.methods[0]);
    EXPECT_EQ(2u, list.methods[1]);
    EXPECT_STREQ("GRP1", list.names[0].text);
    EXPECT_STREQ("d", list.names[3].text);

    uint32_t numbers[7] = {};
    Name names[4];
    ASSERT_EQ(0, tuple_unpack_mask(tuple.data(), kAccountingList, &numbers[0], &numbers[1], &numbers[2],
                                   &numbers[3], &numbers[4], &numbers[5], &numbers[6], names[0].text,
                                   names[1].text, names[2].text, names[3].text));
    EXPECT_EQ(1u, numbers[0]);
    EXPECT_EQ(3u, numbers[2]);
    EXPECT_EQ(10u, numbers[3]);
    EXPECT_STREQ("c", names[2].text);
}

TEST(SysdbTuple, FormatThatAsksForMoreFailsAndWritesNothing) {
    uint32_t numbers[7];
    std::fill(std::begin(numbers), std::end(numbers), 77u);
    Name names[4];
    const Bytes tuple = packed(kList, 1, 2, 3, 4, "a", "b", "c", "d");
    errno = 0;
    EXPECT_EQ(-1, tuple_unpack_mask(tuple.data(), kAccountingList, &numbers[0], &numbers[1], &numbers[2],
                                    &numbers[3], &numbers[4], &numbers[5], &numbers[6], names[0].text,
                                    names[1].text, names[2].text, names[3].text));
    EXPECT_EQ(EPROTO, errno);
    for (const uint32_t number : numbers) {
        EXPECT_EQ(77u, number);
    }
    EXPECT_TRUE(names[0].untouched());
}

TEST(SysdbTuple, FieldsOfAnotherKindFail) {
    MethodList list;
    for (const Bytes &tuple : {packed("%d%d%d%d%s%s%s%d", 1, 2, 3, 4, "a", "b", "c", 5), packed("%s", "a"),
                               packed("%d%d%d%d%s%s%s", 1, 2, 3, 4, "a", "b", "c"), packed("")}) {
        errno = 0;
        EXPECT_EQ(-1, list.unpack(tuple));
        EXPECT_EQ(EPROTO, errno);
        list.expect_untouched();
    }
}

TEST(SysdbTuple, FormatMayAskForLess) {
    const Bytes tuple = packed(kList, 1, 2, 3, 4, "a", "b", "c", "d");
    Name first;
    uint32_t last = 0;
    EXPECT_EQ(0, tuple_unpack_mask(tuple.data(), "%d%s", &last, first.text));
    EXPECT_EQ(4u, last);
    EXPECT_STREQ("a", first.text);
    EXPECT_EQ(0, tuple_unpack_mask(tuple.data(), ""));
}

TEST(SysdbTuple, EveryTruncationIsFound) {
    const Bytes whole = packed(kList, 10, 0, 0, 0, "GRP1", "", "", "last");
    ASSERT_EQ(0u, sysdb_tuple_check(whole.data(), static_cast<uint32_t>(whole.size())));
    for (uint32_t length = 0; length < whole.size(); ++length) {
        // In a block of exactly that size, so that a sanitizer detects reading past it.
        const std::unique_ptr<unsigned char[]> cut(new unsigned char[length]);
        std::copy_n(whole.begin(), length, cut.get());
        EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_tuple_check(cut.get(), length)) << length;
        if (length < 8) {
            continue;
        }
        // A header with the truncated length: the fields do not fit.
        cut[4] = static_cast<unsigned char>(length);
        EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_tuple_check(cut.get(), length)) << length;
        MethodList list;
        errno = 0;
        EXPECT_EQ(-1, list.unpack(Bytes(cut.get(), cut.get() + length))) << length;
        EXPECT_EQ(EBADMSG, errno) << length;
        list.expect_untouched();
    }
}

TEST(SysdbTuple, AnyByteMayBeWrongWithoutHarm) {
    const Bytes whole = packed(kList, 10, 0, 0, 0, "GRP1", "x", "", "last");
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int value : {0, 1, 7, 0x7f, 0xff, int{'s'}, int{'d'}}) {
            Bytes lying = whole;
            lying[at] = static_cast<unsigned char>(value);
            if (sysdb_tuple_check(lying.data(), static_cast<uint32_t>(lying.size())) == 0) {
                MethodList list;  // no value may be written past its field
                list.unpack(lying);
                for (const Name &name : list.names) {
                    EXPECT_EQ('#', name.after);
                }
            }
        }
    }
}

TEST(SysdbTuple, MalformedNamesAreRefused) {
    const Bytes good = packed("%s", "abc");
    ASSERT_EQ(8u + 2 + sizeof "abc", good.size());
    Bytes no_end = good;
    no_end.at(13) = 'd';
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_tuple_check(no_end.data(), static_cast<uint32_t>(no_end.size())));
    Bytes early_end = good;
    early_end[11] = 0;
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE,
              sysdb_tuple_check(early_end.data(), static_cast<uint32_t>(early_end.size())));
    // 51 bytes with the NUL: one more than a caller's field holds.
    Bytes too_long = {'T', 'P', 1, 1, 8 + 2 + 51, 0, 0, 0, 's', 51};
    too_long.insert(too_long.end(), 50, 'n');
    too_long.push_back(0);
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE,
              sysdb_tuple_check(too_long.data(), static_cast<uint32_t>(too_long.size())));
    Name name;
    errno = 0;
    EXPECT_EQ(-1, tuple_unpack_mask(too_long.data(), "%s", name.text));
    EXPECT_EQ(EBADMSG, errno);
    EXPECT_TRUE(name.untouched());
}

TEST(SysdbTuple, PackRefusesWhatDoesNotFit) {
    void *tuple = nullptr;
    uint32_t length = 77;
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_tuple_pack(&tuple, &length, "%s", std::string(50, 'n').c_str()));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_tuple_pack(&tuple, &length, "%x", 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_tuple_pack(&tuple, &length, "%d%", 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_tuple_pack(&tuple, &length, "d", 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_tuple_pack(&tuple, &length, nullptr));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_tuple_pack(nullptr, &length, "%d", 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_tuple_pack(&tuple, nullptr, "%d", 1));
    EXPECT_EQ(nullptr, tuple);
    EXPECT_EQ(77u, length);
}

TEST(SysdbTuple, UnpackRefusesNullsAndUnknownConversions) {
    const Bytes tuple = packed("%d", 1);
    uint32_t number = 77;
    errno = 0;
    EXPECT_EQ(-1, tuple_unpack_mask(nullptr, "%d", &number));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, tuple_unpack_mask(tuple.data(), nullptr, &number));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, tuple_unpack_mask(tuple.data(), "%u", &number));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(77u, number);
}

TEST(SysdbTuple, FormatTellsTheFields) {
    const auto format_of = [](const Bytes &tuple) {
        char *format = sysdb_tuple_format(tuple.data(), static_cast<uint32_t>(tuple.size()));
        std::string text = format != nullptr ? format : "(null)";
        free(format);
        return text;
    };
    EXPECT_EQ("%d%s%d", format_of(packed("%d%s%d", 1, "a", 2)));
    EXPECT_EQ(kAccountingList, format_of(packed(kAccountingList, 1, 2, 3, 4, 5, 6, 7, "a", "b", "c", "d")));
    EXPECT_EQ("", format_of(packed("")));
    EXPECT_EQ("(null)", format_of({'x', 'x', 'x', 'x', 8, 0, 0, 0}));
}

// The texts of the codes are in one table, their names in the header.
TEST(SysdbCodes, EveryCodeHasItsText) {
    const std::pair<cerrno, const char *> expected[] = {
        {SYSDB_ERR_NOT_FOUND, "Item not found in the system database"},
        {SYSDB_ERR_LIB_ABSENT, "System database library is absent"},
        {SYSDB_ERR_NOTIFY_ABSENT, "System database notifications are not available"},
        {SYSDB_ERR_INVALID_ARG, "Invalid argument passed to the system database"},
        {SYSDB_ERR_BAD_HANDLE, "System database connection or list is not valid"},
        {SYSDB_ERR_BAD_PATH, "Path is not one of the system database"},
        {SYSDB_ERR_PATH_TOO_LONG, "System database path is too long"},
        {SYSDB_ERR_TYPE_MISMATCH, "System database item is of another type"},
        {SYSDB_ERR_BAD_VALUE, "Value does not have the form that its type asks for"},
        {SYSDB_ERR_VALUE_TOO_LARGE, "Value is too large for the system database"},
        {SYSDB_ERR_FULL, "System database is full"},
        {SYSDB_ERR_CORRUPT, "System database files are damaged"},
        {SYSDB_ERR_ACCESS, "No permission for the system database"},
        {SYSDB_ERR_READ_ONLY, "System database is open for reading only"},
        {SYSDB_ERR_STORAGE, "System database cannot read or write its files"},
        {SYSDB_ERR_BUSY, "System database has too many users at the same time"},
        {SYSDB_ERR_NOMEM, "Not enough memory in the system database"},
        {SYSDB_ERR_END_OF_LIST, "End of the list of system database entries"},
        {SYSDB_ERR_CONNECTION_LOST, "Connection to the system database is lost"},
        {EVENT_CONN_RETRY, "Connection cannot be made now, it will be tried again"},
        {EVENT_ERR_INVALID_ARG, "Invalid argument passed to the event manager"},
        {EVENT_ERR_NOMEM, "Not enough memory in the event manager"},
        {EVENT_ERR_SYSTEM, "System call of the event manager failed"},
        {EVENT_ERR_BAD_HANDLE, "Event manager or connection is not valid"},
        {EVENT_ERR_CHANNEL, "Channel cannot be watched by the event manager"},
        {EVENT_ERR_FORKED, "Event manager belongs to the parent of this process"},
    };
    for (const auto &[code, text] : expected) {
        EXPECT_STREQ(text, cerr_strerror(code));
    }
}

}  // namespace
