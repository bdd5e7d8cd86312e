// SPDX-License-Identifier: Apache-2.0
//
// Kinds of lines, by the names of their devices.

#include "platform/terminal.h"

#include <limits.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "aaa/lines.h"
#include "platform_codes.hpp"

namespace aaaplatform {

namespace {

constexpr uint32_t kUnknownKind = 0xffffffffu;

struct NameRule {
    const char *prefix;
    bool number;  // a digit must follow; otherwise the name is the prefix
    uint32_t kind;
    const char *word;
};

// In this order, so that "ttyS0" is not taken for a terminal named "tty".
constexpr NameRule kRules[] = {
    {"console", false, AAA_LINE_CONSOLE, "console"},
    {"con", true, AAA_LINE_CONSOLE, "console"},
    {"aux", false, AAA_LINE_AUX, "aux"},
    {"aux", true, AAA_LINE_AUX, "aux"},
    {"ttyS", true, AAA_LINE_AUX, "aux"},
    {"ttyUSB", true, AAA_LINE_AUX, "aux"},
    {"ttyACM", true, AAA_LINE_AUX, "aux"},
    {"ttyAMA", true, AAA_LINE_AUX, "aux"},
    {"pts/", true, AAA_LINE_VTY, "vty"},
    {"vty", true, AAA_LINE_VTY, "vty"},
    {"tty", true, AAA_LINE_TTY2, "tty"},
    {"tty", false, AAA_LINE_TTY1, "tty"},
    {"hvc", true, AAA_LINE_TTY1, "tty"},
};

// Devices come as "/dev/pts/3", as "pts/3", and, from the library's own form
// for file names, as "dev-vty1".
const char *without_directory(const char *device) {
    for (const char *prefix : {"/dev/", "dev/", "dev-"}) {
        const std::size_t len = std::strlen(prefix);
        if (std::strncmp(device, prefix, len) == 0) {
            return device + len;
        }
    }
    return device;
}

const NameRule *rule_for(const char *device) {
    const char *name = without_directory(device);
    for (const NameRule &rule : kRules) {
        const std::size_t len = std::strlen(rule.prefix);
        if (std::strncmp(name, rule.prefix, len) == 0 &&
            (rule.number ? name[len] >= '0' && name[len] <= '9' : name[len] == '\0')) {
            return &rule;
        }
    }
    return nullptr;
}

// A device may be a link to one with a known name, such as the links to serial
// adapters that are named after their maker.
const NameRule *rule_for_device(const char *device) {
    const NameRule *rule = rule_for(device);
    if (rule != nullptr || *device != '/') {
        return rule;
    }
    char real[PATH_MAX];
    return realpath(device, real) != nullptr ? rule_for(real) : nullptr;
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

int32_t tty_details_from_device_file(uint32_t, const char *device, tty_details_t *details) {
    if (device == nullptr || details == nullptr) {
        return EINVAL;
    }
    const int saved_errno = errno;
    const NameRule *rule = rule_for_device(device);
    errno = saved_errno;
    std::memset(details, 0, sizeof *details);
    if (rule == nullptr) {
        return ENODEV;
    }
    details->kind = rule->kind;
    return 0;
}

cerrno aaa_util_check_linetype(aaa_usercred_t *cred) {
    if (cred == nullptr) {
        return LINE_INVALID_ARG;
    }
    const NameRule *rule = cred->tty_mnemonic != nullptr ? rule_for(cred->tty_mnemonic) : nullptr;
    cred->line_category = rule != nullptr ? rule->kind : kUnknownKind;
    std::memset(cred->line_detail, 0, sizeof cred->line_detail);
    std::memset(cred->line_detail2, 0, sizeof cred->line_detail2);
    std::snprintf(cred->line_detail, sizeof cred->line_detail, "%s",
                  rule != nullptr ? rule->word : "unknown");
    if (cred->tty_mnemonic != nullptr) {
        const char *name = without_directory(cred->tty_mnemonic);
        std::memcpy(cred->line_detail2, name, strnlen(name, sizeof cred->line_detail2 - 1));
    }
    return rule != nullptr ? cerrno{0} : cerrno{LINE_UNKNOWN};
}

}  // extern "C"
