/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_SERVER_GROUPS_H
#define AAA_SERVER_GROUPS_H

/**
 * @file
 * @brief Server groups: names and numbers, configuration changes, server indexes.
 *
 * Operators name server groups; inside the AAA system they are numbers. The
 * AAA server publishes both directions in the system database under
 * "/oper/aaa/gl/group-server/". The lookups read through the shared handle
 * aaa_sgmap_sysdb_connid and bind it on first use. A group belongs to one
 * protocol: 1 RADIUS, 2 TACACS, 17 Diameter (indexes into the method keywords).
 *
 * Codes of the system database pass through unchanged; the two that callers
 * tell apart are SYSDB_ERR_NOT_FOUND (0x40818600) and SYSDB_ERR_LIB_ABSENT
 * (0x8081c200). A shared handle that cannot be bound is logged (ERR_SYSDB) and
 * tried again at the next call.
 *
 * Threads: any; the shared handles are read and bound without a lock.
 */

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One changed item of configuration, as the configuration system hands it over. */
typedef struct aaa_cfg_event {
    uint32_t operation; /**< AAA_CFG_OP_... */
    uint8_t pass_flags; /**< AAA_CFG_FIRST_PASS or 0 */
    uint8_t pad5[3];
} aaa_cfg_event_t;

#define AAA_CFG_OP_SET         2u
#define AAA_CFG_OP_CREATE      3u
#define AAA_CFG_OP_DELETE      4u
#define AAA_CFG_FIRST_PASS     0x10u /**< first pass of a two-pass change */
#define AAA_VERDICT_ACCEPTED   1u
#define AAA_VERDICT_REJECTED   2u
#define AAA_VERDICT_FIRST_PASS 4u          /**< to be decided in the second pass */
#define AAA_INDEX_ANY          0xFFFFFFFFu /**< any free server index */

/**
 * Returns the method keyword with the given index, the protocol word of database paths.
 *
 * @param[in] protocol index, 0 to 17
 *
 * Ownership: *Borrowed* until the library is unloaded.
 *
 * @return the word, or null above 17
 */
AAA_API const char *aaa_util_get_sg_defined_name(uint32_t protocol);

/**
 * Returns the name of the server group with the given number.
 *
 * RADIUS and TACACS numbers are searched, in this order; Diameter numbers are not.
 *
 * @param[in] sg_number group number
 *
 * Ownership: *Caller frees* the result.
 *
 * @return the name, or null when no such group exists or the database cannot be read
 */
AAA_API char *aaa_util_lookup_sg_name(uint32_t sg_number);

/**
 * Finds the number and the protocol of a server group by its name.
 *
 * Protocols are searched in the order RADIUS, TACACS, Diameter; the first that
 * knows the name wins. A failure other than "not found" ends the search.
 *
 * @param[in]  sg_name       NUL-terminated group name
 * @param[out] sg_number_out receives the number, 0 on failure; may be null
 * @param[out] protocol_out  receives 1, 2 or 17; 0 when the name is not found; untouched
 *                           on any other failure; may be null
 *
 * Ownership: *Borrowed* for the call.
 *
 * @return
 * - AAA_OK: found
 * - AAA_ERR_INVALID_ARG: @p sg_name is null; the outputs are untouched
 * - SYSDB_ERR_NOT_FOUND: no protocol knows the name
 * - SYSDB_ERR_LIB_ABSENT: the database's client library is not installed
 * - AAA_ERR_SG_MAPPING: the stored number is malformed and @p sg_number_out is not null
 * - any other code of the system database
 */
AAA_API cerrno aaa_util_lookup_sg_index_and_get_type(const char *sg_name, uint32_t *sg_number_out,
                                                     uint32_t *protocol_out);

/**
 * Finds the number of a server group by its name.
 *
 * Does what aaa_util_lookup_sg_index_and_get_type() does with a null protocol_out.
 *
 * @param[in]  sg_name       NUL-terminated group name
 * @param[out] sg_number_out receives the number, 0 on failure; may be null
 *
 * Ownership: *Borrowed* for the call.
 *
 * @return the codes of aaa_util_lookup_sg_index_and_get_type()
 */
AAA_API cerrno aaa_util_lookup_sg_index(const char *sg_name, uint32_t *sg_number_out);

/**
 * Checks whether a change of a server group may be made.
 *
 * Set and create are refused for a name that is a method keyword or that a
 * group of another protocol has; delete is refused for a group that a method
 * list names. A failing read of another protocol's names does not refuse; an item
 * that can be read does, also when the number in it is malformed. A method list
 * that cannot be read, or whose path exceeds 511 bytes, is passed over.
 *
 * @param[in]  event    the change
 * @param[out] err_text receives a text for the operator on some refusals (null when there is
 *                      no memory for it), else untouched; preset it to null. May be null for a
 *                      delete, whose refusals have no text
 * @param[out] verdict  receives AAA_VERDICT_REJECTED, AAA_VERDICT_ACCEPTED, or, for a
 *                      delete in the first pass, AAA_VERDICT_FIRST_PASS (RADIUS:
 *                      AAA_VERDICT_ACCEPTED) with every result
 * @param[in]  sg_name  NUL-terminated group name; may be null for an unknown operation
 * @param[in]  protocol 1, 2 or 17
 *
 * Ownership: *Caller frees* @p err_text.
 *
 * @return
 * - AAA_OK: the change may be made
 * - AAA_ERR_INVALID_ARG: @p event or @p verdict is null (the outputs are untouched);
 *   @p sg_name is null; the name is a keyword, the protocol or the operation is unknown;
 *   @p err_text is null and the refusal has a text
 * - AAA_ERR_SG_NAME_OTHER_PROTOCOL: another protocol has a group of that name
 * - AAA_ERR_SG_IN_USE: a method list names the group
 * - AAA_ERR_NOMEM: no memory for the search of a delete
 * - AAA_ERR_INVALID_METHOD: a method list cannot be unpacked
 * - AAA_ERR_BUFFER_TOO_SMALL: the configuration tree nests too deep, or the path of a directory
 *   exceeds 511 bytes
 * - a code of the system database
 */
