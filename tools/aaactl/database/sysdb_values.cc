// SPDX-License-Identifier: Apache-2.0
//
// Types and values in their text and JSON forms.

#include "database/sysdb_values.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace aaactl {
namespace {

constexpr std::string_view kBytesPrefix = "bytes:";

Failure malformed(const std::string &why) {
    return {ExitCode::bad_input, why};
}

int hex_digit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

std::string bytes_of_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        throw malformed("hexadecimal bytes have two digits each");
    }
    std::string bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = hex_digit(text[i]);
        const int low = hex_digit(text[i + 1]);
        if (high < 0 || low < 0) {
            throw malformed("\"" + escaped(text.substr(i, 2)) + "\" is not a hexadecimal byte");
        }
        bytes += static_cast<char>(high * 16 + low);
    }
    return bytes;
}

// Decimal, or hexadecimal after "0x", all of the text.
template <typename Number>
Number number_from(std::string_view text) {
    const bool is_hex = text.starts_with("0x");
    const std::string_view digits = is_hex ? text.substr(2) : text;
    Number value{};
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, is_hex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size() || digits.empty()) {
        throw malformed("\"" + escaped(text) + "\" is not a number from " +
                        std::to_string(std::numeric_limits<Number>::min()) + " to " +
                        std::to_string(std::numeric_limits<Number>::max()));
    }
    return value;
}

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? ""
                                           : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The end of the quoted text at the start of the input, after its closing mark.
size_t end_of_quoted(std::string_view text) {
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            return i + 1;
        }
        i += text[i] == '\\' ? 1 : 0;
    }
    throw malformed("a text lacks its closing quotation mark");
}

std::string from_quoted(std::string_view text) {
    if (!text.starts_with('"') || end_of_quoted(text) != text.size()) {
        throw malformed("a text needs quotation marks around it");
    }
    return unescaped(text.substr(1, text.size() - 2));
}

TupleField field_from_text(std::string_view text) {
    if (text.starts_with('"')) {
        return {true, 0, from_quoted(text)};
    }
    return {false, number_from<int32_t>(text), {}};
}

// "(10, 4, "GRP1", "")", with or without the parentheses.
Item tuple_from_text(std::string_view text) {
    text = trimmed(text);
    if (text.starts_with('(') != text.ends_with(')')) {
        throw malformed("a tuple lacks one of its parentheses");
    }
    text = text.starts_with('(') ? trimmed(text.substr(1, text.size() - 2)) : text;
    std::vector<TupleField> fields;
    while (!text.empty()) {
        const size_t quoted_end = text.starts_with('"') ? end_of_quoted(text) : 0;
        const size_t comma = text.find(',', quoted_end);
        fields.push_back(field_from_text(trimmed(text.substr(0, comma))));
        if (comma == std::string_view::npos) {
            break;
        }
        text = trimmed(text.substr(comma + 1));
        if (text.empty()) {
            throw malformed("a tuple ends in a comma");
        }
    }
    return tuple_item(fields);
}

std::string tuple_text(const Item &item) {
    std::string text;
    for (const TupleField &field : tuple_fields(item)) {
        text += (text.empty() ? "" : ", ") +
                (field.is_name ? in_quotes(field.name) : std::to_string(field.number));
    }
    return "(" + text + ")";
}

TupleField field_from_json(const Json &value) {
    if (value.is_string()) {
        return {true, 0, unescaped(value.text())};
    }
    if (!value.is_integer()) {
        throw malformed("a tuple's fields are integers and strings");
    }
    return {false, number_from<int32_t>(value.dump()), {}};
}

std::string string_value(const Json &value) {
    if (!value.is_string()) {
        throw malformed("the value is not a JSON string");
    }
    return value.text();
}

}  // namespace

Item number_item(uint32_t value) {
    Item item{SYSDB_TYPE_U32, std::string(sizeof value, '\0')};
    std::memcpy(item.bytes.data(), &value, sizeof value);
    return item;
}

Item text_item(std::string_view text) {
    return {SYSDB_TYPE_STRING, std::string(text) + '\0'};
}

uint32_t number_of(const Item &item) {
    uint32_t value = 0;
    if (item.type != SYSDB_TYPE_U32 || item.bytes.size() != sizeof value) {
        throw malformed("the item has type " + type_name(item.type) + ", but u32 is expected");
    }
    std::memcpy(&value, item.bytes.data(), sizeof value);
    return value;
}

std::string text_of(const Item &item) {
    if (item.type != SYSDB_TYPE_STRING || item.bytes.empty()) {
        throw malformed("the item has type " + type_name(item.type) + ", but string is expected");
    }
    return item.bytes.substr(0, item.bytes.size() - 1);
}

std::string type_name(uint32_t type) {
    switch (type) {
        case SYSDB_TYPE_U32:
            return "u32";
        case SYSDB_TYPE_STRING:
            return "string";
        case SYSDB_TYPE_TUPLE:
            return "tuple";
        case SYSDB_TYPE_DIRECTORY:
            return "directory";
        default:
            return std::string(kBytesPrefix) + std::to_string(type);
    }
}

