// SPDX-License-Identifier: Apache-2.0
//
// CHAP and MS-CHAP data in a list. The stored forms, without any padding:
//
//   inbound   id (1 byte) | response (16 CHAP, 49 MS-CHAP) | challenge (rest)
//   outbound  id (1 byte) | data (rest)

#include "aaa/accessors.h"

#include <cstdlib>
#include <cstring>

#include "internal/accessors.hpp"
#include "internal/memory.hpp"

using aaautil::find_value;
using aaautil::StoredValue;

namespace {

constexpr uint32_t kIdLength = 1;
constexpr uint32_t kChapResponse = 16;
constexpr uint32_t kMschapResponse = 49;

// An inbound MS-CHAP value needs two bytes of challenge, a CHAP value none.
constexpr uint32_t kMinInboundChap = kIdLength + kChapResponse;
constexpr uint32_t kMinInboundMschap = kIdLength + kMschapResponse + 2;
constexpr uint32_t kMinOutboundChap = kIdLength;
constexpr uint32_t kMinOutboundMschap = kIdLength + 2;

// Values up to this size, which is every real one, are built on the stack.
constexpr std::size_t kOnStack = 1024;

struct Part {
    const uint8_t *bytes;
    uint32_t length;

    [[nodiscard]] bool valid() const { return bytes != nullptr || length == 0; }
};

uint8_t *put(uint8_t *to, const Part &part) {
    if (part.length != 0) {
        std::memcpy(to, part.bytes, part.length);
    }
    return to + part.length;
}

// Writes the stored form, appends it and wipes the area again.
cerrno append_built(uint32_t type, uint8_t *area, uint8_t id, const Part &first, const Part &second,
                    avlist *list) {
    area[0] = id;
    const uint8_t *end = put(put(area + kIdLength, first), second);
    const auto length = static_cast<uint32_t>(end - area);
    // Deliberately checked after the record: a record that cannot be built is reported
    // before a missing list is.
    const cerrno code = list == nullptr ? AAA_ERR_INVALID_ARG : aaautil::append(type, area, length, list);
    aaautil::wipe(area, length);
    return code;
}

cerrno append_chap(uint32_t type, uint8_t id, const Part &first, const Part &second, avlist *list) {
    if (!first.valid() || !second.valid()) {
        return AAA_ERR_INVALID_ARG;
    }
    const uint64_t length = uint64_t{kIdLength} + first.length + second.length;
    if (length > UINT32_MAX) {
        return AAA_ERR_NOMEM;
    }
    if (length <= kOnStack) {
        uint8_t area[kOnStack];
        std::memset(area, 0, sizeof(uint32_t));  // a trace of the list reads four bytes of any value
        return append_built(type, area, id, first, second, list);
    }
    const aaautil::malloc_ptr<void> area(std::malloc(static_cast<std::size_t>(length)));
    if (area == nullptr) {
        return AAA_ERR_NOMEM;
    }
    return append_built(type, static_cast<uint8_t *>(area.get()), id, first, second, list);
}

cerrno append_inbound(uint32_t type, const aaa_chap_data_t *chap, avlist *list) {
    if (chap == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return append_chap(type, chap->id, {chap->response, chap->response_len}, {chap->data, chap->data_len},
                       list);
}

cerrno append_outbound(uint32_t type, const aaa_chap_data_t *chap, avlist *list) {
    if (chap == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return append_chap(type, chap->id, {chap->data, chap->data_len}, {nullptr, 0}, list);
}

// A missing pair has length 0, so an absent inbound attribute reads as bad
// client data, not as "not found". Callers tell a client's fault from a
// missing list entry by this code.
cerrno read_inbound(uint32_t type, uint32_t minimum, uint32_t response_length, aaa_chap_data_t *out,
                    const avlist *list) {
    if (out == nullptr) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    const StoredValue value = find_value(type, list);
    if (value.length < minimum) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    if (value.code != AAA_OK) {
        return value.code;
    }
    out->id = value.bytes[0];
    out->response = value.bytes + kIdLength;
    out->response_len = response_length;
    out->data = out->response + response_length;
    out->data_len = value.length - kIdLength - response_length;
    return AAA_OK;
}

cerrno read_outbound(uint32_t type, uint32_t minimum, aaa_chap_data_t *out, const avlist *list) {
    if (out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const StoredValue value = find_value(type, list);
    if (value.code != AAA_OK) {
        return value.code;
    }
    if (value.length < minimum) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    out->id = value.bytes[0];
    out->data = value.bytes + kIdLength;
    out->data_len = value.length - kIdLength;
    return AAA_OK;
}

}  // namespace

extern "C" {

cerrno aaa_util_avlist_inbound_chap_data_add(const aaa_chap_data_t *chap, avlist *list) {
    return append_inbound(AAA_INBOUND_CHAP_DATA_ATTR, chap, list);
}

cerrno aaa_util_avlist_inbound_mschap_data_add(const aaa_chap_data_t *chap, avlist *list) {
    return append_inbound(AAA_INBOUND_MSCHAP_DATA_ATTR, chap, list);
}

cerrno aaa_util_avlist_outbound_chap_data_add(const aaa_chap_data_t *chap, avlist *list) {
    return append_outbound(AAA_OUTBOUND_CHAP_DATA_ATTR, chap, list);
}

cerrno aaa_util_avlist_outbound_mschap_data_add(const aaa_chap_data_t *chap, avlist *list) {
    return append_outbound(AAA_OUTBOUND_MSCHAP_DATA_ATTR, chap, list);
}

cerrno aaa_util_avlist_inbound_chap_data_get(aaa_chap_data_t *out, const avlist *list) {
    return read_inbound(AAA_INBOUND_CHAP_DATA_ATTR, kMinInboundChap, kChapResponse, out, list);
}

cerrno aaa_util_avlist_inbound_mschap_data_get(aaa_chap_data_t *out, const avlist *list) {
    return read_inbound(AAA_INBOUND_MSCHAP_DATA_ATTR, kMinInboundMschap, kMschapResponse, out, list);
}

cerrno aaa_util_avlist_outbound_chap_data_get(aaa_chap_data_t *out, const avlist *list) {
    return read_outbound(AAA_OUTBOUND_CHAP_DATA_ATTR, kMinOutboundChap, out, list);
}

cerrno aaa_util_avlist_outbound_mschap_data_get(aaa_chap_data_t *out, const avlist *list) {
    return read_outbound(AAA_OUTBOUND_MSCHAP_DATA_ATTR, kMinOutboundMschap, out, list);
}

}  // extern "C"
