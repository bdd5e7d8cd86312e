// SPDX-License-Identifier: Apache-2.0
//
// Lists of revoked certificates (RFC 5280, 5).
#pragma once

#include <string>

struct ssl_ctx_st;

namespace net {

// Has each certificate of a server's chain looked up in the lists of a file, in PEM form, or one
// in DER form. A chain whose authorities have no valid list there is refused. False, with
// `error`, when the file cannot be read, or a list in it is out of date.
bool use_revocation_lists(ssl_ctx_st *context, const std::string &file, std::string &error);

// What to do about the refusal of a certificate by its lists; empty for other reasons.
std::string advice_on_refusal(long verify_result);

}  // namespace net
