// SPDX-License-Identifier: Apache-2.0
//
// Prints the tables of the dissector in Lua: records and their fields, attributes, names of numbers.
// They are those of "aaactl decode".

#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "dictionary/attributes.hpp"
#include "message/message.hpp"
#include "message/message_meanings.hpp"
#include "message/message_value.hpp"

namespace {

using namespace aaactl;

constexpr uint32_t kMostValues = 65536;  // names of values are below
constexpr uint32_t kFirstValues = 512;
constexpr uint32_t kGroups = 1000, kLastGroup = 4999;

std::string quoted_lua(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += std::string("\\") + c;
        } else if (byte < 0x20 || byte > 0x7e) {
            char code[8];
            std::snprintf(code, sizeof code, "\\%03u", byte);
            out += code;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

const char *form_of_field(FieldForm form) {
    switch (form) {
        case FieldForm::number:
            return "host";
        case FieldForm::network:
            return "network";
        case FieldForm::bytes:
            return "bytes";
        case FieldForm::text:
            return "text";
    }
    return "?";
}

std::string meaning_name(Meaning meaning) {
    return meaning == nullptr                   ? ""
           : meaning == meaning_of_message_type ? "request"
           : meaning == meaning_of_parameter    ? "parameter"
                                                : "result";
}

void print_layouts() {
    std::puts("local layouts = {");
    for (const RecordLayout *layout : record_layouts()) {
        std::printf("  [%s] = {size = %u,\n", quoted_lua(layout->name).c_str(), layout->size);
        for (const Field &field : layout->fields) {
            const std::string meaning = meaning_name(field.meaning);
            std::printf("    {name = %s, offset = %u, size = %u, form = \"%s\"%s},\n",
                        quoted_lua(field.name).c_str(), field.offset, field.size, form_of_field(field.form),
                        meaning.empty() ? "" : (", meaning = \"" + meaning + "\"").c_str());
        }
        std::puts("  },");
    }
    std::puts("}");
}

// AAA_USERNAME_ATTR is "username" in filters.
std::string filter_name(const std::string &name) {
    std::string text = name.starts_with("AAA_") ? name.substr(4) : name;
    text = text.ends_with("_ATTR") ? text.substr(0, text.size() - 5) : text;
    for (char &c : text) {
        c = static_cast<char>(std::isalnum(static_cast<unsigned char>(c)) != 0
                                  ? std::tolower(static_cast<unsigned char>(c))
                                  : '_');
    }
    return text;
}

void print_attributes() {
    std::map<std::string, int> uses;
    for (uint32_t type = 0; type < AAA_TABLE_ROWS; ++type) {
        ++uses[filter_name(attribute_name(type))];
    }
    std::puts("local attributes = {");
    for (uint32_t type = 0; type < AAA_TABLE_ROWS; ++type) {
        const std::string name = attribute_name(type);
        if (name.empty()) {
            continue;
        }
        const std::string filter = filter_name(name);
        std::printf("  [%u] = {name = \"%s\", filter = \"%s\", format = \"%s\"%s%s},\n", type, name.c_str(),
                    uses[filter] == 1 ? filter.c_str() : (filter + "_" + std::to_string(type)).c_str(),
                    std::string(format_name(aaa_table[type].format)).c_str(),
                    travels_as_number(type) ? ", number = true" : "",
                    is_secret(type) ? ", secret = true" : "");
    }
    std::puts(
        "}\n-- Types without an attribute whose values of four bytes are numbers.\nlocal bare_numbers = {");
    for (uint32_t type = 0; type <= AAA_ATTR_MAX; ++type) {
        if (attribute_name(type).empty() && travels_as_number(type)) {
            std::printf("  [%u] = true,\n", type);
        }
    }
    std::puts("}");
}

void print_names(const char *table, const std::map<uint32_t, std::string> &names) {
    std::printf("local %s = {\n", table);
    for (const auto &[value, name] : names) {
        std::printf("  [%u] = %s,\n", value, quoted_lua(name).c_str());
    }
    std::puts("}");
}

template <typename Function>
std::map<uint32_t, std::string> names_of(Function meaning) {
    std::map<uint32_t, std::string> names;
    for (uint32_t value = 0; value < kMostValues; ++value) {
        if (const std::string name = meaning(value); !name.empty()) {
            names[value] = name;
        }
    }
    return names;
}

std::string value_meaning(uint32_t type, uint32_t value) {
    Pair pair;
    pair.type = type;
    pair.value = travels_as_number(type) ? network_bytes(value) : std::string(4, '\0');
    if (!travels_as_number(type)) {
        std::memcpy(pair.value.data(), &value, sizeof value);
    }
    return meaning_of_value(pair);
}

bool names_a_value(uint32_t type) {
    for (uint32_t value = 0; value < kFirstValues; ++value) {
        if (!value_meaning(type, value).empty()) {
            return true;
        }
    }
    return false;
}

void print_value_names() {
    std::puts("local values = {");
    for (uint32_t type = 0; type < AAA_TABLE_ROWS; ++type) {
        // All values of all attributes would take a minute; an enumeration names one of the first.
        if (!travels_as_number(type) || type == AAA_AUTHEN_METHOD_ATTR || !names_a_value(type)) {
            continue;
        }
        std::printf("  [%u] = {\n", type);
        for (const auto &[value, name] : names_of([&](uint32_t v) { return value_meaning(type, v); })) {
            std::printf("    [%u] = %s,\n", value, quoted_lua(name).c_str());
        }
        std::puts("  },");
    }
    std::puts("}");
}

// In the order in which they are named.
void print_flags() {
    std::puts("local flag_bits = {");
    for (const std::string &name : flag_names(UINT32_MAX)) {
        for (uint32_t bit = 1; bit != 0; bit <<= 1) {
            if (flag_names(bit) == std::vector<std::string>{name} && !name.starts_with("0x")) {
                std::printf("  {bit = %u, name = %s},\n", bit, quoted_lua(name).c_str());
            }
        }
    }
    std::puts("}");
}

// What announces secrets in commands.
void print_secret_words() {
    std::puts("local secret_parts = {");
#define AAA_SECRET_PART(text) std::printf("  %s,\n", quoted_lua(text).c_str());
#include "masks/secret_words.def"
    std::puts("}\nlocal secret_words = {");
#define AAA_SECRET_WORD(text) std::printf("  %s,\n", quoted_lua(text).c_str());
#include "masks/secret_words.def"
    std::puts("}\nlocal secret_options = {");
#define AAA_SECRET_OPTION(name, text) \
    std::printf("  {program = %s, option = %s},\n", quoted_lua(name).c_str(), quoted_lua(text).c_str());
#include "masks/secret_words.def"
    std::puts("}\nlocal command_attributes = {");
#define AAA_COMMAND_ATTRIBUTE(name)       std::printf("  [%d] = \"argument\",\n", int{name});
#define AAA_WHOLE_COMMAND_ATTRIBUTE(name) std::printf("  [%d] = \"whole\",\n", int{name});
#include "masks/secret_words.def"
    std::puts("}");
}

}  // namespace

int main() {
    std::puts("-- Made from the tables of aaactl. Do not edit.");
    print_layouts();
    print_attributes();
    print_flags();
    print_names("requests", names_of([](uint32_t value) { return meaning_of_message_type(value, 0); }));
    print_names("author_options",
                names_of([](uint32_t value) { return meaning_of_parameter(value, AAA_REQ_AUTHOR); }));
    print_names("acct_options",
                names_of([](uint32_t value) { return meaning_of_parameter(value, AAA_REQ_ACCT); }));
    // The number of a server group says all that is known of it.
    print_names("methods", names_of([](uint32_t value) {
                    return value >= kGroups && value <= kLastGroup
                               ? ""
                               : value_meaning(AAA_AUTHEN_METHOD_ATTR, value);
                }));
    std::map<uint32_t, std::string> results;
#define AAA_RESULT_CODE(index, name, text)          \
    results[index == 0 ? 0 : AAA_ERR_CODE(index)] = \
        meaning_of_result(index == 0 ? 0 : AAA_ERR_CODE(index), 0);
#include "aaa/result_codes.def"
    results[AAA_STATUS_END_OF_LIST] = meaning_of_result(AAA_STATUS_END_OF_LIST, 0);
    print_names("results", results);
    print_value_names();
    print_secret_words();
    return std::fflush(stdout) == 0 ? 0 : 1;
}
