/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_DICTIONARY_H
#define AAA_DICTIONARY_H

#include <assert.h>
#include <stddef.h>

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief The attribute dictionary, and text for attributes and addresses.
 *
 * The dictionary gives an attribute type its name and the format of its value.
 * It has a row for every type from 0 to AAA_ATTR_MAX; most types have no
 * attribute. The same rows are in aaa/dictionary.def, for programs that want to
 * expand them into tables of their own.
 *
 * Names are kept as they are, also where a word is misspelt or a suffix is
 * missing. Everything here may be called from any thread.
 */

/** Formats of values. */
enum aaa_format {
    AAA_FORMAT_STRING = 0,  /**< text, with a NUL when its adder stores one */
    AAA_FORMAT_INTEGER = 1, /**< one 32-bit integer, in host order in memory */
    AAA_FORMAT_BINARY = 2,  /**< bytes */
    AAA_FORMAT_IPADDR = 3   /**< IPv4 address as an integer; its highest byte is first in the dotted form */
};

/** The highest type. It names no attribute; as the type of a pair it marks the pair as deleted. */
#define AAA_ATTR_MAX 2070
/** Rows of the dictionary. */
#define AAA_TABLE_ROWS 2071
/** Rows with an attribute. */
#define AAA_ATTR_DEFINED_ROWS 627

/** One enumerator for every attribute: its name, with its type as value. */
enum aaa_attr {
/** @cond the rows bring the enumerators */
#define AAA_ATTRIBUTE(type, format, name) name = (type),
#include "aaa/dictionary.def"
    /** @endcond */
    AAA_ATTR_ENUM_END_ = AAA_ATTR_MAX /**< no attribute; closes the enumeration */
};

/* Flag bits of a pair that have a meaning; the others are the callers'. */
#define AAA_AVF_PRINT_EQUALS 0x4u   /**< printed with '=', without it with '*' */
#define AAA_AVF_PRINT_OUT    0x8u   /**< printed with "[out] " */
#define AAA_AVF_UPDATED      0x400u /**< set by updates: password, sequence number, message type, method */

/** Row of the dictionary. */
typedef struct aaa_table_row {
    uint32_t type;     /**< the row's own index */
    uint32_t format;   /**< enum aaa_format; in rows without an attribute 0, but 1 in row 809 */
    uint64_t no_entry; /**< 0: an attribute; 1: none */
    const char *name;  /**< null in a row without an attribute */
} aaa_table_row_t;
static_assert(sizeof(aaa_table_row_t) == 24, "layout of aaa_table_row_t");
static_assert(offsetof(aaa_table_row_t, type) == 0, "layout of aaa_table_row_t");
static_assert(offsetof(aaa_table_row_t, format) == 4, "layout of aaa_table_row_t");
static_assert(offsetof(aaa_table_row_t, no_entry) == 8, "layout of aaa_table_row_t");
static_assert(offsetof(aaa_table_row_t, name) == 16, "layout of aaa_table_row_t");

/** IPv4 or IPv6 address. */
typedef struct aaa_ip_addr {
    uint8_t family;  /**< 2: IPv4; others are taken for IPv6 and handed to the platform as they are */
    uint8_t pad1[3]; /**< not used */
    union {
        uint32_t v4;       /**< the first 4 address bytes, unconverted */
        uint8_t bytes[16]; /**< network order; IPv4 uses the first 4 */
    } addr;                /**< the address */
} aaa_ip_addr_t;
static_assert(sizeof(aaa_ip_addr_t) == 20, "layout of aaa_ip_addr_t");
static_assert(offsetof(aaa_ip_addr_t, family) == 0, "layout of aaa_ip_addr_t");
static_assert(offsetof(aaa_ip_addr_t, addr) == 4, "layout of aaa_ip_addr_t");

/** The dictionary, indexed by type; read-only. */
AAA_API extern const aaa_table_row_t aaa_table[AAA_TABLE_ROWS];

/**
 * Gives the name of an attribute type.
 * @param[in] type 1 to AAA_ATTR_MAX. Type 0 counts as invalid although its row has a name: kept.
 *
 * Ownership: *Borrowed* until the library is unloaded.
 * @return the name, null for a type without an attribute, "<invalid attribute>" when out of range
 */
AAA_API const char *aaa_attribute_pname(int32_t type);

/**
 * Gives the value format of an attribute type.
 * @param[in] type 1 to AAA_ATTR_MAX; 0 counts as invalid
 * @return an enum aaa_format, also for types without an attribute; 0xFFFFFFFF when out of range
 */
AAA_API uint32_t aaa_attribute_format(int32_t type);

/**
 * Writes a pair as one line of text: "    NAME (TYPE/LENGTH) [out] = VALUE" and a line feed.
 *
 * The value is rendered by a rule of its type, or else by the type's format:
 * text up to its NUL or its length, 32-bit integers in decimal, anything else as
 * the first four bytes in hexadecimal and three dots. Some integers are rendered
 * by name. Passwords show as "*". Integers and addresses are read from the first
 * four bytes of the value in host order, shorter values as if zeros followed.
 *
 * The line is cut where the buffer ends; 1024 bytes hold every line whose text
 * value is not longer than about 900. For attribute AAA_AUTHEN_METHOD_ATTR with
 * a value of 1000 to 4999, the name of the server group is looked up in the
 * system database, and memory is allocated while the line is written.
 * @param[in]  type   attribute type, of any value
 * @param[in]  length bytes of the value
 * @param[in]  flags  flag bits of the pair
 * @param[in]  value  value bytes, need not end in NUL; may be null ("<value is NULL>" is written)
 * @param[out] buffer the line, always terminated when size is not 0; may be null (nothing is written)
 * @param[in]  size   bytes of the buffer
 *
 * Ownership: the caller's buffer is *Borrowed* for the call.
 * @return buffer
 */
AAA_API char *aaa_util_print_attr(uint32_t type, uint32_t length, avpair_flags_t flags, const void *value,
                                  char *buffer, uint32_t size);

/**
 * Writes an IPv4 address in its dotted form.
 * @param[in]  address address as an integer, most significant byte first in the text: 0xC0A80101 is
 *                     192.168.1.1
 * @param[out] buffer  at least 16 bytes; terminated; may be null (nothing is written)
 * @return characters written, without the NUL; 0 for a null buffer
 */
AAA_API int aaa_util_format_ipaddr(uint32_t address, char *buffer);

/**
 * Writes an IPv4 or IPv6 address as text.
 * @param[out] buffer  at least 16 bytes for family 2, else 46; unspecified contents on failure
 * @param[in]  address the address, passed by value
 * @return buffer, or null when buffer is null or the platform refuses the family
 */
AAA_API const char *aaa_util_format_v4v6_ipaddr(char *buffer, aaa_ip_addr_t address);

#ifdef __cplusplus
}
#endif

#endif /* AAA_DICTIONARY_H */