AAA_API cerrno aaa_util_svr_grp_verify(const aaa_cfg_event_t *event, char **err_text, uint32_t *verdict,
                                       const char *sg_name, uint32_t protocol);

/**
 * Brings the maps of groups in line with a change of a server group.
 *
 * Set and create keep the number of a group that has one, rewrite a missing
 * entry from number to name, and give a new group the number after the
 * highest of its protocol: RADIUS from 1001 to 1999, every other from 3001 to
 * 3999. Delete removes both items; an item that cannot be removed does not
 * make it fail. In the first pass only a RADIUS group is deleted.
 *
 * @param[in]  conn          the caller's connection, bound at "/oper/aaa/gl/group-server/"
 * @param[in]  event         the change
 * @param[in]  protocol_name "radius", "tacacs" or "diameter"
 * @param[in]  sg_name       NUL-terminated group name
 * @param[out] sg_number     receives the number, 0 where the group has none; after a create that
 *                           failed while it was written, the number that was tried; untouched when a
 *                           pointer is null, the operation is unknown, or nothing is to be done in
 *                           this pass. The pointers are not looked at in that pass
 *
 * Ownership: *Copied in* to the database.
 *
 * @return
 * - AAA_OK: done, or nothing to be done in this pass
 * - AAA_ERR_INVALID_ARG: a pointer is null, or the operation is unknown
 * - AAA_ERR_SG_MAPPING: the numbers are used up, or the stored maps contradict each other
 * - a code of the system database; for set and create also logged, for a delete
 *   SYSDB_ERR_NOT_FOUND when there is no such group
 */
AAA_API cerrno aaa_util_svr_grp_apply(uint64_t conn, const aaa_cfg_event_t *event, const char *protocol_name,
                                      const char *sg_name, uint32_t *sg_number);

/**
 * Chooses or checks the index under which a server is stored in a list of servers.
 *
 * The list is that of a group, or, with a null @p sg_name, of all servers of
 * the protocol. With AAA_INDEX_ANY the index is one more than that of the
 * entry listed last. With a certain index the call succeeds, and the index
 * handed back is still one more than the last, when neither the index nor the
 * host is in use. A server that is already stored at the requested index gives
 * success and index 0, and so does a list that does not exist yet.
 *
 * @param[in]  sg_name    group name; null for the protocol's own list
 * @param[in]  protocol   1, 2 or 17
 * @param[in]  requested  index, or AAA_INDEX_ANY
 * @param[out] index_out  receives the index; 0 on failure, except that with AAA_INDEX_ANY a failure
 *                        met while the list is walked leaves one more than the entry seen last
 * @param[in]  host       NUL-terminated address text
 * @param[in]  port1      first port; the only one of protocols other than RADIUS
 * @param[in]  port2      second port (RADIUS)
 * @param[in]  is_dir     non-zero when servers are stored as directories
 * @param[in]  is_private non-zero for the group's private servers; without a group not looked at
 *
 * Ownership: *Borrowed* for the call. The connection that is opened is closed again.
 *
 * @return
 * - AAA_OK: @p index_out is set as said above
 * - AAA_ERR_INVALID_ARG: @p index_out or @p host is null
 * - AAA_ERR_INDEX_IN_USE: the index is taken, or the host is stored at another index
 * - an errno value, or a code of the system database
 */
AAA_API cerrno aaa_util_get_next_ord_index(const char *sg_name, uint32_t protocol, uint32_t requested,
                                           uint32_t *index_out, const char *host, uint32_t port1,
                                           uint32_t port2, uint32_t is_dir, uint32_t is_private);

/**
 * Chooses or checks the index of a server as aaa_util_get_next_ord_index() does, with the entry
 * names of TACACS servers for every protocol.
 *
 * Ownership: as with aaa_util_get_next_ord_index().
 *
 * @param[in]  sg_name    as there, like all others but the two that follow
 * @param[in]  protocol   as there
 * @param[in]  requested  as there
 * @param[out] index_out  as there
 * @param[in]  host       as there
 * @param[in]  port       port of the server
 * @param[in]  ignored    not looked at
 * @param[in]  is_dir     as there
 * @param[in]  is_private as there
 *
 * @return
 * - AAA_OK: @p index_out is set as said there
 * - AAA_ERR_INVALID_ARG: @p index_out or @p host is null
 * - AAA_ERR_INDEX_IN_USE: the index is taken, or the host is stored at another index
 * - an errno value, or a code of the system database
 */
AAA_API cerrno aaa_util_get_next_tacacs_ord_index(const char *sg_name, uint32_t protocol, uint32_t requested,
                                                  uint32_t *index_out, const char *host, uint32_t port,
                                                  uint64_t ignored, uint32_t is_dir, uint32_t is_private);

#ifdef __cplusplus
}
#endif

#endif /* AAA_SERVER_GROUPS_H */
