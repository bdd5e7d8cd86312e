/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_EXPORT_H
#define AAA_EXPORT_H

/**
 * @file
 * AAA_API marks every function and data object that libaaautil.so exports.
 * The library is built with hidden visibility; what carries this mark, what
 * the version script lists and what the built object exports are the same set.
 */
#if defined(__GNUC__)
#define AAA_API __attribute__((visibility("default")))
#else
#define AAA_API
#endif

#endif /* AAA_EXPORT_H */
