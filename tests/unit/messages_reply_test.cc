// SPDX-License-Identifier: Apache-2.0
//
// The replies: fields of the header record, the payload, and the response packets of
// session mode.

#include <gtest/gtest.h>

#include <functional>

#include "aaa/accessors.h"
#include "aaa/messages.h"
#include "support/fail_alloc.hpp"
#include "support/messages.hpp"

namespace {

using namespace messages;

constexpr uint32_t kStatus = 0x51525354;  // what the caller gives as status
constexpr uint32_t kFirst = 0x01020304;   // what the caller left at offset 20
constexpr uint32_t kSecond = 0x0A0B0C0D;  // and at offset 24
constexpr uint32_t kKey = 0xCAFE;

char reply_data[] = "task data";
char reply_text[] = "root-system netadmin";

struct Values {
    uint32_t error = 0, roleover = 0, status = 0, conid = 0, ctype = 0, nfnhdl = 0;
};

// A call with everything in place.
struct Call {
    explicit Call(std::size_t capacity = 512) : buffer(capacity, '\x5A') {
        record.host(20, kFirst).host(24, kSecond);
    }

    Record record;
    Iov iov;
    std::vector<char> buffer;
    aaa_sess_ctx_t context{3, kKey};
    List list = make_list("reply", {u32(2, 1), text(274, "welcome"), byte(1079, 7)});
};

struct Args {
    explicit Args(Call &call)
        : msg(call.record.data()),
          iov(call.iov.out()),
          count(call.iov.count_out()),
          buffer(call.buffer.data()),
          size(static_cast<uint32_t>(call.buffer.size())),
          list(call.list.get()),
          context(&call.context) {}

