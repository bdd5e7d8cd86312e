// SPDX-License-Identifier: Apache-2.0

#include "decision/list_choice.hpp"

#include <string_view>

namespace service {

namespace {

constexpr char kDefault[] = "default";

// While the database has never been usable its lists are not known: every login goes through
// the one fallback list.
std::string fallback_path(const Question &question, const std::string &word) {
    switch (question.function) {
        case Function::kAuthentication:
            return "authentication/login/default";
        case Function::kAuthorization:
            return std::string("authorization/") + (word == "commands" ? "commands" : "exec") + "/default";
        case Function::kAccounting:
            break;
    }
    return "accounting/" + word + "/default";
}

}  // namespace

std::string service_word(Function function, std::uint32_t service) {
    const std::string_view word =
        aaa_service_to_string(static_cast<std::int32_t>(function_number(function)), service);
    if (!word.starts_with('<')) {
        return std::string(word);
    }
    switch (service) {
#define AAA_SERVICE_WORD(number, word) \
    case number:                       \
        return word;
#include "numbers/service_words.def"
        default:
            return "";
    }
}

ListChoice choose_list(const Snapshot &snapshot, const Question &question) {
    ListChoice choice;
    const std::string word = service_word(question.function, question.service);
    if (word.empty()) {
        choice.why = std::string("there are no lists for ") + function_word(question.function) +
                     " of the service " + aaa_print_service(static_cast<std::int32_t>(question.service));
        return choice;
    }
    const std::string name = question.list.empty() ? kDefault : question.list;
    choice.path = snapshot.is_fallback
                      ? fallback_path(question, word)
                      : std::string(function_word(question.function)) + "/" + word + "/" + name;
    const auto found = snapshot.lists.find(choice.path);
    if (found == snapshot.lists.end()) {
        choice.why = "there is no list " + choice.path + "; create it: aaactl mlist set " +
                     function_word(question.function) + " " + word + " " + name + " METHOD...";
    } else if (found->second.methods.empty()) {
        choice.why = "the list " + choice.path + " has no method";
    } else {
        choice.list = &found->second;
    }
    return choice;
}

}  // namespace service
