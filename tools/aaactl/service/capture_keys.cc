// SPDX-License-Identifier: Apache-2.0

#include "service/capture_keys.hpp"

#include <algorithm>
#include <vector>

#include "cli/output.hpp"

namespace aaactl {
namespace {

constexpr uint32_t kTlsKeys = 0x544c534b;
constexpr uint32_t kRadiusKey = 0x61616152;
constexpr uint32_t kTacacsKey = 0x61616154;

// Readers of TLS keys skip these lines; the recipe makes a file of preferences of them.
constexpr char kPreferenceMark[] = "#= ";

std::vector<std::string> fields_of(std::string_view text, size_t most) {
    std::vector<std::string> fields;
    while (fields.size() + 1 < most && text.find('\t') != std::string_view::npos) {
        fields.emplace_back(text.substr(0, text.find('\t')));
        text.remove_prefix(text.find('\t') + 1);
    }
    fields.emplace_back(text);
    return fields;
}

// A word as shells read it.
std::string word(const std::string &text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\"'\"'") : std::string(1, c);
    }
    return quoted + "'";
}

bool is_one_line(const std::string &text) {
    return text.find_first_of("\r\n") == std::string::npos;
}

// A file of preferences has the value as it is, up to the end of the line; blanks before it are skipped.
std::string preference(const std::string &server, const std::string &name, const std::string &value) {
    if (!is_one_line(server)) {
        return "";
    }
    // No line of the file may be made up by a key.
    if (!is_one_line(value)) {
        return "# the key of " + server + " has a line feed, and cannot be a preference\n";
    }
    if (value.starts_with(' ') || value.starts_with('\t')) {
        return "# the key of " + server + " begins with a blank, and cannot be a preference\n";
    }
    return "# " + server + "\n" + kPreferenceMark + name + ": " + value + "\n";
}

// "WORD HEX HEX", as TLS keys are written. The lines that are not would be preferences to the recipe.
bool is_tls_key(std::string_view line) {
    const auto is_made_of = [](std::string_view text, std::string_view set) {
        return !text.empty() && text.find_first_not_of(set) == std::string_view::npos;
    };
    constexpr std::string_view kHex = "0123456789abcdefABCDEF";
    const std::size_t first = line.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    return second != std::string_view::npos &&
           is_made_of(line.substr(0, first), "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") &&
           is_made_of(line.substr(first + 1, second - first - 1), kHex) &&
           is_made_of(line.substr(second + 1), kHex);
}

std::string tls_keys(std::string_view text) {
    std::string lines;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (is_tls_key(line)) {
            lines.append(line).append("\n");
        }
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return lines;
}

}  // namespace

std::string keys_header(const std::string &file) {
    const std::string begin =
        "# Keys of servers, for Wireshark; as secret as the passwords that they protect.\n";
    if (escaped(file) != file) {
        return begin + "# To use them, rename this file: its name has characters that cannot be printed.\n";
    }
    // A name that begins with a dash would be an option of sed.
    const std::string path = file.starts_with('-') ? "./" + file : file;
    // Not as options of tshark: everyone sees the words of its command in the list of processes.
    const std::string profile = "~/.config/wireshark/profiles/aaa-keys";
    return begin + "# To use them, make a profile of them, and name the profile:\n#   (umask 077; mkdir -p " +
           profile + " && sed -n 's/^" + kPreferenceMark + "//p' " + word(path) + " > " + profile +
           "/preferences)\n#   tshark -C aaa-keys -r CAPTURE -o " + word("tls.keylog_file:" + path) + "\n";
}

std::string CaptureKeys::lines(const CaptureBlock &block) {
    switch (block.kind()) {
        case kTlsKeys:
            return tls_keys(block.text());
        case kRadiusKey: {
            const auto fields = fields_of(block.text(), 2);
            return fields.size() == 2 ? preference(fields[0], "radius.shared_secret", fields[1]) : "";
        }
        case kTacacsKey: {
            const auto fields = fields_of(block.text(), 3);
            if (fields.size() != 3 || !is_one_line(fields[0]) || !is_one_line(fields[1])) {
                return "";
            }
            // The preference has all servers, separated by blanks: none may spoil it for the others.
            if (!is_one_line(fields[2])) {
                return preference(fields[1], "tacplus.key", fields[2]);
            }
            if (fields[2].find_first_of(" \t") != std::string::npos) {
                return "# the key of " + fields[1] + " has a blank, and cannot be a preference\n";
            }
            tacacs_[fields[0] + "/" + fields[1]] = fields[2];
            std::string all;
            for (const auto &[place, key] : tacacs_) {
                all.append(all.empty() ? "" : " ").append(place).append("=").append(key);
            }
            return preference(fields[1], "tacplus.key", all);
        }
        default:
            return "";
    }
}

}  // namespace aaactl
