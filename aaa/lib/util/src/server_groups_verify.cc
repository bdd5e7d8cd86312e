// SPDX-License-Identifier: Apache-2.0
//
// Verification of server-group configuration: a verdict, and perhaps a text for
// the operator.

#include "aaa/server_groups.h"

#include <cstdlib>
#include <cstring>

#include "aaa/debug_flags.h"
#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "internal/memory.hpp"
#include "internal/server_groups.hpp"
#include "internal/trace.hpp"
#include "platform/sysdb.h"

namespace {

using aaautil::kDiameter;
using aaautil::kRadius;
using aaautil::kTacacs;

constexpr char kTakenByRadius[] = "Server group name already defined for RADIUS";
constexpr char kTakenByTacacs[] = "Server group name already defined for TACACS+";
constexpr char kTakenByDiameter[] = "Server group name already defined for DIAMETER+";  // with the plus: kept

// The other protocols under which a group's name may not exist yet.
struct Rivals {
    uint32_t protocol;
    struct {
        uint32_t protocol;
        const char *text;
        bool traced;  // a first find for RADIUS is not traced
    } lookup[2];
};

constexpr Rivals kRivals[] = {
    {kRadius, {{kTacacs, kTakenByTacacs, true}, {kDiameter, kTakenByDiameter, true}}},
    {kTacacs, {{kRadius, kTakenByRadius, false}, {kDiameter, kTakenByDiameter, true}}},
    {kDiameter, {{kRadius, kTakenByRadius, false}, {kTacacs, kTakenByTacacs, true}}},
};

// A refusal that has a text needs an output for it.
cerrno refuse(char **err_text, const char *text, cerrno rc) {
    if (err_text == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *err_text = strdup(text);
    return rc;
}

bool is_keyword(const char *name) {
    for (const char *keyword : aaautil::kKeywords) {
        if (std::strcmp(name, keyword) == 0) {
            return true;
        }
    }
    return false;
}

cerrno verify_against(const Rivals &rivals, char **err_text, const char *sg_name) {
    for (const auto &lookup : rivals.lookup) {
        // Only a successful read is a find; a database that fails does not refuse the group.
        // The number is not asked for: a damaged item too refuses a new group.
        if (aaautil::read_name_map(aaautil::shared_handle(aaa_sgmap_sysdb_connid), sg_name, lookup.protocol,
                                   nullptr) == AAA_OK) {
            if (lookup.traced) {
                aaa_debug(AAA_DBG_SERVER_GROUP, "dup name [need to remove]");
            }
            return refuse(err_text, lookup.text, AAA_ERR_SG_NAME_OTHER_PROTOCOL);
        }
    }
    return AAA_OK;
}

cerrno verify_set(char **err_text, const char *sg_name, uint32_t protocol) {
    aaa_debug(AAA_DBG_SERVER_GROUP, "Server group set/create verification");
    if (sg_name == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (is_keyword(sg_name)) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "invalid arg Break [need to remove]");
        return refuse(err_text, "Bad server group name", AAA_ERR_INVALID_ARG);
    }
    const cerrno bound = aaautil::bind_group_map(aaautil::kBindFailedTwoBlanks);
    if (bound != AAA_OK) {
        return bound;
    }
    for (const Rivals &rivals : kRivals) {
        if (rivals.protocol == protocol) {
            return verify_against(rivals, err_text, sg_name);
        }
    }
    // No blank after "either": kept.
    return refuse(err_text, "AAA: Unknown protocol, specify eitherRADIUS or TACACS+ or DIAMETER",
                  AAA_ERR_INVALID_ARG);
}

cerrno bind_configuration() {
    const cerrno rc =
        aaautil::bind_shared(aaa_cfg_sysdb_connid, aaautil::kConfigPath, aaautil::server_group_presence);
    if (rc != AAA_OK) {
        aaautil::log_sysdb_failure(aaautil::kBindFailed, aaautil::kConfigPath, rc);
    }
    return rc;
}

cerrno verify_delete(const char *sg_name) {
    constexpr size_t kPathSize = 512;
    const aaautil::malloc_ptr<char> path(static_cast<char *>(std::malloc(kPathSize)));
    if (path == nullptr) {
        return AAA_ERR_NOMEM;
    }
    cerrno rc = bind_configuration();
    if (rc != AAA_OK) {
        return rc;
    }
    std::memset(path.get(), 0, kPathSize);  // the empty path: the whole tree of the connection
    bool found = false;
    rc = aaautil::find_group_in_lists(path.get(), sg_name, &found);
    if (rc == AAA_OK && found) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "dup name [need to remove]");
        return AAA_ERR_SG_IN_USE;
    }
    return rc;
}

cerrno verify_operation(uint32_t operation, char **err_text, const char *sg_name, uint32_t protocol) {
    switch (operation) {
        case AAA_CFG_OP_SET:
        case AAA_CFG_OP_CREATE:
            return verify_set(err_text, sg_name, protocol);
        case AAA_CFG_OP_DELETE:
            return verify_delete(sg_name);
        default:
            aaa_debug(AAA_DBG_SERVER_GROUP, "Server group unknown event %X", operation);
            return refuse(err_text, "Unknown server group event", AAA_ERR_INVALID_ARG);
    }
}

}  // namespace

extern "C" {

cerrno aaa_util_svr_grp_verify(const aaa_cfg_event_t *event, char **err_text, uint32_t *verdict,
                               const char *sg_name, uint32_t protocol) {
    // The other pointers are looked at where they are used: a delete needs no
    // err_text, an unknown event no name.
    if (event == nullptr || verdict == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *verdict = AAA_VERDICT_REJECTED;
    aaa_debug(AAA_DBG_SERVER_GROUP, "Entry [need to remove]");
    const uint32_t operation = event->operation;
    const cerrno rc = verify_operation(operation, err_text, sg_name, protocol);
    if (rc == AAA_OK) {
        *verdict = AAA_VERDICT_ACCEPTED;
    }
    if ((event->pass_flags & AAA_CFG_FIRST_PASS) != 0 && (operation & AAA_CFG_OP_DELETE) != 0) {
        // A delete is decided in the second pass, except for RADIUS.
        *verdict = AAA_VERDICT_FIRST_PASS;
        aaa_debug(AAA_DBG_SERVER_GROUP, "Verification received for the first pass");
        if (protocol == kRadius) {
            *verdict = AAA_VERDICT_ACCEPTED;
        }
    }
    return rc;
}

}  // extern "C"
