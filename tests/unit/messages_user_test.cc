// SPDX-License-Identifier: Apache-2.0
//
// Requests about a user: reference counts, task maps, user groups, IKE attributes, and the
// release of user data.

#include <gtest/gtest.h>

#include "aaa/messages.h"
#include "aaa/names.h"
#include "platform/cerr.h"
#include "support/request_checks.hpp"

namespace {

using namespace messages;

constexpr char kFillFailed[] = "Composing config message: Failed in data fill";
const std::string kOk = cerr_strerror(AAA_OK);
const std::string kInvalid = "Invalid argument passed to the function";

using MessageCurrentUser = RequestTest;
using MessageIkepost = RequestTest;
using MessageTaskmap = RequestTest;
using MessageUsergroup = RequestTest;
using MessageFreeUserdata = RequestTest;

// ---- Current user ----------------------------------------------------------

struct CurrentUser : Place {
    cerrno compose(uint32_t action, uint32_t session, unsigned missing = 0) {
        const Pointers p(*this, missing);
        return aaa_util_msg_curr_auth_usr_compose(p.record, &name, p.iov, p.count, action, session);
    }

    const char *name = "alice";
};

Traces user_traces(const char *direction, const std::string &name, const std::string &added) {
    return {{2, std::string("Send msg to ") + direction + " ref count for " + name},
            {2, "avpair list creation returned " + kOk},
            {2, "user " + name + " add to avlist returned " + added}};
}

TEST_F(MessageCurrentUser, IsAHeaderAndAPackedListWithTheName) {
    const struct {
        uint32_t action, type;
        const char *direction;
    } cases[] = {{1, 24, "increment"}, {2, 25, "decrement"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.direction);
        fake::clear_journal();
        CurrentUser request;
        Record expected = request.record;
        expected.host(20, c.type);
        ASSERT_EQ(request.compose(c.action, 0), AAA_OK);
        EXPECT_TRUE(same_bytes(request.record, expected));
        ASSERT_EQ(request.iov.count(), 2u);
        EXPECT_TRUE(is_element(request.iov[0], request.record.data(), 32));
        const Unpacked list = unpack(request.iov[1]);
        EXPECT_EQ(list.name, "Incr/Decr authen usr refcnt");
        EXPECT_EQ(list.total, request.iov[1].len);
        EXPECT_EQ(list.pairs, (Pairs{text(257, "alice")}));
        EXPECT_EQ(compose_traces(), user_traces(c.direction, "alice", kOk));
    }
}

// The block of the io-vector is the only thing that the caller frees.
TEST_F(MessageCurrentUser, ThePackedListLivesInTheBlockOfTheIoVector) {
    CurrentUser request;
    ASSERT_EQ(request.compose(1, 0), AAA_OK);
    const char *const block = reinterpret_cast<const char *>(request.iov.get());
    EXPECT_EQ(request.iov[1].base, block + 2 * sizeof(iov_t));
}

TEST_F(MessageCurrentUser, TwoMessagesHaveBuffersOfTheirOwn) {
    CurrentUser first;
    CurrentUser second;
    second.name = "bob";
    ASSERT_EQ(first.compose(1, 0), AAA_OK);
    ASSERT_EQ(second.compose(2, 0), AAA_OK);
    EXPECT_EQ(unpack(first.iov[1]).pairs, (Pairs{text(257, "alice")}));
    EXPECT_EQ(unpack(second.iov[1]).pairs, (Pairs{text(257, "bob")}));
}

TEST_F(MessageCurrentUser, AnyOtherActionLeavesTheTypeUnset) {
    for (const uint32_t action : {0u, 3u, 24u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(action);
        fake::clear_journal();
        CurrentUser classic;
        ASSERT_EQ(classic.compose(action, 0), AAA_OK);
        EXPECT_TRUE(same_bytes(classic.record, Record()));
        EXPECT_EQ(unpack(classic.iov[1]).pairs, (Pairs{text(257, "alice")}));
        EXPECT_EQ(compose_traces().size(), 2u);

        CurrentUser session;
        ASSERT_EQ(session.compose(action, 1), AAA_OK);
        const List list = take_list(session.record);
        EXPECT_EQ(session.record.u32(8), 0u);
    }
}

TEST_F(MessageCurrentUser, IncrementIsDescribedAsUnknownAndDecrementAsIncrementDeliberately) {
    CurrentUser increment;
    CurrentUser decrement;
    ASSERT_EQ(increment.compose(1, 0), AAA_OK);
    ASSERT_EQ(decrement.compose(2, 0), AAA_OK);
    EXPECT_STREQ(aaa_util_msg_type_desc(increment.record.u32(20)), "<unknown>");
    EXPECT_STREQ(aaa_util_msg_type_desc(decrement.record.u32(20)), "increment refcount");
}

TEST_F(MessageCurrentUser, ANullNameIsLeftOut) {
    CurrentUser request;
    request.name = nullptr;
    ASSERT_EQ(request.compose(2, 0), AAA_OK);
    EXPECT_EQ(unpack(request.iov[1]).pairs, Pairs{});
    EXPECT_EQ(compose_traces(), user_traces("decrement", "(null)", kInvalid));
}

TEST_F(MessageCurrentUser, ANameOf254CharactersIsLeftOutAndOneOf253IsNot) {
    const std::string long_name(254, 'n');
    CurrentUser request;
    request.name = long_name.c_str();
    ASSERT_EQ(request.compose(1, 0), AAA_OK);
    EXPECT_EQ(unpack(request.iov[1]).pairs, Pairs{});

    const std::string name(253, 'n');
    CurrentUser fitting;
    fitting.name = name.c_str();
    ASSERT_EQ(fitting.compose(1, 0), AAA_OK);
    EXPECT_EQ(unpack(fitting.iov[1]).pairs, (Pairs{text(257, name)}));
}

TEST_F(MessageCurrentUser, TakesTheAddressOfACredentialsName) {
    User user;
    Place place;
    ASSERT_EQ(aaa_util_msg_curr_auth_usr_compose(place.record.data(), &user.cred.username, place.iov.out(),
                                                 place.iov.count_out(), 1, 0),
              AAA_OK);
    EXPECT_EQ(unpack(place.iov[1]).pairs, (Pairs{text(257, "alice")}));
}

TEST_F(MessageCurrentUser, RefusesMissingArgumentsWithALog) {
    for (unsigned missing = 1; missing < 8; ++missing) {
        SCOPED_TRACE(missing);
        fake::clear_journal();
        CurrentUser request;
        EXPECT_EQ(request.compose(1, 0, missing), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(request.record, Record()));
        EXPECT_TRUE(request.iov.untouched());
        EXPECT_EQ(fake::traces(), (Traces{{2, "Current auth user msg compose:Invalid args"}}));
    }
}

TEST_F(MessageCurrentUser, NeedsTheNamesAddressInBothModes) {
    for (const uint32_t session : {0u, 1u}) {
        fake::clear_journal();
        Place place;
        EXPECT_EQ(aaa_util_msg_curr_auth_usr_compose(place.record.data(), nullptr, place.iov.out(),
                                                     place.iov.count_out(), 1, session),
                  AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(place.record, Record()));
        EXPECT_EQ(fake::traces(), (Traces{{2, "Current auth user msg compose:Invalid args"}}));
    }
}

TEST_F(MessageCurrentUser, SessionPacketCarriesTypeAndListWithoutOutputs) {
    CurrentUser request;
    const Record before = request.record;
    ASSERT_EQ(request.compose(2, 1, kNoIov | kNoCount), AAA_OK);
    expect_session_packet(request, before, 25, 0, "Incr/Decr authen usr refcnt", (Pairs{text(257, "alice")}));
}

TEST_F(MessageCurrentUser, SessionModeWithoutAPacketLogsAndFails) {
    CurrentUser request;
    EXPECT_EQ(request.compose(1, 1, kNoRecord), AAA_ERR_INVALID_MSG_TYPE);
    Traces expected = user_traces("increment", "alice", kOk);
    expected.push_back({2, kFillFailed});
    EXPECT_EQ(compose_traces(), expected);
}

TEST_F(MessageCurrentUser, ExhaustedMemoryLeavesOutputsAndPacketAlone) {
    expect_outputs_and_packet_alone_without_memory<CurrentUser>(
        [](CurrentUser &request, uint32_t session) { return request.compose(1, session); });
}

TEST_F(MessageCurrentUser, SaysWhichAllocationFailed) {
    const auto traces_with = [](unsigned k) {
        fake::clear_journal();
        CurrentUser request;
        fake::FailAlloc fail(k);
        const cerrno rc = request.compose(1, 0);
        fail.disarm();
        EXPECT_EQ(rc, AAA_ERR_NOMEM);
        return compose_traces();
    };
    const fake::Trace sending = {2, "Send msg to increment ref count for alice"};
    EXPECT_EQ(traces_with(1), (Traces{sending, {2, "avpair list creation returned Not enough memory"}}));
    EXPECT_EQ(traces_with(2), (Traces{sending,
                                      {2, "avpair list creation returned " + kOk},
                                      {2, "user alice add to avlist returned Not enough memory"}}));
    EXPECT_EQ(traces_with(3).back(), (fake::Trace{2, "Memory insufficient to alloc iov"}));
}

// ---- Ikepost ---------------------------------------------------------------

struct Ikepost : Place {
    using Place::Place;

    // A further bit of `missing`: 32 list.
    cerrno compose(uint32_t session, unsigned missing = 0) {
        const Pointers p(*this, missing);
        return aaa_util_msg_ikepost_compose(p.record, (missing & 32) != 0 ? nullptr : list.get(), p.iov,
                                            p.count, p.buffer, p.size, session);
    }

    List list = make_list("ike", {text(280, "state"), u32(8, 5)});
};

const Pairs kIkePairs = {text(280, "state"), u32(8, 5)};

TEST_F(MessageIkepost, IsAHeaderAndAPackedCopyUnderTheListsName) {
    Ikepost request;
    Record expected = request.record;
    expected.host(20, 10);
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_TRUE(same_bytes(request.record, expected));
    expect_header_and_list(request, 32, "ike", kIkePairs);
    EXPECT_TRUE(fake::traces().empty());
}

TEST_F(MessageIkepost, TheCallersListIsNotChanged) {
    Ikepost request;
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_EQ(pairs_of(request.list.get()), kIkePairs);
}

TEST_F(MessageIkepost, AnEmptyListTravelsAsItsRecord) {
    Ikepost request;
    request.list = make_list("none");
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_EQ(request.iov[1].len, 56u);
}

TEST_F(MessageIkepost, RefusesMissingArgumentsAndTouchesNothing) {
    for (unsigned missing = 1; missing < 64; ++missing) {
        SCOPED_TRACE(missing);
        Ikepost request;
        EXPECT_EQ(request.compose(0, missing), AAA_ERR_INVALID_ARG);
        expect_untouched(request);
    }
}

TEST_F(MessageIkepost, SessionPacketCarriesACopy) {
    Ikepost request;
    const Record before = request.record;
    ASSERT_EQ(request.compose(1, kNoIov | kNoCount), AAA_OK);
    EXPECT_NE(request.record.list(), request.list.get());
    expect_session_packet(request, before, 10, 0, "ike", kIkePairs);
}

TEST_F(MessageIkepost, SessionModeWithoutABufferGoesOutAsAConnectWithItsListDeliberately) {
    for (const unsigned missing : {kNoBuffer, kNoSize}) {
        Ikepost request;
        const Record before = request.record;
        ASSERT_EQ(request.compose(1, missing), AAA_OK);
        const List copy = take_list(request.record);
        Record expected = request_packet(before, 0, copy.get());
        expected.zero(72, 36);
        EXPECT_TRUE(same_bytes(request.record, expected));
        EXPECT_EQ(pairs_of(copy.get()), kIkePairs);
    }
}

TEST_F(MessageIkepost, SessionModeWithoutAListGoesOutAsAConnectWithoutOne) {
    Ikepost request;
    const Record before = request.record;
    ASSERT_EQ(request.compose(1, 32), AAA_OK);
    Record expected = request_packet(before, 0, nullptr);
    expected.zero(72, 36);
    EXPECT_TRUE(same_bytes(request.record, expected));
}

TEST_F(MessageIkepost, SessionModeWithoutAPacketLogsAndFails) {
    Ikepost request;
    EXPECT_EQ(request.compose(1, kNoRecord), AAA_ERR_INVALID_MSG_TYPE);
    EXPECT_EQ(fake::traces(), (Traces{{5, "Failed Invalid input: msg"}, {2, kFillFailed}}));
}

TEST_F(MessageIkepost, ABufferThatIsTooSmallIsReported) {
    Ikepost request(60);
    EXPECT_EQ(request.compose(0), AAA_ERR_NOMEM);
    EXPECT_TRUE(request.iov.untouched());
    EXPECT_EQ(pairs_of(request.list.get()), kIkePairs);
}

TEST_F(MessageIkepost, ExhaustedMemoryLeavesOutputsAndPacketAlone) {
    expect_outputs_and_packet_alone_without_memory<Ikepost>(
        [](Ikepost &request, uint32_t session) { return request.compose(session); });
}

// ---- Task map and user group -----------------------------------------------

using ComposeText = cerrno (*)(void *, const char *, iov_t **, uint32_t *, uint32_t);

struct TextRoutine {
    const char *name;
    ComposeText compose;
    uint32_t type;
};

class MessageText : public testing::TestWithParam<TextRoutine> {
  protected:
    void SetUp() override { fake::libc::set_pid(kPid); }
    // A further bit of `missing`: 8 text.
    static cerrno compose(Place &place, const char *text, uint32_t session, unsigned missing = 0) {
        const Pointers p(place, missing & 7);
        return GetParam().compose(p.record, (missing & 8) != 0 ? nullptr : text, p.iov, p.count, session);
    }
};

TEST_P(MessageText, IsAHeaderAndTheTextWithItsTerminator) {
    for (const char *text : {"root-system", ""}) {
        Place place;
        Record expected = place.record;
        expected.host(20, GetParam().type);
        ASSERT_EQ(compose(place, text, 0), AAA_OK);
        EXPECT_TRUE(same_bytes(place.record, expected));
        ASSERT_EQ(place.iov.count(), 2u);
        EXPECT_TRUE(is_element(place.iov[0], place.record.data(), 32));
        EXPECT_TRUE(is_element(place.iov[1], text, std::strlen(text) + 1));
    }
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(MessageText, RefusesMissingArgumentsAndTouchesNothing) {
    for (unsigned missing = 1; missing < 16; ++missing) {
        SCOPED_TRACE(missing);
        Place place;
        EXPECT_EQ(compose(place, "text", 0, missing), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(place.record, Record()));
        EXPECT_TRUE(place.iov.untouched());
    }
}

TEST_P(MessageText, ExhaustedMemoryStoresNothing) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        Place place;
        const cerrno rc = fail.run([&] { return compose(place, "text", 0); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(place.iov.untouched(), fail.fired());
    });
}

TEST_P(MessageText, SessionPacketHoldsTheTextWithoutItsTerminator) {
    const struct {
        std::size_t length;
        uint32_t stored;
    } cases[] = {{0, 0}, {11, 11}, {254, 254}, {255, 255}, {256, 254}, {1000, 254}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.length);
        const std::string text(c.length, 't');
        Place place;
        Record expected = request_packet(place.record, GetParam().type, nullptr);
        expected.host(72, 0).host(76, c.stored).text(80, text.substr(0, c.stored));
        ASSERT_EQ(compose(place, text.c_str(), 1), AAA_OK);
        EXPECT_TRUE(same_bytes(place.record, expected));
        EXPECT_TRUE(place.iov.untouched());
    }
}

INSTANTIATE_TEST_SUITE_P(All, MessageText,
                         testing::Values(TextRoutine{"Taskmap", aaa_util_msg_taskmap_compose, 11},
                                         TextRoutine{"Usergroup", aaa_util_msg_usergroup_compose, 16}),
                         [](const auto &test) { return test.param.name; });

// Calls of either routine in session mode, without one of the arguments.
struct Incomplete {
    const char *text;
    bool iov, count;
};
constexpr Incomplete kIncomplete[] = {{nullptr, true, true}, {"text", false, true}, {"text", true, false}};

TEST_F(MessageTaskmap, SessionModeWithMissingArgumentsGoesOutAsAConnectDeliberately) {
    for (const Incomplete &c : kIncomplete) {
        Place place;
        Record expected = request_packet(place.record, 0, nullptr);
        expected.zero(72, 36);
        EXPECT_EQ(aaa_util_msg_taskmap_compose(place.record.data(), c.text, c.iov ? place.iov.out() : nullptr,
                                               c.count ? place.iov.count_out() : nullptr, 1),
                  AAA_OK);
        EXPECT_TRUE(same_bytes(place.record, expected));
    }
}

TEST_F(MessageTaskmap, SessionModeWithoutAPacketLogsAndFails) {
    Place place;
    EXPECT_EQ(aaa_util_msg_taskmap_compose(nullptr, "map", place.iov.out(), place.iov.count_out(), 1),
              AAA_ERR_INVALID_MSG_TYPE);
    EXPECT_EQ(fake::traces(), (Traces{{5, "Failed Invalid input: msg"}, {2, kFillFailed}}));
}

TEST_F(MessageUsergroup, SessionModeLogsTheRequestFirst) {
    Place place;
    ASSERT_EQ(aaa_util_msg_usergroup_compose(place.record.data(), "list groups", place.iov.out(),
                                             place.iov.count_out(), 1),
              AAA_OK);
    ASSERT_EQ(fake::traces().size(), 2u);
    EXPECT_EQ(fake::traces()[0], (fake::Trace{2, "Request : list groups"}));
}

TEST_F(MessageUsergroup, SessionModeWithMissingArgumentsFillsAConnectButFailsDeliberately) {
    for (const Incomplete &c : kIncomplete) {
        Place place;
        Record expected = request_packet(place.record, 0, nullptr);
        expected.zero(72, 36);
        EXPECT_EQ(
            aaa_util_msg_usergroup_compose(place.record.data(), c.text, c.iov ? place.iov.out() : nullptr,
                                           c.count ? place.iov.count_out() : nullptr, 1),
            AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(place.record, expected));
    }
    EXPECT_EQ(compose_traces()[0], (fake::Trace{2, "Request : (null)"}));
}

TEST_F(MessageUsergroup, SessionModeWithoutAPacketOnlyLogsTheFillAndReportsTheArgument) {
    Place place;
    EXPECT_EQ(aaa_util_msg_usergroup_compose(nullptr, "groups", place.iov.out(), place.iov.count_out(), 1),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces(),
              (Traces{{2, "Request : groups"}, {5, "Failed Invalid input: msg"}, {2, kFillFailed}}));
}

// ---- Free user data --------------------------------------------------------

constexpr uint32_t kParam = 0x01020304;

struct FreeUserdata : Place {
    explicit FreeUserdata(std::size_t capacity = 1024) : Place(capacity) { record.host(32, kParam); }

