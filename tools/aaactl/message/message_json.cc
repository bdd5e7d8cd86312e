// SPDX-License-Identifier: Apache-2.0
//
// Parts to JSON, and back with the place of an error.

#include "message/message_json.hpp"

#include <algorithm>
#include <initializer_list>

#include "dictionary/attributes.hpp"
#include "message/message_draft.hpp"
#include "message/message_meanings.hpp"
#include "message/message_value.hpp"

namespace aaactl {
namespace {

// ---- Written --------------------------------------------------------------------

bool is_number(const Field &field) {
    return field.form == FieldForm::number || field.form == FieldForm::network;
}

// JSON has strings for text only. Control characters are escaped in them, but
// characters that act on a terminal are not.
bool is_plain_text(std::string_view bytes) {
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
    std::string printable(bytes);
    std::replace_if(printable.begin(), printable.end(), control, ' ');
    const std::string shown = escaped(printable);
    return shown.size() ==
           printable.size() + static_cast<size_t>(std::count(printable.begin(), printable.end(), '\\'));
}

Json field_json(const Record &record, const Field &field) {
    if (is_number(field)) {
        return load_number(field, record.bytes);
    }
    const std::string_view bytes = record.field_bytes(field);
    if (field.form == FieldForm::bytes) {
        return hex(bytes);
    }
    const size_t end = std::min(bytes.find('\0'), bytes.size());
    const bool text = end < bytes.size() && bytes.find_first_not_of('\0', end) == std::string_view::npos;
    return text && is_plain_text(bytes.substr(0, end)) ? Json(bytes.substr(0, end))
                                                       : Json{{"hex", hex(bytes)}};
}

void add_fields(Json &document, const Record &record, uint32_t type) {
    Json fields = Json::object();
    Json meanings = Json::object();
    for (const Field &field : record.layout->fields) {
        fields[field.name] = field_json(record, field);
        const std::string meaning =
            field.meaning != nullptr ? field.meaning(load_number(field, record.bytes), type) : "";
        if (!meaning.empty()) {
            meanings[field.name] = meaning;
        }
    }
    document["fields"] = fields;
    if (meanings != Json::object()) {
        document["meanings"] = meanings;
    }
}

void add_value(Json &document, const Pair &pair) {
    switch (form_of(pair)) {
        case ValueForm::number:
            document["number"] = network_number(pair.value);
            return;
        case ValueForm::address:
            document["address"] = value_text(pair);
            return;
        case ValueForm::text:
            if (is_plain_text(pair.value)) {
                document["text"] = pair.value;
                return;
            }
            break;
        case ValueForm::hex:
            break;
    }
    document["hex"] = hex(pair.value);
}

void add_shown_value(Json &document, const Pair &pair, bool show_secrets) {
    const Shown shown = shown_value(pair, show_secrets);
    if (!shown.masked) {
        add_value(document, pair);
    } else {
        document["masked"] = true;
        if (shown.text != kMask) {
            document["shown"] = shown.text;
        }
    }
}

Json part_json(const Part &part, uint32_t type, bool show_secrets) {
    if (const auto *list = std::get_if<List>(&part.content)) {
        Json document{{"part", "list"}, {"offset", part.offset}};
        document.update(list_json(*list, show_secrets));
        return document;
    }
    if (const auto *record = std::get_if<Record>(&part.content)) {
        Json document{{"part", "record"}, {"record", record->layout->name}, {"offset", part.offset}};
        add_fields(document, *record, type);
        return document;
    }
    const auto &bytes = std::get<Bytes>(part.content);
    Json document{
        {"part", "bytes"}, {"name", bytes.name}, {"offset", part.offset}, {"length", bytes.bytes.size()}};
    if (bytes.leftover && shown_leftover(bytes.bytes, show_secrets).masked) {
        document["masked"] = true;
    } else {
        document["hex"] = hex(bytes.bytes);
    }
    return document;
}

// ---- Read -----------------------------------------------------------------------

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
        throw Refused{"no attribute is called '" + escaped(string_in(object["attribute"])) + "'"};
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
    if (is_number(field)) {
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

Json pair_json(const Pair &pair, bool show_secrets) {
    const std::string name = attribute_name(pair.type);
    Json document{{"offset", pair.offset}, {"type", pair.type}};
    document["attribute"] = name.empty() ? Json() : Json(name);
    document["deleted"] = pair.deleted();
    document["tag"] = pair.tag;
    document["flags"] = pair.flags;
    document["flag_names"] = flag_names(pair.flags);
    document["length"] = pair.value.size();
    add_shown_value(document, pair, show_secrets);
    const std::string meaning = document.contains("masked") ? "" : meaning_of_value(pair);
    if (!meaning.empty()) {
        document["meaning"] = meaning;
    }
    if (is_secret(pair.type) && shown_leftover(pair.padding, show_secrets).masked) {
        document["padding_masked"] = true;
    } else if (!pair.padding.empty()) {
        document["padding"] = hex(pair.padding);
    }
    return document;
}

Json list_json(const List &list, bool show_secrets) {
    Json document = Json::object();
    add_fields(document, list.header, UINT32_MAX);
    document["live"] = list.live();
    document["deleted"] = list.pairs.size() - list.live();
    document["pairs"] = Json::array();
    for (const Pair &pair : list.pairs) {
        document["pairs"].push_back(pair_json(pair, show_secrets));
    }
    return document;
}

Json to_json(const Message &message, bool show_secrets) {
    Json document{
        {"kind", message.kind}, {"length", write_message(message).size()}, {"parts", Json::array()}};
    for (const Part &part : message.parts) {
        document["parts"].push_back(part_json(part, message.type(), show_secrets));
    }
    if (message.fault) {
        document["fault"] = {
            {"offset", message.fault->offset}, {"message", message.fault->what}, {"code", message.fault->rc}};
    }
    return document;
}

Message from_json(const Json &document) {
    Draft draft;
    const bool list = document.is_object() && document.contains("pairs") && !document.contains("parts");
    list ? read_short_list(draft, document) : read_parts(draft, document);
    return draft.finish();
}

}  // namespace aaactl
