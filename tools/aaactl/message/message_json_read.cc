// SPDX-License-Identifier: Apache-2.0
//
// JSON to the parts of a message; a refusal names the place of the error.

#include <algorithm>
#include <initializer_list>

#include "dictionary/attributes.hpp"
#include "message/message_draft.hpp"
#include "message/message_json.hpp"
#include "message/message_value.hpp"

namespace aaactl {
namespace {

[[noreturn]] void refuse(const std::string &path, const std::string &why) {
    throw Failure(ExitCode::bad_input, (path.empty() ? "document" : path) + ": " + why);
}

// A misspelt key would silently change the message.
void only_keys(const Json &object, const std::string &path, std::initializer_list<const char *> keys) {
    if (!object.is_object()) {
        refuse(path, "an object is needed");
    }
    for (const auto &[key, value] : object.members()) {
        if (std::none_of(keys.begin(), keys.end(),
                         [&name = key](const char *known) { return name == known; })) {
            refuse(path, "the key '" + escaped(key) + "' is not known here");
        }
    }
}

void no_mask(const Json &object) {
    if (object.contains("masked") && object["masked"] != Json(false)) {
        throw Refused{"the value is masked; decode with --show-secrets to encode it again"};
    }
}

const std::string &string_in(const Json &value) {
    if (!value.is_string()) {
        throw Refused{"a string is needed"};
    }
    return value.text();
}

uint64_t unsigned_in(const Json &value, uint64_t most) {
    if (!value.is_natural() || value.natural() > most) {
        throw Refused{"a number from 0 to " + std::to_string(most) + " is needed"};
    }
    return value.natural();
}

uint32_t word_in(const Json &object, const char *key) {
    return object.contains(key) ? static_cast<uint32_t>(unsigned_in(object[key], UINT32_MAX)) : 0;
}

// "hex" or "text"
std::string bytes_in(const Json &object) {
    no_mask(object);
    if (object.contains("hex") == object.contains("text")) {
        throw Refused{"one of \"hex\" and \"text\" is needed"};
    }
    return object.contains("hex") ? hex_bytes(string_in(object["hex"])) : string_in(object["text"]);
}

std::string number_value(const Json &value, uint32_t type) {
    return value_of(std::to_string(unsigned_in(value, UINT32_MAX)), type);
}

std::string address_value(const Json &value, uint32_t type) {
    if (!address_of(string_in(value))) {
        throw Refused{"not an IPv4 address"};
    }
    return value_of(string_in(value), type);
}

std::string value_in(const Json &object, uint32_t type) {
    no_mask(object);
    int given = 0;
    for (const char *key : {"text", "number", "address", "hex"}) {
        given += object.contains(key) ? 1 : 0;
    }
    if (given != 1) {
        throw Refused{"one of \"text\", \"number\", \"address\" and \"hex\" is needed"};
    }
    if (object.contains("number")) {
        return number_value(object["number"], type);
    }
    return object.contains("address") ? address_value(object["address"], type) : bytes_in(object);
}

uint32_t type_in(const Json &object) {
    if (!object.contains("attribute") || object["attribute"].is_null()) {
        return object.contains("type") ? word_in(object, "type")
                                       : throw Refused{"a \"type\" or an \"attribute\" is needed"};
    }
    const auto type = attribute_type(string_in(object["attribute"]));
    if (!type) {
        throw Refused{"no attribute is called '" + escaped(string_in(object["attribute"])) + "'" +
                      meant_attribute(string_in(object["attribute"]))};
    }
    if (object.contains("type") && *type != word_in(object, "type")) {
        throw Refused{"type and attribute are not the same"};
    }
    return *type;
}

void check_length(const Json &object, size_t length) {
    if (object.contains("length") && unsigned_in(object["length"], UINT32_MAX) != length) {
        throw Refused{"the length is not that of the value, which has " + std::to_string(length) + " bytes"};
    }
}

Pair pair_in(const Json &object) {
    Pair pair;
    pair.type = type_in(object);
    pair.tag = word_in(object, "tag");
    pair.flags = word_in(object, "flags");
    pair.value = value_in(object, pair.type);
    check_length(object, pair.value.size());
    if (object.contains("padding")) {
        pair.padding = hex_bytes(string_in(object["padding"]));
    } else if (object.contains("padding_masked")) {
        throw Refused{"the padding is masked; decode with --show-secrets to encode it again"};
    }
    return pair;
}

void read_field(Draft &draft, const std::string &name, const Json &value) {
    const Field &field = draft.field(name);
    if (field.is_number()) {
        draft.number(field, unsigned_in(value, UINT64_MAX));
    } else if (value.is_object()) {
        draft.content(field, bytes_in(value));
    } else if (field.form == FieldForm::bytes) {
        draft.content(field, hex_bytes(string_in(value)));
    } else {
        draft.content(field, string_in(value));
    }
}

// Runs a step and adds the path to a refusal.
template <typename Step>
void at(const std::string &path, Step step) {
    try {
        step();
    } catch (const Refused &refused) {
        refuse(path, refused.why);
    }
}

void read_fields(Draft &draft, const Json &fields, const std::string &path) {
    if (!fields.is_object()) {
        refuse(path, "an object is needed");
    }
    for (const auto &[name, value] : fields.members()) {
        at(path + "/" + escaped(name), [&, &name = name, &value = value] { read_field(draft, name, value); });
    }
}

void read_pairs(Draft &draft, const Json &pairs, const std::string &path) {
    if (!pairs.is_array()) {
        refuse(path, "an array is needed");
    }
    for (size_t i = 0; i < pairs.elements().size(); ++i) {
        const Json &pair = pairs.elements()[i];
        const std::string place = path + "/" + std::to_string(i);
        only_keys(pair, place,
                  {"offset", "type", "attribute", "deleted", "tag", "flags", "flag_names", "length", "text",
                   "number", "address", "hex", "masked", "shown", "meaning", "padding", "padding_masked"});
        at(place, [&] { draft.pair(pair_in(pair)); });
    }
}

void read_list(Draft &draft, const Json &object, const std::string &path) {
    only_keys(object, path, {"part", "offset", "fields", "meanings", "pairs", "live", "deleted"});
    draft.list();
    if (object.contains("fields")) {
        read_fields(draft, object["fields"], path + "/fields");
    }
    if (object.contains("pairs")) {
        read_pairs(draft, object["pairs"], path + "/pairs");
    }
}

void read_record(Draft &draft, const Json &object, const std::string &path) {
    only_keys(object, path, {"part", "record", "offset", "fields", "meanings"});
    at(path + "/record", [&] { draft.record(string_in(object["record"])); });
    if (object.contains("fields")) {
        read_fields(draft, object["fields"], path + "/fields");
    }
}

void read_bytes(Draft &draft, const Json &object, const std::string &path) {
    only_keys(object, path, {"part", "name", "offset", "length", "hex", "text", "masked"});
    at(path, [&] {
        const std::string bytes = bytes_in(object);
        check_length(object, bytes.size());
        draft.bytes(string_in(object["name"]), bytes);
    });
}

void read_part(Draft &draft, const Json &object, const std::string &path) {
    const Json &part = object["part"];
    if (part == "list") {
        read_list(draft, object, path);
    } else if (part == "record") {
        read_record(draft, object, path);
    } else if (part == "bytes") {
        read_bytes(draft, object, path);
    } else {
        refuse(path + "/part", "\"list\", \"record\" or \"bytes\" is needed");
    }
}

void read_short_list(Draft &draft, const Json &document) {
    only_keys(document, "", {"name", "pairs"});
    draft.list();
    if (document.contains("name")) {
        at("name", [&] { read_field(draft, "name", document["name"]); });
    }
    read_pairs(draft, document["pairs"], "pairs");
}

void read_parts(Draft &draft, const Json &document) {
    only_keys(document, "", {"kind", "length", "parts", "fault"});
    if (document.contains("fault")) {
        refuse("fault", "this is the readable part of a malformed message, which cannot be encoded");
    }
    if (document.contains("kind")) {
        at("kind", [&] { draft.kind(string_in(document["kind"])); });
    }
    const Json &parts = document["parts"];
    if (!parts.is_array()) {
        refuse("parts", "an array is needed");
    }
    for (size_t i = 0; i < parts.elements().size(); ++i) {
        read_part(draft, parts.elements()[i], "parts/" + std::to_string(i));
    }
}

}  // namespace

Message from_json(const Json &document) {
    Draft draft;
    const bool list = document.is_object() && document.contains("pairs") && !document.contains("parts");
    list ? read_short_list(draft, document) : read_parts(draft, document);
    return draft.finish();
}

}  // namespace aaactl
