// SPDX-License-Identifier: Apache-2.0
//
// How often a host is asked whether to trace: once for a call's own lines, and not
// at all when there is nothing to write. A host that shows its flags
// is not asked while they are off.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "aaa/avpair.h"
#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "support/avlist_model.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace aaatest;

constexpr uint32_t kUser = 257;
constexpr uint32_t kPriv = 10;
constexpr uint32_t kAbsent = 90;

char g_value[600] = "abcd";

void add(const ListPtr &list, uint32_t type, std::string_view value) {
    ASSERT_EQ(aaa_avpair_add(type, 1, value.data(), 0, static_cast<uint32_t>(value.size()), list.get()),
              AAA_OK);
}

ListPtr empty_list() {
    return make_list("empty");
}

// Two pairs of four bytes each.
ListPtr small_list() {
    ListPtr list = make_list("small");
    add(list, kUser, "user");
    add(list, kPriv, "priv");
    return list;
}

// More pairs than the shortest way of a lookup passes, then a buffer more.
ListPtr longer_list() {
    ListPtr list = make_list("longer");
    for (uint32_t type = 1; type <= 20; ++type) {
        add(list, 100 + type, "v");
    }
    add(list, kPriv, std::string(500, 'p'));
    return list;
}

std::string message_of(const ListPtr &list) {
    std::string message(1000, '\0');
    auto len = static_cast<uint32_t>(message.size());
    EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list.get(), message.data(), &len), AAA_OK);
    message.resize(len);
    return message;
}

// Makes the call with the flag off and with it on, each time with a new list.
// While it is on, a host that shows its flags is asked as any other.
template <typename Call>
void expect_asked(unsigned times, ListPtr (*make)(), Call call) {
    for (const bool on : {false, true}) {
        const ListPtr list = make();
        fake::enable_tracing(AAA_DBG_AVLIST, on);
        const std::size_t before = fake::count("aaa_debugging");
        call(list.get());
        const std::size_t asked = fake::count("aaa_debugging") - before;
        fake::disable_all_tracing();
        EXPECT_EQ(asked, fake::has_debug_word() && !on ? 0 : times) << (on ? "on" : "off");
    }
}

TEST(AvpairAsks, OnceForAnAppendOfAValue) {
    for (const uint32_t len : {0u, 4u, 32u, 33u, 500u}) {
        for (const auto make : {empty_list, small_list}) {
            SCOPED_TRACE(len);
            expect_asked(1, make, [len](avlist *list) {
                EXPECT_EQ(aaa_avpair_add(1, 0, g_value, 0, len, list), AAA_OK);
            });
            expect_asked(1, make, [len](avlist *list) {
                EXPECT_EQ(aaa_avpair_add_with_tag(1, 0, g_value, len, 0, list), AAA_OK);
            });
        }
    }
    expect_asked(1, empty_list, [](avlist *list) {
        EXPECT_EQ(aaa_avpair_add(1, 0, g_value, 0, 0xffffffff, list), AAA_ERR_NOMEM);
    });
    expect_asked(1, empty_list, [](avlist *) {
        EXPECT_EQ(aaa_avpair_add(1, 0, g_value, 0, 4, nullptr), AAA_ERR_INVALID_ARG);
    });
}

