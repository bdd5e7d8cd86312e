/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_EXPORT_H
#define PLATFORM_EXPORT_H

/**
 * @file
 * PLATFORM_API marks every function of the platform contract. The library
 * imports all of them through the dynamic linker, so an executable that
 * defines one of them takes precedence over the host platform's definition.
 */
#if defined(__GNUC__)
#define PLATFORM_API __attribute__((visibility("default")))
#else
#define PLATFORM_API
#endif

#endif /* PLATFORM_EXPORT_H */
