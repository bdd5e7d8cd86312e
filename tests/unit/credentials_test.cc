// SPDX-License-Identifier: Apache-2.0
//
// A credential record in a list: which pairs each service gets in which
// order, what the platform is asked for, and what is said in the trace.

#include "aaa/credentials.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/full_credentials.hpp"
#include "support/page_end_list.hpp"
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
using Calls = std::vector<std::string>;
using Texts = std::vector<std::string>;

// Types of a request: 0 to 13 are authentication options, 128 to 131 make it
// an accounting request.
constexpr uint32_t kAuthen = 0;
constexpr uint32_t kAcctStart = 128;

class Credentials : public messages::FullCredentials {
  public:
    Credentials()
        : FullCredentials(make_list("state", {Pair{280, 0x7, 4, "st1"}, Pair{281, 0x400, 0, "cls"}}),
                          make_list("supplied", {Pair{275, 0x3, 2, "in1"}}),
                          make_list("further", {u32(278, 1)})) {}
    ~Credentials() {
        char *const address = get()->remote_addr;
        if (address != remote && address != given_) {
            std::free(address);
        }
    }
    // A remote address that is not from the heap.
    void give_remote(char *address) { get()->remote_addr = given_ = address; }

  private:
    char *given_ = nullptr;
};

const Pair kUser = text(257, "alice");
const Pair kMethod = u32(39, 3, 0x400);
const Pair kTty = text(20, "vty0");
const Pair kMnemonic = text(61, "con0");
const Pair kFlag = u32(62, 9);
const Pair kRemote = text(37, "192.0.2.9");
const Pair kIfh = u32(22, 0x11223344);
const Pair kIpaddr = u32(264, 0xC0000207);
const Pair kPassword = text(258, "secret", 0x400);
const Pair kState1 = Pair{280, 0, 4, "st1"};
const Pair kState2 = Pair{281, 0, 0, "cls"};
const Pair kSupplied = Pair{275, 0, 2, "in1"};
const Pair kUnique = u32(1072, 77);

// The pairs of a service in addition to the name, the method, the interface and, in
// requests other than accounting, the secrets and the state arguments.
struct Service {
    int32_t number;
    bool terminal, remote, plexa;
};

constexpr Service kServices[] = {
    {-1, false, false, false}, {0, false, false, false},  {1, true, true, false},
    {2, false, false, false},  {3, false, false, false},  {4, false, false, false},
    {5, false, false, false},  {6, true, true, false},    {7, true, true, false},
    {8, true, true, false},    {9, false, false, false},  {10, false, false, false},
    {11, false, true, false},  {12, false, false, false}, {13, false, false, false},
    {14, true, true, false},   {15, false, false, false}, {16, false, false, false},
    {17, true, true, false},   {18, false, false, false}, {19, false, false, false},
    {20, false, false, false}, {21, false, false, false}, {22, false, false, false},
    {23, false, false, false}, {24, false, false, false}, {25, false, false, false},
    {26, true, true, true},    {27, false, false, false}, {28, false, false, false},
    {29, false, false, false}, {30, true, true, false},   {31, true, true, false},
    {32, false, false, false}, {99, false, false, false},
};

constexpr Service kFramed = {2, false, false, false};
constexpr Service kExec = {7, true, true, false};
constexpr Service kPpp = {11, false, true, false};
constexpr Service kPlexa = {26, true, true, true};
constexpr Service kAn = {27, false, false, false};

Pairs expected_pairs(const Service &service, bool accounting) {
    Pairs pairs = {kUser, kMethod};
    if (service.terminal) {
        pairs = pairs + Pairs{kTty, kMnemonic, kFlag};
    }
    if (service.remote) {
        pairs.push_back(kRemote);
    }
    pairs = pairs + Pairs{kIfh, kIpaddr};
    if (!accounting) {
        pairs = pairs + Pairs{kPassword, kState1, kState2};
    }
    if (service.plexa) {
        pairs = pairs + Pairs{kSupplied, kUnique};
    }
    return pairs;
}

class UsercredService : public testing::TestWithParam<Service> {};
INSTANTIATE_TEST_SUITE_P(All, UsercredService, testing::ValuesIn(kServices), [](const auto &row) {
    return row.param.number < 0 ? std::string("minus") : std::to_string(row.param.number);
});

