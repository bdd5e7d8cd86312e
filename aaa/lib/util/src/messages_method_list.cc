// SPDX-License-Identifier: Apache-2.0
//
// The choice of the method list of a request: authentication, authorization and
// accounting share it.

#include "aaa/names.h"
#include "internal/messages.hpp"
#include "internal/trace.hpp"
#include "platform/node.h"
#include "platform/terminal.h"

namespace aaautil::msg {
namespace {

// The name stays null when the line is not asked or has no list.
[[nodiscard]] cerrno ask_line(int32_t service, const LineLookup &lookup, malloc_ptr<char> &name) noexcept {
    if (service == lookup.skipped[0] || service == lookup.skipped[1] || platform_am_i_lc() != 0 ||
        service == AAA_SVC_KSH) {
        return AAA_OK;
    }
    char *found = nullptr;
    const cerrno rc = find_method_for_line(lookup.kind, &found);
    if (rc == AAA_OK) {
        name.reset(found);
        return AAA_OK;
    }
    if (rc == LINE_NO_CONTROLLING_TTY && lookup.terminal_optional) {
        aaa_debug(lookup.log_flag, lookup.no_terminal);
        return AAA_OK;
    }
    return rc;
}

}  // namespace

cerrno append_method_list(avlist *list, const char *name, int32_t service,
                          const LineLookup &lookup) noexcept {
    malloc_ptr<char> from_line;
    if (name == nullptr) {
        const cerrno rc = ask_line(service, lookup, from_line);
        if (rc != AAA_OK) {
            return rc;
        }
        name = from_line != nullptr ? from_line.get() : "default";
    }
    // Kept: the text says "authentication" for every request.
    aaa_debug(lookup.log_flag, "Using authentication methodlist '%s'", name);
    return Appender(list).text(AAA_METHODLIST_ATTR, name).code();
}

}  // namespace aaautil::msg
