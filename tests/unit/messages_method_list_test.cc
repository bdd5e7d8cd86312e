// SPDX-License-Identifier: Apache-2.0
//
// The choice of the method list of a request: the caller's, the one of the caller's
// line, or "default". Services and failures differ between the requests.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/request_checks.hpp"
#include "support/user_requests.hpp"

namespace {

using namespace messages;

using AuthenMethodList = RequestTest;
using AuthorMethodList = RequestTest;
using AcctMethodList = RequestTest;

// ---- Authentication --------------------------------------------------------

TEST_F(AuthenMethodList, ANameOfTheCallerAsksNoOne) {
    AuthenRequest request;
    EXPECT_EQ(method_list_of(composed(request)), std::string("console") + '\0');
    EXPECT_TRUE(fake::calls(kLineCalls).empty());
}

TEST_F(AuthenMethodList, WithoutANameTheLineIsAsked) {
    expect_the_line_is_asked<AuthenRequest>(0);
    EXPECT_EQ(own_traces().back(), (fake::Trace{1, "Using authentication methodlist 'vty-list'"}));
}

TEST_F(AuthenMethodList, ALineWithoutAListGivesDefault) {
    fake::answer("find_method_for_line", 0);
    AuthenRequest request;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
}

TEST_F(AuthenMethodList, ApiAndIkeNeverAskTheLine) {
    for (const int32_t service : {16, 23}) {
        SCOPED_TRACE(service);
        AuthenRequest request;
        request.service = service;
        request.methodlist = nullptr;
        EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    }
    EXPECT_TRUE(fake::calls(kLineCalls).empty());
}

TEST_F(AuthenMethodList, ALineCardNeverAsksTheLine) {
    fake::answer("platform_am_i_lc", 1);
    AuthenRequest request;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    EXPECT_EQ(fake::calls(kLineCalls), (std::vector<std::string>{"platform_am_i_lc()"}));
}

TEST_F(AuthenMethodList, KshDoesNotAskTheLineEither) {
    AuthenRequest request;
    request.service = 17;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    EXPECT_EQ(fake::calls(kLineCalls), (std::vector<std::string>{"platform_am_i_lc()"}));
}

TEST_F(AuthenMethodList, HttpMayBeWithoutATerminal) {
    fake::answer("find_method_for_line", kNoTerminal);
    AuthenRequest request;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    EXPECT_EQ(own_traces(), (Traces{{1, "Composing an authentication message"},
                                    {1, "No need to have tty info for API or HTTP service"},
                                    {1, "Using authentication methodlist 'default'"}}));
}

TEST_F(AuthenMethodList, OtherServicesNeedTheTerminal) {
    fake::answer("find_method_for_line", kNoTerminal);
    for (const int32_t service : {1, 7, 11, 14, 26, 0, -1}) {
        SCOPED_TRACE(service);
        AuthenRequest request;
        request.service = service;
        request.methodlist = nullptr;
        EXPECT_EQ(request.compose(0), kNoTerminal);
        EXPECT_TRUE(request.iov.untouched());
    }
}

TEST_F(AuthenMethodList, AnyOtherFailureEndsTheCompose) {
    fake::answer("find_method_for_line", kOtherFailure);
    AuthenRequest request;
    request.methodlist = nullptr;
    Record expected = request.record;
    expected.host(20, 3).host(32, 0);
    EXPECT_EQ(request.compose(0), kOtherFailure);
    EXPECT_TRUE(same_bytes(request.record, expected));
    EXPECT_TRUE(request.iov.untouched());
    EXPECT_EQ(own_traces(), (Traces{{1, "Composing an authentication message"}}));
}

TEST_F(AuthenMethodList, AKnownMethodNeedsNoList) {
    AuthenRequest request;
    request.method = 1;
    EXPECT_EQ(method_list_of(composed(request)), "none");
    request.methodlist = nullptr;
    request.iov.release();
    EXPECT_EQ(method_list_of(composed(request)), "none");
    EXPECT_TRUE(fake::calls(kLineCalls).empty());
}

// ---- Authorization ---------------------------------------------------------

TEST_F(AuthorMethodList, WithoutANameTheLineIsAskedForAuthorization) {
    expect_the_line_is_asked<AuthorRequest>(1);
    EXPECT_EQ(own_traces()[0], (fake::Trace{2, "Using authentication methodlist 'vty-list'"}));
}

TEST_F(AuthorMethodList, ApiIkeKshAndLineCardsDoNotAskTheLine) {
    for (const int32_t service : {16, 17, 23}) {
        SCOPED_TRACE(service);
        char command[] = "show";
        AuthorRequest request;
        request.service = service;
        request.attrs.cmd = service == 16 ? command : nullptr;
        request.methodlist = nullptr;
        EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    }
    fake::answer("platform_am_i_lc", 1);
    AuthorRequest request;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    EXPECT_EQ(fake::count("find_method_for_line"), 0u);
}

TEST_F(AuthorMethodList, Option69MayBeWithoutATerminalAndSaysSoWithTwoBlanks) {
    fake::answer("find_method_for_line", kNoTerminal);
    AuthorRequest request;
    request.option = 69;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    EXPECT_EQ(own_traces(), (Traces{{2, "No controlling terminal,  but ignoring"},
                                    {2, "Using authentication methodlist 'default'"},
                                    {2, "Authorization message composed successfully"}}));
}

TEST_F(AuthorMethodList, HttpNeedsTheTerminalHereUnlikeInAuthentication) {
    fake::answer("find_method_for_line", kNoTerminal);
    for (const uint32_t option : {0u, 68u, 70u, 0x145u}) {
        SCOPED_TRACE(option);
        AuthorRequest request;
        request.option = option;
        request.methodlist = nullptr;
        fake::clear_journal();
        EXPECT_EQ(request.compose(0), kNoTerminal);
        EXPECT_EQ(own_traces(), (Traces{{2, "Failed to compose an authorization message"}}));
    }
}

TEST_F(AuthorMethodList, AnyOtherFailureEndsTheComposeAlsoWithOption69) {
    fake::answer("find_method_for_line", kOtherFailure);
    AuthorRequest request;
    request.option = 69;
    request.methodlist = nullptr;
    EXPECT_EQ(request.compose(0), kOtherFailure);
    EXPECT_TRUE(request.iov.untouched());
}

TEST_F(AuthorMethodList, AKnownMethodNeedsNoList) {
    AuthorRequest request;
    request.method = 2;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), "none");
    EXPECT_TRUE(fake::calls(kLineCalls).empty());
}

