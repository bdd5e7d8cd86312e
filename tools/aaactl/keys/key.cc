// SPDX-License-Identifier: Apache-2.0
//
// key check, seal and trim. A clear key is read from standard input or typed
// without echo, and is shown with --show-secrets only.

#include "keys/key.hpp"

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "aaa/result_codes.h"
#include "aaa/server_keys.h"
#include "cli/secret_input.hpp"
#include "keys/sealed_keys.hpp"

namespace aaactl {
namespace {

constexpr size_t kLongestClear = 4096;
constexpr size_t kLongestSealed = 2 * kLongestClear + 256;

// A string that is wiped when it is destroyed.
class Secret {
  public:
    explicit Secret(std::string text) : text_(std::move(text)) {
        if (text_.find('\0') != std::string::npos) {
            wipe(text_);
            throw Failure(ExitCode::bad_input, "the key contains a NUL byte");
        }
    }
    ~Secret() { wipe(text_); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;

    char *data() { return text_.data(); }
    const std::string &text() const { return text_; }

  private:
    std::string text_;
};

// ---- check

struct Verdict {
    std::optional<uint32_t> generation;  // of a text that has the form
    bool known = false;                  // the file has that generation
    bool newest = false;
    bool valid = false;
    bool unprintable = false;  // it can be opened, and is not valid
    SecretText clear;
};

Verdict examine(Secret &sealed) {
    Verdict verdict;
    verdict.generation = sealed_generation(sealed.text());
    const auto masters = master_keys();
    if (!verdict.generation) {
        return verdict;
    }
    verdict.known = std::any_of(masters.begin(), masters.end(),
                                [&](const auto &key) { return key.generation == *verdict.generation; });
    verdict.newest = masters.back().generation == *verdict.generation;
    verdict.valid = verdict.known && validate_encrypted_password(sealed.data()) == AAA_OK;
    verdict.clear = verdict.known ? open_key(sealed.text()) : nullptr;
    if (!verdict.valid && verdict.clear != nullptr) {
        verdict.unprintable = true;
        verdict.clear = nullptr;
    }
    forget_log_lines();  // the verdict says it
    return verdict;
}

Json verdict_json(const Output &out, const Verdict &verdict) {
    Json document = {{"valid", verdict.valid},
                     {"well_formed", verdict.generation.has_value()},
                     {"generation", verdict.generation ? Json(*verdict.generation) : Json()},
                     {"generation_known", verdict.known},
                     {"newest", verdict.newest}};
    if (verdict.clear != nullptr && out.show_secrets()) {
        document["key"] = escaped(verdict.clear.get());
    }
    return document;
}

std::string verdict_text(const Verdict &verdict) {
    if (!verdict.generation) {
        return "not a sealed key: two digits and an even number of hexadecimal digits are expected";
    }
    const std::string generation = "generation " + generation_text(*verdict.generation);
    if (!verdict.known) {
        return "cannot be opened: there is no master key of " + generation;
    }
    if (verdict.unprintable) {
        return "not valid: the key has characters that are not printable ASCII";
    }
    if (!verdict.valid) {
        return "cannot be opened: changed, cut, or sealed with another master key of " + generation;
    }
    return "valid, " + generation + (verdict.newest ? ", the newest" : ", not the newest");
}

ExitCode check(Output &out, const std::string &argument) {
    Secret sealed(argument == "-" ? read_secret("Sealed key: ", kLongestSealed) : argument);
    const Verdict verdict = examine(sealed);
    out.result(verdict_json(out, verdict), [&] {
        out.line(out.styled(verdict.valid ? Style::good : Style::bad, verdict_text(verdict)));
        if (verdict.clear != nullptr && out.show_secrets()) {
            out.line(escaped(verdict.clear.get()));
        }
    });
    return verdict.valid ? ExitCode::ok : ExitCode::negative;
}

void add_check(Command key) {
    auto text = std::make_shared<std::string>("-");
    Command sub = key_command(key, "check", "Tell whether a sealed key can be opened here",
                              [text](Output &out) { return check(out, *text); });
    sub.option("TEXT", *text, "The sealed key; by default, and for \"-\", it is read from standard input");
    sub.footer(
        "The clear key is shown with --show-secrets only. Exit status 1: it cannot be used.\n"
        "JSON: {valid, well_formed, generation, generation_known, newest, key with --show-secrets}\n"
        "Example: aaactl sysdb get --show-secrets /cfg/site/key | aaactl key check");
}

// ---- seal

// A key from a file that was written on another system has a carriage return at its end.
std::string read_key_line(const std::string &prompt, size_t limit) {
    std::string text = read_secret(prompt, limit);
    if (text.size() > 1 && text.ends_with('\r')) {
        text.pop_back();
    }
    return text;
}

// Typed twice, because it is not echoed.
std::string read_clear_key() {
    std::string first = read_key_line("Key: ", kLongestClear);
    if (isatty(STDIN_FILENO) == 1) {
        std::string second = read_key_line("Repeat the key: ", kLongestClear);
        const bool same = first == second;
        wipe(second);
        if (!same) {
            wipe(first);
            throw Failure(ExitCode::bad_input, "the two keys differ");
        }
    }
    return first;
}

ExitCode seal(Output &out) {
    const std::string sealed = seal_clear_key(out);
    out.result({{"sealed", sealed}, {"generation", *sealed_generation(sealed)}}, [&] { out.line(sealed); });
    return ExitCode::ok;
}

void add_seal(Command key) {
    Command sub = key_command(key, "seal", "Seal a clear key from standard input", seal);
    sub.footer(
        "The key is one line of printable ASCII. The end of the line, also with a carriage return, is not "
        "part of "
        "it.\n"
        "JSON: {sealed, generation}\nExample: aaactl key seal | aaactl sysdb set /cfg/site/key --type "
        "string");
}

// ---- trim

ExitCode trim(Output &out, bool clear) {
    Secret key(read_secret("Key: ", clear ? kLongestClear : kLongestSealed));
    if (!clear && !sealed_generation(key.text())) {
        throw Failure(ExitCode::bad_input, "not a sealed key; trim a clear key with --clear");
    }
    const std::string before = key.text();
    const SecretText trimmed(aaa_util_truncate_whitespace_in_server_key(key.data(), clear ? 0 : 1));
    if (trimmed == nullptr) {
        throw Failure(ExitCode::bad_input,
                      clear ? "the key is only white space"
                            : "the key cannot be opened or sealed again, or is only white space");
    }
    const bool changed = before != trimmed.get();
    Json document = {{"trimmed", changed}};
    if (!clear || out.show_secrets()) {
        document["key"] = escaped(trimmed.get());
    } else {
        document["masked"] = true;
    }
    out.result(document, [&] { out.line(clear ? out.secret(trimmed.get()) : std::string(trimmed.get())); });
    return ExitCode::ok;
}

void add_trim(Command key) {
    auto clear = std::make_shared<bool>(false);
    Command sub = key_command(key, "trim", "Remove white space from the end of a sealed key's clear text",
                              [clear](Output &out) { return trim(out, *clear); });
    sub.flag("--clear", *clear, "Standard input has a clear key; shown with --show-secrets only");
    sub.footer(
        "A key that does not end in white space is printed unchanged, not sealed again.\n"
        "JSON: {trimmed, key or masked}\nExample: aaactl key trim <sealed");
}

}  // namespace

std::string seal_clear_key(Output &out) {
    const Secret clear(read_clear_key());
    if (clear.text().find('\n') != std::string::npos) {
        throw Failure(ExitCode::bad_input, "standard input has more than one line; a key is one line");
    }
    check_clear_key(clear.text());
    std::string sealed = seal_key(clear.text().c_str());
    if (clear.text().back() == ' ') {
        out.note("aaactl: the key ends in white space; \"aaactl key trim\" removes it");
    }
    return sealed;
}

Command key_command(Command key, const std::string &name, const std::string &help, Action run) {
    auto file = std::make_shared<std::string>();
    Command sub = key.command(name, help, [file, run = std::move(run)](Output &out) {
        if (!file->empty()) {
            setenv("AAA_MASTER_KEYS", file->c_str(), 1);
        }
        return run(out);
    });
    sub.option("--file", *file,
               "The file of master keys (default: AAA_MASTER_KEYS, else /etc/aaa/master.keys)");
    return sub;
}

void add_key(Command root) {
    Command key = root.group("key", "Check, seal and trim server keys; make and retire the master keys");
    add_check(key);
    add_seal(key);
    add_trim(key);
    add_key_masters(key);
}

}  // namespace aaactl
