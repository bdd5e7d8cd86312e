// SPDX-License-Identifier: Apache-2.0

#include "net/certificate_names.hpp"

#include <arpa/inet.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace net {

namespace {

constexpr int kMostNames = 8;
constexpr std::size_t kMostBytes = 128;  // of one name

std::string_view bytes_of(const ASN1_STRING *string) {
    return {reinterpret_cast<const char *>(ASN1_STRING_get0_data(string)),
            static_cast<std::size_t>(ASN1_STRING_length(string))};
}

std::string quoted(std::string_view name) {
    std::string text(name.substr(0, kMostBytes));
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return byte < ' ' || byte > '~' || byte == '"'; }, '?');
    return '"' + text + (name.size() > kMostBytes ? "..." : "") + '"';
}

// Empty for a name of another kind, such as one of a mailbox, which is never compared.
std::string text_of(const GENERAL_NAME *name) {
    if (name->type == GEN_DNS) {
        return quoted(bytes_of(name->d.dNSName));
    }
    if (name->type != GEN_IPADD) {
        return "";
    }
    const std::string_view address = bytes_of(name->d.iPAddress);
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.size() == 4 ? AF_INET : AF_INET6, address.data(), text, sizeof text);
    return address.size() == 4 || address.size() == 16 ? quoted(text) : "";
}

std::string names_of(x509_st *certificate) {
    const std::unique_ptr<GENERAL_NAMES, decltype(&GENERAL_NAMES_free)> names(
        static_cast<GENERAL_NAMES *>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
        GENERAL_NAMES_free);
    std::string text;
    const int count = names != nullptr ? sk_GENERAL_NAME_num(names.get()) : 0;
    for (int i = 0, shown = 0; i < count; ++i) {
        const std::string name = text_of(sk_GENERAL_NAME_value(names.get(), i));
        if (!name.empty() && shown++ == kMostNames) {
            return text + ", and others";
        }
        text += (text.empty() || name.empty() ? "" : ", ") + name;
    }
    return text;
}

}  // namespace

std::string name_mismatch(x509_st *certificate, const std::string &expected) {
    const std::string names = certificate != nullptr ? names_of(certificate) : "";
    return quoted(expected) + " is expected, and the certificate " +
           (names.empty() ? "has no alternative name of a host or an address; its common name does not count"
                          : "is for " + names) +
           "; correct the server's name in its settings, or its certificate";
}

}  // namespace net
