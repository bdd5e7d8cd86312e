// SPDX-License-Identifier: Apache-2.0
//
// Searches of the dictionary, and the attributes whose values are secret.

#include "dictionary/attributes.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "cli/suggestion.hpp"

namespace aaactl {
namespace {

constexpr uint32_t kSecrets[] = {
#define AAA_SECRET_ATTRIBUTE(name) name,
#include "dictionary/secret_attributes.def"
};

std::string upper(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return result;
}

std::optional<uint32_t> type_named(std::string_view name) {
    for (const aaa_table_row_t &row : aaa_table) {
        if (row.name != nullptr && name == row.name) {
            return row.type;
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<uint64_t> number_of(std::string_view text) {
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string_view digits = text.substr(hexadecimal ? 2 : 0);
    uint64_t value = 0;
    const char *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, hexadecimal ? 16 : 10);
    return digits.empty() || error != std::errc{} || stop != end ? std::nullopt : std::optional(value);
}

const aaa_table_row_t *attribute_row(uint32_t type) {
    return type < AAA_TABLE_ROWS && aaa_table[type].name != nullptr ? &aaa_table[type] : nullptr;
}

std::string attribute_name(uint32_t type) {
    const aaa_table_row_t *row = attribute_row(type);
    return row != nullptr ? row->name : "";
}

std::optional<uint32_t> attribute_type(std::string_view name_or_number) {
    if (const auto number = number_of(name_or_number)) {
        return *number <= UINT32_MAX ? std::optional(static_cast<uint32_t>(*number)) : std::nullopt;
    }
    const std::string name = upper(name_or_number);
    for (const std::string &form : {name, "AAA_" + name, name + "_ATTR", "AAA_" + name + "_ATTR"}) {
        if (const auto type = type_named(form)) {
            return type;
        }
    }
    return std::nullopt;
}

// Names are written with or without their first and last part, so both forms are compared.
std::string meant_attribute(std::string_view name) {
    std::vector<std::string> whole;
    std::vector<std::string> bare;
    for (const aaa_table_row_t &row : aaa_table) {
        if (row.name != nullptr) {
            std::string text = row.name;
            whole.push_back(text);
            text = text.starts_with("AAA_") ? text.substr(4) : text;
            bare.push_back(text.ends_with("_ATTR") ? text.substr(0, text.size() - 5) : text);
        }
    }
    const std::string meant = did_you_mean(name, whole);
    return meant.empty() ? did_you_mean(name, bare) : meant;
}

std::string_view format_name(uint32_t format) {
    return format < format_names().size() ? std::string_view(format_names()[format]) : "unknown";
}

const std::vector<std::string> &format_names() {
    static const std::vector<std::string> names{"string", "integer", "binary", "address"};
    return names;
}

bool travels_as_number(uint32_t type) {
    // A type without an attribute has a row with a format, too.
    const uint32_t format =
        type <= AAA_ATTR_MAX ? aaa_attribute_format(static_cast<int32_t>(type)) : UINT32_MAX;
    return format == AAA_FORMAT_INTEGER || format == AAA_FORMAT_IPADDR;
}

bool is_secret(uint32_t type) {
    return type == AAA_ATTR_MAX ||
           std::find(std::begin(kSecrets), std::end(kSecrets), type) != std::end(kSecrets);
}

}  // namespace aaactl