uint32_t type_number(std::string_view name) {
    for (const uint32_t type : {SYSDB_TYPE_U32, SYSDB_TYPE_STRING, SYSDB_TYPE_TUPLE, SYSDB_TYPE_DIRECTORY}) {
        if (name == type_name(type)) {
            return type;
        }
    }
    uint32_t number = SYSDB_TYPE_ANY;
    if (name.starts_with(kBytesPrefix)) {
        const char *end = name.data() + name.size();
        const auto [stop, error] = std::from_chars(name.data() + kBytesPrefix.size(), end, number);
        number = error == std::errc() && stop == end ? number : SYSDB_TYPE_ANY;
    }
    // Each type has only one spelling, and no item has the type SYSDB_TYPE_ANY.
    if (number == SYSDB_TYPE_ANY || type_name(number) != name) {
        throw Failure(
            ExitCode::usage,
            "\"" + escaped(name) + "\" is not a type; use u32, string, tuple, directory or bytes:NUMBER");
    }
    return number;
}

std::string value_text(const Item &item, bool plain) {
    switch (item.type) {
        case SYSDB_TYPE_U32:
            return std::to_string(number_of(item));
        case SYSDB_TYPE_STRING:
            return plain ? escaped(text_of(item)) : in_quotes(text_of(item));
        case SYSDB_TYPE_TUPLE:
            return tuple_text(item);
        case SYSDB_TYPE_DIRECTORY:
            return "";
        default:
            return hex(item.bytes);
    }
}

Json value_json(const Item &item) {
    switch (item.type) {
        case SYSDB_TYPE_U32:
            return number_of(item);
        case SYSDB_TYPE_STRING:
            return escaped(text_of(item));
        case SYSDB_TYPE_DIRECTORY:
            return nullptr;
        case SYSDB_TYPE_TUPLE:
            break;
        default:
            return hex(item.bytes);
    }
    Json fields = Json::array();
    for (const TupleField &field : tuple_fields(item)) {
        fields.push_back(field.is_name ? Json(escaped(field.name)) : Json(field.number));
    }
    return fields;
}

Item item_from_text(uint32_t type, std::string_view text) {
    switch (type) {
        case SYSDB_TYPE_U32:
            return number_item(number_from<uint32_t>(text));
        case SYSDB_TYPE_STRING:
            return text_item(from_quoted(text));
        case SYSDB_TYPE_TUPLE:
            return tuple_from_text(text);
        case SYSDB_TYPE_DIRECTORY:
            if (!text.empty()) {
                throw malformed("a directory has no value");
            }
            return {SYSDB_TYPE_DIRECTORY, {}};
        default:
            return {type, bytes_of_hex(text)};
    }
}

Item item_from_argument(uint32_t type, std::string_view text) {
    return type == SYSDB_TYPE_STRING ? text_item(text) : item_from_text(type, text);
}

Item item_from_json(uint32_t type, const Json &value) {
    switch (type) {
        case SYSDB_TYPE_U32:
            if (!value.is_integer()) {
                throw malformed("the value is not a whole number");
            }
            return number_item(number_from<uint32_t>(value.dump()));
        case SYSDB_TYPE_STRING:
            return text_item(unescaped(string_value(value)));
        case SYSDB_TYPE_DIRECTORY:
            if (!value.is_null()) {
                throw malformed("a directory has no value");
            }
            return {SYSDB_TYPE_DIRECTORY, {}};
        case SYSDB_TYPE_TUPLE:
            break;
        default:
            return {type, bytes_of_hex(string_value(value))};
    }
    if (!value.is_array()) {
        throw malformed("a tuple is a JSON array");
    }
    std::vector<TupleField> fields;
    std::transform(value.elements().begin(), value.elements().end(), std::back_inserter(fields),
                   field_from_json);
    return tuple_item(fields);
}

std::string shell_word(const std::string &text) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:,@%+";
    if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return word + "'";
}

std::string in_quotes(std::string_view bytes) {
    std::string text = "\"";
    for (const char c : escaped(bytes)) {
        text += c == '"' ? "\\\"" : std::string(1, c);
    }
    return text + '"';
}

std::string unescaped(std::string_view text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        const char kind = ++i < text.size() ? text[i] : '\0';
        switch (kind) {
            case '\\':
            case '"':
                bytes += kind;
                break;
            case 'n':
                bytes += '\n';
                break;
            case 't':
                bytes += '\t';
                break;
            case 'r':
                bytes += '\r';
                break;
            case 'x':
                if (i + 2 >= text.size()) {
                    throw malformed("\\x lacks its two hexadecimal digits");
                }
                bytes += bytes_of_hex(text.substr(i + 1, 2));
                i += 2;
                break;
            default:
                throw malformed("a backslash is followed by \\, \", n, t, r, or x and two digits");
        }
    }
    return bytes;
}

}  // namespace aaactl
