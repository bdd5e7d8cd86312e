// SPDX-License-Identifier: Apache-2.0
//
// Service attributes in a list: what each service adds, in which order, and
// that no password of an FTP address gets there.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "aaa/credentials.h"
#include "aaa/result_codes.h"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/messages.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using messages::bytes;
using messages::List;
using messages::make_list;
using messages::Pair;
using messages::Pairs;
using messages::pairs_of;
using messages::raw;
using messages::text;
using messages::u32;
using Traces = std::vector<fake::Trace>;

// A record whose texts can be written to and are freed with it.
class Attrs {
  public:
    Attrs() = default;
    aaa_svc_attrs_t *get() { return &record_; }
    aaa_svc_attrs_t *operator->() { return &record_; }
    // Every text has a value of its own.
    Attrs &fill() {
        set(record_.cmd, "show run");
        set(record_.app_sessid, "session 1");
        set(record_.rpc_msgid, "message 2");
        set(record_.rpc_name, "get-config");
        set(record_.commit_start_time, "10:00");
        set(record_.commit_end_time, "10:05");
        set(record_.xpath1, "/one");
        set(record_.xpath2, "/two");
        set(record_.xpath3, "/three");
        set(record_.xpath4, "/four");
        set(record_.commit_id, "1000000001");
        return *this;
    }
    void set(char *&field, const std::string &value) {
        auto &stored = texts_.emplace_back(new std::string(value));
        field = stored->data();
    }

  private:
    aaa_svc_attrs_t record_{};
    std::vector<std::unique_ptr<std::string>> texts_;
};

const Pairs kManagementPairs = {text(36, "show run"),   text(73, "session 1"), text(74, "message 2"),
                                text(75, "get-config"), text(76, "/one"),      text(77, "/two"),
                                text(78, "/three"),     text(79, "/four"),     text(72, "1000000001"),
                                text(70, "10:00"),      text(71, "10:05")};

const Traces kManagementTraces = {
    {1, "Adding app sess id session 1"},
    {1, "Adding rpc msg id message 2"},
    {1, "Adding rpc name get-config"},
    {1, "Adding xpath 1 /one"},
    {1, "Adding xpath 2 /two"},
    {1, "Adding xpath 3 /three"},
    {1, "Adding xpath 4 /four"},
    {1, "Adding commit id 1000000001"},
    {1, "Adding commit start time 10:00"},
    {1, "Adding commit end time 10:05"},
};

// ---- By service ------------------------------------------------------------

TEST(SvcAttrs, AddWhatTheirServiceSays) {
    for (int32_t service = -2; service <= 40; ++service) {
        if (service == 23) {
            continue;  // its first field is not a text
        }
        SCOPED_TRACE(service);
        fake::clear_journal();
        Attrs attrs;
        attrs.fill();
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()), AAA_OK);
        Pairs expected;
        Traces traces;
        if (service >= 14 && service <= 16) {
            expected = {text(36, "show run"), bytes(44, raw(attrs->app_sessid))};
        } else if (service == 30) {
            expected = {text(73, "message 2")};
            traces = {{1, "Adding app sess id message 2"}};
        } else if (service == 31) {
            expected = kManagementPairs;
            traces = kManagementTraces;
        }
        EXPECT_EQ(pairs_of(list.get()), expected);
        EXPECT_EQ(fake::traces(), traces);
        EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    }
}

TEST(SvcAttrs, RefuseNullArguments) {
    const List list = make_list("request");
    Attrs attrs;
    for (const int32_t service : {0, 7, 14, 15, 16, 23, 30, 31}) {
        SCOPED_TRACE(service);
        EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(service, nullptr, attrs.get()), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), nullptr), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(service, nullptr, nullptr), AAA_ERR_INVALID_ARG);
    }
    EXPECT_TRUE(pairs_of(list.get()).empty());
    EXPECT_TRUE(fake::traces().empty());
}

// ---- Commands --------------------------------------------------------------

