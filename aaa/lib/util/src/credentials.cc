// SPDX-License-Identifier: Apache-2.0
//
// A caller's credential record and its service attributes, turned into the
// pairs of a request. A field that is absent makes no pair and no failure:
// the code that an accessor gives for a null value counts as success.

#include "aaa/credentials.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "internal/accessors.hpp"
#include "internal/avpair_trace.hpp"
#include "internal/trace.hpp"
#include "platform/bounded.h"
#include "platform/cerr.h"
#include "platform/node.h"
#include "platform/terminal.h"

using aaautil::append;
using aaautil::append_u32;
using aaautil::stored_length;
using aaautil::stored_length_or_zero;
using aaautil::tracing;

namespace {

// Room for a terminal name or mnemonic, its NUL included.
constexpr std::size_t kTerminalName = 32;
// Sizes of the remote address of a line: as the platform writes it, and as it
// fits into a request.
constexpr uint32_t kFoundRemoteAddress = 46;
constexpr std::size_t kMaxRemoteAddress = 255;

cerrno absent_counts_as_success(cerrno code) {
    return code == AAA_ERR_INVALID_ARG ? AAA_OK : code;
}

bool is_accounting(uint32_t type) {
    return (type & ~3U) == AAA_ACCT_START_OPT;
}

// Services whose user is at a terminal of this node.
bool has_terminal(int32_t service) {
    switch (service) {
        case AAA_SVC_LOGIN:
        case AAA_SVC_ADMIN_EXEC:
        case AAA_SVC_EXEC:
        case AAA_SVC_EVENTMANAGER:
        case AAA_SVC_CMD:
        case AAA_SVC_KSH:
        case AAA_SVC_PLEXA:
        case AAA_SVC_MGBL_EXEC:
        case AAA_SVC_MGBL_ACCT:
            return true;
        default:
            return false;
    }
}

bool has_remote_address(int32_t service) {
    return has_terminal(service) || service == AAA_SVC_PPP;
}

// Text of a fixed-size field that need not end in NUL.
struct FieldText {
    explicit FieldText(const char (&field)[32]) { std::memcpy(text, field, sizeof field); }
    char text[33] = {};
};

// A user name that is empty or has 254 or more characters is refused by its
// accessor, so the request is made without it and without a report. Callers
// rely on that.
cerrno append_username(const aaa_usercred_t *cred, avlist *list) {
    const auto length = static_cast<int32_t>(stored_length_or_zero(cred->username));
    return absent_counts_as_success(aaa_util_avlist_username_add(cred->username, length, list));
}

cerrno replace_authen_method(aaa_usercred_t *cred, avlist *list) {
    aaa_debug(AAA_DBG_AVLIST, "Updating authen_method %d", cred->authen_method);
    return aaautil::replace(AAA_AUTHEN_METHOD_ATTR, AAA_AVF_UPDATED, &cred->authen_method,
                            sizeof cred->authen_method, list);
}

// The record's terminal name, else that of the terminal on standard input,
// else an empty text.
void find_terminal_name(const aaa_usercred_t *cred, char (&name)[kTerminalName]) {
    if (cred->ttyname != nullptr) {
        sstrncpy(name, cred->ttyname, sizeof name);
        aaa_debug(AAA_DBG_AVLIST, "Using ttyname %s", name);
        return;
    }
    if (ttyname_r(STDIN_FILENO, name, sizeof name) != 0) {
        name[0] = '\0';
    }
    aaa_debug(AAA_DBG_AVLIST, "Obtaining and using ttyname %s", name);
}

cerrno append_terminal(aaa_usercred_t *cred, avlist *list, uint32_t type) {
    char name[kTerminalName] = {};
    find_terminal_name(cred, name);
    cerrno code = AAA_OK;
    if (name[0] != '\0') {
        code = append(AAA_TTYNAME_ATTR, name, stored_length(name), list);
    }
    if (aaa_lib_update_mnemonic_and_flags(cred, list, is_accounting(type) ? 0 : 1) != AAA_OK) {
        aaa_debug(AAA_DBG_REQUEST, "Failed to add mnemonic and flag information to req");
    }
    return absent_counts_as_success(code);
}

// Asks the platform where the user of this line comes from. The answer stays
// in the record, which owns it from then on.
cerrno find_remote_address(aaa_usercred_t *cred) {
    auto *found = static_cast<char *>(std::calloc(1, kFoundRemoteAddress));
    if (found == nullptr) {
        return AAA_ERR_NOMEM;
    }
    if (aaa_util_find_line_remote_addr(found, kFoundRemoteAddress) != AAA_OK) {
        aaa_debug(AAA_DBG_LIFECYCLE, "Find line remote addr attribute failed");
        std::free(found);
        return AAA_OK;
    }
    found[kFoundRemoteAddress - 1] = '\0';
    cred->remote_addr = found;
    return AAA_OK;
}

cerrno append_remote_address(aaa_usercred_t *cred, avlist *list) {
    if (cred->remote_addr == nullptr && platform_am_i_lc() == 0) {
        const cerrno code = find_remote_address(cred);
        if (code != AAA_OK) {
            return code;
        }
    }
    if (cred->remote_addr == nullptr) {
        return AAA_OK;
    }
    char address[kMaxRemoteAddress + 1] = {};
    const std::size_t length = strnlen(cred->remote_addr, kMaxRemoteAddress);
    std::memcpy(address, cred->remote_addr, length);
    const auto shown = static_cast<uint32_t>(length);
    aaa_debug(AAA_DBG_LIFECYCLE, "Add remote addr attribute - %s (length %u)", address, shown);
    return absent_counts_as_success(append(AAA_REMOTE_ADDR_ATTR, address, shown + 1, list));
}

cerrno append_interface(const aaa_usercred_t *cred, avlist *list) {
    cerrno code = AAA_OK;
    if (cred->ifh != 0) {
        code = absent_counts_as_success(append_u32(AAA_IFH_ATTR, cred->ifh, list));
    }
    if (code == AAA_OK && cred->ipaddr != 0) {
        code = append_u32(AAA_IPADDR_ATTR, cred->ipaddr, list);
    }
    return absent_counts_as_success(code);
}

// The whole option is compared: one with anything above its low byte carries
// no CHAP data.
cerrno append_chap_data(const aaa_usercred_t *cred, avlist *list, uint32_t option) {
    switch (option) {
        case AAA_AO_IB_CHAP_V1:
            return aaa_util_avlist_inbound_chap_data_add(cred->chap_data, list);
        case AAA_AO_OB_CHAP_V1:
            return aaa_util_avlist_outbound_chap_data_add(cred->chap_data, list);
        case AAA_AO_IB_MSCHAP:
            return aaa_util_avlist_inbound_mschap_data_add(cred->chap_data, list);
        case AAA_AO_OB_MSCHAP:
            return aaa_util_avlist_outbound_mschap_data_add(cred->chap_data, list);
        default:
            return AAA_OK;
    }
}

cerrno append_secrets(const aaa_usercred_t *cred, avlist *list, int32_t service, uint32_t type) {
    const uint32_t length = stored_length_or_zero(cred->password);
    const cerrno code = absent_counts_as_success(aaa_util_avlist_password_add(cred->password, length, list));
    if (code != AAA_OK || service != AAA_SVC_PPP) {
        return code;
    }
    return absent_counts_as_success(append_chap_data(cred, list, type));
}

// Appends the pair at a position of `from`.
cerrno copy_pair(uint32_t index, const avlist *from, avlist *to) {
    avpair_t pair{};
    void *value = nullptr;
    const cerrno code = aaautil::find_index_traceable(index, from, &pair, &value);
    return code == AAA_OK ? aaa_util_avpair_add_attr(to, pair.av_type, value, pair.av_len, pair.av_tag)
                          : code;
}

uint32_t count_pairs(const avlist *list) {
    uint32_t count = 0;
    while (aaa_avpair_find_index(count, nullptr, nullptr, nullptr, nullptr, nullptr, list) == AAA_OK) {
        ++count;
    }
    return count;
}

// Appends the pairs of `from` up to its end, which gives
// AAA_ERR_AVPAIR_NOT_FOUND, or up to a failure. A list that is appended to
// itself has no end, so its pairs are counted first.
cerrno copy_pairs(const avlist *from, avlist *to) {
    const uint32_t limit = from == to ? count_pairs(from) : UINT32_MAX;
    for (uint32_t index = 0; index < limit; ++index) {
        const cerrno code = copy_pair(index, from, to);
        if (code != AAA_OK) {
            return code;
        }
    }
    return AAA_ERR_AVPAIR_NOT_FOUND;
}

void append_state_args(const aaa_usercred_t *cred, avlist *list) {
    if (cred->state_args == nullptr) {
        return;
    }
    const cerrno code = copy_pairs(cred->state_args, list);
    if (code != AAA_ERR_AVPAIR_NOT_FOUND && tracing(AAA_DBG_REQUEST)) {
        aaa_debug(AAA_DBG_REQUEST, "Failed to copy state args to request, ignoring - %s",
                  cerr_strerror(code));
    }
}

// The pairs that only requests for authentication and authorization carry.
cerrno append_non_accounting(const aaa_usercred_t *cred, avlist *list, int32_t service, uint32_t type) {
    const cerrno code = append_secrets(cred, list, service, type);
    if (code == AAA_OK) {
        append_state_args(cred, list);
    }
    return code;
}

cerrno append_plexa(const aaa_usercred_t *cred, avlist *list) {
    if (cred->in_attr_list != nullptr) {
        const cerrno code = copy_pairs(cred->in_attr_list, list);
        if (code != AAA_ERR_AVPAIR_NOT_FOUND && tracing(AAA_DBG_REQUEST)) {
            // "byplexa" is kept: log readers match this line.
            aaa_debug(AAA_DBG_REQUEST,
                      "Failed to copy in_attr_list provided byplexa service to request, ignoring - %s",
                      cerr_strerror(code));
        }
    }
    return absent_counts_as_success(append_u32(AAA_VS_UNIQUE_ID, cred->unique_id, list));
}

cerrno append_mnemonic(aaa_usercred_t *cred, avlist *list, uint32_t not_accounting, const char *caller) {
    char mnemonic[kTerminalName] = {};
    sstrncpy(mnemonic, cred->tty_mnemonic, sizeof mnemonic);
    cerrno code = AAA_OK;
    if (mnemonic[0] != '\0') {
        aaa_debug(AAA_DBG_REQUEST, "[%s][%d] add tty mnemonic to list : %s", caller, __LINE__, mnemonic);
        code = append(AAA_TTY_MNEMONIC_ATTR, mnemonic, stored_length(mnemonic), list);
    }
    if (not_accounting != 0) {
        static_cast<void>(aaa_util_check_linetype(cred));
        const FieldText detail(cred->line_detail);
        const FieldText detail2(cred->line_detail2);
        // "catgory" is kept: log readers match this line.
        aaa_debug(AAA_DBG_AVLIST, "[%s] Not a accounting req, tty: %s, details : %s[%s] catgory: %d", caller,
                  mnemonic, detail.text, detail2.text, cred->line_category);
    }
    return absent_counts_as_success(code);
}

}  // namespace

