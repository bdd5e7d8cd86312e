// SPDX-License-Identifier: Apache-2.0
//
// Application of server-group configuration, which keeps the two maps of groups in
// step with it.

#include "aaa/server_groups.h"

#include <cstdio>
#include <cstring>

#include "aaa/debug_flags.h"
#include "aaa/result_codes.h"
#include "internal/server_groups.hpp"
#include "internal/sysdb_item.hpp"
#include "internal/trace.hpp"
#include "platform/bounded.h"
#include "platform/cerr.h"
#include "platform/logging.h"
#include "platform/sysdb.h"

namespace {

using aaautil::OutWord;
using aaautil::printable;
using aaautil::SysdbItem;

const char *code_text(cerrno rc) {
    return printable(cerr_strerror(rc));
}

// Range of the numbers of one protocol: above base, up to last. Every number
// has three hexadecimal digits, so that the order of the item names is the
// order of the numbers.
struct NumberRange {
    uint32_t base;
    uint32_t last;
};

NumberRange range_of(const char *protocol_name) {
    return std::strcmp(protocol_name, "radius") == 0 ? NumberRange{1000, 1999} : NumberRange{3000, 3999};
}

// One application: the connection, the group and the paths of its two items.
class GroupMapping {
  public:
    GroupMapping(uint64_t conn, const char *protocol_name, const char *sg_name, uint32_t *sg_number)
        : conn_(conn), protocol_name_(protocol_name), sg_name_(sg_name), sg_number_(sg_number) {
        std::snprintf(name_path_, sizeof name_path_, "sg_name_map/%s/%s", protocol_name, sg_name);
    }

    cerrno set() {
        SysdbItem item;
        cerrno rc = read_name_item(item);
        if (rc == AAA_OK) {
            *sg_number_ = item.number();
            aaa_debug(AAA_DBG_SERVER_GROUP, "Found mapping for sg %s: # %d", sg_name_, *sg_number_);
            return check_number_item();
        }
        if (rc != SYSDB_ERR_NOT_FOUND) {
            // NOLINTNEXTLINE(performance-no-int-to-ptr): only printed, as an address
            const auto *handle = reinterpret_cast<const void *>(conn_);
            aaa_debug(AAA_DBG_SERVER_GROUP, "sysdb_connid = %p, item_name = %s", handle, name_path_);
            aaautil::log_sysdb_failure("Cannot get name map from", name_path_, rc);
            return rc;
        }
        rc = allocate();
        if (rc != AAA_OK) {
            // Whether or not it was written; a number item already written stays.
            sysdb_item_delete(conn_, name_path_, 0);
        }
        return rc;
    }

    cerrno remove() {
        SysdbItem item;
        const cerrno rc = item.read(conn_, name_path_, SYSDB_TYPE_U32);
        if (rc != AAA_OK) {
            return rc;
        }
        if (item.get() == nullptr) {
            return AAA_OK;
        }
        if (!item.is_number()) {
            return AAA_ERR_SG_MAPPING;
        }
        *sg_number_ = item.number();
        remove_item("Cannot delete server group  name for %s - %s", name_path_);
        build_number_path();
        remove_item("Cannot delete server group  number for %s - %s", number_path_);
        return AAA_OK;
    }

  private:
    void build_number_path() {
        std::snprintf(number_path_, sizeof number_path_, "sg_num_map/%s/0x%x", protocol_name_, *sg_number_);
    }

    cerrno read_name_item(SysdbItem &item) {
        const cerrno rc = item.read(conn_, name_path_, SYSDB_TYPE_U32);
        return rc == AAA_OK && !item.is_number() ? AAA_ERR_SG_MAPPING : rc;
    }

    cerrno write_number_item() {
        return sysdb_item_set(conn_, number_path_, SYSDB_TYPE_STRING, sg_name_,
                              static_cast<uint32_t>(std::strlen(sg_name_) + 1), 1);
    }

    // The name has its number; the entry of the number must exist and hold the same name.
    cerrno check_number_item() {
        build_number_path();
        SysdbItem item;
        cerrno rc = item.read(conn_, number_path_, SYSDB_TYPE_STRING);
        if (rc == SYSDB_ERR_NOT_FOUND) {
            rc = write_number_item();
            if (rc != AAA_OK) {
                aaautil::log_sysdb_failure("Cannot set", number_path_, rc);
            }
            return rc;
        }
        if (rc != AAA_OK) {
            aaautil::log_sysdb_failure("Cannot get number map from", number_path_, rc);
            return rc;
        }
        if (!item.is_text(sg_name_)) {
            kel_errmsg(kel_msg_rec_aaa_err_server_group_getfn(), 3, "Invalid server group name mapping");
            return AAA_ERR_SG_MAPPING;
        }
        return AAA_OK;
    }