// The second field is a number here, in spite of its type: all eight bytes
// travel, and nothing is read through it.
TEST(CommandAttrs, CarryTheTaskMapItself) {
    Attrs attrs;
    attrs.set(attrs->cmd, "show clock");
    attrs->app_sessid = reinterpret_cast<char *>(uintptr_t{0x0123456789ABCDEF});
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(14, list.get(), attrs.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{text(36, "show clock"), messages::u64(44, 0x0123456789ABCDEF)}));
}

TEST(CommandAttrs, AreNeededForACommandService) {
    for (const int32_t service : {14, 15, 16}) {
        SCOPED_TRACE(service);
        Attrs attrs;
        const List list = make_list("request");
        EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(pairs_of(list.get()).empty());
        attrs.set(attrs->cmd, "");
        EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), (Pairs{text(36, ""), messages::u64(44, 0)}));
    }
}

TEST(CommandAttrs, AreAppendedEachTime) {
    Attrs attrs;
    attrs.fill();
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(14, list.get(), attrs.get()), AAA_OK);
    ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(14, list.get(), attrs.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()).size(), 4u);
}

// ---- Masking ---------------------------------------------------------------

struct Mask {
    std::string in, out;
};

std::vector<Mask> read_masks() {
    std::ifstream file(AAA_SOURCE_DIR "/tests/vectors/mask_command.txt");
    std::vector<Mask> masks;
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind("in  ", 0) == 0) {
            masks.push_back({line.substr(4), "missing"});
        } else if (line.rfind("out ", 0) == 0 && !masks.empty()) {
            masks.back().out = line.substr(4);
        } else if (!line.empty() && line[0] != '#') {
            ADD_FAILURE() << "not understood: " << line;
        }
    }
    EXPECT_GT(masks.size(), 25u);
    return masks;
}

TEST(CommandMask, FollowsTheVectors) {
    for (const Mask &mask : read_masks()) {
        SCOPED_TRACE(mask.in);
        for (const int32_t service : {14, 15, 16, 31}) {
            Attrs attrs;
            attrs.set(attrs->cmd, mask.in);
            const List list = make_list("request");
            ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()), AAA_OK);
            EXPECT_EQ(pairs_of(list.get())[0], text(36, mask.out));
            EXPECT_EQ(std::string(attrs->cmd), mask.out) << "the caller's text is masked in place";
        }
    }
}

// Nothing of the password is left in the caller's memory either.
TEST(CommandMask, LeavesNothingAfterTheText) {
    char command[] = "copy ftp://alice:very-long-secret@h/a";
    const std::size_t size = sizeof command;
    Attrs attrs;
    attrs->cmd = command;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(14, list.get(), attrs.get()), AAA_OK);
    const std::string expected = "copy ftp://alice:*@h/a";
    EXPECT_EQ(std::string(command, size), expected + std::string(size - expected.size(), '\0'));
}

TEST(CommandMask, IsNotForOtherServices) {
    for (const int32_t service : {7, 30}) {
        SCOPED_TRACE(service);
        Attrs attrs;
        attrs.set(attrs->cmd, "copy ftp://alice:secret@h/a");
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()), AAA_OK);
        EXPECT_STREQ(attrs->cmd, "copy ftp://alice:secret@h/a");
    }
}

// ---- Key exchange ----------------------------------------------------------

TEST(IkeAttrs, ReplaceTheFirstPairOfEachType) {
    const List pairs = make_list("ike", {u32(10, 5), Pair{61, 3, 9, "vty0"}, u32(10, 6)});
    const List list = make_list("request", {u32(10, 1), u32(1, 1), u32(10, 2)});
    Attrs attrs;
    attrs->cmd = reinterpret_cast<char *>(pairs.get());
    ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(23, list.get(), attrs.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{u32(10, 6), u32(1, 1), u32(10, 2), Pair{61, 3, 9, "vty0"}}));
    EXPECT_EQ(pairs_of(pairs.get()).size(), 3u);
}

TEST(IkeAttrs, NeedNoList) {
    const List list = make_list("request", {u32(1, 1)});
    Attrs attrs;
    EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(23, list.get(), attrs.get()), AAA_OK);
    const List empty = make_list("ike");
    attrs->cmd = reinterpret_cast<char *>(empty.get());
    EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(23, list.get(), attrs.get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), Pairs{u32(1, 1)});
}

// ---- Management ------------------------------------------------------------

