/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_ACCESSORS_H
#define AAA_ACCESSORS_H

#include "aaa/export.h"
#include "aaa/types.h"
#include "aaa/avpair.h"
#include "aaa/dictionary.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct aaa_chap_data {
    uint8_t  id;
    uint8_t *data;
    uint32_t data_len;
    uint8_t *response;
    uint32_t response_len;
} aaa_chap_data_t;
/* sizeof(aaa_chap_data_t) == 40 */

#define AAA_RSA_NAME_LEN        128
#define AAA_RSA_TRUSTPOINTS     10
#define AAA_RSA_OPENSSH_TPS     256
#define AAA_RSA_HIBA_ROLE_LEN   450

typedef struct aaa_rsa_params {
    char    *username; /* filled by the getter only */
    uint8_t *signature;
    uint32_t signature_len;
    uint8_t *indata;
    uint32_t indata_len;
    uint8_t *session_id;
    uint32_t session_id_len;
    uint32_t pubkey_type;
    char     trustpoint_names[AAA_RSA_TRUSTPOINTS][AAA_RSA_NAME_LEN];
    uint32_t trustpoint_count;
    uint32_t username_fields;
    char     openssh_trustpoint_names[AAA_RSA_OPENSSH_TPS][AAA_RSA_NAME_LEN];
    uint32_t openssh_trustpoint_count;
    char     openssh_host_trustpoint_name[AAA_RSA_NAME_LEN];
    char     hiba_authorization_role[AAA_RSA_HIBA_ROLE_LEN];
    char     sign_algname[AAA_RSA_NAME_LEN];
    uint8_t  hiba_authorization_enable;
} aaa_rsa_params_t;
/* sizeof(aaa_rsa_params_t) == 34824 */


