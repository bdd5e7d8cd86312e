// SPDX-License-Identifier: Apache-2.0
//
// Ordinal indexes of servers. A server is stored in a list under
// "0xINDEX/HOST..."; this file finds the next free index and refuses an index
// or a host that is taken.

#include "aaa/server_groups.h"

#include <cerrno>
#include <cstdio>

#include "aaa/debug_flags.h"
#include "aaa/result_codes.h"
#include "internal/server_groups.hpp"
#include "internal/sysdb_item.hpp"
#include "internal/trace.hpp"
#include "platform/cerr.h"
#include "platform/logging.h"
#include "platform/sysdb.h"

namespace {

using aaautil::OutWord;
using aaautil::printable;

constexpr size_t kPathSize = 512;

const char *code_text(cerrno rc) {
    return printable(cerr_strerror(rc));
}

// How the entries of a list are named.
enum class EntryForm { kRadius, kOther };

// A server as it is, or would be, stored in a list.
struct Server {
    EntryForm form;
    const char *host;
    uint32_t port1;
    uint32_t port2;
    bool is_dir;

    void entry_path(char (&path)[kPathSize], uint32_t index) const {
        if (form == EntryForm::kRadius) {
            std::snprintf(path, sizeof path, "0x%x/%s,%d,%d%s", index, host, static_cast<int>(port1),
                          static_cast<int>(port2), is_dir ? "/" : "");
        } else if (is_dir) {
            std::snprintf(path, sizeof path, "0x%x/%s,0x%x/", index, host, port1);
        } else {
            std::snprintf(path, sizeof path, "0x%x/%s", index, host);
        }
    }
};

// Where the list is: in a group, or the hosts of the protocol.
void list_path(char (&path)[kPathSize], const char *sg_name, uint32_t protocol, bool is_private) {
    const char *protocol_name = printable(aaa_util_get_sg_defined_name(protocol));
    if (sg_name != nullptr) {
        std::snprintf(path, sizeof path, "/cfg/gl/aaa/group-server/%s/%s/%s/", protocol_name, sg_name,
                      is_private ? "server-private" : "server");
    } else {
        std::snprintf(path, sizeof path, "/cfg/gl/aaa/%s/host/", protocol_name);
    }
}

// A temporary connection at a server list.
class ServerList {
  public:
    ServerList() = default;
    ServerList(const ServerList &) = delete;
    ServerList &operator=(const ServerList &) = delete;
    // The unbind is made for a handle that was never bound too; the platform tolerates it.
    ~ServerList() {
        if (list_ != nullptr) {
            sysdb_list_free(list_);
        }
        aaautil::unbind(conn_, aaautil::server_group_presence);
    }

