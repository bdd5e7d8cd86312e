// SPDX-License-Identifier: Apache-2.0

#include <cstdio>

#include "control/json.hpp"
#include "control/utf8.hpp"

namespace service {

std::string as_utf8(std::string_view bytes) {
    std::string out;
    while (!bytes.empty()) {
        const std::size_t length = utf8_length(bytes);
        if (length == 0) {
            out += "\xef\xbf\xbd";
            bytes.remove_prefix(1);
        } else {
            out += bytes.substr(0, length);
            bytes.remove_prefix(length);
        }
    }
    return out;
}

void JsonWriter::quoted(std::string_view value) {
    out_ += '"';
    for (const char c : as_utf8(value)) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out_ += '\\';
            out_ += c;
        } else if (byte < 0x20 || byte == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", byte);
            out_ += escape;
        } else {
            out_ += c;
        }
    }
    out_ += '"';
}

void JsonWriter::name(std::string_view name) {
    out_ += needs_comma_ ? "," : "";
    needs_comma_ = true;
    if (!name.empty()) {
        quoted(name);
        out_ += ':';
    }
}

JsonWriter &JsonWriter::begin(std::string_view member) {
    name(member);
    out_ += '{';
    needs_comma_ = false;
    return *this;
}

JsonWriter &JsonWriter::end() {
    out_ += '}';
    needs_comma_ = true;
    return *this;
}

JsonWriter &JsonWriter::begin_array(std::string_view member) {
    name(member);
    out_ += '[';
    needs_comma_ = false;
    return *this;
}

JsonWriter &JsonWriter::end_array() {
    out_ += ']';
    needs_comma_ = true;
    return *this;
}

JsonWriter &JsonWriter::text(std::string_view member, std::string_view value) {
    name(member);
    quoted(value);
    return *this;
}

JsonWriter &JsonWriter::number(std::string_view member, std::int64_t value) {
    name(member);
    out_ += std::to_string(value);
    return *this;
}

JsonWriter &JsonWriter::truth(std::string_view member, bool value) {
    name(member);
    out_ += value ? "true" : "false";
    return *this;
}

}  // namespace service
