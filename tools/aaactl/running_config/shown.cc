// SPDX-License-Identifier: Apache-2.0

#include "running_config/shown.hpp"

#include "database/secret_values.hpp"

namespace aaactl {
namespace {

bool is_sealed(const Item &item) {
    return item.type == SYSDB_TYPE_STRING && !item.bytes.empty() && looks_sealed(text_of(item));
}

// Comment lines between the parts make the text easier to read.
std::string with_separators(const Statements &statements) {
    std::string text;
    size_t kind = SIZE_MAX;
    for (size_t i = 0; i < statements.size(); ++i) {
        const bool begins_group = std::holds_alternative<GroupStatement>(statements[i].what);
        const auto *server = std::get_if<ServerStatement>(&statements[i].what);
        const auto *setting = std::get_if<SettingStatement>(&statements[i].what);
        const bool in_group =
            (server != nullptr && server->owner.group) || (setting != nullptr && setting->owner.group);
        const size_t here = in_group || begins_group                  ? 0
                            : server != nullptr || setting != nullptr ? 1
                                                                      : statements[i].what.index();
        if (i != 0 && (begins_group || here != kind)) {
            text += "!\n";
        }
        kind = here;
        text += text_of({statements[i]});
    }
    return text;
}

}  // namespace

size_t mask_secrets(const Output &out, Statements &statements) {
    if (out.show_secrets()) {
        return 0;
    }
    size_t masked = 0;
    for (Statement &statement : statements) {
        auto *item = std::get_if<ItemStatement>(&statement.what);
        if (item != nullptr && is_secret(item->path, item->item) && !is_sealed(item->item)) {
            item->masked = true;
            ++masked;
        }
    }
    return masked;
}

ShownConfiguration shown_configuration(const Output &out, const Items &items) {
    Statements statements = statements_of(items);
    const size_t masked = mask_secrets(out, statements);
    return {with_separators(statements), text_of(statements), masked};
}

std::vector<Json> lines_json(const std::string &text) {
    std::vector<Json> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        lines.emplace_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

void note_masked(Output &out, size_t masked) {
    if (masked != 0) {
        out.note("aaactl: masked values of keys and passwords: " + std::to_string(masked) +
                 " (--show-secrets writes them)");
    }
}

}  // namespace aaactl