TEST_P(UsercredService, GetsItsPairsInOrder) {
    for (const bool accounting : {false, true}) {
        SCOPED_TRACE(accounting);
        fake::clear_journal();
        Credentials cred;
        const List list = make_list("request", {u32(3, 1)});
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), GetParam().number, 0,
                                                  accounting ? kAcctStart : kAuthen),
                  AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), Pairs{u32(3, 1)} + expected_pairs(GetParam(), accounting));
        EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    }
}

TEST_P(UsercredService, AsksThePlatformOnlyForWhatItNeeds) {
    for (const bool accounting : {false, true}) {
        SCOPED_TRACE(accounting);
        fake::clear_journal();
        Credentials cred;
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), GetParam().number, 0,
                                                  accounting ? kAcctStart : kAuthen),
                  AAA_OK);
        Calls expected;
        if (GetParam().terminal) {
            expected = {"sstrncpy(\"vty0\", 32)", "sstrncpy(\"con0\", 32)"};
            if (!accounting) {
                expected.push_back("aaa_util_check_linetype(ptr)");
            }
        }
        EXPECT_EQ(fake::calls(), expected);
    }
}

TEST_P(UsercredService, FindsTerminalAndRemoteAddressWhenTheRecordHasNone) {
    fake::libc::set_ttyname("/dev/pts/7");
    Credentials cred;
    cred->ttyname = nullptr;
    cred->tty_mnemonic = nullptr;
    cred->remote_addr = nullptr;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), GetParam().number, 0, kAcctStart),
              AAA_OK);
    Pairs pairs = {kUser, kMethod};
    Calls calls;
    if (GetParam().terminal) {
        pairs = pairs + Pairs{text(20, "/dev/pts/7"), kFlag};
        calls.push_back("ttyname_r(0, 32)");
    }
    if (GetParam().remote) {
        pairs.push_back(text(37, "192.0.2.7"));
        calls.push_back("platform_am_i_lc()");
        calls.push_back("aaa_util_find_line_remote_addr(ptr, 46)");
    }
    pairs = pairs + Pairs{kIfh, kIpaddr};
    if (GetParam().plexa) {
        pairs = pairs + Pairs{kSupplied, kUnique};
    }
    EXPECT_EQ(pairs_of(list.get()), pairs);
    EXPECT_EQ(fake::calls(), calls);
    // The record owns the address that was found.
    ASSERT_EQ(cred->remote_addr != nullptr, GetParam().remote);
    if (GetParam().remote) {
        EXPECT_STREQ(cred->remote_addr, "192.0.2.7");
    }
}

TEST_P(UsercredService, LeavesOutWhatTheRecordDoesNotHave) {
    fake::libc::set_ttyname("");
    fake::answer("platform_am_i_lc", 1);
    aaa_usercred_t cred{};
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, list.get(), GetParam().number, 0, kAuthen), AAA_OK);
    Pairs pairs = {u32(39, 0, 0x400)};
    if (GetParam().terminal) {
        pairs.push_back(u32(62, 0));
    }
    if (GetParam().plexa) {
        pairs.push_back(u32(1072, 0));
    }
    EXPECT_EQ(pairs_of(list.get()), pairs);
    EXPECT_EQ(cred.remote_addr, nullptr);
    EXPECT_EQ(fake::count("aaa_util_find_line_remote_addr"), 0u);
}

// ---- Arguments -------------------------------------------------------------

TEST(Usercred, RefusesNullArguments) {
    Credentials cred;
    const List list = make_list("request");
    EXPECT_EQ(aaa_util_add_usercred_in_avlist(nullptr, list.get(), 1, 0, kAuthen), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), nullptr, 1, 0, kAuthen), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_add_usercred_in_avlist(nullptr, nullptr, 1, 0, kAuthen), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(pairs_of(list.get()).empty());
    EXPECT_TRUE(fake::traces().empty());
    EXPECT_TRUE(fake::calls().empty());
}

TEST(Usercred, DoesNotLookAtTheReservedArgument) {
    for (const uint32_t reserved : {0u, 1u, 0xFFFFFFFFu}) {
        Credentials cred;
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 7, reserved, kAuthen), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), expected_pairs(kExec, false));
    }
}

// The two low bits do not matter; every other bit does.
TEST(Usercred, TakesFourTypesForAccounting) {
    for (const uint32_t type : {0u, 13u, 127u, 128u, 129u, 130u, 131u, 132u, 0x180u, 0x80000080u}) {
        SCOPED_TRACE(type);
        const bool accounting = type >= 128 && type <= 131;
        Credentials cred;
        const List list = make_list("request");
        fake::clear_journal();
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 7, 0, type), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), expected_pairs(kExec, accounting));
        EXPECT_EQ(fake::count("aaa_util_check_linetype"), accounting ? 0u : 1u);
    }
}

