// SPDX-License-Identifier: Apache-2.0
//
// The parameters of a public-key login: order and form of the pairs, the way
// back, and values that do not fit the record.

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "aaa/accessors.h"
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
using messages::text;
using messages::u32;

using Params = std::unique_ptr<aaa_rsa_params_t>;

uint8_t signature[] = "signature bytes";
uint8_t indata[] = "signed bytes";
uint8_t session_id[] = "session";

Params filled(uint8_t fill) {
    Params params(new aaa_rsa_params_t);
    std::memset(params.get(), fill, sizeof *params);
    return params;
}

// Every field with a value of its own.
Params login() {
    Params params = filled(0);
    params->signature = signature;
    params->signature_len = 15;
    params->indata = indata;
    params->indata_len = 12;
    params->session_id = session_id;
    params->session_id_len = 7;
    params->pubkey_type = 0x01020304;
    params->trustpoint_count = 2;
    std::strcpy(params->trustpoint_names[0], "first");
    std::strcpy(params->trustpoint_names[1], "second");
    std::strcpy(params->trustpoint_names[2], "unused");
    params->username_fields = 0x05060708;
    params->openssh_trustpoint_count = 3;
    std::strcpy(params->openssh_trustpoint_names[2], "third");
    std::strcpy(params->openssh_host_trustpoint_name, "host");
    std::memset(params->hiba_authorization_role, 'r', sizeof params->hiba_authorization_role);
    std::memset(params->sign_algname, 's', sizeof params->sign_algname);
    params->hiba_authorization_enable = 0xA5;
    return params;
}

std::string field(const void *at, std::size_t size) {
    return std::string(static_cast<const char *>(at), size);
}

Pairs login_pairs() {
    const Params params = login();
    return {bytes(56, "signature bytes"),
            bytes(57, "signed bytes"),
            bytes(59, "session"),
            u32(65, 0x01020304),
            bytes(66, field(params->trustpoint_names, 256)),
            u32(67, 0x05060708),
            bytes(80, field(params->openssh_trustpoint_names, 384)),
            bytes(85, field(params->openssh_host_trustpoint_name, 128)),
            bytes(86, std::string(450, 'r')),
            bytes(88, std::string(128, 's')),
            bytes(89, "\xA5")};
}

// ---- Storing ---------------------------------------------------------------

TEST(RsaParamsAdd, StoresElevenPairsInOrder) {
    const List list = make_list("request", {u32(1, 1)});
    ASSERT_EQ(aaa_util_avlist_rsa_params_add(list.get(), login().get()), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), Pairs{u32(1, 1)} + login_pairs());
    EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
}

TEST(RsaParamsAdd, DoesNotStoreTheUserName) {
    const List list = make_list("request");
    const Params params = login();
    char name[] = "alice";
    params->username = name;
    ASSERT_EQ(aaa_util_avlist_rsa_params_add(list.get(), params.get()), AAA_OK);
    EXPECT_EQ(aaa_util_avlist_username_get(list.get()), nullptr);
}

TEST(RsaParamsAdd, StoresNoNamesAsEmptyPairsAndAllOfThemWhole) {
    const Params params = login();
    params->trustpoint_count = 0;
    params->openssh_trustpoint_count = 256;
    params->signature_len = 0;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_avlist_rsa_params_add(list.get(), params.get()), AAA_OK);
    const Pairs pairs = pairs_of(list.get());
    ASSERT_EQ(pairs.size(), 11u);
    EXPECT_EQ(pairs[0], bytes(56, ""));
    EXPECT_EQ(pairs[4], bytes(66, ""));
    EXPECT_TRUE(pairs[6] == bytes(80, field(params->openssh_trustpoint_names, 32768)));
}

