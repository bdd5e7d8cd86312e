// SPDX-License-Identifier: Apache-2.0
//
// The accounting requests: start, stop and update, as io-vectors and as session packets.

#include <gtest/gtest.h>

#include "aaa/messages.h"
#include "platform/cerr.h"
#include "support/request_checks.hpp"
#include "support/user_requests.hpp"

namespace {

using namespace messages;

constexpr int64_t kNow = 0x1122334455667788;
constexpr char kEntry[] = "Entry of acct compose";
const std::string kOk = cerr_strerror(AAA_OK);
constexpr char kEntryOk[] = "Entry of acct compose : entry ok";

using Request = AcctRequest;

Pairs record_pairs(uint32_t type, const char *zone = "CET") {
    return {bytes(23, raw(kNow)), u32(46, kSid), text(40, zone), message_type(type)};
}

Pairs expected_pairs(uint32_t type = 15) {
    return Pairs{u32(262, 24), text(17, "console")} + user_pairs(Service::plain, Kind::accounting) +
           record_pairs(type);
}

class MessageAcct : public RequestTest {
  protected:
    void SetUp() override {
        RequestTest::SetUp();
        fake::libc::set_time(kNow);
    }
};

using MessageAcctSession = MessageAcct;
using MessageAcctUpdate = MessageAcct;

// ---- Classic ---------------------------------------------------------------

TEST_F(MessageAcct, IsAHeaderAndAPackedList) {
    Request request;
    Record expected = request.record;
    expected.host(20, 7).net(32, 128);
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_TRUE(same_bytes(request.record, expected));
    expect_header_and_list(request, 40, "Accounting Request", expected_pairs());
}

TEST_F(MessageAcct, TheTimeStaysInHostOrderOnTheWire) {
    Request request;
    ASSERT_EQ(request.compose(0), AAA_OK);
    const std::string wire(request.buffer.data(), request.iov[1].len);
    EXPECT_NE(wire.find(raw(kNow)), std::string::npos);
}

TEST_F(MessageAcct, AnAsyncBlockMakesTypeFourteenAndASecondElement) {
    expect_async_block<Request>(14, expected_pairs());
}

TEST_F(MessageAcct, OptionChoosesTheMessageType) {
    const struct {
        uint32_t option, type;
    } cases[] = {{127, 0}, {128, 15}, {129, 16},  {130, 0},       {131, 17},
                 {132, 0}, {0, 0},    {0x180, 0}, {0xFFFFFFFF, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.option);
        Request request;
        request.option = c.option;
        EXPECT_EQ(composed(request).back(), message_type(c.type));
        EXPECT_EQ(__builtin_bswap32(request.record.u32(32)), c.option);
    }
}

TEST_F(MessageAcct, ServiceAttributesComeLast) {
    char command[] = "show version";
    Request request;
    request.service = 14;
    request.attrs.cmd = command;
    EXPECT_EQ(composed(request), (Pairs{u32(262, 14), text(17, "console")} +
                                  user_pairs(Service::with_terminal, Kind::accounting) + record_pairs(15) +
                                  Pairs{text(36, "show version"), bytes(44, std::string(8, '\0'))}));
}

TEST_F(MessageAcct, ARecordOfTheSystemHasNoUserAndNoServiceAttributes) {
    for (const bool given : {true, false}) {
        Request request;
        request.service = 13;
        request.usercred = given ? request.usercred : nullptr;
        request.svc_attrs = given ? request.svc_attrs : nullptr;
        EXPECT_EQ(composed(request), (Pairs{u32(262, 13), text(17, "console")} + record_pairs(15)));
    }
}

TEST_F(MessageAcct, TracesAtLevelThree) {
    Request request;
    request.method = 0;
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_EQ(own_traces({1, 2, 3, 5}),
              (Traces{{3, kEntry},
                      {3, kEntryOk},
                      {3, "Composing option:128 service:24 method:0 mlist:console sid:10531008 rc:" + kOk},
                      {3, "Using authentication methodlist 'console'"},
                      {3, "Adding timezone CET, " + kOk}}));
}

TEST_F(MessageAcct, AMissingListNamePrintsAsNull) {
    Request request;
    request.methodlist = nullptr;
    request.service = 13;
    request.method = 4;
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_EQ(own_traces()[2],
              (fake::Trace{3, "Composing option:128 service:13 method:4 mlist:null sid:10531008 rc:" + kOk}));
}

TEST_F(MessageAcct, WithoutATimeZoneItIsUtc) {
    constexpr cerrno kFailure = 0x21AA0000;
    fake::answer("conf_get_timezone_string", kFailure);
    Request request;
    request.service = 13;
    EXPECT_EQ(composed(request), (Pairs{u32(262, 13), text(17, "console")} + record_pairs(15, "UTC")));
    EXPECT_EQ(own_traces().back(), (fake::Trace{3, "Adding timezone UTC, code 0x21aa0000"}));
    EXPECT_EQ(fake::calls("conf_get_timezone_string"),
              (std::vector<std::string>{"conf_get_timezone_string(ptr, 16)"}));
}

TEST_F(MessageAcct, ATimeZoneHasAtMostFifteenCharacters) {
    fake::give_text("conf_get_timezone_string", "America/Argentina");
    Request request;
    request.service = 13;
    EXPECT_EQ(composed(request),
              (Pairs{u32(262, 13), text(17, "console")} + record_pairs(15, "America/Argenti")));
}

TEST_F(MessageAcct, RefusesMissingArgumentsAndTouchesNothing) {
    for (unsigned missing = 1; missing <= kAllMissing; ++missing) {
        SCOPED_TRACE(missing);
        fake::clear_journal();
        Request request;
        EXPECT_EQ(request.compose(0, missing), AAA_ERR_INVALID_ARG);
        expect_untouched(request);
        EXPECT_EQ(fake::traces(), (Traces{{3, kEntry}}));
    }
}

TEST_F(MessageAcct, AUsersRecordNeedsCredentialAndServiceAttributesInBothModes) {
    for (const uint32_t session : {0u, 1u}) {
        for (const bool no_user : {true, false}) {
            Request request;
            if (no_user) {
                request.usercred = nullptr;
            } else {
                request.svc_attrs = nullptr;
            }
            EXPECT_EQ(request.compose(session), AAA_ERR_INVALID_ARG);
            EXPECT_TRUE(same_bytes(request.record, Record()));
            EXPECT_TRUE(request.iov.untouched());
        }
    }
    const fake::Trace entry = {3, kEntry};
    EXPECT_EQ(fake::traces(), (Traces{entry, entry, entry, entry}));
}

TEST_F(MessageAcct, ABufferThatIsTooSmallLeavesTheHeaderInHostOrder) {
    expect_host_order_when_the_buffer_is_too_small<Request>(7, 128);
}

TEST_F(MessageAcct, ExhaustedMemoryLeavesOutputsAndPacketAlone) {
    expect_outputs_and_packet_alone_without_memory<Request>([](Request &request, uint32_t session) {
        request.methodlist = nullptr;
        return request.compose(session);
    });
}

// ---- Session mode ----------------------------------------------------------

TEST_F(MessageAcctSession, PacketCarriesTypeOptionAndList) {
    Request request;
    request.option = 131;
    const Record before = request.record;
    ASSERT_EQ(request.compose(1), AAA_OK);
    expect_session_packet(request, before, 7, 131, "Accounting Request", expected_pairs(17));
}

TEST_F(MessageAcctSession, TypeIsSevenWithAnAsyncBlockTooDeliberately) {
    uint8_t block[64];
    Request request;
    request.async = block;
    ASSERT_EQ(request.compose(1), AAA_OK);
    const List list = take_list(request.record);
    EXPECT_EQ(request.record.u32(8), 7u);
}

TEST_F(MessageAcctSession, SaysThatAClientCallsAndDoesNotLogTheRequest) {
    Request request;
    request.service = 13;
    ASSERT_EQ(request.compose(1), AAA_OK);
    const List list = take_list(request.record);
    EXPECT_EQ(own_traces(), (Traces{{3, kEntry},
                                    {3, kEntryOk},
                                    {3, "aipc client"},
                                    {3, "Using authentication methodlist 'console'"},
                                    {3, "Adding timezone CET, " + kOk}}));
}

TEST_F(MessageAcctSession, NeedsRecordAndBufferButNoOutputs) {
    Request without_outputs;
    ASSERT_EQ(without_outputs.compose(1, kNoIov | kNoCount), AAA_OK);
    const List list = take_list(without_outputs.record);
    for (const unsigned missing : {kNoRecord, kNoBuffer, kNoSize}) {
        SCOPED_TRACE(missing);
        Request request;
        EXPECT_EQ(request.compose(1, missing), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(request.record, Record()));
    }
}

TEST_F(MessageAcctSession, AFailureLeavesThePacketAlone) {
    fake::answer("find_method_for_line", kOtherFailure);
    Request request;
    request.methodlist = nullptr;
    EXPECT_EQ(request.compose(1), kOtherFailure);
    EXPECT_TRUE(same_bytes(request.record, Record()));
}

// ---- Update ----------------------------------------------------------------

struct Update : Place {
    using Place::Place;