    void *msg;
    iov_t **iov;
    uint32_t *count;
    char *buffer;
    uint32_t size;
    avlist *list;
    aaa_sess_ctx_t *context;
};

enum class Payload { none, list, data, text };

using Compose = std::function<cerrno(const Args &, uint32_t session)>;

struct Routine {
    const char *name;
    Compose compose;
    uint64_t header;
    std::function<void(Record &)> converted;  // what success leaves in the record
    Payload payload;
    bool needs_outputs;  // in session mode
    Values values;
};

// The three shapes that most of them have.
Compose plain(cerrno (*compose)(void *, iov_t **, uint32_t *, uint32_t, aaa_sess_ctx_t *)) {
    return [compose](const Args &a, uint32_t s) { return compose(a.msg, a.iov, a.count, s, a.context); };
}

Compose with_status(cerrno (*compose)(void *, iov_t **, uint32_t *, uint32_t, uint32_t, aaa_sess_ctx_t *)) {
    return [compose](const Args &a, uint32_t s) {
        return compose(a.msg, a.iov, a.count, kStatus, s, a.context);
    };
}

Compose with_list(cerrno (*compose)(void *, iov_t **, uint32_t *, char *, uint32_t, avlist *, uint32_t,
                                    aaa_sess_ctx_t *)) {
    return [compose](const Args &a, uint32_t s) {
        return compose(a.msg, a.iov, a.count, a.buffer, a.size, a.list, s, a.context);
    };
}

cerrno compose_connect(const Args &a, uint32_t s) {
    return aaa_util_reply_conn_compose(a.msg, kStatus, a.iov, a.count, s, a.context);
}

cerrno compose_taskmap(const Args &a, uint32_t s) {
    return aaa_util_reply_taskmap_compose(a.msg, reply_data, sizeof reply_data, a.iov, a.count, s, a.context);
}

cerrno compose_usergroup(const Args &a, uint32_t s) {
    return aaa_util_reply_usergroup_compose(a.msg, reply_text, a.iov, a.count, s, a.context);
}

void nothing(Record &) {}
void status_in_host_order(Record &r) {
    r.host(20, kStatus);
}
void status_in_network_order(Record &r) {
    r.net(20, kStatus);
}
void first_converted(Record &r) {
    r.net(20, kFirst);
}
void both_converted(Record &r) {
    r.net(20, kFirst).net(24, kSecond);
}
void second_is_status_in_network_order(Record &r) {
    r.net(20, kFirst).net(24, kStatus);
}
void connected_in_network_order(Record &r) {
    r.net(20, kStatus).net(24, 2);
}

const std::vector<Routine> &routines() {
    using enum Payload;
    static const std::vector<Routine> all = {
        {"Generic", with_list(aaa_util_reply_compose), 24, first_converted, list, true, {.status = 1}},
        {"Authen", with_list(aaa_util_reply_authen_compose), 24, first_converted, list, true, {}},
        {"Author", with_list(aaa_util_reply_author_compose), 24, first_converted, list, true, {.error = 7}},
        {"AuthenAsync",
         with_status(aaa_util_reply_authen_async_compose),
         24,
         status_in_network_order,
         none,
         false,
         {.nfnhdl = kStatus}},
        {"AuthorAsync",
         with_status(aaa_util_reply_author_async_compose),
         24,
         status_in_host_order,
         none,
         false,
         {.nfnhdl = kStatus}},
        {"Acct", plain(aaa_util_reply_acct_compose), 20, nothing, none, false, {}},
        {"Ping", plain(aaa_util_reply_ping_compose), 20, nothing, none, false, {}},
        {"Ikepost", plain(aaa_util_reply_ikepost_compose), 20, nothing, none, false, {}},
        {"Disconnect", plain(aaa_util_reply_disconn_compose), 20, nothing, none, false, {}},
        {"Callback",
         with_list(aaa_util_reply_cb_compose),
         28,
         both_converted,
         list,
         false,
         {.nfnhdl = kSecond}},
        {"Config",
         with_status(aaa_util_reply_cfg_compose),
         28,
         second_is_status_in_network_order,
         none,
         true,
         {.error = kStatus}},
        {"CurrentUser",
         with_status(aaa_util_reply_curr_auth_usr_compose),
         24,
         status_in_network_order,
         none,
         true,
         {.error = kStatus}},
        {"Connect", compose_connect, 32, connected_in_network_order, none, false, {.conid = kStatus}},
        {"Taskmap", compose_taskmap, 20, nothing, data, false, {}},
        {"Usergroup", compose_usergroup, 20, nothing, text, true, {}},
    };
    return all;
}

const Routine &named(const char *name) {
    for (const Routine &routine : routines()) {
        if (std::string_view(routine.name) == name) {
            return routine;
        }
    }
    ADD_FAILURE() << name;
    return routines().front();
}

void PrintTo(const Routine &routine, std::ostream *out) {
    *out << routine.name;
}

std::string values_trace(const Values &v) {
    std::ostringstream text;
    const auto number = [](uint32_t value) { return static_cast<int>(value); };
    text << "[RSP PKT] \nerror    : " << number(v.error) << "\nroleover : " << number(v.roleover)
         << "\nstatus      : " << number(v.status) << "\nconid    : " << number(v.conid)
         << "\nctype    : " << number(v.ctype) << "\nnfnhdl   : " << number(v.nfnhdl) << "\n";
    return text.str();
}

std::size_t packet_size(uint32_t type) {
    switch (type) {
        case 0:
        case 3:
        case 4:
        case 5:
        case 6:
        case 7:
        case 8:
        case 14:
        case 15:
            return 88;
        case 11:
        case 16:
            return 336;
        default:
            return 80;
    }
}

// Packet that an io-vector's out-pointer received.
std::string packet_bytes(const Call &call) {
    return {reinterpret_cast<const char *>(call.iov.get()), packet_size(call.context.type)};
}

class Reply : public testing::TestWithParam<Routine> {
  protected:
    void SetUp() override { fake::libc::set_pid(kPid); }
    const Routine &routine() const { return GetParam(); }
    avlist *travelling(const Call &call) const {
        return routine().payload == Payload::list ? call.list.get() : nullptr;
    }
};

TEST_P(Reply, ClassicWritesItsFieldsAndItsElements) {
    Call call;
    Record expected = call.record;
    routine().converted(expected);
    const Pairs sent = pairs_of(call.list.get());
    ASSERT_EQ(routine().compose(Args(call), 0), AAA_OK);
    EXPECT_TRUE(same_bytes(call.record, expected));
    EXPECT_EQ(call.iov.count(), routine().payload == Payload::none ? 1u : 2u);
    EXPECT_TRUE(is_element(call.iov[0], call.record.data(), routine().header));
    switch (routine().payload) {
        case Payload::none:
            break;
        case Payload::list:
            EXPECT_EQ(call.iov[1].base, call.buffer.data());
            EXPECT_EQ(unpack(call.iov[1]).pairs, sent);
            EXPECT_EQ(unpack(call.iov[1]).name, "reply");
            EXPECT_EQ(unpack(call.iov[1]).total, call.iov[1].len);
            break;
        case Payload::data:
            EXPECT_TRUE(is_element(call.iov[1], reply_data, sizeof reply_data));
            break;
        case Payload::text:
            EXPECT_TRUE(is_element(call.iov[1], reply_text, std::strlen(reply_text)));
            break;
    }
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(Reply, ClassicDoesNotLookAtTheContext) {
    Call call;
    Args args(call);
    args.context = nullptr;
    EXPECT_EQ(routine().compose(args, 0), AAA_OK);
}

TEST_P(Reply, ClassicRefusesMissingPointersAndTouchesNothing) {
    for (unsigned missing = 1; missing < 8; ++missing) {
        SCOPED_TRACE(missing);
        Call call;
        const Record before = call.record;
        Args args(call);
        args.msg = (missing & 1) != 0 ? nullptr : args.msg;
        args.iov = (missing & 2) != 0 ? nullptr : args.iov;
        args.count = (missing & 4) != 0 ? nullptr : args.count;
        EXPECT_EQ(routine().compose(args, 0), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(call.record, before));
        EXPECT_TRUE(call.iov.untouched());
        EXPECT_EQ(call.buffer, std::vector<char>(512, '\x5A'));
    }
}

TEST_P(Reply, ClassicWithoutMemoryStoresNothing) {
    fake::sweep_allocations([this](fake::FailAlloc &fail) {
        Call call;
        const Args args(call);
        const cerrno rc = fail.run([&] { return routine().compose(args, 0); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(call.iov.untouched(), fail.fired());
    });
}

TEST_P(Reply, SessionFillsAResponseWithItsValues) {
    Call call;
    const Record before = call.record;
    ASSERT_EQ(routine().compose(Args(call), 1), AAA_OK);
    ASSERT_FALSE(fake::traces_of(5).empty());
    EXPECT_EQ(fake::traces_of(5)[0], values_trace(routine().values));
    EXPECT_TRUE(same_bytes(call.record, before));
    EXPECT_TRUE(call.iov.count_untouched());
    EXPECT_EQ(call.buffer, std::vector<char>(512, '\x5A'));
}

TEST_P(Reply, SessionPacketIsThatOfTheRequestsTypeWhateverItIs) {
    for (uint32_t type = 0; type <= 26; ++type) {
        if (type == 11 || type == 16) {
            continue;  // these hold data as well, see below
        }
        SCOPED_TRACE(type);
        Call call;
        call.context.type = type;
        ASSERT_EQ(routine().compose(Args(call), 1), AAA_OK);
        const Values &v = routine().values;
        void *expected = nullptr;
        ASSERT_EQ(aaa_session_fill_response(&expected, travelling(call), &call.context, v.error, v.roleover,
                                            v.status, v.conid, v.ctype, v.nfnhdl),
                  AAA_OK);
        const std::string bytes(static_cast<const char *>(expected), packet_size(type));
        std::free(expected);
        EXPECT_EQ(packet_bytes(call), bytes);
    }
}

TEST_P(Reply, SessionPacketOfADataTypeHoldsTheDataAndOnlyThen) {
    for (const uint32_t type : {11u, 16u}) {
        SCOPED_TRACE(type);
        Call call;
        call.context.type = type;
        ASSERT_EQ(routine().compose(Args(call), 1), AAA_OK);
        aaa_sess_response_t packet;
        std::memcpy(&packet, packet_bytes(call).data(), sizeof packet);
        std::string expected;
        if (routine().payload == Payload::data) {
            expected.assign(reply_data, sizeof reply_data);
        } else if (routine().payload == Payload::text) {
            expected = reply_text;
        }
        EXPECT_EQ(packet.u.type_data.unused0, routine().values.error);
        EXPECT_EQ(packet.u.type_data.length, expected.size());
        expected.resize(256);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(packet.u.type_data.bytes), 256), expected);
    }
}

TEST_P(Reply, SessionNeedsContextAndRecord) {
    for (const bool no_context : {true, false}) {
        Call call;
        Args args(call);
        if (no_context) {
            args.context = nullptr;
        } else {
            args.msg = nullptr;
        }
        EXPECT_EQ(routine().compose(args, 1), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(call.iov.untouched());
        EXPECT_TRUE(fake::traces().empty());
    }
}

TEST_P(Reply, SessionNeedsTheOutPointersOnlyWhereTheClassicReplyInsistsOnThem) {
    for (unsigned missing = 1; missing < 4; ++missing) {
        SCOPED_TRACE(missing);
        Call call;
        Args args(call);
        args.iov = (missing & 1) != 0 ? nullptr : args.iov;
        args.count = (missing & 2) != 0 ? nullptr : args.count;
        const bool refused = routine().needs_outputs;
        EXPECT_EQ(routine().compose(args, 1), refused ? AAA_ERR_INVALID_ARG : AAA_OK);
        EXPECT_EQ(call.iov.untouched(), refused || (missing & 1) != 0);
    }
}

TEST_P(Reply, SessionAnswerToAnUnknownTypeIsNoPacketAndSuccessDeliberately) {
    Call call;
    call.context.type = 27;
    EXPECT_EQ(routine().compose(Args(call), 1), AAA_OK);
    EXPECT_EQ(call.iov.get(), nullptr);
    EXPECT_TRUE(call.iov.count_untouched());
}

TEST_P(Reply, SessionWithoutMemoryIsNoPacketAndSuccess) {
    fake::sweep_allocations([this](fake::FailAlloc &fail) {
        Call call;
        const Args args(call);
        EXPECT_EQ(fail.run([&] { return routine().compose(args, 1); }), AAA_OK);
        EXPECT_EQ(call.iov.get() == nullptr, fail.fired());
    });
}

INSTANTIATE_TEST_SUITE_P(All, Reply, testing::ValuesIn(routines()),
                         [](const auto &test) { return test.param.name; });

// ---- List-carrying replies -------------------------------------------------

class ReplyList : public testing::TestWithParam<const char *> {
  protected:
    const Routine &routine() const { return named(GetParam()); }
};

TEST_P(ReplyList, AListThatDoesNotFitIsReportedBeforeAnythingIsWrittenOrAllocated) {
    Call call(60);
    const Record before = call.record;
    EXPECT_EQ(routine().compose(Args(call), 0), AAA_ERR_NOMEM);
    EXPECT_TRUE(same_bytes(call.record, before));
    EXPECT_TRUE(call.iov.untouched());
}

TEST_P(ReplyList, AListNeedsABuffer) {
    Call call;
    Args args(call);
    args.buffer = nullptr;
    const Record before = call.record;
    EXPECT_EQ(routine().compose(args, 0), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(same_bytes(call.record, before));
    EXPECT_TRUE(call.iov.untouched());
}

TEST_P(ReplyList, AnEmptyListTravelsAsItsRecord) {
    Call call;
    call.list = make_list("empty");
    ASSERT_EQ(routine().compose(Args(call), 0), AAA_OK);
    ASSERT_EQ(call.iov.count(), 2u);
    EXPECT_EQ(call.iov[1].len, 56u);
    EXPECT_EQ(unpack(call.iov[1]).name, "empty");
}

TEST_P(ReplyList, SessionModeMayGoWithoutAList) {
    Call call;
    Args args(call);
    args.list = nullptr;
    ASSERT_EQ(routine().compose(args, 1), AAA_OK);
    uint64_t handle = 1;
    std::memcpy(&handle, packet_bytes(call).data() + 64, sizeof handle);
    EXPECT_EQ(handle, 0u);
}

INSTANTIATE_TEST_SUITE_P(All, ReplyList, testing::Values("Generic", "Authen", "Author", "Callback"),
                         [](const auto &test) { return test.param; });

class ReplyWithoutList : public testing::TestWithParam<const char *> {};

TEST_P(ReplyWithoutList, IsRefusedInClassicMode) {
    Call call;
    Args args(call);
    args.list = nullptr;
    const Record before = call.record;
    EXPECT_EQ(named(GetParam()).compose(args, 0), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(same_bytes(call.record, before));
    EXPECT_TRUE(call.iov.untouched());
}

INSTANTIATE_TEST_SUITE_P(All, ReplyWithoutList, testing::Values("Authen", "Author", "Callback"),
                         [](const auto &test) { return test.param; });

// ---- Generic reply ---------------------------------------------------------

TEST(ReplyGeneric, WithoutAListHasOneElementAndStillConverts) {
    Call call;
    Args args(call);
    args.list = nullptr;
    Record expected = call.record;
    expected.net(20, kFirst);
    ASSERT_EQ(named("Generic").compose(args, 0), AAA_OK);
    EXPECT_TRUE(same_bytes(call.record, expected));
    ASSERT_EQ(call.iov.count(), 1u);
    EXPECT_TRUE(is_element(call.iov[0], call.record.data(), 24));
}

TEST(ReplyGeneric, WithoutAListNeedsNoBuffer) {
    fake::enable_tracing(7);
    Call call;
    Args args(call);
    args.list = nullptr;
    args.buffer = nullptr;
    EXPECT_EQ(named("Generic").compose(args, 0), AAA_OK);
    EXPECT_TRUE(fake::traces_of(7).empty());
}

TEST(ReplyGeneric, DumpsThePackedListUnderFlag7) {
    fake::enable_tracing(7);
    Call call;
    call.list = make_list("empty");
    ASSERT_EQ(named("Generic").compose(Args(call), 0), AAA_OK);
    const auto lines = fake::traces_of(7);
    ASSERT_EQ(lines.size(), 1u + 56 / 9 + 1);
    EXPECT_EQ(lines[0], "Dumping buffer for Composing reply .....");
    EXPECT_EQ(lines[1], " 0 0 0 38 0 0 0 0 0");
    EXPECT_EQ(lines[7], " 0 0");
}

TEST(ReplyGeneric, WithoutAListDumpsTheWholeBufferOfTheCaller) {
    fake::enable_tracing(7);
    Call call(10);
    Args args(call);
    args.list = nullptr;
    ASSERT_EQ(named("Generic").compose(args, 0), AAA_OK);
    EXPECT_EQ(fake::traces_of(7), (std::vector<std::string>{"Dumping buffer for Composing reply .....",
                                                            " 5A 5A 5A 5A 5A 5A 5A 5A 5A", " 5A"}));
}

TEST(ReplyGeneric, DumpsNothingWhileTheFlagIsOff) {
    Call call;
    ASSERT_EQ(named("Generic").compose(Args(call), 0), AAA_OK);
    EXPECT_TRUE(fake::traces().empty());
}

TEST(ReplyGeneric, SessionStatusIsZeroWithoutAList) {
    Call call;
    Args args(call);
    args.list = nullptr;
    ASSERT_EQ(named("Generic").compose(args, 1), AAA_OK);
    EXPECT_EQ(fake::traces_of(5)[0], values_trace({}));
}

// ---- Single oddities -------------------------------------------------------

TEST(ReplyAsync, AuthorizationKeepsHostOrderWhereAuthenticationConvertsDeliberately) {
    Call author;
    Call authen;
    ASSERT_EQ(named("AuthorAsync").compose(Args(author), 0), AAA_OK);
    ASSERT_EQ(named("AuthenAsync").compose(Args(authen), 0), AAA_OK);
    EXPECT_EQ(author.record.u32(20), kStatus);
    EXPECT_EQ(__builtin_bswap32(authen.record.u32(20)), kStatus);
}

TEST(ReplyAuthor, ErrorIsTheListsConfigurationAction) {
    const struct {
        Pairs pairs;
        uint32_t error;
    } cases[] = {
        {{}, 0},
        {{u32(2, 1)}, 0},
        {{byte(1079, 0xFE)}, 0xFE},
        {{bytes(1079, "\x01\x02")}, 0x0201},
        {{u32(1079, 0x80000001)}, 0x80000001},
        {{u64(1079, 0x1111111122222222)}, 0x22222222},
        {{bytes(1079, "")}, 0},
        {{byte(1079, 3), byte(1079, 4)}, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.error);
        fake::clear_journal();
        Call call;
        call.list = make_list("reply", c.pairs);
        ASSERT_EQ(named("Author").compose(Args(call), 1), AAA_OK);
        EXPECT_EQ(fake::traces_of(5)[0], values_trace({.error = c.error}));
    }
}

TEST(ReplyUsergroup, ExcludesTheTerminatorThatTheRequestIncludesDeliberately) {
    Call reply;
    Call request;
    ASSERT_EQ(named("Usergroup").compose(Args(reply), 0), AAA_OK);
    ASSERT_EQ(aaa_util_msg_usergroup_compose(request.record.data(), reply_text, request.iov.out(),
                                             request.iov.count_out(), 0),
              AAA_OK);
    EXPECT_EQ(reply.iov[1].len + 1, request.iov[1].len);
}

TEST(ReplyUsergroup, NeedsItsTextInBothModes) {
    for (const uint32_t session : {0u, 1u}) {
        Call call;
        const Args a(call);
        EXPECT_EQ(aaa_util_reply_usergroup_compose(a.msg, nullptr, a.iov, a.count, session, a.context),
                  AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(call.iov.untouched());
    }
}

TEST(ReplyTaskmap, DataMayBeNullInBothModes) {
    Call classic;
    const Args a(classic);
    ASSERT_EQ(aaa_util_reply_taskmap_compose(a.msg, nullptr, 5, a.iov, a.count, 0, a.context), AAA_OK);
    EXPECT_TRUE(is_element(classic.iov[1], nullptr, 5));

    Call session;
    session.context.type = 11;
    const Args b(session);
    ASSERT_EQ(aaa_util_reply_taskmap_compose(b.msg, nullptr, 5, b.iov, b.count, 1, b.context), AAA_OK);
    ASSERT_NE(session.iov.get(), nullptr);
    EXPECT_EQ(packet_bytes(session).substr(72), std::string(264, '\0'));
    EXPECT_EQ(fake::traces_of(5).back(), "Failed Invalid input: data");
}

TEST(ReplyTaskmap, SessionDataOver255BytesIsCutTo254) {
    std::string data(300, 'm');
    for (const uint32_t length : {255u, 256u, 300u}) {
        SCOPED_TRACE(length);
        Call call;
        call.context.type = 11;
        const Args a(call);
        ASSERT_EQ(aaa_util_reply_taskmap_compose(a.msg, data.data(), length, a.iov, a.count, 1, a.context),
                  AAA_OK);
        const uint32_t kept = length == 255 ? 255 : 254;
        std::string expected = raw<uint32_t>(0) + raw(kept) + std::string(kept, 'm');
        expected.resize(264);
        EXPECT_EQ(packet_bytes(call).substr(72), expected);
    }
}

// A packet of another type ends long before the room for data would.
TEST(ReplyTaskmap, SessionPacketsOfOtherTypesAreTooShortForDataAndGetNone) {
    std::string data(255, 'm');
    for (uint32_t type = 0; type <= 26; ++type) {
        if (type == 11 || type == 16) {
            continue;
        }
        SCOPED_TRACE(type);
        Call call;
        call.context.type = type;
        const Args a(call);
        EXPECT_EQ(aaa_util_reply_taskmap_compose(a.msg, data.data(), 255, a.iov, a.count, 1, a.context),
                  AAA_OK);
        ASSERT_NE(call.iov.get(), nullptr);
        EXPECT_EQ(packet_bytes(call).find('m'), std::string::npos);
    }
}

TEST(ReplyCallback, SessionHandleIsTheRecordsSecondNumberInHostOrder) {
    Call call;
    call.context.type = 8;
    ASSERT_EQ(named("Callback").compose(Args(call), 1), AAA_OK);
    uint32_t handle = 0;
    std::memcpy(&handle, packet_bytes(call).data() + 80, sizeof handle);
    EXPECT_EQ(handle, kSecond);
}

TEST(ReplyConnect, AnswersWithTheProtocolVersion) {
    aaa_reply_hdr_t record{};
    Iov iov;
    ASSERT_EQ(aaa_util_reply_conn_compose(&record, 1, iov.out(), iov.count_out(), 0, nullptr), AAA_OK);
    EXPECT_EQ(__builtin_bswap32(record.status), 1u);
    EXPECT_EQ(__builtin_bswap32(record.second), 2u);
    EXPECT_EQ(record.tail28, 0u);
}

// The list is the caller's before and after, also after a failure.
TEST(ReplyOwnership, NoModeFreesTheList) {
    for (const char *name : {"Generic", "Authen", "Author", "Callback"}) {
        for (const uint32_t session : {0u, 1u}) {
            SCOPED_TRACE(name);
            Call call;
            ASSERT_EQ(named(name).compose(Args(call), session), AAA_OK);
            EXPECT_STREQ(call.list->av_name, "reply");
        }
    }
}

}  // namespace
