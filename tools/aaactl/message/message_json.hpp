// SPDX-License-Identifier: Apache-2.0
//
// Messages as JSON:
//
//   {"kind": "request", "length": 104,
//    "parts": [
//      {"part": "record", "record": "request-40", "offset": 0,
//       "fields": {"transport0": "<hex>", "type": 3, "transport24": "<hex>", "param": 256, "fixed36":
//       "<hex>"}, "meanings": {"type": "authentication", ...}},
//      {"part": "bytes", "name": "block", "offset": 40, "hex": "..."},
//      {"part": "list", "offset": 104,
//       "fields": {"total": 84, "marker": 0, "reserved5": 0, "count": 1, "addresses": "<hex>", "name":
//       "request", "pad55": 0}, "pairs": [
//         {"offset": 160, "type": 257, "attribute": "AAA_USERNAME_ATTR", "deleted": false, "tag": 0, "flags":
//         1024,
//          "flag_names": ["updated"], "length": 6, "text": "alice\u0000", "padding": "0000"}]}],
//    "fault": {"offset": 12, "message": "...", "code": 2722508288}}        (malformed messages only)
//
// A value is one of "text", "number", "address" and "hex", or "masked": true for
// a secret that is not shown (with "shown" when only a part of it is). A name
// that is not text is {"hex": "..."}. encode reads the same and needs only what
// cannot be derived; {"name": ..., "pairs": [...]} is a list.

#pragma once

#include "cli/output.hpp"
#include "masks/masks.hpp"
#include "message/message.hpp"

namespace aaactl {

Json to_json(const Message &message, bool show_secrets);
Json list_json(const List &list, bool show_secrets);
Json pair_json(const Pair &pair, service::TextMask &mask, bool show_secrets);

// Failure with the place ("parts/0/fields/type") of an error.
Message from_json(const Json &document);

}  // namespace aaactl
