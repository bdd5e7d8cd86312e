// SPDX-License-Identifier: Apache-2.0

#include "method_lists.hpp"

#include "aaa/names.h"

namespace aaactl::configured {
namespace {

constexpr size_t kNameSize = SYSDB_NAME_SIZE;
constexpr size_t kAccountingFields = 3;
constexpr const char *kFunctions[] = {"authentication", "authorization", "accounting", "authorization_nacm"};

struct Stored {
    int32_t methods[kMaxMethods];
    char names[kMaxMethods][kNameSize];
};

void decode(const Item &item, MethodList &list) {
    Stored stored{};
    if (item.type != SYSDB_TYPE_TUPLE ||
        tuple_unpack_mask(item.bytes.data(), "%d%d%d%d%s%s%s%s", &stored.methods[0], &stored.methods[1],
                          &stored.methods[2], &stored.methods[3], stored.names[0], stored.names[1],
                          stored.names[2], stored.names[3]) != 0) {
        list.fault =
            item.type == SYSDB_TYPE_TUPLE ? "tuple of another form" : "item of type " + type_name(item.type);
        return;
    }
    for (size_t i = 0; i < kMaxMethods && stored.methods[i] != AAA_METHOD_NOTSET; ++i) {
        const auto number = static_cast<uint32_t>(stored.methods[i]);
        list.methods.push_back(
            {number, number == AAA_METHOD_SERVER_GROUP ? stored.names[i] : "", std::nullopt});
    }
}

MethodList read_list(Database &database, const std::string &function, const std::string &service,
                     const std::string &name) {
    MethodList list{function, service, name, {}, ""};
    if (const auto item = database.find(method_list_path(list), list.fault)) {
        decode(*item, list);
    }
    for (Method &method : list.methods) {
        if (method.is_group()) {
            method.resolved = resolve_group(database, method.group);
        }
    }
    return list;
}

// Names of one level; items or directories only.
std::vector<std::string> level(Database &database, const std::string &directory, bool directories,
                               const std::string &only) {
    std::vector<std::string> names;
    for (const Entry &entry : database.list(directory).value_or(std::vector<Entry>{})) {
        const std::string name =
            entry.is_directory() ? entry.name.substr(0, entry.name.size() - 1) : entry.name;
        if (entry.is_directory() == directories && (only.empty() || name == only)) {
            names.push_back(name);
        }
    }
    return names;
}

// The three integers that an accounting list has in front of its methods.
std::vector<TupleField> leading_fields(Database &database, const MethodList &list) {
    if (list.function != "accounting") {
        return {};
    }
    std::vector<TupleField> fields(kAccountingFields);
    std::string fault;
    const auto before = database.find(method_list_path(list), fault);
    if (before && before->type == SYSDB_TYPE_TUPLE) {
        const std::vector<TupleField> stored = tuple_fields(*before);
        if (stored.size() == kAccountingFields + 2 * kMaxMethods) {
            fields.assign(stored.begin(), stored.begin() + kAccountingFields);
        }
    }
    return fields;
}

}  // namespace

bool Method::is_group() const {
    return number == AAA_METHOD_SERVER_GROUP;
}

std::string method_list_path(const MethodList &list) {
    return kListConfig + list.function + "/" + list.service + "/" + list.name;
}

std::vector<MethodList> read_method_lists(Database &database, const std::string &function,
                                          const std::string &service, const std::string &name) {
    std::vector<MethodList> lists;
    for (const char *each : kFunctions) {
        if (!function.empty() && function != each) {
            continue;
        }
        const std::string directory = std::string(kListConfig) + each + "/";
        for (const std::string &word : level(database, directory, true, service)) {
            for (const std::string &list : level(database, directory + word + "/", false, name)) {
                lists.push_back(read_list(database, each, word, list));
            }
        }
    }
    return lists;
}

void write_method_list(Database &database, const MethodList &list) {
    std::vector<TupleField> fields = leading_fields(database, list);
    for (size_t i = 0; i < kMaxMethods; ++i) {
        fields.push_back(
            {false, i < list.methods.size() ? static_cast<int32_t>(list.methods[i].number) : 0, ""});
    }
    for (size_t i = 0; i < kMaxMethods; ++i) {
        fields.push_back({true, 0, i < list.methods.size() ? list.methods[i].group : ""});
    }
    database.set(method_list_path(list), tuple_item(fields));
}

}  // namespace aaactl::configured
