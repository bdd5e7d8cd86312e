// SPDX-License-Identifier: Apache-2.0
//
// Result codes, their texts, and the records of the message catalog, byte by
// byte as the platform's services read them.

#include "aaa/result_codes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>

namespace {

// An independent copy of the table that the library is built from.
struct Code {
    uint32_t index;
    uint32_t code;
    uint32_t name;
    const char *text;
};
constexpr Code kCodes[] = {
    {0, 0xa2460000u, AAA_OK, "Success"},
    {1, 0xa2460200u, AAA_ERR_NOMEM, "Not enough memory"},
    {2, 0xa2460400u, AAA_ERR_INVALID_ARG, "Invalid argument passed to the function"},
    {3, 0xa2460600u, AAA_ERR_INVALID_TYPE, "Invalid type encountered"},
    {4, 0xa2460800u, AAA_ERR_INVALID_PRIV, "Invalid privilege number encountered"},
    {5, 0xa2460a00u, AAA_ERR_AVPAIR_PROCESSING, "Error in processing A/V pair"},
    {6, 0xa2460c00u, AAA_ERR_NO_METHODS_SPECIFIED, "No methods specified"},
    {7, 0xa2460e00u, AAA_ERR_NO_METHODS_AVAILABLE, "No methods available"},
    {8, 0xa2461000u, AAA_ERR_SERVER_CONNECT_FAILED, "Connection to the server failed"},
    {9, 0xa2461200u, AAA_ERR_NO_DESTINATION, "No destination is specified"},
    {10, 0xa2461400u, AAA_ERR_CANNOT_REDIRECT, "Cannot redirect"},
    {11, 0xa2461600u, AAA_ERR_AUTHOR_FAILED, "Authorization failed"},
    {12, 0xa2461800u, AAA_ERR_NO_CHANNELS, "No channels available"},
    {13, 0xa2461a00u, AAA_ERR_INVALID_LINE_TYPE, "Line type is invalid"},
    {14, 0xa2461c00u, AAA_ERR_NOT_FOUND, "Requested entity was not found"},
    {15, 0xa2461e00u, AAA_ERR_ACCT_SERVICE, "Accounting service error"},
    {16, 0xa2462000u, AAA_ERR_ACCT_NOT_DEFINED, "Accounting not defined"},
    {17, 0xa2462200u, AAA_ERR_INIT_FAILED, "Failure to initialize"},
    {18, 0xa2462400u, AAA_ERR_INTERRUPTED, "The operation was interrupted"},
    {19, 0xa2462600u, AAA_ERR_RECEIVE_RESPONSE, "Error encountered while receiving response"},
    {20, 0xa2462800u, AAA_ERR_INVALID_MSG_TYPE, "Type of the message encountered is invalid"},
    {21, 0xa2462a00u, AAA_ERR_INTERNAL, "Internal ERROR to be REMOVED !!!"},
    {22, 0xa2462c00u, AAA_ERR_NO_ACCT_STATE, "No accounting state information present for this operation"},
    {23, 0xa2462e00u, AAA_ERR_INVALID_MSG_SIZE, "Size of the message received is invalid"},
    {24, 0xa2463000u, AAA_ERR_NOT_SUPPORTED, "Requested operation is not supported"},
    {25, 0xa2463200u, AAA_ERR_BUFFER_TOO_SMALL, "The buffer supplied was too small"},
    {26, 0xa2463400u, AAA_ERR_NOT_CONNECTED, "Connection to the AAA server is not yet made"},
    {27, 0xa2463600u, AAA_ERR_UNEXPECTED_REPLY, "Client library received unexpected reply code from server"},
    {28, 0xa2463800u, AAA_ERR_LOCK, "Error obtaining or releasing a lock"},
    {29, 0xa2463a00u, AAA_ERR_NOT_EMPTY, "An attempt was made to shut down a structure that was not empty"},
    {30, 0xa2463c00u, AAA_ERR_UNSUPPORTED_VERSION, "AAA server returned an unsupported version of protocol"},
    {31, 0xa2463e00u, AAA_ERR_OS, "An OS or utility function returned an error"},
    {32, 0xa2464000u, AAA_ERR_LWM_SEND, "Unable to send a LWM message"},
    {33, 0xa2464200u, AAA_ERR_UNKNOWN_TASKID, "Task ID specified was not recognized"},
    {34, 0xa2464400u, AAA_ERR_TIMEOUT, "Requested operation timed out"},
    {35, 0xa2464600u, AAA_ERR_INVALID_AVPAIR, "An invalid AV pair was encountered"},
    {36, 0xa2464800u, AAA_ERR_AVPAIR_NOT_FOUND, "Requested AV pair was not found"},
    {37, 0xa2464a00u, AAA_ERR_AUTHEN_FAILED, "Authentication failed"},
    {38, 0xa2464c00u, AAA_ERR_INVALID_CLIENT_DATA, "Invalid data supplied by client"},
    {39, 0xa2464e00u, AAA_ERR_NOT_CONFIGURED, "Requested function is not configured"},
    {40, 0xa2465000u, AAA_ERR_RESERVED_TASKID,
     "TaskID specified is a reserved one and cannot be used as requested"},
    {41, 0xa2465200u, AAA_ERR_LOCALD_TIMEOUT, "Sending message to locald timedout"},
    {42, 0xa2465400u, AAA_ERR_INVALID_METHOD, "Invalid method is specified"},
    {43, 0xa2465600u, AAA_ERR_SG_IN_USE, "Server group is in use and cannot be deleted"},
    {44, 0xa2465800u, AAA_ERR_SG_MAPPING,
     "An error occurred while mapping between server groupnames and number"},
    {45, 0xa2465a00u, AAA_ERR_INDEX_IN_USE, "Host or server group index is in use already"},
    {46, 0xa2465c00u, AAA_ERR_SG_NAME_OTHER_PROTOCOL,
     "Server group name is already used for a different protocol"},
    {47, 0xa2465e00u, AAA_ERR_FAILOVER, "A AAA server failover has been indicated"},
    {48, 0xa2466000u, AAA_ERR_END_OF_LIST, "Reached end of AVPair list"},
};

std::string bytes_of(const void *record, std::size_t size) {
    return {static_cast<const char *>(record), size};
}

// Expected bytes of a record, zero where nothing is put.
class Expected {
  public:
    explicit Expected(std::size_t size) : bytes_(size, '\0') {}
    template <typename T>
    Expected &put(std::size_t offset, T value) {
        std::memcpy(&bytes_.at(offset), &value, sizeof value);
        return *this;
    }
    [[nodiscard]] const std::string &bytes() const { return bytes_; }