    cerrno compose(uint32_t session, unsigned missing = 0) {
        const Pointers p(*this, missing);
        return aaa_util_msg_free_userdata_compose(p.record, usercred, p.iov, p.count, p.buffer, p.size,
                                                  session);
    }

    User user;
    aaa_usercred_t *usercred = &user.cred;
};

const Pairs kUserdata = {message_type(23), text(257, "alice"), text(20, "/dev/vty0"),        text(61, "vty0"),
                         u32(62, 0x22),    u32(22, 0x11),      u32(39, kMethodRadius, 0x400)};

TEST_F(MessageFreeUserdata, IsAHeaderAndAPackedList) {
    FreeUserdata request;
    Record expected = request.record;
    expected.host(20, 12).net(32, kParam);
    ASSERT_EQ(request.compose(0), AAA_OK);
    EXPECT_TRUE(same_bytes(request.record, expected));
    expect_header_and_list(request, 40, "Free user data request", kUserdata);
    EXPECT_EQ(own_traces({1, 2, 3, 5}), (Traces{{1, "Using TTY /dev/vty0"}}));
}

TEST_F(MessageFreeUserdata, IsNotARequestThatLooksAtTheKindOfLine) {
    FreeUserdata request;
    composed(request);
    EXPECT_EQ(fake::count("aaa_util_check_linetype"), 0u);
}

TEST_F(MessageFreeUserdata, AUserWithoutANameIsLeftOut) {
    FreeUserdata request;
    request.user.cred.username = nullptr;
    const Pairs pairs = composed(request);
    EXPECT_EQ(pairs, Pairs(kUserdata.begin(), kUserdata.begin() + 1) +
                         Pairs(kUserdata.begin() + 2, kUserdata.end()));
}

TEST_F(MessageFreeUserdata, AnOverlongNameIsAFailureUnlikeInTheOtherRequests) {
    std::string name(254, 'n');
    for (const uint32_t session : {0u, 1u}) {
        FreeUserdata request;
        const Record before = request.record;
        request.user.cred.username = name.data();
        EXPECT_EQ(request.compose(session), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(request.record, before));
        EXPECT_TRUE(request.iov.untouched());
    }
    EXPECT_TRUE(own_traces().empty());
}

TEST_F(MessageFreeUserdata, WithoutATerminalNameItIsThatOfStandardInput) {
    fake::libc::set_ttyname("/dev/pts/7");
    FreeUserdata request;
    request.user.cred.ttyname = nullptr;
    EXPECT_EQ(composed(request)[2], text(20, "/dev/pts/7"));
    EXPECT_EQ(fake::calls("ttyname_r"), (std::vector<std::string>{"ttyname_r(0, 32)"}));
    EXPECT_EQ(own_traces(), (Traces{{1, "Using TTY /dev/pts/7"}}));
}

TEST_F(MessageFreeUserdata, ACredentialsTerminalNameAsksNoOne) {
    fake::libc::set_ttyname("/dev/pts/7");
    FreeUserdata request;
    composed(request);
    EXPECT_EQ(fake::count("ttyname_r"), 0u);
}

TEST_F(MessageFreeUserdata, WithoutAnyTerminalTheNameIsLeftOut) {
    const Pairs expected =
        Pairs(kUserdata.begin(), kUserdata.begin() + 2) + Pairs(kUserdata.begin() + 3, kUserdata.end());
    fake::libc::set_ttyname("", 25);
    FreeUserdata none;
    none.user.cred.ttyname = nullptr;
    EXPECT_EQ(composed(none), expected);

    FreeUserdata empty;
    empty.user.tty[0] = '\0';
    EXPECT_EQ(composed(empty), expected);
    EXPECT_EQ(own_traces(), (Traces{{1, "Using TTY <null>"}, {1, "Using TTY <null>"}}));
}

TEST_F(MessageFreeUserdata, ATerminalNameIsCutTo31Characters) {
    std::string name(40, 't');
    FreeUserdata request;
    request.user.cred.ttyname = name.data();
    EXPECT_EQ(composed(request)[2], text(20, std::string(31, 't')));
}

TEST_F(MessageFreeUserdata, AnInterfaceHandleOfZeroIsSentToo) {
    FreeUserdata request;
    request.user.cred.ifh = 0;
    EXPECT_EQ(composed(request)[5], u32(22, 0));
}

TEST_F(MessageFreeUserdata, RefusesMissingArgumentsAndTouchesNothing) {
    for (unsigned missing = 1; missing <= kAllMissing; ++missing) {
        SCOPED_TRACE(missing);
        FreeUserdata request;
        const Record before = request.record;
        EXPECT_EQ(request.compose(0, missing), AAA_ERR_INVALID_ARG);
        expect_untouched(request, before);
    }
}

TEST_F(MessageFreeUserdata, NeedsACredentialInBothModes) {
    for (const uint32_t session : {0u, 1u}) {
        FreeUserdata request;
        const Record before = request.record;
        request.usercred = nullptr;
        EXPECT_EQ(request.compose(session), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(request.record, before));
        EXPECT_TRUE(request.iov.untouched());
    }
}

TEST_F(MessageFreeUserdata, TheTypeIsWrittenOnlyWhenTheListIsPackedDeliberately) {
    FreeUserdata small(60);
    const Record before = small.record;
    EXPECT_EQ(small.compose(0), AAA_ERR_NOMEM);
    EXPECT_TRUE(same_bytes(small.record, before));
    EXPECT_TRUE(small.iov.untouched());
}

TEST_F(MessageFreeUserdata, ExhaustedMemoryLeavesOutputsAndPacketAlone) {
    expect_outputs_and_packet_alone_without_memory<FreeUserdata>(
        [](FreeUserdata &request, uint32_t session) { return request.compose(session); });
}

TEST_F(MessageFreeUserdata, SessionPacketCarriesTypeAndListWithoutOutputsOrBuffer) {
    FreeUserdata request;
    const Record before = request.record;
    ASSERT_EQ(request.compose(1, kNoIov | kNoCount | kNoBuffer | kNoSize), AAA_OK);
    expect_session_packet(request, before, 12, 0, "Free user data request", kUserdata);
}

TEST_F(MessageFreeUserdata, SessionModeWithoutAPacketLogsAndFails) {
    FreeUserdata request;
    EXPECT_EQ(request.compose(1, kNoRecord), AAA_ERR_INVALID_MSG_TYPE);
    EXPECT_EQ(own_traces({1, 2, 5}), (Traces{{1, "Using TTY /dev/vty0"},
                                             {5, "Failed Invalid input: msg"},
                                             {2, "Composing an author message: Failed in data fill"}}));
}

}  // namespace