extern "C" {

cerrno aaa_util_add_usercred_in_avlist(aaa_usercred_t *cred, avlist *list, int32_t service,
                                       [[maybe_unused]] uint32_t reserved, uint32_t type) {
    if (cred == nullptr || list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno code = append_username(cred, list);
    if (code == AAA_OK) {
        code = replace_authen_method(cred, list);
    }
    if (code == AAA_OK && has_terminal(service)) {
        code = append_terminal(cred, list, type);
    }
    if (code == AAA_OK && has_remote_address(service)) {
        code = append_remote_address(cred, list);
    }
    if (code == AAA_OK) {
        code = append_interface(cred, list);
    }
    if (code == AAA_OK && !is_accounting(type)) {
        code = append_non_accounting(cred, list, service, type);
    }
    if (code == AAA_OK && service == AAA_SVC_PLEXA) {
        code = append_plexa(cred, list);
    }
    return code;
}

cerrno aaa_lib_update_mnemonic_and_flags(aaa_usercred_t *cred, avlist *list, uint32_t not_accounting) {
    // "nedd" is kept: log readers match this line.
    aaa_debug(AAA_DBG_REQUEST, "[%s] entry : is nedd flag : %d", __func__, not_accounting);
    if (cred == nullptr) {
        aaa_debug(AAA_DBG_REQUEST, "[%s][%d] Error: Invalid Input : %d", __func__, __LINE__,
                  AAA_ERR_INVALID_ARG);
        return AAA_ERR_INVALID_ARG;
    }
    if (cred->tty_mnemonic != nullptr && append_mnemonic(cred, list, not_accounting, __func__) != AAA_OK) {
        return AAA_OK;
    }
    aaa_debug(AAA_DBG_REQUEST, "[%s] adding attr AAA_USER_DB_FLAG_62_ATTR", __func__);
    if (append_u32(AAA_USER_DB_FLAG_ATTR, cred->user_db_flag, list) == AAA_ERR_INVALID_ARG) {
        aaa_debug(AAA_DBG_REQUEST, "[%s] failed to add attr AAA_USER_DB_FLAG_62_ATTR", __func__);
    }
    return AAA_OK;
}

}  // extern "C"
