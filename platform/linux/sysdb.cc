// SPDX-License-Identifier: Apache-2.0
//
// The system database's client interface: makes the checks common to all
// providers, and forwards to the loaded provider.

#include "platform/sysdb.h"
#include "platform/sysdb_changes.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "log.hpp"
#include "sysdb_channel.hpp"
#include "sysdb_loader.hpp"
#include "sysdb_values.hpp"

namespace aaaplatform {

bool sysdb_value_fits(std::uint32_t datatype, const void *value, std::uint32_t length) noexcept {
    if (value == nullptr && length != 0) {
        return false;
    }
    switch (datatype) {
        case SYSDB_TYPE_U32:
            return length == sizeof(std::uint32_t);
        case SYSDB_TYPE_STRING:
            return length > 0 && static_cast<const char *>(value)[length - 1] == '\0';
        case SYSDB_TYPE_TUPLE:
            return sysdb_tuple_check(value, length) == 0;
        case SYSDB_TYPE_DIRECTORY:
            return length == 0;
        default:
            return true;
    }
}

namespace {

// An item as the provider returned it, before its check.
struct Reading {
    std::uint32_t datatype;
    void *value;
    std::uint32_t length;
};

// Another process, or an older version, may have stored a value that does not fit.
cerrno check_reading(const Reading &reading, const char *path) {
    if (sysdb_value_fits(reading.datatype, reading.value, reading.length)) {
        return 0;
    }
    log(kLogError, "SYSDB",
        "item %s of type %u has a value of %u bytes that does not fit its type; set it again or delete it",
        path, reading.datatype, reading.length);
    return SYSDB_ERR_BAD_VALUE;
}

// Stores the outputs that are not null and releases the rest.
void hand_out(const Reading &reading, std::uint32_t *datatype, void **value, std::uint32_t *length) {
    if (datatype != nullptr) {
        *datatype = reading.datatype;
    }
    if (length != nullptr) {
        *length = reading.length;
    }
    if (value != nullptr) {
        *value = reading.value;
    } else {
        free(reading.value);
    }
}

cerrno check_change(const sysdb_change_t &change) {
    if (change.path == nullptr || change.operation < SYSDB_CHANGE_SET ||
        change.operation > SYSDB_CHANGE_EXPECT) {
        return SYSDB_ERR_INVALID_ARG;
    }
    if (change.operation == SYSDB_CHANGE_SET && change.datatype == SYSDB_TYPE_ANY) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const bool has_value = change.operation == SYSDB_CHANGE_SET || change.operation == SYSDB_CHANGE_EXPECT;
    return !has_value || sysdb_value_fits(change.datatype, change.value, change.length) ? 0
                                                                                        : SYSDB_ERR_BAD_VALUE;
}

cerrno check_changes(const sysdb_change_t *changes, std::uint32_t count, std::uint32_t &refused) {
    for (std::uint32_t i = 0; i < count; ++i) {
        const cerrno rc = check_change(changes[i]);
        if (rc != 0) {
            refused = i;
            return rc;
        }
    }
    return 0;
}

cerrno forward_changes(sysdb_conn_t conn, const sysdb_change_t *changes, std::uint32_t count,
                       std::uint32_t &refused) {
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    if (provider == nullptr) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    const bool has_member = provider->size >= offsetof(sysdb_provider_t, apply) + sizeof provider->apply;
    return has_member && provider->apply != nullptr ? provider->apply(conn, changes, count, &refused)
                                                    : SYSDB_ERR_NOT_SUPPORTED;
}

}  // namespace

cerrno sysdb_dispatch_channel(int channel) {
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->dispatch_channel(channel) : SYSDB_ERR_BAD_HANDLE;
}

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

cerrno _sysdb_bind(sysdb_conn_t *conn, const char *path, uint32_t flags) {
    if (conn == nullptr || path == nullptr) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = obtain_sysdb_provider();
    return provider != nullptr ? provider->bind(conn, path, flags) : SYSDB_ERR_LIB_ABSENT;
}

cerrno _sysdb_unbind(sysdb_conn_t conn) {
    if (conn == 0) {
        return 0;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->unbind(conn) : SYSDB_ERR_LIB_ABSENT;
}

cerrno sysdb_conn_to_coid(sysdb_conn_t conn, int32_t *coid) {
    if (coid == nullptr) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->conn_to_coid(conn, coid) : SYSDB_ERR_LIB_ABSENT;
}

cerrno sysdb_item_get(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value, uint32_t *length,
                      uint32_t flags) {
    if (path == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    if (provider == nullptr) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    Reading reading{datatype != nullptr ? *datatype : SYSDB_TYPE_ANY, nullptr, 0};
    cerrno rc = provider->item_get(conn, path, &reading.datatype, &reading.value, &reading.length, flags);
    if (rc != 0) {
        return rc;
    }
    rc = check_reading(reading, path);
    if (rc == 0) {
        hand_out(reading, datatype, value, length);
    } else {
        free(reading.value);
    }
    return rc;
}

cerrno sysdb_item_set(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value,
                      uint32_t length, uint32_t flags) {
    if (path == nullptr || flags > 1 || datatype == SYSDB_TYPE_ANY) {
        return SYSDB_ERR_INVALID_ARG;
    }
    if (!sysdb_value_fits(datatype, value, length)) {
        return SYSDB_ERR_BAD_VALUE;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->item_set(conn, path, datatype, value, length, flags)
                               : SYSDB_ERR_LIB_ABSENT;
}

cerrno sysdb_item_delete(sysdb_conn_t conn, const char *path, uint32_t flags) {
    if (path == nullptr || flags > SYSDB_DELETE_TREE) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->item_delete(conn, path, flags) : SYSDB_ERR_LIB_ABSENT;
}

cerrno sysdb_apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count, uint32_t *failed) {
    uint32_t refused = count;
    cerrno rc = changes == nullptr && count != 0 ? cerrno{SYSDB_ERR_INVALID_ARG}
                                                 : check_changes(changes, count, refused);
    if (rc == 0) {
        rc = forward_changes(conn, changes, count, refused);
    }
    if (rc != 0 && failed != nullptr) {
        *failed = refused;
    }
    return rc;
}

cerrno sysdb_list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags) {
    if (path == nullptr || list == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    if (provider == nullptr) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    return provider->list(conn, path, pattern != nullptr ? pattern : "", count, list, flags);
}

cerrno sysdb_list_start(sysdb_list_t list) {
    if (list == nullptr) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->list_start(list) : SYSDB_ERR_LIB_ABSENT;
}

cerrno sysdb_list_next(sysdb_list_t list, char **name, uint32_t *type, uint32_t flags) {
    if (list == nullptr || name == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->list_next(list, name, type, flags) : SYSDB_ERR_LIB_ABSENT;
}

void sysdb_list_free(sysdb_list_t list) {
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    if (list != nullptr && provider != nullptr) {
        provider->list_free(list);
    }
}

cerrno sysdb_find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags, uint32_t depth) {
    if (path == nullptr || flags != 0 || depth > 1) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    if (provider == nullptr) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    return provider->find(conn, path, pattern != nullptr ? pattern : "", count, list, flags, depth);
}

cerrno sysdb_directory_get_last(sysdb_conn_t conn, const char *path, char **name, uint32_t *type,
                                uint32_t flags) {
    if (path == nullptr || name == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->directory_get_last(conn, path, name, type, flags)
                               : SYSDB_ERR_LIB_ABSENT;
}

cerrno _sysdb_register_notification(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode,
                                    aaa_notify_cb_t callback, void *callback_arg, uint64_t revision,
                                    void *user_ctx, uint64_t, uint64_t *notification) {
    constexpr std::uint32_t kAllEvents = SYSDB_EVENT_SET | SYSDB_EVENT_DELETE;
    constexpr std::uint32_t kAllModes = SYSDB_NOTIFY_CHANGES | SYSDB_NOTIFY_INITIAL | SYSDB_NOTIFY_SINCE;
    constexpr std::uint32_t kExclusive = SYSDB_NOTIFY_INITIAL | SYSDB_NOTIFY_SINCE;
    if (path == nullptr || callback == nullptr || notification == nullptr) {
        return SYSDB_ERR_INVALID_ARG;
    }
    if ((events & kAllEvents) == 0 || (mode & SYSDB_NOTIFY_CHANGES) == 0 || (mode & ~kAllModes) != 0 ||
        (mode & kExclusive) == kExclusive) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    if (provider == nullptr) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    if ((mode & SYSDB_NOTIFY_SINCE) != 0) {
        const bool has_member =
            provider->size >= offsetof(sysdb_provider_t, register_since) + sizeof provider->register_since;
        return has_member && provider->register_since != nullptr
                   ? provider->register_since(conn, path, events & kAllEvents, mode, revision, callback,
                                              callback_arg, user_ctx, notification)
                   : SYSDB_ERR_NOT_SUPPORTED;
    }
    return provider->register_notification(conn, path, events & kAllEvents, mode, callback, callback_arg,
                                           user_ctx, notification);
}

cerrno sysdb_notification_unregister(sysdb_conn_t conn, uint64_t notification) {
    if (notification == 0) {
        return 0;
    }
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->notification_unregister(conn, notification) : SYSDB_ERR_LIB_ABSENT;
}

cerrno sysdb_dispatch(sysdb_conn_t conn) {
    const sysdb_provider_t *provider = loaded_sysdb_provider();
    return provider != nullptr ? provider->dispatch(conn) : SYSDB_ERR_LIB_ABSENT;
}

}  // extern "C"