    cerrno bind(const char *path) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "Binding to %s", path);
        const cerrno rc = aaautil::bind_private(&conn_, path, aaautil::server_group_presence);
        aaa_debug(AAA_DBG_SERVER_GROUP, "Bind result - %s", code_text(rc));
        return rc;
    }

    [[nodiscard]] bool holds(const Server &server, uint32_t index) const {
        char path[kPathSize];
        server.entry_path(path, index);
        const cerrno rc = server.is_dir ? find_directory(path) : find_item(path);
        aaa_debug(AAA_DBG_SERVER_GROUP, "Reading path %s - %s", path, code_text(rc));
        return rc == AAA_OK;
    }

    cerrno open() { return sysdb_list(conn_, "", "", count_.out(), &list_, 0); }

    // Walks the listed entries. complete: all were visited without a code.
    cerrno walk(const Server &server, uint32_t requested, uint32_t *last, bool *complete) {
        cerrno rc = sysdb_list_start(list_);
        for (uint32_t i = 0; rc == AAA_OK && i < count_.value(); i++) {
            bool end = false;
            rc = visit(server, requested, last, &end);
            if (end) {
                return rc;
            }
        }
        *complete = rc == AAA_OK;
        return rc;
    }

  private:
    [[nodiscard]] cerrno find_directory(const char *path) const {
        sysdb_list_t found = nullptr;
        OutWord count;
        const cerrno rc = sysdb_find(conn_, path, "", count.out(), &found, 0, 1);
        if (rc == AAA_OK && found != nullptr) {
            sysdb_list_free(found);
        }
        return rc;
    }

    [[nodiscard]] cerrno find_item(const char *path) const {
        aaautil::SysdbItem item;
        return item.read(conn_, path, 0);
    }

    cerrno visit(const Server &server, uint32_t requested, uint32_t *last, bool *end) {
        char *name = nullptr;
        OutWord type;
        const cerrno rc = sysdb_list_next(list_, &name, type.out(), 0);
        *end = true;
        if (rc != AAA_OK || name == nullptr) {
            return rc;
        }
        errno = 0;
        if (std::sscanf(name, "%x", last) != 1) {
            return static_cast<cerrno>(errno);
        }
        aaa_debug(AAA_DBG_SERVER_GROUP, "Checking requested index %d against %d", requested, *last);
        if (*last == requested || holds(server, *last)) {
            return AAA_ERR_INDEX_IN_USE;
        }
        *end = false;
        return AAA_OK;
    }

    uint64_t conn_ = 0;
    sysdb_list_t list_ = nullptr;
    OutWord count_;
};

cerrno returning(uint32_t index) {
    aaa_debug(AAA_DBG_SERVER_GROUP, "Returning index - %d", index);
    return AAA_OK;
}

// Chooses the index from the listed entries.
cerrno choose_index(ServerList &servers, const Server &server, uint32_t requested, uint32_t *index_out) {
    if (servers.open() != AAA_OK) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "No servers added yet, returning index - %d", *index_out);
        return returning(*index_out);
    }
    uint32_t last = 0;
    bool complete = false;
    const cerrno rc = servers.walk(server, requested, &last, &complete);
    if (requested != AAA_INDEX_ANY && rc != AAA_OK) {
        return rc;
    }
    // One more than the entry listed last, which is the highest where the
    // platform lists in numeric order. Set for "any" even when the walk failed.
    if (requested == AAA_INDEX_ANY || complete) {
        *index_out = last + 1;
    }
    return rc != AAA_OK ? rc : returning(*index_out);
}

cerrno next_index(const char *path, const Server &server, uint32_t requested, uint32_t *index_out) {
    ServerList servers;
    if (index_out != nullptr) {
        *index_out = 0;
    }
    if (index_out == nullptr || server.host == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno rc = servers.bind(path);
    if (rc == AAA_OK && !servers.holds(server, requested)) {
        rc = choose_index(servers, server, requested, index_out);
    }
    if (rc != AAA_OK) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "Failed to validate index - %s", code_text(rc));
    }
    return rc;
}

}  // namespace

extern "C" {

cerrno aaa_util_get_next_ord_index(const char *sg_name, uint32_t protocol, uint32_t requested,
                                   uint32_t *index_out, const char *host, uint32_t port1, uint32_t port2,
                                   uint32_t is_dir, uint32_t is_private) {
    char path[kPathSize];
    list_path(path, sg_name, protocol, is_private != 0);
    const EntryForm form = protocol == aaautil::kRadius ? EntryForm::kRadius : EntryForm::kOther;
    return next_index(path, Server{form, host, port1, port2, is_dir != 0}, requested, index_out);
}

cerrno aaa_util_get_next_tacacs_ord_index(const char *sg_name, uint32_t protocol, uint32_t requested,
                                          uint32_t *index_out, const char *host, uint32_t port,
                                          uint64_t ignored, uint32_t is_dir, uint32_t is_private) {
    static_cast<void>(ignored);
    char path[kPathSize];
    list_path(path, sg_name, protocol, is_private != 0);
    return next_index(path, Server{EntryForm::kOther, host, port, 0, is_dir != 0}, requested, index_out);
}

}  // extern "C"
