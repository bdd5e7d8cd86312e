// SPDX-License-Identifier: Apache-2.0
//
// The authentication request.

#include "aaa/messages.h"

#include "aaa/accessors.h"
#include "aaa/names.h"
#include "internal/avpair_checks.hpp"
#include "internal/messages.hpp"
#include "internal/trace.hpp"

namespace {

using namespace aaautil;
using namespace aaautil::msg;

constexpr uint32_t kOptionMask = 0xFF;     // the option proper, in the list
constexpr uint32_t kVariantMask = 0xFF00;  // travels in the header

// Message-type attribute by option. Type 12 is left out: no option changes a password.
constexpr uint32_t kTypeByOption[] = {
    AAA_MT_ASCII_LOGIN, AAA_MT_IB_PAP_V1,    AAA_MT_IB_PAP_V0,  AAA_MT_OB_PAP,     AAA_MT_OB_PAP_V0,
    AAA_MT_IB_CHAP_V1,  AAA_MT_IB_CHAP_V0,   AAA_MT_OB_CHAP_V1, AAA_MT_OB_CHAP_V0, AAA_MT_IB_MSCHAP,
    AAA_MT_OB_MSCHAP,   AAA_MT_MSCHAP_LOGIN, AAA_MT_ARAP_LOGIN,
};
constexpr uint32_t kRsaMessageType = AAA_MT_ARAP_LOGIN;  // shared by options 12 and 13

[[nodiscard]] uint32_t message_type(uint32_t option) noexcept {
    if (option == AAA_AO_RSA) {
        return kRsaMessageType;
    }
    constexpr uint32_t options = sizeof kTypeByOption / sizeof kTypeByOption[0];
    return option < options ? kTypeByOption[option] : uint32_t{AAA_MT_NONE};
}

struct Authen {
    uint32_t option;
    int32_t service;
    const char *methodlist;
    uint32_t method;
    aaa_usercred_t *usercred;
    const avlist *in_attrs;
    const aaa_rsa_params_t *rsa_params;
};

// A method that is already known needs no list of methods.
[[nodiscard]] cerrno append_methods(avlist *list, const Authen &in) noexcept {
    if (in.method != AAA_METHOD_NOTSET) {
        return AAA_OK;
    }
    const bool tty_optional = in.service == AAA_SVC_API || in.service == AAA_SVC_HTTP;
    return append_method_list(
        list, in.methodlist, in.service,
        {AAA_FUNC_AUTHEN, AAA_DBG_REQUEST, {AAA_SVC_API, AAA_SVC_IKE}, tty_optional, kNoTtyNeeded});
}

[[nodiscard]] cerrno append_user(avlist *list, const Authen &in) noexcept {
    const cerrno rc = aaa_util_add_usercred_in_avlist(in.usercred, list, in.service, 0, in.option);
    if (rc != AAA_OK || in.in_attrs == nullptr || aaa_is_list_empty(in.in_attrs)) {
        return rc;
    }
    return aaa_avpair_list_concat(list, in.in_attrs);
}

[[nodiscard]] cerrno append_type(avlist *list, const Authen &in) noexcept {
    const uint32_t option = in.option & kOptionMask;
    const cerrno rc = aaa_util_avlist_msgtype_add(message_type(option), list);
    if (rc != AAA_OK || option != AAA_AO_RSA) {
        return rc;
    }
    return aaa_util_avlist_rsa_params_add(list, in.rsa_params);
}

[[nodiscard]] cerrno append_attributes(avlist *list, const Authen &in) noexcept {
    cerrno rc = Appender(list).u32(AAA_SERVICE_TYPE_ATTR, static_cast<uint32_t>(in.service)).code();
    if (rc == AAA_OK) {
        rc = aaa_util_avlist_authen_option_add(in.option & kOptionMask, list);
    }
    if (rc == AAA_OK) {
        rc = append_methods(list, in);
    }
    if (rc == AAA_OK) {
        rc = append_user(list, in);
    }
    return rc == AAA_OK ? append_type(list, in) : rc;
}

}  // namespace

extern "C" {

cerrno aaa_util_msg_authen_compose(void *msg, uint32_t option, int32_t service, const char *methodlist,
                                   uint32_t method, aaa_usercred_t *usercred, const avlist *in_attrs,
                                   const aaa_rsa_params_t *rsa_params, iov_t **iov_out, uint32_t *count_out,
                                   char *buffer, uint32_t size, void *async_block, uint32_t session) {
    list_ptr list;
    cerrno rc = create_list("Authentication Request", list);
    if (rc != AAA_OK) {
        return rc;
    }
    aaa_debug(AAA_DBG_REQUEST, "Composing an authentication message");

    const Target to{msg, iov_out, count_out, buffer, size};
    const Authen in{option, service, methodlist, method, usercred, in_attrs, rsa_params};
    const uint32_t type = async_block != nullptr && to.has_room() ? AAA_REQ_AUTHEN_ASYNC : AAA_REQ_AUTHEN;
    if (session != 0) {
        // The packet owns the list from here on, also when an attribute cannot be added.
        avlist *travels = list.get();
        rc = hand_over(msg, list, type, option & kVariantMask,
                       "Composing an authentication message: Failed in data fill");
        return rc == AAA_OK ? append_attributes(travels, in) : rc;
    }
    if (!to.complete()) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kTypeAt, type);
    put_u32(msg, kParamAt, option & kVariantMask);
    rc = append_attributes(list.get(), in);
    return rc == AAA_OK ? pack_and_publish(to, list.get(), async_block) : rc;
}

}  // extern "C"
