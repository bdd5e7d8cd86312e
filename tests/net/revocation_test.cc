// SPDX-License-Identifier: Apache-2.0

#include "net/revocation.hpp"

#include <gtest/gtest.h>

#include "net/tls_fixture.hpp"

namespace net {
namespace {

using net_test::Identity;
using net_test::make_crl;
using net_test::make_identity;

constexpr char kRefused[] = "the server's certificate is refused: ";

class Revocation : public net_test::Tls {
  protected:
    // What came of a connection to a server when the file of lists has a text.
    std::string with(const std::string &lists, const Identity &server) {
        TlsSettings settings;
        settings.crl_file = file("lists.pem", lists);
        return refusal(server, "aaa.test", trusting(settings));
    }
    std::string error_of(const std::string &crl_file) {
        std::string error;
        TlsSettings settings;
        settings.ca_file = file("ca.pem", authority_.certificate_pem());
        settings.crl_file = crl_file;
        EXPECT_EQ(TlsContext::make(settings, error), nullptr);
        return error;
    }

    Identity good_ = server_identity("DNS:aaa.test");
    Identity bad_ = server_identity("DNS:aaa.test");
};

TEST_F(Revocation, RefusesWhatAListNames) {
    const std::string list = make_crl(authority_, {&bad_});
    EXPECT_EQ(with(list, good_), "");
    EXPECT_EQ(with(list, bad_), std::string(kRefused) + "certificate revoked");
    EXPECT_EQ(refusal(bad_, "aaa.test", trusting()), "") << "without lists nothing is looked up";
}

TEST_F(Revocation, RefusesAChainWithoutAListOfEachAuthority) {
    const Identity lower = make_identity(
        {.common_name = "Lower", .alternative_names = "", .is_authority = true, .issuer = &authority_});
    const Identity stranger =
        make_identity({.common_name = "Stranger", .alternative_names = "", .is_authority = true});
    const std::string needs =
        "unable to get certificate CRL; the file of revocation lists needs one of each "
        "authority in the server's chain";
    EXPECT_EQ(with(make_crl(stranger, {}), good_), kRefused + needs);
    EXPECT_EQ(with(make_crl(stranger, {}) + make_crl(authority_, {}), good_), "");
    EXPECT_NE(with(make_crl(lower, {}), good_), "");
}

// Otherwise anyone who can replace the file could revoke, or rather keep from being revoked.
TEST_F(Revocation, RefusesAListThatTheAuthorityHasNotSigned) {
    const Identity forger =
        make_identity({.common_name = "Authority", .alternative_names = "", .is_authority = true});
    EXPECT_NE(with(make_crl(forger, {}), good_), "");
}

TEST_F(Revocation, RefusesListsThatAreOutOfDate) {
    const std::string error = error_of(file("old.pem", make_crl(authority_, {}, -7200, -3600)));
    EXPECT_NE(error.find("old.pem: the revocation list of CN=Authority is out of date since "),
              std::string::npos)
        << error;
    EXPECT_NE(error.find("get the next one, and reload"), std::string::npos) << error;
    EXPECT_NE(error_of(file("mixed.pem", make_crl(authority_, {}) + make_crl(authority_, {}, -7200, -3600))),
              "");
    EXPECT_EQ(with(make_crl(authority_, {}, 3600, 7200), good_),
              std::string(kRefused) + "CRL is not yet valid");
    EXPECT_EQ(advice_on_refusal(X509_V_ERR_CRL_HAS_EXPIRED),
              "; renew the file of revocation lists, and reload");
}

TEST_F(Revocation, ReadsOneListInDerForm) {
    std::unique_ptr<BIO, decltype(&BIO_free)> pem(BIO_new(BIO_s_mem()), BIO_free);
    const std::string text = make_crl(authority_, {&bad_});
    BIO_write(pem.get(), text.data(), static_cast<int>(text.size()));
    X509_CRL *list = PEM_read_bio_X509_CRL(pem.get(), nullptr, nullptr, nullptr);
    unsigned char *bytes = nullptr;
    const int size = i2d_X509_CRL(list, &bytes);
    ASSERT_GT(size, 0);
    const std::string der(reinterpret_cast<char *>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    X509_CRL_free(list);
    EXPECT_EQ(with(der, good_), "");
    EXPECT_EQ(with(der, bad_), std::string(kRefused) + "certificate revoked");
}

TEST_F(Revocation, NamesAFileThatCannotBeUsed) {
    EXPECT_EQ(error_of("/nonexistent/lists"), "/nonexistent/lists: No such file or directory");
    for (const std::string &text : {std::string(), std::string("no list\n"), authority_.certificate_pem()}) {
        const std::string error = error_of(file("none", text));
        EXPECT_NE(error.find("it holds no revocation list, neither in PEM nor in DER form"),
                  std::string::npos)
            << error;
    }
}

}  // namespace
}  // namespace net
