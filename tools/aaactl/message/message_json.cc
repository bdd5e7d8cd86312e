// SPDX-License-Identifier: Apache-2.0
//
// The parts of a message to JSON.

#include "message/message_json.hpp"

#include <algorithm>

#include "dictionary/attributes.hpp"
#include "message/message_meanings.hpp"
#include "message/message_value.hpp"

namespace aaactl {
namespace {

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
    if (field.is_number()) {
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

void add_shown_value(Json &document, const Pair &pair, service::TextMask &mask, bool show_secrets) {
    const Shown shown = shown_value(pair, mask, show_secrets);
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

}  // namespace

Json pair_json(const Pair &pair, service::TextMask &mask, bool show_secrets) {
    const std::string name = attribute_name(pair.type);
    Json document{{"offset", pair.offset}, {"type", pair.type}};
    document["attribute"] = name.empty() ? Json() : Json(name);
    document["deleted"] = pair.deleted();
    document["tag"] = pair.tag;
    document["flags"] = pair.flags;
    document["flag_names"] = flag_names(pair.flags);
    document["length"] = pair.value.size();
    add_shown_value(document, pair, mask, show_secrets);
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
    service::TextMask mask;
    for (const Pair &pair : list.pairs) {
        document["pairs"].push_back(pair_json(pair, mask, show_secrets));
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

}  // namespace aaactl
