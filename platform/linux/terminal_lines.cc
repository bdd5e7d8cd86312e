// SPDX-License-Identifier: Apache-2.0
//
// Method lists by line, from a file such as
//
//     # line      kind            method list
//     console     authentication  console-users
//     pts/*       *               vty-users
//
// The first row whose pattern matches the line's name (with or without "/dev/")
// and whose kind fits decides.

#include <fnmatch.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config_file.hpp"
#include "own_line.hpp"
#include "platform/control.h"
#include "platform/terminal.h"
#include "platform_codes.hpp"

namespace aaaplatform {

namespace {

constexpr char kLinesVariable[] = "AAA_LINES_CONF";
constexpr char kLinesFile[] = "/etc/aaa/lines.conf";
constexpr std::size_t kMaxListName = 254;  // of a method-list record

struct KindWord {
    const char *word;
    uint32_t kind;
};

constexpr uint32_t kKinds = 3;
constexpr uint32_t kEveryKind = AAA_PLATFORM_LINE_EVERY_KIND;

constexpr KindWord kKindWords[] = {
    {"authentication", 0}, {"authorization", 1}, {"accounting", 2}, {"*", kEveryKind}};

const KindWord *kind_of(const char *word) {
    for (const KindWord &row : kKindWords) {
        if (std::strcmp(word, row.word) == 0) {
            return &row;
        }
    }
    return nullptr;
}

bool valid_list_name(const char *name) {
    const std::size_t len = strnlen(name, kMaxListName + 1);
    if (len == 0 || len > kMaxListName) {
        return false;
    }
    for (std::size_t i = 0; i < len; ++i) {
        if (std::isgraph(static_cast<unsigned char>(name[i])) == 0) {
            return false;
        }
    }
    return true;
}

// A row's defect, or null.
const char *defect_of(const ConfigLine &line) {
    if (line.words != 3) {
        return "expected a line pattern, a kind and a method list";
    }
    if (kind_of(line.word[1]) == nullptr) {
        return "the kind is not authentication, authorization, accounting or *";
    }
    if (!valid_list_name(line.word[2])) {
        return "the method list's name has more than 254 or unprintable characters";
    }
    return nullptr;
}

bool line_matches(const char *pattern, const char *name) {
    char device[kLineNameSize + 8];
    std::snprintf(device, sizeof device, "/dev/%s", name);
    return fnmatch(pattern, name, 0) == 0 || fnmatch(pattern, device, 0) == 0;
}

aaa_platform_line_rule_t rule_of(const ConfigLine &line) {
    aaa_platform_line_rule_t rule{};
    const KindWord *kind = line.words > 1 ? kind_of(line.word[1]) : nullptr;
    rule.number = line.number;
    rule.kind = kind != nullptr ? kind->kind : kEveryKind;
    rule.pattern = line.word[0];
    rule.list_name = line.words > 2 ? line.word[2] : nullptr;
    rule.defect = defect_of(line);
    return rule;
}

bool applies(const aaa_platform_line_rule_t &rule, uint32_t kind, const char *name) {
    return rule.defect == nullptr && (rule.kind == kEveryKind || rule.kind == kind) &&
           line_matches(rule.pattern, name);
}

bool open_rules(ConfigFile &file) {
    return file.open(config_path(kLinesVariable, kLinesFile));
}

cerrno find_list(const char *name, uint32_t kind, char **list_name) {
    ConfigFile file;
    if (!open_rules(file)) {
        // A file that exists and cannot be trusted must not silently mean the
        // default list.
        return file.unusable() ? LINE_BAD_CONFIG : cerrno{0};
    }
    ConfigLine line;
    while (file.next(&line)) {
        const aaa_platform_line_rule_t rule = rule_of(line);
        if (rule.defect != nullptr) {
            file.complain(rule.defect);
        } else if (applies(rule, kind, name)) {
            *list_name = strdup(rule.list_name);
            return *list_name != nullptr ? cerrno{0} : cerrno{LINE_NO_MEMORY};
        }
    }
    return 0;
}

const char *without_directory(const char *line) {
    constexpr std::size_t kLength = 5;
    return std::strncmp(line, "/dev/", kLength) == 0 ? line + kLength : line;
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

cerrno find_method_for_line(uint32_t kind, char **list_name) {
    if (list_name == nullptr || kind >= kKinds) {
        return LINE_INVALID_ARG;
    }
    *list_name = nullptr;
    const int saved_errno = errno;
    char name[kLineNameSize];
    const OwnLine line = find_own_line(name);
    const cerrno rc = line == OwnLine::kNone ? cerrno{LINE_NO_TERMINAL} : find_list(name, kind, list_name);
    errno = saved_errno;
    return rc;
}

cerrno aaa_platform_line_rules(aaa_platform_line_rule_fn visit, void *context) {
    if (visit == nullptr) {
        return HOST_INVALID_ARG;
    }
    ConfigFile file;
    if (!open_rules(file)) {
        return file.unusable() ? LINE_BAD_CONFIG : cerrno{0};
    }
    ConfigLine line;
    while (file.next(&line)) {
        const aaa_platform_line_rule_t rule = rule_of(line);
        if (visit(&rule, context) != 0) {
            break;
        }
    }
    return 0;
}

int aaa_platform_line_rule_applies(const aaa_platform_line_rule_t *rule, uint32_t kind, const char *line) {
    if (rule == nullptr || line == nullptr || kind >= kKinds) {
        return 0;
    }
    const char *name = without_directory(line);
    // No line of this host has a longer name.
    return strnlen(name, kLineNameSize) < kLineNameSize && applies(*rule, kind, name) ? 1 : 0;
}

const char *aaa_platform_line_rules_path(void) {
    return config_path(kLinesVariable, kLinesFile);
}

}  // extern "C"
