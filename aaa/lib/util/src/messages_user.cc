// SPDX-License-Identifier: Apache-2.0
//
// Requests about a user: reference counts, task maps, user groups, forwarded IKE
// attributes, and the release of the data that the server keeps.

#include "aaa/messages.h"

#include <unistd.h>

#include <cstring>

#include "aaa/accessors.h"
#include "aaa/names.h"
#include "internal/messages.hpp"
#include "internal/trace.hpp"
#include "platform/bounded.h"
#include "platform/cerr.h"

namespace {

using namespace aaautil;
using namespace aaautil::msg;

constexpr uint32_t kIncrement = 1;
constexpr uint32_t kDecrement = 2;
constexpr uint32_t kUserListSize = 16384;
constexpr std::size_t kTtyNameSize = 32;

[[nodiscard]] cerrno append_username(const char *name, avlist *list) noexcept {
    return aaa_util_avlist_username_add(
        name, name != nullptr ? static_cast<int32_t>(std::strlen(name) + 1) : 0, list);
}

// The message type for the action; 0 when it is neither of the two.
[[nodiscard]] uint32_t refcount_type(uint32_t action, const char *name) noexcept {
    switch (action) {
        case kIncrement:
            aaa_debug(AAA_DBG_MESSAGE, "Send msg to increment ref count for %s", printable(name));
            return AAA_REQ_COMPOSED_INCREMENT;
        case kDecrement:
            aaa_debug(AAA_DBG_MESSAGE, "Send msg to decrement ref count for %s", printable(name));
            return AAA_REQ_COMPOSED_DECREMENT;
        default:
            return 0;
    }
}

// A user without a name (or with one too long to send) is accepted: the server refuses it.
[[nodiscard]] cerrno user_list(const char *name, list_ptr &list) noexcept {
    cerrno rc = create_list("Incr/Decr authen usr refcnt", list);
    aaa_debug(AAA_DBG_MESSAGE, "avpair list creation returned %s", cerr_strerror(rc));
    if (rc != AAA_OK) {
        return rc;
    }
    rc = append_username(name, list.get());
    aaa_debug(AAA_DBG_MESSAGE, "user %s add to avlist returned %s", printable(name), cerr_strerror(rc));
    return rc == AAA_ERR_INVALID_ARG ? AAA_OK : rc;
}

// The io-vector and the packed list that its second element names, in one block:
// the caller's free() of the io-vector releases both.
struct UserMessage {
    iov_t iov[2];
    char packed[kUserListSize];
};

[[nodiscard]] cerrno publish_user(void *msg, avlist *list, iov_t **iov_out, uint32_t *count_out) noexcept {
    malloc_ptr<UserMessage> block(static_cast<UserMessage *>(std::malloc(sizeof(UserMessage))));
    if (block == nullptr) {
        aaa_debug(AAA_DBG_MESSAGE, "Memory insufficient to alloc iov");
        return AAA_ERR_NOMEM;
    }
    uint32_t packed = sizeof block->packed;
    const cerrno rc = aaa_avpair_pack_msg_to_buf(list, block->packed, &packed);
    if (rc != AAA_OK) {
        return rc;
    }
    block->iov[0] = {msg, kShortHeader};
    block->iov[1] = {block->packed, packed};
    *iov_out = block.release()->iov;
    *count_out = 2;
    return AAA_OK;
}

// Header and a text with its terminator.
[[nodiscard]] cerrno publish_text(void *msg, uint32_t type, const char *text, iov_t **iov_out,
                                  uint32_t *count_out) noexcept {
    put_u32(msg, kTypeAt, type);
    IoVector iov;
    iov.add(msg, kShortHeader);
    iov.add(text, std::strlen(text) + 1);
    return iov.publish(iov_out, count_out);
}

// The text travels in the packet. A null packet has no place for it, and the
// address of its payload is not null.
[[nodiscard]] cerrno fill_text(void *msg, uint32_t type, const char *text) noexcept {
    const cerrno rc = fill_packet(msg, nullptr, type, 0, kConfigFillFailed);
    if (rc == AAA_OK && text != nullptr) {
        return aaa_sess_fill_msg_req_type_data(at(msg, kPayloadAt), text,
                                               static_cast<uint32_t>(std::strlen(text)), type);
    }
    return rc;
}

// The terminal that the data belongs to: the record's, else the caller's own.
[[nodiscard]] cerrno append_terminal(const aaa_usercred_t &cred, avlist *list) noexcept {
    char tty[kTtyNameSize] = {};
    if (cred.ttyname != nullptr) {
        sstrncpy(tty, cred.ttyname, sizeof tty);
    } else if (ttyname_r(STDIN_FILENO, tty, sizeof tty) != 0) {
        tty[0] = '\0';
    }
    const bool named = tty[0] != '\0';
    const cerrno rc = named ? Appender(list).text(AAA_TTYNAME_ATTR, tty).code() : AAA_OK;
    aaa_debug(AAA_DBG_REQUEST, "Using TTY %s", named ? tty : "<null>");
    return rc == AAA_ERR_INVALID_ARG ? AAA_OK : rc;
}

[[nodiscard]] cerrno append_userdata(avlist *list, aaa_usercred_t &cred) noexcept {
    cerrno rc = aaa_util_avlist_msgtype_add(AAA_MT_FREE_RAD_AUTHOR_DATA, list);
    if (rc == AAA_OK && cred.username != nullptr) {
        rc = append_username(cred.username, list);
    }
    if (rc == AAA_OK) {
        rc = append_terminal(cred, list);
    }
    if (rc != AAA_OK) {
        return rc;
    }
    if (aaa_lib_update_mnemonic_and_flags(&cred, list, 0) != AAA_OK) {
        aaa_debug(AAA_DBG_REQUEST, "Failed to add mnemonic and flag information to req");
    }
    rc = Appender(list).u32(AAA_IFH_ATTR, cred.ifh).code();
    if (rc != AAA_OK) {
        return rc;
    }
    return aaa_avpair_update(AAA_AUTHEN_METHOD_ATTR, AAA_AVF_UPDATED, &cred.authen_method, 0,
                             sizeof cred.authen_method, 0, list);
}

// Unlike the other requests this one writes its type only when the list is packed.
[[nodiscard]] cerrno publish_userdata(const Target &to, avlist *list) noexcept {
    IoVector iov;
    iov.add(to.record, kLongHeader);
    const cerrno rc = pack(to, list, iov);
    if (rc != AAA_OK) {
        return rc;
    }
    put_u32(to.record, kTypeAt, AAA_REQ_FREE_USERDATA);
    return publish_converted(to, iov);
}

// A copy, because packing leaves a list in network order and the list is the caller's.
[[nodiscard]] cerrno copy_list(const avlist *source, list_ptr &list) noexcept {
    avlist *copy = nullptr;
    const cerrno rc = source != nullptr ? aaa_avpair_copy_list(source, nullptr, &copy) : AAA_OK;
    list.reset(copy);
    return rc;
}

[[nodiscard]] cerrno publish_copy(const Target &to, avlist *copy) noexcept {
    IoVector iov;
    iov.add(to.record, kShortHeader);
    const cerrno rc = pack(to, copy, iov);
    return rc == AAA_OK ? iov.publish(to.iov_out, to.count_out) : rc;
}

}  // namespace

