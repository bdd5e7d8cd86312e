// SPDX-License-Identifier: Apache-2.0
//
// The paths of method lists, and their tuples, read and written.

#include "config/method_lists.hpp"

#include <algorithm>
#include <set>

#include "aaa/names.h"
#include "cli/suggestion.hpp"
#include "dictionary/enum_words.hpp"

namespace aaactl {
namespace {

// Four or more integers, of which the last four are the methods, then four names.
bool read_fields(MethodList &list, const std::vector<TupleField> &fields) {
    const auto is_name = [](const TupleField &field) { return field.is_name; };
    const auto first_name = std::find_if(fields.begin(), fields.end(), is_name);
    if (first_name - fields.begin() < static_cast<ptrdiff_t>(kMaxMethods) ||
        fields.end() - first_name != static_cast<ptrdiff_t>(kMaxMethods) ||
        !std::all_of(first_name, fields.end(), is_name)) {
        return false;
    }
    const auto first_method = first_name - kMaxMethods;
    std::transform(fields.begin(), first_method, std::back_inserter(list.leading),
                   [](const TupleField &field) { return field.number; });
    std::transform(first_method, first_name, first_name, std::back_inserter(list.places),
                   [](const TupleField &number, const TupleField &name) {
                       Method method{static_cast<uint32_t>(number.number), {}, {}};
                       method.group = method.is_group() ? name.name : "";
                       return method;
                   });
    return true;
}

void read_item(MethodList &list, const Item &item) {
    if (item.type != SYSDB_TYPE_TUPLE) {
        list.defect = "item of type " + type_name(item.type);
    } else if (!read_fields(list, tuple_fields(item))) {
        list.defect = "tuple of another form";
    }
}

// The bare names of one level's directories, or of its items.
std::vector<std::string> names_at(Database &database, const std::string &directory, bool directories) {
    std::vector<std::string> names;
    for (const Entry &entry : database.entries(directory)) {
        if (entry.is_directory() == directories) {
            names.push_back(entry.bare_name());
        }
    }
    return names;
}

std::vector<int32_t> leading_integers(Database &database, const MethodList &list) {
    if (list.function != "accounting") {
        return {};
    }
    const auto before = find_list(database, list.function, list.service, list.name);
    return before && before->leading.size() == kAccountingIntegers
               ? before->leading
               : std::vector<int32_t>(kAccountingIntegers);
}

bool is_known(const std::vector<std::string> &words, const std::string &word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace

std::string MethodList::path() const {
    return list_path(function, service, name);
}

std::span<const Method> MethodList::methods() const {
    const auto empty = [](const Method &method) { return method.number == AAA_METHOD_NOTSET; };
    return {places.begin(), std::find_if(places.begin(), places.end(), empty)};
}

std::string open_login_text(const MethodList &list) {
    if (list.function != "authentication" || list.service != "login") {
        return "";
    }
    const auto methods = list.methods();
    const auto none = std::find_if(methods.begin(), methods.end(),
                                   [](const Method &method) { return method.number == AAA_METHOD_NONE; });
    return none == methods.end() ? ""
           : none == methods.begin()
               ? "\"none\" admits every user without a password"
               : "when no method before \"none\" answers, every user is admitted without "
                 "a password";
}

void check_is_used(const MethodList &list) {
    const auto words = used_service_words(list.function);
    if (!is_known(words, list.service)) {
        const std::string meant = did_you_mean(list.service, words);
        std::string all;
        for (const std::string &word : words) {
            all += (all.empty() ? "; use " : ", ") + word;
        }
        throw Failure(ExitCode::usage, escaped(list.service) + ": not a service of " + list.function +
                                           (meant.empty() ? all : meant) +
                                           " (--force stores it all the same)");
    }
    for (const Method &method : list.places) {
        if (!answers_for(list.function, method.number)) {
            throw Failure(ExitCode::usage,
                          method_word(method.number) + ": not a method for " + list.function +
                              ", no request is answered by it (--force stores it all the same)");
        }
    }
}

std::string list_path(const std::string &function, const std::string &service, const std::string &name) {
    return kConfigRoot + function + "/" + service + "/" + name;
}

std::vector<std::string> service_words(Database &database, const std::string &function) {
    return names_at(database, kConfigRoot + function + "/", true);
}

std::vector<std::string> list_names(Database &database, const std::string &function,
                                    const std::string &service) {
    return names_at(database, list_path(function, service, ""), false);
}

std::optional<MethodList> find_list(Database &database, const std::string &function,
                                    const std::string &service, const std::string &name) {
    MethodList list{function, service, name, {}, {}, {}};
    const auto item = database.find(list.path(), list.defect);
    if (!item && list.defect.empty()) {
        return std::nullopt;
    }
    if (item) {
        read_item(list, *item);
    }
    for (Method &method : list.places) {
        if (method.is_group()) {
            method.resolved = resolve_group(database, method.group);
        }
    }
    return list;
}

void write_list(Database &database, const MethodList &list) {
    std::vector<TupleField> fields;
    for (const int32_t number : leading_integers(database, list)) {
        fields.push_back({false, number, {}});
    }
    std::vector<Method> places = list.places;
    places.resize(kMaxMethods);
    for (const Method &method : places) {
        fields.push_back({false, static_cast<int32_t>(method.number), {}});
    }
    for (const Method &method : places) {
        fields.push_back({true, 0, method.group});
    }
    database.set(list.path(), tuple_item(fields));
}

}  // namespace aaactl
