// SPDX-License-Identifier: Apache-2.0
//
// Names of the enumerations: every value with a name, every hole, and the
// values on both sides of each range.

#include "aaa/names.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "aaa/server_groups.h"
#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

// An independent copy of the tables that the library is built from.
using Names = std::map<uint32_t, std::string>;

const Names kFunctions = {
    {0, "authentication"},
    {1, "authorization"},
    {2, "accounting"},
    {3, "authorization_nacm"},
};
const Names kStatuses = {
    {0, "NO STATUS"}, {1, "PASS"},
    {2, "FAIL"},      {3, "Authentication bypassed"},
    {4, "ERROR"},     {5, "Authorization Not Required"},
    {6, "GETUSER"},   {7, "GETPASS"},
    {8, "GETDATA"},   {9, "ABORT"},
};
const Names kMessageTypes = {
    {0, "NONE"},
    {1, "ASCII LOGIN"},
    {2, "I/B PAP V1"},
    {3, "I/B PAP V0"},
    {4, "O/B PAP"},
    {5, "O/B PAP V0"},
    {6, "I/B CHAP V1"},
    {7, "I/B CHAP V0"},
    {8, "O/B CHAP V1"},
    {9, "O/B CHAP V0"},
    {10, "I/B MSCHAP"},
    {11, "O/B MSCHAP"},
    {12, "ASCII CHPASS"},
    {13, "MSCHAP LOGIN"},
    {14, "ARAP LOGIN"},
    {15, "ACCT START"},
    {16, "ACCT UPDATE"},
    {17, "ACCT STOP"},
    {18, "AUTHOR SHELL"},
    {19, "ENABLE"},
    {20, "PER USER CONFIG"},
    {21, "AUTHOR IPCP"},
    {22, "<Unknown type value>"},
    {23, "FREE RAD AUTHOR DATA"},
    {24, "TERMINATE"},
    {25, "AUTHOR CMD"},
    {26, "AUTHOR TASK"},
    {27, "IN VPDN AUTHOR"},
    {28, "IN VPDN AUTHEN"},
    {29, "IN SBGP AUTHOR"},
    {30, "<Unknown type value>"},
    {31, "AUTHOR IKE"},
};
const Names kOptions = {
    {0, "ASCII LOGIN"}, {1, "I/B PAP V1"},    {2, "I/B PAP V0"},  {3, "O/B PAP"},     {4, "O/B PAP V0"},
    {5, "I/B CHAP V1"}, {6, "I/B CHAP V0"},   {7, "O/B CHAP V1"}, {8, "O/B CHAP V0"}, {9, "I/B MSCHAP"},
    {10, "O/B MSCHAP"}, {11, "MSCHAP LOGIN"}, {12, "ARAP LOGIN"}, {32768, "NOTSET"},
};
const Names kServices = {
    {1, "login"},      {2, "framed"},     {3, "callback-login"}, {4, "callback-framed"},
    {5, "outbound"},   {6, "admin-exec"}, {7, "exec"},           {8, "eventmanager"},
    {11, "ppp"},       {13, "system"},    {14, "cmd"},           {15, "rcmd"},
    {16, "api"},       {17, "ksh"},       {23, "ike"},           {24, "http"},
    {26, "plexa"},     {27, "an"},        {29, "netconf"},       {30, "mgbl-exec"},
    {31, "mgbl-acct"},
};
const Names kAcctOptions = {{128, "START"}, {129, "UPDATE"}, {131, "STOP"}};
const Names kAuthorServices = {
    {7, "exec"},      {8, "eventmanager"}, {11, "network"}, {14, "commands"},
    {15, "commands"}, {20, "network"},     {23, "network"}, {26, "plexa"},
};
const Names kAcctServices = {
    {6, "exec"}, {7, "exec"},     {11, "network"}, {13, "system"}, {14, "commands"},  {15, "commands"},
    {16, "api"}, {20, "network"}, {23, "network"}, {26, "plexa"},  {30, "mgbl-exec"}, {31, "mgbl-rpc"},
};
const Names kDescriptions = {
    {0, "connect"},
    {1, "disconnect"},
    {2, "get large reply"},
    {3, "authentication"},
    {4, "async authentication"},
    {5, "authorization"},
    {6, "async authorization"},
    {7, "accounting"},
    {8, "get callback"},
    {9, "ping"},
    {10, "ikepost"},
    {11, "get taskmap"},
    {12, "free user data"},
    {25, "increment refcount"},
    {26, "decrement refcount"},
};

