// SPDX-License-Identifier: Apache-2.0
//
// How results, failures and progress are shown: as text for people, or as one
// JSON document per run. Bytes that came from elsewhere pass through escaped(),
// so that no peer writes to the terminal of who looks at its message.

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

// Ends a command: what went wrong, for whom, and the exit status that says so.
class Failure : public std::exception {
  public:
    Failure(ExitCode code, std::string message) : code_(code), message_(std::move(message)) {}
    // What a function of the library or the platform returned; `what` was tried.
    Failure(std::string_view what, cerrno rc);
    Failure(ExitCode code, std::string_view what, cerrno rc);

    ExitCode code() const { return code_; }
    cerrno rc() const { return rc_; }
    const char *what() const noexcept override { return message_.c_str(); }

    // The same, with what had been found out until then: members that the failure's JSON document has
    // besides.
    Failure with(const Json &document) const;
    const Json *document() const { return document_.get(); }

  private:
    ExitCode code_;
    std::string message_;
    cerrno rc_ = 0;
    std::shared_ptr<const Json> document_;
};

// The exit status that a result code stands for.
ExitCode exit_code_of(cerrno rc);

enum class Colour { automatic, always, never };

struct OutputOptions {
    bool json = false;
    bool show_secrets = false;
    Colour colour = Colour::automatic;
};

enum class Style { plain, strong, dim, good, bad, warning };

// Text with every byte outside of printable ASCII, and the backslash, as \xNN,
// \n, \t, \r or \\. Valid UTF-8 beyond ASCII is kept unless `ascii_only`.
std::string escaped(std::string_view bytes, bool ascii_only = false);

// Two lower-case digits a byte.
std::string hex(std::string_view bytes);

// Printed in place of a secret.
inline constexpr std::string_view kMask = "********";

class Output {
  public:
    explicit Output(const OutputOptions &options);

    bool json() const { return options_.json; }
    bool show_secrets() const { return options_.show_secrets; }

    // The result of a command: the document with --json, else what `text` prints.
    void result(const Json &document, const std::function<void()> &text);

    // One line of text to standard output, as it stands: escape what came from elsewhere.
    void line(std::string_view text);
    // Columns as wide as their widest cell; no trailing spaces. An empty header prints none.
    void table(const std::vector<std::string> &header, const std::vector<std::vector<std::string>> &rows);
    // The text in a colour, where standard output is to have colours.
    std::string styled(Style style, std::string_view text) const;
    // The mask; with --show-secrets the secret itself, escaped.
    std::string secret(std::string_view bytes) const;

    // One document a line with --json, for commands that report as they go (watch).
    void event(const Json &document, const std::function<void()> &text);
    // Whether something could not be written: then there is no use in going on, and the exit status says so.
    bool is_lost() const;

    // A line on standard error that the next one replaces; nothing unless that is a terminal.
    void progress(std::string_view text);
    void end_progress();
    // A remark for people, on standard error.
    void note(std::string_view text);

    void failure(const Failure &failure);

  private:
    OutputOptions options_;
    bool coloured_;
    bool error_is_terminal_;
    bool progress_shown_ = false;
};

}  // namespace aaactl
