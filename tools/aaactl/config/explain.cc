// SPDX-License-Identifier: Apache-2.0
//
// explain: how a request for a service is answered, step by step.

#include <cctype>
#include <memory>

#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "cli/commands.hpp"
#include "cli/suggestion.hpp"
#include "config/explanation.hpp"
#include "dictionary/enum_words.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

using Step = Explanation::Step;

// ---- words

}  // namespace

std::string step_word(const Step &step) {
    return step.method.is_group() ? "server group " + escaped(step.method.group)
                                  : method_word(step.method.number);
}

namespace {

std::string group_meaning(const Method &method) {
    const auto number = method.group_number();
    const bool known = number || method.configured() != nullptr;
    return std::string(known ? method.resolved->protocol.word : "not configured") +
           (number ? ", number " + std::to_string(*number) : ", no number");
}

}  // namespace

std::string step_meaning(const Explanation &e, const Step &step) {
    const bool accounting = e.service.function == AAA_FUNC_ACCT;
    switch (step.method.number) {
        case AAA_METHOD_SERVER_GROUP:
            return group_meaning(step.method);
        case AAA_METHOD_NONE:
            return accounting ? "nothing is recorded, and that counts as done"
                              : "no one is asked: every request is accepted";
        case AAA_METHOD_LOCAL:
            return "the users of this router";
        case AAA_METHOD_RADIUS:
            return "every RADIUS server without a group";
        case AAA_METHOD_TACACSPLUS:
            return "every TACACS+ server without a group";
        case AAA_METHOD_IF_AUTHEN:
            return "accepts authenticated users";
        case AAA_METHOD_LINE:
            return "the password of the line";
        case AAA_METHOD_ENABLE:
            return "the enable password";
        case AAA_METHOD_KERBEROS5:
            return "Kerberos 5";
        case AAA_METHOD_SYSLOG:
            return "the system log";
        default:
            return "not a method of lists";
    }
}

namespace {

// A method that asks no one never refuses and always answers.
bool always_answers(const Step &step) {
    return step.method.number == AAA_METHOD_NONE;
}

}  // namespace

bool is_kept_on_disk(const Explanation &e, const Step &step) {
    return e.service.function == AAA_FUNC_ACCT && step.works && !step.servers.empty();
}

std::string on_refusal(const Explanation &e, const Step &step) {
    if (is_kept_on_disk(e, step)) {
        return "aaad sends the record again, and sets it aside when it can never be delivered";
    }
    return e.service.function == AAA_FUNC_ACCT ? "the record is not kept; no further step is asked"
                                               : "the request is refused; no further step is asked";
}

std::string on_silence(const Explanation &e, size_t i) {
    if (is_kept_on_disk(e, e.reached()[i])) {
        return "aaad keeps the record on disk and delivers it later; " +
               (i + 1 < e.reached().size()
                    ? "step " + std::to_string(i + 2) + ", " + step_word(e.reached()[i + 1]) +
                          ", is asked only when it cannot be kept"
                    : "it is lost only when it cannot be kept") +
               " (aaad.conf: journal)";
    }
    if (i + 1 < e.reached().size()) {
        return "step " + std::to_string(i + 2) + ", " + step_word(e.reached()[i + 1]);
    }
    return e.service.function == AAA_FUNC_ACCT ? "no step is left: the record is lost"
                                               : "no step is left: the request is refused";
}

