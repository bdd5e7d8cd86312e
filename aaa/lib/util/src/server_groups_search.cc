// SPDX-License-Identifier: Apache-2.0
//
// The search for a server group in the configured method lists: walks the
// configuration tree directory by directory and looks into every tuple.

#include "internal/server_groups.hpp"

#include <cstdio>
#include <cstring>

#include "aaa/debug_flags.h"
#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "internal/method_list_tuple.hpp"
#include "internal/sysdb_item.hpp"
#include "internal/trace.hpp"
#include "platform/logging.h"
#include "platform/sysdb.h"

namespace {

using aaautil::MethodListTuple;
using aaautil::OutWord;
using aaautil::TupleLayout;

constexpr size_t kPathSize = 512;
// Real trees have three levels; a tree that nests deeper than this is damaged.
constexpr int kMaxDepth = 64;

cerrno check_tuple(TupleLayout layout, const void *tuple, const char *sg_name, bool *found) {
    if (tuple == nullptr || sg_name == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *found = false;
    MethodListTuple list;
    if (list.unpack(layout, tuple) != 0) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "tuple unmask failed");
        return AAA_ERR_INVALID_METHOD;
    }
    aaa_debug(AAA_DBG_SERVER_GROUP, "tuple unmask passed");
    for (const auto &name : list.name) {
        if (std::strcmp(name, sg_name) == 0) {
            *found = true;
            break;
        }
    }
    return AAA_OK;
}

// A directory listing, released at the end of its scope.
class Listing {
  public:
    Listing() = default;
    Listing(const Listing &) = delete;
    Listing &operator=(const Listing &) = delete;
    ~Listing() {
        if (list_ != nullptr) {
            sysdb_list_free(list_);
        }
    }
    cerrno open(uint64_t conn, const char *path) {
        const cerrno rc = sysdb_list(conn, path, "", count_.out(), &list_, 0);
        return rc != 0 ? rc : sysdb_list_start(list_);
    }
    [[nodiscard]] uint32_t count() const { return count_.value(); }
    cerrno next(char **name, uint32_t *type) {
        OutWord type_out;
        *name = nullptr;
        const cerrno rc = sysdb_list_next(list_, name, type_out.out(), 0);
        *type = type_out.value();
        return rc;
    }

  private:
    sysdb_list_t list_ = nullptr;
    OutWord count_;
};

cerrno search(const char *path, const char *sg_name, bool *found, int depth);

struct EntryPath {
    char text[kPathSize];
    bool cut;
};

EntryPath make_entry_path(const char *path, const char *name) {
    EntryPath entry;
    const int length = std::snprintf(entry.text, sizeof entry.text, "%s%s", path, name);
    entry.cut = length < 0 || static_cast<size_t>(length) >= sizeof entry.text;
    return entry;
}

// Whether one tuple item names the group. An item whose path was cut counts as
// unreadable: the cut path may be that of another item.
cerrno search_item(const char *path, const EntryPath &entry, const char *name, const char *sg_name,
                   bool *found) {
    aaautil::SysdbItem item;
    const bool read = !entry.cut && item.read(aaautil::shared_handle(aaa_cfg_sysdb_connid), entry.text,
                                              SYSDB_TYPE_TUPLE) == AAA_OK;
    aaa_debug(AAA_DBG_SERVER_GROUP, "Checking list: %s", name);
    if (!read) {
        return AAA_OK;  // deleted meanwhile or unreadable: does not count
    }
    const TupleLayout layout =
        std::strstr(path, "accounting") != nullptr ? TupleLayout::kAccounting : TupleLayout::kPlain;
    const cerrno rc = check_tuple(layout, item.get(), sg_name, found);
    if (rc == AAA_OK && *found) {
        aaa_debug(AAA_DBG_SERVER_GROUP, "group %s is in list %s", sg_name, name);
    }
    return rc;
}

// A cut path would list a directory that was listed before, without end.
cerrno search_directory(const char *path, const char *name, const char *sg_name, bool *found, int depth) {
    const EntryPath entry = make_entry_path(path, name);
    return entry.cut || depth >= kMaxDepth ? AAA_ERR_BUFFER_TOO_SMALL
                                           : search(entry.text, sg_name, found, depth + 1);
}

cerrno search_entry(const char *path, const char *name, uint32_t type, const char *sg_name, bool *found,
                    int depth) {
    switch (type) {
        case SYSDB_TYPE_TUPLE:
            return search_item(path, make_entry_path(path, name), name, sg_name, found);
        case SYSDB_TYPE_DIRECTORY:
            return search_directory(path, name, sg_name, found, depth);
        default:
            return AAA_OK;
    }
}

cerrno search(const char *path, const char *sg_name, bool *found, int depth) {
    aaa_debug(AAA_DBG_SERVER_GROUP, "Checking path %s", path);
    Listing listing;
    cerrno rc = listing.open(aaautil::shared_handle(aaa_cfg_sysdb_connid), path);
    for (uint32_t i = 0; rc == AAA_OK && !*found && i < listing.count(); i++) {
        char *name = nullptr;
        uint32_t type = 0;
        rc = listing.next(&name, &type);
        if (rc == AAA_OK && name == nullptr) {
            break;
        }
        if (rc == AAA_OK) {
            rc = search_entry(path, name, type, sg_name, found, depth);
        }
    }
    return rc;
}

}  // namespace

namespace aaautil {

cerrno find_group_in_lists(const char *path, const char *sg_name, bool *found) noexcept {
    if (path == nullptr || sg_name == nullptr || found == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *found = false;
    return search(path, sg_name, found, 0);
}

}  // namespace aaautil
