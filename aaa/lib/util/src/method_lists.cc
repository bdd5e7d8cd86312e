// SPDX-License-Identifier: Apache-2.0
//
// Method lists: whether one exists, whether it suits a service, and its methods.
// A list is the tuple FUNCTION/SERVICE/NAME under /cfg/gl/aaa/ with four
// method codes, 0 ending the list, and four names, one per method.

#include "aaa/method_lists.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "aaa/debug_flags.h"
#include "aaa/lifecycle.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "internal/method_list_tuple.hpp"
#include "internal/printable_bytes.hpp"
#include "internal/sysdb_item.hpp"
#include "internal/trace.hpp"
#include "platform/cerr.h"
#include "platform/logging.h"
#include "platform/sysdb.h"

namespace {

using aaautil::malloc_ptr;
using aaautil::MethodListTuple;
using aaautil::printable;
using aaautil::SysdbItem;
using aaautil::TupleLayout;

cerrno bind_configuration() {
    return aaautil::bind_shared(aaa_cfg_sysdb_connid, aaautil::kConfigPath, aaautil::method_list_presence);
}

cerrno read_list(SysdbItem &item, const char *location) {
    return item.read(aaautil::shared_handle(aaa_cfg_sysdb_connid), location, SYSDB_TYPE_TUPLE);
}

// FUNCTION/SERVICE/NAME in allocated memory: a long name is not cut to the path
// of another item.
malloc_ptr<char> make_location(const char *function_word, const char *service_word, const char *list_name) {
    const size_t size = std::strlen(function_word) + std::strlen(service_word) + std::strlen(list_name) + 3;
    malloc_ptr<char> location(static_cast<char *>(std::malloc(size)));
    if (location != nullptr) {
        std::snprintf(location.get(), size, "%s/%s/%s", function_word, service_word, list_name);
    }
    return location;
}

cerrno log_unreadable(const char *location, cerrno rc) {
    kel_errmsg(kel_msg_rec_aaa_err_sysdb_getfn(), 7, "Cannot read", location, printable(cerr_strerror(rc)));
    return rc;
}

// The code of a failed read of a list, as its callers report it.
cerrno read_failure(const char *location, cerrno rc) {
    return rc == SYSDB_ERR_NOT_FOUND ? AAA_ERR_NOT_FOUND : log_unreadable(location, rc);
}

// AAA_OK, or errno; a failure without one must not count as success.
cerrno unpack_list(const SysdbItem &item, MethodListTuple *list) {
    if (item.get() == nullptr) {
        errno = EINVAL;  // for the trace of the caller
        return AAA_ERR_INVALID_METHOD;
    }
    errno = 0;
    const int rc = list->unpack(TupleLayout::kPlain, item.get());
    if (rc == 0) {
        return AAA_OK;
    }
    return errno != 0 ? static_cast<cerrno>(errno) : AAA_ERR_INVALID_METHOD;
}

// The word under which lists for a service are configured, null when there is none.
const char *service_word_for(int function, int service) {
    switch (service) {
        case AAA_SVC_LOGIN:
        case AAA_SVC_HTTP:
            return "login";
        case AAA_SVC_PPP:
            return "ppp";
        case AAA_SVC_CMD:
        case AAA_SVC_RCMD:
        case AAA_SVC_MGBL_ACCT:
            return "commands";
        case AAA_SVC_API:
            return function == AAA_FUNC_AUTHEN ? "login" : "api";
        case AAA_SVC_PLEXA:
            return "plexa";
        default:
            return nullptr;
    }
}

// A session that comes over the programming interface has no line whose
// password could be asked for.
cerrno check_line_method(const MethodListTuple &list, int function, int service) {
    aaa_debug(AAA_DBG_LINES_SESSION, "Checking methodlist for line method");
    cerrno result = AAA_OK;
    for (const uint32_t method : list.method) {
        if (method == AAA_METHOD_NOTSET) {
            break;
        }
        if (function == AAA_FUNC_AUTHEN && service == AAA_SVC_API && method == AAA_METHOD_LINE) {
            result = AAA_ERR_INVALID_ARG;
        }
    }
    return result;
}

// ---- methods of a list -----------------------------------------------------------

constexpr std::string_view kAuthentication = "authentication";

// The default authentication list exists without being configured.
cerrno supply_default(std::string_view path, MethodListTuple *list) {
    if (path.substr(0, kAuthentication.size()) != kAuthentication) {
        return AAA_ERR_INVALID_METHOD;
    }
    const size_t last_slash = path.rfind('/');
    if (last_slash == std::string_view::npos || path.substr(last_slash + 1) != "default") {
        return SYSDB_ERR_NOT_FOUND;
    }
    const size_t first_slash = path.find('/');
    const size_t second_slash = path.find('/', first_slash + 1);
    if (second_slash != std::string_view::npos) {
        const std::string_view service = path.substr(first_slash + 1, second_slash - first_slash - 1);
        // Compared over the component's own length, so that "pp" is "ppp" too: kept.
        if (service == std::string_view("ppp").substr(0, service.size())) {
            list->method[0] = AAA_METHOD_LOCAL;
        }
    }
    list->method[1] = AAA_METHOD_NOTSET;
    return AAA_OK;
}

cerrno load_list(const char *path, MethodListTuple *list) {
    SysdbItem item;
    const cerrno rc = read_list(item, path);
    if (rc == SYSDB_ERR_NOT_FOUND) {
        return supply_default(path, list);
    }
    if (rc != AAA_OK) {
        aaa_debug(AAA_DBG_REQUEST, "Failed to read methodlist configuration for path %s - %s", path,
                  printable(cerr_strerror(rc)));
        return rc;
    }
    const cerrno unpacked = unpack_list(item, list);
    if (unpacked != AAA_OK) {
        aaa_debug(AAA_DBG_REQUEST, "Cannot unpack the methods for path %s - %s", path, std::strerror(errno));
    }
    return unpacked;
}

// Turns the names of server groups into their numbers, in place.
cerrno resolve_groups(MethodListTuple *list) {
    for (size_t i = 0; i < MethodListTuple::kSlots && list->method[i] != AAA_METHOD_NOTSET; i++) {
        if (list->method[i] != AAA_METHOD_SERVER_GROUP) {
            continue;
        }
        uint32_t number = 0;
        const cerrno rc = aaa_util_lookup_sg_index(list->name[i], &number);
        if (rc != AAA_OK) {
            return rc;
        }
        list->method[i] = number != 0xFFFFFFFFu ? number : uint32_t{AAA_METHOD_INTERNAL};
    }
    return AAA_OK;
}

// A methods array of zeros, or null.
uint32_t *make_methods() {
    constexpr size_t kSize = AAA_METHODS_WORDS * sizeof(uint32_t);
    void *const block = std::malloc(kSize);
    return block != nullptr ? static_cast<uint32_t *>(std::memset(block, 0, kSize)) : nullptr;
}

}  // namespace

