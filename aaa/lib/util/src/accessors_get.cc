// SPDX-License-Identifier: Apache-2.0
//
// Typed accessors that read one attribute. Texts and blocks are handed out
// where they are in the list; integers are read from at most the bytes that
// are stored. Received texts need not end in NUL, so what copies one stops at
// its stored length.

#include "aaa/accessors.h"

#include <cstdlib>
#include <cstring>

#include "aaa/names.h"
#include "internal/accessors.hpp"
#include "internal/trace.hpp"
#include "platform/bounded.h"

using aaautil::find_value;
using aaautil::get_pointer;
using aaautil::get_text;
using aaautil::get_u32;
using aaautil::get_u32_out;
using aaautil::StoredValue;
using aaautil::tracing;

namespace {

// The value as the platform's bounded copy leaves it in a 4-byte result; what
// happens to a longer value is the platform's business. The platform may
// write a wider word than it is told, hence the spare bytes.
uint32_t bounded_u32(const StoredValue &value) {
    uint64_t storage = 0;
    __memcpy_to_buf(&storage, value.bytes, value.length, sizeof(uint32_t));
    return aaautil::load_u32(&storage);
}

// A heap copy of a stored text, cut at its stored length.
char *duplicate(const void *value, uint32_t length) {
    return strndup(static_cast<const char *>(value), length);
}

}  // namespace

extern "C" {

cerrno aaa_util_avlist_data_get(void **value, uint32_t *length, const avlist *list) {
    return aaa_avpair_find_type(AAA_DATA_ATTR, nullptr, value, length, 0, list);
}

// The adder of this attribute stores a bare IPv4 address; other writers store
// the whole record, and for those this copy is made.
aaa_ip_addr_t *aaa_util_avlist_directed_addr_get(aaa_ip_addr_t *out, const avlist *list) {
    if (out == nullptr) {
        return nullptr;
    }
    std::memset(out, 0, sizeof *out);
    const StoredValue value = find_value(AAA_DIRECTED_ADDRESS_ATTR, list);
    if (value.found()) {
        std::memcpy(out, value.bytes, value.length < sizeof *out ? value.length : sizeof *out);
    }
    return out;
}

uint32_t aaa_util_avlist_current_method_get(const avlist *list) {
    return get_u32(AAA_CURR_METHOD_PTR_ATTR, list);
}

char *aaa_util_avlist_reply_msg_get(const avlist *list, uint32_t instance) {
    char *text = get_text(AAA_REPLYMSG_ATTR, list, instance);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find aaa avpair type");
    }
    return text;
}

char *aaa_util_avlist_cmd_get(const avlist *list) {
    char *text = get_text(AAA_CMD_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find aaa avpair type");
    }
    return text;
}

uint32_t aaa_util_avlist_priv_get(const avlist *list) {
    const StoredValue value = find_value(AAA_PRIV_LVL_ATTR, list);
    return value.found() ? bounded_u32(value) : 0;
}

void *aaa_util_avlist_ctx_get(const avlist *list) {
    return get_pointer(AAA_CONTEXT_ATTR, list);
}

// Deletes when there is nothing to delete and leaves the pair when there is
// one. Kept: a reader may ask again and must get the same answer.
uint32_t aaa_util_avlist_last_used_server_ip_get(avlist *list) {
    const StoredValue value = find_value(AAA_VS_LAST_USED_SERVER_IP, list);
    if (!value.found()) {
        static_cast<void>(aaa_avpair_delete_by_type_instance(AAA_VS_LAST_USED_SERVER_IP, 0, list, nullptr));
        return 0;
    }
    return value.u32();
}

uint32_t aaa_util_avlist_status_get(const avlist *list) {
    return get_u32(AAA_STATUS_ATTR, list);
}

uint32_t aaa_get_status(const avlist *list) {
    return get_u32(AAA_STATUS_ATTR, list);
}

char *aaa_util_avlist_errmsg_get(avlist *list) {
    const StoredValue value = find_value(AAA_ERRMSG_ATTR, list);
    if (!value.found()) {
        return nullptr;
    }
    char *copy = duplicate(value.bytes, value.length);
    if (copy == nullptr) {
        return nullptr;
    }
    if (aaa_avpair_delete_by_type_instance(AAA_ERRMSG_ATTR, 0, list, nullptr) != AAA_OK) {
        std::free(copy);
        return nullptr;
    }
    return copy;
}

// Unlike the error message, the prompt is gone even when no memory was left
// for the copy.
char *aaa_util_avlist_prompt_get(avlist *list, avpair_flags_t *flags) {
    void *value = nullptr;
    uint32_t length = 0;
    if (aaa_avpair_find_type(AAA_PROMPT_ATTR, flags, &value, &length, 0, list) != AAA_OK ||
        value == nullptr) {
        return nullptr;
    }
    char *copy = duplicate(value, length);
    if (aaa_avpair_delete_by_type_instance(AAA_PROMPT_ATTR, 0, list, nullptr) != AAA_OK) {
        std::free(copy);
        return nullptr;
    }
    return copy;
}

