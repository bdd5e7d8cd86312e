// SPDX-License-Identifier: Apache-2.0
//
// The parameters of a public-key login: one record of the caller, eleven
// attributes in a list. An array of names is stored as its used names, each at
// its full 128 bytes.

#include "aaa/accessors.h"

#include <cstring>

#include "internal/accessors.hpp"
#include "platform/bounded.h"

using aaautil::append;
using aaautil::append_u32;
using aaautil::find_value;
using aaautil::get_text;
using aaautil::get_u32;
using aaautil::StoredValue;

namespace {

cerrno append_required(uint32_t type, const uint8_t *value, uint32_t length, avlist *list) {
    return value != nullptr ? append(type, value, length, list) : AAA_ERR_INVALID_ARG;
}

// The first `count` of `capacity` names.
cerrno append_names(uint32_t type, const char (*names)[AAA_RSA_NAME_LEN], uint32_t count, uint32_t capacity,
                    avlist *list) {
    if (count > capacity) {
        return AAA_ERR_INVALID_ARG;
    }
    return append(type, names, count * AAA_RSA_NAME_LEN, list);
}

void read_block(uint32_t type, const avlist *list, uint8_t **bytes, uint32_t *length) {
    const StoredValue value = find_value(type, list);
    *bytes = value.found() ? value.bytes : nullptr;
    *length = value.found() ? value.length : 0;
}

// Copies the stored bytes and returns their number. A value that does not fit
// counts as missing; the destination is zeroed then.
uint32_t read_fitting(uint32_t type, const avlist *list, void *to, uint32_t size) {
    const StoredValue value = find_value(type, list);
    if (!value.found() || value.length > size) {
        std::memset(to, 0, size);
        return 0;
    }
    std::memcpy(to, value.bytes, value.length);
    return value.length;
}

// The same through the platform's bounded copy, which refuses what does not
// fit and then zeroes the destination itself.
void read_bounded(uint32_t type, const avlist *list, void *to, uint32_t size) {
    const StoredValue value = find_value(type, list);
    if (value.found()) {
        static_cast<void>(memcpy_s(to, size, value.bytes, value.length));
    } else {
        static_cast<void>(memset_s(to, size, 0, size));
    }
}

// The attributes that need only the record.
cerrno append_fixed(const aaa_rsa_params_t *params, avlist *list) {
    cerrno code = append_u32(AAA_RSA_PUBKEY_TYPE_ATTR, params->pubkey_type, list);
    if (code == AAA_OK) {
        code = append_names(AAA_RSA_TRUSTPOINT_NAME_ATTR, params->trustpoint_names, params->trustpoint_count,
                            AAA_RSA_TRUSTPOINTS, list);
    }
    if (code == AAA_OK) {
        code = append_u32(AAA_USERNAME_FIELDS_ATTR, params->username_fields, list);
    }
    if (code == AAA_OK) {
        code = append_names(AAA_RSA_OPENSSH_TRUSTPOINT_NAME_ATTR, params->openssh_trustpoint_names,
                            params->openssh_trustpoint_count, AAA_RSA_OPENSSH_TPS, list);
    }
    if (code == AAA_OK) {
        code = append(AAA_RSA_OPENSSH_HOST_TRUSTPOINT_NAME_ATTR, params->openssh_host_trustpoint_name,
                      sizeof params->openssh_host_trustpoint_name, list);
    }
    if (code == AAA_OK) {
        code = append(AAA_RSA_OPENSSH_HIBA_AUTHORIZATION_ROLE_ATTR, params->hiba_authorization_role,
                      sizeof params->hiba_authorization_role, list);
    }
    if (code == AAA_OK) {
        code = append(AAA_RSA_SIGN_ALGNAME_ATTR, params->sign_algname, sizeof params->sign_algname, list);
    }
    if (code == AAA_OK) {
        code = append(AAA_RSA_OPENSSH_HIBA_AUTHORIZATION_ENABLE_ATTR, &params->hiba_authorization_enable,
                      sizeof params->hiba_authorization_enable, list);
    }
    return code;
}

}  // namespace

extern "C" {

// Stops at the first failure and leaves the pairs before it in the list.
cerrno aaa_util_avlist_rsa_params_add(avlist *list, const aaa_rsa_params_t *params) {
    if (list == nullptr || params == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno code = append_required(AAA_RSA_SIG_ATTR, params->signature, params->signature_len, list);
    if (code == AAA_OK) {
        code = append_required(AAA_RSA_INDATA_ATTR, params->indata, params->indata_len, list);
    }
    if (code == AAA_OK) {
        code = append_required(AAA_RSA_SESSION_ID_ATTR, params->session_id, params->session_id_len, list);
    }
    return code == AAA_OK ? append_fixed(params, list) : code;
}

cerrno aaa_util_avlist_rsa_params_get(const avlist *list, aaa_rsa_params_t *out) {
    if (list == nullptr || out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    out->username = get_text(AAA_USERNAME_ATTR, list);
    read_block(AAA_RSA_SIG_ATTR, list, &out->signature, &out->signature_len);
    read_block(AAA_RSA_INDATA_ATTR, list, &out->indata, &out->indata_len);
    read_block(AAA_RSA_SESSION_ID_ATTR, list, &out->session_id, &out->session_id_len);
    out->pubkey_type = get_u32(AAA_RSA_PUBKEY_TYPE_ATTR, list);
    out->username_fields = get_u32(AAA_USERNAME_FIELDS_ATTR, list);
    out->trustpoint_count = read_fitting(AAA_RSA_TRUSTPOINT_NAME_ATTR, list, out->trustpoint_names,
                                         sizeof out->trustpoint_names) /
                            AAA_RSA_NAME_LEN;
    out->openssh_trustpoint_count =
        read_fitting(AAA_RSA_OPENSSH_TRUSTPOINT_NAME_ATTR, list, out->openssh_trustpoint_names,
                     sizeof out->openssh_trustpoint_names) /
        AAA_RSA_NAME_LEN;
    read_fitting(AAA_RSA_OPENSSH_HOST_TRUSTPOINT_NAME_ATTR, list, out->openssh_host_trustpoint_name,
                 sizeof out->openssh_host_trustpoint_name);
    read_bounded(AAA_RSA_OPENSSH_HIBA_AUTHORIZATION_ROLE_ATTR, list, out->hiba_authorization_role,
                 sizeof out->hiba_authorization_role);
    read_bounded(AAA_RSA_SIGN_ALGNAME_ATTR, list, out->sign_algname, sizeof out->sign_algname);
    const StoredValue enable = find_value(AAA_RSA_OPENSSH_HIBA_AUTHORIZATION_ENABLE_ATTR, list);
    out->hiba_authorization_enable = enable.found() && enable.length != 0 ? enable.bytes[0] : 0;
    return AAA_OK;
}

}  // extern "C"
