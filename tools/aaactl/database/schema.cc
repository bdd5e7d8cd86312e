// SPDX-License-Identifier: Apache-2.0

#include "database/schema.hpp"

#include <algorithm>
#include <cstdio>
#include <span>
#include <vector>

#include "aaa/names.h"
#include "cli/suggestion.hpp"
#include "database/list_rules.hpp"
#include "database/protocols.hpp"
#include "database/secret_values.hpp"
#include "database/server_entry.hpp"
#include "database/sysdb_values.hpp"
#include "store/store.hpp"

namespace aaactl {
namespace {

constexpr std::string_view kRoot = "/cfg/gl/aaa/";
constexpr size_t kMethods = 4;             // of a list, and as many names
constexpr size_t kAccountingIntegers = 3;  // before the methods
constexpr uint32_t kFirstGroupNumber = 1000;
constexpr uint32_t kLastGroupNumber = 4999;

constexpr char kUnsealed[] = "the key is not sealed, so it is not used";

constexpr unsigned kRadius = 1;
constexpr unsigned kTacacs = 2;
constexpr unsigned kDiameter = 4;

constexpr Setting kSettings[] = {
#define AAACTL_SETTING(name, word, protocols, form, least, most) \
    {name, word, protocols, SettingForm::form, least, most},
#include "database/settings.def"
};

const std::vector<std::string> kProtocolWords{"radius", "tacacs", "diameter"};

unsigned protocol_bit(const std::string &word) {
    return word == "radius" ? kRadius : word == "tacacs" ? kTacacs : word == "diameter" ? kDiameter : 0;
}

bool contains(const std::vector<std::string> &words, const std::string &word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

std::string one_of(const std::vector<std::string> &words) {
    std::string all;
    for (const std::string &word : words) {
        all += (all.empty() ? "" : ", ") + word;
    }
    return all;
}

std::string unknown(const std::string &word, const std::string &what, const std::vector<std::string> &known) {
    const std::string meant = did_you_mean(word, known);
    return "\"" + escaped(word) + "\" is not " + what + (meant.empty() ? "; use " + one_of(known) : meant);
}

// The components of a path below the root; an item's or a directory's.
struct Place {
    std::vector<std::string> names;
    bool is_directory = false;

    explicit Place(std::string_view path) : is_directory(path.ends_with('/')) {
        while (!path.empty()) {
            const size_t end = std::min(path.find('/'), path.size());
            names.emplace_back(path.substr(0, end));
            path.remove_prefix(std::min(end + 1, path.size()));
        }
    }
    // The components from this one on.
    Place from(size_t first) const {
        Place rest("");
        rest.names.assign(names.begin() + static_cast<ptrdiff_t>(std::min(first, names.size())), names.end());
        rest.is_directory = is_directory;
        return rest;
    }
    size_t size() const { return names.size(); }
};

std::string wrong_type(const Item &item, uint32_t wanted) {
    return "it is of type " + type_name(item.type) + ", but " + type_name(wanted) + " is read here";
}

// ---- method lists

std::string method_fault(const std::string &function, const TupleField &number, const TupleField &name) {
    const auto method = static_cast<uint32_t>(number.number);
    if (method == AAA_METHOD_NOTSET) {
        return "";
    }
    if (method >= kFirstGroupNumber && method <= kLastGroupNumber) {
        return std::to_string(number.number) +
               " is the number of a server group, and numbers do not survive a reboot; name the group";
    }
    if (method > AAA_METHOD_SYSLOG) {
        return std::to_string(number.number) + " is not a method";
    }
    if (!answers_for(function, method)) {
        return std::string("method ") + std::to_string(method) + " (" + aaa_util_print_method(method) +
               ") answers no request of " + function;
    }
    return method == AAA_METHOD_SERVER_GROUP && name.name.empty() ? "a server group has no name" : "";
}

// The four methods and the four names: what the service would not see is a mistake.
std::string methods_fault(const std::string &function, std::span<const TupleField> methods,
                          std::span<const TupleField> names) {
    size_t end = 0;  // the first empty place
    while (end < kMethods && methods[end].number != AAA_METHOD_NOTSET) {
        ++end;
    }
    if (end == 0) {
        return "the list has no method: the first is 0, which ends it";
    }
    for (size_t i = 0; i < kMethods; ++i) {
        const std::string fault = method_fault(function, methods[i], names[i]);
        if (!fault.empty()) {
            return fault;
        }
        if (i > end && methods[i].number != AAA_METHOD_NOTSET) {
            return "method " + std::to_string(methods[i].number) + " at place " + std::to_string(i + 1) +
                   " follows a 0, which ends the list, so it is never asked; close the gap";
        }
    }
    return "";
}

std::string tuple_fault(const std::string &function, const std::vector<TupleField> &fields) {
    const bool accounting = function == "accounting";
    const size_t integers = kMethods + (accounting ? kAccountingIntegers : 0);
    const auto is_name = [](const TupleField &field) { return field.is_name; };
    const bool formed =
        fields.size() == integers + kMethods &&
        std::none_of(fields.begin(), fields.begin() + static_cast<ptrdiff_t>(integers), is_name) &&
        std::all_of(fields.begin() + static_cast<ptrdiff_t>(integers), fields.end(), is_name);
    if (!formed) {
        return std::string("a method list of ") + function + " is a tuple of " +
               (accounting ? "three integers, " : "") +
               "four methods and four names; see \"aaactl mlist set\"";
    }
    const std::span<const TupleField> all(fields);
    return methods_fault(function, all.subspan(integers - kMethods, kMethods), all.subspan(integers));
}

std::string name_fault(const std::string &name) {
    return is_group_name(name) ? ""
                               : "\"" + escaped(name) +
                                     "\" is not a valid name; use 1 to 49 printable characters without '/'";
}

// FUNCTION/SERVICE/NAME
std::string list_fault(const Place &place, const Item &item) {
    if (place.is_directory ? place.size() > 2 : place.size() != 3) {
        return "a method list is at FUNCTION/SERVICE/NAME";
    }
    const std::vector<std::string> services = used_service_words(place.names[0]);
    if (place.size() > 1 && !contains(services, place.names[1])) {
        return unknown(place.names[1], "a service of " + place.names[0], services);
    }
    if (place.is_directory) {
        return "";
    }
    if (const std::string fault = name_fault(place.names[2]); !fault.empty()) {
        return fault;
    }
    return item.type != SYSDB_TYPE_TUPLE ? wrong_type(item, SYSDB_TYPE_TUPLE)
                                         : tuple_fault(place.names[0], tuple_fields(item));
}

// ---- servers

// The library finds the entry of a server, when its group is changed, only in the form that its protocol has.
std::string server_item_fault(unsigned protocol, const std::string &entry, const Item &item) {
    if (protocol != kRadius && entry.find(',') != std::string::npos) {
        return "a server with a port is a directory here, without a value: end the path with '/'";
    }
    if (item.type != SYSDB_TYPE_U32) {
        return wrong_type(item, SYSDB_TYPE_U32);
    }
    return number_of(item) == 1 ? "" : "the value of a server is 1";
}

// Commands write ordinals in this form only, so another form would give two servers one ordinal.
bool is_usual_ordinal(const std::string &name) {
    const auto number = ordinal_in(name);
    char usual[16];
    std::snprintf(usual, sizeof usual, "0x%x", number.value_or(0));
    return number.value_or(0) != 0 && name == usual;
}

// ORDINAL/ENTRY, the entry as an item or a directory.
std::string server_fault(unsigned protocol, const Place &place, const Item &item) {
    if (place.size() == 0) {
        return "";
    }
    if (!is_usual_ordinal(place.names[0])) {
        return "\"" + escaped(place.names[0]) +
               "\" is not an ordinal of a server: use 0x1, 0x2, ... in lower-case hexadecimal digits";
    }
    if (place.size() == 1) {
        return place.is_directory ? "" : "an ordinal is a directory, which holds the server";
    }
    const ServerEntry server = read_server_entry(place.names[1], protocol == kRadius ? 2 : 1);
    if (!server.defect.empty()) {
        return server.defect;
    }
    if (protocol == kRadius && server.ports.size() != 2) {
        return "a RADIUS server has two ports: " + escaped(server.host) + ",1812,1813";
    }
    if (place.size() > 2) {
        return "nothing is read below a server; its settings are below settings/";
    }
    if (place.is_directory) {
        return protocol == kRadius ? "a RADIUS server is an item, a u32 of 1: omit '/' at the end" : "";
    }
    return server_item_fault(protocol, place.names[1], item);
}

// ---- settings

std::vector<std::string> names_of(unsigned protocol) {
    std::vector<std::string> names;
    for (const Setting &setting : kSettings) {
        if ((setting.protocols & protocol) != 0) {
            names.emplace_back(setting.name);
        }
    }
    return names;
}

std::string range_fault(const Setting &setting, uint32_t value, const char *kind, const char *unit) {
    if (value >= setting.least && value <= setting.most) {
        return "";
    }
    return std::string(setting.name) + " is " + kind + std::to_string(setting.least) +
           (setting.least == setting.most ? "" : " to " + std::to_string(setting.most)) + unit;
}

std::string transport_fault(unsigned protocol, const std::string &text) {
    const std::string usual = protocol == kTacacs ? "tcp" : "udp";
    return text == usual || text == "tls" ? "" : "transport is " + usual + " or tls";
}

std::string text_fault(const Setting &setting, unsigned protocol, const std::string &text) {
    switch (setting.form) {
        case SettingForm::transport:
            return transport_fault(protocol, text);
        case SettingForm::address:
            return is_address(text) ? "" : std::string(setting.name) + " is an IPv4 or IPv6 address";
        case SettingForm::file:
            if (!text.starts_with('/')) {
                return std::string(setting.name) + " is the path of a file, from the root on";
            }
            break;
        case SettingForm::sealed_key:
            if (!looks_sealed(text)) {
                return kUnsealed;
            }
            break;
        default:
            break;
    }
    return range_fault(setting, static_cast<uint32_t>(text.size()), "", " bytes");
}

std::string value_fault(const Setting &setting, unsigned protocol, const Item &item) {
    if ((setting.protocols & protocol) == 0) {
        return std::string(setting.name) + " is not a setting of " +
               (protocol == kRadius   ? "RADIUS"
                : protocol == kTacacs ? "TACACS+"
                                      : "Diameter");
    }
    if (item.type != setting.type()) {
        return wrong_type(item, setting.type());
    }
    if (setting.is_number()) {
        return range_fault(setting, number_of(item), "a number from ", "");
    }
    const std::string text = text_of(item);
    if (std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; })) {
        return "it holds a control character";
    }
    return text_fault(setting, protocol, text);
}

// NAME or SERVER/NAME
std::string settings_fault(unsigned protocol, const Place &place, const Item &item) {
    if (place.size() == 0) {
        return "";
    }
    if (place.is_directory || place.size() > 1) {
        const std::string defect = read_server_entry(place.names[0], protocol == kRadius ? 2 : 1).defect;
        if (!defect.empty()) {
            return "settings of one server are below its entry as it is in the list of servers: " + defect;
        }
        if (place.size() == 1) {
            return "";
        }
    }
    if (place.is_directory || place.size() > 2) {
        return "a setting is at settings/NAME or settings/SERVER/NAME";
    }
    const std::string &name = place.names.back();
    const Setting *setting = setting_named(name);
    if (setting == nullptr) {
        return unknown(name, "a setting", names_of(protocol));
    }
    return value_fault(*setting, protocol, item);
}

// ---- groups and protocols

using Check = std::string (*)(unsigned protocol, const Place &place, const Item &item);
struct Part {
    const char *name;
    Check check;
};

template <size_t N>
std::string part_fault(const Part (&parts)[N], unsigned protocol, const Place &place, const Item &item) {
    std::vector<std::string> names;
    for (const Part &part : parts) {
        if (place.names[0] == part.name && (place.is_directory || place.size() > 1)) {
            return part.check(protocol, place.from(1), item);
        }
        names.push_back(std::string(part.name) + "/");
    }
    const bool is_setting = !place.is_directory && setting_named(place.names[0]) != nullptr;
    return is_setting ? escaped(place.names[0]) + " is a setting: store it below settings/"
                      : unknown(place.names[0] + (place.is_directory || place.size() > 1 ? "/" : ""),
                                "read here", names);
}

constexpr Part kOfGroup[] = {
    {"server", server_fault}, {"server-private", server_fault}, {"settings", settings_fault}};
constexpr Part kOfProtocol[] = {{"host", server_fault}, {"settings", settings_fault}};

// PROTOCOL/GROUP/...
std::string groups_fault(const Place &place, const Item &item) {
    if (place.size() == 0) {
        return "";
    }
    if (!contains(kProtocolWords, place.names[0])) {
        return unknown(place.names[0], "a protocol", kProtocolWords);
    }
    if (place.size() > 1) {
        const std::string fault = name_fault(place.names[1]);
        if (!fault.empty() || is_keyword(place.names[1])) {
            return !fault.empty() ? fault
                                  : "\"" + escaped(place.names[1]) +
                                        "\" is a keyword of methods and cannot name a server group";
        }
    }
    if (place.size() <= 2) {
        return place.is_directory ? "" : "a server group is a directory";
    }
    return part_fault(kOfGroup, protocol_bit(place.names[0]), place.from(2), item);
}

std::string protocol_fault(const Place &place, const Item &item) {
    if (place.size() == 1) {
        return place.is_directory ? "" : "a protocol is a directory";
    }
    return part_fault(kOfProtocol, protocol_bit(place.names[0]), place.from(1), item);
}

// Limits of the history of the configuration.
std::string history_fault(const Place &place, const Item &item) {
    struct Limit {
        const char *name;
        uint32_t least;
        uint32_t most;
    };
    constexpr Limit kLimits[] = {{"commits", history::kLeastCommits, history::kMostCommits},
                                 {"kilobytes", history::kLeastKilobytes, history::kMostKilobytes}};
    if (place.size() == 0) {
        return place.is_directory ? "" : "the settings of the history are in a directory";
    }
    for (const Limit &limit : kLimits) {
        if (place.size() != 1 || place.is_directory || place.names[0] != limit.name) {
            continue;
        }
        if (item.type != SYSDB_TYPE_U32) {
            return wrong_type(item, SYSDB_TYPE_U32);
        }
        const uint32_t value = number_of(item);
        return value >= limit.least && value <= limit.most
                   ? ""
                   : place.names[0] + " is a number from " + std::to_string(limit.least) + " to " +
                         std::to_string(limit.most);
    }
    return unknown(place.names[0], "a setting of the history", {"commits", "kilobytes"});
}

std::string place_fault(const std::string &path, const Item &item) {
    if (!path.starts_with(kRoot) || path.size() == kRoot.size()) {
        return "";
    }
    const Place place(std::string_view(path).substr(kRoot.size()));
    const std::string &first = place.names[0];
    if (first == "group-server") {
        return groups_fault(place.from(1), item);
    }
    if (contains(list_functions(), first)) {
        return list_fault(place, item);
    }
    if (contains(kProtocolWords, first)) {
        return protocol_fault(place, item);
    }
    if (first == "history") {
        return history_fault(place.from(1), item);
    }
    std::vector<std::string> known{"group-server", "history"};
    known.insert(known.end(), list_functions().begin(), list_functions().end());
    known.insert(known.end(), kProtocolWords.begin(), kProtocolWords.end());
    return unknown(first, "read here", known);
}

// The command that stores the key of these servers; "sg key" is for those of groups.
std::string how_to_seal(const std::string &path) {
    const Place place(std::string_view(path).substr(kRoot.size()));
    const bool of_group = place.size() > 3 && place.names[0] == "group-server";
    return of_group ? "; seal and store it with \"aaactl sg key " + place.names[1] + " " +
                          shell_word(escaped(place.names[2])) + "\""
                    : "; seal and store it with \"aaactl key seal | aaactl sysdb set --type string " +
                          shell_word(escaped(path)) + "\"";
}

}  // namespace

