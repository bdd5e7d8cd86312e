// SPDX-License-Identifier: Apache-2.0
//
// Records of catalog messages, as a library has them.
#pragma once

#include "aaa/result_codes.h"

inline kel_msg_rec_t make_record(const char *format, const char *mnemonic, uint32_t severity,
                                 kel_msg_limit_t *limit = nullptr) {
    kel_msg_rec_t record{};
    record.format = format;
    record.limit = limit;
    record.facility = "AAA";
    record.category = "SECURITY";
    record.mnemonic = mnemonic;
    record.severity = severity << 16;
    record.msg_id = 0x048d0001u;
    return record;
}
