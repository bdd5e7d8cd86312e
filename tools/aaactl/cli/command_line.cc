// SPDX-License-Identifier: Apache-2.0
//
// The command line in terms of CLI11.

#include "cli/command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <iostream>
#include <sstream>

#include "cli/suggestion.hpp"

namespace aaactl {
namespace {

// The accepted values are in braces after the type's name: "KIND:{auto,list}".
std::vector<std::string> words_in_braces(const std::string &type) {
    const size_t begin = type.find('{');
    const size_t end = type.find('}', begin);
    std::vector<std::string> words;
    for (size_t at = begin; at != std::string::npos && end != std::string::npos && at < end;) {
        const size_t next = std::min(type.find(',', at + 1), end);
        words.push_back(type.substr(at + 1, next - at - 1));
        at = next;
    }
    return words;
}

constexpr size_t kMostChoices = 8;  // of more, the notes of the command have a table

// "auto, text or json"; "" if the description names them.
std::string choices(const CLI::Option &option) {
    const std::vector<std::string> words = words_in_braces(option.get_type_name());
    const bool are_named = std::all_of(words.begin(), words.end(), [&](const std::string &word) {
        return option.get_description().find(word) != std::string::npos;
    });
    std::string text;
    for (size_t i = 0; !are_named && words.size() <= kMostChoices && i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
    }
    return text;
}

// "0 to 86400", of a type such as "SECONDS:INT in [0 - 86400]"; "at least 1" without a limit of its own.
std::string range(const std::string &type) {
    const size_t begin = type.find(" in [");
    const size_t hyphen = type.find(" - ", begin);
    const size_t end = type.find(']', begin);
    if (begin == std::string::npos || hyphen == std::string::npos || end == std::string::npos) {
        return "";
    }
    const std::string least = type.substr(begin + 5, hyphen - begin - 5);
    const std::string most = type.substr(hyphen + 3, end - hyphen - 3);
    const bool is_limit = most != std::to_string(UINT32_MAX) && most != std::to_string(UINT64_MAX);
    return is_limit ? least + " to " + most : "at least " + least;
}

// An argument of several words is NAME..., for any limit; CLI11 has "(1x)" for "one to four". What CLI11
// prints between an option and its description, such as "SECONDS:INT in [0 - 86400]=30 Excludes: --all", is
// the name of the value, and the rest follows the description.
class UsageLine : public CLI::Formatter {
    [[nodiscard]] std::string make_option_opts(const CLI::Option *option) const override {
        if (!option->nonpositional() || option->get_type_size() == 0) {
            return "";
        }
        const std::string type = option->get_type_name();
        return " " + type.substr(0, type.find(':')) + (option->get_expected_max() > 1 ? "..." : "");
    }
    [[nodiscard]] std::string make_option_desc(const CLI::Option *option) const override {
        std::vector<std::string> notes{choices(*option), range(option->get_type_name())};
        if (option->nonpositional() && option->get_required()) {
            notes.emplace_back("required");
        }
        if (!option->get_default_str().empty()) {
            notes.push_back("default " + option->get_default_str());
        }
        for (const CLI::Option *other : option->get_excludes()) {
            notes.push_back("not with " + other->get_name());
        }
        std::string text;
        for (const std::string &note : notes) {
            text += (note.empty() || text.empty() ? "" : "; ") + note;
        }
        return option->get_description() + (text.empty() ? "" : " (" + text + ")");
    }
    [[nodiscard]] std::string make_option_usage(const CLI::Option *option) const override {
        const std::string words = option->get_name(true) + (option->get_expected_max() > 1 ? "..." : "");
        return option->get_required() ? words : "[" + words + "]";
    }
    // Without other names: the manual and the completion have one.
    [[nodiscard]] std::string make_subcommand(const CLI::App *sub) const override {
        std::stringstream out;
        CLI::detail::format_help(out, sub->get_name(), sub->get_description(), column_width_);
        return out.str();
    }
};

ArgumentForm form_of(const CLI::Option &option) {
    ArgumentForm form{{},
                      option.get_name(true),
                      option.get_expected_max() > 0,
                      words_in_braces(option.get_type_name()),
                      option.get_expected_max() > 1};
    for (const std::string &name : option.get_lnames()) {
        form.names.push_back("--" + name);
    }
    for (const std::string &name : option.get_snames()) {
        form.names.push_back("-" + name);
    }
    return form;
}

// The command that was given, as far as it is known.
// The words that may be where the unknown one is: commands, or options, of the program and of each command
// that was given. "mlsit show" is a command "show" with an unknown word before it.
std::vector<std::string> words_like(const CLI::App &app, bool is_option) {
    std::vector<std::string> words;
    if (is_option) {
        for (const CLI::Option *option : app.get_options()) {
            for (const std::string &name : option->get_lnames()) {
                words.push_back("--" + name);
            }
        }
    } else {
        for (const CLI::App *sub : app.get_subcommands([](const CLI::App *) { return true; })) {
            words.push_back(sub->get_name());
        }
    }
    for (const CLI::App *given : app.get_subcommands()) {
        const std::vector<std::string> below = words_like(*given, is_option);
        words.insert(words.end(), below.begin(), below.end());
    }
    return words;
}

// A mistyped command is the reason for the command that is missing.
std::string reason(const CLI::App &app, const CLI::ParseError &error) {
    const auto unknown = app.remaining(true);
    const bool missing = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
    if (unknown.empty() || !(missing || dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr)) {
        return error.what();
    }
    const std::string &word = unknown.front();
    return (missing ? "The following argument was not expected: " + word : error.what()) +
           did_you_mean(word, words_like(app, word.starts_with('-')));
}

}  // namespace

Argument &Argument::required(bool is_required) {
    option_->required(is_required);
    return *this;
}

Argument &Argument::one_of(const std::vector<std::string> &words) {
    // The name in braces is what help and words_in_braces() read.
    std::string braces;
    for (const std::string &word : words) {
        braces += (braces.empty() ? "{" : ",") + word;
    }
    option_->check(CLI::Validator(
        [words](const std::string &given) {
            const bool known = std::find(words.begin(), words.end(), given) != words.end();
            return known ? std::string() : "\"" + given + "\" is unknown" + suggestion(given, words);
        },
        braces + "}"));
    return *this;
}

Argument &Argument::between(int low, int high) {
    option_->check(CLI::Range(low, high));
    return *this;
}

Argument &Argument::between(uint64_t low, uint64_t high) {
    option_->check(CLI::Range(low, high));
    return *this;
}

Argument &Argument::values(int least, int most) {
    option_->expected(least, most);
    return *this;
}

Argument &Argument::one_value_each() {
    option_->allow_extra_args(false);
    return *this;
}

Argument &Argument::type(const std::string &name) {
    option_->type_name(name);
    return *this;
}

Argument &Argument::shows_default() {
    option_->capture_default_str();
    return *this;
}

Argument &Argument::excludes(const Argument &other) {
    option_->excludes(other.option_);
    return *this;
}

Command Command::command(const std::string &name, const std::string &help, Action run) {
    CLI::App *sub = app_->add_subcommand(name, help);
    sub->final_callback([chosen = chosen_, run = std::move(run)] { *chosen = run; });
    return {sub, chosen_};
}

Command Command::group(const std::string &name, const std::string &help) {
    CLI::App *sub = app_->add_subcommand(name, help);
    sub->require_subcommand(1);
    return {sub, chosen_};
}

Argument Command::flag(const std::string &name, bool &value, const std::string &help) {
    return Argument(app_->add_flag(name, value, help));
}

Argument Command::option(const std::string &name, std::string &value, const std::string &help) {
    return Argument(app_->add_option(name, value, help));
}

Argument Command::option(const std::string &name, std::optional<std::string> &value,
                         const std::string &help) {
    return option(
        name, [&value](const std::string &given) { value = given; }, help);
}

Argument Command::option(const std::string &name, std::vector<std::string> &value, const std::string &help) {
    return Argument(app_->add_option(name, value, help));
}

Argument Command::option(const std::string &name, uint32_t &value, const std::string &help) {
    return Argument(app_->add_option(name, value, help));
}

Argument Command::option(const std::string &name, uint64_t &value, const std::string &help) {
    return Argument(app_->add_option(name, value, help));
}

Argument Command::option(const std::string &name, const std::function<void(const std::string &)> &take,
                         const std::string &help) {
    return Argument(app_->add_option_function<std::string>(name, take, help));
}

Command &Command::also(const std::vector<std::string> &names) {
    for (const std::string &name : names) {
        app_->alias(name);
    }
    return *this;
}

void Command::footer(const std::string &text) {
    app_->footer(text);
}

std::string Command::name() const {
    return app_->get_name();
}

std::vector<std::string> Command::other_names() const {
    return app_->get_aliases();
}

std::vector<Command> Command::commands() const {
    std::vector<Command> all;
    for (CLI::App *sub : app_->get_subcommands([](const CLI::App *) { return true; })) {
        all.push_back({sub, chosen_});
    }
    return all;
}

std::vector<ArgumentForm> Command::arguments() const {
    std::vector<ArgumentForm> all;
    for (const CLI::Option *option : app_->get_options()) {
        all.push_back(form_of(*option));
    }
    return all;
}

std::string Command::help(const std::string &path) const {
    // App::help() would print that of the command that the command line names.
    return app_->get_formatter()->make_help(app_, path, CLI::AppFormatMode::Normal);
}

bool Command::was_given() const {
    return app_->parsed();
}

CommandLine::CommandLine(const std::string &name, const std::string &version, const std::string &help)
    : app_(std::make_unique<CLI::App>(help, name)) {
    app_->formatter(std::make_shared<UsageLine>());  // inherited by the commands
    app_->require_subcommand(1);
    app_->fallthrough();  // global options may follow a command's name
    app_->set_version_flag("-V,--version", name + " " + version);
    app_->set_help_all_flag("--help-all", "Print the help of every command and exit");
}

CommandLine::~CommandLine() = default;

Command CommandLine::root() {
    return {app_.get(), &chosen_};
}

Action CommandLine::parse(int argc, const char *const *argv) {
    try {
        app_->parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() != 0) {
            throw UsageError(reason(*app_, error));
        }
        app_->exit(error);  // prints help or the version
        std::cout.flush();
        return nullptr;
    }
    return chosen_;
}

}  // namespace aaactl
