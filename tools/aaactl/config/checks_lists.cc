// SPDX-License-Identifier: Apache-2.0
//
// Method lists.

#include <algorithm>

#include "aaa/names.h"
#include "aaa/server_groups.h"
#include "cli/suggestion.hpp"
#include "config/advice.hpp"
#include "config/checks.hpp"
#include "config/lookup.hpp"
#include "config/server_keys.hpp"
#include "dictionary/enum_words.hpp"

namespace aaactl {
namespace {

bool is_remote(const Method &method) {
    return method.is_group() || protocol_of_method(method.number) != nullptr;
}

std::string method_text(const Method &method) {
    return method.is_group() ? "server group \"" + escaped(method.group) + "\""
                             : "\"" + method_word(method.number) + "\"";
}

class ListCheck {
  public:
    ListCheck(Database &database, const MethodList &list, Findings &findings)
        : database_(database), list_(list), findings_(findings), methods_(list.methods()) {}

    void run() {
        lookup();
        if (!list_.defect.empty()) {
            error("malformed-list", "it does not hold four methods and four names: " + list_.defect,
                  set_list("replace it", list_, {}));
            return;
        }
        leading();
        service();
        hidden();
        if (methods_.empty()) {
            error("empty-list", "it has no method: " + std::string(consequence_of_failure(list_)),
                  set_list("delete it, or give it a method, such as", list_, {}));
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

    // The first of its methods.
    std::vector<Method> methods(size_t most = kMaxMethods) const {
        return {methods_.begin(), methods_.begin() + static_cast<ptrdiff_t>(std::min(most, methods_.size()))};
    }
    static bool same(const Method &a, const Method &b) { return a.number == b.number && a.group == b.group; }
    std::vector<Method> distinct() const {
        std::vector<Method> some;
        for (const Method &method : methods_) {
            if (std::none_of(some.begin(), some.end(), [&](const Method &m) { return same(m, method); })) {
                some.push_back(method);
            }
        }
        return some;
    }
    std::vector<Method> without(const Method &unwanted) const {
        std::vector<Method> some = methods();
        std::erase_if(some, [&](const Method &method) { return same(method, unwanted); });
        return some;
    }
    static std::vector<Method> with_local(std::vector<Method> methods) {
        std::erase_if(methods, [](const Method &method) { return method.number == AAA_METHOD_LOCAL; });
        methods.push_back({AAA_METHOD_LOCAL, {}, {}});
        return methods;
    }

    // Before the other faults, which are its reasons.
    void lookup() {
        const ClientView client = look_up(list_);
        if (client.rc != AAA_OK) {
            error("lock-out", failure_text(list_, client.rc), failure_remedy(list_));
            return;
        }
        const NumberFault fault = number_fault(list_);
        if (!fault.text.empty()) {
            error(fault.is_lock_out ? "lock-out" : "wrong-number", fault.text,
                  "number all server groups: aaactl sg publish");
        }
    }

    // The check before a group is deleted expects them, and fails at a list without them.
    void leading() {
        if (list_.function == "accounting" && list_.leading.size() != kAccountingIntegers) {
            error("malformed-list",
                  "an accounting list begins with three integers before its methods, this one with " +
                      std::to_string(list_.leading.size()) +
                      ": while it exists, no server group can be deleted",
                  set_list("replace it", list_, methods()));
        }
    }
    void service() {
        const auto words = used_service_words(list_.function);
        if (std::find(words.begin(), words.end(), list_.service) == words.end()) {
            warning("unused-service",
                    "\"" + escaped(list_.service) + "\" is not a service of " + list_.function +
                        ": no request uses the list" + did_you_mean(list_.service, words),
                    delete_item("create the list under the service that is meant, and delete this one",
                                list_.path()));
        }
    }
    void hidden() {
        for (size_t i = methods_.size() + 1; i < list_.places.size(); ++i) {
            if (list_.places[i].number != AAA_METHOD_NOTSET) {
                warning("hidden-method",
                        method_text(list_.places[i]) + " follows an empty place and is never asked",
                        set_list("close the gap", list_, list_.places));
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
                  set_list("remove it", list_, methods()));
        } else if (!answers_for(list_.function, method.number)) {
            warning(
                "unsuitable-method",
                method_text(method) + " is not a method for " + list_.function + ": it answers no request",
                set_list("remove it", list_, without(method)));
        } else if (is_remote(method) &&
                   !any_sound(protocol_servers(database_, *protocol_of_method(method.number)))) {
            findings_.push_back({Severity::error, "no-servers",
                                 protocol_servers_path(*protocol_of_method(method.number)),
                                 method_text(method) + " of " + escaped(list_.path()) +
                                     " asks the servers at this path, and there are none",
                                 no_servers_remedy(method)});
        }
        none(i);
        if (std::any_of(methods_.begin(), methods_.begin() + static_cast<ptrdiff_t>(i),
                        [&](const Method &other) { return same(other, method); })) {
            warning("repeated-method", method_text(method) + " is asked twice",
                    set_list("name it once", list_, distinct()));
        }
    }
    void group(const Method &method) {
        if (method.group.empty()) {
            error("dangling-group", "a server group has no name",
                  set_list("name the group, or remove it from the list", list_, methods()));
        } else if (method.configured() == nullptr) {
            error("dangling-group",
                  method_text(method) + " does not exist: clients cannot read this list at all",
                  set_list("create the group, or remove it from the list", list_, methods()));
        }
    }
    std::string no_servers_remedy(const Method &method) const {
        const Protocol &protocol = *protocol_of_method(method.number);
        return set_list("configure a server (aaactl sysdb set --type u32 " + protocol_servers_path(protocol) +
                            "0x1/ADDRESS" + (protocol.is_radius() ? ",1812,1813" : "") +
                            " 1), or remove the method from the list",
                        list_, without(method));
    }
    void none(size_t i) {
        if (methods_[i].number != AAA_METHOD_NONE) {
            return;
        }
        if (i + 1 < methods_.size()) {
            warning("unreachable-method",
                    method_text(methods_[i + 1]) + " follows \"none\", which never passes a request on",
                    set_list("remove the methods after \"none\"", list_, methods(i + 1)));
        }
        if (const std::string open = open_login_text(list_); !open.empty()) {
            const auto first = std::find_if(methods_.begin(), methods_.end(), [](const Method &method) {
                return method.number == AAA_METHOD_NONE;
            });
            if (first == methods_.begin() + static_cast<ptrdiff_t>(i)) {
                warning("open-login", open,
                        set_list("end the list with \"local\" instead", list_, with_local(methods(i))));
            }
        } else if (i > 0 && list_.function == "authentication") {
            warning("open-fallback",
                    "when no method before \"none\" answers, every user is admitted unchecked",
                    set_list("end the list with \"local\" instead", list_, with_local(methods(i))));
        }
    }
    void end() {
        if (std::none_of(methods_.begin(), methods_.end(), [&](const Method &method) {
                return method_works(database_, list_.function, method);
            })) {
            error("ends-in-nothing",
                  "none of its methods can work: " + std::string(consequence_of_failure(list_)),
                  "correct the faults of its methods, or add a method that needs no server");
        } else if (list_.function != "accounting" &&
                   std::all_of(methods_.begin(), methods_.end(), is_remote)) {
            warning("no-fallback",
                    "all of its methods need servers: when none answers, every request is refused",
                    set_list("end the list with a method of this router, such as \"local\"", list_,
                             with_local(methods(kMaxMethods - 1))));
        }
    }

    Database &database_;
    const MethodList &list_;
    Findings &findings_;
    std::span<const Method> methods_;
};

}  // namespace

bool method_works(Database &database, const std::string &function, const Method &method) {
    if (method.is_group()) {
        const Group *group = method.configured();
        return group != nullptr && group->number &&
               any_asked(database, settings_path(*group), group->protocol, group->servers);
    }
    const Protocol *protocol = protocol_of_method(method.number);
    return answers_for(function, method.number) &&
           (protocol == nullptr ||
            any_asked(database, settings_path(*protocol), *protocol, protocol_servers(database, *protocol)));
}

void check_list(Database &database, const MethodList &list, Findings &findings) {
    ListCheck(database, list, findings).run();
}

}  // namespace aaactl
