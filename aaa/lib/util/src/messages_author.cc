// SPDX-License-Identifier: Apache-2.0
//
// The authorization request.

#include "aaa/messages.h"

#include "aaa/accessors.h"
#include "aaa/names.h"
#include "internal/messages.hpp"
#include "internal/trace.hpp"

namespace {

using namespace aaautil;
using namespace aaautil::msg;

constexpr char kListName[] = "Authorization Request";
constexpr uint32_t kOptionWithoutTerminal = 69;

struct Author {
    uint32_t authen_option;
    int32_t service;
    const char *methodlist;
    uint32_t method;
    aaa_usercred_t *usercred;
    aaa_svc_attrs_t *svc_attrs;
};

// IKE brings its attributes as a list of its own, in the first field.
[[nodiscard]] const avlist *brought_list(const Author &in) noexcept {
    if (in.service != AAA_SVC_IKE || in.svc_attrs == nullptr) {
        return nullptr;
    }
    return static_cast<const avlist *>(static_cast<const void *>(in.svc_attrs->cmd));
}

[[nodiscard]] cerrno start_list(const Author &in, list_ptr &list) noexcept {
    const avlist *source = brought_list(in);
    if (source == nullptr) {
        return create_list(kListName, list);
    }
    avlist *copy = nullptr;
    const cerrno rc = aaa_avpair_copy_list(source, kListName, &copy);
    list.reset(copy);
    return rc;
}

// Services without a row carry no message-type attribute at all.
[[nodiscard]] cerrno append_type(avlist *list, int32_t service) noexcept {
    switch (service) {
        case AAA_SVC_EXEC:
        case AAA_SVC_EVENTMANAGER:
            return aaa_util_avlist_msgtype_add(AAA_MT_AUTHOR_SHELL, list);
        case AAA_SVC_PPP:
            return aaa_util_avlist_msgtype_add(AAA_MT_AUTHOR_IPCP, list);
        case AAA_SVC_IKE:
            return aaa_util_avlist_msgtype_add(AAA_MT_AUTHOR_IKE, list);
        case AAA_SVC_PLEXA:
            return aaa_util_avlist_msgtype_add(AAA_MT_AUTHOR_SVC26, list);
        case AAA_SVC_NETCONF:
            return aaa_util_avlist_msgtype_add(AAA_MT_AUTHOR_SVC29, list);
        default:
            return AAA_OK;
    }
}

[[nodiscard]] cerrno append_methods(avlist *list, const Author &in) noexcept {
    if (in.method != AAA_METHOD_NOTSET) {
        return AAA_OK;
    }
    // The two blanks of the text are kept.
    return append_method_list(list, in.methodlist, in.service,
                              {AAA_FUNC_AUTHOR,
                               AAA_DBG_MESSAGE,
                               {AAA_SVC_API, AAA_SVC_IKE},
                               in.authen_option == kOptionWithoutTerminal,
                               "No controlling terminal,  but ignoring"});
}

[[nodiscard]] cerrno append_attributes(avlist *list, const Author &in) noexcept {
    cerrno rc = Appender(list).u32(AAA_SERVICE_TYPE_ATTR, static_cast<uint32_t>(in.service)).code();
    if (rc == AAA_OK) {
        rc = append_type(list, in.service);
    }
    if (rc == AAA_OK) {
        rc = aaa_util_avlist_authen_option_add(in.authen_option, list);
    }
    if (rc == AAA_OK) {
        rc = append_methods(list, in);
    }
    if (rc == AAA_OK) {
        rc = aaa_util_add_usercred_in_avlist(in.usercred, list, in.service, 0, in.authen_option);
    }
    if (rc != AAA_OK || in.service == AAA_SVC_IKE) {
        return rc;
    }
    return aaa_util_add_svc_attrs_in_avlist(in.service, list, in.svc_attrs);
}

[[nodiscard]] cerrno compose(const Target &to, const Author &in, void *async_block, bool session) noexcept {
    if (!session && !to.complete()) {
        return AAA_ERR_INVALID_ARG;
    }
    list_ptr list;
    cerrno rc = start_list(in, list);
    if (rc != AAA_OK) {
        return rc;
    }
    const uint32_t type = async_block != nullptr && to.has_room() ? AAA_REQ_AUTHOR_ASYNC : AAA_REQ_AUTHOR;
    if (!session) {
        put_u32(to.record, kTypeAt, type);
        put_u32(to.record, kParamAt, in.authen_option);
    }
    rc = append_attributes(list.get(), in);
    if (rc != AAA_OK) {
        return rc;
    }
    return session ? hand_over(to.record, list, type, in.authen_option, kConfigFillFailed)
                   : pack_and_publish(to, list.get(), async_block);
}

}  // namespace

extern "C" {

cerrno aaa_util_msg_author_compose(void *msg, uint32_t authen_option, int32_t service, const char *methodlist,
                                   uint32_t method, aaa_usercred_t *usercred, aaa_svc_attrs_t *svc_attrs,
                                   iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size,
                                   void *async_block, uint32_t session) {
    const cerrno rc =
        compose({msg, iov_out, count_out, buffer, size},
                {authen_option, service, methodlist, method, usercred, svc_attrs}, async_block, session != 0);
    aaa_debug(AAA_DBG_MESSAGE, rc == AAA_OK ? "Authorization message composed successfully"
                                            : "Failed to compose an authorization message");
    return rc;
}

}  // extern "C"
