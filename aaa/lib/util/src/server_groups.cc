// SPDX-License-Identifier: Apache-2.0
//
// Server-group names and numbers, read from the maps that the AAA server
// publishes under /oper/aaa/gl/group-server/:
//
//   sg_name_map/PROTOCOL/NAME       the number, 32 bits
//   sg_num_map/PROTOCOL/0xNUMBER    the name, with its NUL

#include "aaa/server_groups.h"

#include <cstdio>
#include <iterator>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "internal/server_groups.hpp"
#include "internal/sysdb_item.hpp"
#include "internal/trace.hpp"
#include "platform/cerr.h"
#include "platform/logging.h"
#include "platform/sysdb.h"

namespace aaautil {

void log_sysdb_failure(const char *action, const char *path, cerrno rc) noexcept {
    kel_errmsg(kel_msg_rec_aaa_err_sysdb_getfn(), 7, action, path, printable(cerr_strerror(rc)));
}

cerrno bind_group_map(const char *failure_action) noexcept {
    const cerrno rc = bind_shared(aaa_sgmap_sysdb_connid, kServerGroupPath, server_group_presence);
    if (rc != AAA_OK) {
        log_sysdb_failure(failure_action, kServerGroupPath, rc);
    }
    return rc;
}

cerrno read_name_map(uint64_t conn, const char *sg_name, uint32_t protocol, uint32_t *number) noexcept {
    char path[256];
    std::snprintf(path, sizeof path, "sg_name_map/%s/%s", printable(aaa_util_get_sg_defined_name(protocol)),
                  sg_name);
    SysdbItem item;
    const cerrno rc = item.read(conn, path, SYSDB_TYPE_U32);
    if (rc != 0) {
        return rc;
    }
    if (number != nullptr) {
        if (!item.is_number()) {
            return AAA_ERR_SG_MAPPING;
        }
        *number = item.number();
    }
    return AAA_OK;
}

}  // namespace aaautil

namespace {

using aaautil::SysdbItem;

cerrno read_number_map(SysdbItem &item, const char *protocol_name, uint32_t sg_number) {
    char path[256];
    std::snprintf(path, sizeof path, "%s%s/0x%x", "sg_num_map/", protocol_name, sg_number);
    return item.read(aaautil::shared_handle(aaa_sgmap_sysdb_connid), path, SYSDB_TYPE_STRING);
}

}  // namespace

extern "C" {

const char *aaa_util_get_sg_defined_name(uint32_t protocol) {
    return protocol < std::size(aaautil::kKeywords) ? aaautil::kKeywords[protocol] : nullptr;
}

char *aaa_util_lookup_sg_name(uint32_t sg_number) {
    if (aaautil::bind_group_map(aaautil::kBindFailedTwoBlanks) != AAA_OK) {
        return nullptr;
    }
    // Diameter numbers are not searched, although Diameter names are found by
    // the lookup in the other direction: kept, callers rely on the difference.
    SysdbItem item;
    cerrno rc = read_number_map(item, aaautil::kKeywords[aaautil::kRadius], sg_number);
    if (rc == SYSDB_ERR_NOT_FOUND) {
        rc = read_number_map(item, aaautil::kKeywords[aaautil::kTacacs], sg_number);
    }
    if (rc != AAA_OK || item.length() == 0) {
        return nullptr;
    }
    item.get()[item.length() - 1] = '\0';
    return item.release();
}

cerrno aaa_util_lookup_sg_index_and_get_type(const char *sg_name, uint32_t *sg_number_out,
                                             uint32_t *protocol_out) {
    if (sg_name == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (sg_number_out != nullptr) {
        *sg_number_out = 0;
    }
    const cerrno bound = aaautil::bind_group_map(aaautil::kBindFailed);
    if (bound != AAA_OK) {
        return bound;
    }
    // The order is fixed: the first protocol that has the name wins.
    for (const uint32_t protocol : {aaautil::kRadius, aaautil::kTacacs, aaautil::kDiameter}) {
        const cerrno rc = aaautil::read_name_map(aaautil::shared_handle(aaa_sgmap_sysdb_connid), sg_name,
                                                 protocol, sg_number_out);
        if (rc == AAA_OK && protocol_out != nullptr) {
            *protocol_out = protocol;
        }
        if (rc != SYSDB_ERR_NOT_FOUND) {
            return rc;
        }
    }
    if (protocol_out != nullptr) {
        *protocol_out = 0;
    }
    return SYSDB_ERR_NOT_FOUND;
}

cerrno aaa_util_lookup_sg_index(const char *sg_name, uint32_t *sg_number_out) {
    return aaa_util_lookup_sg_index_and_get_type(sg_name, sg_number_out, nullptr);
}

}  // extern "C"
