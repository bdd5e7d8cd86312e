// SPDX-License-Identifier: Apache-2.0

#include "config/database_read.hpp"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "aaa/result_codes.h"
#include "platform/cerr.h"

namespace service {

namespace {

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};

struct FreeList {
    void operator()(void *list) const { sysdb_list_free(list); }
};

}  // namespace

cerrno DatabaseConnection::open(const char *directory) {
    close();
    return _sysdb_bind(&handle_, directory, SYSDB_BIND_PRIVATE);
}

void DatabaseConnection::close() {
    if (handle_ != 0) {
        _sysdb_unbind(handle_);
        handle_ = 0;
    }
}

void DatabaseReader::fault(const std::string &path, const std::string &why) {
    result_.faults.push_back("/cfg/gl/aaa/" + path + ": " + why);
}

// Whether there is a value. One that does not fit its type or path is a fault of the item, not
// of the database.
bool DatabaseReader::accept(const std::string &path, cerrno rc) {
    switch (rc) {
        case 0:
            return true;
        case SYSDB_ERR_NOT_FOUND:
            return false;
        case SYSDB_ERR_TYPE_MISMATCH:
        case SYSDB_ERR_BAD_VALUE:
        case SYSDB_ERR_BAD_PATH:
        case SYSDB_ERR_PATH_TOO_LONG:
            fault(path, cerr_strerror(rc));
            return false;
        default:
            if (result_.failure == 0) {
                result_.failure = rc;
                result_.failed_path = "/cfg/gl/aaa/" + path;
            }
            return false;
    }
}

std::vector<DatabaseEntry> DatabaseReader::entries(const std::string &directory) {
    std::vector<DatabaseEntry> found;
    sysdb_list_t raw = nullptr;
    if (failed() || !accept(directory, sysdb_list(conn_, directory.c_str(), "", nullptr, &raw, 0))) {
        return found;
    }
    const std::unique_ptr<void, FreeList> list(raw);
    char *name = nullptr;
    std::uint32_t type = 0;
    while (sysdb_list_next(raw, &name, &type, 0) == 0 && name != nullptr) {
        std::string text = name;
        const bool is_directory = text.ends_with('/');
        if (is_directory) {
            text.pop_back();
        }
        found.push_back({text, is_directory});
    }
    return found;
}

bool DatabaseReader::get(const std::string &path, std::uint32_t type, std::string &bytes) {
    void *value = nullptr;
    std::uint32_t length = 0;
    if (failed() || !accept(path, sysdb_item_get(conn_, path.c_str(), &type, &value, &length, 0))) {
        return false;
    }
    const std::unique_ptr<void, FreeBlock> owner(value);
    bytes.assign(static_cast<const char *>(value), length);
    explicit_bzero(value, length);
    return true;
}

std::optional<std::uint32_t> DatabaseReader::number(const std::string &path) {
    std::string bytes;
    std::uint32_t value = 0;
    if (!get(path, SYSDB_TYPE_U32, bytes) || bytes.size() != sizeof value) {
        return std::nullopt;
    }
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

std::optional<Secret> DatabaseReader::text(const std::string &path) {
    std::string bytes;
    if (!get(path, SYSDB_TYPE_STRING, bytes)) {
        return std::nullopt;
    }
    Secret secret{std::string_view(bytes.c_str())};
    explicit_bzero(bytes.data(), bytes.size());
    return secret;
}

std::optional<std::string> DatabaseReader::tuple(const std::string &path) {
    std::string bytes;
    return get(path, SYSDB_TYPE_TUPLE, bytes) ? std::optional(std::move(bytes)) : std::nullopt;
}

}  // namespace service
