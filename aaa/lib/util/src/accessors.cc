// SPDX-License-Identifier: Apache-2.0
//
// Typed accessors that put one attribute into a list, and the generic ones.
// "add" in a name says nothing about how: user name, directed address and
// command are appended, so that a second call makes a second pair; all others
// replace the first pair of their type.

#include "aaa/accessors.h"

#include <cstdlib>

#include "internal/accessors.hpp"
#include "internal/memory.hpp"
#include "internal/trace.hpp"

using aaautil::append;
using aaautil::append_u32;
using aaautil::replace;
using aaautil::replace_u32;
using aaautil::stored_length;
using aaautil::tracing;

namespace {

constexpr int32_t kMinUsername = 1;
constexpr int32_t kMaxUsername = 254;

// A status longer than this is built on the heap.
constexpr uint32_t kStatusOnStack = 64 * 1024;

cerrno replace_status(uint8_t *area, uint32_t status, uint32_t length, avlist *list) {
    aaautil::store_u32(area, status);
    return replace(AAA_STATUS_ATTR, 0, area, length, list);
}

// Kept out of line: callers store four bytes and need no such frame.
[[gnu::noinline]] cerrno replace_long_status(uint32_t status, uint32_t length, avlist *list) {
    if (length <= kStatusOnStack) {
        uint8_t area[kStatusOnStack];
        std::memset(area, 0, length);
        return replace_status(area, status, length, list);
    }
    const aaautil::malloc_ptr<void> area(std::calloc(1, length));
    if (area == nullptr) {
        return AAA_ERR_NOMEM;
    }
    return replace_status(static_cast<uint8_t *>(area.get()), status, length, list);
}

}  // namespace

extern "C" {

cerrno aaa_util_avpair_add_attr(avlist *list, uint32_t type, const void *value, uint32_t length,
                                uint32_t tag) {
    return aaa_util_avpair_add_attr_onep(list, type, value, length, tag, 0);
}

cerrno aaa_util_avpair_add_attr_onep(avlist *list, uint32_t type, const void *value, uint32_t length,
                                     uint32_t tag, avpair_flags_t flags) {
    if (list == nullptr || value == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return aaa_avpair_add(type, flags, value, tag, length, list);
}

// Length before tag here, tag before length in the list layer: callers of
// both orders exist.
cerrno aaa_util_avpair_update(uint32_t type, avpair_flags_t flags, void *value, uint32_t length, uint32_t tag,
                              uint32_t instance, avlist *list) {
    return aaa_avpair_update(type, flags, value, tag, length, instance, list);
}

cerrno aaa_util_avlist_username_add(const char *value, int32_t length, avlist *list) {
    if (value == nullptr || list == nullptr || length < kMinUsername || length > kMaxUsername) {
        return AAA_ERR_INVALID_ARG;
    }
    return append(AAA_USERNAME_ATTR, value, static_cast<uint32_t>(length), list);
}

cerrno aaa_util_avlist_password_add(const char *value, uint32_t length, avlist *list) {
    if (value == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return replace(AAA_PASSWORD_ATTR, AAA_AVF_UPDATED, value, length, list);
}

// The pair has the caller's length, not the four bytes of the status: readers
// of this attribute accept both, and some writers rely on the longer pair.
cerrno aaa_util_avlist_status_add(uint32_t status, uint32_t length, avlist *list) {
    if (list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (length > sizeof status) {
        return replace_long_status(status, length, list);
    }
    return replace(AAA_STATUS_ATTR, 0, &status, length, list);
}

cerrno aaa_util_avlist_prompt_add(uint32_t flags, const char *prompt, avlist *list) {
    if (prompt == nullptr || list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return replace(AAA_PROMPT_ATTR, flags & 0xFFU, prompt, stored_length(prompt), list);
}

cerrno aaa_util_avlist_chap_response_add(const void *value, uint32_t length, avlist *list) {
    if (value == nullptr || list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return replace(AAA_CHAP_RESPONSE_ATTR, 0, value, length & 0xFFFFU, list);
}

cerrno aaa_util_avlist_directed_addr_add(uint32_t address, avlist *list) {
    if (list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return append_u32(AAA_DIRECTED_ADDRESS_ATTR, address, list);
}

cerrno aaa_util_avlist_seqnum_add(avlist *list, uint32_t number) {
    if (list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return replace_u32(AAA_SEQNUM_ATTR, AAA_AVF_UPDATED, number, list);
}

cerrno aaa_util_avlist_cmd_add(const char *text, uint32_t length, avlist *list) {
    if (text == nullptr || list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return append(AAA_CMD_ATTR, text, length, list);
}

cerrno aaa_util_avlist_priv_add(avlist *list, uint32_t level) {
    return replace_u32(AAA_PRIV_LVL_ATTR, 0, level, list);
}

cerrno aaa_util_avlist_errmsg_add(avlist *list, const char *text) {
    if (text == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return replace(AAA_ERRMSG_ATTR, 0, text, stored_length(text), list);
}

// Without the flag bit that other updates of this attribute set: a method set
// here counts as the caller's wish, not as an update.
cerrno aaa_util_avlist_authen_method_set(uint32_t method, avlist *list) {
    const cerrno code = replace_u32(AAA_AUTHEN_METHOD_ATTR, 0, method, list);
    if (code != AAA_OK && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to update AAA_AUTHEN_METHOD_ATTR (%d)", AAA_AUTHEN_METHOD_ATTR);
    }
    return code;
}

// The trace names the option; its two siblings name the attribute.
cerrno aaa_util_avlist_authen_option_add(uint32_t option, avlist *list) {
    const cerrno code = replace_u32(AAA_AUTHEN_OPTION_ATTR, 0, option, list);
    if (code != AAA_OK && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to update AAA_AUTHEN_OPTION_ATTR to %d", option);
    }
    return code;
}

cerrno aaa_util_avlist_msgtype_add(uint32_t msgtype, avlist *list) {
    const cerrno code = replace_u32(AAA_TYPE_ATTR, AAA_AVF_UPDATED, msgtype, list);
    if (code != AAA_OK && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to update AAA_TYPE_ATTR (%d)", AAA_TYPE_ATTR);
    }
    return code;
}

}  // extern "C"
