// SPDX-License-Identifier: Apache-2.0
//
// From parts to bytes, and the completion of messages from descriptions.

#include <algorithm>
#include <bit>

#include "aaa/cpp/list.hpp"
#include "aaa/result_codes.h"
#include "cli/output.hpp"
#include "dictionary/attributes.hpp"
#include "message/message.hpp"
#include "message/message_value.hpp"

namespace aaactl {
namespace {

const Field &field_of(const Record &record, std::string_view name) {
    const auto fields = record.layout->fields;
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field &field) { return name == field.name; });
    if (found == fields.end()) {
        throw Failure(ExitCode::failed,
                      std::string(record.layout->name) + " has no field " + std::string(name));
    }
    return *found;
}

void append(std::string &bytes, const Record &record) {
    bytes += record.bytes;
}

void append(std::string &bytes, const Bytes &part) {
    bytes += part.bytes;
}

void append(std::string &bytes, const List &list) {
    bytes += list.header.bytes;
    for (const Pair &pair : list.pairs) {
        bytes += network_bytes(pair.type) + network_bytes(pair.tag);
        bytes += network_bytes(static_cast<uint32_t>(pair.value.size())) + network_bytes(pair.flags);
        bytes += pair.value + pair.padding;
    }
}

bool same(const Message &a, const Message &b) {
    return a.parts.size() == b.parts.size() &&
           std::equal(a.parts.begin(), a.parts.end(), b.parts.begin(), [](const Part &x, const Part &y) {
               const auto *record = std::get_if<Record>(&x.content);
               const auto *other = std::get_if<Record>(&y.content);
               const auto *bytes = std::get_if<Bytes>(&x.content);
               const auto *others = std::get_if<Bytes>(&y.content);
               return x.content.index() == y.content.index() &&
                      (record == nullptr || record->layout == other->layout) &&
                      (bytes == nullptr ||
                       (bytes->name == others->name && bytes->bytes.size() == others->bytes.size()));
           });
}

std::string outline(const Message &message) {
    std::string text;
    for (const Part &part : message.parts) {
        const auto *record = std::get_if<Record>(&part.content);
        const auto *bytes = std::get_if<Bytes>(&part.content);
        text += text.empty() ? "" : ", ";
        text += record != nullptr  ? record->layout->name
                : bytes != nullptr ? escaped(bytes->name) + " of " + std::to_string(bytes->bytes.size())
                                   : std::string("list");
    }
    return text;
}

}  // namespace

uint64_t Record::number(std::string_view field) const {
    return load_number(field_of(*this, field), bytes);
}

void Record::set_number(std::string_view field, uint64_t value) {
    store_number(field_of(*this, field), value, bytes);
}

std::string Pair::host_value() const {
    const bool turned =
        value.size() == 4 && travels_as_number(type) && std::endian::native == std::endian::little;
    return turned ? std::string(value.rbegin(), value.rend()) : value;
}

std::string List::name() const {
    const std::string_view bytes =
        std::string_view(header.bytes).substr(offsetof(avlist, av_name), sizeof(avlist::av_name));
    return std::string(bytes.substr(0, bytes.find('\0')));
}

size_t List::live() const {
    return static_cast<size_t>(
        std::count_if(pairs.begin(), pairs.end(), [](const Pair &pair) { return !pair.deleted(); }));
}

const List *Message::list() const {
    for (const Part &part : parts) {
        if (const auto *list = std::get_if<List>(&part.content)) {
            return list;
        }
    }
    return nullptr;
}

uint32_t Message::type() const {
    const auto *record = parts.empty() ? nullptr : std::get_if<Record>(&parts.front().content);
    const std::string_view name = record != nullptr ? record->layout->name : "";
    const bool typed = name == "session" || name.starts_with("request");
    return typed ? static_cast<uint32_t>(record->number("type")) : UINT32_MAX;
}

Record empty_record(const RecordLayout &layout) {
    return {&layout, std::string(layout.size, '\0')};
}

List empty_list() {
    List list{empty_record(*record_layout("list")), {}};
    list.header.set_number("total", kListHeader);
    return list;
}

std::string write_message(const Message &message) {
    std::string bytes;
    for (const Part &part : message.parts) {
        std::visit([&](const auto &content) { append(bytes, content); }, part.content);
    }
    return bytes;
}

// The kind decides how the bytes are read, so reading them back as that kind must
// find the same parts; otherwise it is another message.
std::string finish_message(Message &message) {
    const std::string bytes = write_message(message);
    Message again = read_message(bytes, message.kind);
    if (again.fault) {
        throw Failure(ExitCode::bad_input, "the message would be malformed at byte " +
                                               std::to_string(again.fault->offset) + ": " +
                                               again.fault->what);
    }
    if (!same(message, again)) {
        throw Failure(ExitCode::bad_input, "a message of kind " + message.kind + " does not consist of " +
                                               outline(message) + " but of " + outline(again));
    }
    message = std::move(again);
    return bytes;
}

List list_of(const avlist *list) {
    avlist *copy = nullptr;  // packing consumes it
    if (const cerrno rc = aaa_avpair_copy_list(list, nullptr, &copy); rc != AAA_OK) {
        throw Failure("cannot copy a list", rc);
    }
    const aaa::result<aaa::buffer> packed = aaa::list::adopt(copy).pack();
    if (!packed) {
        throw Failure("cannot pack a list", packed.code());
    }
    const std::string_view bytes(reinterpret_cast<const char *>(packed->data()), packed->size());
    List result = *read_message(bytes, "list").list();
    std::erase_if(result.pairs, [](const Pair &pair) { return pair.deleted(); });
    return result;
}

}  // namespace aaactl
