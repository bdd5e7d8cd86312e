// SPDX-License-Identifier: Apache-2.0
//
// Typed accessors of the management attributes: the identity of a management
// request and of the commit that it belongs to. The trace names the attribute
// that is missing.

#include "aaa/accessors.h"

#include "internal/accessors.hpp"
#include "internal/trace.hpp"

namespace {

// The text of an attribute, or null, with a trace line that names the attribute.
char *get_traced(aaa_attr type, const char *name, const avlist *list) {
    char *text = aaautil::get_text(type, list);
    if (text == nullptr && aaautil::tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Failed to Find %s attr (%d)", name, type);
    }
    return text;
}

}  // namespace

extern "C" {

char *aaa_util_avlist_cfg_commitid_get(const avlist *list) {
    return get_traced(AAA_CFG_COMMIT_ID_ATTR, "AAA_CFG_COMMIT_ID_ATTR", list);
}

char *aaa_util_avlist_apl_sessid_get(const avlist *list) {
    return get_traced(AAA_MGBL_APL_SESSID_ATTR, "AAA_MGBL_APL_SESSID_ATTR", list);
}

char *aaa_util_avlist_apl_msgid_get(const avlist *list) {
    return get_traced(AAA_MGBL_APL_MSGID_ATTR, "AAA_MGBL_APL_MSGID_ATTR", list);
}

char *aaa_util_avlist_rpc_name_get(const avlist *list) {
    return get_traced(AAA_MBGL_RPCNAME_ATTR, "AAA_MBGL_RPCNAME_ATTR", list);
}

char *aaa_util_avlist_rpc_xpath1_get(const avlist *list) {
    return get_traced(AAA_MGBL_RPC_XPATH1_ATTR, "AAA_MGBL_RPC_XPATH1_ATTR", list);
}

char *aaa_util_avlist_rpc_xpath2_get(const avlist *list) {
    return get_traced(AAA_MGBL_RPC_XPATH2_ATTR, "AAA_MGBL_RPC_XPATH2_ATTR", list);
}

char *aaa_util_avlist_rpc_xpath3_get(const avlist *list) {
    return get_traced(AAA_MGBL_RPC_XPATH3_ATTR, "AAA_MGBL_RPC_XPATH3_ATTR", list);
}

char *aaa_util_avlist_rpc_xpath4_get(const avlist *list) {
    return get_traced(AAA_MGBL_RPC_XPATH4_ATTR, "AAA_MGBL_RPC_XPATH4_ATTR", list);
}

char *aaa_util_avlist_commit_start_time_get(const avlist *list) {
    return get_traced(AAA_CFG_COMMIT_STRTIME_ATTR, "AAA_CFG_COMMIT_STRTIME_ATTR", list);
}

char *aaa_util_avlist_commit_stop_time_get(const avlist *list) {
    return get_traced(AAA_CFG_COMMIT_ENDTIME_ATTR, "AAA_CFG_COMMIT_ENDTIME_ATTR", list);
}

}  // extern "C"
