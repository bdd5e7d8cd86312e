// SPDX-License-Identifier: Apache-2.0
//
// Reading the file of vendors' attributes, and mapping those of an answer.

#include "radius/vendor_map.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "net/descriptor.hpp"

namespace radius {
namespace {

constexpr std::uint32_t kMaxVendor = 0xffffff;  // RFC 2865, 5.26: the highest byte is 0
constexpr std::size_t kMaxName = 64;
constexpr std::string_view kPairPrefix = "pair:";

// Without the locale's opinion: the file means the same everywhere.
bool is_printable(char c) {
    return c > ' ' && c < '\x7f';
}

bool is_of_name(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

bool is_text(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= ' ' && byte != 0x7f;  // UTF-8 is let through
    });
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// The words before a comment.
std::vector<std::string_view> words_of(std::string_view line) {
    std::vector<std::string_view> words;
    line = line.substr(0, line.find('#'));
    while (!line.empty()) {
        const auto begin = std::find_if_not(line.begin(), line.end(), is_blank);
        const auto end = std::find_if(begin, line.end(), is_blank);
        if (begin != end) {
            words.emplace_back(line.substr(static_cast<std::size_t>(begin - line.begin()),
                                           static_cast<std::size_t>(end - begin)));
        }
        line.remove_prefix(static_cast<std::size_t>(end - line.begin()));
    }
    return words;
}

std::optional<std::uint32_t> number_of(std::string_view word, std::uint32_t most) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || value < 1 || value > most) {
        return std::nullopt;
    }
    return value;
}

// For messages: what the file holds may have come from anywhere.
std::string quoted(std::string_view word) {
    std::string text = "\"";
    for (const char c : word.substr(0, kMaxName)) {
        text += is_printable(c) ? c : '?';
    }
    return text + (word.size() > kMaxName ? "...\"" : "\"");
}

std::string label(const VendorAttribute &attribute) {
    return "vendor " + std::to_string(attribute.vendor) + ", type " + std::to_string(attribute.type);
}

}  // namespace

// Why a line is wrong; empty when it is not.
std::string VendorMap::add(std::string_view text, int number) {
    if (text.find('\0') != std::string_view::npos) {
        return "the line holds a NUL byte: this is not a text file";
    }
    const std::vector<std::string_view> words = words_of(text);
    if (words.empty()) {
        return {};
    }
    if (words.size() != 4) {
        return "a line has four words, and this one " + std::to_string(words.size()) +
               ": vendor, type, kind, name";
    }
    const std::optional<std::uint32_t> vendor = number_of(words[0], kMaxVendor);
    if (!vendor) {
        return "the vendor " + quoted(words[0]) + " is no number from 1 to " + std::to_string(kMaxVendor);
    }
    const std::optional<std::uint32_t> type = number_of(words[1], UINT8_MAX);
    if (!type) {
        return "the type " + quoted(words[1]) + " is no number from 1 to 255";
    }
    Line line = {.vendor = *vendor,
                 .type = static_cast<std::uint8_t>(*type),
                 .kind = Kind::kText,
                 .key = {},
                 .name = std::string(words[3]),
                 .number = number};
    if (words[2] == "number") {
        line.kind = Kind::kNumber;
    } else if (words[2].substr(0, kPairPrefix.size()) == kPairPrefix) {
        line.kind = Kind::kPair;
        line.key = words[2].substr(kPairPrefix.size());
        if (line.key.empty() || line.key.find_first_of("=*") != std::string::npos || !is_text(line.key)) {
            return "the key of " + quoted(words[2]) + " must have a character, and none of \"=\" and \"*\"";
        }
    } else if (words[2] != "text") {
        return "the kind " + quoted(words[2]) + " is none of text, number and pair:KEY";
    }
    if (line.name.size() > kMaxName || !std::all_of(line.name.begin(), line.name.end(), is_of_name)) {
        return "the name " + quoted(words[3]) +
               " must have at most 64 letters, digits, \"-\", \"_\" and \".\"";
    }
    for (const Line &other : lines_) {
        const bool both_pairs = other.kind == Kind::kPair && line.kind == Kind::kPair;
        if (other.vendor == line.vendor && other.type == line.type &&
            (!both_pairs || other.key == line.key)) {
            return "line " + std::to_string(other.number) + " maps the same attribute";
        }
    }
    lines_.push_back(std::move(line));
    return {};
}