uint32_t aaa_util_avlist_authen_method_get(const avlist *list) {
    return get_u32(AAA_AUTHEN_METHOD_ATTR, list);
}

uint32_t aaa_util_avlist_curr_method_val_get(const avlist *list) {
    const StoredValue value = find_value(AAA_CURR_METHOD_VAL_ATTR, list);
    if (!value.found()) {
        return 0;
    }
    if (tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Updated AAA_CURR_METHOD_VAL_ATTR (%d)", value.u32());
    }
    return value.u32();
}

uint32_t aaa_util_avlist_authen_option_get(const avlist *list) {
    return get_u32(AAA_AUTHEN_OPTION_ATTR, list, AAA_AO_NOTSET);
}

void *aaa_util_avlist_chap_response_get(uint32_t *length, const avlist *list) {
    void *value = nullptr;
    const cerrno code = aaa_avpair_find_type(AAA_CHAP_RESPONSE_ATTR, nullptr, &value, length, 0, list);
    return code == AAA_OK ? value : nullptr;
}

uint32_t aaa_util_avlist_svc_get(const avlist *list) {
    return get_u32(AAA_SERVICE_TYPE_ATTR, list);
}

void *aaa_util_avlist_src_get(const avlist *list) {
    return get_pointer(AAA_SRC_ATTR, list);
}

char *aaa_util_avlist_username_get(const avlist *list) {
    return get_text(AAA_USERNAME_ATTR, list);
}

char *aaa_util_avlist_tty_get(const avlist *list) {
    return get_text(AAA_TTYNAME_ATTR, list);
}

char *aaa_util_avlist_tty_name_get(const avlist *list) {
    return get_text(AAA_TTY_MNEMONIC_ATTR, list);
}

uint32_t aaa_util_avlist_user_flag_get(const avlist *list) {
    return get_u32(AAA_USER_DB_FLAG_ATTR, list);
}

uint32_t aaa_util_avlist_ifh_get(const avlist *list) {
    const StoredValue value = find_value(AAA_IFH_ATTR, list);
    return value.found() && value.length != 0 ? bounded_u32(value) : 0;
}

int aaa_util_avlist_methodlist_get_all(uint32_t *destination, uint32_t *count, const avlist *list) {
    if (destination == nullptr || count == nullptr) {
        return 0;
    }
    const StoredValue value = find_value(AAA_METHODLIST_ATTR, list);
    if (value.code != AAA_OK) {
        return 0;
    }
    *count = value.length / static_cast<uint32_t>(sizeof *destination);
    if (value.bytes == nullptr) {
        return 0;
    }
    // All stored bytes, also the odd ones of a length that is not a multiple of
    // four: the caller provides room for the whole list.
    std::memcpy(destination, value.bytes, value.length);
    return 1;
}

void *aaa_util_avlist_methodlist_get(const avlist *list) {
    return get_pointer(AAA_METHODLIST_ATTR, list);
}

char *aaa_util_avlist_password_get(const avlist *list, uint32_t *length) {
    if (length == nullptr) {
        return nullptr;
    }
    const StoredValue value = find_value(AAA_PASSWORD_ATTR, list);
    *length = value.found() ? value.length : 0;
    return value.found() ? reinterpret_cast<char *>(value.bytes) : nullptr;
}

char *aaa_util_avlist_remaddr_get(const avlist *list, uint32_t *length) {
    if (length == nullptr) {
        return nullptr;
    }
    *length = 0;
    const StoredValue value = find_value(AAA_REMOTE_ADDR_ATTR, list);
    if (!value.found()) {
        return nullptr;
    }
    *length = value.length;
    return reinterpret_cast<char *>(value.bytes);
}

cerrno aaa_util_avlist_seqnum_get(const avlist *list, uint32_t *number) {
    if (number == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return get_u32_out(AAA_SEQNUM_ATTR, list, number);
}

cerrno aaa_util_avlist_sessionid_get(const avlist *list, uint32_t *number) {
    if (number == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *number = 0;
    return get_u32_out(AAA_SESSIONID_ATTR, list, number);
}

cerrno aaa_util_avlist_acct_sessid_get(const avlist *list, uint32_t *number) {
    if (number == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *number = 0;
    return get_u32_out(AAA_ACCT_SESSID_ATTR, list, number);
}

cerrno aaa_util_avlist_idletime_get(const avlist *list, uint32_t *number) {
    if (number == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return get_u32_out(AAA_IDLETIME_ATTR, list, number);
}

uint32_t aaa_util_msgtype_get(const avlist *list) {
    return get_u32(AAA_TYPE_ATTR, list);
}

}  // extern "C"
