/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_DEBUG_FLAGS_H
#define AAA_DEBUG_FLAGS_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief The debug flags under which the library traces.
 *
 * The platform switches a flag on or off and writes the lines. Its functions
 * aaa_debug() and aaa_debugging() take the number of a flag. Numbers that are
 * missing here are free for the host and for other programs.
 */

/** Debug flags of the library. */
enum aaa_debug_flag {
    AAA_DBG_LIFECYCLE = 0,     /**< load, unload and the worker thread */
    AAA_DBG_REQUEST = 1,       /**< failures while composing requests, lookups of method lists */
    AAA_DBG_MESSAGE = 2,       /**< composition of messages */
    AAA_DBG_AUTHOR_DATA = 3,   /**< composition of authorization and accounting data */
    AAA_DBG_LINES_SESSION = 5, /**< lines, event connections, method lists, session packets */
    AAA_DBG_SERVER_GROUP = 6,  /**< verification and configuration of server groups */
    AAA_DBG_AVLIST = 8,        /**< attribute lists and the typed accessors */
    AAA_DBG_MALLOC = 9,        /**< the wrappers of aaa/alloc.h */
    AAA_DBG_IOV_DUMP = 10      /**< byte dumps of io-vector elements */
};

#ifdef __cplusplus
}
#endif

#endif /* AAA_DEBUG_FLAGS_H */
