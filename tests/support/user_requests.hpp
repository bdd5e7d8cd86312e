// SPDX-License-Identifier: Apache-2.0
//
// Authentication, authorization and accounting of a user, with everything in place.
#pragma once

#include "aaa/messages.h"
#include "support/request_checks.hpp"

namespace messages {

inline constexpr uint32_t kSid = 0x00A0B0C0;

// An authentication with everything in place; HTTP (24) adds no terminal.
struct AuthenRequest : UserRequest {
    using UserRequest::UserRequest;

    cerrno compose(uint32_t session, unsigned missing = 0) {
        const Pointers p(*this, missing);
        return aaa_util_msg_authen_compose(p.record, option, service, methodlist, method, usercred, in_attrs,
                                           rsa, p.iov, p.count, p.buffer, p.size, async, session);
    }

    uint32_t option = 0;
    const avlist *in_attrs = nullptr;
    const aaa_rsa_params_t *rsa = nullptr;
};

// An authorization with everything in place. HTTP (24) has no service
// attributes and no terminal.
struct AuthorRequest : UserRequest {
    using UserRequest::UserRequest;

    cerrno compose(uint32_t session, unsigned missing = 0) {
        const Pointers p(*this, missing);
        return aaa_util_msg_author_compose(p.record, option, service, methodlist, method, usercred, svc_attrs,
                                           p.iov, p.count, p.buffer, p.size, async, session);
    }

    uint32_t option = 0x12345678;
    aaa_svc_attrs_t attrs{};
    aaa_svc_attrs_t *svc_attrs = &attrs;
};

// An accounting request with everything in place; HTTP (24) has no service
// attributes and no terminal.
struct AcctRequest : UserRequest {
    using UserRequest::UserRequest;

    cerrno compose(uint32_t session, unsigned missing = 0) {
        const Pointers p(*this, missing);
        return aaa_util_msg_acct_compose(p.record, option, service, methodlist, method, usercred, svc_attrs,
                                         kSid, p.iov, p.count, p.buffer, p.size, async, session);
    }

    uint32_t option = 128;
    aaa_svc_attrs_t attrs{};
    aaa_svc_attrs_t *svc_attrs = &attrs;
};

}  // namespace messages
