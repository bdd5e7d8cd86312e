// SPDX-License-Identifier: Apache-2.0
//
// Method lists.

#include <algorithm>

#include "aaa/names.h"
#include "aaa/server_groups.h"
#include "config/checks.hpp"
#include "dictionary/enum_words.hpp"

namespace aaactl {
namespace {

bool is_remote(const Method &method) {
    return method.is_group() || protocol_of_method(method.number) != nullptr;
}

// Methods that an operator can configure; the other numbers are internal to the service.
bool is_configurable(uint32_t method) {
    switch (method) {
        case AAA_METHOD_NONE:
        case AAA_METHOD_LOCAL:
        case AAA_METHOD_RADIUS:
        case AAA_METHOD_TACACSPLUS:
        case AAA_METHOD_IF_AUTHEN:
        case AAA_METHOD_SERVER_GROUP:
        case AAA_METHOD_LINE:
        case AAA_METHOD_ENABLE:
        case AAA_METHOD_KERBEROS5:
        case AAA_METHOD_SYSLOG:
            return true;
        default:
            return false;
    }
}

std::string method_text(const Method &method) {
    return method.is_group() ? "server group \"" + escaped(method.group) + "\""
                             : "\"" + method_word(method.number) + "\"";
}

const char *what_fails(const MethodList &list) {
    return list.function == "accounting" ? "nothing is recorded" : "every request is refused";
}

class ListCheck {
  public:
    ListCheck(Database &database, const MethodList &list, Findings &findings)
        : database_(database), list_(list), findings_(findings), methods_(list.methods()) {}

    void run() {
        if (!list_.defect.empty()) {
            error("malformed-list", "it does not hold four methods and four names: " + list_.defect,
                  "replace it: aaactl mlist set");
            return;
        }
        leading();
        hidden();
        if (methods_.empty()) {
            error("empty-list", "it has no method: " + std::string(what_fails(list_)),
                  "give it a method, or delete it");
            return;
        }
        for (size_t i = 0; i < methods_.size(); ++i) {
            method(i);
        }
        end();
    }

  private:
    void error(const char *code, const std::string &text, const std::string &remedy) {
        findings_.push_back({Severity::error, code, list_.path(), text, remedy});
    }
    void warning(const char *code, const std::string &text, const std::string &remedy) {
        findings_.push_back({Severity::warning, code, list_.path(), text, remedy});
    }

    // The check before a group is deleted expects them, and fails at a list without them.
    void leading() {
        if (list_.function == "accounting" && list_.leading.size() != kAccountingIntegers) {
            error("malformed-list",
                  "an accounting list begins with three integers before its methods, this one with " +
                      std::to_string(list_.leading.size()) +
                      ": while it exists, no server group can be deleted",
                  "replace it: aaactl mlist set");
        }
    }
    void hidden() {
        for (size_t i = methods_.size() + 1; i < list_.places.size(); ++i) {
            if (list_.places[i].number != AAA_METHOD_NOTSET) {
                warning("hidden-method",
                        method_text(list_.places[i]) + " follows an empty place and is never asked",
                        "close the gap: aaactl mlist set");
            }
        }
    }
    void method(size_t i) {
        const Method &method = methods_[i];
        if (method.is_group()) {
            group(method);
        } else if (!is_configurable(method.number)) {
            error("unknown-method",
                  "step " + std::to_string(i + 1) + ": " + method_word(method.number) +
                      " is not a method of lists",
                  "replace it: aaactl mlist set");
        } else if (is_remote(method) && !method_works(database_, method)) {
            findings_.push_back({Severity::error, "no-servers",
                                 protocol_servers_path(*protocol_of_method(method.number)),
                                 method_text(method) + " of " + escaped(list_.path()) +
                                     " asks the servers at this path, and there are none",
                                 "configure a server, or remove the method from the list"});
        }
        none(i);
        const auto same = [&](const Method &other) {
            return other.number == method.number && other.group == method.group;
        };
        if (std::any_of(methods_.begin(), methods_.begin() + static_cast<ptrdiff_t>(i), same)) {
            warning("repeated-method", method_text(method) + " is asked twice",
                    "name it once: aaactl mlist set");
        }
    }
    void group(const Method &method) {
        if (method.group.empty()) {
            error("dangling-group", "a server group has no name", "name the group: aaactl mlist set");
        } else if (method.configured() == nullptr) {
            error("dangling-group",
                  method_text(method) + " does not exist: clients cannot read this list at all",
                  "create the group, or remove it from the list: aaactl mlist set");
        }
    }
    void none(size_t i) {
        if (methods_[i].number != AAA_METHOD_NONE) {
            return;
        }
        if (i + 1 < methods_.size()) {
            warning("unreachable-method",
                    method_text(methods_[i + 1]) + " follows \"none\", which never passes a request on",
                    "remove the methods after \"none\": aaactl mlist set");
        }
        if (i > 0 && list_.function == "authentication") {
            warning("open-fallback",
                    "when no method before \"none\" answers, every user is admitted unchecked",
                    "end the list with \"local\" instead: aaactl mlist set");
        }
    }
    void end() {
        if (std::none_of(methods_.begin(), methods_.end(),
                         [&](const Method &method) { return method_works(database_, method); })) {
            error("ends-in-nothing", "none of its methods can work: " + std::string(what_fails(list_)),
                  "correct the faults of its methods, or add a method that needs no server");
        } else if (list_.function != "accounting" &&
                   std::all_of(methods_.begin(), methods_.end(), is_remote)) {
            warning("no-fallback",
                    "all of its methods need servers: when none answers, every request is refused",
                    "end the list with a method of this router, such as \"local\": aaactl mlist set");
        }
    }

    Database &database_;
    const MethodList &list_;
    Findings &findings_;
    std::span<const Method> methods_;
};

}  // namespace

bool method_works(Database &database, const Method &method) {
    if (method.is_group()) {
        const Group *group = method.configured();
        return group != nullptr && group->number && any_sound(group->servers);
    }
    const Protocol *protocol = protocol_of_method(method.number);
    return is_configurable(method.number) &&
           (protocol == nullptr || any_sound(protocol_servers(database, *protocol)));
}

void check_list(Database &database, const MethodList &list, Findings &findings) {
    ListCheck(database, list, findings).run();
}

}  // namespace aaactl
