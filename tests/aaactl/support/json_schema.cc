// SPDX-License-Identifier: Apache-2.0

#include "aaactl/support/json_schema.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace aaactl_test {
namespace {

const std::string kFolder = AAA_SOURCE_DIR "/docs/schema/";

bool exists(const std::string &file) {
    return std::ifstream(kFolder + file).good();
}

const JsonDocument &load(const std::string &file) {
    static std::map<std::string, JsonDocument> loaded;
    auto found = loaded.find(file);
    if (found == loaded.end()) {
        std::ifstream stream(kFolder + file);
        std::ostringstream text;
        text << stream.rdbuf();
        const auto document = JsonDocument::parse(text.str());
        EXPECT_TRUE(document.is_object()) << kFolder + file << " is not a schema";
        found = loaded.emplace(file, document).first;
    }
    return found->second;
}

std::string type_of(const JsonDocument &value) {
    if (value.is_null()) {
        return "null";
    }
    if (value.is_structured()) {
        return value.is_object() ? "object" : "array";
    }
    const std::string text = value.dump();
    return text[0] == '"'                                   ? "string"
           : text == "true" || text == "false"              ? "boolean"
           : text.find_first_of(".eE") == std::string::npos ? "integer"
                                                            : "number";
}

class Checker {
  public:
    explicit Checker(std::string file) : file_(std::move(file)) {}

    std::string fault(const JsonDocument &value, const JsonDocument &schema, const std::string &at) const {
        for (const auto &[keyword, argument] : schema.items()) {
            if (!is_known(keyword)) {
                return file_ + ": the keyword \"" + keyword + "\" is not known; add it to " __FILE__;
            }
        }
        if (schema.contains("$ref")) {
            return referred(value, schema["$ref"].text(), at);
        }
        if (schema.contains("anyOf")) {
            return any_of(value, schema["anyOf"], at);
        }
        if (schema.contains("const") && !(value == schema["const"])) {
            return at + " is not " + schema["const"].dump();
        }
        if (schema.contains("enum") && !is_one_of(value, schema["enum"])) {
            return at + " is " + value.dump() + ", not one of " + schema["enum"].dump();
        }
        if (schema.contains("type") && schema["type"].text() != type_of(value)) {
            return at + " is not of type " + schema["type"].text();
        }
        return value.is_object()       ? object(value, schema, at)
               : value.is_structured() ? array(value, schema, at)
                                       : number(value, schema, at);
    }

  private:
    static bool is_known(const std::string &keyword) {
        static const std::set<std::string> known{
            "$schema", "$defs", "$ref",     "title",      "description",
            "type",    "const", "enum",     "anyOf",      "minimum",
            "maximum", "items", "required", "properties", "additionalProperties"};
        return known.contains(keyword);
    }

    // "#/$defs/entry" or "common.schema.json#/$defs/item"
    std::string referred(const JsonDocument &value, const std::string &reference,
                         const std::string &at) const {
        const size_t hash = reference.find('#');
        const std::string file = hash == 0 ? file_ : reference.substr(0, hash);
        JsonDocument schema = load(file);
        std::istringstream path(reference.substr(hash + 2));
        for (std::string part; std::getline(path, part, '/');) {
            if (!schema.contains(part)) {
                return file_ + ": " + reference + " does not exist";
            }
            schema = schema[part];
        }
        return Checker(file).fault(value, schema, at);
    }

    std::string any_of(const JsonDocument &value, const JsonDocument &schemas, const std::string &at) const {
        std::string faults;
        for (const JsonDocument &schema : schemas) {
            const std::string why = fault(value, schema, at);
            if (why.empty()) {
                return "";
            }
            faults += (faults.empty() ? "" : "; or ") + why;
        }
        return faults;
    }

    static bool is_one_of(const JsonDocument &value, const JsonDocument &words) {
        for (const JsonDocument &word : words) {
            if (value == word) {
                return true;
            }
        }
        return false;
    }