extern "C" {

cerrno aaa_util_lookup_methodlist(const char *function_word, const char *service_word,
                                  const char *list_name) {
    if (function_word == nullptr || service_word == nullptr || list_name == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const cerrno bound = bind_configuration();
    if (bound != AAA_OK) {
        return bound;
    }
    const malloc_ptr<char> location = make_location(function_word, service_word, list_name);
    if (location == nullptr) {
        return AAA_ERR_NOMEM;
    }
    SysdbItem item;
    const cerrno rc = read_list(item, location.get());
    return rc == AAA_OK ? AAA_OK : read_failure(location.get(), rc);
}

cerrno aaa_util_verify_methodlist(int function, int service, const char *list_name) {
    const char *service_word = service_word_for(function, service);
    if (list_name == nullptr || service_word == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const cerrno bound = bind_configuration();
    if (bound != AAA_OK) {
        return bound;
    }
    const malloc_ptr<char> location =
        make_location(aaa_function_to_string(static_cast<uint32_t>(function)), service_word, list_name);
    if (location == nullptr) {
        return AAA_ERR_NOMEM;
    }
    aaa_debug(AAA_DBG_LINES_SESSION, "Checking %s from location %s", list_name, location.get());
    SysdbItem item;
    const cerrno rc = read_list(item, location.get());
    if (rc != AAA_OK) {
        return read_failure(location.get(), rc);
    }
    MethodListTuple list;
    const cerrno unpacked = unpack_list(item, &list);
    return unpacked != AAA_OK ? unpacked : check_line_method(list, function, service);
}

cerrno lookup_methods(char *path, uint32_t **methods_out) {
    if (path == nullptr || methods_out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    // Stored at once, and set to null again when the lookup fails.
    malloc_ptr<uint32_t> methods(make_methods());
    *methods_out = methods.get();
    if (methods == nullptr) {
        return AAA_ERR_NOMEM;
    }
    MethodListTuple list;
    cerrno rc = bind_configuration();
    if (rc == AAA_OK) {
        rc = load_list(path, &list);
    }
    if (rc == AAA_OK) {
        rc = resolve_groups(&list);
    }
    if (rc != AAA_OK) {
        *methods_out = nullptr;
        return rc;
    }
    std::memcpy(methods.release(), list.method, sizeof list.method);
    return AAA_OK;
}

int aaa_is_name_valid(char *name) {
    return name != nullptr && aaautil::all_printable(name) ? 1 : 0;
}

}  // extern "C"
