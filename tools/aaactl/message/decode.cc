// SPDX-License-Identifier: Apache-2.0
//
// decode: shows the contents of a message.

#include <memory>

#include "cli/commands.hpp"
#include "message/hex_input.hpp"
#include "message/message_json.hpp"
#include "message/message_text.hpp"

namespace aaactl {
namespace {

struct Options {
    std::string file = "-";
    std::optional<std::string> hex;
    std::string kind = "auto";
    std::string input = "auto";
    bool text = false;
};

constexpr char kFooter[] =
    R"(Input is binary or hexadecimal text (of xxd, hexdump -Cv or plain digits); which of
the two is detected from the bytes unless --input names it. Without --kind the first of
these that fits exactly is taken: packed list, session request, session response,
request, the server's connect and disconnect, replies by their length. The header of
a reply does not say what it answers: name its kind where the lengths are the same.
A malformed message is shown as far as it can be read, but not with --text; exit
status 3. Values of deleted pairs and bytes after a list count as secrets.

JSON: {kind, length, parts, fault}. A part is {part: "record", record, offset, fields,
meanings}, {part: "bytes", name, offset, length, hex} or {part: "list", offset, fields,
live, deleted, pairs}; a pair {offset, type, attribute, deleted, tag, flags,
flag_names, length, meaning, padding} and one of text, number, address and hex, or
"masked": true with "shown" if a part of it is not secret; fault {offset, message, code}.

  aaactl decode message.bin
  aaactl decode --hex '00000038 00000000 ...'
  aaactl --show-secrets decode --text message.bin > message.txt   # for aaactl encode

Kinds:
)";

std::string footer() {
    std::string text = kFooter;
    for (const KindHelp &kind : message_kinds()) {
        text += "  " + std::string(kind.name) + std::string(28 - kind.name.size(), ' ') +
                std::string(kind.help) + "\n";
    }
    return text;
}

std::vector<std::string> kind_names() {
    std::vector<std::string> names;
    for (const KindHelp &kind : message_kinds()) {
        names.emplace_back(kind.name);
    }
    return names;
}

std::string input_bytes(const Options &options) {
    if (options.hex) {
        return bytes_of_hex(*options.hex);
    }
    std::string bytes = read_input(options.file);
    const bool text = options.input == "hex" || (options.input == "auto" && looks_like_text(bytes));
    return text ? bytes_of_hex(bytes) : bytes;
}

ExitCode decode(const Options &options, Output &out) {
    const std::string bytes = input_bytes(options);
    if (bytes.empty()) {
        throw Failure(ExitCode::bad_input, "there is nothing to decode: the input is empty");
    }
    const Message message = read_message(bytes, options.kind);
    out.result(to_json(message, out.show_secrets()), [&] {
        if (!options.text) {
            print_message(out, message);
        } else if (!message.fault) {  // encode cannot read part of a message
            const std::string text = to_text(message, out.show_secrets());
            out.line(std::string_view(text).substr(0, text.size() - 1));
        }
    });
    if (!message.fault) {
        return ExitCode::ok;
    }
    out.note("aaactl: malformed " + message.kind + " at byte " + std::to_string(message.fault->offset) +
             " of " + std::to_string(bytes.size()) + ": " + message.fault->what);
    return ExitCode::bad_input;
}

}  // namespace

void add_decode(Command root) {
    auto options = std::make_shared<Options>();
    Command sub = root.command("decode", "Show the contents of a message",
                               [options](Output &out) { return decode(*options, out); });
    const Argument file = sub.option("FILE", options->file, "Message, - for standard input");
    sub.option("--hex", options->hex, "The message as hexadecimal digits").type("DIGITS").excludes(file);
    sub.option("--kind", options->kind, "Kind of message, see below").one_of(kind_names()).type("KIND");
    sub.option("--input", options->input, "Form of the input: auto, binary or hex")
        .one_of({"auto", "binary", "hex"})
        .type("FORM");
    sub.flag("--text", options->text, "Print the form that encode reads");
    sub.footer(footer());
}

}  // namespace aaactl
