// SPDX-License-Identifier: Apache-2.0

#include "net/certificate_names.hpp"

#include <gtest/gtest.h>

#include <string>

#include "net/certificates.hpp"

namespace net {
namespace {

std::string mismatch_of(const std::string &names) {
    const net_test::Identity identity =
        net_test::make_identity({.common_name = "server", .alternative_names = names});
    return name_mismatch(identity.certificate.get(), "aaa.test");
}

void expect_names(const std::string &names, const std::string &text) {
    EXPECT_EQ(mismatch_of(names), "\"aaa.test\" is expected, and the certificate " + text +
                                      "; correct the server's name in its settings, or its certificate");
}

TEST(CertificateNames, AreThoseOfHostsAndAddresses) {
    expect_names("DNS:one.test", "is for \"one.test\"");
    expect_names("email:admin@one.test, DNS:one.test, URI:http://two.test/, IP:192.0.2.1, IP:2001:db8::1",
                 "is for \"one.test\", \"192.0.2.1\", \"2001:db8::1\"");
    const std::string none =
        "has no alternative name of a host or an address; its common name does not count";
    expect_names("", none);
    expect_names("email:admin@one.test", none);
    EXPECT_NE(name_mismatch(nullptr, "aaa.test").find(none), std::string::npos);
}

TEST(CertificateNames, AreCut) {
    std::string many = "DNS:name0.test";
    std::string shown = "is for \"name0.test\"";
    for (int i = 1; i < 20; ++i) {
        const std::string name = "name" + std::to_string(i) + ".test";
        many += ", DNS:" + name;
        shown += i < 8 ? ", \"" + name + "\"" : "";
    }
    expect_names(many, shown + ", and others");
    expect_names("DNS:" + std::string(1000, 'x'), "is for \"" + std::string(128, 'x') + "...\"");
}

// They are in log lines, which an administrator reads on a terminal.
TEST(CertificateNames, HoldNothingThatActsOnATerminal) {
    expect_names("DNS:a\x1b[2J\n\"b\x7f\xc2\x9b", "is for \"a?[2J??b???\"");
}

}  // namespace
}  // namespace net
