// SPDX-License-Identifier: Apache-2.0
//
// Checks that the tests of several requests share. A Request here is a Place
// with a compose(session, missing) of its own; those of a user are made from
// UserRequest.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "support/fail_alloc.hpp"
#include "support/requests.hpp"

namespace messages {

class RequestTest : public testing::Test {
  protected:
    void SetUp() override { fake::libc::set_pid(kPid); }
};

// Authentication, authorization and accounting with everything in place; HTTP
// (24) has no service attributes and no terminal.
struct UserRequest : Place {
    using Place::Place;

    User user;
    int32_t service = 24;
    const char *methodlist = "console";
    uint32_t method = 0;
    aaa_usercred_t *usercred = &user.cred;
    void *async = nullptr;
};

// ---- Classic ---------------------------------------------------------------

// Pairs of the packed list, which is the last element.
template <typename Request>
Pairs composed(Request &request) {
    EXPECT_EQ(request.compose(0), AAA_OK);
    return request.iov.untouched() ? Pairs{} : unpack(request.iov[request.iov.count() - 1]).pairs;
}

inline void expect_untouched(const Place &place, const Record &before = {}) {
    EXPECT_TRUE(same_bytes(place.record, before));
    EXPECT_TRUE(place.iov.untouched());
    EXPECT_TRUE(place.buffer_untouched());
}

// Two elements: as much of the record as is sent, and the list in the buffer.
inline void expect_header_and_list(const Place &place, uint64_t header, const char *name,
                                   const Pairs &pairs) {
    ASSERT_EQ(place.iov.count(), 2u);
    EXPECT_TRUE(is_element(place.iov[0], place.record.data(), header));
    EXPECT_EQ(place.iov[1].base, place.buffer.data());
    const Unpacked list = unpack(place.iov[1]);
    EXPECT_EQ(list.name, name);
    EXPECT_EQ(list.total, place.iov[1].len);
    EXPECT_EQ(list.pairs, pairs);
}

// The block of an asynchronous request is between the two.
template <typename Request>
void expect_async_block(uint32_t type, const Pairs &pairs) {
    Request request;
    uint8_t block[64];
    request.async = block;
    Record expected = request.record;
    expected.host(20, type).net(32, request.option);
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_TRUE(same_bytes(request.record, expected));
    ASSERT_EQ(request.iov.count(), 3u);
    EXPECT_TRUE(is_element(request.iov[0], request.record.data(), 40));
    EXPECT_TRUE(is_element(request.iov[1], block, 64));
    EXPECT_EQ(unpack(request.iov[2]).pairs, pairs);
}

template <typename Request>
void expect_host_order_when_the_buffer_is_too_small(uint32_t type, uint32_t option) {
    Request whole;
    whole.option = option;
    ASSERT_EQ(whole.compose(0), AAA_OK);
    const auto size = static_cast<std::size_t>(whole.iov[1].len);

    Request exact(size);
    exact.option = option;
    EXPECT_EQ(exact.compose(0), AAA_OK);

    Request small(size - 1);
    small.option = option;
    Record expected = small.record;
    expected.host(20, type).host(32, option);
    EXPECT_EQ(small.compose(0), AAA_ERR_NOMEM);
    EXPECT_TRUE(same_bytes(small.record, expected));
    EXPECT_TRUE(small.iov.untouched());
}

// ---- Method lists ----------------------------------------------------------

inline constexpr cerrno kNoTerminal = 0x22570e00;
inline constexpr cerrno kOtherFailure = 0x2257AA00;
inline const std::initializer_list<std::string_view> kLineCalls = {"platform_am_i_lc",
                                                                   "find_method_for_line"};

// With its terminator.
inline std::string method_list_of(const Pairs &pairs) {
    for (const Pair &pair : pairs) {
        if (pair.type == 17) {
            return pair.value;
        }
    }
    return "none";
}

template <typename Request>
void expect_the_line_is_asked(uint32_t kind) {
    fake::give_text("find_method_for_line", "vty-list");
    Request request;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("vty-list") + '\0');
    EXPECT_EQ(fake::calls(kLineCalls),
              (std::vector<std::string>{"platform_am_i_lc()",
                                        "find_method_for_line(" + std::to_string(kind) + ")"}));
}

// ---- Session mode ----------------------------------------------------------

// A packet in the place of the record, with the word after its header.
inline void expect_session_packet(const Place &place, const Record &before, uint32_t type, uint32_t word,
                                  const char *name, const Pairs &pairs) {
    const List list = take_list(place.record);
    Record expected = request_packet(before, type, list.get());
    expected.host(72, word);
    EXPECT_TRUE(same_bytes(place.record, expected));
    EXPECT_STREQ(list->av_name, name);
    EXPECT_EQ(pairs_of(list.get()), pairs);
    EXPECT_TRUE(place.iov.untouched());
    EXPECT_TRUE(place.buffer_untouched());
}

// A block changes the packet's type only where there is a buffer, which a
// session packet does not use.
template <typename Request>
void expect_async_type_only_with_a_buffer(uint32_t with, uint32_t without) {
    const struct {
        unsigned missing;
        uint32_t type;
    } cases[] = {{0, with},
                 {kNoIov | kNoCount, with},
                 {kNoBuffer, without},
                 {kNoSize, without},
                 {kNoBuffer | kNoSize, without}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.missing);
        uint8_t block[64];
        Request request;
        request.async = block;
        ASSERT_EQ(request.compose(1, c.missing), AAA_OK);
        const List list = take_list(request.record);
        EXPECT_EQ(request.record.u32(8), c.type);
    }
}

// ---- Exhausted memory ------------------------------------------------------

// Both modes of a request that makes its list itself.
template <typename Request, typename Compose>
void expect_outputs_and_packet_alone_without_memory(Compose compose) {
    for (const uint32_t session : {0u, 1u}) {
        fake::sweep_allocations([session, compose](fake::FailAlloc &fail) {
            Request request;
            const Record before = request.record;
            const cerrno rc = fail.run([&] { return compose(request, session); });
            EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
            EXPECT_EQ(request.iov.untouched(), session != 0 || fail.fired());
            if (session != 0 && fail.fired()) {
                EXPECT_TRUE(same_bytes(request.record, before));
            } else if (session != 0) {
                const List list = take_list(request.record);
            }
        });
    }
}

}  // namespace messages