TEST(ManagementAttrs, LeaveOutNullAndEmptyTexts) {
    char *aaa_svc_attrs_t::*const texts[] = {&aaa_svc_attrs_t::cmd,
                                             &aaa_svc_attrs_t::app_sessid,
                                             &aaa_svc_attrs_t::rpc_msgid,
                                             &aaa_svc_attrs_t::rpc_name,
                                             &aaa_svc_attrs_t::xpath1,
                                             &aaa_svc_attrs_t::xpath2,
                                             &aaa_svc_attrs_t::xpath3,
                                             &aaa_svc_attrs_t::xpath4,
                                             &aaa_svc_attrs_t::commit_id,
                                             &aaa_svc_attrs_t::commit_start_time,
                                             &aaa_svc_attrs_t::commit_end_time};
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        for (const bool empty : {false, true}) {
            SCOPED_TRACE(i);
            SCOPED_TRACE(empty);
            fake::clear_journal();
            Attrs attrs;
            attrs.fill();
            attrs.get()->*texts[i] = nullptr;
            if (empty) {
                attrs.set(attrs.get()->*texts[i], "");
            }
            const List list = make_list("request");
            ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(31, list.get(), attrs.get()), AAA_OK);
            Pairs expected = kManagementPairs;
            Traces traces = kManagementTraces;
            expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(i));
            if (i > 0) {
                traces.erase(traces.begin() + static_cast<std::ptrdiff_t>(i) - 1);
            } else if (empty) {
                expected.insert(expected.begin(), text(36, ""));  // an empty command is a command
            }
            EXPECT_EQ(pairs_of(list.get()), expected);
            EXPECT_EQ(fake::traces(), traces);
        }
    }
}

TEST(ManagementAttrs, AddNothingOfAnEmptyRecord) {
    for (const int32_t service : {30, 31}) {
        Attrs attrs;
        const List list = make_list("request");
        EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()), AAA_OK);
        attrs.set(attrs->rpc_msgid, "");
        EXPECT_EQ(aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()), AAA_OK);
        EXPECT_TRUE(pairs_of(list.get()).empty());
    }
    EXPECT_TRUE(fake::traces().empty());
}

// ---- Exhausted memory ------------------------------------------------------

// Bytes of a pair in a buffer.
std::size_t room_of(const Pair &pair) {
    return (16 + pair.value.size() + 3) / 4 * 4;
}

// A list with one buffer in which `room` bytes are left.
List list_with_room(std::size_t room) {
    return make_list("request", {bytes(1299, std::string(464 - room, 'f'))});
}

// Every add fails in turn, because its pair is the first that needs a buffer.
TEST(SvcAttrs, StopAtExhaustedMemoryWithThePairsBeforeIt) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "allocations cannot be made to fail in this build";
    }
    for (const int32_t service : {14, 15, 16, 23, 30, 31}) {
        const List ike = make_list("ike", {u32(10, 1), u32(62, 2)});
        const auto make_attrs = [&](Attrs &attrs) {
            attrs.fill();
            if (service == 23) {
                attrs->cmd = reinterpret_cast<char *>(ike.get());
            }
        };
        Attrs attrs;
        make_attrs(attrs);
        const List whole = make_list("request");
        ASSERT_EQ(aaa_util_add_svc_attrs_in_avlist(service, whole.get(), attrs.get()), AAA_OK);
        const Pairs all = pairs_of(whole.get());
        ASSERT_FALSE(all.empty());
        std::size_t room = 0;
        for (std::size_t i = 0; i < all.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "service " << service << ", pair " << all[i].type);
            const List list = list_with_room(room);
            Pairs expected = pairs_of(list.get());
            expected.insert(expected.end(), all.begin(), all.begin() + static_cast<std::ptrdiff_t>(i));
            fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1);
            EXPECT_EQ(
                fail.run([&] { return aaa_util_add_svc_attrs_in_avlist(service, list.get(), attrs.get()); }),
                AAA_ERR_NOMEM);
            EXPECT_TRUE(fail.fired());
            EXPECT_EQ(pairs_of(list.get()), expected);
            EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
            room += room_of(all[i]);
        }
    }
}

}  // namespace
