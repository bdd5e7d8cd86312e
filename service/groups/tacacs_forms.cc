// SPDX-License-Identifier: Apache-2.0

#include "groups/tacacs_forms.hpp"

#include <algorithm>
#include <charconv>
#include <limits>

#include "groups/request_kind.hpp"
#include "groups/server_text.hpp"

namespace service {

namespace {

tacacs::Method method_of(std::uint32_t method) {
    switch (method) {
        case AAA_METHOD_NONE:
            return tacacs::Method::kNone;
        case AAA_METHOD_LOCAL:
            return tacacs::Method::kLocal;
        case AAA_METHOD_LINE:
            return tacacs::Method::kLine;
        case AAA_METHOD_ENABLE:
            return tacacs::Method::kEnable;
        case AAA_METHOD_KERBEROS5:
            return tacacs::Method::kKerberos5;
        case AAA_METHOD_RADIUS:
            return tacacs::Method::kRadius;
        case AAA_METHOD_TACACSPLUS:
            return tacacs::Method::kTacacs;
        default:
            return tacacs::Method::kNotSet;
    }
}

tacacs::Service service_of(std::uint32_t service) {
    return service == AAA_SVC_PPP ? tacacs::Service::kPpp : tacacs::Service::kLogin;
}

std::uint8_t privilege_of(const std::optional<std::uint32_t> &privilege) {
    return static_cast<std::uint8_t>(std::min(privilege.value_or(1), kHighestPrivilege));
}

void add_command(const std::string &command, std::vector<std::string> &arguments) {
    const char *name = "cmd=";
    for (std::size_t at = 0; at < command.size();) {
        const std::size_t begin = command.find_first_not_of(' ', at);
        if (begin == std::string::npos) {
            break;
        }
        const std::size_t end = std::min(command.find(' ', begin), command.size());
        arguments.push_back(name + command.substr(begin, end - begin));
        name = "cmd-arg=";
        at = end;
    }
}

std::vector<std::string> service_arguments(std::uint32_t service, const std::optional<std::string> &command) {
    std::vector<std::string> arguments = {service == AAA_SVC_PPP ? "service=ppp" : "service=shell"};
    const std::size_t without = arguments.size();
    if (command) {
        add_command(*command, arguments);
    }
    if (arguments.size() == without && service != AAA_SVC_PPP) {
        arguments.push_back("cmd=");  // the shell itself
    }
    return arguments;
}

std::optional<std::uint32_t> number_in_text(std::string_view text, std::uint32_t most) {
    std::uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number <= most ? std::optional(number) : std::nullopt;
}

// What can be done with an argument of a permission.
enum class Applied : std::uint8_t { kYes, kNotKnown, kNotValid };

Applied apply(const tacacs::Argument &argument, Outcome &outcome) {
    const auto add = [&](std::uint32_t type, std::string value) {
        outcome.attributes.push_back({type, std::move(value)});
        return Applied::kYes;
    };
    const auto add_number = [&](std::uint32_t type, std::uint32_t factor) {
        const auto number =
            number_in_text(argument.value, std::numeric_limits<std::uint32_t>::max() / factor);
        if (!number) {
            return Applied::kNotValid;
        }
        const std::uint32_t value = *number * factor;
        return add(type, std::string(reinterpret_cast<const char *>(&value), sizeof value));
    };
    constexpr std::uint32_t kMinute = 60;
    if (argument.name == "priv-lvl") {
        outcome.privilege = number_in_text(argument.value, kHighestPrivilege);
        return outcome.privilege ? Applied::kYes : Applied::kNotValid;
    }
    if (argument.name == "timeout") {  // of the session, in minutes (RFC 8907, 8.2), here in seconds
        return add_number(AAA_TIMEOUT_ATTR, kMinute);
    }
    if (argument.name == "idletime") {
        return add_number(AAA_IDLETIME_ATTR, kMinute);
    }
    if (argument.name == "autocmd") {
        return add(AAA_AUTOCMD_ATTR, std::string(argument.value) + '\0');
    }
    if (argument.name == "group") {
        return add(AAA_USERGROUPS_ATTR, std::string(argument.value) + '\0');
    }
    if (argument.name == "task-group") {
        return add(AAA_TASKGROUP_ATTR, std::string(argument.value) + '\0');
    }
    return Applied::kNotKnown;
}

bool says_what_is_run(std::string_view name) {
    return name == "service" || name == "cmd" || name == "cmd-arg" || name == "protocol";
}

// Those that say what is run, with '=' whatever the server wrote.
std::vector<std::string> what_is_run(const std::vector<std::string> &arguments) {
    std::vector<std::string> run;
    for (const std::string &text : arguments) {
        const auto argument = tacacs::split(text);
        if (argument && says_what_is_run(argument->name)) {
            run.push_back(std::string(argument->name) + "=" + std::string(argument->value));
        }
    }
    return run;
}

Outcome refuse(std::string why) {
    return Outcome::fail("permission, taken for a refusal: " + std::move(why));
}

}  // namespace

tacacs::Subject tacacs_subject(const Question &question) {
    tacacs::Subject subject;
    subject.user = question.user;
    subject.port = question.terminal;
    subject.remote_address = question.remote;
    const bool enable = question.function == Function::kAuthentication && is_enable(question);
    subject.privilege = enable ? privilege_of(wanted_privilege(question)) : privilege_of(question.privilege);
    subject.service = enable ? tacacs::Service::kEnable : service_of(question.service);
    subject.method = method_of(question.authenticated_by);
    return subject;
}

tacacs::Subject tacacs_subject(const AccountingRecord &record) {
    tacacs::Subject subject;
    subject.user = record.user;
    subject.port = record.terminal;
    subject.remote_address = record.remote;
    subject.privilege = privilege_of(record.privilege);
    subject.service = service_of(record.service);
    subject.method = method_of(record.method);
    return subject;
}

std::vector<std::string> tacacs_rights_asked(const Question &question) {
    return service_arguments(question.service, question.command);
}

std::vector<std::string> tacacs_record(const AccountingRecord &record) {
    using Kind = AccountingRecord::Kind;
    std::vector<std::string> arguments = {"task_id=" + std::to_string(record.session)};
    if (record.start != 0 || record.kind == Kind::kStart) {
        arguments.push_back("start_time=" + std::to_string(record.start != 0 ? record.start : record.time));
    }
    if (record.kind == Kind::kStop) {
        arguments.push_back("stop_time=" + std::to_string(record.time));
    }
    if (record.elapsed && record.kind != Kind::kStart) {
        arguments.push_back("elapsed_time=" + std::to_string(*record.elapsed));
    }
    for (std::string &argument : service_arguments(record.service, record.command)) {
        if (argument != "cmd=") {
            arguments.push_back(std::move(argument));
        }
    }
    if (record.privilege) {
        arguments.push_back("priv-lvl=" + std::to_string(*record.privilege));
    }
    return arguments;
}

std::string tacacs_misfit(const tacacs::Subject &subject, const std::vector<std::string> &arguments) {
    tacacs::SecretBytes scratch;
    return tacacs::append_authorization(subject, arguments, scratch);
}

Outcome tacacs_rights(const tacacs::AuthorizationOutcome &answer, const std::vector<std::string> &asked) {
    if (answer.status == tacacs::AuthorizationStatus::kFail) {
        return Outcome::fail("refused");
    }
    const bool replaces = answer.status == tacacs::AuthorizationStatus::kPassReplace;
    Outcome outcome = Outcome::pass(replaces ? "allowed, with other arguments" : "allowed");
    const std::vector<std::string> run = what_is_run(answer.arguments);
    const std::vector<std::string> wanted = what_is_run(asked);
    const auto is_wanted = [&](const std::string &text) {
        return std::find(wanted.begin(), wanted.end(), text) != wanted.end();
    };
    // A server that changes only other arguments need not repeat these.
    if (!run.empty() && (replaces ? run != wanted : !std::all_of(run.begin(), run.end(), is_wanted))) {
        return refuse("the server changes the command, and another one is not run instead");
    }
    for (const std::string &text : answer.arguments) {
        const auto argument = tacacs::split(text);
        if (!argument || says_what_is_run(argument->name)) {
            continue;
        }
        const Applied applied = apply(*argument, outcome);
        if (applied == Applied::kNotValid) {
            return refuse("the server's argument \"" + text_for_log(text) + "\" has no valid value");
        }
        if (applied == Applied::kNotKnown && argument->is_mandatory) {
            return refuse("the server demands \"" + text_for_log(text) +
                          "\", which is not known here; have it send the argument with '*' instead of '='");
        }
    }
    return outcome;
}

}  // namespace service
