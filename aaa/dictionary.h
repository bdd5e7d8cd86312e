/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_DICTIONARY_H
#define AAA_DICTIONARY_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct aaa_table_row {
    uint32_t    type;     /* always the row's index */
    uint32_t    format;   /* 0..3; 1 in the empty row 809 */
    uint64_t    no_entry; /* 0 defined, 1 empty */
    const char *name;     /* null in an empty row */
} aaa_table_row_t;
/* sizeof(aaa_table_row_t) == 24 */

enum aaa_format { AAA_FORMAT_STRING = 0, AAA_FORMAT_INTEGER = 1, AAA_FORMAT_BINARY = 2, AAA_FORMAT_IPADDR = 3 };

#define AAA_ATTR_MAX   2070
#define AAA_TABLE_ROWS 2071

/* flag bits with a meaning */
#define AAA_AVF_PRINT_EQUALS 0x4u   /* prints '=' instead of '*' */
#define AAA_AVF_PRINT_OUT    0x8u   /* prints "[out] " */
#define AAA_AVF_UPDATED      0x400u /* set by the password, sequence-number, message-type and authentication-method updates */

/* address record: 8-bit family (2 = IPv4), then the address bytes aligned to 4; 20 bytes */
typedef struct aaa_ip_addr {
    uint8_t family;
    uint8_t pad1[3];
    union {
        uint32_t v4; /* first 4 address bytes */
        uint8_t  bytes[16];
    } addr;
} aaa_ip_addr_t;
/* sizeof(aaa_ip_addr_t) == 20 */

#define AAA_ATTR_DEFINED_ROWS 627

/** One enumerator for every defined attribute: its name, with its type as value. */
enum aaa_attr {
#define AAA_ATTRIBUTE(type, format, name) name = (type),
#include "aaa/dictionary.def"
    AAA_ATTR_ENUM_END_ = AAA_ATTR_MAX /**< no attribute; closes the enumeration */
};

AAA_API extern const aaa_table_row_t aaa_table[AAA_TABLE_ROWS];
AAA_API const char *aaa_attribute_pname(int32_t type);
AAA_API uint32_t aaa_attribute_format(int32_t type);
AAA_API char *aaa_util_print_attr(uint32_t type, uint32_t length, avpair_flags_t flags, const void *value, char *buffer, uint32_t size);
AAA_API int aaa_util_format_ipaddr(uint32_t address, char *buffer);
AAA_API const char *aaa_util_format_v4v6_ipaddr(char *buffer, aaa_ip_addr_t address); /* record by value: 20 bytes on the stack */

#ifdef __cplusplus
}
#endif

#endif /* AAA_DICTIONARY_H */
