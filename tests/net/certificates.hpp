// SPDX-License-Identifier: Apache-2.0
//
// Certificates for tests, made when they are needed: in a file of the tree they would expire.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace net_test {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

// A key and a certificate for it.
struct Identity {
    Key key{nullptr, EVP_PKEY_free};
    Certificate certificate{nullptr, X509_free};

    std::string key_pem() const;
    std::string certificate_pem() const;
};

struct Wanted {
    std::string common_name;
    std::string
        alternative_names;  // as in OpenSSL's configuration: "DNS:aaa.test, IP:127.0.0.1"; may be empty
    bool is_authority = false;
    long begins = -3600;  // seconds from now
    long ends = 3600;
    const Identity *issuer = nullptr;  // null: signed by itself
};

Identity make_identity(const Wanted &wanted);

// A revocation list of an authority in PEM form.
std::string make_crl(const Identity &authority, const std::vector<const Identity *> &revoked,
                     long begins = -3600, long ends = 3600);

}  // namespace net_test