namespace {

std::string server_words(const Server &server, KeyState key) {
    std::string text = escaped(server.host);
    for (size_t i = 0; i < server.ports.size(); ++i) {
        text += (i == 0 ? (server.ports.size() > 1 ? "  ports " : "  port ") : ", ") +
                std::to_string(server.ports[i]);
    }
    return text + (server.is_private ? "  private" : "") +
           (is_sound(server) && !is_asked_with(key) ? "  (not asked: " + std::string(key_text(key)) + ")"
                                                    : "") +
           (server.defect.empty() ? "" : "  (not usable: " + server.defect + ")");
}

const char *chosen_by(ChosenBy by) {
    return by == ChosenBy::name ? "name" : by == ChosenBy::line ? "line" : "default";
}

// ---- JSON

Json servers_json(const Step &step) {
    Json all = Json::array();
    for (size_t n = 0; n < step.servers.size(); ++n) {
        const Server &server = step.servers[n];
        Json one = {{"ordinal", server.index},
                    {"host", escaped(server.host)},
                    {"ports", server.ports},
                    {"private", server.is_private},
                    {"key", key_word(step.keys[n].state)}};
        if (!server.defect.empty()) {
            one["defect"] = server.defect;
        }
        all.push_back(std::move(one));
    }
    return all;
}

Json step_json(const Explanation &e, size_t i) {
    const Step &step = e.reached()[i];
    Json document = {
        {"step", i + 1}, {"method", step.method.number}, {"name", method_word(step.method.number)}};
    if (step.method.is_group()) {
        const Group *group = step.method.configured();
        const auto number = step.method.group_number();
        document["name"] = "server group";
        document["group"] = {{"name", escaped(step.method.group)},
                             {"protocol", group != nullptr ? Json(group->protocol.word) : Json()},
                             {"number", number ? Json(*number) : Json()}};
    }
    document["servers"] = servers_json(step);
    document["works"] = step.works;
    document["on_refusal"] = always_answers(step) || !step.works ? Json() : Json(on_refusal(e, step));
    document["on_no_answer"] = Json();
    if (!always_answers(step)) {
        document["on_no_answer"] = {{"next_step", i + 1 < e.reached().size() ? Json(i + 2) : Json()},
                                    {"text", on_silence(e, i)}};
    }
    return document;
}

Json to_json(const Explanation &e) {
    Json steps = Json::array();
    for (size_t i = 0; i < e.reached().size(); ++i) {
        steps.push_back(step_json(e, i));
    }
    Json document = {{"function", e.function()},
                     {"service",
                      {{"word", escaped(e.service.word)},
                       {"number", e.service.service ? Json(*e.service.service) : Json()}}}};
    document["line"] = e.line.empty() ? Json() : Json{{"name", escaped(e.line)}, {"kind", line_kind(e.line)}};
    document["list"] = {{"name", escaped(e.choice.list)},
                        {"path", escaped(e.list.path())},
                        {"chosen_by", chosen_by(e.choice.by)},
                        {"why", e.choice.why},
                        {"row", e.choice.rule.empty() ? Json() : Json(escaped(e.choice.rule))},
                        {"configured", e.configured},
                        {"exists", e.exists()}};
    document["client"] = {
        {"code", e.client.rc}, {"text", escaped(cerr_strerror(e.client.rc))}, {"methods", e.client.methods}};
    document["tried"] = e.exists() && e.is_tried();
    document["steps"] = std::move(steps);
    Json others = Json::array();
    for (const std::string &name : e.others) {
        others.push_back(escaped(name));
    }
    document["lists_of_service"] = std::move(others);
    document["findings"] = findings_json(e.findings);
    return document;
}

// ---- text

void print_step(Output &out, const Explanation &e, size_t i) {
    const Step &step = e.reached()[i];
    out.line("");
    out.line(out.styled(Style::strong, std::to_string(i + 1) + ". " + step_word(step)) + "  (" +
             step_meaning(e, step) + ")");
    for (size_t n = 0; n < step.servers.size(); ++n) {
        out.line("     " + std::to_string(step.servers[n].index) + "  " +
                 server_words(step.servers[n], step.keys[n].state));
    }
    if (always_answers(step)) {
        return;
    }
    if (!step.works) {
        out.line(out.styled(Style::bad, "   cannot answer:      ") + on_silence(e, i));
        return;
    }
    const bool servers = !step.servers.empty();
    out.line(std::string(servers ? "   a server refuses:   " : "   refuses:            ") +
             on_refusal(e, step));
    out.line(std::string(servers ? "   no server answers:  " : "   does not answer:    ") + on_silence(e, i));
}

void print_head(Output &out, const Explanation &e) {
    out.line(out.styled(Style::strong, e.function() + " of " + escaped(e.service.word)) +
             (e.line.empty() ? ""
                             : " on line " + escaped(e.line) +
                                   (line_kind(e.line).empty() ? "" : " (" + line_kind(e.line) + ")")));
    out.line("list:  " + out.styled(Style::strong, escaped(e.choice.list)) + ", because " + e.choice.why);
    out.line("path:  " + escaped(e.list.path()) +
             (e.configured || !e.exists() ? "" : " (not configured; the library supplies the list)"));
}

// Why no step is reached.
std::string untried(const Explanation &e) {
    if (e.client.rc == AAA_OK && e.suits == AAA_OK) {
        return number_fault(e.list).text;
    }
    return e.client.rc != AAA_OK ? failure_text(e.list, e.client.rc)
                                 : "the library refuses the list for this service; no method is tried: " +
                                       std::string(consequence_of_failed_lookup(e.function()));
}

std::string capital(std::string text) {
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

std::string meant(const Explanation &e) {
    const std::string word = nearest_word(e.choice.list, e.others);
    return word.empty() ? "" : " (did you mean " + escaped(word) + "?)";
}

void print_explanation(Output &out, const Explanation &e) {
    print_head(out, e);
    if (!e.exists()) {
        std::string others;
        for (const std::string &name : e.others) {
            others += (others.empty() ? "" : ", ") + escaped(name);
        }
        out.line("");
        out.line(out.styled(Style::bad, "There is no such list: ") +
                 (others.empty() ? "the service has none." : "the service has " + others + meant(e) + "."));
        out.line(std::string("A client gets: ") + escaped(cerr_strerror(e.client.rc)));
        return;
    }
    if (!e.is_tried()) {
        out.line("");
        out.line(out.styled(Style::bad, capital(untried(e))) + ".");
    } else if (const std::string effect = number_fault(e.list).text; !effect.empty()) {
        out.line("");
        out.line(out.styled(Style::bad, capital(effect)) + ".");
    }
    for (size_t i = 0; i < e.reached().size(); ++i) {
        print_step(out, e, i);
    }
    out.line("");
    print_findings(out, e.findings);
    if (e.findings.empty()) {
        out.line(out.styled(Style::good, "Nothing is missing."));
    }
}

ExitCode explain(Output &out, const ExplainOptions &options) {
    Database database(Database::Use::reading);
    const Explanation e = make_explanation(database, options);
    out.result(to_json(e), [&] { print_explanation(out, e); });
    if (!e.exists()) {
        return ExitCode::not_found;
    }
    return count(e.findings, Severity::error) > 0 ? ExitCode::negative : ExitCode::ok;
}

}  // namespace

void add_explain(Command root) {
    auto options = std::make_shared<ExplainOptions>();
    Command sub = root.command("explain", "Say step by step how requests for a service are answered",
                               [options](Output &out) { return explain(out, *options); });
    sub.option("FUNCTION", options->function, "authentication, authorization or accounting")
        .required()
        .one_of({"authentication", "authorization", "accounting"});
    sub.option("SERVICE", options->service,
               "Service by name or number, or the word of its lists: login, exec, commands, ...")
        .required();
    sub.option("--list", options->list, "The method list that the request names").type("NAME");
    sub.option("--line", options->line, "The line that the request comes from").type("TTY");
    sub.footer(
        "A method that refuses ends a request; one that does not answer passes it on to the next.\n"
        "What is said of a lookup holds for programs that ask the library. aaad reads lists itself: it "
        "skips\n"
        "a group that does not exist, and numbers groups when it starts.\n"
        "Exit status: 0 nothing is missing, 1 something is missing or dangling, 4 there is no such list, 5 "
        "no database.\n"
        "JSON: {function, service: {word, number}, line: {name, kind}, list: {name, path, chosen_by: "
        "name|line|default,\n"
        "why, row, configured, exists}, client: {code, text, methods}, tried, steps: [{step, method, name, "
        "group: "
        "{name,\n"
        "protocol, number}, servers: [{ordinal, host, ports, private, key}], works, on_refusal, "
        "on_no_answer: "
        "{next_step,\n"
        "text}}], lists_of_service, findings: [{severity, code, path, text, remedy}]}; null for a missing "
        "value,\nof a server \"defect\" if there is one\n"
        "Example: aaactl explain authentication login --line pts/3");
}

}  // namespace aaactl
