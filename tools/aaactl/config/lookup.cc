// SPDX-License-Identifier: Apache-2.0

#include "config/lookup.hpp"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "aaa/method_lists.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "config/advice.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

struct FreeWords {
    void operator()(void *words) const { std::free(words); }
};

std::string no_method_text(const MethodList &list) {
    return std::string("no method is tried, ") +
           (list.function == "authentication" ? "not even \"local\": " : "") +
           consequence_of_failed_lookup(list.function);
}

bool has_no_number(const Method &method) {
    return method.is_group() && !method.group_number();
}

// The group at which the lookup ends.
const Method *first_without_number(const MethodList &list) {
    const auto methods = list.methods();
    const auto found = std::find_if(methods.begin(), methods.end(), has_no_number);
    return found != methods.end() ? &*found : nullptr;
}

}  // namespace

ClientView look_up(const MethodList &list) {
    std::string path = list.path().substr(sizeof kConfigRoot - 1);
    uint32_t *words = nullptr;
    ClientView view;
    view.rc = lookup_methods(path.data(), &words);
    const std::unique_ptr<uint32_t, FreeWords> owner(words);
    for (size_t i = 0; view.rc == AAA_OK && i < kMaxMethods && words[i] != AAA_METHOD_NOTSET; ++i) {
        view.methods.push_back(words[i]);
    }
    return view;
}

const char *consequence_of_failure(const MethodList &list) {
    return list.function == "accounting"       ? "nothing is recorded"
           : list.function != "authentication" ? "every request is refused"
           : list.service == "login" && list.name == "default"
               ? "no login succeeds with it, and aaad does not use such a configuration: it goes on with the "
                 "one before, or the fallback of aaad.conf"
               : "every login that uses it is refused";
}

const char *consequence_of_failed_lookup(const std::string &function) {
    return function == "accounting"
               ? "programs that ask the library record nothing; aaad reads the list itself"
           : function == "authentication"
               ? "programs that ask the library refuse every login; aaad reads the list itself"
               : "programs that ask the library refuse every request; aaad reads the list itself";
}

std::string failure_text(const MethodList &list, cerrno rc) {
    const Method *group = first_without_number(list);
    const std::string why = group == nullptr ? escaped(cerr_strerror(rc))
                                             : "the server group \"" + escaped(group->group) +
                                                   "\" has no number (" + escaped(cerr_strerror(rc)) + ")";
    return "the lookup fails: " + why + "; " + no_method_text(list);
}

NumberFault number_fault(const MethodList &list) {
    const auto methods = list.methods();
    for (size_t i = 0; i < methods.size(); ++i) {
        const Method &method = methods[i];
        const auto number = method.group_number();
        if (!method.is_group() || !number) {
            continue;
        }
        const std::string group = "server group \"" + escaped(method.group) + "\"";
        if (*number == AAA_METHOD_NOTSET) {
            return {i == 0,
                    "the number of " + group + " is 0, which ends the list: " +
                        (i == 0 ? no_method_text(list) : "neither it nor a method that follows it is tried")};
        }
        if (method.resolved->protocol.number == AAA_KW_DIAMETER) {
            continue;  // its numbers are not looked up
        }
        const std::unique_ptr<char, FreeWords> name(aaa_util_lookup_sg_name(*number));
        if (!name) {
            const bool is_lock_out = methods.size() == 1;
            return {is_lock_out,
                    "the number " + std::to_string(*number) + " of " + group +
                        " leads to no group, so none of its servers is asked" +
                        (is_lock_out ? ": " + std::string(consequence_of_failed_lookup(list.function)) : "")};
        }
        if (method.group != name.get()) {
            return {false, "the number " + std::to_string(*number) + " of " + group +
                               " leads to the server group \"" + escaped(name.get()) +
                               "\": programs ask that one instead"};
        }
    }
    return {};
}

std::string failure_remedy(const MethodList &list) {
    const auto methods = list.methods();
    const bool all_exist = std::all_of(methods.begin(), methods.end(), [](const Method &method) {
        return !method.is_group() || method.configured() != nullptr;
    });
    if (!all_exist) {
        return set_list("create the groups, or remove them from the list", list,
                        {methods.begin(), methods.end()});
    }
    const auto unreadable = std::find_if(methods.begin(), methods.end(), [](const Method &method) {
        return method.is_group() && !method.configured()->number_defect.empty();
    });
    if (unreadable != methods.end()) {
        return renumber_group("give the group another number", *unreadable->configured());
    }
    return std::any_of(methods.begin(), methods.end(), has_no_number)
               ? "number all server groups: aaactl sg publish"
               : "correct the other faults of the list";
}

}  // namespace aaactl