    // Further bits of `missing`: 32 session id, 64 block, 128 list.
    cerrno compose(uint32_t session, unsigned missing = 0) {
        const Pointers p(*this, missing);
        return aaa_util_msg_acct_update_compose(
            p.record, (missing & 32) != 0 ? nullptr : &sid, (missing & 64) != 0 ? nullptr : block,
            (missing & 128) != 0 ? nullptr : list.get(), p.iov, p.count, p.buffer, p.size, session);
    }

    uint32_t sid = kSid;
    uint8_t block[64] = {};
    List list = make_list("Accounting state", {text(257, "alice")});
};

Pairs updated_pairs(const char *zone = "CET") {
    return Pairs{text(257, "alice")} + record_pairs(16, zone);
}

TEST_F(MessageAcctUpdate, HasFourElements) {
    Update update;
    Record expected = update.record;
    expected.host(20, 15).net(32, 129);
    ASSERT_EQ(update.compose(0), AAA_OK);
    EXPECT_TRUE(same_bytes(update.record, expected));
    ASSERT_EQ(update.iov.count(), 4u);
    EXPECT_TRUE(is_element(update.iov[0], update.record.data(), 40));
    EXPECT_TRUE(is_element(update.iov[1], update.block, 64));
    EXPECT_TRUE(is_element(update.iov[2], &update.sid, 4));
    EXPECT_EQ(update.iov[3].base, update.buffer.data());
    const Unpacked list = unpack(update.iov[3]);
    EXPECT_EQ(list.name, "Accounting state");
    EXPECT_EQ(list.total, update.iov[3].len);
    EXPECT_EQ(list.pairs, updated_pairs());
    EXPECT_EQ(update.sid, kSid);
}

TEST_F(MessageAcctUpdate, TracesAtLevelThree) {
    Update classic;
    ASSERT_EQ(classic.compose(0), AAA_OK);
    EXPECT_EQ(compose_traces(),
              (Traces{{3, "Composing update acct: sid:10531008"}, {3, "Adding timezone CET, " + kOk}}));
    fake::clear_journal();
    Update session;
    ASSERT_EQ(session.compose(1), AAA_OK);
    EXPECT_EQ(compose_traces(),
              (Traces{{3, "Composing update acct2: sid:10531008"}, {3, "Adding timezone CET, " + kOk}}));
}

TEST_F(MessageAcctUpdate, WithoutATimeZoneItIsUtc) {
    fake::answer("conf_get_timezone_string", 0x21AA0000);
    Update update;
    ASSERT_EQ(update.compose(0), AAA_OK);
    EXPECT_EQ(unpack(update.iov[3]).pairs, updated_pairs("UTC"));
}

TEST_F(MessageAcctUpdate, ASecondUpdateOfOneListReplacesOnlyTheMessageType) {
    Update update;
    ASSERT_EQ(update.compose(1), AAA_OK);
    update.sid = 7;
    ASSERT_EQ(update.compose(1), AAA_OK);
    EXPECT_EQ(pairs_of(update.list.get()),
              (updated_pairs() + Pairs{bytes(23, raw(kNow)), u32(46, 7), text(40, "CET")}));
}

TEST_F(MessageAcctUpdate, SessionPacketCarriesTheCallersList) {
    Update update;
    const Record before = update.record;
    ASSERT_EQ(update.compose(1), AAA_OK);
    Record expected = request_packet(before, 15, update.list.get());
    expected.host(72, 129);
    EXPECT_TRUE(same_bytes(update.record, expected));
    EXPECT_EQ(pairs_of(update.list.get()), updated_pairs());
    EXPECT_TRUE(update.iov.untouched());
    EXPECT_TRUE(update.buffer_untouched());
}

TEST_F(MessageAcctUpdate, RefusesMissingArgumentsAndTouchesNothing) {
    for (unsigned missing = 1; missing < 256; ++missing) {
        SCOPED_TRACE(missing);
        Update update;
        EXPECT_EQ(update.compose(0, missing), AAA_ERR_INVALID_ARG);
        expect_untouched(update);
        EXPECT_EQ(pairs_of(update.list.get()), Pairs{text(257, "alice")});
    }
    EXPECT_TRUE(fake::traces().empty());
}

TEST_F(MessageAcctUpdate, SessionModeNeedsTheSameButTheOutputs) {
    for (unsigned missing = 0; missing < 256; ++missing) {
        SCOPED_TRACE(missing);
        Update update;
        const bool enough = (missing & ~(kNoIov | kNoCount)) == 0;
        EXPECT_EQ(update.compose(1, missing), enough ? AAA_OK : AAA_ERR_INVALID_ARG);
        if (!enough) {
            EXPECT_TRUE(same_bytes(update.record, Record()));
        }
    }
}

TEST_F(MessageAcctUpdate, ABufferThatIsTooSmallLeavesTheHeaderInHostOrder) {
    Update update(60);
    Record expected = update.record;
    expected.host(20, 15).host(32, 129);
    EXPECT_EQ(update.compose(0), AAA_ERR_NOMEM);
    EXPECT_TRUE(same_bytes(update.record, expected));
    EXPECT_TRUE(update.iov.untouched());
}

TEST_F(MessageAcctUpdate, ExhaustedMemoryLeavesOutputsAndPacketAloneAndTheListToTheCaller) {
    for (const uint32_t session : {0u, 1u}) {
        fake::sweep_allocations([session](fake::FailAlloc &fail) {
            Update update;
            update.list = make_list("empty");  // its first buffer is allocated too
            const Record before = update.record;
            const cerrno rc = fail.run([&] { return update.compose(session); });
            EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
            EXPECT_EQ(update.iov.untouched(), session != 0 || fail.fired());
            if (session != 0 && fail.fired()) {
                EXPECT_TRUE(same_bytes(update.record, before));
            }
        });
    }
}

}  // namespace