struct Method {
    uint32_t value;
    const char *symbol;
    const char *display;
    const char *printed;
};
constexpr Method kMethods[] = {
    {0, "AAA_METHOD_NOTSET", "<notset>", "<notset>"},
    {1, "AAA_METHOD_NONE", "none", "none"},
    {2, "AAA_METHOD_LOCAL", "local", "local"},
    {3, "AAA_METHOD_RADIUS", "radius", "radius"},
    {4, "AAA_METHOD_TACACSPLUS", "tacacs+", "tacacs+"},
    {5, "UNKNOWN method", "dsmd", "dsmd"},
    {6, "UNKNOWN method", "sgbp", "sgbp"},
    {7, "AAA_METHOD_ACCTD", "<unknown method value>", nullptr},
    {8, "AAA_METHOD_ERROR", "<error>", "<error>"},
    {9, "AAA_METHOD_IF_AUTHEN", "<unknown method value>", nullptr},
    {10, "UNKNOWN method", "<server group>", "<svr group>"},
    {11, "UNKNOWN method", "<internal use>", "<internal use>"},
    {12, "AAA_METHOD_LINE", "line", "line"},
    {13, "AAA_METHOD_ENABLE", "enable", "enable"},
    {14, "UNKNOWN method", "kerberos 5", "kerberos 5"},
    {15, "UNKNOWN method", "<unknown method value>", nullptr},
    {16, "UNKNOWN method", "last", "last"},
    {17, "AAA_METHOD_SYSLOG", "syslog", "syslog"},
};

constexpr uint32_t kLast = 0xFFFFFFFF;

// Looks up every value up to 70000, the ends of the ranges of signed and
// unsigned numbers, and the values around a wrapped first index.
template <typename F>
void for_each_value(F &&check) {
    for (uint32_t value = 0; value <= 70000; ++value) {
        check(value);
    }
    for (uint32_t back = 0; back < 1000; ++back) {
        check(kLast - back);
        check(0x80000000u - back);
        check(0x80000000u + back);
    }
}

template <typename Function>
void expect_names(Function &&name_of, const Names &names, const char *otherwise) {
    for_each_value([&](uint32_t value) {
        const auto found = names.find(value);
        const char *const expected = found != names.end() ? found->second.c_str() : otherwise;
        const char *const actual = name_of(value);
        ASSERT_NE(actual, nullptr) << value;
        ASSERT_STREQ(actual, expected) << value;
    });
}

TEST(Names, Functions) {
    expect_names(aaa_function_to_string, kFunctions, "<invalid function>");
}

TEST(Names, Statuses) {
    expect_names(aaa_print_status, kStatuses, "<unknown STATUS value>");
}

TEST(Names, MessageTypes) {
    expect_names(aaa_print_msgtype, kMessageTypes, "<Unknown type value>");
    EXPECT_STREQ(aaa_print_msgtype(22), "<Unknown type value>");
    EXPECT_STREQ(aaa_print_msgtype(30), "<Unknown type value>");
    EXPECT_STREQ(aaa_print_msgtype(AAA_MT_AUTHOR_SVC26), "<Unknown type value>");
    EXPECT_STREQ(aaa_print_msgtype(AAA_MT_AUTHOR_SVC29), "<Unknown type value>");
}

TEST(Names, AuthenticationOptions) {
    ASSERT_EQ(kOptions.size(), 14u);
    expect_names(aaa_util_print_authen_option, kOptions, "<Unknown type value>");
    EXPECT_STREQ(aaa_util_print_authen_option(AAA_AO_RSA), "<Unknown type value>");
    EXPECT_STREQ(aaa_util_print_authen_option(32768), "NOTSET");
}

// The two numberings look alike and are not.
TEST(Names, AuthenticationOptionsAreNotMessageTypes) {
    for (uint32_t option = 0; option <= 10; ++option) {
        EXPECT_STREQ(aaa_util_print_authen_option(option), aaa_print_msgtype(option + 1));
    }
    EXPECT_STREQ(aaa_util_print_authen_option(11), aaa_print_msgtype(13));
    EXPECT_STREQ(aaa_util_print_authen_option(12), aaa_print_msgtype(14));
}

TEST(Names, AccountingOptions) {
    expect_names([](uint32_t value) { return aaa_print_acct_options(static_cast<int32_t>(value)); },
                 kAcctOptions, "<unknown options>");
    EXPECT_STREQ(aaa_print_acct_options(AAA_ACCT_HOLE_OPT), "<unknown options>");
}

TEST(Names, Services) {
    ASSERT_EQ(kServices.size(), 21u);
    expect_names([](uint32_t value) { return aaa_print_service(static_cast<int32_t>(value)); }, kServices,
                 "<unknown SERVICE value>");
    EXPECT_STREQ(aaa_print_service(0), "<unknown SERVICE value>");
    EXPECT_STREQ(aaa_print_service(32), "<unknown SERVICE value>");
    EXPECT_STREQ(aaa_print_service(26), "plexa");
}

// ---- Services of a function ------------------------------------------------

