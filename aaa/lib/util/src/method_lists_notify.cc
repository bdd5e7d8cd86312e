// SPDX-License-Identifier: Apache-2.0
//
// Change notification of method lists, on a private connection for each
// registration, and the byte order of a received event record.

#include "aaa/method_lists.h"

#include <cstdio>
#include <cstring>

#include "aaa/debug_flags.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "internal/bytes.hpp"
#include "internal/sysdb_access.hpp"
#include "internal/trace.hpp"
#include "platform/cerr.h"
#include "platform/logging.h"
#include "platform/sysdb.h"

namespace {

using aaautil::kConfigPath;
using aaautil::method_list_presence;
using aaautil::printable;

constexpr uint32_t kLevel = AAA_DBG_LINES_SESSION;
constexpr uint32_t kEvents = 6;  // events to report, in the numbering of the platform
constexpr uint32_t kMode = 1;

const char *code_text(cerrno rc) {
    return printable(cerr_strerror(rc));
}

cerrno report_bind_failure(cerrno rc) {
    aaa_debug(kLevel, "Unable to bind to sysdb at %s: %s", kConfigPath, code_text(rc));
    return rc;
}

cerrno report_registration_failure(const char *path, cerrno rc) {
    aaa_debug(kLevel, "Unable to register for notification on %s%s: %s", kConfigPath, path, code_text(rc));
    return rc;
}

cerrno report_unbind_failure(cerrno rc) {
    aaa_debug(kLevel, "Unable to unbind at %s: %s", kConfigPath, code_text(rc));
    return rc;
}

// A 16-bit big-endian value in the first two of four bytes becomes that value
// as a 32-bit host integer.
void widen_u16(uint32_t *field) {
    uint16_t value = 0;
    std::memcpy(&value, field, sizeof value);
    *field = aaautil::net_u16(value);
}

}  // namespace

extern "C" {

cerrno aaa_mlist_change_register(uint32_t function, uint32_t service, const char *list_name,
                                 aaa_notify_cb_t callback, void *callback_arg, void *user_ctx,
                                 aaa_mlist_reg_t *registration_record) {
    if (list_name == nullptr || registration_record == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    char path[100];
    std::snprintf(path, sizeof path, "%s/%s/%s", aaa_function_to_string(function),
                  aaa_service_to_string(static_cast<int32_t>(function), service), list_name);
    cerrno rc = aaautil::bind_private(&registration_record->connection, kConfigPath, method_list_presence);
    if (rc != AAA_OK) {
        return report_bind_failure(rc);
    }
    // The client library was found for the bind, so this check passes. Its code is
    // part of the interface.
    if (!method_list_presence.check()) {
        return report_registration_failure(path, SYSDB_ERR_NOTIFY_ABSENT);
    }
    rc = _sysdb_register_notification(registration_record->connection, path, kEvents, kMode, callback,
                                      callback_arg, 0, user_ctx, 0, &registration_record->notification);
    if (rc != AAA_OK) {
        return report_registration_failure(path, rc);
    }
    aaa_debug(kLevel, "Registered for notification\n");
    return AAA_OK;
}

cerrno aaa_mlist_change_unregister(aaa_mlist_reg_t *registration_record) {
    if (registration_record == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno rc =
        sysdb_notification_unregister(registration_record->connection, registration_record->notification);
    if (rc != AAA_OK) {
        aaa_debug(kLevel, "Unable to unregister the notification: %s\n", code_text(rc));
        return rc;
    }
    if (registration_record->connection == 0) {
        return AAA_OK;
    }
    rc = aaautil::unbind(registration_record->connection, method_list_presence);
    return rc != AAA_OK ? report_unbind_failure(rc) : AAA_OK;
}

aaa_event_record_t *aaa_tform_event(aaa_event_record_t **event) {
    if (event == nullptr || *event == nullptr) {
        return nullptr;
    }
    aaa_event_record_t *record = *event;
    record->word12 = aaautil::net_u32(record->word12);
    record->word8 = aaautil::net_u32(record->word8);
    record->word0 = aaautil::net_u32(record->word0);
    constexpr uint32_t kShortForm = 2;  // ends after byte 15
    if ((record->word12 & 0xffu) != kShortForm) {
        widen_u16(&record->word24);
        widen_u16(&record->word28);
    }
    return record;
}

}  // extern "C"