// ---- Accounting ------------------------------------------------------------

TEST_F(AcctMethodList, WithoutANameTheLineIsAskedForAccounting) {
    expect_the_line_is_asked<AcctRequest>(2);
}

TEST_F(AcctMethodList, SystemAndApiNeverAskTheLine) {
    for (const int32_t service : {13, 16}) {
        SCOPED_TRACE(service);
        char command[] = "show";
        AcctRequest request;
        request.service = service;
        request.attrs.cmd = command;
        request.methodlist = nullptr;
        EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    }
    EXPECT_TRUE(fake::calls(kLineCalls).empty());
}

TEST_F(AcctMethodList, IkeDoesAskTheLineUnlikeInTheOtherRequests) {
    AcctRequest request;
    request.service = 23;
    request.methodlist = nullptr;
    composed(request);
    EXPECT_EQ(fake::count("find_method_for_line"), 1u);
}

TEST_F(AcctMethodList, KshAndLineCardsDoNotAskTheLine) {
    AcctRequest ksh;
    ksh.service = 17;
    ksh.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(ksh)), std::string("default") + '\0');
    fake::answer("platform_am_i_lc", 1);
    AcctRequest card;
    card.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(card)), std::string("default") + '\0');
    EXPECT_EQ(fake::count("find_method_for_line"), 0u);
}

TEST_F(AcctMethodList, HttpMayBeWithoutATerminal) {
    fake::answer("find_method_for_line", kNoTerminal);
    AcctRequest request;
    request.methodlist = nullptr;
    EXPECT_EQ(method_list_of(composed(request)), std::string("default") + '\0');
    EXPECT_EQ(own_traces()[3], (fake::Trace{3, "No need to have tty info for API or HTTP service"}));
    EXPECT_EQ(own_traces()[4], (fake::Trace{3, "Using authentication methodlist 'default'"}));
}

TEST_F(AcctMethodList, OtherServicesNeedTheTerminalAlsoWithOption69) {
    fake::answer("find_method_for_line", kNoTerminal);
    for (const int32_t service : {1, 7, 23}) {
        SCOPED_TRACE(service);
        AcctRequest request;
        request.option = 69;
        request.service = service;
        request.methodlist = nullptr;
        EXPECT_EQ(request.compose(0), kNoTerminal);
        EXPECT_TRUE(request.iov.untouched());
    }
}

TEST_F(AcctMethodList, AnyOtherFailureEndsTheCompose) {
    fake::answer("find_method_for_line", kOtherFailure);
    AcctRequest request;
    request.methodlist = nullptr;
    EXPECT_EQ(request.compose(0), kOtherFailure);
    EXPECT_TRUE(request.iov.untouched());
    EXPECT_TRUE(fake::calls("conf_get_timezone_string").empty());
}

TEST_F(AcctMethodList, AKnownMethodNeedsNoList) {
    AcctRequest request;
    request.method = 17;
    EXPECT_EQ(method_list_of(composed(request)), "none");
    EXPECT_TRUE(fake::calls(kLineCalls).empty());
}

}  // namespace