TEST(AvpairAsks, NotForAnAppendWithoutAValue) {
    expect_asked(0, small_list, [](avlist *list) {
        EXPECT_EQ(aaa_avpair_add(1, 0, nullptr, 0, 0, list), AAA_OK);
        EXPECT_EQ(aaa_avpair_add_with_tag(1, 0, nullptr, 0, 0, list), AAA_OK);
        EXPECT_EQ(aaa_avpair_add(1, 0, nullptr, 0, 4, list), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(aaa_avpair_add(1, 0, nullptr, 0, 0, nullptr), AAA_ERR_INVALID_ARG);
    });
}

TEST(AvpairAsks, OnceForALookupByType) {
    const auto find = [](ListPtr (*make)(), uint32_t type, uint32_t instance, cerrno code) {
        SCOPED_TRACE(type);
        expect_asked(1, make, [=](avlist *list) {
            void *value = nullptr;
            EXPECT_EQ(aaa_avpair_find_type(type, nullptr, &value, nullptr, instance, list), code);
        });
    };
    find(small_list, kPriv, 0, AAA_OK);
    find(small_list, kPriv, 1, AAA_ERR_AVPAIR_NOT_FOUND);
    find(small_list, kAbsent, 0, AAA_ERR_AVPAIR_NOT_FOUND);
    find(small_list, AAA_ATTR_MAX, 0, AAA_ERR_AVPAIR_NOT_FOUND);
    find(longer_list, 120, 0, AAA_OK);
    find(longer_list, kPriv, 0, AAA_OK);
    find(longer_list, kAbsent, 0, AAA_ERR_AVPAIR_NOT_FOUND);
    find(empty_list, kPriv, 0, AAA_ERR_AVPAIR_NOT_FOUND);
    expect_asked(0, small_list, [](avlist *) {
        EXPECT_EQ(aaa_avpair_find_type(1, nullptr, nullptr, nullptr, 0, nullptr), AAA_ERR_INVALID_ARG);
    });
}

TEST(AvpairAsks, OnceForAnUpdateByType) {
    const auto update = [](uint32_t type, uint32_t instance, uint32_t len) {
        expect_asked(1, small_list, [=](avlist *list) {
            EXPECT_EQ(aaa_avpair_update(type, 0, g_value, 0, len, instance, list), AAA_OK);
        });
    };
    update(kUser, 0, 4);    // in place
    update(kUser, 0, 5);    // to the end
    update(kUser, 1, 4);    // appended
    update(kAbsent, 0, 0);  // appended
    expect_asked(1, small_list, [](avlist *list) {
        EXPECT_EQ(aaa_avpair_update(kUser, 0, nullptr, 0, 0, 0, list), AAA_ERR_INVALID_ARG);
    });
    expect_asked(0, small_list, [](avlist *) {
        EXPECT_EQ(aaa_avpair_update(kUser, 0, g_value, 0, 4, 0, nullptr), AAA_ERR_INVALID_ARG);
    });
}

// A change in place and a refused change write no line.
TEST(AvpairAsks, OnceForAnUpdateAtAPositionThatMovesThePair) {
    const auto update = [](unsigned times, uint32_t len, cerrno code) {
        expect_asked(times, small_list, [=](avlist *list) {
            aaa_avpair_iterator_t it{};
            avpair_t *pair = nullptr;
            ASSERT_EQ(aaa_avpair_iterator_init(&it, list, &pair), AAA_OK);
            const void *const value = code == AAA_OK ? g_value : nullptr;
            EXPECT_EQ(aaa_avpair_update_by_iterator(&it, 0, value, 0, len, list), code);
        });
    };
    update(0, 4, AAA_OK);
    update(1, 5, AAA_OK);
    update(0, 5, AAA_ERR_INVALID_ARG);
}

TEST(AvpairAsks, NotForWalkingComparingPrintingAndDeleting) {
    const auto print = [](uint32_t, const char *) { return 0; };
    const auto go_on = [](avpair_type_t, avpair_flags_t, void *, uint32_t, uint32_t, void *) -> uint32_t {
        return 1;
    };
    expect_asked(0, small_list, [&](avlist *list) {
        aaa_avpair_iterator_t it{};
        avpair_t *pair = nullptr;
        avpair_mem_stats_t stats{};
        char text[200];
        EXPECT_EQ(aaa_avpair_iterator_init(&it, list, &pair), AAA_OK);
        EXPECT_EQ(aaa_avpair_iterator_get_next(&it, &pair), AAA_OK);
        EXPECT_EQ(aaa_avpair_find_index(1, nullptr, nullptr, nullptr, nullptr, nullptr, list), AAA_OK);
        EXPECT_EQ(aaa_avpair_get_mem_usage(list, &stats), AAA_OK);
        EXPECT_EQ(aaa_avpair_compare_lists(list, list), 1);
        EXPECT_EQ(aaa_avpair_list_is_sane(list), 1);
        EXPECT_EQ(aaa_avpair_list_for_each(list, nullptr, go_on), AAA_OK);
        EXPECT_EQ(aaa_avpair_switch(list, list), AAA_OK);
        aaa_util_print_avlist(text, sizeof text, nullptr, list);
        aaa_avpair_print_list(list, AAA_DBG_AVLIST, print);
        EXPECT_EQ(aaa_avpair_delete_by_iterator(&it, list), AAA_OK);
        EXPECT_EQ(aaa_avpair_delete_by_type_instance(kAbsent, 0, list, nullptr), AAA_ERR_AVPAIR_NOT_FOUND);
        EXPECT_EQ(aaa_avpair_delete_by_type_value(kUser, g_value, 4, list, nullptr),
                  AAA_ERR_AVPAIR_NOT_FOUND);
        EXPECT_EQ(aaa_avpair_delete_by_type_instance(kUser, 0, list, nullptr), AAA_OK);
        aaa_avpair_clear(list);
    });
}

TEST(AvpairAsks, OnceForFreeingAList) {
    expect_asked(1, empty_list, [](avlist *) {
        avlist *made = nullptr;
        EXPECT_EQ(aaa_avpair_create_list("made", &made), AAA_OK);
        aaa_avpair_free_list(made);
    });
    expect_asked(0, empty_list, [](avlist *) { aaa_avpair_free_list(nullptr); });
}

TEST(AvpairAsks, OnceForPacking) {
    for (const uint32_t room : {1u, 2u}) {
        expect_asked(1, small_list, [room](avlist *list) {
            iov_t iov[2];
            uint32_t len = room;
            EXPECT_EQ(aaa_avpair_pack_msg(list, iov, &len), room == 1 ? AAA_ERR_BUFFER_TOO_SMALL : AAA_OK);
        });
    }
    for (const uint32_t room : {0u, 200u}) {
        expect_asked(1, small_list, [room](avlist *list) {
            char buf[200];
            uint32_t len = room;
            EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list, buf, &len), room == 0 ? AAA_ERR_NOMEM : AAA_OK);
        });
    }
    expect_asked(0, small_list, [](avlist *list) {
        char buf[200];
        uint32_t len = 1;
        EXPECT_EQ(aaa_avpair_pack_msg(list, nullptr, &len), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list, buf, nullptr), AAA_ERR_INVALID_ARG);
    });
}

