// SPDX-License-Identifier: Apache-2.0
//
// The accounting requests: start, stop and the like on a list of their own, and
// the update, which extends the list of the record that it updates.

#include "aaa/messages.h"

#include <ctime>

#include "aaa/accessors.h"
#include "aaa/names.h"
#include "internal/messages.hpp"
#include "internal/trace.hpp"
#include "platform/cerr.h"
#include "platform/node.h"

namespace {

using namespace aaautil;
using namespace aaautil::msg;

constexpr uint32_t kFlag = AAA_DBG_AUTHOR_DATA;
constexpr uint32_t kTimezoneSize = 16;
constexpr uint64_t kSessionIdLength = 4;

struct Acct {
    uint32_t option;
    int32_t service;
    const char *methodlist;
    uint32_t method;
    aaa_usercred_t *usercred;
    aaa_svc_attrs_t *svc_attrs;
    uint32_t sid;

    // A record of the system itself has no user and no command.
    [[nodiscard]] bool of_user() const noexcept { return service != AAA_SVC_SYSTEM; }
    [[nodiscard]] bool complete() const noexcept {
        return !of_user() || (usercred != nullptr && svc_attrs != nullptr);
    }
};

[[nodiscard]] uint32_t message_type(uint32_t option) noexcept {
    switch (option) {
        case AAA_ACCT_START_OPT:
            return AAA_MT_ACCT_START;
        case AAA_ACCT_UPDATE_OPT:
            return AAA_MT_ACCT_UPDATE;
        case AAA_ACCT_STOP_OPT:
            return AAA_MT_ACCT_STOP;
        default:
            return AAA_MT_NONE;
    }
}

[[nodiscard]] cerrno append_timezone(avlist *list) noexcept {
    char zone[kTimezoneSize] = {};
    const cerrno rc = conf_get_timezone_string(zone, sizeof zone);
    zone[sizeof zone - 1] = '\0';
    const char *name = rc == AAA_OK ? zone : "UTC";
    aaa_debug(kFlag, "Adding timezone %s, %s", name, cerr_strerror(rc));
    return Appender(list).text(AAA_TIMEZONE_ATTR, name).code();
}

// The pairs of every accounting record: time, session, time zone, message type.
[[nodiscard]] cerrno append_record(avlist *list, uint32_t sid, uint32_t type) noexcept {
    const int64_t now = time(nullptr);
    cerrno rc =
        Appender(list).bytes(AAA_STARTTIME_ATTR, &now, sizeof now).u32(AAA_ACCT_SESSID_ATTR, sid).code();
    if (rc == AAA_OK) {
        rc = append_timezone(list);
    }
    return rc == AAA_OK ? aaa_util_avlist_msgtype_add(type, list) : rc;
}

[[nodiscard]] cerrno append_methods(avlist *list, const Acct &in) noexcept {
    if (in.method != AAA_METHOD_NOTSET) {
        return AAA_OK;
    }
    const bool tty_optional = in.service == AAA_SVC_API || in.service == AAA_SVC_HTTP;
    return append_method_list(
        list, in.methodlist, in.service,
        {AAA_FUNC_ACCT, kFlag, {AAA_SVC_SYSTEM, AAA_SVC_API}, tty_optional, kNoTtyNeeded});
}

[[nodiscard]] cerrno append_attributes(avlist *list, const Acct &in) noexcept {
    cerrno rc = append_methods(list, in);
    if (rc == AAA_OK && in.of_user()) {
        rc = aaa_util_add_usercred_in_avlist(in.usercred, list, in.service, 0, in.option);
    }
    if (rc == AAA_OK) {
        rc = append_record(list, in.sid, message_type(in.option));
    }
    if (rc == AAA_OK && in.of_user()) {
        rc = aaa_util_add_svc_attrs_in_avlist(in.service, list, in.svc_attrs);
    }
    return rc;
}

// The service comes first; the classic form logs the whole request after it.
[[nodiscard]] cerrno append_service(avlist *list, const Acct &in, bool session) noexcept {
    const cerrno rc = Appender(list).u32(AAA_SERVICE_TYPE_ATTR, static_cast<uint32_t>(in.service)).code();
    if (!session) {
        aaa_debug(kFlag, "Composing option:%d service:%d method:%d mlist:%s sid:%d rc:%s", in.option,
                  in.service, in.method, in.methodlist != nullptr ? in.methodlist : "null", in.sid,
                  cerr_strerror(rc));
    }
    return rc;
}

// The four elements of an update.
[[nodiscard]] cerrno publish_update(const Target &to, avlist *list, const void *block,
                                    const uint32_t *sid) noexcept {
    IoVector iov;
    iov.add(to.record, kLongHeader);
    iov.add(block, kCallerBlock);
    iov.add(sid, kSessionIdLength);
    const cerrno rc = pack(to, list, iov);
    return rc == AAA_OK ? publish_converted(to, iov) : rc;
}

}  // namespace