TEST(ServiceWords, AuthenticationKnowsThree) {
    expect_names([](uint32_t service) { return aaa_service_to_string(AAA_FUNC_AUTHEN, service); },
                 {{11, "ppp"}, {26, "plexa"}}, "login");
    EXPECT_STREQ(aaa_service_to_string(0, 99), "login");
}

TEST(ServiceWords, Authorization) {
    expect_names([](uint32_t service) { return aaa_service_to_string(AAA_FUNC_AUTHOR, service); },
                 kAuthorServices, "<invalid service>");
    EXPECT_STREQ(aaa_service_to_string(1, 6), "<invalid service>");
}

TEST(ServiceWords, Accounting) {
    expect_names([](uint32_t service) { return aaa_service_to_string(AAA_FUNC_ACCT, service); },
                 kAcctServices, "<invalid service>");
    EXPECT_STREQ(aaa_service_to_string(2, 6), "exec");
}

TEST(ServiceWords, OtherFunctionsAreInvalid) {
    for_each_value([](uint32_t function) {
        if (function > 2) {
            ASSERT_STREQ(aaa_service_to_string(static_cast<int32_t>(function), AAA_SVC_EXEC),
                         "<invalid function>");
        }
    });
    EXPECT_STREQ(aaa_service_to_string(3, 7), "<invalid function>");
    EXPECT_STREQ(aaa_service_to_string(-1, 7), "<invalid function>");
}

// ---- Methods ---------------------------------------------------------------

Names method_column(const char *Method::*column) {
    Names names;
    for (const Method &method : kMethods) {
        if (method.*column != nullptr) {
            names[method.value] = method.*column;
        }
    }
    return names;
}

TEST(Methods, SymbolicNames) {
    expect_names(aaa_method_name, method_column(&Method::symbol), "UNKNOWN method");
}

TEST(Methods, DisplayNames) {
    const Names names = method_column(&Method::display);
    expect_names(aaa_util_print_method, names, "<unknown method value>");
    expect_names(aaa_util_print_authen_method, names, "<unknown method value>");
}

struct Free {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

bool is_group_number(uint32_t value) {
    return value >= 1000 && value <= 4999;
}

TEST(Methods, PrintedNamesAreCopies) {
    const Names names = method_column(&Method::printed);
    ASSERT_EQ(names.size(), 15u);
    for_each_value([&](uint32_t value) {
        if (is_group_number(value)) {
            return;
        }
        const Text text(aaa_print_method(static_cast<int32_t>(value)));
        const auto found = names.find(value);
        if (found == names.end()) {
            ASSERT_EQ(text, nullptr) << value;
            return;
        }
        ASSERT_STREQ(text.get(), found->second.c_str());
        // A heap copy, which may be written to.
        text.get()[0] = '?';
        const Text again(aaa_print_method(static_cast<int32_t>(value)));
        ASSERT_STREQ(again.get(), found->second.c_str());
    });
}

TEST(Methods, ThreeHaveNoPrintedName) {
    for (const int32_t method : {AAA_METHOD_ACCTD, AAA_METHOD_IF_AUTHEN, AAA_METHOD_VALUE15}) {
        EXPECT_EQ(aaa_print_method(method), nullptr) << method;
    }
}

TEST(Methods, ServerGroupHasTwoNames) {
    EXPECT_STREQ(aaa_util_print_method(10), "<server group>");
    EXPECT_STREQ(Text(aaa_print_method(10)).get(), "<svr group>");
}

TEST(Methods, PrintedNameOutOfMemoryIsNull) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const Text text(fail.run([] { return aaa_print_method(AAA_METHOD_RADIUS); }));
        EXPECT_EQ(text == nullptr, fail.fired());
    });
}

// ---- Server groups as methods ----------------------------------------------

void put_group(uint32_t number, const char *name) {
    char path[80];
    std::snprintf(path, sizeof path, "/oper/aaa/gl/group-server/sg_num_map/radius/0x%x", number);
    fake::sysdb::put_string(path, name);
}

TEST(Methods, GroupNumbersGiveTheGroupsName) {
    put_group(1000, "first");
    put_group(2500, "middle");
    put_group(4999, "last");
    EXPECT_STREQ(Text(aaa_print_method(1000)).get(), "first");
    EXPECT_STREQ(Text(aaa_print_method(2500)).get(), "middle");
    EXPECT_STREQ(Text(aaa_print_method(4999)).get(), "last");
}

TEST(Methods, UnknownGroupNumbersGiveNull) {
    put_group(1001, "other");
    EXPECT_EQ(aaa_print_method(1000), nullptr);
    EXPECT_GT(fake::count("sysdb_item_get"), 0u);
}

