// SPDX-License-Identifier: Apache-2.0
//
// Statements to configuration text.

#include "dictionary/enum_words.hpp"
#include "running_config/statements.hpp"

namespace aaactl {
namespace {

std::string place_text(const ListStatement::Place &place) {
    if (place.method == AAA_METHOD_SERVER_GROUP) {
        return "group " + word_text(place.group);
    }
    const std::string word = method_word(place.method);
    return method_number(word) == place.method ? word_text(word) : std::to_string(place.method);
}

std::string server_words(const ServerStatement &server) {
    std::string text = server.host;
    if (server.owner.of().is_radius() && server.ports.size() == 2) {
        text +=
            " auth-port " + std::to_string(server.ports[0]) + " acct-port " + std::to_string(server.ports[1]);
    } else if (!server.ports.empty()) {
        text += " port " + std::to_string(server.ports[0]);
    }
    if (server.index) {
        text += " index " + std::to_string(*server.index);
    }
    for (const SettingValue &value : server.settings) {
        text += " " + setting_text(value);
    }
    return text;
}

std::string owner_prefix(const Owner &owner) {
    return owner.group ? "" : std::string(owner.of().word) + "-server ";
}

struct Writer {
    std::string operator()(const GroupStatement &group) const {
        return std::string("aaa group server ") + group.owner.of().word + " " +
               word_text(group.owner.group.value_or(""));
    }
    std::string operator()(const ServerStatement &server) const {
        const char *kind = !server.owner.group ? "host " : server.is_private ? "server-private " : "server ";
        return owner_prefix(server.owner) + kind + server_words(server);
    }
    std::string operator()(const SettingStatement &setting) const {
        const std::string text = setting_text(setting.value);
        return owner_prefix(setting.owner) + (setting.value.removed ? text.substr(3) : text);
    }
    std::string operator()(const ListStatement &list) const {
        std::string text =
            "aaa " + list.function + " " + word_text(list.service) + " " + word_text(list.name);
        if (list.function == "accounting" && !list.methods.empty()) {
            text += list.broadcast ? " start-stop broadcast" : " start-stop";
        }
        for (const ListStatement::Place &place : list.methods) {
            text += " " + place_text(place);
        }
        return text;
    }
    std::string operator()(const ItemStatement &item) const {
        if (item.item.type == SYSDB_TYPE_ANY) {  // of "no"
            return "item " + word_text(item.path);
        }
        return "item " + dump_line({item.path, item.item, item.masked, 0, {}});
    }
};

// Whether the line is one of the group's, and not the line that names it.
bool is_below_group(const Statement &statement) {
    const auto *server = std::get_if<ServerStatement>(&statement.what);
    const auto *setting = std::get_if<SettingStatement>(&statement.what);
    return (server != nullptr && server->owner.group) || (setting != nullptr && setting->owner.group);
}

}  // namespace

std::string text_of(const Statements &statements) {
    std::string text;
    for (const Statement &statement : statements) {
        text += std::string(is_below_group(statement) ? " " : "") + (statement.removed ? "no " : "") +
                std::visit(Writer{}, statement.what) + "\n";
    }
    return text;
}

}  // namespace aaactl