// ---- User name and method --------------------------------------------------

// Longer names are left out without a report: kept, the requests are made.
TEST(UsercredName, IsLeftOutFrom254Characters) {
    for (const std::size_t length : {0u, 1u, 252u, 253u, 254u, 255u, 300u}) {
        SCOPED_TRACE(length);
        std::string name(length, 'u');
        aaa_usercred_t cred{};
        cred.username = name.data();
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, list.get(), 2, 0, kAuthen), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()),
                  length <= 253 ? (Pairs{text(257, name), u32(39, 0, 0x400)}) : (Pairs{u32(39, 0, 0x400)}));
    }
}

TEST(UsercredMethod, ReplacesTheMethodOfTheList) {
    aaa_usercred_t cred{};
    cred.authen_method = 4711;
    const List list = make_list("request", {u32(39, 1, 0x2), u32(1, 1)});
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, list.get(), 2, 0, kAuthen), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{u32(39, 4711, 0x402), u32(1, 1)}));
}

TEST(UsercredPassword, ReplacesThePasswordOfTheListAndMayBeEmpty) {
    char empty[] = "";
    aaa_usercred_t cred{};
    cred.password = empty;
    const List list = make_list("request", {text(258, "old")});
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, list.get(), 2, 0, kAuthen), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{u32(39, 0, 0x400), text(258, "", 0x400)}));
}

// ---- Terminal --------------------------------------------------------------

TEST(UsercredTerminal, IsCutTo31Characters) {
    Credentials cred;
    std::string name = "0123456789012345678901234567890-and more";
    std::string mnemonic = "abcdefghijklmnopqrstuvwxyzabcde-and more";
    cred->ttyname = name.data();
    cred->tty_mnemonic = mnemonic.data();
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 1, 0, kAcctStart), AAA_OK);
    const Pairs pairs = pairs_of(list.get());
    EXPECT_EQ(pairs[2], text(20, name.substr(0, 31)));
    EXPECT_EQ(pairs[3], text(61, mnemonic.substr(0, 31)));
    EXPECT_EQ(fake::traces_of(8)[1], "Using ttyname " + name.substr(0, 31));
}

TEST(UsercredTerminal, IsLeftOutWhenItsNameIsEmpty) {
    Credentials cred;
    char empty[] = "";
    cred->ttyname = empty;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 1, 0, kAcctStart), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{kUser, kMethod, kMnemonic, kFlag, kRemote, kIfh, kIpaddr}));
    EXPECT_EQ(fake::traces_of(8)[1], "Using ttyname ");
}

TEST(UsercredTerminal, IsLeftOutWhenStandardInputHasNone) {
    struct {
        const char *name;
        int result;
    } const rows[] = {{"", 0}, {"unused", ENOTTY}, {"/dev/a-name-that-has-32-characters", 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        fake::clear_journal();
        fake::libc::set_ttyname(row.name, row.result);
        Credentials cred;
        cred->ttyname = nullptr;
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 1, 0, kAcctStart), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), (Pairs{kUser, kMethod, kMnemonic, kFlag, kRemote, kIfh, kIpaddr}));
        EXPECT_EQ(fake::traces_of(8)[1], "Obtaining and using ttyname ");
    }
}

// ---- Remote address --------------------------------------------------------

TEST(UsercredRemote, IsCutTo255Characters) {
    for (const std::size_t length : {0u, 1u, 254u, 255u, 256u, 300u}) {
        SCOPED_TRACE(length);
        fake::clear_journal();
        Credentials cred;
        std::string address(length, 'a');
        cred.give_remote(address.data());
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 11, 0, kAcctStart), AAA_OK);
        const std::string cut = address.substr(0, 255);
        EXPECT_EQ(pairs_of(list.get())[2], text(37, cut));
        EXPECT_EQ(fake::traces_of(0), Texts{"Add remote addr attribute - " + cut + " (length " +
                                            std::to_string(cut.size()) + ")"});
        EXPECT_EQ(address.size(), length);
        EXPECT_EQ(cred->remote_addr, address.data());
    }
}