TEST(Methods, OtherNumbersDoNotReadTheDatabase) {
    put_group(999, "below");
    put_group(5000, "above");
    EXPECT_EQ(aaa_print_method(999), nullptr);
    EXPECT_EQ(aaa_print_method(5000), nullptr);
    EXPECT_EQ(aaa_print_method(-1), nullptr);
    std::free(aaa_print_method(AAA_METHOD_RADIUS));
    EXPECT_EQ(fake::count("sysdb_item_get"), 0u);
    EXPECT_EQ(fake::count("_sysdb_bind"), 0u);
}

TEST(Methods, ConstantNamesOfGroupNumbersAreNotLookedUp) {
    EXPECT_STREQ(aaa_util_print_method(1000), "<unknown method value>");
    EXPECT_STREQ(aaa_method_name(1000), "UNKNOWN method");
    EXPECT_TRUE(fake::calls().empty());
}

// ---- Envelope --------------------------------------------------------------

TEST(Names, MessageDescriptions) {
    expect_names(aaa_util_msg_type_desc, kDescriptions, "<unknown>");
    // Type 27 is sent, but has no description.
    EXPECT_STREQ(aaa_util_msg_type_desc(AAA_REQ_LDAP_POLICY_SEARCH), "<unknown>");
    // Kept: 24 and 25 are sent to increment and decrement, 25 and 26 are described so.
    EXPECT_STREQ(aaa_util_msg_type_desc(AAA_REQ_COMPOSED_INCREMENT), "<unknown>");
    EXPECT_STREQ(aaa_util_msg_type_desc(AAA_REQ_COMPOSED_DECREMENT), "increment refcount");
    EXPECT_STREQ(aaa_util_msg_type_desc(AAA_REQ_DESC_DECREMENT), "decrement refcount");
}

// ---- Enumerators -----------------------------------------------------------

// The display names say which number an enumerator must have.
TEST(Enumerators, HaveTheNumbersOfTheirNames) {
    EXPECT_STREQ(aaa_function_to_string(AAA_FUNC_AUTHOR_NACM), "authorization_nacm");
    EXPECT_STREQ(aaa_print_status(AAA_STAT_NOT_REQUIRED), "Authorization Not Required");
    EXPECT_STREQ(aaa_print_status(AAA_STAT_ABORT), "ABORT");
    EXPECT_STREQ(aaa_print_msgtype(AAA_MT_AUTHOR_CMD), "AUTHOR CMD");
    EXPECT_STREQ(aaa_print_msgtype(AAA_MT_FREE_RAD_AUTHOR_DATA), "FREE RAD AUTHOR DATA");
    EXPECT_STREQ(aaa_print_msgtype(AAA_MT_AUTHOR_IKE), "AUTHOR IKE");
    EXPECT_STREQ(aaa_util_print_authen_option(AAA_AO_ARAP_LOGIN), "ARAP LOGIN");
    EXPECT_STREQ(aaa_util_print_authen_option(AAA_AO_NOTSET), "NOTSET");
    EXPECT_STREQ(aaa_print_acct_options(AAA_ACCT_STOP_OPT), "STOP");
    EXPECT_STREQ(aaa_print_service(AAA_SVC_LOGIN), "login");
    EXPECT_STREQ(aaa_print_service(AAA_SVC_NETCONF), "netconf");
    EXPECT_STREQ(aaa_print_service(AAA_SVC_MGBL_ACCT), "mgbl-acct");
    EXPECT_STREQ(aaa_method_name(AAA_METHOD_TACACSPLUS), "AAA_METHOD_TACACSPLUS");
    EXPECT_STREQ(aaa_method_name(AAA_METHOD_SYSLOG), "AAA_METHOD_SYSLOG");
}

TEST(Enumerators, KeywordsHaveTheirOwnNumbers) {
    const Names keywords = {
        {0, "none"},         {1, "radius"},         {2, "tacacs"},    {3, "tacacs+"},          {4, "local"},
        {5, "enable"},       {6, "default"},        {7, "if-needed"}, {8, "if-authenticated"}, {9, "krb5"},
        {10, "krb5-telnet"}, {11, "krb5-instance"}, {12, "line"},     {13, "local-case"},      {14, "guest"},
        {15, "auth-guest"},  {16, "rcmd"},          {17, "diameter"},
    };
    ASSERT_EQ(keywords.size(), 18u);
    for (const auto &[index, word] : keywords) {
        EXPECT_STREQ(aaa_util_get_sg_defined_name(index), word.c_str());
    }
    EXPECT_EQ(aaa_util_get_sg_defined_name(18), nullptr);
    EXPECT_STREQ(aaa_util_get_sg_defined_name(AAA_KW_TACACS), "tacacs");
    EXPECT_STREQ(aaa_util_get_sg_defined_name(AAA_KW_DIAMETER), "diameter");
}

}  // namespace
