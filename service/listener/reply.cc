// SPDX-License-Identifier: Apache-2.0
//
// Composing and sending answers.

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "aaa/accessors.h"
#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "listener/message.hpp"

namespace service {

namespace {

constexpr std::size_t kRoom = AAA_TRANSPORT_MAX - sizeof(aaa_reply_hdr_t);

// The outputs of a compose routine.
struct Composed {
    aaa_reply_hdr_t header{};
    aaa_sess_ctx_t context{};
    iov_t *reply = nullptr;
    std::uint32_t count = 0;
    std::unique_ptr<char[]> buffer;

    explicit Composed(const Request &request)
        : context{request.head.type, request.head.key},
          buffer(std::make_unique_for_overwrite<char[]>(kRoom)) {}
    ~Composed() { std::free(reply); }
    Composed(const Composed &) = delete;
    Composed &operator=(const Composed &) = delete;
};

// The answer as the transport sends it.
std::string bytes_of_classic(const Composed &composed, std::uint32_t number) {
    std::string bytes;
    for (std::uint32_t i = 0; i < composed.count; ++i) {
        bytes.append(static_cast<const char *>(composed.reply[i].base), composed.reply[i].len);
    }
    const std::uint32_t fields[5] = {AAA_TRANSPORT_MAGIC, static_cast<std::uint32_t>(bytes.size()), number,
                                     static_cast<std::uint32_t>(getpid()), 0};
    static_assert(sizeof fields == AAA_TRANSPORT_FIELDS);
    std::memcpy(bytes.data(), fields, sizeof fields);
    return bytes;
}

std::string bytes_of_packet(const void *packet, std::size_t size) {
    std::string bytes(static_cast<const char *>(packet), size);
    avlist *list = nullptr;
    static_assert(sizeof(aaa_sess_hdr_t::list) == sizeof list);
    std::memcpy(&list, bytes.data() + offsetof(aaa_sess_hdr_t, list), sizeof list);
    std::memset(bytes.data() + offsetof(aaa_sess_hdr_t, list), 0, sizeof list);
    avlist *copy = nullptr;  // packing turns a list into something that no one else can use
    if (list != nullptr && aaa_avpair_copy_list(list, nullptr, &copy) == AAA_OK) {
        const AvList owner(copy);
        auto length = static_cast<std::uint32_t>(AAA_TRANSPORT_MAX - size);
        const auto packed = std::make_unique_for_overwrite<char[]>(length);
        if (aaa_avpair_pack_msg_to_buf(copy, packed.get(), &length) == AAA_OK) {
            bytes.append(packed.get(), length);
        }
    }
    return bytes;
}

cerrno send_packet(aaa_transport_t *client, const Request &request, void *packet, std::size_t size) {
    // Sending releases the list of the packet.
    const bool is_seen = request.tap != nullptr && request.tap->is_on();
    const std::string bytes = is_seen ? bytes_of_packet(packet, size) : "";
    const cerrno rc = aaa_transport_send_packet(client, packet, size, AAA_TRANSPORT_NOW);
    if (rc == AAA_OK && is_seen) {
        request.tap->sent(bytes, bytes.size() > size ? size : 0);
    }
    return rc;
}

cerrno send_composed(aaa_transport_t *client, const Request &request, bool session, const Composed &composed,
                     bool has_list = false) {
    if (composed.reply == nullptr) {
        return AAA_ERR_NOMEM;
    }
    if (session) {
        return send_packet(client, request, composed.reply, aaa_transport_response_size(request.head.type));
    }
    const cerrno rc = aaa_transport_send(client, composed.reply, composed.count, AAA_TRANSPORT_NOW);
    if (request.tap != nullptr) {
        ++request.tap->classic_answers;
        if (rc == AAA_OK && request.tap->is_on()) {
            request.tap->sent(bytes_of_classic(composed, request.tap->classic_answers),
                              has_list ? composed.reply[0].len : 0);
        }
    }
    return rc;
}

bool add_text(avlist *list, std::uint32_t type, const std::string &text) {
    return text.empty() || aaa_util_avpair_add_attr(list, type, text.c_str(),
                                                    static_cast<std::uint32_t>(text.size() + 1), 0) == AAA_OK;
}

bool add_number(avlist *list, std::uint32_t type, std::uint32_t number) {
    return aaa_util_avpair_add_attr(list, type, &number, sizeof number, 0) == AAA_OK;
}

bool add_challenge(avlist *list, const Answer &answer, const std::string &token) {
    constexpr std::uint32_t kHidden = 1;  // of the pair's flags
    return aaa_util_avlist_prompt_add(answer.echo ? 0 : kHidden, answer.text.c_str(), list) == AAA_OK &&
           add_number(list, AAA_PROMPT_ECHO_ATTR, answer.echo ? 1 : 0) &&
           add_text(list, AAA_RADIUS_STATE_ATTR, token);
}

// A client knows by the message type of a change of password that the password was changed, or has to
// be; and by a session of 0 seconds that the account has expired.
bool add_note(avlist *list, Note note) {
    switch (note) {
        case Note::kPasswordChanged:
        case Note::kPasswordExpired:
            return aaa_util_avlist_msgtype_add(AAA_MT_ASCII_CHPASS, list) == AAA_OK;
        case Note::kAccountExpired:
            return add_number(list, AAA_TIMEOUT_ATTR, 0);
        case Note::kChangedElsewhere:
        case Note::kNone:
            break;
    }
    return true;
}

// The list of an answer; null without memory.
AvList make_list(Function function, const Answer &answer, const std::string &token) {
    avlist *raw = nullptr;
    const char *name = function == Function::kAuthentication ? "Authentication Reply" : "Authorization Reply";
    if (aaa_avpair_create_list(name, &raw) != AAA_OK) {
        return nullptr;
    }
    AvList list(raw);
    const std::uint32_t status = answer.ends_login ? std::uint32_t{AAA_STAT_ABORT} : answer.status;
    bool ok = aaa_util_avlist_status_add(status, 4, raw) == AAA_OK;
    if (ok && answer.pending != nullptr) {
        ok = add_challenge(raw, answer, token);
    } else if (ok) {
        ok = add_text(raw, AAA_REPLYMSG_ATTR, answer.text);
    }
    if (ok && answer.privilege) {
        ok = aaa_util_avlist_priv_add(raw, *answer.privilege) == AAA_OK;
    }
    if (ok && answer.method != 0) {
        ok = aaa_util_avlist_authen_method_set(answer.method, raw) == AAA_OK;
    }
    ok = ok && add_note(raw, answer.note);
    for (const Attribute &attribute : answer.attributes) {
        ok = ok && aaa_util_avpair_add_attr(raw, attribute.type, attribute.value.data(),
                                            static_cast<std::uint32_t>(attribute.value.size()), 0) == AAA_OK;
    }
    return ok ? std::move(list) : nullptr;
}

cerrno send_list(aaa_transport_t *client, const Request &request, Function function, AvList list) {
    Composed composed(request);
    const bool session = request.is_session();
    const auto compose =
        function == Function::kAuthentication ? aaa_util_reply_authen_compose : aaa_util_reply_author_compose;
    const cerrno rc = compose(&composed.header, &composed.reply, &composed.count, composed.buffer.get(),
                              kRoom, list.get(), session ? 1 : 0, &composed.context);
    if (session && composed.reply != nullptr) {
        list.release();  // the packet has it, and sending frees it
    }
    if (rc != AAA_OK || composed.reply == nullptr) {
        return send_error(client, request, rc != AAA_OK ? rc : AAA_ERR_NOMEM);
    }
    return send_composed(client, request, session, composed, true);
}

}  // namespace

cerrno send_error(aaa_transport_t *client, const Request &request, cerrno error) {
    Composed composed(request);
    bool session = request.is_session();
    if (session) {
        void *packet = nullptr;
        aaa_session_fill_response(&packet, nullptr, &composed.context, error, 0, AAA_STAT_ERROR, 0, 0, 0);
        composed.reply = static_cast<iov_t *>(packet);
    }
    if (composed.reply == nullptr) {  // a type without a response packet is answered in the classic form
        session = false;
        composed.header.status = error;
        aaa_util_reply_compose(&composed.header, &composed.reply, &composed.count, nullptr, 0, nullptr, 0,
                               nullptr);
    }
    return send_composed(client, request, session, composed);
}

cerrno send_answer(aaa_transport_t *client, const Request &request, Function function, const Answer &answer,
                   const std::string &token) {
    if (function == Function::kAccounting) {
        if (answer.status != AAA_STAT_PASS) {
            return send_error(client, request, answer.error != 0 ? answer.error : AAA_ERR_ACCT_SERVICE);
        }
        Composed composed(request);
        const cerrno rc = aaa_util_reply_acct_compose(&composed.header, &composed.reply, &composed.count,
                                                      request.is_session() ? 1 : 0, &composed.context);
        return rc == AAA_OK ? send_composed(client, request, request.is_session(), composed)
                            : send_error(client, request, rc);
    }
    AvList list = make_list(function, answer, token);
    return list != nullptr ? send_list(client, request, function, std::move(list))
                           : send_error(client, request, AAA_ERR_NOMEM);
}

cerrno send_plain(aaa_transport_t *client, const Request &request) {
    Composed composed(request);
    const std::uint32_t session = request.is_session() ? 1 : 0;
    cerrno rc = AAA_ERR_NOT_SUPPORTED;
    switch (request.head.type) {
        case AAA_REQ_CONNECT:
            rc = aaa_util_reply_conn_compose(&composed.header, AAA_OK, &composed.reply, &composed.count,
                                             session, &composed.context);
            break;
        case AAA_REQ_DISCONNECT:
            rc = aaa_util_reply_disconn_compose(&composed.header, &composed.reply, &composed.count, session,
                                                &composed.context);
            break;
        case AAA_REQ_PING:
            rc = aaa_util_reply_ping_compose(&composed.header, &composed.reply, &composed.count, session,
                                             &composed.context);
            break;
        // Their classic answers have no place for a code: it would be read as a map or a group. Empty ones
        // give no right to anyone.
        case AAA_REQ_TASKMAP:
            rc = aaa_util_reply_taskmap_compose(&composed.header, nullptr, 0, &composed.reply,
                                                &composed.count, session, &composed.context);
            break;
        case AAA_REQ_USERGROUP: {
            static char none[] = "";
            rc = aaa_util_reply_usergroup_compose(&composed.header, none, &composed.reply, &composed.count,
                                                  session, &composed.context);
            break;
        }
        case AAA_REQ_FREE_USERDATA:
            return send_error(client, request, AAA_OK);  // the generic answer, with its code
        default:
            break;
    }
    return rc == AAA_OK ? send_composed(client, request, request.is_session(), composed)
                        : send_error(client, request, rc);
}

cerrno send_configured(aaa_transport_t *client, const Request &request, cerrno result) {
    Composed composed(request);
    composed.header.status = result;
    const cerrno rc = aaa_util_reply_cfg_compose(&composed.header, &composed.reply, &composed.count, result,
                                                 request.is_session() ? 1 : 0, &composed.context);
    return rc == AAA_OK ? send_composed(client, request, request.is_session(), composed)
                        : send_error(client, request, rc);
}

}  // namespace service
