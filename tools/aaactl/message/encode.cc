// SPDX-License-Identifier: Apache-2.0
//
// encode: the inverse of decode.

#include "message/encode.hpp"

#include <unistd.h>

#include <cstdio>
#include <memory>

#include "cli/commands.hpp"
#include "cli/output_file.hpp"
#include "message/hex_input.hpp"
#include "message/message_json.hpp"
#include "message/message_text.hpp"

namespace aaactl {
namespace {

struct Options {
    std::string file = "-";
    std::string form = "auto";
    std::string to;
    bool binary = false;
};

constexpr char kFooter[] =
    R"(Reads what 'decode --text' and 'decode --json' print with --show-secrets, and the
same written by hand. Fields that are left out are zero; lengths, counts and pads
follow from the rest. Masked values are refused, and so is a description that would
not decode to the same message.

  kind request
  record request-40
  type = 3
  list
  name = "request"
  pair AAA_USERNAME_ATTR "alice\x00"
  pair AAA_IPADDR_ATTR 192.0.2.7 tag=9 flags=0x400
  pair 4711 hex:0102
  pair deleted zeros(4)

Values: "text" with \xNN \n \t \r \\ \", hex:..., zeros(N), and numbers or IPv4
addresses for attributes of these types. A lone list needs no "kind list" and "list". In
JSON {"name": ..., "pairs": [...]} is a list; "attribute" or "type" names a pair.

JSON: {kind, length, hex}, with --output file instead of hex.

  printf 'name = "login"\npair AAA_USERNAME_ATTR "alice\\x00"\n' | aaactl encode
  aaactl encode message.txt --binary > message.bin
)";

ExitCode encode(const Options &options, Output &out) {
    if (options.binary && options.to.empty() && isatty(STDOUT_FILENO) == 1) {
        throw Failure(ExitCode::usage, "binary output is not written to a terminal; use -o FILE or a pipe");
    }
    const Message message = message_of(read_input(options.file), options.form);
    const std::string bytes = write_message(message);
    if (!options.to.empty()) {
        write_file(options.to, bytes);
    }
    Json document{{"kind", message.kind}, {"length", bytes.size()}};
    document[options.to.empty() ? "hex" : "file"] = options.to.empty() ? hex(bytes) : escaped(options.to);
    if (options.binary && options.to.empty() && !out.json()) {
        std::fwrite(bytes.data(), 1, bytes.size(), stdout);
        return ExitCode::ok;
    }
    out.result(document, [&] {
        if (options.to.empty()) {
            out.line(hex(bytes));
        }
    });
    return ExitCode::ok;
}

}  // namespace

Message message_of(const std::string &description, const std::string &form) {
    const size_t begin = description.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) {
        throw Failure(ExitCode::bad_input, "there is nothing to encode: the input is empty");
    }
    const bool json = form == "json" || (form == "auto" && description[begin] == '{');
    return json ? from_json(Json::parse(description)) : from_text(description);
}

void add_encode(Command root) {
    auto options = std::make_shared<Options>();
    Command sub = root.command("encode", "Make a message from its description",
                               [options](Output &out) { return encode(*options, out); });
    sub.option("FILE", options->file, "Description, - for standard input");
    sub.option("--from", options->form, "Form of the description: auto, text or json")
        .one_of({"auto", "text", "json"})
        .type("FORM");
    sub.flag("--binary", options->binary, "Print bytes instead of hexadecimal digits");
    sub.option("-o,--output", options->to, "Write bytes to a file, all of them or none").type("FILE");
    sub.footer(kFooter);
}

}  // namespace aaactl