const Setting *setting_named(std::string_view name) {
    const auto found = std::find_if(std::begin(kSettings), std::end(kSettings),
                                    [&](const Setting &setting) { return name == setting.name; });
    return found != std::end(kSettings) ? &*found : nullptr;
}

std::string value_fault(const Setting &setting, const std::string &protocol, const Item &item) {
    return value_fault(setting, protocol_bit(protocol), item);
}

std::span<const Setting> settings() {
    return kSettings;
}

std::string schema_fault(const std::string &path, const Item &item) {
    const std::string fault = place_fault(path, item);
    return fault == kUnsealed ? fault + how_to_seal(path) : fault;
}

bool is_aaa_tree(const std::string &path) {
    if (!path.starts_with(kRoot) || path.size() == kRoot.size()) {
        return false;
    }
    const std::string first = Place(std::string_view(path).substr(kRoot.size())).names[0];
    return first == "group-server" || first == "history" || contains(list_functions(), first) ||
           contains(kProtocolWords, first);
}

std::string setting_fault(const std::string &path, const Item &item) {
    if (!path.starts_with(kRoot)) {
        return "";
    }
    const Place place(std::string_view(path).substr(kRoot.size()));
    const bool of_group =
        place.size() > 4 && place.names[0] == "group-server" && place.names[3] == "settings";
    const bool of_protocol =
        place.size() > 2 && contains(kProtocolWords, place.names[0]) && place.names[1] == "settings";
    return of_group || of_protocol ? schema_fault(path, item) : "";
}

}  // namespace aaactl
