// SPDX-License-Identifier: Apache-2.0
//
// Certificates for tests.
#include "net/certificates.hpp"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace net_test {

namespace {

void add_extension(X509 *certificate, X509 *issuer, int kind, const std::string &value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    ASSERT_NE(extension, nullptr) << value;
    EXPECT_EQ(X509_add_ext(certificate, extension, -1), 1);
    X509_EXTENSION_free(extension);
}

template <typename Write>
std::string pem(Write write) {
    std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
    EXPECT_EQ(write(memory.get()), 1);
    char *bytes;
    const long size = BIO_ctrl(memory.get(), BIO_CTRL_INFO, 0, &bytes);
    return std::string(bytes, static_cast<std::size_t>(size));
}

}  // namespace

std::string Identity::key_pem() const {
    return pem([&](BIO *bio) {
        return PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

std::string Identity::certificate_pem() const {
    return pem([&](BIO *bio) { return PEM_write_bio_X509(bio, certificate.get()); });
}

Identity make_identity(const Wanted &wanted) {
    static long serial = 0;
    Identity made;
    made.key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    made.certificate.reset(X509_new());
    X509 *certificate = made.certificate.get();
    X509 *issuer = wanted.issuer != nullptr ? wanted.issuer->certificate.get() : certificate;
    EVP_PKEY *signer = wanted.issuer != nullptr ? wanted.issuer->key.get() : made.key.get();
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate), wanted.begins);
    X509_gmtime_adj(X509_getm_notAfter(certificate), wanted.ends);
    X509_set_pubkey(certificate, made.key.get());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char *>(wanted.common_name.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    add_extension(certificate, issuer, NID_basic_constraints,
                  wanted.is_authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
    if (!wanted.alternative_names.empty()) {
        add_extension(certificate, issuer, NID_subject_alt_name, wanted.alternative_names);
    }
    EXPECT_GT(X509_sign(certificate, signer, EVP_sha256()), 0);
    return made;
}

std::string make_crl(const Identity &authority, const std::vector<const Identity *> &revoked, long begins,
                     long ends) {
    const std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> list(X509_CRL_new(), X509_CRL_free);
    X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(authority.certificate.get()));
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> time(ASN1_TIME_new(), ASN1_TIME_free);
    X509_CRL_set1_lastUpdate(list.get(), X509_gmtime_adj(time.get(), begins));
    for (const Identity *identity : revoked) {
        X509_REVOKED *entry = X509_REVOKED_new();
        X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(identity->certificate.get()));
        X509_REVOKED_set_revocationDate(entry, time.get());
        EXPECT_EQ(X509_CRL_add0_revoked(list.get(), entry), 1);
    }
    X509_CRL_set1_nextUpdate(list.get(), X509_gmtime_adj(time.get(), ends));
    EXPECT_GT(X509_CRL_sign(list.get(), authority.key.get(), EVP_sha256()), 0);
    return pem([&](BIO *bio) { return PEM_write_bio_X509_CRL(bio, list.get()); });
}

}  // namespace net_test
