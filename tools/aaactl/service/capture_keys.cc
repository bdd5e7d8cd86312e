// SPDX-License-Identifier: Apache-2.0

#include "service/capture_keys.hpp"

#include <vector>

#include "cli/output.hpp"

namespace aaactl {
namespace {

constexpr uint32_t kTlsKeys = 0x544c534b;
constexpr uint32_t kRadiusKey = 0x61616152;
constexpr uint32_t kTacacsKey = 0x61616154;

std::vector<std::string> fields_of(std::string_view text, size_t most) {
    std::vector<std::string> fields;
    while (fields.size() + 1 < most && text.find('\t') != std::string_view::npos) {
        fields.emplace_back(text.substr(0, text.find('\t')));
        text.remove_prefix(text.find('\t') + 1);
    }
    fields.emplace_back(text);
    return fields;
}

// A word as xargs reads it.
std::string word(const std::string &text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\"'\"'") : std::string(1, c);
    }
    return quoted + "'";
}

std::string option(const std::string &server, const std::string &text) {
    // No line of the file may be made up by a key.
    if (text.find_first_of("\r\n") != std::string::npos) {
        return "# the key of " + server + " has a line feed, and cannot be an option\n";
    }
    return "# " + server + "\n#-o " + word(text) + "\n";
}

}  // namespace

std::string keys_header(const std::string &file) {
    return "# Keys of servers, for Wireshark; as secret as the passwords that they protect.\n"
           "#   sed -n 's/^#-o/-o/p' " +
           escaped(file) + " | xargs tshark -r CAPTURE -o tls.keylog_file:" + escaped(file) + "\n";
}

std::string CaptureKeys::lines(const CaptureBlock &block) {
    switch (block.kind()) {
        case kTlsKeys:
            return std::string(block.text());
        case kRadiusKey: {
            const auto fields = fields_of(block.text(), 2);
            return fields.size() == 2 ? option(fields[0], "radius.shared_secret:" + fields[1]) : "";
        }
        case kTacacsKey: {
            const auto fields = fields_of(block.text(), 3);
            if (fields.size() != 3) {
                return "";
            }
            tacacs_[fields[0] + "/" + fields[1]] = fields[2];
            std::string all;
            for (const auto &[place, key] : tacacs_) {
                all.append(all.empty() ? "" : " ").append(place).append("=").append(key);
            }
            return option(fields[1], "tacplus.key:" + all);
        }
        default:
            return "";
    }
}

}  // namespace aaactl