std::optional<VendorMap> VendorMap::parse(std::string_view text, const std::string &name,
                                          std::string &error) {
    VendorMap map;
    for (int number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        error = map.add(text.substr(0, end), number);
        if (!error.empty()) {
            error = name + ":" + std::to_string(number) + ": " + error;
            return std::nullopt;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    error.clear();
    return map;
}

std::optional<VendorMap> VendorMap::load(const std::string &path, std::string &error) {
    // Without O_NONBLOCK a FIFO in the place of the file would stop the service.
    const net::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0) {
        error = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        error = path + ": this is not a file";
        return std::nullopt;
    }
    std::string text;
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t size = ::read(file.get(), buffer.data(), buffer.size());
        if (size < 0) {
            error = path + ": " + std::strerror(errno);
            return std::nullopt;
        }
        if (size == 0) {
            return parse(text, path, error);
        }
        text.append(buffer.data(), static_cast<std::size_t>(size));
        if (text.size() > kMaxFile) {
            error = path + ": the file has more than " + std::to_string(kMaxFile) + " bytes";
            return std::nullopt;
        }
    }
}

void VendorMap::read_one(const VendorAttribute &attribute, Values &values) const {
    for (const Line &line : lines_) {
        if (line.vendor != attribute.vendor || line.type != attribute.type) {
            continue;
        }
        std::string_view text = attribute.value;
        if (line.kind == Kind::kNumber) {
            const std::optional<std::uint32_t> number = Attribute{Type::kVendorSpecific, text}.number();
            if (number) {
                values.values.push_back({line.name, std::to_string(*number)});
            } else {
                values.faults.push_back(label(attribute) + " (" + line.name +
                                        "): a number has 4 bytes, and this " + std::to_string(text.size()));
            }
            continue;
        }
        if (line.kind == Kind::kPair) {
            const std::size_t end = text.find_first_of("=*");
            if (end == std::string_view::npos ? text != line.key : text.substr(0, end) != line.key) {
                continue;
            }
            if (end == std::string_view::npos) {
                values.faults.push_back(label(attribute) + " (" + line.name + "): " + line.key +
                                        " has no value");
                continue;
            }
            text.remove_prefix(end + 1);
        }
        if (is_text(text)) {
            values.values.push_back({line.name, std::string(text)});
        } else {
            values.faults.push_back(label(attribute) + " (" + line.name +
                                    "): the text holds control characters");
        }
    }
}

VendorMap::Values VendorMap::read(const Attributes &attributes) const {
    Values values;
    for (const Attribute attribute : attributes) {
        if (lines_.empty() || attribute.type != Type::kVendorSpecific) {
            continue;
        }
        // The rest of an attribute that is damaged may have held what grants less.
        std::uint32_t vendor = 0;
        const bool whole = for_each_vendor_attribute(attribute, [&](const VendorAttribute &one) {
            vendor = one.vendor;
            read_one(one, values);
        });
        if (!whole) {
            vendor = vendor != 0
                         ? vendor
                         : Attribute{attribute.type, attribute.value.substr(0, 4)}.number().value_or(0);
            if (std::any_of(lines_.begin(), lines_.end(),
                            [vendor](const Line &line) { return line.vendor == vendor; })) {
                values.faults.push_back("vendor " + std::to_string(vendor) + ": the attribute is damaged");
            }
        }
    }
    return values;
}

}  // namespace radius
