// SPDX-License-Identifier: Apache-2.0
//
// Reading requests: every byte comes from another process.

#include "listener/message.hpp"

#include <cstring>

#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "config/text_file.hpp"

namespace service {

namespace {

bool has(const avlist *list, std::uint32_t type) {
    std::uint32_t length = 0;
    return aaa_util_avlist_value_copy(list, type, 0, nullptr, 0, &length) != AAA_ERR_AVPAIR_NOT_FOUND;
}

// A text that is absent is empty. One that is malformed or holds control characters refuses the
// request: it would be one name for the service and another for a server or a log.
bool take_text(const avlist *list, std::uint32_t type, std::size_t most, std::string &out) {
    const auto text = text_in(list, type);
    if (!text) {
        return !has(list, type);
    }
    out = *text;
    return text->size() <= most && !control_character(*text) && text->find('\r') == std::string::npos;
}

std::uint32_t record_of(const avlist *list, std::uint32_t type) {
    const std::uint32_t said = number_in(list, AAA_TYPE_ATTR).value_or(0);
    return type == AAA_REQ_ACCT_UPDATE ? std::uint32_t{AAA_MT_ACCT_UPDATE} : said;
}

}  // namespace

Request read_request(const aaa_transport_msg_t &message) {
    Request request;
    request.fault = aaa_transport_read_request(&message, &request.head);
    if (request.fault == AAA_OK && request.head.list_at != 0) {
        avlist *list = nullptr;
        request.fault = aaa_transport_unpack(&message, request.head.list_at, &list);
        request.list.reset(list, FreeAvlist());
    }
    return request;
}

std::optional<Function> function_of(std::uint32_t type) {
    switch (type) {
        case AAA_REQ_AUTHEN:
            return Function::kAuthentication;
        case AAA_REQ_AUTHOR:
            return Function::kAuthorization;
        case AAA_REQ_ACCT:
        case AAA_REQ_ACCT_ASYNC:  // its answer says that the record is kept, as that of the other does
        case AAA_REQ_ACCT_UPDATE:
            return Function::kAccounting;
        default:
            return std::nullopt;
    }
}

cerrno fill_question(const Request &request, Function function, Question &question) {
    constexpr std::size_t kName = 253;
    constexpr std::size_t kText = 4096;
    const avlist *list = request.list.get();
    std::string command;
    question.function = function;
    if (list == nullptr || !take_text(list, AAA_USERNAME_ATTR, kName, question.user) ||
        !take_text(list, AAA_METHODLIST_ATTR, kName, question.list) ||
        !take_text(list, AAA_TTYNAME_ATTR, kName, question.terminal) ||
        !take_text(list, AAA_REMOTE_ADDR_ATTR, kName, question.remote) ||
        !take_text(list, AAA_CMD_ATTR, kText, command) || question.list.find('/') != std::string::npos) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    if (has(list, AAA_PASSWORD_ATTR)) {
        question.password = secret_in(list, AAA_PASSWORD_ATTR);
        if (!question.password) {
            return AAA_ERR_INVALID_CLIENT_DATA;
        }
    }
    if (has(list, AAA_CMD_ATTR)) {
        question.command = command;
    }
    // A service whose lists have the commands of users cannot be asked for without one.
    question.service = number_in(list, AAA_SERVICE_TYPE_ATTR).value_or(0);
    if (function == Function::kAuthorization && !question.command &&
        (question.service == AAA_SVC_CMD || question.service == AAA_SVC_RCMD)) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    question.option = number_in(list, AAA_AUTHEN_OPTION_ATTR).value_or(AAA_AO_ASCII_LOGIN);
    question.privilege = number_in(list, AAA_PRIV_LVL_ATTR);
    question.authenticated_by = number_in(list, AAA_AUTHEN_METHOD_ATTR).value_or(AAA_METHOD_NOTSET);
    question.record = record_of(list, request.head.type);
    question.session = number_in(list, AAA_ACCT_SESSID_ATTR).value_or(0);
    question.attributes = request.list;
    return AAA_OK;
}

std::string token_of(const Request &request) {
    return text_in(request.list.get(), AAA_RADIUS_STATE_ATTR).value_or("");
}

}  // namespace service
