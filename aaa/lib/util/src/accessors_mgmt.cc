// SPDX-License-Identifier: Apache-2.0
//
// Typed accessors of the management attributes: the identity of a management
// request and of the commit that it belongs to. Each says in the trace which
// attribute was missing.

#include "aaa/accessors.h"

#include "internal/accessors.hpp"
#include "internal/trace.hpp"

using aaautil::get_text;
using aaautil::tracing;

char *aaa_util_avlist_cfg_commitid_get(const avlist *list) {
    char *text = get_text(AAA_CFG_COMMIT_ID_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_CFG_COMMIT_ID_ATTR attr (%d)", AAA_CFG_COMMIT_ID_ATTR);
    }
    return text;
}

char *aaa_util_avlist_apl_sessid_get(const avlist *list) {
    char *text = get_text(AAA_MGBL_APL_SESSID_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_MGBL_APL_SESSID_ATTR attr (%d)",
                  AAA_MGBL_APL_SESSID_ATTR);
    }
    return text;
}

char *aaa_util_avlist_apl_msgid_get(const avlist *list) {
    char *text = get_text(AAA_MGBL_APL_MSGID_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_MGBL_APL_MSGID_ATTR attr (%d)",
                  AAA_MGBL_APL_MSGID_ATTR);
    }
    return text;
}

char *aaa_util_avlist_rpc_name_get(const avlist *list) {
    char *text = get_text(AAA_MBGL_RPCNAME_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_MBGL_RPCNAME_ATTR attr (%d)", AAA_MBGL_RPCNAME_ATTR);
    }
    return text;
}

char *aaa_util_avlist_rpc_xpath1_get(const avlist *list) {
    char *text = get_text(AAA_MGBL_RPC_XPATH1_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_MGBL_RPC_XPATH1_ATTR attr (%d)",
                  AAA_MGBL_RPC_XPATH1_ATTR);
    }
    return text;
}

char *aaa_util_avlist_rpc_xpath2_get(const avlist *list) {
    char *text = get_text(AAA_MGBL_RPC_XPATH2_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_MGBL_RPC_XPATH2_ATTR attr (%d)",
                  AAA_MGBL_RPC_XPATH2_ATTR);
    }
    return text;
}

char *aaa_util_avlist_rpc_xpath3_get(const avlist *list) {
    char *text = get_text(AAA_MGBL_RPC_XPATH3_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_MGBL_RPC_XPATH3_ATTR attr (%d)",
                  AAA_MGBL_RPC_XPATH3_ATTR);
    }
    return text;
}

char *aaa_util_avlist_rpc_xpath4_get(const avlist *list) {
    char *text = get_text(AAA_MGBL_RPC_XPATH4_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_MGBL_RPC_XPATH4_ATTR attr (%d)",
                  AAA_MGBL_RPC_XPATH4_ATTR);
    }
    return text;
}

char *aaa_util_avlist_commit_start_time_get(const avlist *list) {
    char *text = get_text(AAA_CFG_COMMIT_STRTIME_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_CFG_COMMIT_STRTIME_ATTR attr (%d)",
                  AAA_CFG_COMMIT_STRTIME_ATTR);
    }
    return text;
}

char *aaa_util_avlist_commit_stop_time_get(const avlist *list) {
    char *text = get_text(AAA_CFG_COMMIT_ENDTIME_ATTR, list);
    if (text == nullptr && tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find AAA_CFG_COMMIT_ENDTIME_ATTR attr (%d)",
                  AAA_CFG_COMMIT_ENDTIME_ATTR);
    }
    return text;
}
