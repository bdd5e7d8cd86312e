// SPDX-License-Identifier: Apache-2.0
//
// The command line: a tree of commands, their options and arguments. Only
// command_line.cc includes the parser, whose headers take longer to compile
// than a whole command.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/output.hpp"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace aaactl {

// What a command does after the whole command line has been parsed.
using Action = std::function<ExitCode(Output &)>;

// An option, a flag or a positional argument of a command.
class Argument {
  public:
    Argument &required(bool is_required = true);
    // The accepted values; help and completion list them.
    Argument &one_of(const std::vector<std::string> &words);
    Argument &between(int low, int high);
    Argument &between(uint64_t low, uint64_t high);
    // How many values a vector takes; without it, any number.
    Argument &values(int least, int most);
    // A vector takes one value each time the option is given.
    Argument &one_value_each();
    // What help calls the value.
    Argument &type(const std::string &name);
    // Help prints the present value of the variable as the default.
    Argument &shows_default();
    Argument &excludes(const Argument &other);

  private:
    friend class Command;
    explicit Argument(CLI::Option *option) : option_(option) {}

    CLI::Option *option_;
};

// An argument as completion sees it.
struct ArgumentForm {
    std::vector<std::string> names;   // "--output", "-o"; none for a positional argument
    std::string position;             // the name of a positional argument
    bool has_value;                   // false for a flag
    std::vector<std::string> values;  // the accepted values, where one_of() lists them
    bool repeats = false;             // a positional argument that takes several words
};

// A command: a handle, as cheap to copy as a pointer. Names of arguments are "FILE", "--type" or
// "-n,--count". The variables of arguments are filled in before the action runs: bind them to a shared_ptr
// that the action owns.
class Command {
  public:
    // A command below this one that does something.
    Command command(const std::string &name, const std::string &help, Action run);
    // A command that only groups others; one of them is needed.
    Command group(const std::string &name, const std::string &help);

    Argument flag(const std::string &name, bool &value, const std::string &help);
    Argument option(const std::string &name, std::string &value, const std::string &help);
    Argument option(const std::string &name, std::optional<std::string> &value, const std::string &help);
    Argument option(const std::string &name, std::vector<std::string> &value, const std::string &help);
    Argument option(const std::string &name, uint32_t &value, const std::string &help);
    Argument option(const std::string &name, uint64_t &value, const std::string &help);
    Argument option(const std::string &name, const std::function<void(const std::string &)> &take,
                    const std::string &help);
    // Other names, which help does not list: people expect the verbs of one command at all of them.
    Command &also(const std::vector<std::string> &names);
    // What help prints after the options.
    void footer(const std::string &text);

    std::string name() const;
    std::vector<std::string> other_names() const;
    std::vector<Command> commands() const;
    std::vector<ArgumentForm> arguments() const;  // without those of the commands above
    // What --help prints; `path` is the command with those above it.
    std::string help(const std::string &path) const;
    // Whether the parsed command line names it.
    bool was_given() const;

  private:
    friend class CommandLine;
    Command(CLI::App *app, Action *chosen) : app_(app), chosen_(chosen) {}

    CLI::App *app_;
    Action *chosen_;  // of the command that the command line names
};

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The program: the root of the commands.
class CommandLine {
  public:
    CommandLine(const std::string &name, const std::string &version, const std::string &help);
    ~CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    Command root();
    // The action of the command that is named; none when help or the version was asked for, which is printed.
    // UsageError says what is wrong. It may quote the words, with any bytes in them.
    Action parse(int argc, const char *const *argv);

  private:
    std::unique_ptr<CLI::App> app_;
    Action chosen_;
};

}  // namespace aaactl