TEST(RsaParamsAdd, RefusesNullArguments) {
    const List list = make_list("request");
    EXPECT_EQ(aaa_util_avlist_rsa_params_add(nullptr, login().get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_rsa_params_add(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_rsa_params_add(nullptr, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(pairs_of(list.get()).empty());
}

// The pairs before a fault are in the list, those after it are not.
TEST(RsaParamsAdd, StopsAtTheFirstFault) {
    struct {
        const char *name;
        std::size_t stored;
        std::function<void(aaa_rsa_params_t &)> spoil;
    } const rows[] = {
        {"signature", 0, [](aaa_rsa_params_t &p) { p.signature = nullptr; }},
        {"signature of no bytes", 0, [](aaa_rsa_params_t &p) { p.signature = nullptr, p.signature_len = 0; }},
        {"indata", 1, [](aaa_rsa_params_t &p) { p.indata = nullptr; }},
        {"session id", 2, [](aaa_rsa_params_t &p) { p.session_id = nullptr, p.session_id_len = 0; }},
        {"eleven names", 4, [](aaa_rsa_params_t &p) { p.trustpoint_count = 11; }},
        {"wrapping count", 4, [](aaa_rsa_params_t &p) { p.trustpoint_count = 0x2000000; }},
        {"257 names", 6, [](aaa_rsa_params_t &p) { p.openssh_trustpoint_count = 257; }},
        {"wrapping count of 80", 6, [](aaa_rsa_params_t &p) { p.openssh_trustpoint_count = 0x2000001; }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const Params params = login();
        row.spoil(*params);
        const List list = make_list("request");
        EXPECT_EQ(aaa_util_avlist_rsa_params_add(list.get(), params.get()), AAA_ERR_INVALID_ARG);
        Pairs expected = login_pairs();
        expected.resize(row.stored);
        if (!expected.empty() && params->signature_len == 0) {
            expected[0].value.clear();
        }
        EXPECT_EQ(pairs_of(list.get()), expected);
    }
}

TEST(RsaParamsAdd, KeepsThePairsBeforeExhaustedMemory) {
    const Params params = login();
    params->openssh_trustpoint_count = 256;
    std::size_t most = 0;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const List list = make_list("request");
        const cerrno code =
            fail.run([&] { return aaa_util_avlist_rsa_params_add(list.get(), params.get()); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        const Pairs pairs = pairs_of(list.get());
        EXPECT_EQ(pairs.size() == 11, !fail.fired());
        EXPECT_GE(pairs.size(), most);
        most = pairs.size();
        EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    });
}

// ---- Reading ---------------------------------------------------------------

TEST(RsaParamsGet, ReadsBackWhatWasStored) {
    const List list = make_list("request", {text(257, "alice")});
    const Params in = login();
    in->trustpoint_count = 10;
    in->openssh_trustpoint_count = 256;
    for (int i = 0; i < 256; ++i) {
        std::snprintf(in->openssh_trustpoint_names[i], AAA_RSA_NAME_LEN, "openssh %d", i);
    }
    ASSERT_EQ(aaa_util_avlist_rsa_params_add(list.get(), in.get()), AAA_OK);

    const Params out = filled(0xEE);
    ASSERT_EQ(aaa_util_avlist_rsa_params_get(list.get(), out.get()), AAA_OK);
    EXPECT_STREQ(out->username, "alice");
    EXPECT_EQ(field(out->signature, out->signature_len), "signature bytes");
    EXPECT_EQ(field(out->indata, out->indata_len), "signed bytes");
    EXPECT_EQ(field(out->session_id, out->session_id_len), "session");
    EXPECT_EQ(out->pubkey_type, in->pubkey_type);
    EXPECT_EQ(out->trustpoint_count, 10u);
    EXPECT_EQ(std::memcmp(out->trustpoint_names, in->trustpoint_names, sizeof in->trustpoint_names), 0);
    EXPECT_EQ(out->username_fields, in->username_fields);
    EXPECT_EQ(out->openssh_trustpoint_count, 256u);
    EXPECT_EQ(std::memcmp(out->openssh_trustpoint_names, in->openssh_trustpoint_names,
                          sizeof in->openssh_trustpoint_names),
              0);
    EXPECT_EQ(std::memcmp(out->openssh_host_trustpoint_name, in->openssh_host_trustpoint_name, 128), 0);
    EXPECT_EQ(std::memcmp(out->hiba_authorization_role, in->hiba_authorization_role, 450), 0);
    EXPECT_EQ(std::memcmp(out->sign_algname, in->sign_algname, 128), 0);
    EXPECT_EQ(out->hiba_authorization_enable, 0xA5);
}

TEST(RsaParamsGet, PointsIntoTheList) {
    const List list = make_list("request", {text(257, "alice")});
    ASSERT_EQ(aaa_util_avlist_rsa_params_add(list.get(), login().get()), AAA_OK);
    const Params out = filled(0xEE);
    ASSERT_EQ(aaa_util_avlist_rsa_params_get(list.get(), out.get()), AAA_OK);
    struct {
        uint32_t type;
        const void *address;
    } const rows[] = {{257, out->username}, {56, out->signature}, {57, out->indata}, {59, out->session_id}};
    for (const auto &row : rows) {
        void *value = nullptr;
        ASSERT_EQ(aaa_avpair_find_type(row.type, nullptr, &value, nullptr, 0, list.get()), AAA_OK);
        EXPECT_EQ(row.address, value);
    }
}

TEST(RsaParamsGet, ZeroesWhatIsAbsent) {
    const List list = make_list("request");
    const Params out = filled(0xEE);
    ASSERT_EQ(aaa_util_avlist_rsa_params_get(list.get(), out.get()), AAA_OK);
    EXPECT_EQ(out->username, nullptr);
    EXPECT_EQ(out->signature, nullptr);
    EXPECT_EQ(out->signature_len, 0u);
    EXPECT_EQ(out->indata, nullptr);
    EXPECT_EQ(out->indata_len, 0u);
    EXPECT_EQ(out->session_id, nullptr);
    EXPECT_EQ(out->session_id_len, 0u);
    EXPECT_EQ(out->pubkey_type, 0u);
    EXPECT_EQ(field(out->trustpoint_names, 1280), std::string(1280, '\0'));
    EXPECT_EQ(out->trustpoint_count, 0u);
    EXPECT_EQ(out->username_fields, 0u);
    EXPECT_TRUE(field(out->openssh_trustpoint_names, 32768) == std::string(32768, '\0'));
    EXPECT_EQ(out->openssh_trustpoint_count, 0u);
    EXPECT_EQ(field(out->openssh_host_trustpoint_name, 128), std::string(128, '\0'));
    EXPECT_EQ(field(out->hiba_authorization_role, 450), std::string(450, '\0'));
    EXPECT_EQ(field(out->sign_algname, 128), std::string(128, '\0'));
    EXPECT_EQ(out->hiba_authorization_enable, 0);
}

TEST(RsaParamsGet, LooksEachAttributeUpInTurn) {
    const List list = make_list("request");
    const Params out = filled(0);
    fake::enable_tracing(8);
    ASSERT_EQ(aaa_util_avlist_rsa_params_get(list.get(), out.get()), AAA_OK);
    const std::vector<std::string> traces = fake::traces_of(8);
    const uint32_t order[] = {257, 56, 57, 59, 65, 67, 66, 80, 85, 86, 88, 89};
    ASSERT_EQ(traces.size(), std::size(order));
    for (std::size_t i = 0; i < traces.size(); ++i) {
        char start[32];
        std::snprintf(start, sizeof start, "Attr %x ", order[i]);
        EXPECT_EQ(traces[i].rfind(start, 0), 0u) << traces[i];
    }
}

TEST(RsaParamsGet, CopiesTwoFieldsThroughThePlatform) {
    const List list = make_list("request");
    const Params out = filled(0);
    ASSERT_EQ(aaa_util_avlist_rsa_params_get(list.get(), out.get()), AAA_OK);
    EXPECT_EQ(fake::calls(), (std::vector<std::string>{"memset_s(450, 0, 450)", "memset_s(128, 0, 128)"}));
    const List full = make_list("request", {bytes(86, "role"), bytes(88, "rsa-sha2-256")});
    fake::clear_journal();
    ASSERT_EQ(aaa_util_avlist_rsa_params_get(full.get(), out.get()), AAA_OK);
    EXPECT_EQ(fake::calls(), (std::vector<std::string>{"memcpy_s(450, 4)", "memcpy_s(128, 12)"}));
    EXPECT_STREQ(out->hiba_authorization_role, "role");
    EXPECT_STREQ(out->sign_algname, "rsa-sha2-256");
}

// A value larger than its field must not reach beyond it; whether it is
// refused by the library or by the platform, the field is zero afterwards.
TEST(RsaParamsGet, TreatsAnOversizedValueAsAbsent) {
    struct {
        uint32_t type;
        std::size_t offset, size;
    } const rows[] = {
        {66, offsetof(aaa_rsa_params_t, trustpoint_names), 1280},
        {80, offsetof(aaa_rsa_params_t, openssh_trustpoint_names), 32768},
        {85, offsetof(aaa_rsa_params_t, openssh_host_trustpoint_name), 128},
        {86, offsetof(aaa_rsa_params_t, hiba_authorization_role), 450},
        {88, offsetof(aaa_rsa_params_t, sign_algname), 128},
    };
    for (const auto &row : rows) {
        for (const std::size_t excess : {0u, 1u, 128u}) {
            SCOPED_TRACE(row.type);
            SCOPED_TRACE(excess);
            const std::string value(row.size + excess, 'v');
            const List list = make_list("request", {bytes(row.type, value)});
            const Params out = filled(0xEE);
            ASSERT_EQ(aaa_util_avlist_rsa_params_get(list.get(), out.get()), AAA_OK);
            const std::string expected = excess == 0 ? value : std::string(row.size, '\0');
            EXPECT_TRUE(field(reinterpret_cast<char *>(out.get()) + row.offset, row.size) == expected);
            if (row.type == 66) {
                EXPECT_EQ(out->trustpoint_count, excess == 0 ? 10u : 0u);
            }
            if (row.type == 80) {
                EXPECT_EQ(out->openssh_trustpoint_count, excess == 0 ? 256u : 0u);
            }
        }
    }
}

// Names beyond the count stay as they were; a partial name counts as none.
TEST(RsaParamsGet, CopiesOnlyWhatIsStored) {
    const List list = make_list("request", {bytes(66, std::string(200, 'n')), bytes(85, "host"),
                                            bytes(65, "\x01\x02"), bytes(67, ""), bytes(89, "")});
    const Params out = filled(0xEE);
    ASSERT_EQ(aaa_util_avlist_rsa_params_get(list.get(), out.get()), AAA_OK);
    EXPECT_EQ(out->trustpoint_count, 1u);
    EXPECT_EQ(field(out->trustpoint_names, 1280), std::string(200, 'n') + std::string(1080, '\xEE'));
    EXPECT_EQ(field(out->openssh_host_trustpoint_name, 128), "host" + std::string(124, '\xEE'));
    EXPECT_EQ(out->pubkey_type, 0x0201u);
    EXPECT_EQ(out->username_fields, 0u);
    EXPECT_EQ(out->hiba_authorization_enable, 0);
}

TEST(RsaParamsGet, RefusesNullArguments) {
    const List list = make_list("request");
    const Params out = filled(0xEE);
    EXPECT_EQ(aaa_util_avlist_rsa_params_get(nullptr, out.get()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_rsa_params_get(list.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_avlist_rsa_params_get(nullptr, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(field(out.get(), sizeof *out), field(filled(0xEE).get(), sizeof *out));
}

}  // namespace