  private:
    std::string bytes_;
};

TEST(ResultCodes, SuccessIsZero) {
    EXPECT_EQ(AAA_OK, 0u);
    EXPECT_NE(AAA_OK, AAA_ERR_CODE(0));
}

TEST(ResultCodes, NamesHaveTheCodesOfTheirRows) {
    ASSERT_EQ(std::size(kCodes), 49u);
    for (uint32_t i = 0; i < std::size(kCodes); ++i) {
        EXPECT_EQ(kCodes[i].index, i);
        EXPECT_EQ(kCodes[i].code, 0x80000000u | 0x20000000u | 0x48cu << 15 | i << 9);
        EXPECT_EQ(kCodes[i].code, AAA_ERR_CODE(i));
        EXPECT_EQ(kCodes[i].name, i == 0 ? 0u : kCodes[i].code) << kCodes[i].text;
    }
}

TEST(ResultCodes, CodesOutsideTheTable) {
    EXPECT_EQ(AAA_STATUS_END_OF_LIST, 0x22466000u);
    EXPECT_EQ(AAA_STATUS_END_OF_LIST >> 9 & 0x3f, AAA_ERR_END_OF_LIST >> 9 & 0x3f);
    EXPECT_EQ(AAA_ERR_BAD_ENCRYPTED_KEY, AAA_ERR_CODE(52));
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, 0x40818600u);
    EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, 0x8081c200u);
    EXPECT_EQ(SYSDB_ERR_NOTIFY_ABSENT, 0x40818800u);
    EXPECT_EQ(EVENT_CONN_RETRY, 0x21200e00u);
    EXPECT_EQ(LINE_NO_CONTROLLING_TTY, 0x22570e00u);
}

TEST(ResultCodes, RegistrationRecordIsLaidOutForTheService) {
    ASSERT_EQ(sizeof cerr_data, 48u);
    EXPECT_STREQ(cerr_data.name, "AAA API");
    Expected expected(48);
    expected.put(0, 2u).put(8, cerr_data.name).put(16, 1164u).put(20, 49u).put(24, cerr_data.table);
    EXPECT_EQ(bytes_of(&cerr_data, sizeof cerr_data), expected.bytes());
}

TEST(ResultCodes, EveryRowHasItsIndexAndText) {
    ASSERT_EQ(cerr_data.rows, std::size(kCodes));
    for (const Code &code : kCodes) {
        const aaa_err_row_t &row = cerr_data.table[code.index];
        EXPECT_STREQ(row.text, code.text);
        Expected expected(16);
        expected.put(0, code.index).put(8, row.text);
        EXPECT_EQ(bytes_of(&row, sizeof row), expected.bytes()) << code.text;
    }
}

// Users know these texts; they stay as they are.
TEST(ResultCodes, OddTextsStay) {
    EXPECT_STREQ(cerr_data.table[21].text, "Internal ERROR to be REMOVED !!!");
    EXPECT_STREQ(cerr_data.table[41].text, "Sending message to locald timedout");
    EXPECT_STREQ(cerr_data.table[47].text, "A AAA server failover has been indicated");
}

// ---- Message catalog -------------------------------------------------------

struct Message {
    const kel_msg_rec_t *record;
    const kel_msg_rec_t *(*accessor)(void);
    const char *mnemonic;
    uint32_t severity;
    uint32_t number;
    kel_msg_limit_t *limit;
    const char *format;
};

