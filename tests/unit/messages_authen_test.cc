// SPDX-License-Identifier: Apache-2.0
//
// The authentication request, as io-vector and as session packet.

#include <gtest/gtest.h>

#include <memory>

#include "aaa/messages.h"
#include "support/assertion_report.hpp"
#include "support/request_checks.hpp"
#include "support/user_requests.hpp"

namespace {

using namespace messages;

constexpr char kStarted[] = "Composing an authentication message";

using Request = AuthenRequest;

// The values of the Request above.
Pairs expected_pairs(uint32_t type = 1, const Pairs &added = {}) {
    return Pairs{u32(262, 24), u32(43, 0), text(17, "console")} + user_pairs(Service::plain) + added +
           Pairs{message_type(type)};
}

std::unique_ptr<aaa_rsa_params_t> make_rsa() {
    auto rsa = std::make_unique<aaa_rsa_params_t>();
    static uint8_t signature[] = {1, 2, 3};
    static uint8_t indata[] = {4, 5};
    static uint8_t session_id[] = {6};
    rsa->signature = signature;
    rsa->signature_len = sizeof signature;
    rsa->indata = indata;
    rsa->indata_len = sizeof indata;
    rsa->session_id = session_id;
    rsa->session_id_len = sizeof session_id;
    rsa->pubkey_type = 2;
    rsa->trustpoint_count = 1;
    std::strcpy(rsa->trustpoint_names[0], "tp");
    rsa->hiba_authorization_enable = 1;
    return rsa;
}

using MessageAuthen = RequestTest;
using MessageAuthenSession = MessageAuthen;

// ---- Classic ---------------------------------------------------------------

// An input list is asked whether it is empty as every list is.
TEST(MessageAuthenDeathTest, StopsOnAnInputListWhoseCountContradictsItsBuffers) {
    GTEST_FLAG_SET(death_test_style, "fast");
    const List list = make_list("input", {text(1100, "x")});
    const auto compose_with = [&list](uint16_t count, avpair_buffer_t *first) {
        list->av_cnt = count;
        list->avpair_first_buf = first;
        Request request;
        request.in_attrs = list.get();
        request.compose(0);
    };
    EXPECT_ASSERTION(compose_with(0, list->avpair_first_buf), aaatest::kAvpairHeader,
                     "list->avpair_first_buf == NULL");
    EXPECT_ASSERTION(compose_with(1, nullptr), aaatest::kAvpairHeader, "list->avpair_first_buf != NULL");
}

TEST_F(MessageAuthen, IsAHeaderAndAPackedList) {
    Request request;
    request.option = 0xABCD1204;
    Record expected = request.record;
    expected.host(20, 3).net(32, 0x1200);
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_TRUE(same_bytes(request.record, expected));
    expect_header_and_list(request, 40, "Authentication Request",
                           (Pairs{u32(262, 24), u32(43, 4), text(17, "console")} +
                            user_pairs(Service::plain) + Pairs{message_type(5)}));
    EXPECT_EQ(request.buffer[request.iov[1].len], '\x5A');
}

TEST_F(MessageAuthen, ALoginAddsTerminalAndAddress) {
    Request request;
    request.service = 1;
    EXPECT_EQ(composed(request), (Pairs{u32(262, 1), u32(43, 0), text(17, "console")} +
                                  user_pairs(Service::with_terminal) + Pairs{message_type(1)}));
}

TEST_F(MessageAuthen, AnAsyncBlockMakesTypeFourAndASecondElement) {
    expect_async_block<Request>(4, expected_pairs());
}

TEST_F(MessageAuthen, TracesAtLevelOne) {
    Request request;
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_EQ(own_traces({1, 2, 3, 5}),
              (Traces{{1, kStarted}, {1, "Using authentication methodlist 'console'"}}));
}

TEST_F(MessageAuthen, OptionChoosesTheMessageType) {
    const uint32_t types[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 14};
    for (uint32_t option = 0; option <= 255; ++option) {
        if (option == 13) {
            continue;
        }
        SCOPED_TRACE(option);
        Request request;
        request.option = option;
        const Pairs pairs = composed(request);
        EXPECT_EQ(pairs.back(), message_type(option <= 12 ? types[option] : 0));
        EXPECT_EQ(pairs[1], u32(43, option));
        EXPECT_EQ(request.record.u32(32), 0u);
    }
}

TEST_F(MessageAuthen, OptionThirteenSharesTypeFourteenAndBringsTheRsaParametersDeliberately) {
    const auto rsa = make_rsa();
    for (const uint32_t option : {0x0Du, 0x10Du, 0xFF0Du}) {
        SCOPED_TRACE(option);
        Request request;
        request.option = option;
        request.rsa = rsa.get();
        const Pairs pairs = composed(request);
        EXPECT_EQ(__builtin_bswap32(request.record.u32(32)), option & 0xFF00);
        EXPECT_EQ(pairs[1], u32(43, 13));
        const Pairs expected = Pairs{u32(262, 24), u32(43, 13), text(17, "console")} +
                               user_pairs(Service::plain) +
                               Pairs{message_type(14),
                                     bytes(56, "\1\2\3"),
                                     bytes(57, "\4\5"),
                                     bytes(59, "\6"),
                                     u32(65, 2),
                                     bytes(66, "tp" + std::string(126, '\0')),
                                     u32(67, 0),
                                     bytes(80, ""),
                                     bytes(85, std::string(128, '\0')),
                                     bytes(86, std::string(450, '\0')),
                                     bytes(88, std::string(128, '\0')),
                                     byte(89, 1)};
        EXPECT_EQ(pairs, expected);
    }
}

TEST_F(MessageAuthen, OptionThirteenNeedsTheRsaParameters) {
    Request request;
    request.option = 13;
    EXPECT_EQ(request.compose(0), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(request.iov.untouched());
}

TEST_F(MessageAuthen, OtherOptionsDoNotLookAtTheRsaParameters) {
    const auto rsa = make_rsa();
    Request request;
    request.option = 0x0D00;
    request.rsa = rsa.get();
    EXPECT_EQ(composed(request), expected_pairs());
}

TEST_F(MessageAuthen, PairsOfTheCallerFollowTheCredential) {
    const List more = make_list("more", {text(280, "state"), u32(8, 7, 0x30), {257, 1, 9, "x"}});
    Request request;
    request.in_attrs = more.get();
    EXPECT_EQ(composed(request),
              expected_pairs(1, {text(280, "state"), bytes(8, raw<uint32_t>(7), 0x30), {257, 1, 9, "x"}}));
    EXPECT_EQ(pairs_of(more.get()).size(), 3u);
}

TEST_F(MessageAuthen, AnEmptyListOfTheCallerAddsNothing) {
    const List empty = make_list("empty");
    Request request;
    request.in_attrs = empty.get();
    EXPECT_EQ(composed(request), expected_pairs());
}

TEST_F(MessageAuthen, CredentialSeesTheWholeOption) {
    uint8_t challenge[] = {7, 8};
    uint8_t response[16] = {};
    aaa_chap_data_t chap{};
    chap.id = 1;
    chap.data = challenge;
    chap.data_len = sizeof challenge;
    chap.response = response;
    chap.response_len = sizeof response;
    const auto has_chap = [&chap](uint32_t option) {
        Request request;
        request.service = 11;
        request.option = option;
        request.user.cred.chap_data = &chap;
        const Pairs pairs = composed(request);
        return std::any_of(pairs.begin(), pairs.end(), [](const Pair &pair) { return pair.type == 256; });
    };
    EXPECT_TRUE(has_chap(5));
    EXPECT_FALSE(has_chap(0x105));
}

TEST_F(MessageAuthen, NeedsACredential) {
    Request request;
    request.usercred = nullptr;
    EXPECT_EQ(request.compose(0), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(request.iov.untouched());
}

TEST_F(MessageAuthen, AnOverlongUserNameIsLeftOutDeliberately) {
    std::string name(254, 'n');
    Request request;
    request.user.cred.username = name.data();
    const Pairs pairs = composed(request);
    EXPECT_EQ(pairs[3], u32(39, kMethodRadius, 0x400));

    name.pop_back();
    request.user.cred.username = name.data();
    request.iov.release();
    EXPECT_EQ(composed(request)[3], text(257, name));
}

TEST_F(MessageAuthen, RefusesMissingArgumentsAndTouchesNothing) {
    for (unsigned missing = 1; missing <= kAllMissing; ++missing) {
        SCOPED_TRACE(missing);
        Request request;
        uint8_t block[64];
        request.async = block;
        fake::clear_journal();
        EXPECT_EQ(request.compose(0, missing), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(fake::traces(), (Traces{{1, kStarted}}));
        expect_untouched(request);
    }
    EXPECT_TRUE(fake::calls().empty());
}

TEST_F(MessageAuthen, ABufferThatIsTooSmallLeavesTheHeaderInHostOrder) {
    expect_host_order_when_the_buffer_is_too_small<Request>(3, 0x1200);
}

TEST_F(MessageAuthen, ExhaustedMemoryLeavesTheOutputsAlone) {
    const auto rsa = make_rsa();
    fake::sweep_allocations([&rsa](fake::FailAlloc &fail) {
        Request request;
        request.option = 0x120D;
        request.rsa = rsa.get();
        request.methodlist = nullptr;
        const cerrno rc = fail.run([&] { return request.compose(0); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(request.iov.untouched(), fail.fired());
    });
}

// ---- Session mode ----------------------------------------------------------

TEST_F(MessageAuthenSession, PacketCarriesTypeVariantAndList) {
    Request request;
    request.option = 0x1203;
    const Record before = request.record;
    ASSERT_EQ(request.compose(1), AAA_OK);
    expect_session_packet(request, before, 3, 0x1200, "Authentication Request",
                          (Pairs{u32(262, 24), u32(43, 3), text(17, "console")} + user_pairs(Service::plain) +
                           Pairs{message_type(4)}));
}

TEST_F(MessageAuthenSession, AnAsyncBlockMakesTypeFourOnlyWithABufferDeliberately) {
    expect_async_type_only_with_a_buffer<Request>(4, 3);
}

TEST_F(MessageAuthenSession, NeedsNeitherOutputsNorBuffer) {
    Request request;
    ASSERT_EQ(request.compose(1, kNoIov | kNoCount | kNoBuffer | kNoSize), AAA_OK);
    const List list = take_list(request.record);
    EXPECT_EQ(request.record.u32(8), 3u);
    EXPECT_EQ(pairs_of(list.get()), expected_pairs());
}

TEST_F(MessageAuthenSession, WithoutAPacketNothingIsAskedOrAdded) {
    Request request;
    request.methodlist = nullptr;
    EXPECT_EQ(request.compose(1, kNoRecord), AAA_ERR_INVALID_MSG_TYPE);
    EXPECT_EQ(fake::traces(), (Traces{{1, kStarted},
                                      {5, "Failed Invalid input: msg"},
                                      {2, "Composing an authentication message: Failed in data fill"}}));
    EXPECT_TRUE(fake::calls(kLineCalls).empty());
}

TEST_F(MessageAuthenSession, ALaterFailureLeavesTheListToThePacketDeliberately) {
    fake::answer("find_method_for_line", kOtherFailure);
    Request request;
    request.methodlist = nullptr;
    EXPECT_EQ(request.compose(1), kOtherFailure);
    const List list = take_list(request.record);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{u32(262, 24), u32(43, 0)}));
}

TEST_F(MessageAuthenSession, ExhaustedMemoryLeavesEitherThePacketAloneOrTheListInIt) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        Request request;
        request.record.host64(64, 0);
        const Record before = request.record;
        const cerrno rc = fail.run([&] { return request.compose(1); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        const List list = take_list(request.record);
        if (list == nullptr) {
            EXPECT_TRUE(same_bytes(request.record, before));
        }
    });
}

}  // namespace