    std::string object(const JsonDocument &value, const JsonDocument &schema, const std::string &at) const {
        if (schema.contains("required")) {
            for (const JsonDocument &name : schema["required"]) {
                if (!value.contains(name.text())) {
                    return at + " lacks " + name.text();
                }
            }
        }
        for (const auto &[name, member] : value.items()) {
            const bool is_named = schema.contains("properties") && schema["properties"].contains(name);
            if (!is_named && !schema.contains("additionalProperties")) {
                return at + "/" + name + " is not documented";
            }
            const std::string why =
                fault(member, is_named ? schema["properties"][name] : schema["additionalProperties"],
                      at + "/" + name);
            if (!why.empty()) {
                return why;
            }
        }
        return "";
    }

    std::string array(const JsonDocument &value, const JsonDocument &schema, const std::string &at) const {
        for (std::size_t i = 0; i < value.size(); ++i) {
            const std::string why = !schema.contains("items")
                                        ? at + " may not be an array with elements"
                                        : fault(value[i], schema["items"], at + "/" + std::to_string(i));
            if (!why.empty()) {
                return why;
            }
        }
        return "";
    }

    static std::string number(const JsonDocument &value, const JsonDocument &schema, const std::string &at) {
        const bool is_negative = type_of(value) == "integer" && value.dump()[0] == '-';
        if (schema.contains("minimum") && (is_negative || value.number() < schema["minimum"].number())) {
            return at + " is less than " + schema["minimum"].dump();
        }
        if (schema.contains("maximum") && !is_negative && value.number() > schema["maximum"].number()) {
            return at + " is more than " + schema["maximum"].dump();
        }
        return "";
    }

    std::string file_;
};

bool has(const std::vector<std::string> &args, const char *option) {
    return std::find(args.begin(), args.end(), option) != args.end();
}

std::vector<JsonDocument> documents_of(const std::string &out) {
    const auto whole = JsonDocument::parse(out);
    if (whole.valid()) {
        return {whole};
    }
    std::vector<JsonDocument> lines;
    std::istringstream stream(out);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(JsonDocument::parse(line));
    }
    return lines;
}

}  // namespace

std::string schema_fault(const JsonDocument &document, const std::string &file) {
    return Checker(file).fault(document, load(file), "");
}

std::string schema_of(const std::vector<std::string> &args) {
    std::vector<std::string> words;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--color" || args[i] == "--colour") {
            ++i;
        } else if (!args[i].starts_with('-')) {
            words.push_back(args[i]);
        }
    }
    const auto file = [](const std::string &name) { return name + ".schema.json"; };
    const auto is_name = [](const std::string &word) { return word.find('/') == std::string::npos; };
    if (words.size() > 1 && is_name(words[1]) && exists(file(words[0] + "-" + words[1]))) {
        return file(words[0] + "-" + words[1]);
    }
    return !words.empty() && is_name(words[0]) && exists(file(words[0])) ? file(words[0]) : "";
}

void expect_documented(const std::vector<std::string> &args, const std::string &out) {
    if (!has(args, "--json") || has(args, "--help") || has(args, "--help-all") || has(args, "--version")) {
        return;
    }
    const std::string file = schema_of(args);
    for (const JsonDocument &document : documents_of(out)) {
        const bool failed = document.contains("error");
        if (!document.valid() || (failed && file.empty())) {
            continue;  // cut by the test, or the command line is wrong
        }
        std::string words;
        for (const std::string &arg : args) {
            words += " " + arg;
        }
        if (file.empty()) {
            ADD_FAILURE() << "the document of aaactl" << words << " has no schema in docs/schema";
        } else if (const std::string why = schema_fault(document, file); !why.empty()) {
            ADD_FAILURE() << "aaactl" << words << ": the document is not as docs/schema/" << file
                          << " says: " << why << "\n"
                          << document.dump(2).substr(0, 4000);
        }
    }
}

}  // namespace aaactl_test
