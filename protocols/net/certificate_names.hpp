// SPDX-License-Identifier: Apache-2.0
//
// The names that a certificate is for, as text for log lines.
#pragma once

#include <string>

struct x509_st;

namespace net {

// What the certificate of a server, which was refused for its names, is for, and which name was
// expected. Whoever answers at the server's address can choose the names, so they are cut, and
// contain printable ASCII only.
std::string name_mismatch(x509_st *certificate, const std::string &expected);

}  // namespace net
