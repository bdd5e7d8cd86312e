// SPDX-License-Identifier: Apache-2.0

#include "config/messages.hpp"

#include <net/if.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/messages.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "base/avlist.hpp"
#include "config/database_read.hpp"
#include "config/text_file.hpp"
#include "platform/cipher.h"
#include "platform/sysdb_changes.h"

namespace service {

namespace {

constexpr int kReversible = 7;
constexpr std::uint8_t kDelete = 1;  // of the action; 0 adds or replaces

// ---- the parts of a message

// A name that a path and a method list can hold.
std::optional<std::string> name_in(const avlist *list, std::uint32_t type, std::uint32_t instance = 0) {
    char text[SYSDB_NAME_SIZE] = "";
    std::uint32_t length = 0;
    if (aaa_util_avlist_value_copy(list, type, instance, text, sizeof text - 1, &length) != AAA_OK) {
        return std::nullopt;
    }
    const std::string name(text);
    const bool is_fine = name.size() + 1 >= length && !control_character(name) &&
                         name.find_first_of("/\r\t ") == std::string::npos;
    return is_fine ? std::optional(name) : std::nullopt;
}

std::optional<std::uint8_t> byte_in(const avlist *list, std::uint32_t type, std::uint32_t instance = 0) {
    std::uint8_t value = 0;
    std::uint32_t length = 0;
    return aaa_util_avlist_value_copy(list, type, instance, &value, sizeof value, &length) == AAA_OK &&
                   length == 1
               ? std::optional(value)
               : std::nullopt;
}

// True for a deletion; nullopt when the message has no action.
std::optional<bool> is_deletion(const avlist *list) {
    const auto action = byte_in(list, AAA_VS_RAD_CFG_ACTION);
    return action && *action <= kDelete ? std::optional(*action == kDelete) : std::nullopt;
}

// "192.0.2.1,1812,1813"
std::optional<std::string> entry_in(const avlist *list) {
    // One of the messages carries the bytes that follow the address in the sender's record too.
    unsigned char bytes[64] = {};
    std::uint32_t length = 0;
    const auto auth = number_in(list, AAA_VS_RAD_SVR_AUTH_PORT);
    const auto acct = number_in(list, AAA_VS_RAD_SVR_ACCT_PORT);
    if (aaa_util_avlist_value_copy(list, AAA_VS_RAD_SVR_IPADDR, 0, bytes, sizeof bytes, &length) != AAA_OK ||
        length < sizeof(aaa_ip_addr_t) || !auth || !acct || *auth == 0 || *auth > UINT16_MAX || *acct == 0 ||
        *acct > UINT16_MAX) {
        return std::nullopt;
    }
    aaa_ip_addr_t address;
    char text[64] = "";
    std::memcpy(&address, bytes, sizeof address);
    if (aaa_util_format_v4v6_ipaddr(text, address) == nullptr) {
        return std::nullopt;
    }
    return std::string(text) + "," + std::to_string(*auth) + "," + std::to_string(*acct);
}

// ---- changes of the database, applied as one

class Changes {
  public:
    void set_number(const std::string &path, std::uint32_t value) {
        add(SYSDB_CHANGE_SET, SYSDB_TYPE_U32, path,
            std::string(reinterpret_cast<const char *>(&value), sizeof value));
    }
    void set_text(const std::string &path, const std::string &value) {
        add(SYSDB_CHANGE_SET, SYSDB_TYPE_STRING, path, std::string(value.c_str(), value.size() + 1));
    }
    void set_tuple(const std::string &path, std::string bytes) {
        add(SYSDB_CHANGE_SET, SYSDB_TYPE_TUPLE, path, std::move(bytes));
    }
    void make_directory(const std::string &path) { add(SYSDB_CHANGE_SET, SYSDB_TYPE_DIRECTORY, path, ""); }
    void remove(const std::string &path) { add(SYSDB_CHANGE_DELETE, SYSDB_TYPE_ANY, path, ""); }
    void prune(const std::string &path) { add(SYSDB_CHANGE_PRUNE, SYSDB_TYPE_ANY, path, ""); }

    cerrno apply(sysdb_conn_t config) const {
        std::vector<sysdb_change_t> changes;
        for (const Change &change : changes_) {
            changes.push_back({change.operation, change.type, change.path.c_str(), change.value.data(),
                               static_cast<std::uint32_t>(change.value.size())});
        }
        const cerrno rc =
            sysdb_apply(config, changes.data(), static_cast<std::uint32_t>(changes.size()), nullptr);
        return rc == SYSDB_ERR_NOT_FOUND ? AAA_ERR_NOT_FOUND : rc;
    }

  private:
    struct Change {
        std::uint32_t operation;
        std::uint32_t type;
        std::string path;
        std::string value;
    };
    void add(std::uint32_t operation, std::uint32_t type, const std::string &path, std::string value) {
        changes_.push_back({operation, type, path, std::move(value)});
    }