// Not constant: the addresses of another shared object's data.
std::array<Message, 8> messages() {
    return {{
        {&kel_msg_rec_aaa_debug_error, kel_msg_rec_aaa_debug_error_getfn, "DEBUG_ERROR", 3, 1, nullptr,
         "%s: %s"},
        {&kel_msg_rec_aaa_dllmain_error, kel_msg_rec_aaa_dllmain_error_getfn, "DLLMAIN_ERROR", 3, 7, nullptr,
         "Error encountered while initializing DLL for %s: %s"},
        {&kel_msg_rec_aaa_err_ecm, kel_msg_rec_aaa_err_ecm_getfn, "ERR_ECM", 7, 8, nullptr,
         "Failed to open event connection for a %s: %s, retrying"},
        {&kel_msg_rec_aaa_err_server_group, kel_msg_rec_aaa_err_server_group_getfn, "ERR_SERVER_GROUP", 3, 9,
         &kel_msg_limit_aaa_err_server_group, "%s"},
        {&kel_msg_rec_aaa_err_sysdb, kel_msg_rec_aaa_err_sysdb_getfn, "ERR_SYSDB", 7, 10,
         &kel_msg_limit_aaa_err_sysdb, "%s path %s: %s"},
        {&kel_msg_rec_aaa_invalid_debug_flag, kel_msg_rec_aaa_invalid_debug_flag_getfn, "INVALID_DEBUG_FLAG",
         3, 11, nullptr, "The AAA debug flag %d does not exist"},
        {&kel_msg_rec_aaa_lib_util_error_no_mem, kel_msg_rec_aaa_lib_util_error_no_mem_getfn,
         "LIB_UTIL_ERROR_NO_MEM", 3, 12, nullptr, "Not enough memory available while %s"},
        {&kel_msg_rec_aaa_whitespace_truncated_in_server_key,
         kel_msg_rec_aaa_whitespace_truncated_in_server_key_getfn, "WHITESPACE_TRUNCATED_IN_SERVER_KEY", 4,
         13, nullptr, "WARNING: The server key contained trailing whitespace and was truncated"},
    }};
}

TEST(MessageCatalog, AccessorsGiveTheRecordsThemselves) {
    for (const Message &message : messages()) {
        EXPECT_EQ(message.accessor(), message.record) << message.mnemonic;
    }
    EXPECT_EQ(kel_msg_limit_aaa_err_server_group_getfn(), &kel_msg_limit_aaa_err_server_group);
    EXPECT_EQ(kel_msg_limit_aaa_err_sysdb_getfn(), &kel_msg_limit_aaa_err_sysdb);
}

TEST(MessageCatalog, RecordsHaveTheirTexts) {
    for (const Message &message : messages()) {
        EXPECT_STREQ(message.record->format, message.format);
        EXPECT_STREQ(message.record->facility, "AAA");
        EXPECT_STREQ(message.record->category, "SECURITY");
        EXPECT_STREQ(message.record->mnemonic, message.mnemonic);
    }
}

TEST(MessageCatalog, RecordsAreLaidOutForTheFacility) {
    for (const Message &message : messages()) {
        const kel_msg_rec_t &record = *message.record;
        Expected expected(72);
        expected.put(8, record.format)
            .put(16, message.limit)
            .put(24, record.facility)
            .put(32, record.category);
        expected.put(40, record.mnemonic)
            .put(48, message.severity << 16)
            .put(64, 0x048d0000u | message.number);
        EXPECT_EQ(bytes_of(&record, sizeof record), expected.bytes()) << message.mnemonic;
    }
}

TEST(MessageCatalog, LimitsBeginWithThePeriodAndNoState) {
    const std::string expected = Expected(32).put(0, 60u).bytes();
    EXPECT_EQ(bytes_of(&kel_msg_limit_aaa_err_server_group, sizeof(kel_msg_limit_t)), expected);
    EXPECT_EQ(bytes_of(&kel_msg_limit_aaa_err_sysdb, sizeof(kel_msg_limit_t)), expected);
    EXPECT_NE(&kel_msg_limit_aaa_err_server_group, &kel_msg_limit_aaa_err_sysdb);
}

TEST(MessageCatalog, LimitsAreWritable) {
    for (kel_msg_limit_t *const limit :
         {kel_msg_limit_aaa_err_server_group_getfn(), kel_msg_limit_aaa_err_sysdb_getfn()}) {
        volatile uint8_t *const state = limit->state;
        for (std::size_t i = 0; i < sizeof limit->state; ++i) {
            state[i] = static_cast<uint8_t>(i + 1);
            EXPECT_EQ(state[i], i + 1);
            state[i] = 0;
        }
    }
}

void write_to(const void *constant) {
    // The address is the reason for the refusal.
    auto *const byte = reinterpret_cast<volatile char *>(reinterpret_cast<uintptr_t>(constant));
    *byte = static_cast<char>(*byte + 1);
}

TEST(MessageCatalogDeathTest, RecordsAreReadOnly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const Message &message : messages()) {
        EXPECT_DEATH(write_to(message.record), "") << message.mnemonic;
    }
    EXPECT_DEATH(write_to(&cerr_data), "");
    EXPECT_DEATH(write_to(cerr_data.table), "");
}

}  // namespace
