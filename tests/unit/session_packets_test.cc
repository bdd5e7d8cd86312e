// SPDX-License-Identifier: Apache-2.0
//
// Session packets: each field of header and payload, fills, reads, and responses.

#include "aaa/session_packets.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <map>

#include "support/fail_alloc.hpp"
#include "support/messages.hpp"

namespace {

using namespace messages;

constexpr uint32_t kFlag = 5;
constexpr uint32_t kA = 0xA1A2A3A4;
constexpr uint32_t kB = 0xB1B2B3B4;

std::string header_trace(uint32_t type, uint32_t key) {
    std::ostringstream text;
    text << "[fill_header] == \nType   : " << static_cast<int>(type)
         << "\nOption : 0\nKey    : " << static_cast<int>(key) << "\n";
    return text.str();
}

avlist *some_list() {
    static avlist list;
    return &list;
}

class SessionPackets : public testing::Test {
  protected:
    void SetUp() override { fake::libc::set_pid(kPid); }
};

using SessionRequest = SessionPackets;
using SessionResponse = SessionPackets;
using SessionConnectionId = SessionPackets;
using SessionTypeData = SessionPackets;

// ---- Requests --------------------------------------------------------------

// The bytes of each type after the header, written out from the table.
void expect_request_payload(Record &expected, uint32_t type) {
    const std::vector<uint32_t> with_a = {8, 9, 10, 11, 12, 24, 25, 26};
    const std::vector<uint32_t> with_b = {3, 4, 5, 6, 7, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23};
    const auto among = [type](const std::vector<uint32_t> &types) {
        return std::find(types.begin(), types.end(), type) != types.end();
    };
    if (type == 0) {
        expected.zero(72, 36);
    } else if (type == 1) {
        expected.zero(72, 4);
    } else if (type == 2) {
        expected.zero(72, 8);
    } else if (among(with_a)) {
        expected.host(72, kA);
    } else if (among(with_b)) {
        expected.host(72, kB);
    } else {
        FAIL() << "type " << type << " is in no row";
    }
}

TEST_F(SessionRequest, EveryTypeWritesItsHeaderAndItsPayloadAndNothingElse) {
    for (uint32_t type = 0; type <= 26; ++type) {
        SCOPED_TRACE(type);
        Record packet;
        Record expected = request_packet(packet, type, some_list());
        expect_request_payload(expected, type);
        EXPECT_EQ(aaa_session_fill_request(packet.data(), some_list(), type, kA, kB), AAA_OK);
        EXPECT_TRUE(same_bytes(packet, expected));
    }
}

TEST_F(SessionRequest, FieldsOfTheRecordTypesHaveTheOffsetsOfTheBytes) {
    aaa_sess_request_t packet{};
    ASSERT_EQ(aaa_session_fill_request(&packet, some_list(), 8, kA, kB), AAA_OK);
    EXPECT_EQ(packet.hdr.marker, 16u);
    EXPECT_EQ(packet.hdr.key, 0u);
    EXPECT_EQ(packet.hdr.type, 8u);
    EXPECT_EQ(packet.hdr.conn_id, 0u);
    EXPECT_EQ(packet.hdr.pid, static_cast<uint32_t>(kPid));
    EXPECT_EQ(packet.hdr.tid, 4242u);
    EXPECT_EQ(packet.hdr.magic, 0x414E);
    EXPECT_EQ(packet.hdr.version, 2u);
    EXPECT_EQ(packet.hdr.list, reinterpret_cast<uintptr_t>(some_list()));
    EXPECT_EQ(packet.u.word, kA);
}

TEST_F(SessionRequest, TypesAbove26GetHeaderAndListButNoPayloadAndSucceed) {
    for (const uint32_t type : {27u, 28u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        SCOPED_TRACE(type);
        fake::clear_journal();
        Record packet;
        const Record expected = request_packet(packet, type, some_list());
        EXPECT_EQ(aaa_session_fill_request(packet.data(), some_list(), type, kA, kB), AAA_OK);
        EXPECT_TRUE(same_bytes(packet, expected));
        EXPECT_EQ(fake::traces(),
                  (Traces{{kFlag, header_trace(type, 0)}, {kFlag, "Failed Invalid input: type"}}));
    }
}

TEST_F(SessionRequest, WithoutListTheHandleIsZero) {
    Record packet;
    EXPECT_EQ(aaa_session_fill_request(packet.data(), nullptr, 9, 0, 0), AAA_OK);
    EXPECT_EQ(packet.u64(64), 0u);
}

TEST_F(SessionRequest, AKnownTypeTracesOnlyItsHeader) {
    Record packet;
    EXPECT_EQ(aaa_session_fill_request(packet.data(), nullptr, 26, 0, 0), AAA_OK);
    EXPECT_EQ(fake::traces(), (Traces{{kFlag, header_trace(26, 0)}}));
}

TEST_F(SessionRequest, NullPacketIsRefused) {
    EXPECT_EQ(aaa_session_fill_request(nullptr, some_list(), 3, kA, kB), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces(), (Traces{{kFlag, "Failed Invalid input: msg"}}));
}

TEST_F(SessionRequest, NeedsNoAlignment) {
    Record storage;
    const Record before = storage;
    ASSERT_EQ(aaa_session_fill_request(storage.at(3), some_list(), 3, kA, kB), AAA_OK);
    Record aligned;
    aligned.write(0, static_cast<const char *>(before.data()) + 3, sizeof(aaa_sess_request_t));
    Record expected = request_packet(aligned, 3, some_list());
    expected.host(72, kB);
    EXPECT_EQ(std::memcmp(storage.at(3), expected.data(), sizeof(aaa_sess_request_t)), 0);
}

TEST_F(SessionRequest, NamesProcessAndThreadOfTheMoment) {
    fake::libc::set_pid(99);
    fake::answer("qm_gettid", 0xFFFFFFFE);
    Record packet;
    ASSERT_EQ(aaa_session_fill_request(packet.data(), nullptr, 3, 0, 0), AAA_OK);
    EXPECT_EQ(packet.u32(24), 99u);
    EXPECT_EQ(packet.u32(32), 0xFFFFFFFEu);
}

// ---- Responses -------------------------------------------------------------

struct Values {
    uint32_t error, roleover, status, conid, ctype, nfnhdl;
};
constexpr Values kFailure = {0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6};
constexpr Values kNoFailure = {0, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6};

struct Response {
    cerrno rc = 1;
    void *packet = nullptr;
    ~Response() { std::free(packet); }
    uint32_t word(std::size_t offset) const {
        uint32_t value;
        std::memcpy(&value, static_cast<const char *>(packet) + offset, sizeof value);
        return value;
    }
};

cerrno fill(void **out, uint32_t type, const Values &v, avlist *list = some_list()) {
    aaa_sess_ctx_t context{type, 0xCAFE};
    return aaa_session_fill_response(out, list, &context, v.error, v.roleover, v.status, v.conid, v.ctype,
                                     v.nfnhdl);
}

std::size_t size_of(uint32_t type) {
    static const std::map<uint32_t, std::size_t> sizes = {{0, 88},  {3, 88},   {4, 88},  {5, 88},
                                                          {6, 88},  {7, 88},   {8, 88},  {14, 88},
                                                          {15, 88}, {11, 336}, {16, 336}};
    const auto found = sizes.find(type);
    return found != sizes.end() ? found->second : 80;
}

// The words that follow the header, row by row of the table.
std::vector<uint32_t> payload(uint32_t type, const Values &v) {
    const bool failed = v.error != 0;
    if (type == 0) {
        return {v.conid, 2, 0, v.error};
    }
    if (type >= 3 && type <= 7) {
        return {failed ? v.status : 0, v.error, failed ? v.roleover : 0};
    }
    if (type == 8) {
        return {v.error, v.ctype, v.nfnhdl};
    }
    if (type == 14 || type == 15) {
        return {failed ? 1u : 0u, v.error, failed ? v.roleover : 0};
    }
    return {v.error, 0};
}

TEST_F(SessionResponse, EveryTypeHasItsSizeItsHeaderAndItsPayload) {
    for (const Values &values : {kFailure, kNoFailure}) {
        for (uint32_t type = 0; type <= 26; ++type) {
            SCOPED_TRACE(testing::Message() << "type " << type << " error " << values.error);
            Response made;
            made.rc = fill(&made.packet, type, values);
            ASSERT_EQ(made.rc, AAA_OK);
            ASSERT_NE(made.packet, nullptr);
            std::vector<uint8_t> expected(size_of(type), 0);
            const auto put = [&](std::size_t offset, auto value) {
                std::memcpy(expected.data() + offset, &value, sizeof value);
            };
            put(0, uint32_t{16});
            put(4, uint32_t{0xCAFE});
            put(8, type);
            put(24, uint32_t{kPid});
            put(32, uint32_t{4242});
            put(36, uint16_t{0x414E});
            put(52, uint32_t{2});
            put(64, some_list());
            const auto words = payload(type, values);
            for (std::size_t i = 0; i < words.size(); ++i) {
                put(72 + 4 * i, words[i]);
            }
            EXPECT_EQ(std::memcmp(made.packet, expected.data(), expected.size()), 0);
        }
    }
}

TEST_F(SessionResponse, BlocksAreNoLargerThanTheirTypeNeeds) {
    for (uint32_t type = 0; type <= 26; ++type) {
        SCOPED_TRACE(type);
        Response made;
        made.rc = fill(&made.packet, type, kFailure);
        const std::size_t usable = malloc_usable_size(made.packet);
        EXPECT_GE(usable, size_of(type));
        EXPECT_LT(usable, size_of(type) + 24);
    }
}

TEST_F(SessionResponse, AnswerToAConnectSaysVersionTwoAtOffset76) {
    Response made;
    made.rc = fill(&made.packet, 0, kFailure);
    EXPECT_EQ(made.word(76), 2u);
}

TEST_F(SessionResponse, TracesItsValuesBeforeTheHeader) {
    Response made;
    aaa_sess_ctx_t context{9, 7};
    made.rc = aaa_session_fill_response(&made.packet, nullptr, &context, 1, 2, 3, 4, 5, 0xFFFFFFFF);
    EXPECT_EQ(fake::traces(),
              (Traces{{kFlag,
                       "[RSP PKT] \nerror    : 1\nroleover : 2\nstatus      : 3\nconid    : 4\nctype    : 5\n"
                       "nfnhdl   : -1\n"},
                      {kFlag, header_trace(9, 7)}}));
}

TEST_F(SessionResponse, NullContextIsRefusedAndTheOutputUntouched) {
    void *packet = some_list();
    EXPECT_EQ(aaa_session_fill_response(&packet, nullptr, nullptr, 0, 0, 0, 0, 0, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(packet, some_list());
    EXPECT_EQ(fake::traces(), (Traces{{kFlag, "Invalid input :session context"}}));
}

TEST_F(SessionResponse, TypesAbove26GiveANullPacketAndSuccess) {
    for (const uint32_t type : {27u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(type);
        fake::clear_journal();
        void *packet = some_list();
        EXPECT_EQ(fill(&packet, type, kFailure), AAA_OK);
        EXPECT_EQ(packet, nullptr);
        const auto traces = fake::traces_of(kFlag);
        ASSERT_EQ(traces.size(), 2u);
        EXPECT_EQ(traces[1], "Failed Invalid input: type");
    }
}

TEST_F(SessionResponse, WithNowhereToStoreItThePacketIsReleased) {
    EXPECT_EQ(fill(nullptr, 11, kFailure), AAA_OK);
    EXPECT_EQ(fill(nullptr, 27, kFailure), AAA_OK);
}

TEST_F(SessionResponse, ExhaustedMemoryGivesACodeAndANullPacket) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        void *packet = some_list();
        const cerrno rc = fail.run([&] { return fill(&packet, 11, kFailure); });
        if (fail.fired()) {
            EXPECT_EQ(rc, AAA_ERR_NOMEM);
            EXPECT_EQ(packet, nullptr);
        } else {
            EXPECT_EQ(rc, AAA_OK);
            EXPECT_NE(packet, nullptr);
        }
        std::free(packet);
    });
}

TEST_F(SessionResponse, ExhaustedMemoryWithoutAnOutputIsStillACode) {
    fake::FailAlloc fail(1);
    const cerrno rc = fill(nullptr, 3, kFailure);
    fail.disarm();
    EXPECT_EQ(rc, AAA_ERR_NOMEM);
}

// ---- Connection id ---------------------------------------------------------

TEST_F(SessionConnectionId, IsStoredAtOffset20AndNowhereElse) {
    Record packet;
    ASSERT_EQ(aaa_session_fill_request(packet.data(), nullptr, 7, 0, 0), AAA_OK);
    fake::clear_journal();
    Record expected = packet;
    expected.host(20, 0x80000001);
    EXPECT_EQ(aaa_session_mngr_set_connection_id(packet.data(), 0x80000001), AAA_OK);
    EXPECT_TRUE(same_bytes(packet, expected));
    EXPECT_EQ(fake::traces(),
              (Traces{{kFlag,
                       "[aaa_session_mngr_set_connection_id] == \nType   : 7\nconn id : -2147483647\n"
                       "pid     : 1717\n"}}));
}

TEST_F(SessionConnectionId, NullPacketIsRefused) {
    EXPECT_EQ(aaa_session_mngr_set_connection_id(nullptr, 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces(), (Traces{{kFlag, "Failed Invalid input"}}));
}

// ---- Type data -------------------------------------------------------------

using FillFn = cerrno (*)(void *, const void *, uint32_t, uint32_t);
using GetFn = cerrno (*)(const void *, void *, uint32_t *, uint32_t);
constexpr FillFn kFills[] = {aaa_sess_fill_msg_req_type_data, aaa_sess_fill_msg_res_type_data};
constexpr GetFn kGets[] = {aaa_sess_get_msg_req_type_data, aaa_sess_get_msg_res_type_data};

std::string some_data(std::size_t size) {
    std::string data;
    for (std::size_t i = 0; i < size; ++i) {
        data += static_cast<char>('a' + i % 23);
    }
    return data;
}

TEST_F(SessionTypeData, StoresUpTo255BytesWholeAndCutsMoreTo254Deliberately) {
    const std::string data = some_data(400);
    const std::map<uint32_t, uint32_t> stored = {{0, 0},     {1, 1},     {253, 253}, {254, 254},
                                                 {255, 255}, {256, 254}, {400, 254}, {0xFFFFFFFF, 254}};
    for (const FillFn fill_data : kFills) {
        for (const uint32_t type : {11u, 16u}) {
            for (const auto &[length, kept] : stored) {
                SCOPED_TRACE(length);
                Record payload;
                Record expected;
                expected.host(4, kept).text(8, data.substr(0, kept));
                EXPECT_EQ(fill_data(payload.data(), data.data(), length, type), AAA_OK);
                EXPECT_TRUE(same_bytes(payload, expected));
            }
        }
    }
    EXPECT_TRUE(fake::traces().empty());
}

TEST_F(SessionTypeData, RequestOfAnotherTypeCopiesNothingInSilence) {
    for (uint32_t type = 0; type <= 30; ++type) {
        if (type == 11 || type == 16) {
            continue;
        }
        SCOPED_TRACE(type);
        Record payload;
        EXPECT_EQ(aaa_sess_fill_msg_req_type_data(payload.data(), "data", 4, type), AAA_OK);
        EXPECT_TRUE(same_bytes(payload, Record()));
    }
    EXPECT_TRUE(fake::traces().empty());
}

TEST_F(SessionTypeData, ResponseOfAnotherTypeIsRefused) {
    for (uint32_t type = 0; type <= 30; ++type) {
        if (type == 11 || type == 16) {
            continue;
        }
        SCOPED_TRACE(type);
        fake::clear_journal();
        Record payload;
        EXPECT_EQ(aaa_sess_fill_msg_res_type_data(payload.data(), "data", 4, type), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(payload, Record()));
        EXPECT_EQ(fake::traces(), (Traces{{kFlag, "Failed Invalid input: type"}}));
    }
}

TEST_F(SessionTypeData, FillOfARequestSaysTheSameForEveryNullAndBeforeLookingAtTheType) {
    Record payload;
    EXPECT_EQ(aaa_sess_fill_msg_req_type_data(nullptr, "data", 4, 11), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_sess_fill_msg_req_type_data(payload.data(), nullptr, 4, 16), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_sess_fill_msg_req_type_data(nullptr, nullptr, 4, 3), AAA_ERR_INVALID_ARG);
    const fake::Trace refused = {kFlag, "Failed Invalid input"};
    EXPECT_EQ(fake::traces(), (Traces{refused, refused, refused}));
    EXPECT_TRUE(same_bytes(payload, Record()));
}

TEST_F(SessionTypeData, FillOfAResponseNamesTheFirstArgumentThatIsWrong) {
    Record payload;
    EXPECT_EQ(aaa_sess_fill_msg_res_type_data(nullptr, nullptr, 4, 3), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_sess_fill_msg_res_type_data(payload.data(), nullptr, 4, 3), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_sess_fill_msg_res_type_data(payload.data(), "data", 4, 3), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(fake::traces(), (Traces{{kFlag, "Failed Invalid input: msg"},
                                      {kFlag, "Failed Invalid input: data"},
                                      {kFlag, "Failed Invalid input: type"}}));
    EXPECT_TRUE(same_bytes(payload, Record()));
}

TEST_F(SessionTypeData, ReadsBackWhatWasStored) {
    for (const GetFn get : kGets) {
        for (const uint32_t type : {11u, 16u}) {
            for (const uint32_t length : {0u, 1u, 254u, 255u}) {
                SCOPED_TRACE(length);
                Record payload;
                ASSERT_EQ(
                    aaa_sess_fill_msg_req_type_data(payload.data(), some_data(255).data(), length, type),
                    AAA_OK);
                Record out;
                Record expected;
                expected.text(0, some_data(length));
                uint32_t got = 0xDEAD;
                EXPECT_EQ(get(payload.data(), out.data(), &got, type), AAA_OK);
                EXPECT_EQ(got, length);
                EXPECT_TRUE(same_bytes(out, expected));
            }
        }
    }
}

TEST_F(SessionTypeData, AStoredLengthOver255ReadsAs254Bytes) {
    for (const GetFn get : kGets) {
        for (const uint32_t stored : {256u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            SCOPED_TRACE(stored);
            Record payload;
            payload.host(4, stored).text(8, some_data(255));
            Record out;
            Record expected;
            expected.text(0, some_data(254));
            uint32_t got = 0;
            EXPECT_EQ(get(payload.data(), out.data(), &got, 16), AAA_OK);
            EXPECT_EQ(got, 254u);
            EXPECT_TRUE(same_bytes(out, expected));
        }
    }
}

TEST_F(SessionTypeData, ReadingNamesTheFirstArgumentThatIsWrong) {
    const char *const length_texts[] = {"Failed Invalid input: len", "Failed Invalid input: lenp"};
    for (std::size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        fake::clear_journal();
        Record payload;
        Record out;
        uint32_t length = 0xDEAD;
        EXPECT_EQ(kGets[i](nullptr, nullptr, nullptr, 3), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(kGets[i](payload.data(), nullptr, nullptr, 3), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(kGets[i](payload.data(), out.data(), nullptr, 3), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(fake::traces(), (Traces{{kFlag, "Failed Invalid input: msg"},
                                          {kFlag, "Failed Invalid input: data"},
                                          {kFlag, length_texts[i]}}));
        EXPECT_EQ(length, 0xDEADu);
        EXPECT_TRUE(same_bytes(out, Record()));
    }
}

TEST_F(SessionTypeData, AWrongTypeIsInvalidForARequestButAllOnesForAResponseDeliberately) {
    for (const uint32_t type : {0u, 3u, 10u, 12u, 15u, 17u, 27u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(type);
        fake::clear_journal();
        Record payload;
        Record out;
        uint32_t length = 0xDEAD;
        EXPECT_EQ(aaa_sess_get_msg_req_type_data(payload.data(), out.data(), &length, type),
                  AAA_ERR_INVALID_ARG);
        EXPECT_EQ(aaa_sess_get_msg_res_type_data(payload.data(), out.data(), &length, type), 0xFFFFFFFFu);
        const fake::Trace refused = {kFlag, "Failed Invalid input: type"};
        EXPECT_EQ(fake::traces(), (Traces{refused, refused}));
        EXPECT_EQ(length, 0xDEADu);
        EXPECT_TRUE(same_bytes(out, Record()));
    }
}

TEST_F(SessionTypeData, LivesAtOffset72OfAPacket) {
    aaa_sess_request_t packet{};
    ASSERT_EQ(aaa_session_fill_request(&packet, nullptr, 16, 0, 0), AAA_OK);
    ASSERT_EQ(aaa_sess_fill_msg_req_type_data(reinterpret_cast<char *>(&packet) + 72, "operators", 9, 16),
              AAA_OK);
    EXPECT_EQ(packet.u.type_data.length, 9u);
    EXPECT_EQ(std::memcmp(packet.u.type_data.bytes, "operators", 9), 0);
}

}  // namespace