TEST(UsercredRemote, IsNotAskedForOnALineCard) {
    fake::answer("platform_am_i_lc", 1);
    Credentials cred;
    cred->remote_addr = nullptr;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 11, 0, kAcctStart), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{kUser, kMethod, kIfh, kIpaddr}));
    EXPECT_EQ(fake::calls(), Calls{"platform_am_i_lc()"});
    EXPECT_TRUE(fake::traces_of(0).empty());
}

TEST(UsercredRemote, OfTheRecordIsUsedOnALineCard) {
    fake::answer("platform_am_i_lc", 1);
    Credentials cred;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 11, 0, kAcctStart), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{kUser, kMethod, kRemote, kIfh, kIpaddr}));
    EXPECT_EQ(fake::count("platform_am_i_lc"), 0u);
}

TEST(UsercredRemote, IsLeftOutWhenThePlatformDoesNotKnow) {
    fake::answer("aaa_util_find_line_remote_addr", 0x22570e00);
    Credentials cred;
    cred->remote_addr = nullptr;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 11, 0, kAcctStart), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{kUser, kMethod, kIfh, kIpaddr}));
    EXPECT_EQ(cred->remote_addr, nullptr);
    EXPECT_EQ(fake::traces_of(0), Texts{"Find line remote addr attribute failed"});
}

TEST(UsercredRemote, IsAskedForOnce) {
    Credentials cred;
    cred->remote_addr = nullptr;
    for (int i = 0; i < 2; ++i) {
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 11, 0, kAcctStart), AAA_OK);
        EXPECT_EQ(pairs_of(list.get())[2], text(37, "192.0.2.7"));
    }
    EXPECT_EQ(fake::count("aaa_util_find_line_remote_addr"), 1u);
}

// ---- Interface -------------------------------------------------------------

TEST(UsercredInterface, IsLeftOutWhenZero) {
    for (const uint32_t ifh : {0u, 5u}) {
        for (const uint32_t ipaddr : {0u, 6u}) {
            aaa_usercred_t cred{};
            cred.ifh = ifh;
            cred.ipaddr = ipaddr;
            const List list = make_list("request");
            ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, list.get(), 2, 0, kAuthen), AAA_OK);
            Pairs expected = {u32(39, 0, 0x400)};
            if (ifh != 0) {
                expected.push_back(u32(22, 5));
            }
            if (ipaddr != 0) {
                expected.push_back(u32(264, 6));
            }
            EXPECT_EQ(pairs_of(list.get()), expected);
        }
    }
}

// ---- CHAP data -------------------------------------------------------------

TEST(UsercredChap, GoesWhereItsOptionSays) {
    Credentials probe;
    const std::string id = "\x5A";
    const std::string response(reinterpret_cast<char *>(probe.response), 16);
    for (uint32_t type = 0; type <= 0x20B; ++type) {
        SCOPED_TRACE(type);
        if (type >= 128 && type <= 131) {
            continue;
        }
        Credentials cred;
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 11, 0, type), AAA_OK);
        Pairs expected = {kUser, kMethod, kRemote, kIfh, kIpaddr, kPassword};
        switch (type) {
            case 5:
                expected.push_back(bytes(256, id + response + "dat"));
                break;
            case 7:
                expected.push_back(bytes(14, id + "dat"));
                break;
            case 9:
                expected.push_back(bytes(1815, id + response + "dat"));
                break;
            case 10:
                expected.push_back(bytes(15, id + "dat"));
                break;
            default:
                break;
        }
        EXPECT_EQ(pairs_of(list.get()), (expected + Pairs{kState1, kState2}));
    }
}

TEST(UsercredChap, IsForPppOnly) {
    for (const Service &service : kServices) {
        if (service.number == 11) {
            continue;
        }
        for (const uint32_t type : {5u, 7u, 9u, 10u}) {
            Credentials cred;
            const List list = make_list("request");
            ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), service.number, 0, type),
                      AAA_OK);
            EXPECT_EQ(pairs_of(list.get()), expected_pairs(service, false)) << service.number;
        }
    }
}

TEST(UsercredChap, MayBeMissingOrUnusable) {
    for (const uint32_t type : {5u, 7u, 9u, 10u}) {
        SCOPED_TRACE(type);
        Credentials without;
        without->chap_data = nullptr;
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(without.get(), list.get(), 11, 0, type), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), expected_pairs(kPpp, false));
        Credentials broken;
        broken.chap.data = nullptr;
        const List other = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(broken.get(), other.get(), 11, 0, type), AAA_OK);
        EXPECT_EQ(pairs_of(other.get()), expected_pairs(kPpp, false));
    }
}

