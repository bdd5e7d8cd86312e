// SPDX-License-Identifier: Apache-2.0
//
// Prints results, failures and progress: as text for people, or as one JSON
// document per run. Bytes from outside pass through escaped(), so that a peer
// cannot control the terminal on which its message is shown.

#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/types.h"
#include "cli/exit_codes.hpp"
#include "cli/json.hpp"

namespace aaactl {

// Ends a command with a message and an exit status.
class Failure : public std::exception {
  public:
    Failure(ExitCode code, std::string message) : code_(code), message_(std::move(message)) {}
    // For a result code of the library or the platform; `what` names the failed operation.
    Failure(std::string_view what, cerrno rc);
    Failure(ExitCode code, std::string_view what, cerrno rc);

    // For such a code whose meaning the message says in its own words.
    struct Verbatim {};
    Failure(ExitCode code, std::string message, cerrno rc, Verbatim)
        : code_(code), message_(std::move(message)), rc_(rc) {}

    ExitCode code() const { return code_; }
    cerrno rc() const { return rc_; }
    const char *what() const noexcept override { return message_.c_str(); }

    // A copy with the results so far, as further members of the failure's JSON document.
    Failure with(const Json &document) const;
    const Json *document() const { return document_.get(); }

  private:
    ExitCode code_;
    std::string message_;
    cerrno rc_ = 0;
    std::shared_ptr<const Json> document_;
};

// The exit status for a result code.
ExitCode exit_code_of(cerrno rc);

enum class Colour { automatic, always, never };

struct OutputOptions {
    bool json = false;
    bool show_secrets = false;
    Colour colour = Colour::automatic;
};

enum class Style { plain, strong, dim, good, bad, warning };

// Text with every byte outside of printable ASCII, and the backslash, as \xNN,
// \n, \t, \r or \\. Valid UTF-8 beyond ASCII is kept, unless `ascii_only` or when a
// reader would not see the character (cli/hidden_characters.hpp).
std::string escaped(std::string_view bytes, bool ascii_only = false);

// Two lower-case digits a byte.
std::string hex(std::string_view bytes);

// ---- error lines of the platform and the library

// Keeps a line of an error until the command has ended, and drops other lines. With AAA_LOG=stderr these are
// written; with another AAA_LOG all lines go where it says. False for a line that is to be written. From any
// thread; allocates nothing.
bool take_log_line(uint32_t severity, std::string_view line) noexcept;
bool has_log_lines();
// For errors that a command expects and says in its own words.
void forget_log_lines();
// Those of the command's thread that no failure has taken, on standard error.
void print_log_lines();

// Printed in place of a secret.
inline constexpr std::string_view kMask = "********";

class Output {
  public:
    explicit Output(const OutputOptions &options);

    bool json() const { return options_.json; }
    bool show_secrets() const { return options_.show_secrets; }

    // The result of a command: the document with --json, else what `text` prints.
    void result(const Json &document, const std::function<void()> &text);

    // Prints one line of text to standard output, unchanged: escape text from outside.
    void line(std::string_view text);
    // Columns as wide as their widest cell; no trailing spaces. An empty header prints none.
    void table(const std::vector<std::string> &header, const std::vector<std::vector<std::string>> &rows);
    // The text in a colour, if standard output has colours.
    std::string styled(Style style, std::string_view text) const;
    // The mask; with --show-secrets the secret itself, escaped.
    std::string secret(std::string_view bytes) const;

    // One document a line with --json, for commands that report as they go (watch).
    void event(const Json &document, const std::function<void()> &text);
    // Whether output was lost: a command that runs on then ends, and the exit status reports it.
    bool is_lost() const;

    // A line on standard error that the next one replaces; printed on a terminal only.
    void progress(std::string_view text);
    void end_progress();
    // A remark for a person at a terminal on what can be done next; not with --json.
    void hint(std::string_view text);
    // A remark on standard error.
    void note(std::string_view text);

    void failure(const Failure &failure);

  private:
    OutputOptions options_;
    bool coloured_;
    bool error_is_terminal_;
    bool progress_shown_ = false;
};

}  // namespace aaactl
