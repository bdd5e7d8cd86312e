/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_EXPORT_H
#define AAA_EXPORT_H

/**
 * @file
 * One of two marks precedes the declaration of every function and data object
 * that libaaautil.so exports. It tells the symbol version:
 *
 * - AAA_API: AAAUTIL_1, the set that never changes.
 * - AAA_API_EXT: AAAUTIL_EXT_1, what was added to it.
 *
 * The library is built with hidden visibility. The names that carry a mark,
 * the names of the version script and the names that the built object exports
 * are the same set.
 */
#if defined(__GNUC__)
#define AAA_API __attribute__((visibility("default")))
#else
#define AAA_API
#endif
#define AAA_API_EXT AAA_API

#endif /* AAA_EXPORT_H */
