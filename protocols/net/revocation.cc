// SPDX-License-Identifier: Apache-2.0

#include "net/revocation.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace net {

namespace {

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using List = std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)>;

std::string text_of(BIO *memory) {
    char *bytes = nullptr;
    const long size = BIO_ctrl(memory, BIO_CTRL_INFO, 0, static_cast<void *>(&bytes));
    return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : "";
}

std::string issuer_of(const X509_CRL *list) {
    const Bio memory(BIO_new(BIO_s_mem()), BIO_free);
    const bool printed = memory != nullptr &&
                         X509_NAME_print_ex(memory.get(), X509_CRL_get_issuer(list), 0, XN_FLAG_RFC2253) > 0;
    return printed ? text_of(memory.get()) : "an unknown authority";
}

// Why a list cannot be used now; empty when it can. A list without the time of the next one is
// good until it is replaced.
std::string defect_of(const X509_CRL *list) {
    const ASN1_TIME *next = X509_CRL_get0_nextUpdate(list);
    if (next == nullptr || X509_cmp_current_time(next) > 0) {
        return "";
    }
    const Bio memory(BIO_new(BIO_s_mem()), BIO_free);
    const bool printed = memory != nullptr && ASN1_TIME_print(memory.get(), next) == 1;
    return "the revocation list of " + issuer_of(list) + " is out of date since " +
           (printed ? text_of(memory.get()) : "some time") + "; get the next one, and reload";
}

List next_list(BIO *file) {
    return {PEM_read_bio_X509_CRL(file, nullptr, nullptr, nullptr), X509_CRL_free};
}

}  // namespace

bool use_revocation_lists(ssl_ctx_st *context, const std::string &file, std::string &error) {
    errno = 0;
    const Bio source(BIO_new_file(file.c_str(), "rb"), BIO_free);
    if (source == nullptr) {
        error = file + ": " + (errno != 0 ? std::strerror(errno) : "it cannot be opened");
        ERR_clear_error();
        return false;
    }
    X509_STORE *store = SSL_CTX_get_cert_store(context);
    List list = next_list(source.get());
    if (list == nullptr && BIO_seek(source.get(), 0) == 0) {
        list.reset(d2i_X509_CRL_bio(source.get(), nullptr));
    }
    if (list == nullptr) {
        error = file + ": it holds no revocation list, neither in PEM nor in DER form";
    }
    while (list != nullptr && error.empty()) {
        if (const std::string defect = defect_of(list.get()); !defect.empty()) {
            error = file + ": " + defect;
        } else if (X509_STORE_add_crl(store, list.get()) != 1) {
            error = file + ": not enough memory for the revocation list of " + issuer_of(list.get());
        }
        list = next_list(source.get());
    }
    ERR_clear_error();
    // Of the whole chain: an authority below another one can be revoked too.
    return error.empty() &&
           X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL) == 1;
}

std::string advice_on_refusal(long verify_result) {
    switch (verify_result) {
        case X509_V_ERR_CRL_HAS_EXPIRED:
            return "; renew the file of revocation lists, and reload";
        case X509_V_ERR_UNABLE_TO_GET_CRL:
        case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
            return "; the file of revocation lists needs one of each authority in the server's chain";
        case X509_V_ERR_CRL_SIGNATURE_FAILURE:
            return "; the revocation list is not of the authority that it names";
        default:
            return "";
    }
}

}  // namespace net