extern "C" {

cerrno aaa_util_msg_acct_compose(void *msg, uint32_t option, int32_t service, const char *methodlist,
                                 uint32_t method, aaa_usercred_t *usercred, aaa_svc_attrs_t *svc_attrs,
                                 uint32_t sid, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                 uint32_t size, void *async_block, uint32_t session) {
    const Target to{msg, iov_out, count_out, buffer, size};
    const Acct in{option, service, methodlist, method, usercred, svc_attrs, sid};
    aaa_debug(kFlag, "Entry of acct compose");
    if (!to.has_room() || !in.complete() || (session == 0 && !to.has_outputs())) {
        return AAA_ERR_INVALID_ARG;
    }
    aaa_debug(kFlag, "Entry of acct compose : entry ok");
    if (session != 0) {
        aaa_debug(kFlag, "aipc client");
    }
    list_ptr list;
    cerrno rc = create_list("Accounting Request", list);
    if (rc != AAA_OK) {
        return rc;
    }
    if (session == 0) {
        put_u32(msg, kTypeAt, async_block != nullptr ? AAA_REQ_ACCT_ASYNC : AAA_REQ_ACCT);
        put_u32(msg, kParamAt, option);
    }
    rc = append_service(list.get(), in, session != 0);
    if (rc == AAA_OK) {
        rc = append_attributes(list.get(), in);
    }
    if (rc != AAA_OK) {
        return rc;
    }
    // Session mode has no asynchronous variant.
    return session != 0 ? hand_over(msg, list, AAA_REQ_ACCT, option, kAuthorFillFailed)
                        : pack_and_publish(to, list.get(), async_block);
}

cerrno aaa_util_msg_acct_update_compose(void *msg, uint32_t *sid, void *block, avlist *list, iov_t **iov_out,
                                        uint32_t *count_out, char *buffer, uint32_t size, uint32_t session) {
    const Target to{msg, iov_out, count_out, buffer, size};
    if (!to.has_room() || sid == nullptr || block == nullptr || list == nullptr ||
        (session == 0 && !to.has_outputs())) {
        return AAA_ERR_INVALID_ARG;
    }
    if (session == 0) {
        put_u32(msg, kTypeAt, AAA_REQ_ACCT_UPDATE);
        put_u32(msg, kParamAt, AAA_ACCT_UPDATE_OPT);
        aaa_debug(kFlag, "Composing update acct: sid:%d", *sid);
    } else {
        aaa_debug(kFlag, "Composing update acct2: sid:%d", *sid);
    }
    const cerrno rc = append_record(list, *sid, AAA_MT_ACCT_UPDATE);
    if (rc != AAA_OK) {
        return rc;
    }
    return session != 0 ? fill_packet(msg, list, AAA_REQ_ACCT_UPDATE, AAA_ACCT_UPDATE_OPT,
                                      "Composing an acct message: Failed in data fill")
                        : publish_update(to, list, block, sid);
}

}  // extern "C"
