// SPDX-License-Identifier: Apache-2.0
//
// Collects the parts and fields that were given and fills in the others.

#include "message/message_draft.hpp"

#include <algorithm>

#include "cli/output.hpp"

namespace aaactl {
namespace {

uint64_t most_of(const Field &field) {
    return field.size >= 8 ? UINT64_MAX : (uint64_t{1} << (8u * field.size)) - 1;
}

// The size of the next part, which the length in a record counts.
size_t bytes_after(const std::vector<Part> &parts, size_t part, std::string_view name) {
    const auto *bytes = part + 1 < parts.size() ? std::get_if<Bytes>(&parts[part + 1].content) : nullptr;
    return bytes != nullptr && bytes->name == name ? bytes->bytes.size() : 0;
}

bool has_field(const RecordLayout &layout, std::string_view name) {
    return std::any_of(layout.fields.begin(), layout.fields.end(),
                       [&](const Field &field) { return name == field.name; });
}

}  // namespace

void Draft::kind(std::string_view name) {
    const auto kinds = message_kinds();
    if (std::none_of(kinds.begin(), kinds.end(), [&](const KindHelp &kind) { return kind.name == name; })) {
        throw Refused{"no kind of message is called '" + escaped(name) + "'"};
    }
    if (name == "auto" || name == "reply" || name == "session") {
        throw Refused{"'" + std::string(name) + "' is a group of kinds; name one of them"};
    }
    message_.kind = name;
}

void Draft::record(std::string_view name) {
    const RecordLayout *layout = record_layout(name);
    if (layout == nullptr || name == "list") {
        throw Refused{"no record is called '" + escaped(name) + "'"};
    }
    message_.parts.push_back({0, empty_record(*layout)});
    given_.emplace_back();
}

void Draft::list() {
    message_.parts.push_back({0, empty_list()});
    given_.emplace_back();
}

void Draft::bytes(std::string_view name, std::string value) {
    message_.parts.push_back({0, Bytes{std::string(name), std::move(value), false}});
    given_.emplace_back();
}

void Draft::pair(Pair pair) {
    if (message_.parts.empty() || !std::holds_alternative<List>(message_.parts.back().content)) {
        list();
    }
    if (pair.padding.empty()) {
        pair.padding.assign(padding_of(pair.value.size()), '\0');
    } else if (pair.padding.size() != padding_of(pair.value.size())) {
        throw Refused{"a value of " + std::to_string(pair.value.size()) + " bytes has " +
                      std::to_string(padding_of(pair.value.size())) + " bytes of padding, not " +
                      std::to_string(pair.padding.size())};
    }
    std::get<List>(message_.parts.back().content).pairs.push_back(std::move(pair));
}

Record &Draft::open() {
    if (message_.parts.empty()) {
        list();
    }
    auto &content = message_.parts.back().content;
    if (auto *record = std::get_if<Record>(&content)) {
        return *record;
    }
    if (auto *list = std::get_if<List>(&content)) {
        return list->header;
    }
    throw Refused{"plain bytes have no fields"};
}

const Field &Draft::field(std::string_view name) {
    const Record &record = open();
    for (const Field &field : record.layout->fields) {
        if (name == field.name) {
            if (!given_.back().insert(field.name).second) {
                throw Refused{std::string(field.name) + " is given twice"};
            }
            return field;
        }
    }
    throw Refused{std::string("the record ") + record.layout->name + " has no field '" + escaped(name) + "'"};
}

void Draft::number(const Field &field, uint64_t value) {
    if (!field.is_number()) {
        throw Refused{std::string(field.name) + " is not a number"};
    }
    if (value > most_of(field)) {
        throw Refused{std::string(field.name) + " is at most " + std::to_string(most_of(field))};
    }
    store_number(field, value, open().bytes);
}

// A text is filled up with zeros; there has to be at least one.
void Draft::content(const Field &field, std::string bytes) {
    if (field.is_number()) {
        throw Refused{std::string(field.name) + " is a number"};
    }
    if (field.form == FieldForm::text && bytes.size() < field.size) {
        bytes.resize(field.size, '\0');
    }
    if (bytes.size() != field.size) {
        throw Refused{std::string(field.name) + " has " + std::to_string(field.size) + " bytes, not " +
                      std::to_string(bytes.size())};
    }
    open().bytes.replace(field.offset, field.size, bytes);
}

void Draft::default_number(size_t part, Record &record, const char *field, uint64_t value) {
    if (!given_[part].contains(field) && has_field(*record.layout, field)) {
        record.set_number(field, value);
    }
}

void Draft::complete_list(size_t part) {
    auto &list = std::get<List>(message_.parts[part].content);
    size_t total = list.header.bytes.size();
    for (const Pair &pair : list.pairs) {
        total += sizeof(avpair_t) + pair.value.size() + pair.padding.size();
    }
    default_number(part, list.header, "total", total);
    default_number(part, list.header, "count", list.live() & 0xffff);
}

void Draft::complete(size_t part) {
    if (std::holds_alternative<List>(message_.parts[part].content)) {
        complete_list(part);
    } else if (auto *record = std::get_if<Record>(&message_.parts[part].content)) {
        default_number(part, *record, "text1_length", bytes_after(message_.parts, part, "text1"));
        default_number(part, *record, "length", bytes_after(message_.parts, part, "data"));
    }
}

Message Draft::finish() {
    for (size_t part = 0; part < message_.parts.size(); ++part) {
        complete(part);
    }
    finish_message(message_);
    return std::move(message_);
}

}  // namespace aaactl