/* generic */
AAA_API cerrno aaa_util_avpair_add_attr(avlist *list, uint32_t type, const void *value, uint32_t length, uint32_t tag);
AAA_API cerrno aaa_util_avpair_add_attr_onep(avlist *list, uint32_t type, const void *value, uint32_t length, uint32_t tag, avpair_flags_t flags);
AAA_API cerrno aaa_util_avpair_update(uint32_t type, avpair_flags_t flags, void *value, uint32_t length, uint32_t tag, uint32_t instance, avlist *list);
/* add and update */
AAA_API cerrno aaa_util_avlist_username_add(const char *value, int32_t length, avlist *list); /* length 1..254, signed */
AAA_API cerrno aaa_util_avlist_password_add(const char *value, uint32_t length, avlist *list);
AAA_API cerrno aaa_util_avlist_status_add(uint32_t status, uint32_t length, avlist *list);
AAA_API cerrno aaa_util_avlist_prompt_add(uint32_t flags, const char *prompt, avlist *list);
AAA_API cerrno aaa_util_avlist_chap_response_add(const void *value, uint32_t length, avlist *list);
AAA_API cerrno aaa_util_avlist_inbound_chap_data_add(const aaa_chap_data_t *chap, avlist *list);
AAA_API cerrno aaa_util_avlist_inbound_mschap_data_add(const aaa_chap_data_t *chap, avlist *list);
AAA_API cerrno aaa_util_avlist_outbound_chap_data_add(const aaa_chap_data_t *chap, avlist *list);
AAA_API cerrno aaa_util_avlist_outbound_mschap_data_add(const aaa_chap_data_t *chap, avlist *list);
AAA_API cerrno aaa_util_avlist_directed_addr_add(uint32_t address, avlist *list);
AAA_API cerrno aaa_util_avlist_seqnum_add(avlist *list, uint32_t number);
AAA_API cerrno aaa_util_avlist_cmd_add(const char *text, uint32_t length, avlist *list);
AAA_API cerrno aaa_util_avlist_priv_add(avlist *list, uint32_t level);
AAA_API cerrno aaa_util_avlist_errmsg_add(avlist *list, const char *text);
AAA_API cerrno aaa_util_avlist_authen_method_set(uint32_t method, avlist *list);
AAA_API cerrno aaa_util_avlist_authen_option_add(uint32_t option, avlist *list);
AAA_API cerrno aaa_util_avlist_msgtype_add(uint32_t msgtype, avlist *list);
AAA_API cerrno aaa_util_avlist_rsa_params_add(avlist *list, const aaa_rsa_params_t *params);
/* get */
AAA_API cerrno aaa_util_avlist_data_get(void **value, uint32_t *length, const avlist *list);
AAA_API aaa_ip_addr_t *aaa_util_avlist_directed_addr_get(aaa_ip_addr_t *out, const avlist *list);
AAA_API cerrno aaa_util_avlist_inbound_chap_data_get(aaa_chap_data_t *out, const avlist *list);
AAA_API cerrno aaa_util_avlist_inbound_mschap_data_get(aaa_chap_data_t *out, const avlist *list);
AAA_API cerrno aaa_util_avlist_outbound_chap_data_get(aaa_chap_data_t *out, const avlist *list);
AAA_API cerrno aaa_util_avlist_outbound_mschap_data_get(aaa_chap_data_t *out, const avlist *list);
AAA_API uint32_t aaa_util_avlist_current_method_get(const avlist *list);
AAA_API char *aaa_util_avlist_reply_msg_get(const avlist *list, uint32_t instance);
AAA_API char *aaa_util_avlist_cmd_get(const avlist *list);
AAA_API uint32_t aaa_util_avlist_priv_get(const avlist *list);
AAA_API void *aaa_util_avlist_ctx_get(const avlist *list);
AAA_API uint32_t aaa_util_avlist_last_used_server_ip_get(avlist *list);
AAA_API uint32_t aaa_util_avlist_status_get(const avlist *list);
AAA_API uint32_t aaa_get_status(const avlist *list);
AAA_API char *aaa_util_avlist_errmsg_get(avlist *list); /* heap copy, the pair is removed */
AAA_API char *aaa_util_avlist_prompt_get(avlist *list, avpair_flags_t *flags); /* heap copy, the pair is removed */
AAA_API uint32_t aaa_util_avlist_authen_method_get(const avlist *list);
AAA_API uint32_t aaa_util_avlist_curr_method_val_get(const avlist *list);
AAA_API uint32_t aaa_util_avlist_authen_option_get(const avlist *list); /* 0x8000 when absent */
AAA_API void *aaa_util_avlist_chap_response_get(uint32_t *length, const avlist *list);
AAA_API uint32_t aaa_util_avlist_svc_get(const avlist *list);
AAA_API void *aaa_util_avlist_src_get(const avlist *list);
AAA_API char *aaa_util_avlist_username_get(const avlist *list);
AAA_API char *aaa_util_avlist_tty_get(const avlist *list);
AAA_API char *aaa_util_avlist_tty_name_get(const avlist *list);
AAA_API uint32_t aaa_util_avlist_user_flag_get(const avlist *list);
AAA_API uint32_t aaa_util_avlist_ifh_get(const avlist *list);
AAA_API int aaa_util_avlist_methodlist_get_all(uint32_t *destination, uint32_t *count, const avlist *list);
AAA_API void *aaa_util_avlist_methodlist_get(const avlist *list);
AAA_API char *aaa_util_avlist_password_get(const avlist *list, uint32_t *length);
AAA_API char *aaa_util_avlist_remaddr_get(const avlist *list, uint32_t *length);
AAA_API cerrno aaa_util_avlist_seqnum_get(const avlist *list, uint32_t *number);
AAA_API cerrno aaa_util_avlist_sessionid_get(const avlist *list, uint32_t *number);
AAA_API cerrno aaa_util_avlist_acct_sessid_get(const avlist *list, uint32_t *number);
AAA_API cerrno aaa_util_avlist_idletime_get(const avlist *list, uint32_t *number);
AAA_API uint32_t aaa_util_msgtype_get(const avlist *list);
AAA_API cerrno aaa_util_avlist_rsa_params_get(const avlist *list, aaa_rsa_params_t *out);
AAA_API char *aaa_util_avlist_cfg_commitid_get(const avlist *list);
AAA_API char *aaa_util_avlist_apl_sessid_get(const avlist *list);
AAA_API char *aaa_util_avlist_apl_msgid_get(const avlist *list);
AAA_API char *aaa_util_avlist_rpc_name_get(const avlist *list);
AAA_API char *aaa_util_avlist_rpc_xpath1_get(const avlist *list);
AAA_API char *aaa_util_avlist_rpc_xpath2_get(const avlist *list);
AAA_API char *aaa_util_avlist_rpc_xpath3_get(const avlist *list);
AAA_API char *aaa_util_avlist_rpc_xpath4_get(const avlist *list);
AAA_API char *aaa_util_avlist_commit_start_time_get(const avlist *list);
AAA_API char *aaa_util_avlist_commit_stop_time_get(const avlist *list);

#ifdef __cplusplus
}
#endif

#endif /* AAA_ACCESSORS_H */
