/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_METHOD_LISTS_H
#define AAA_METHOD_LISTS_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* methods array of lookup_methods: malloc(28), seven words, the first four hold the methods */
#define AAA_METHODS_WORDS 7

/* registration record, caller's */
typedef struct aaa_mlist_reg {
    uint64_t connection;
    uint64_t notification;
} aaa_mlist_reg_t;
/* sizeof(aaa_mlist_reg_t) == 16 */

/* event record of aaa_tform_event, network byte order on arrival */
typedef struct aaa_event_record {
    uint32_t word0;
    uint8_t  keep4[4]; /* not touched */
    uint32_t word8;
    uint32_t word12; /* low-order byte after conversion: 2 = short form */
    uint8_t  keep16[8]; /* not touched */
    uint32_t word24; /* arrives as a 16-bit big-endian value in its first two bytes */
    uint32_t word28; /* likewise */
} aaa_event_record_t;
/* sizeof(aaa_event_record_t) == 32 */

/* notification callback handed through to the platform unchanged */
typedef int32_t (*aaa_notify_cb_t)(const void *notification, void *callback_arg, void *user_ctx);


AAA_API cerrno aaa_util_lookup_methodlist(const char *function_word, const char *service_word, const char *list_name);
AAA_API cerrno aaa_util_verify_methodlist(int function, int service, const char *list_name);
AAA_API cerrno lookup_methods(char *path, uint32_t **methods_out);
AAA_API int aaa_is_name_valid(char *name); /* 1 or 0 */

AAA_API cerrno aaa_mlist_change_register(uint32_t function, uint32_t service, const char *list_name, aaa_notify_cb_t callback, void *callback_arg, void *user_ctx, aaa_mlist_reg_t *registration_record);
AAA_API cerrno aaa_mlist_change_unregister(aaa_mlist_reg_t *registration_record);
AAA_API aaa_event_record_t *aaa_tform_event(aaa_event_record_t **event);

#ifdef __cplusplus
}
#endif

#endif /* AAA_METHOD_LISTS_H */