TEST(AvpairAsks, OnceForUnpacking) {
    for (const auto make : {empty_list, small_list}) {
        std::string message = message_of(make());
        expect_asked(1, empty_list,
                     [&](avlist *list) { EXPECT_EQ(aaa_avpair_unpack_msg(list, message.data()), AAA_OK); });
        expect_asked(1, empty_list, [&](avlist *list) {
            EXPECT_EQ(aaa_avpair_unpack_msg_checked(list, message.data(), message.size()), AAA_OK);
        });
        // A refused message writes no line.
        expect_asked(0, empty_list, [&](avlist *list) {
            EXPECT_EQ(aaa_avpair_unpack_msg_checked(list, message.data(), message.size() - 1),
                      AAA_ERR_INVALID_MSG_SIZE);
        });
    }
    expect_asked(1, empty_list, [](avlist *list) {
        EXPECT_EQ(aaa_avpair_unpack_msg_2(list, g_value, 55), AAA_ERR_INVALID_MSG_SIZE);
    });
}

// One list is packed, or freed; pairs that are appended ask no more.
TEST(AvpairAsks, OnceForListsThatAreCopiedAndMerged) {
    const ListPtr src = longer_list();
    expect_asked(1, empty_list,
                 [&](avlist *list) { EXPECT_EQ(aaa_avpair_copy_list(src.get(), nullptr, &list), AAA_OK); });
    expect_asked(1, small_list,
                 [&](avlist *list) { EXPECT_EQ(aaa_avpair_list_concat(list, src.get()), AAA_OK); });
    expect_asked(1, small_list, [&](avlist *list) {
        EXPECT_EQ(aaa_avpair_add_from_list_by_flags(src.get(), list, 1), AAA_OK);
    });
    expect_asked(2, small_list,
                 [&](avlist *list) { EXPECT_EQ(aaa_avpair_update_list_from_list(src.get(), list), AAA_OK); });
    // These update pair by pair, and each update asks by itself.
    expect_asked(21, small_list, [&](avlist *list) {
        EXPECT_EQ(aaa_avpair_list_concat_with_replace(list, src.get()), AAA_OK);
    });
    expect_asked(22, small_list, [&](avlist *list) {
        EXPECT_EQ(aaa_avpair_update_list_from_list_by_flags(src.get(), list, 1), AAA_OK);
    });
}

}  // namespace
