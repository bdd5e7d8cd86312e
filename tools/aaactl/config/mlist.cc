// SPDX-License-Identifier: Apache-2.0
//
// mlist show, set and del.

#include <algorithm>
#include <memory>

#include "aaa/names.h"
#include "cli/commands.hpp"
#include "cli/suggestion.hpp"
#include "commits/recording.hpp"
#include "config/method_lists.hpp"
#include "dictionary/enum_words.hpp"

namespace aaactl {
namespace {

struct ListOptions {
    std::string function;
    std::string service;
    std::string name;
    std::vector<std::string> methods;
    bool force = false;
};

void add_place(Command sub, ListOptions &options, bool required) {
    sub.option("FUNCTION", options.function,
               "authentication, authorization, accounting or authorization_nacm")
        .one_of(list_functions())
        .required(required);
    sub.option("SERVICE", options.service, "login, exec, commands, ppp, ...").required(required);
    sub.option("NAME", options.name, "The list's name; \"default\" is the default list").required(required);
}

// ---- show

Json method_json(const Method &method) {
    Json document = {{"method", method.number},
                     {"name", method.is_group() ? "group" : method_word(method.number)}};
    if (method.is_group()) {
        document["group"] = escaped(method.group);
        document["protocol"] = method.resolved ? Json(method.resolved->protocol.word) : Json();
        document["number"] = method.group_number() ? Json(*method.group_number()) : Json();
        if (method.resolved && !method.resolved->number_defect.empty()) {
            document["fault"] = method.resolved->number_defect;
        }
    }
    return document;
}

std::string method_text(const Output &out, const Method &method) {
    if (!method.is_group()) {
        return method_word(method.number);
    }
    const std::string word = "group:" + escaped(method.group);
    if (!method.resolved) {
        return word + " " + out.styled(Style::bad, "(no such group)");
    }
    if (!method.resolved->number_defect.empty()) {
        return word + " " + out.styled(Style::bad, "(" + method.resolved->number_defect + ")");
    }
    const std::string number =
        method.resolved->number ? std::to_string(*method.resolved->number) : "not published";
    return word + " " +
           out.styled(Style::dim, "(" + std::string(method.resolved->protocol.word) + ", " + number + ")");
}

Json list_json(const MethodList &list) {
    Json document = {{"function", escaped(list.function)},
                     {"service", escaped(list.service)},
                     {"name", escaped(list.name)}};
    if (!list.defect.empty()) {
        document["fault"] = list.defect;
    }
    document["methods"] = Json::array();
    for (const Method &method : list.methods()) {
        document["methods"].push_back(method_json(method));
    }
    return document;
}

std::string methods_text(const Output &out, const MethodList &list) {
    std::string text = out.styled(Style::bad, list.defect);
    for (const Method &method : list.methods()) {
        text += (text.empty() ? "" : ", ") + method_text(out, method);
    }
    return text;
}

// Reports a stored value that is not a method list, or not the number of a group.
bool note_faults(Output &out, const MethodList &list) {
    bool found = !list.defect.empty();
    if (found) {
        out.note("aaactl: " + escaped(list.path()) + ": " + list.defect);
    }
    for (const Method &method : list.methods()) {
        if (method.resolved && !method.resolved->number_defect.empty()) {
            out.note("aaactl: " + escaped(number_path(*method.resolved)) + ": " +
                     method.resolved->number_defect);
            found = true;
        }
    }
    return found;
}

// The words that an option selects: its own, or all when it is empty.
std::vector<std::string> only(const std::string &option, std::vector<std::string> words) {
    std::erase_if(words, [&](const std::string &word) { return !option.empty() && word != option; });
    return words;
}

std::vector<MethodList> read_lists(Database &database, const ListOptions &options) {
    std::vector<MethodList> lists;
    for (const std::string &function : only(options.function, list_functions())) {
        for (const std::string &service : only(options.service, service_words(database, function))) {
            for (const std::string &name : only(options.name, list_names(database, function, service))) {
                if (auto list = find_list(database, function, service, name)) {
                    lists.push_back(*std::move(list));
                }
            }
        }
    }
    return lists;
}

// The misspelt word is the service, or else the name.
std::string meant_list(Database &database, const ListOptions &options) {
    const auto services = service_words(database, options.function);
    const bool has_service = std::find(services.begin(), services.end(), options.service) != services.end();
    return has_service ? did_you_mean(options.name, list_names(database, options.function, options.service))
                       : did_you_mean(options.service, services);
}

ExitCode show(Output &out, const ListOptions &options) {
    Database database(Database::Use::reading);
    const std::vector<MethodList> lists = read_lists(database, options);
    if (lists.empty() && !options.function.empty()) {
        throw Failure(ExitCode::not_found,
                      escaped(options.function + " " + options.service + " " + options.name) +
                          ": no such method list" + meant_list(database, options));
    }
    Json document = {{"lists", Json::array()}};
    std::vector<std::vector<std::string>> rows;
    for (const MethodList &list : lists) {
        document["lists"].push_back(list_json(list));
        rows.push_back(
            {escaped(list.function), escaped(list.service), escaped(list.name), methods_text(out, list)});
    }
    out.result(document, [&] { out.table({"FUNCTION", "SERVICE", "NAME", "METHODS"}, rows); });
    const auto faulty = std::count_if(lists.begin(), lists.end(),
                                      [&](const MethodList &list) { return note_faults(out, list); });
    return faulty == 0 ? ExitCode::ok : ExitCode::bad_input;
}

void add_show(Command mlist) {
    auto options = std::make_shared<ListOptions>();
    Command sub = mlist.command("show", "Print method lists, their server groups resolved",
                                [options](Output &out) { return show(out, *options); });
    sub.also({"list", "ls"});
    add_place(sub, *options, false);
    sub.footer(
        "Values that cannot be read are reported with the others (exit status 3).\n"
        "JSON: {lists: [{function, service, name, methods: [{method, name, group, protocol, number}]}]}, "
        "with \"fault\"\nif there is one\n"
        "Example: aaactl mlist show authentication login");
}

// ---- set and del

std::string meant_method(Database &database, const std::string &word) {
    if (is_group_name(word) && resolve_group(database, word)) {
        return "; did you mean group:" + escaped(word) + "?";
    }
    std::vector<std::string> words;
    for (uint32_t method = AAA_METHOD_NONE; method <= AAA_METHOD_SYSLOG; ++method) {
        if (is_configurable(method)) {
            words.push_back(method_word(method));
        }
    }
    return did_you_mean(word, words);
}

// "local", "group:corp", or the number of a method.
Method parse_method(Database &database, const std::string &word) {
    if (word.starts_with("group:")) {
        Method method{AAA_METHOD_SERVER_GROUP, word.substr(6), std::nullopt};
        check_group_name(method.group);
        return method;
    }
    const auto number = method_number(word);
    if (!number) {
        const std::string meant = meant_method(database, word);
        throw Failure(ExitCode::usage,
                      "\"" + escaped(word) + "\" is not a method" +
                          (meant.empty() ? "; use group:NAME, local, none, line, enable, ..." : meant));
    }
    if (*number == AAA_METHOD_SERVER_GROUP) {
        throw Failure(ExitCode::usage,
                      "\"" + escaped(word) + "\" does not say which server group; write group:NAME");
    }
    // 0 would hide the methods after it.
    if (*number == AAA_METHOD_NOTSET || *number > AAA_METHOD_SYSLOG) {
        throw Failure(ExitCode::usage, "\"" + escaped(word) + "\": methods have the numbers 1 to " +
                                           std::to_string(AAA_METHOD_SYSLOG));
    }
    return {*number, "", std::nullopt};
}

void resolve(Database &database, Method &method, bool force) {
    if (method.is_group()) {
        method.resolved = resolve_group(database, method.group);
        if (!method.resolved && !force) {
            throw Failure(ExitCode::negative,
                          followed_by("group:" + escaped(method.group) + ": no such server group" +
                                          did_you_mean(method.group, group_names(database)),
                                      "create it with \"aaactl sg add\", or use --force"));
        }
    }
}

void check_place(const ListOptions &options) {
    for (const std::string &word : {options.service, options.name}) {
        check_group_name(word);  // the same rule applies to all words of the path
    }
}

ExitCode set(Output &out, const ListOptions &options) {
    check_place(options);
    Database database;
    MethodList list{options.function, options.service, options.name, {}, {}, {}};
    for (const std::string &word : options.methods) {
        list.places.push_back(parse_method(database, word));
        resolve(database, list.places.back(), options.force);
    }
    if (!options.force) {
        check_is_used(list);
    }
    write_list(database, list);
    if (const std::string open = open_login_text(list); !open.empty()) {
        out.note("aaactl: " + escaped(list.path()) + ": " + open + "; \"local\" asks for one");
    }
    out.result(list_json(list), [&] { out.line(list.path() + ": " + methods_text(out, list)); });
    note_goes_back_too(out, database);
    return ExitCode::ok;
}

void add_set(Command mlist) {
    auto options = std::make_shared<ListOptions>();
    Command sub = mlist.command("set", "Create or replace a method list",
                                [options](Output &out) { return set(out, *options); });
    add_place(sub, *options, true);
    sub.option("METHOD", options->methods,
               "One to four, in order: group:NAME, local, none, line, enable, ...")
        .required()
        .values(1, 4);
    sub.flag("--force", options->force,
             "Accept server groups that do not exist (yet), and services and methods that nothing uses");
    sub.footer(
        "JSON: one list, as in \"mlist show\"\nExample: aaactl mlist set authentication login default "
        "group:corp local");
}

ExitCode del(Output &out, const ListOptions &options) {
    check_place(options);
    Database database;
    const std::string path = list_path(options.function, options.service, options.name);
    if (!database.remove(path)) {
        throw Failure(ExitCode::not_found,
                      escaped(path) + ": no such method list" + meant_list(database, options));
    }
    out.result({{"function", options.function},
                {"service", escaped(options.service)},
                {"name", escaped(options.name)},
                {"deleted", true}},
               [] {});
    note_goes_back_too(out, database);
    return ExitCode::ok;
}

void add_del(Command mlist) {
    auto options = std::make_shared<ListOptions>();
    Command sub =
        mlist.command("del", "Delete a method list", [options](Output &out) { return del(out, *options); });
    sub.also({"delete", "rm"});
    add_place(sub, *options, true);
    sub.footer(
        "JSON: {function, service, name, deleted}\nExample: aaactl mlist del authentication login console");
}

}  // namespace

void add_mlist(Command root) {
    Command mlist = root.group("mlist", "Show and change method lists");
    add_show(mlist);
    add_set(mlist);
    add_del(mlist);
}

}  // namespace aaactl