// ---- Lists of the record ---------------------------------------------------

TEST(UsercredLists, AreCopiedWithTagsAndWithoutFlags) {
    Credentials cred;
    cred.state = make_list("state", {Pair{280, 0xFFFF, 0xFFFFFFFF, "one"}, u32(280, 2), bytes(4, ""),
                                     Pair{17, 1, 3, std::string(600, 'x')}});
    cred->state_args = cred.state.get();
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(280, 1, cred.state.get(), nullptr), AAA_OK);
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 2, 0, kAuthen), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()),
              (Pairs{kUser, kMethod, kIfh, kIpaddr, kPassword, Pair{280, 0, 0xFFFFFFFF, "one"}, bytes(4, ""),
                     Pair{17, 0, 3, std::string(600, 'x')}}));
    EXPECT_EQ(pairs_of(cred.state.get()).size(), 3u);
}

TEST(UsercredLists, MayBeEmpty) {
    Credentials cred;
    const List empty = make_list("state");
    cred->state_args = empty.get();
    cred->in_attr_list = empty.get();
    fake::enable_tracing(1);
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 26, 0, kAuthen), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()),
              (Pairs{kUser, kMethod, kTty, kMnemonic, kFlag, kRemote, kIfh, kIpaddr, kPassword, kUnique}));
    for (const std::string &trace : fake::traces_of(1)) {
        EXPECT_EQ(trace.find("Failed"), std::string::npos) << trace;
    }
}

// The list of the request itself ends, too.
TEST(UsercredLists, MayBeTheRequestItself) {
    const List list = make_list("request", {u32(1, 1)});
    aaa_usercred_t cred{};
    cred.state_args = list.get();
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, list.get(), 2, 0, kAuthen), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{u32(1, 1), u32(39, 0, 0x400), u32(1, 1), u32(39, 0)}));
}

// The value of a pair without bytes at the end of its buffer has the address of
// the next page, which need not be mapped.
TEST(UsercredLists, MayEndAtTheEndOfAPageWithAPairWithoutBytes) {
    aaatest::PageEndList last(281, 1);
    fake::enable_tracing(8);
    aaa_usercred_t cred{};
    cred.state_args = last.get();
    const List authen = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, authen.get(), 2, 0, kAuthen), AAA_OK);
    EXPECT_EQ(pairs_of(authen.get()), (Pairs{u32(39, 0, 0x400), bytes(281, "")}));
    cred.state_args = nullptr;
    cred.in_attr_list = last.get();
    const List plexa = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(&cred, plexa.get(), 26, 0, kAcctStart), AAA_OK);
    const Pairs pairs = pairs_of(plexa.get());
    EXPECT_EQ(std::count(pairs.begin(), pairs.end(), bytes(281, "")), 1);
    std::free(cred.remote_addr);  // found by the platform, owned by the record
}

TEST(UsercredPlexa, EndsWithTheUniqueIdAlsoWithoutAList) {
    Credentials cred;
    cred->in_attr_list = nullptr;
    for (const uint32_t type : {kAuthen, kAcctStart}) {
        const List list = make_list("request");
        ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 26, 0, type), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()).back(), kUnique);
    }
}

TEST(UsercredPlexa, DoesNotReadTheListForOtherServices) {
    Credentials cred;
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 27, 0, kAuthen), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), expected_pairs(kAn, false));
}

// ---- Traces ----------------------------------------------------------------

// "[name][123] ..." with the line number taken out.
std::string without_line(std::string trace) {
    const std::size_t open = trace.find("][");
    const std::size_t close = trace.find(']', open == std::string::npos ? open : open + 1);
    const std::size_t digit = trace.find_first_not_of("0123456789", open + 2);
    if (open != std::string::npos && digit == close && close > open + 2) {
        trace.replace(open + 2, close - open - 2, "LINE");
    }
    return trace;
}

std::vector<fake::Trace> own_traces() {
    std::vector<fake::Trace> traces = fake::traces();
    for (fake::Trace &trace : traces) {
        trace.text = without_line(trace.text);
    }
    return traces;
}