    std::vector<Change> changes_;
};

// ---- groups and servers

bool exists(sysdb_conn_t config, const std::string &directory) {
    sysdb_list_t list = nullptr;
    const cerrno rc = sysdb_list(config, directory.c_str(), "", nullptr, &list, 0);
    sysdb_list_free(list);
    return rc == 0;
}

cerrno apply_group(sysdb_conn_t config, const avlist *list) {
    const auto name = name_in(list, AAA_VS_RAD_SG_NAME);
    const auto deletes = is_deletion(list);
    if (!name || name->empty() || !deletes) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    const std::string path = "group-server/radius/" + *name + "/";
    aaa_cfg_event_t event{};
    event.operation = *deletes ? AAA_CFG_OP_DELETE : AAA_CFG_OP_CREATE;
    std::uint32_t verdict = 0;
    char *reason = nullptr;
    const cerrno rc = aaa_util_svr_grp_verify(&event, &reason, &verdict, name->c_str(), AAA_KW_RADIUS);
    std::free(reason);
    if (rc != AAA_OK) {
        return rc;
    }
    Changes changes;
    if (*deletes) {
        if (!exists(config, path)) {
            return AAA_ERR_NOT_FOUND;
        }
        const cerrno deleted = sysdb_item_delete(config, path.c_str(), SYSDB_DELETE_TREE);
        return deleted == SYSDB_ERR_NOT_FOUND ? AAA_ERR_NOT_FOUND : deleted;
    }
    changes.make_directory(path);
    return changes.apply(config);
}

// Where an entry is among the servers below a directory, and the next free ordinal.
struct Place {
    std::string found;  // path of the entry; empty: it is not there
    std::uint32_t next = 1;
    cerrno failure = 0;
};

Place find_entry(sysdb_conn_t config, const std::string &directory, const std::string &entry) {
    Place place;
    ReadResult result;
    DatabaseReader reader(config, result);
    for (const DatabaseEntry &ordinal : reader.entries(directory)) {
        std::uint32_t index = 0;
        const std::string_view digits =
            std::string_view(ordinal.name).substr(std::min<std::size_t>(2, ordinal.name.size()));
        std::from_chars(digits.data(), digits.data() + digits.size(), index, 16);
        place.next = std::max(place.next, index + 1);
        for (const DatabaseEntry &server : reader.entries(directory + ordinal.name + "/")) {
            if (server.name == entry) {
                place.found = directory + ordinal.name + "/" + entry + (server.is_directory ? "/" : "");
            }
        }
    }
    place.failure = result.failure;
    return place;
}

std::string ordinal_text(std::uint32_t index) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", index);
    return text;
}

// Adds or removes the entry below `directory`.
cerrno change_entry(sysdb_conn_t config, const std::string &directory, const std::string &entry, bool deletes,
                    Changes &changes) {
    const Place place = find_entry(config, directory, entry);
    if (place.failure != 0) {
        return place.failure;
    }
    if (deletes) {
        if (place.found.empty()) {
            return AAA_ERR_NOT_FOUND;
        }
        if (place.found.ends_with('/')) {
            changes.prune(place.found);
        } else {
            changes.remove(place.found);
        }
    } else if (place.found.empty()) {
        changes.set_number(directory + ordinal_text(place.next) + "/" + entry, 1);
    }
    return AAA_OK;
}

void change_text(const std::string &path, const std::string &value, bool deletes, Changes &changes) {
    if (deletes) {
        changes.remove(path);
    } else {
        changes.set_text(path, value);
    }
}

cerrno apply_server_in_group(sysdb_conn_t config, const avlist *list) {
    const auto name = name_in(list, AAA_VS_RAD_SG_NAME);
    const auto deletes = is_deletion(list);
    const auto entry = entry_in(list);
    if (!name || name->empty() || !deletes || !entry) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    const std::string group = "group-server/radius/" + *name + "/";
    if (!exists(config, group)) {
        return AAA_ERR_NOT_FOUND;
    }
    Changes changes;
    const cerrno rc = change_entry(config, group + "server/", *entry, *deletes, changes);
    return rc == AAA_OK ? changes.apply(config) : rc;
}

// A VRF or an interface that requests to the servers of a group leave by. Both are network devices.
std::optional<std::string> device_in(const avlist *list, std::uint32_t type) {
    const auto name = name_in(list, type);
    return name && name->size() < IFNAMSIZ ? name : std::nullopt;
}

cerrno apply_device(sysdb_conn_t config, const avlist *list, bool has_interface) {
    const auto name = name_in(list, AAA_VS_RAD_SG_NAME);
    const auto deletes = is_deletion(list);
    const auto vrf = device_in(list, AAA_VS_RAD_SVR_VRF);
    const auto interface = has_interface ? device_in(list, AAA_VS_RAD_SRC_INTF) : std::string();
    const bool has_device = vrf && interface && !(has_interface ? *interface : *vrf).empty();
    if (!name || name->empty() || !deletes || !has_device) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    const std::string group = "group-server/radius/" + *name + "/";
    if (!exists(config, group)) {
        return AAA_ERR_NOT_FOUND;
    }
    Changes changes;
    if (has_interface) {
        change_text(group + "settings/source-interface", *interface, *deletes, changes);
    }
    if (!vrf->empty() && !(has_interface && *deletes)) {  // the VRF has a message of its own
        change_text(group + "settings/vrf", *vrf, *deletes, changes);
    }
    return changes.apply(config);
}

// A server without a group, with its key, which is stored sealed.
cerrno apply_server(sysdb_conn_t config, const avlist *list) {
    const auto deletes = is_deletion(list);
    const auto entry = entry_in(list);
    const auto key = secret_in(list, AAA_VS_RAD_SVR_SECRET);
    const auto timeout = number_in(list, AAA_VS_RAD_SVR_TIMEOUT);
    const auto retransmit = number_in(list, AAA_VS_RAD_SVR_RETRANSMIT);
    if (!deletes || !entry || !key || (key->empty() && !*deletes)) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    const std::string settings = "radius/settings/" + *entry + "/";
    Changes changes;
    const cerrno rc = change_entry(config, "radius/host/", *entry, *deletes, changes);
    if (rc != AAA_OK) {
        return rc;
    }
    if (*deletes) {
        changes.prune(settings);
        return changes.apply(config);
    }
    char *sealed = pw_encrypt(key->text().c_str(), kReversible);
    if (sealed == nullptr) {
        return AAA_ERR_INIT_FAILED;  // the cipher's log line says why
    }
    changes.set_text(settings + "key", sealed);
    std::free(sealed);
    if (timeout && *timeout > 0) {
        changes.set_number(settings + "timeout", std::min(*timeout, 60U) * 1000);  // the message has seconds
    }
    if (retransmit) {
        changes.set_number(settings + "tries", std::min(*retransmit, 9U) + 1);
    }
    return changes.apply(config);
}

// ---- method lists

cerrno apply_list(sysdb_conn_t config, const std::string &directory, const avlist *list) {
    const auto name = name_in(list, AAA_VS_MLIST_NAME);
    const auto deletes = is_deletion(list);
    std::uint32_t method[4] = {};
    std::string group[4];
    if (!name || name->empty() || !deletes) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    Changes changes;
    if (*deletes) {
        changes.remove(directory + *name);
        return changes.apply(config);
    }
    for (std::uint32_t i = 0; i < 4; ++i) {  // four are always sent; unused ones are 0 and empty
        const auto number = byte_in(list, AAA_VS_METHODS, i);
        const auto group_name = name_in(list, AAA_VS_RAD_SG_NAME, i);
        if (!number || !group_name) {
            return AAA_ERR_INVALID_CLIENT_DATA;
        }
        method[i] = *number;
        group[i] = *group_name;
    }
    void *tuple = nullptr;
    std::uint32_t length = 0;
    const cerrno rc =
        sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%s%s%s%s", method[0], method[1], method[2], method[3],
                         group[0].c_str(), group[1].c_str(), group[2].c_str(), group[3].c_str());
    if (rc != AAA_OK) {
        return rc;
    }
    changes.set_tuple(directory + *name, std::string(static_cast<const char *>(tuple), length));
    std::free(tuple);
    return changes.apply(config);
}

}  // namespace

cerrno apply_configuration(sysdb_conn_t config, std::uint32_t type, const avlist *list) {
    if (config == 0 || list == nullptr) {
        return config == 0 ? cerrno{SYSDB_ERR_LIB_ABSENT} : AAA_ERR_INVALID_CLIENT_DATA;
    }
    switch (type) {
        case AAA_REQ_CFG_RADSVR:
            return apply_server(config, list);
        case AAA_REQ_CFG_SVRGRP:
            return apply_group(config, list);
        case AAA_REQ_CFG_SVR_IN_SG:
            return apply_server_in_group(config, list);
        case AAA_REQ_CFG_VRF_IN_SG:
            return apply_device(config, list, false);
        case AAA_REQ_CFG_SRC_INTF:
            return apply_device(config, list, true);
        case AAA_REQ_CFG_AUTHENLIST:
            return apply_list(config, "authentication/login/", list);
        case AAA_REQ_CFG_AUTHORLIST:
            return apply_list(config, "authorization/exec/", list);
        default:
            return AAA_ERR_NOT_SUPPORTED;
    }
}

}  // namespace service
