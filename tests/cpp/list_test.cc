// SPDX-License-Identifier: Apache-2.0
//
// Lists of the C++ interface: the range, typed values, what a spent, a moved-from and a full
// list refuse, and damaged bytes.

#include "aaa/cpp/list.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include "aaa/cpp/accessors.hpp"
#include "support/fail_alloc.hpp"
#if !defined(__clang__) || __clang_major__ >= 16
#include <ranges>  // clang 14 cannot compile the views of libstdc++ 12
#endif

namespace {

using namespace std::string_view_literals;
using aaa::errc;

// ---- what the types promise -----------------------------------------------------

static_assert(std::forward_iterator<aaa::list::iterator>);
static_assert(std::sentinel_for<aaa::list::iterator, aaa::list::iterator>);
static_assert(std::is_nothrow_move_constructible_v<aaa::list>);
static_assert(!std::is_copy_constructible_v<aaa::list> && !std::is_copy_assignable_v<aaa::list>);
static_assert(!std::is_copy_constructible_v<aaa::buffer>);
static_assert(sizeof(aaa::attribute) == sizeof(void *));
#if !defined(__clang__) || __clang_major__ >= 16
static_assert(std::ranges::forward_range<aaa::list> && std::ranges::forward_range<const aaa::list>);
static_assert(std::ranges::common_range<aaa::list>);
static_assert(!std::ranges::view<aaa::list>);            // it owns its pairs
static_assert(!std::ranges::borrowed_range<aaa::list>);  // and they go with it
#endif

// The dictionary decides which values an attribute can have.
template <aaa_attr Type, typename Value>
concept can_add = requires(aaa::list &list, const Value &value) {
    list.add<Type>(value);
};
static_assert(can_add<AAA_USERNAME_ATTR, const char *> && can_add<AAA_USERNAME_ATTR, std::string>);
static_assert(can_add<AAA_PRIV_LVL_ATTR, int> && can_add<AAA_STATUS_ATTR, aaa::verdict>);
static_assert(!can_add<AAA_PRIV_LVL_ATTR, const char *> && !can_add<AAA_USERNAME_ATTR, int>);
static_assert(!can_add<AAA_STATUS_ATTR, int> && !can_add<AAA_STATUS_ATTR, aaa::service_kind>);
static_assert(std::is_same_v<aaa::value_for<AAA_IPADDR_ATTR>, aaa::ipv4>);
static_assert(std::is_same_v<aaa::value_for<AAA_STARTTIME_ATTR>, std::uint64_t>);
static_assert(!aaa::storable<bool> && !aaa::storable<double> && !aaa::storable<char>);

aaa::list make_list(std::string_view name = "test") {
    return aaa::list::create(name).value();
}

aaa::list login() {
    aaa::list list = make_list("login");
    EXPECT_TRUE(list.add<AAA_SERVICE_TYPE_ATTR>(aaa::service_kind::login));
    EXPECT_TRUE(list.add<AAA_USERNAME_ATTR>("alice"));
    EXPECT_TRUE(list.add<AAA_IPADDR_ATTR>(aaa::ipv4{0xC0000207}, {.tag = 9}));
    EXPECT_TRUE(list.add<AAA_PRIV_LVL_ATTR>(15, {.flags = AAA_AVF_PRINT_EQUALS}));
    EXPECT_TRUE(list.add<AAA_STARTTIME_ATTR>(std::uint64_t{1} << 40));
    return list;
}

std::vector<std::uint32_t> types_of(const aaa::list &list) {
    std::vector<std::uint32_t> types;
    for (const aaa::attribute pair : list) {
        types.push_back(pair.type());
    }
    return types;
}

// ---- values -----------------------------------------------------------------------

TEST(CppList, ReadsWhatItStored) {
    const aaa::list list = login();
    EXPECT_EQ(list.name(), "login");
    EXPECT_EQ(list.size(), 5u);
    EXPECT_EQ(*list.get<AAA_SERVICE_TYPE_ATTR>(), aaa::service_kind::login);
    EXPECT_EQ(*list.get<AAA_USERNAME_ATTR>(), "alice");
    EXPECT_EQ(list.get<AAA_IPADDR_ATTR>()->number, 0xC0000207u);
    EXPECT_EQ(*list.get<AAA_STARTTIME_ATTR>(), std::uint64_t{1} << 40);
    EXPECT_EQ(list.find(AAA_IPADDR_ATTR)->tag(), 9u);
    EXPECT_EQ(list.find(AAA_PRIV_LVL_ATTR)->flags(), AAA_AVF_PRINT_EQUALS);
    EXPECT_EQ(list.find(AAA_USERNAME_ATTR)->value().size(), 6u);  // the NUL counts
    EXPECT_EQ(list.at(1)->name(), "AAA_USERNAME_ATTR");
    EXPECT_EQ(list.get<std::uint32_t>(AAA_PRIV_LVL_ATTR).value_or(0), 15u);
    EXPECT_EQ(list.get<AAA_PASSWORD_ATTR>().error(), errc::avpair_not_found);
    EXPECT_EQ(list.at(5).error(), errc::avpair_not_found);
    EXPECT_TRUE(list.contains(AAA_USERNAME_ATTR));
    EXPECT_FALSE(list.contains(AAA_ATTR_MAX));
    EXPECT_TRUE(list.is_sane());
}

TEST(CppList, StoresEveryKindOfText) {
    aaa::list list = make_list();
    const std::string longer(300, 'x');
    EXPECT_TRUE(list.add(AAA_CMD_ATTR, "show"));
    EXPECT_TRUE(list.add(AAA_CMD_ATTR, std::string("show version")));
    EXPECT_TRUE(list.add(AAA_CMD_ATTR, std::string_view("show clock").substr(0, 4)));  // no NUL follows
    EXPECT_TRUE(list.add(AAA_CMD_ATTR, std::string_view(longer)));
    EXPECT_TRUE(list.add(AAA_CMD_ATTR, ""));
    EXPECT_EQ(*list.get<AAA_CMD_ATTR>(0), "show");
    EXPECT_EQ(*list.get<AAA_CMD_ATTR>(1), "show version");
    EXPECT_EQ(*list.get<AAA_CMD_ATTR>(2), "show");
    EXPECT_EQ(*list.get<AAA_CMD_ATTR>(3), longer);
    EXPECT_EQ(*list.get<AAA_CMD_ATTR>(4), "");
    for (const aaa::attribute pair : list) {
        EXPECT_EQ(static_cast<char>(pair.value().back()), '\0');
    }
}

TEST(CppList, RefusesATextThatReadersWouldCut) {
    aaa::list list = make_list();
    EXPECT_EQ(list.add(AAA_USERNAME_ATTR, "root\0alice"sv).error(), errc::text_with_nul);
    EXPECT_EQ(list.add(AAA_USERNAME_ATTR, std::string("root\0alice", 10)).error(), errc::text_with_nul);
    EXPECT_EQ(aaa::add_username(list, "root\0alice"sv).error(), errc::text_with_nul);
    EXPECT_EQ(aaa::list::create("a\0b"sv).error(), errc::text_with_nul);
    EXPECT_EQ(list.add(AAA_USERNAME_ATTR, static_cast<const char *>(nullptr)).error(),
              errc::invalid_argument);
    EXPECT_TRUE(list.empty());
}

TEST(CppList, DoesNotCutALiteralWithANulInside) {
    aaa::list list = make_list();
    EXPECT_EQ(list.add(AAA_USERNAME_ATTR, "root\0alice").error(), errc::text_with_nul);
    EXPECT_EQ(list.add<AAA_USERNAME_ATTR>("root\0alice").error(), errc::text_with_nul);
    EXPECT_EQ(list.update(AAA_USERNAME_ATTR, "root\0alice").error(), errc::text_with_nul);
    EXPECT_EQ(list.update(list.begin(), "root\0alice").error(), errc::invalid_argument);
    EXPECT_EQ(list.erase_value(AAA_USERNAME_ATTR, "root\0alice").error(), errc::text_with_nul);
    EXPECT_EQ(aaa::list::create("a\0b").error(), errc::text_with_nul);
    EXPECT_TRUE(list.empty());
}

TEST(CppList, TakesAnArrayForWhatItIs) {
    aaa::list list = make_list();
    // A constant record: NULs fill it up, and a full one has none.
    struct record {
        char name[8];
    };
    constexpr record padded{{'b', 'o', 'b'}}, full{{'f', 'u', 'l', 'l', 'n', 'a', 'm', 'e'}};
    EXPECT_TRUE(list.add(AAA_USERNAME_ATTR, padded.name));
    EXPECT_TRUE(list.add<AAA_USERNAME_ATTR>(full.name));
    EXPECT_TRUE(list.add(AAA_USERNAME_ATTR, ""));
    // A buffer: what follows the NUL is of an earlier use.
    char room[8] = {'e', 'v', 'e', '\0', 'o', 'l', 'd', '\0'};
    char no_end[3] = {'a', 'b', 'c'};
    EXPECT_TRUE(list.add(AAA_USERNAME_ATTR, room));
    EXPECT_TRUE(list.add<AAA_USERNAME_ATTR>(no_end, {.tag = 5}));
    const char *const expected[] = {"bob", "fullname", "", "eve", "abc"};
    for (std::uint32_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(*list.get<AAA_USERNAME_ATTR>(i), expected[i]);
        EXPECT_EQ(list.find(AAA_USERNAME_ATTR, i)->value().size(), std::strlen(expected[i]) + 1);
    }
    EXPECT_EQ(list.find(AAA_USERNAME_ATTR, 4)->tag(), 5u);
    EXPECT_TRUE(list.update(AAA_USERNAME_ATTR, room, {}, 1));
    EXPECT_TRUE(list.update(list.begin(), room));
    EXPECT_TRUE(list.erase_value(AAA_USERNAME_ATTR, no_end));
    EXPECT_EQ(list.size(), 4u);
    EXPECT_EQ(aaa::list::create(room)->name(), "eve");
    EXPECT_EQ(aaa::list::create(full.name)->name(), "fullname");
}

TEST(CppList, StoresBytesOfAnyLength) {
    aaa::list list = make_list();
    const std::array<std::byte, 5> bytes{std::byte{1}, std::byte{2}, std::byte{0}, std::byte{4},
                                         std::byte{5}};
    for (std::size_t n = 0; n <= bytes.size(); ++n) {
        EXPECT_TRUE(list.add(AAA_PID_ATTR, std::span(bytes).first(n)));
        const auto stored = list.get<AAA_PID_ATTR>(static_cast<std::uint32_t>(n));
        EXPECT_TRUE(std::ranges::equal(*stored, std::span(bytes).first(n))) << n;
    }
    std::array<std::byte, 8> room{};
    EXPECT_EQ(list.copy_value(AAA_PID_ATTR, room, 3)->size(), 3u);
    EXPECT_EQ(list.copy_value(AAA_PID_ATTR, std::span(room).first(2), 3).error(), errc::buffer_too_small);
}

TEST(CppList, ReadsNumbersThatFitAndNoOthers) {
    aaa::list list = make_list();
    const auto add = [&](std::initializer_list<unsigned char> bytes) {
        EXPECT_TRUE(list.add(AAA_IFH_ATTR, std::as_bytes(std::span(bytes.begin(), bytes.size()))));
    };
    add({});
    add({0xff, 0xff, 0xff, 0xff});
    add({0, 0, 0, 0, 0, 0, 0, 0});
    add({1, 0, 0, 0, 1});
    EXPECT_EQ(*list.get<AAA_IFH_ATTR>(0), 0u);
    EXPECT_EQ(*list.get<AAA_IFH_ATTR>(1), 0xffffffffu);
    EXPECT_EQ(*list.get<AAA_IFH_ATTR>(2), 0u);  // a status is stored like this, too
    EXPECT_EQ(list.get<AAA_IFH_ATTR>(3).error(), errc::invalid_avpair);
    EXPECT_EQ(list.get<aaa::ipv4>(AAA_IFH_ATTR, 0).error(), errc::invalid_avpair);
    EXPECT_EQ(list.add<AAA_IFH_ATTR>(-1).error(), errc::invalid_argument);
    EXPECT_EQ(list.add<AAA_IFH_ATTR>(1ll << 32).error(), errc::invalid_argument);
    // A text without a NUL ends with its bytes.
    EXPECT_TRUE(list.add(AAA_REPLYMSG_ATTR, std::as_bytes(std::span("no end").first(6))));
    EXPECT_EQ(*list.get<AAA_REPLYMSG_ATTR>(), "no end");
}

// ---- the range --------------------------------------------------------------------

TEST(CppList, IsARange) {
    const aaa::list list = login();
    const std::vector<std::uint32_t> types{AAA_SERVICE_TYPE_ATTR, AAA_USERNAME_ATTR, AAA_IPADDR_ATTR,
                                           AAA_PRIV_LVL_ATTR, AAA_STARTTIME_ATTR};
    EXPECT_EQ(types_of(list), types);
    aaa::list::iterator at = list.begin();
    const aaa::list::iterator before = at++;  // a copy stays where it is
    EXPECT_EQ(before->type(), AAA_SERVICE_TYPE_ATTR);
    EXPECT_EQ(at->type(), AAA_USERNAME_ATTR);
    EXPECT_EQ(std::next(list.begin()), at);
    EXPECT_EQ(std::distance(list.begin(), list.end()), 5);
    EXPECT_NE(std::ranges::find_if(list, [](auto pair) { return pair.tag() == 9; }), list.end());
    const aaa::list empty = make_list();
    EXPECT_EQ(empty.begin(), empty.end());
    EXPECT_TRUE(empty.empty());
}

#if !defined(__clang__) || __clang_major__ >= 16
TEST(CppList, WorksWithViews) {
    const aaa::list list = login();
    auto numbers = list | std::views::filter([](auto pair) { return pair.value().size() == 4; }) |
                   std::views::transform([](auto pair) { return pair.type(); });
    EXPECT_EQ(std::ranges::distance(numbers), 3);
}
#endif

TEST(CppList, GoesOverSeveralBuffers) {
    aaa::list list = make_list();
    for (std::uint32_t i = 0; i < 200; ++i) {
        EXPECT_TRUE(list.add<AAA_IFH_ATTR>(i));
    }
    EXPECT_GT(list.usage().buf_cnt, 1u);
    std::uint32_t expected = 0;
    for (const aaa::attribute pair : list) {
        EXPECT_EQ(*pair.get<std::uint32_t>(), expected++);
    }
    EXPECT_EQ(expected, 200u);
    std::vector<iov_t> room(list.usage().buf_cnt + 1);
    EXPECT_EQ(list.gather(room)->size(), room.size());
    EXPECT_EQ(list.gather(std::span(room).first(1)).error(), errc::buffer_too_small);
    EXPECT_EQ(list.gather({}).error(), errc::buffer_too_small);
}

// ---- changes ------------------------------------------------------------------------

TEST(CppList, ChangesAndDeletes) {
    aaa::list list = login();
    EXPECT_TRUE(list.update(AAA_USERNAME_ATTR, "bob"));  // another length: the last one now
    EXPECT_EQ(types_of(list).back(), AAA_USERNAME_ATTR);
    EXPECT_EQ(*list.get<AAA_USERNAME_ATTR>(), "bob");
    EXPECT_TRUE(list.update(list.begin(), aaa::service_kind::exec));
    EXPECT_EQ(*list.get<AAA_SERVICE_TYPE_ATTR>(), aaa::service_kind::exec);
    EXPECT_TRUE(list.erase_value(AAA_PRIV_LVL_ATTR, 15));
    EXPECT_EQ(list.erase_value(AAA_PRIV_LVL_ATTR, 15).error(), errc::avpair_not_found);
    EXPECT_TRUE(list.erase(list.begin()));
    EXPECT_TRUE(list.erase(AAA_IPADDR_ATTR));
    EXPECT_EQ(list.erase(list.end()).error(), errc::invalid_argument);
    EXPECT_EQ(list.update(list.end(), 1).error(), errc::invalid_argument);
    EXPECT_EQ(types_of(list), (std::vector<std::uint32_t>{AAA_STARTTIME_ATTR, AAA_USERNAME_ATTR}));
    EXPECT_TRUE(list.is_sane());
}

TEST(CppList, DeletesByPredicate) {
    aaa::list list = login();
    EXPECT_EQ(*list.erase_if([](auto pair) { return pair.value().size() == 4; }), 3u);
    EXPECT_EQ(types_of(list), (std::vector<std::uint32_t>{AAA_USERNAME_ATTR, AAA_STARTTIME_ATTR}));
    EXPECT_EQ(list.name(), "login");
    EXPECT_EQ(*list.erase_if([](auto) { return false; }), 0u);
    EXPECT_EQ(*list.erase_if([](auto) { return true; }), 2u);
    EXPECT_TRUE(list.empty());
}

TEST(CppList, JoinsLists) {
    aaa::list list = login();
    const aaa::list copy = list.clone("copy").value();
    EXPECT_EQ(copy.name(), "copy");
    EXPECT_EQ(list.clone().value(), list);
    EXPECT_NE(copy, list);  // another name
    EXPECT_TRUE(list.append(copy));
    EXPECT_EQ(list.size(), 10u);
    EXPECT_TRUE(list.append(list));
    EXPECT_EQ(list.size(), 20u);
    EXPECT_TRUE(list.merge(copy));
    EXPECT_EQ(list.size(), 20u);
    aaa::list marked = make_list();
    EXPECT_EQ(marked.merge_flagged(copy, AAA_AVF_PRINT_EQUALS).error(), errc::invalid_argument);
    EXPECT_EQ(marked.reshape(copy).error(), errc::invalid_argument);
    EXPECT_TRUE(marked.append_flagged(copy, AAA_AVF_PRINT_EQUALS));
    EXPECT_EQ(types_of(marked), std::vector<std::uint32_t>{AAA_PRIV_LVL_ATTR});
    EXPECT_TRUE(marked.merge_flagged(copy, AAA_AVF_PRINT_EQUALS));
    EXPECT_TRUE(marked.reshape(copy));
    EXPECT_EQ(marked.size(), 1u);
}

// The functions below read the list that they change.
TEST(CppList, JoinsAListWithItselfAsWithACopy) {
    const auto several = [] {
        aaa::list list = make_list();
        for (const char *const name : {"alice", "bob", "carol", "d", "eve"}) {
            EXPECT_TRUE(list.add(AAA_USERNAME_ATTR, name, {.flags = *name == 'd' ? 0u : 0x400u}));
            EXPECT_TRUE(list.add(AAA_IFH_ATTR, 7, {.flags = 0x400u}));
            EXPECT_TRUE(list.add(AAA_CMD_ATTR, name, {.tag = 3}));
        }
        return list;
    };
    const aaa::list copy = several();
    const std::pair<const char *, std::function<aaa::result<void>(aaa::list &, const aaa::list &)>> ways[] = {
        {"append", [](aaa::list &to, const aaa::list &from) { return to.append(from); }},
        {"append flagged",
         [](aaa::list &to, const aaa::list &from) { return to.append_flagged(from, 0x400u); }},
        {"merge", [](aaa::list &to, const aaa::list &from) { return to.merge(from); }},
        {"merge flagged",
         [](aaa::list &to, const aaa::list &from) { return to.merge_flagged(from, 0x400u); }},
        {"reshape", [](aaa::list &to, const aaa::list &from) { return to.reshape(from); }},
    };
    for (const auto &[name, way] : ways) {
        aaa::list with_copy = several(), with_itself = several();
        EXPECT_TRUE(way(with_copy, copy)) << name;
        EXPECT_TRUE(way(with_itself, with_itself)) << name;
        EXPECT_EQ(with_itself, with_copy) << name;
        EXPECT_TRUE(with_itself.is_sane()) << name;
    }
}

TEST(CppList, PrintsWithoutPasswords) {
    aaa::list list = make_list("login");
    EXPECT_TRUE(aaa::set_password(list, "wonderland"));
    EXPECT_TRUE(aaa::add_username(list, "alice"));
    char room[256];
    const std::string text(list.print(room, "request"));
    EXPECT_NE(text.find("alice"), std::string::npos);
    EXPECT_EQ(text.find("wonderland"), std::string::npos);
    EXPECT_EQ(list.find(AAA_PASSWORD_ATTR)->print(room).find("wonderland"), std::string_view::npos);
    EXPECT_EQ(list.print({}), "");
}

// ---- limits ---------------------------------------------------------------------------

TEST(CppList, RefusesThePairThatWouldEndTheProcess) {
    aaa::list list = make_list();
    for (int i = 0; i < 65535; ++i) {
        if (!list.add(AAA_IFH_ATTR, i)) {
            FAIL() << i;
        }
    }
    EXPECT_EQ(list.add(AAA_IFH_ATTR, 1).error(), errc::full_list);
    EXPECT_EQ(list.update(AAA_PRIV_LVL_ATTR, 1).error(), errc::full_list);
    EXPECT_EQ(aaa::set_privilege(list, 1).error(), errc::full_list);
    EXPECT_EQ(list.append(list).error(), errc::full_list);
    EXPECT_EQ(list.pairs_left(), 0u);
    EXPECT_EQ(list.size(), 65535u);
    EXPECT_TRUE(list.erase(AAA_IFH_ATTR, 65534));
    EXPECT_TRUE(list.add(AAA_IFH_ATTR, 1));
}

TEST(CppList, AppendsALongListToItself) {
    aaa::list list = make_list();
    constexpr std::size_t half = 32767;
    for (std::size_t i = 0; i < half; ++i) {
        if (!list.add(AAA_IFH_ATTR, static_cast<std::uint32_t>(i))) {
            FAIL() << i;
        }
    }
    EXPECT_TRUE(list.append(list));
    ASSERT_EQ(list.size(), 2 * half);
    std::size_t place = 0;
    for (const aaa::attribute pair : list) {
        ASSERT_EQ(*pair.get<std::uint32_t>(), place++ % half);
    }
    EXPECT_EQ(list.append(list).error(), errc::full_list);
}

// What adds no pair needs no room.
TEST(CppList, AFullListTakesNewValues) {
    aaa::list list = make_list();
    EXPECT_TRUE(list.add(AAA_PRIV_LVL_ATTR, 1, {.flags = 0x800u}));
    EXPECT_TRUE(list.add(AAA_PASSWORD_ATTR, "wonderland"));
    while (list.add(AAA_IFH_ATTR, 1)) {
    }
    ASSERT_EQ(list.pairs_left(), 0u);
    EXPECT_TRUE(list.update(AAA_PRIV_LVL_ATTR, 2));
    EXPECT_EQ(list.update(AAA_PRIV_LVL_ATTR, 2, {}, 1).error(), errc::full_list);
    EXPECT_TRUE(list.update(AAA_PASSWORD_ATTR, "another length"));
    EXPECT_TRUE(aaa::set_privilege(list, 15));
    EXPECT_TRUE(aaa::set_password(list, "rabbit"));
    EXPECT_EQ(aaa::set_status(list, aaa::verdict::pass).error(), errc::full_list);
    aaa::list more = make_list();
    EXPECT_TRUE(more.add(AAA_PRIV_LVL_ATTR, 3));
    EXPECT_TRUE(more.add(AAA_PASSWORD_ATTR, "x"));
    EXPECT_TRUE(more.add(AAA_PRIV_LVL_ATTR, 4));
    EXPECT_TRUE(list.merge(more));
    EXPECT_TRUE(list.append_flagged(more, 0x100u));
    EXPECT_TRUE(list.append(make_list()));
    EXPECT_EQ(*list.get<AAA_PRIV_LVL_ATTR>(), 4u);
    EXPECT_EQ(*list.get<AAA_PASSWORD_ATTR>(), "x");
    // One of them is new. The second of its type would have found the first one.
    EXPECT_TRUE(more.add(AAA_CMD_ATTR, "show", {.flags = 0x100u}));
    EXPECT_TRUE(more.add(AAA_CMD_ATTR, "clock"));
    EXPECT_EQ(list.merge(more).error(), errc::full_list);
    EXPECT_EQ(list.merge_flagged(more, 0x100u).error(), errc::full_list);
    EXPECT_EQ(list.append_flagged(more, 0x100u).error(), errc::full_list);
    EXPECT_TRUE(list.merge_flagged(more, 0x200u));
    EXPECT_EQ(*list.get<AAA_PRIV_LVL_ATTR>(), 4u) << "refused whole";
    EXPECT_TRUE(list.erase(AAA_IFH_ATTR));
    EXPECT_TRUE(list.merge(more));
    EXPECT_EQ(*list.get<AAA_CMD_ATTR>(), "clock");
    EXPECT_EQ(list.size(), 65535u);
    EXPECT_TRUE(list.reshape(more));
    EXPECT_EQ(list.size(), 65535u);
    EXPECT_TRUE(list.is_sane());
}

// The count of an unpacked list is in the other byte order, and wraps like any other.
TEST(CppList, RefusesThePairThatWouldWrapAForeignCount) {
    aaa::list sent = make_list();
    for (int i = 0; i < 255; ++i) {
        EXPECT_TRUE(sent.add(AAA_IFH_ATTR, i));
    }
    aaa::list received = aaa::list::unpack(sent.pack().value()).value();
    std::size_t added = 0;
    while (received.add(AAA_IFH_ATTR, 1)) {
        ++added;
    }
    EXPECT_GE(added, 255u);
    EXPECT_TRUE(received.is_sane());
}

// Such a list can hold more pairs than one whose count begins at 0.
TEST(CppList, DoesNotRebuildAListWhoseCountWouldWrap) {
    aaa::list sent = make_list();
    for (int i = 0; i < 0xfe00; ++i) {
        if (!sent.add(AAA_IFH_ATTR, i)) {
            FAIL() << i;
        }
    }
    aaa::list received = aaa::list::unpack(sent.pack().value()).value();
    while (received.add(AAA_IFH_ATTR, 1)) {
    }
    ASSERT_GT(received.size(), 65535u);
    EXPECT_EQ(received.reshape(login()).error(), errc::full_list);
    EXPECT_EQ(received.erase_if([](auto pair) { return pair.tag() != 0; }).error(), errc::full_list);
    EXPECT_GT(received.size(), 65535u);
}

TEST(CppList, RefusesTheMarkOfDeletedPairs) {
    aaa::list list = login();
    EXPECT_EQ(list.add(AAA_ATTR_MAX, 1).error(), errc::invalid_argument);
    EXPECT_EQ(list.update(AAA_ATTR_MAX, 1).error(), errc::invalid_argument);
    EXPECT_EQ(list.erase_value(AAA_ATTR_MAX, 1).error(), errc::invalid_argument);
    EXPECT_EQ(list.size(), 5u);
}

TEST(CppList, RefusesLongNames) {
    EXPECT_TRUE(aaa::list::create(std::string(30, 'n')));
    EXPECT_EQ(aaa::list::create(std::string(31, 'n')).error(), errc::avpair_processing);
    EXPECT_EQ(aaa::list::create(std::string(99, 'n')).error(), errc::avpair_processing);
}

// ---- spent lists and empty handles ----------------------------------------------------------

// Every use of a list that can fail.
std::vector<std::pair<const char *, std::function<cerrno(aaa::list &)>>> uses() {
    static const aaa::list other = login();
    return {
        {"add", [](aaa::list &l) { return l.add(AAA_IFH_ATTR, 1).code(); }},
        {"add typed", [](aaa::list &l) { return l.add<AAA_USERNAME_ATTR>("alice").code(); }},
        {"find", [](aaa::list &l) { return l.find(AAA_USERNAME_ATTR).code(); }},
        {"at", [](aaa::list &l) { return l.at(0).code(); }},
        {"get", [](aaa::list &l) { return l.get<AAA_USERNAME_ATTR>().code(); }},
        {"update", [](aaa::list &l) { return l.update(AAA_IFH_ATTR, 1).code(); }},
        {"update here", [](aaa::list &l) { return l.update(l.begin(), 1).code(); }},
        {"erase", [](aaa::list &l) { return l.erase(AAA_IFH_ATTR).code(); }},
        {"erase here", [](aaa::list &l) { return l.erase(l.begin()).code(); }},
        {"erase value", [](aaa::list &l) { return l.erase_value(AAA_IFH_ATTR, 1).code(); }},
        {"erase if", [](aaa::list &l) { return l.erase_if([](auto) { return true; }).code(); }},
        {"append", [](aaa::list &l) { return l.append(other).code(); }},
        {"append from", [](aaa::list &l) { return login().append(l).code(); }},
        {"merge", [](aaa::list &l) { return l.merge(other).code(); }},
        {"merge flagged", [](aaa::list &l) { return l.merge_flagged(other, 1).code(); }},
        {"reshape", [](aaa::list &l) { return l.reshape(other).code(); }},
        {"clone", [](aaa::list &l) { return l.clone().code(); }},
        {"pack", [](aaa::list &l) { return l.pack().code(); }},
        {"pack into",
         [](aaa::list &l) {
             std::array<std::byte, 512> room;
             return l.pack_into(room).code();
         }},
        {"gather",
         [](aaa::list &l) {
             iov_t room[4];
             return l.gather(room).code();
         }},
        {"copy value",
         [](aaa::list &l) {
             std::array<std::byte, 8> room;
             return l.copy_value(AAA_IFH_ATTR, room).code();
         }},
        {"copy methods",
         [](aaa::list &l) {
             std::uint32_t room[4];
             return l.copy_methods(room).code();
         }},
        {"accessor", [](aaa::list &l) { return aaa::set_status(l, aaa::verdict::pass).code(); }},
        {"text accessor", [](aaa::list &l) { return aaa::set_password(l, "x").code(); }},
        {"chap", [](aaa::list &l) { return aaa::get_chap_data(l, aaa::chap_form::inbound).code(); }},
        {"rsa", [](aaa::list &l) { return aaa::get_rsa_params(l).code(); }},
        {"message", [](aaa::list &l) { return aaa::take_error_message(l).code(); }},
        {"prompt", [](aaa::list &l) { return aaa::take_prompt(l).code(); }},
    };
}

void expect_refusals(aaa::list &list, errc expected) {
    for (const auto &[name, use] : uses()) {
        EXPECT_EQ(use(list), static_cast<cerrno>(expected)) << name;
    }
    EXPECT_EQ(list.begin(), list.end());
    EXPECT_EQ(list.size(), 0u);
    EXPECT_TRUE(list.empty());
    EXPECT_FALSE(list);
    EXPECT_EQ(list.native(), nullptr);
    EXPECT_EQ(list.packed_size(), 0u);
    EXPECT_EQ(list.usage().buf_cnt, 0u);
    EXPECT_FALSE(list.is_sane());
    char room[64];
    EXPECT_EQ(list.print(room), "");
    EXPECT_NE(list, list);  // what cannot be used equals nothing
}

TEST(CppList, ASpentListRefusesUse) {
    aaa::list list = login();
    const std::size_t size = list.packed_size();
    const aaa::buffer bytes = list.pack().value();
    EXPECT_EQ(bytes.size(), size);
    EXPECT_TRUE(list.is_spent());
    EXPECT_EQ(list.name(), "login");
    expect_refusals(list, errc::spent_list);
    aaa::list moved = std::move(list);
    expect_refusals(moved, errc::spent_list);
    EXPECT_TRUE(moved.clear());  // and can be used again
    EXPECT_TRUE(moved.add<AAA_USERNAME_ATTR>("bob"));
    EXPECT_EQ(moved.size(), 1u);
}

TEST(CppList, AListIsSpentWhenTheRoomWasTooSmall) {
    aaa::list list = login();
    std::array<std::byte, 60> room;
    EXPECT_EQ(list.pack_into(room).error(), errc::no_memory);
    expect_refusals(list, errc::spent_list);
}

TEST(CppList, AListIsSpentWhenThereWasNoRoom) {
    aaa::list list = login();
    EXPECT_EQ(list.pack_into({}).error(), errc::no_memory);
    expect_refusals(list, errc::spent_list);
    EXPECT_EQ(list.pack_into({}).error(), errc::spent_list);
    EXPECT_EQ(aaa::list().pack_into({}).error(), errc::empty_handle);
}

TEST(CppList, AMovedFromListRefusesUse) {
    aaa::list list = login();
    const aaa::list taken = std::move(list);
    expect_refusals(list, errc::empty_handle);  // NOLINT: what the test is about
    EXPECT_EQ(list.clear().error(), errc::empty_handle);
    EXPECT_EQ(taken.size(), 5u);
    aaa::list never_made;
    expect_refusals(never_made, errc::empty_handle);
    list = login();
    EXPECT_EQ(list.size(), 5u);
    aaa::list &self = list;
    list = std::move(self);
    EXPECT_EQ(list.size(), 5u);
}

TEST(CppList, MixesWithTheCInterface) {
    avlist *raw = nullptr;
    ASSERT_EQ(aaa_avpair_create_list("raw", &raw), AAA_OK);
    aaa::list list = aaa::list::adopt(raw);
    EXPECT_EQ(aaa_util_avlist_priv_add(list.native(), 7), AAA_OK);
    EXPECT_EQ(*list.get<AAA_PRIV_LVL_ATTR>(), 7u);
    avlist *const released = list.release();
    EXPECT_EQ(released, raw);
    EXPECT_FALSE(list);
    aaa_avpair_free_list(released);
}

// What a program does that calls a function which packs the list itself.
TEST(CppList, HelpsFunctionsThatCallTheCInterface) {
    aaa::list list = login();
    EXPECT_TRUE(list.outcome(aaa_util_avlist_priv_add(list.native(), 7)));
    EXPECT_EQ(list.outcome(AAA_ERR_TIMEOUT).error(), errc::timeout);
    list.mark_spent();
    EXPECT_TRUE(list.is_spent());
    EXPECT_EQ(list.outcome(aaa_util_avlist_priv_add(list.native(), 7)).error(), errc::spent_list);
    EXPECT_EQ(list.why(AAA_ERR_INVALID_ARG).code, static_cast<cerrno>(errc::spent_list));
    aaa::list other = login();
    swap(list, other);
    EXPECT_TRUE(other.is_spent());
    EXPECT_EQ(list.size(), 5u);
    EXPECT_EQ(aaa::attribute(list.begin()->native()), *list.begin());
}

TEST(CppBuffer, KeepsItsBytes) {
    aaa::buffer bytes = aaa::buffer::make(8).value();
    bytes.shrink(99);
    EXPECT_EQ(bytes.size(), 8u);
    bytes.shrink(3);
    EXPECT_EQ(bytes.span().size(), 3u);
    const aaa::buffer taken = std::move(bytes);
    EXPECT_EQ(taken.size(), 3u);
    EXPECT_EQ(bytes.size(), 0u);  // NOLINT: what the test is about
    EXPECT_EQ(aaa::c_string().c_str(), nullptr);
}

// ---- bytes from others ------------------------------------------------------------------------

TEST(CppList, UnpacksWhatWasPacked) {
    aaa::list list = login();
    const aaa::list original = list.clone().value();
    const aaa::list received = aaa::list::unpack(list.pack().value()).value();
    EXPECT_EQ(received.name(), "login");
    EXPECT_TRUE(std::ranges::equal(received, original));
    EXPECT_TRUE(received.is_sane());
}

TEST(CppList, RefusesDamagedBytes) {
    aaa::list list = login();
    const aaa::buffer bytes = list.pack().value();
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
        const aaa::buffer shorter = [&] {  // a block of its own: reading further would be seen
            aaa::buffer copy = aaa::buffer::make(cut).value();
            std::copy_n(bytes.data(), cut, copy.data());
            return copy;
        }();
        EXPECT_EQ(aaa::list::unpack(shorter).error(), errc::invalid_message_size) << cut;
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (const int bit : {0, 3, 7}) {
            aaa::buffer damaged = aaa::buffer::make(bytes.size()).value();
            std::ranges::copy(bytes.span(), damaged.data());
            damaged.span()[i] ^= static_cast<std::byte>(1 << bit);
            if (const auto read = aaa::list::unpack(damaged)) {  // a value or a name may change
                EXPECT_TRUE(read->is_sane()) << i;
                EXPECT_LE(read->size(), 5u);
            }
        }
    }
    EXPECT_EQ(aaa::list::unpack({}).error(), std::errc::invalid_argument);
}

// ---- memory --------------------------------------------------------------------------------------

TEST(CppList, SurvivesWithoutMemory) {
    const std::string longer(600, 'x');
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        cerrno rc = AAA_OK;
        const auto note = [&](const auto &result) {
            rc = rc == AAA_OK ? result.code() : rc;
            return result.has_value();
        };
        fail.run([&] {
            auto list = aaa::list::create("memory");
            if (note(list) && note(list->add(AAA_CMD_ATTR, std::string_view("show"))) &&
                note(list->update(AAA_CMD_ATTR, std::string_view(longer)))) {
                auto copy = list->clone();
                if (note(copy) && note(copy->erase_if([](auto) { return true; }))) {
                    const auto bytes = list->pack();
                    if (note(bytes)) {
                        note(aaa::list::unpack(*bytes));
                    }
                }
            }
            return rc;
        });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(fail.outstanding(), 0u);
    });
}

}  // namespace