TEST(UsercredTrace, SaysWhatIsAdded) {
    Credentials cred;
    fake::on_check_linetype([](aaa_usercred_t *record) {
        record->line_category = 4;
        std::strcpy(record->line_detail, "vty");
        std::strcpy(record->line_detail2, "exec");
        return 0u;
    });
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 26, 0, kAuthen), AAA_OK);
    const std::vector<fake::Trace> expected = {
        {8, "Updating authen_method 3"},
        {8, "Using ttyname vty0"},
        {1, "[aaa_lib_update_mnemonic_and_flags] entry : is nedd flag : 1"},
        {1, "[aaa_lib_update_mnemonic_and_flags][LINE] add tty mnemonic to list : con0"},
        {8,
         "[aaa_lib_update_mnemonic_and_flags] Not a accounting req, tty: con0, details : vty[exec] catgory: "
         "4"},
        {1, "[aaa_lib_update_mnemonic_and_flags] adding attr AAA_USER_DB_FLAG_62_ATTR"},
        {0, "Add remote addr attribute - 192.0.2.9 (length 9)"},
    };
    EXPECT_EQ(own_traces(), expected);
}

TEST(UsercredTrace, OfAnAccountingRequestSaysSo) {
    Credentials cred;
    cred->ttyname = nullptr;
    fake::libc::set_ttyname("/dev/pts/3");
    const List list = make_list("request");
    ASSERT_EQ(aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 7, 0, 131), AAA_OK);
    const std::vector<fake::Trace> expected = {
        {8, "Updating authen_method 3"},
        {8, "Obtaining and using ttyname /dev/pts/3"},
        {1, "[aaa_lib_update_mnemonic_and_flags] entry : is nedd flag : 0"},
        {1, "[aaa_lib_update_mnemonic_and_flags][LINE] add tty mnemonic to list : con0"},
        {1, "[aaa_lib_update_mnemonic_and_flags] adding attr AAA_USER_DB_FLAG_62_ATTR"},
        {0, "Add remote addr attribute - 192.0.2.9 (length 9)"},
    };
    EXPECT_EQ(own_traces(), expected);
}

// ---- Mnemonic and flag -----------------------------------------------------

TEST(MnemonicAndFlags, RefusesANullRecord) {
    const List list = make_list("request");
    EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(nullptr, list.get(), 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(nullptr, nullptr, 0), AAA_ERR_INVALID_ARG);
    const auto refusal = [](int flag) {
        return std::vector<fake::Trace>{
            {1, "[aaa_lib_update_mnemonic_and_flags] entry : is nedd flag : " + std::to_string(flag)},
            {1, "[aaa_lib_update_mnemonic_and_flags][LINE] Error: Invalid Input : " +
                    std::to_string(static_cast<int32_t>(AAA_ERR_INVALID_ARG))}};
    };
    std::vector<fake::Trace> expected = refusal(1);
    for (const fake::Trace &trace : refusal(0)) {
        expected.push_back(trace);
    }
    EXPECT_EQ(own_traces(), expected);
    EXPECT_TRUE(pairs_of(list.get()).empty());
}

TEST(MnemonicAndFlags, AddsBoth) {
    for (const uint32_t not_accounting : {0u, 1u, 5u}) {
        SCOPED_TRACE(not_accounting);
        fake::clear_journal();
        Credentials cred;
        const List list = make_list("request");
        EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(cred.get(), list.get(), not_accounting), AAA_OK);
        EXPECT_EQ(pairs_of(list.get()), (Pairs{kMnemonic, kFlag}));
        EXPECT_EQ(fake::count("aaa_util_check_linetype"), not_accounting != 0 ? 1u : 0u);
    }
}

TEST(MnemonicAndFlags, AddsTheFlagAloneWithoutAMnemonic) {
    Credentials cred;
    cred->tty_mnemonic = nullptr;
    const List list = make_list("request");
    EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(cred.get(), list.get(), 1), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), Pairs{kFlag});
    EXPECT_TRUE(fake::calls().empty());
}

// An empty mnemonic counts as none, but the line is looked at.
TEST(MnemonicAndFlags, LooksAtTheLineOfAnEmptyMnemonic) {
    Credentials cred;
    char empty[] = "";
    cred->tty_mnemonic = empty;
    const List list = make_list("request");
    EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(cred.get(), list.get(), 1), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), Pairs{kFlag});
    EXPECT_EQ(fake::count("aaa_util_check_linetype"), 1u);
    EXPECT_EQ(
        fake::traces_of(8),
        Texts{"[aaa_lib_update_mnemonic_and_flags] Not a accounting req, tty: , details : [] catgory: 0"});
}