    // Numbers freed by deletion are not taken again while a higher one exists.
    cerrno next_number(const NumberRange &range, unsigned long *number) {
        char directory[256];
        std::snprintf(directory, sizeof directory, "sg_num_map/%s/", protocol_name_);
        char *last_name = nullptr;
        OutWord type;
        const cerrno rc = sysdb_directory_get_last(conn_, directory, &last_name, type.out(), 0);
        if (rc == SYSDB_ERR_NOT_FOUND) {
            *number = range.base + 1UL;
            return AAA_OK;
        }
        if (rc != AAA_OK) {
            aaautil::log_sysdb_failure("Failed to read SysDB directory", directory, rc);
            return rc;
        }
        const aaautil::malloc_ptr<char> name(last_name);
        if (name == nullptr) {
            return AAA_ERR_SG_MAPPING;
        }
        const unsigned long last = std::strtoul(name.get(), nullptr, 16);
        *number = last > range.last ? last : last + 1;
        return AAA_OK;
    }

    cerrno allocate() {
        const NumberRange range = range_of(protocol_name_);
        unsigned long number = 0;
        cerrno rc = next_number(range, &number);
        if (rc != AAA_OK) {
            return rc;
        }
        if (number > range.last) {
            kel_errmsg(kel_msg_rec_aaa_err_server_group_getfn(), 3,
                       "Server group index exceeded the maximum limit");
            return AAA_ERR_SG_MAPPING;
        }
        *sg_number_ = static_cast<uint32_t>(number);
        const uint32_t value = *sg_number_;
        build_number_path();
        rc = sysdb_item_set(conn_, name_path_, SYSDB_TYPE_U32, &value, sizeof value, 1);
        if (rc == AAA_OK) {
            rc = write_number_item();
        }
        if (rc == AAA_OK) {
            aaa_debug(AAA_DBG_SERVER_GROUP, "New mapping for sg %s: # %d", sg_name_, *sg_number_);
        }
        return rc;
    }

    // An item that cannot be deleted does not fail the deletion of the group.
    void remove_item(const char *failure_format, const char *path) {
        const cerrno rc = sysdb_item_delete(conn_, path, 0);
        if (rc != AAA_OK) {
            aaa_debug(AAA_DBG_SERVER_GROUP, failure_format, path, code_text(rc));
        }
    }

    uint64_t conn_;
    const char *protocol_name_;
    const char *sg_name_;
    uint32_t *sg_number_;
    char name_path_[256] = "";
    char number_path_[256] = "";
};

cerrno apply_set(uint64_t conn, const char *protocol_name, const char *sg_name, uint32_t *sg_number) {
    aaa_debug(AAA_DBG_SERVER_GROUP, "Set/create event for server group %s (type = %s)", printable(sg_name),
              printable(protocol_name));
    cerrno rc = AAA_ERR_INVALID_ARG;
    if (protocol_name != nullptr && sg_name != nullptr && sg_number != nullptr) {
        *sg_number = 0;
        rc = GroupMapping(conn, protocol_name, sg_name, sg_number).set();
    }
    if (rc != AAA_OK) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "Failed to create server group mapping for %s - %s",
                  printable(sg_name), code_text(rc));
    }
    return rc;
}

bool is_radius(const char *protocol_name) {
    alignas(uint64_t) int indicator[2] = {1, 0};
    return strcmp_s(protocol_name, 7, "radius", indicator) == 0 && indicator[0] == 0;
}

cerrno apply_delete(uint64_t conn, bool first_pass, const char *protocol_name, const char *sg_name,
                    uint32_t *sg_number) {
    aaa_debug(AAA_DBG_SERVER_GROUP, "Delete event for server group %s (type = %s)", printable(sg_name),
              printable(protocol_name));
    // A RADIUS group goes in the first pass already, the others in the second.
    const bool radius = is_radius(protocol_name);
    if (first_pass && !radius) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "Apply received for the first pass");
        return AAA_OK;
    }
    if (protocol_name == nullptr || sg_name == nullptr || sg_number == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *sg_number = 0;
    const cerrno rc = GroupMapping(conn, protocol_name, sg_name, sg_number).remove();
    if (rc != AAA_OK) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "Failed to delete server group mapping for %s - %s", sg_name,
                  code_text(rc));
    }
    return rc;
}

}  // namespace

extern "C" {

cerrno aaa_util_svr_grp_apply(uint64_t conn, const aaa_cfg_event_t *event, const char *protocol_name,
                              const char *sg_name, uint32_t *sg_number) {
    if (event == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    switch (event->operation) {
        case AAA_CFG_OP_SET:
        case AAA_CFG_OP_CREATE:
            return apply_set(conn, protocol_name, sg_name, sg_number);
        case AAA_CFG_OP_DELETE:
            return apply_delete(conn, (event->pass_flags & AAA_CFG_FIRST_PASS) != 0, protocol_name, sg_name,
                                sg_number);
        default:
            aaa_debug(AAA_DBG_SERVER_GROUP, "Unknown notify event for server group %s (type = %s)",
                      printable(sg_name), printable(protocol_name));
            return AAA_ERR_INVALID_ARG;
    }
}

}  // extern "C"
