// SPDX-License-Identifier: Apache-2.0
//
// Deep copies of credential and request records, and their release. A copy
// shares nothing that it owns. The task table belongs to the source: a copy
// borrows it, and is_copy tells the free function so.

#include <cstdlib>
#include <cstring>

#include "aaa/credentials.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "internal/memory.hpp"
#include "platform/node.h"

namespace {

constexpr bool is_inbound(uint32_t type) {
    return type == AAA_AO_IB_CHAP_V1 || type == AAA_AO_IB_MSCHAP;
}
constexpr bool is_outbound(uint32_t type) {
    return type == AAA_AO_OB_CHAP_V1 || type == AAA_AO_OB_MSCHAP;
}

// All fields of the source; fields that a copy owns or does not carry are null.
void copy_shared_fields(aaa_usercred_t *copy, const aaa_usercred_t *source) {
    *copy = *source;
    copy->is_copy = 1;
    copy->chap_data = nullptr;
    copy->username = nullptr;
    copy->password = nullptr;
    copy->text3 = nullptr;
    copy->ttyname = nullptr;
    copy->remote_addr = nullptr;
    copy->state_args = nullptr;
    copy->attr_list = nullptr;
}

cerrno copy_text(char **to, const char *from) {
    if (from == nullptr) {
        return AAA_OK;
    }
    *to = strdup(from);
    return *to != nullptr ? AAA_OK : AAA_ERR_NOMEM;
}

cerrno copy_texts(aaa_usercred_t *copy, const aaa_usercred_t *source) {
    cerrno code = copy_text(&copy->username, source->username);
    if (code == AAA_OK) {
        code = copy_text(&copy->password, source->password);
    }
    if (code == AAA_OK) {
        code = copy_text(&copy->text3, source->text3);
    }
    if (code == AAA_OK) {
        code = copy_text(&copy->ttyname, source->ttyname);
    }
    if (code == AAA_OK) {
        code = copy_text(&copy->remote_addr, source->remote_addr);
    }
    return code;
}

cerrno copy_bytes(uint8_t **to, const uint8_t *from, uint32_t length) {
    if (length == 0) {
        return AAA_OK;
    }
    if (from == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *to = static_cast<uint8_t *>(std::malloc(length));
    if (*to == nullptr) {
        return AAA_ERR_NOMEM;
    }
    std::memcpy(*to, from, length);
    return AAA_OK;
}

// A length is stored after its bytes: the free function wipes a copy by its
// lengths, so they must be true after every step.
cerrno copy_part(uint8_t **to, uint32_t *to_length, const uint8_t *from, uint32_t length) {
    const cerrno code = copy_bytes(to, from, length);
    if (code == AAA_OK) {
        *to_length = length;
    }
    return code;
}

cerrno copy_inbound(aaa_chap_data_t *copy, const aaa_chap_data_t *source) {
    copy->id = source->id;
    const cerrno code = copy_part(&copy->data, &copy->data_len, source->data, source->data_len);
    if (code != AAA_OK) {
        return code;
    }
    return copy_part(&copy->response, &copy->response_len, source->response, source->response_len);
}

// Here the length is stored before the bytes.
cerrno copy_outbound(aaa_chap_data_t *copy, const aaa_chap_data_t *source) {
    copy->id = source->id;
    copy->data_len = source->data_len;
    return copy_bytes(&copy->data, source->data, source->data_len);
}

// Other types carry no CHAP data: their copy has a record, but a zeroed one.
cerrno copy_chap(aaa_usercred_t *copy, const aaa_chap_data_t *source, uint32_t type) {
    copy->chap_data = static_cast<aaa_chap_data_t *>(std::calloc(1, sizeof *copy->chap_data));
    if (copy->chap_data == nullptr) {
        return AAA_ERR_NOMEM;
    }
    if (is_inbound(type)) {
        return copy_inbound(copy->chap_data, source);
    }
    return is_outbound(type) ? copy_outbound(copy->chap_data, source) : AAA_OK;
}

// Only a copy's lengths are known to be those of its blocks. A caller may have
// stored any length in its own record, and one that is too large must not
// extend the overwriting into other memory.
void wipe_chap(aaa_chap_data_t *chap, uint32_t type) {
    if (is_inbound(type) || is_outbound(type)) {
        aaautil::wipe(chap->data, chap->data_len);
    }
    if (is_inbound(type)) {
        aaautil::wipe(chap->response, chap->response_len);
    }
}

void free_chap(aaa_chap_data_t *chap, uint32_t type) {
    if (is_inbound(type) || is_outbound(type)) {
        std::free(chap->data);
    }
    if (is_inbound(type)) {
        std::free(chap->response);
    }
    std::free(chap);
}

void free_texts(aaa_usercred_t *record) {
    std::free(record->username);
    if (record->password != nullptr) {
        aaautil::wipe(record->password, std::strlen(record->password));
    }
    std::free(record->password);
    std::free(record->text3);
    std::free(record->ttyname);
    std::free(record->remote_addr);
}

// A copy of a list, or null for none.
cerrno copy_list(const avlist *source, avlist **copy) {
    return source != nullptr ? aaa_avpair_copy_list(source, nullptr, copy) : AAA_OK;
}

}  // namespace

extern "C" {

cerrno aaa_util_copy_usercred(const aaa_usercred_t *source, aaa_usercred_t **out, int32_t service,
                              uint32_t suppress, uint32_t type) {
    if (source == nullptr || out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    auto *copy = static_cast<aaa_usercred_t *>(std::malloc(sizeof(aaa_usercred_t)));
    if (copy == nullptr) {
        return AAA_ERR_NOMEM;
    }
    *out = copy;  // at once: the caller frees a partly filled copy as well
    copy_shared_fields(copy, source);
    cerrno code = copy_texts(copy, source);
    if (code == AAA_OK) {
        code = copy_list(source->attr_list, &copy->attr_list);
    }
    if (code == AAA_OK && service == AAA_SVC_PPP && suppress == 0 && source->chap_data != nullptr) {
        code = copy_chap(copy, source->chap_data, type);
    }
    return code;
}

cerrno aaa_util_free_usercred(aaa_usercred_t *record, int32_t service, uint32_t type) {
    if (record == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    free_texts(record);
    if (record->task_table != nullptr && record->is_copy != 1) {
        aaa_destroy_task_table(record->task_table);
    }
    if (record->attr_list != nullptr) {
        aaa_avpair_free_list(record->attr_list);
    }
    if (service == AAA_SVC_PPP && record->chap_data != nullptr) {
        if (record->is_copy == 1) {
            wipe_chap(record->chap_data, type);
        }
        free_chap(record->chap_data, type);
    }
    std::free(record);
    return AAA_OK;
}

cerrno aaa_util_copy_authen_req(const aaa_authen_req_t *source, aaa_authen_req_t **out) {
    if (source == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    aaautil::malloc_ptr<aaa_authen_req_t> copy(
        static_cast<aaa_authen_req_t *>(std::calloc(1, sizeof *source)));
    if (copy == nullptr) {
        return AAA_ERR_NOMEM;
    }
    if (out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const cerrno code = copy_list(source->attrs, &copy->attrs);
    if (code == AAA_OK) {
        *out = copy.release();
    }
    return code;
}

void aaa_util_free_authen_req(aaa_authen_req_t *record) {
    if (record == nullptr) {
        return;
    }
    if (record->attrs != nullptr) {
        aaa_avpair_free_list(record->attrs);
    }
    std::free(record);
}

// A null argument is "no memory" here and "invalid argument" in the copy of
// an authentication request. Kept: callers of both treat them apart.
cerrno aaa_util_copy_author_req(const aaa_author_req_t *source, aaa_author_req_t **out) {
    if (source == nullptr || out == nullptr) {
        return AAA_ERR_NOMEM;
    }
    aaautil::malloc_ptr<aaa_author_req_t> copy(
        static_cast<aaa_author_req_t *>(std::calloc(1, sizeof *source)));
    if (copy == nullptr) {
        return AAA_ERR_NOMEM;
    }
    const cerrno code = copy_list(source->attrs, &copy->attrs);
    if (code == AAA_OK) {
        *out = copy.release();
    }
    return code;
}

void aaa_util_free_author_req(aaa_author_req_t *record) {
    if (record == nullptr) {
        return;
    }
    if (record->attrs != nullptr) {
        aaa_avpair_free_list(record->attrs);
    }
    std::free(record);
}

}  // extern "C"