TEST(MnemonicAndFlags, IgnoresWhatTheLineServiceAnswers) {
    fake::answer("aaa_util_check_linetype", AAA_ERR_INVALID_LINE_TYPE);
    Credentials cred;
    const List list = make_list("request");
    EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(cred.get(), list.get(), 1), AAA_OK);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{kMnemonic, kFlag}));
}

// The details need not end in NUL.
TEST(MnemonicAndFlags, TracesLineDetailsOfFullLength) {
    Credentials cred;
    std::memset(cred->line_detail, 'd', sizeof cred->line_detail);
    std::memset(cred->line_detail2, 'e', sizeof cred->line_detail2);
    cred->line_category = 0xFFFFFFFF;
    const List list = make_list("request");
    EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(cred.get(), list.get(), 1), AAA_OK);
    EXPECT_EQ(fake::traces_of(8),
              Texts{"[aaa_lib_update_mnemonic_and_flags] Not a accounting req, tty: con0, details : " +
                    std::string(32, 'd') + "[" + std::string(32, 'e') + "] catgory: -1"});
}

TEST(MnemonicAndFlags, AddsNothingToANullList) {
    Credentials cred;
    EXPECT_EQ(aaa_lib_update_mnemonic_and_flags(cred.get(), nullptr, 0), AAA_OK);
    const std::vector<fake::Trace> expected = {
        {1, "[aaa_lib_update_mnemonic_and_flags] entry : is nedd flag : 0"},
        {1, "[aaa_lib_update_mnemonic_and_flags][LINE] add tty mnemonic to list : con0"},
        {1, "[aaa_lib_update_mnemonic_and_flags] adding attr AAA_USER_DB_FLAG_62_ATTR"},
        {1, "[aaa_lib_update_mnemonic_and_flags] failed to add attr AAA_USER_DB_FLAG_62_ATTR"},
    };
    EXPECT_EQ(own_traces(), expected);
}

// ---- Exhausted memory ------------------------------------------------------

std::size_t room_of(const Pair &pair) {
    return (16 + pair.value.size() + 3) / 4 * 4;
}

// A list with one buffer in which `room` bytes are left.
List list_with_room(std::size_t room) {
    return make_list("request", {bytes(1299, std::string(464 - room, 'f'))});
}

struct Exhausted {
    cerrno code;
    Pairs pairs;
    std::vector<fake::Trace> traces;
};

// Adds the credentials to a list that has room for the pairs before `failing`
// and in which that pair finds no memory.
Exhausted without_memory_for(std::size_t failing, const Pairs &all, int32_t service, uint32_t type) {
    std::size_t room = 0;
    for (std::size_t i = 0; i < failing; ++i) {
        room += room_of(all[i]);
    }
    Credentials cred;
    const List list = list_with_room(room);
    fake::clear_journal();
    fake::enable_tracing(1);
    fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1);
    Exhausted result;
    result.code =
        fail.run([&] { return aaa_util_add_usercred_in_avlist(cred.get(), list.get(), service, 0, type); });
    EXPECT_TRUE(fail.fired());
    EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
    result.pairs = pairs_of(list.get());
    result.pairs.erase(result.pairs.begin());
    result.traces = fake::traces();
    return result;
}

bool traced(const Exhausted &result, const std::string &text) {
    for (const fake::Trace &trace : result.traces) {
        if (trace == fake::Trace{1, text}) {
            return true;
        }
    }
    return false;
}

class UsercredMemory : public testing::Test {
  protected:
    void SetUp() override {
        if (!fake::FailAlloc::available()) {
            GTEST_SKIP() << "allocations cannot be made to fail in this build";
        }
    }
};