extern "C" {

cerrno aaa_util_msg_curr_auth_usr_compose(void *msg, const char *const *username_ref, iov_t **iov_out,
                                          uint32_t *count_out, uint32_t action, uint32_t session) {
    const bool outputs = msg != nullptr && iov_out != nullptr && count_out != nullptr;
    if (username_ref == nullptr || (session == 0 && !outputs)) {
        aaa_debug(AAA_DBG_MESSAGE, "Current auth user msg compose:Invalid args");
        return AAA_ERR_INVALID_ARG;
    }
    const uint32_t type = refcount_type(action, *username_ref);
    if (session == 0 && type != 0) {
        put_u32(msg, kTypeAt, type);
    }
    list_ptr list;
    const cerrno rc = user_list(*username_ref, list);
    if (rc != AAA_OK) {
        return rc;
    }
    return session != 0 ? hand_over(msg, list, type, 0, kConfigFillFailed)
                        : publish_user(msg, list.get(), iov_out, count_out);
}

cerrno aaa_util_msg_ikepost_compose(void *msg, const avlist *list, iov_t **iov_out, uint32_t *count_out,
                                    char *buffer, uint32_t size, uint32_t session) {
    const Target to{msg, iov_out, count_out, buffer, size};
    const bool valid = to.has_room() && list != nullptr;
    if (session == 0) {
        if (!valid || !to.has_outputs()) {
            return AAA_ERR_INVALID_ARG;
        }
        put_u32(msg, kTypeAt, AAA_REQ_IKEPOST);
    }
    list_ptr copy;
    const cerrno rc = copy_list(list, copy);
    if (rc != AAA_OK) {
        return rc;
    }
    return session != 0
               ? hand_over(msg, copy, valid ? AAA_REQ_IKEPOST : AAA_REQ_CONNECT, 0, kConfigFillFailed)
               : publish_copy(to, copy.get());
}

cerrno aaa_util_msg_taskmap_compose(void *msg, const char *name, iov_t **iov_out, uint32_t *count_out,
                                    uint32_t session) {
    const bool valid = msg != nullptr && iov_out != nullptr && count_out != nullptr && name != nullptr;
    if (session != 0) {
        return fill_text(msg, valid ? AAA_REQ_TASKMAP : AAA_REQ_CONNECT, name);
    }
    return valid ? publish_text(msg, AAA_REQ_TASKMAP, name, iov_out, count_out) : AAA_ERR_INVALID_ARG;
}

cerrno aaa_util_msg_free_userdata_compose(void *msg, aaa_usercred_t *usercred, iov_t **iov_out,
                                          uint32_t *count_out, char *buffer, uint32_t size,
                                          uint32_t session) {
    const Target to{msg, iov_out, count_out, buffer, size};
    if (usercred == nullptr || (session == 0 && !to.complete())) {
        return AAA_ERR_INVALID_ARG;
    }
    list_ptr list;
    cerrno rc = create_list("Free user data request", list);
    if (rc == AAA_OK) {
        rc = append_userdata(list.get(), *usercred);
    }
    if (rc != AAA_OK) {
        return rc;
    }
    return session != 0 ? hand_over(msg, list, AAA_REQ_FREE_USERDATA, 0, kAuthorFillFailed)
                        : publish_userdata(to, list.get());
}

cerrno aaa_util_msg_usergroup_compose(void *msg, const char *request, iov_t **iov_out, uint32_t *count_out,
                                      uint32_t session) {
    const bool valid = msg != nullptr && iov_out != nullptr && count_out != nullptr && request != nullptr;
    if (session == 0) {
        return valid ? publish_text(msg, AAA_REQ_USERGROUP, request, iov_out, count_out)
                     : AAA_ERR_INVALID_ARG;
    }
    aaa_debug(AAA_DBG_MESSAGE, "Request : %s", printable(request));
    // Kept: unlike the task map's, this function reports only missing arguments.
    [[maybe_unused]] const cerrno only_logged =
        fill_text(msg, valid ? AAA_REQ_USERGROUP : AAA_REQ_CONNECT, request);
    return valid ? AAA_OK : AAA_ERR_INVALID_ARG;
}

}  // extern "C"