// Whether the failure of a pair ends the call or is passed over.
TEST_F(UsercredMemory, IsReportedForSomePairsAndPassedOverForOthers) {
    const Pairs all = expected_pairs(kPlexa, false);
    for (std::size_t i = 0; i < all.size(); ++i) {
        SCOPED_TRACE(all[i].type);
        const Exhausted result = without_memory_for(i, all, 26, kAuthen);
        Pairs expected(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(i));
        const auto rest = [&](std::size_t from) {
            return Pairs(all.begin() + static_cast<std::ptrdiff_t>(from), all.end());
        };
        switch (all[i].type) {
            case 61:  // the flag is left out with the mnemonic
                expected = expected + rest(i + 2);
                break;
            case 62:
                expected = expected + rest(i + 1);
                break;
            case 20:  // mnemonic and flag are added before the failure is returned
                expected = expected + Pairs{kMnemonic, kFlag};
                break;
            case 280:
                expected = expected + Pairs{kSupplied, kUnique};
                EXPECT_TRUE(
                    traced(result, "Failed to copy state args to request, ignoring - Not enough memory"));
                break;
            case 281:
                expected = expected + Pairs{kSupplied, kUnique};
                EXPECT_TRUE(
                    traced(result, "Failed to copy state args to request, ignoring - Not enough memory"));
                break;
            case 275:
                expected = expected + Pairs{kUnique};
                EXPECT_TRUE(
                    traced(result,
                           "Failed to copy in_attr_list provided byplexa service to request, ignoring - "
                           "Not enough memory"));
                break;
            default:
                break;
        }
        const bool passed_over = all[i].type == 61 || all[i].type == 62 || all[i].type == 280 ||
                                 all[i].type == 281 || all[i].type == 275;
        EXPECT_EQ(result.code, passed_over ? AAA_OK : AAA_ERR_NOMEM);
        EXPECT_EQ(result.pairs, expected);
        EXPECT_FALSE(traced(result, "Failed to add mnemonic and flag information to req"));
    }
}

// After a failure neither the state arguments nor the pairs that follow them are
// copied.
TEST_F(UsercredMemory, LeavesTheStateArgumentsOutAfterAFailure) {
    const Pairs all = {
        kUser, kMethod, kRemote, kIfh, kIpaddr, kPassword, bytes(14, std::string("\x5A") + "dat")};
    for (std::size_t i = 3; i < all.size(); ++i) {
        SCOPED_TRACE(all[i].type);
        const Exhausted result = without_memory_for(i, all, 11, 7);
        EXPECT_EQ(result.code, AAA_ERR_NOMEM);
        EXPECT_EQ(result.pairs, Pairs(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(i)));
    }
}

TEST_F(UsercredMemory, MayFailAnywhereWithoutALeak) {
    for (const int32_t service : {11, 26}) {
        SCOPED_TRACE(service);
        fake::libc::set_ttyname("/dev/pts/7");
        fake::sweep_allocations([&](fake::FailAlloc &fail) {
            Credentials cred;
            cred->ttyname = nullptr;
            cred->remote_addr = nullptr;
            cred.state =
                make_list("state", {bytes(280, std::string(400, 's')), bytes(281, std::string(400, 't'))});
            cred->state_args = cred.state.get();
            const List list = make_list("request");
            const cerrno code = fail.run(
                [&] { return aaa_util_add_usercred_in_avlist(cred.get(), list.get(), service, 0, 5); });
            EXPECT_TRUE(code == AAA_OK || (fail.fired() && code == AAA_ERR_NOMEM)) << code;
            EXPECT_STREQ(aaatest::verify_list(list.get()).fault, "");
            if (!fail.fired()) {
                EXPECT_EQ(pairs_of(list.get()).size(), service == 11 ? 9u : 13u);
            }
        });
    }
}

// Without memory for the address of the platform the result is "no memory".
TEST_F(UsercredMemory, IsReportedForTheRemoteAddress) {
    Credentials cred;
    cred->remote_addr = nullptr;
    const List list = make_list("request", {u32(1, 1)});
    fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1);
    EXPECT_EQ(
        fail.run([&] { return aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 11, 0, kAcctStart); }),
        AAA_ERR_NOMEM);
    EXPECT_EQ(fake::count("aaa_util_find_line_remote_addr"), 0u);
    EXPECT_EQ(cred->remote_addr, nullptr);
    EXPECT_EQ(pairs_of(list.get()), (Pairs{u32(1, 1), kUser, kMethod}));
}

// With the flag off the library does not ask for the text of the failure.
TEST_F(UsercredMemory, TracesIgnoredFailuresOnlyWhenAsked) {
    const Pairs all = expected_pairs(kFramed, false);
    Credentials cred;
    std::size_t room = 0;
    for (std::size_t i = 0; i < 5; ++i) {
        room += room_of(all[i]);
    }
    const List list = list_with_room(room);
    fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1);
    EXPECT_EQ(
        fail.run([&] { return aaa_util_add_usercred_in_avlist(cred.get(), list.get(), 2, 0, kAuthen); }),
        AAA_OK);
    EXPECT_TRUE(fail.fired());
    EXPECT_TRUE(fake::traces_of(1).empty());
    EXPECT_EQ(fake::count("cerr_strerror"), 0u);
}

}  // namespace
