// SPDX-License-Identifier: Apache-2.0
//
// FlatBuffers. The built object is the message; packing only copies it to the common
// buffer. A received message is checked by the verifier and then read in place.

#include "attributes_generated.h"
#include "peer.hpp"

namespace peers {

namespace {

using flatbuffers::FlatBufferBuilder;

const uint8_t *bytes_of(const char *text) {
    return reinterpret_cast<const uint8_t *>(text);
}

// Common parts of a list and a record.
template <typename Table>
struct FlatBuffers {
    static constexpr char kWithout[] = "";
    using Sent = FlatBufferBuilder;
    using Received = const Table *;

    static uint32_t pack(const FlatBufferBuilder &built, Buffer &out) {
        std::memcpy(out.data(), built.GetBufferPointer(), built.GetSize());
        return built.GetSize();
    }

    static const Table *unpack(const char *message, uint32_t len) {
        flatbuffers::Verifier verifier(bytes_of(message), len);
        bench::require(verifier.VerifyBuffer<Table>(nullptr), "flatbuffers: unpack");
        return flatbuffers::GetRoot<Table>(message);
    }

    static void release(FlatBufferBuilder &built) { built.Reset(); }
    static void release(const Table *) {}
};

struct FlatBuffersList : FlatBuffers<fb::List> {
    static constexpr char kName[] = "flatbuffers";
    static constexpr bool kRecord = false;

    static FlatBufferBuilder build(const Message &message) {
        FlatBufferBuilder builder;
        std::vector<flatbuffers::Offset<fb::Attribute>> attributes;
        attributes.reserve(message.fields.size());
        for (const Field &field : message.fields) {
            attributes.push_back(
                field.text == nullptr
                    ? fb::CreateAttribute(builder, field.type, field.number)
                    : fb::CreateAttribute(builder, field.type, flatbuffers::nullopt,
                                          builder.CreateVector(bytes_of(field.text), field.len)));
        }
        const auto name = builder.CreateString("bench");
        builder.Finish(fb::CreateList(builder, name, builder.CreateVector(attributes)));
        return builder;
    }

    static Value find(const fb::List *list, uint32_t type) {
        for (const fb::Attribute *attribute : *list->attributes()) {
            if (attribute->type() == type) {
                const auto *text = attribute->text();
                return text != nullptr ? Value::of_text(text->data(), text->size())
                                       : Value::of_number(attribute->number().value_or(0));
            }
        }
        return {};
    }
};

struct FlatBuffersRecord : FlatBuffers<fb::Record> {
    static constexpr char kName[] = "flatbuffers record";
    static constexpr bool kRecord = true;

    // Texts must be written before the table that refers to them is started.
    static FlatBufferBuilder build(const Message &message) {
        FlatBufferBuilder builder;
        flatbuffers::Offset<flatbuffers::Vector<uint8_t>> texts[std::size(kTypes)];
        auto *text = texts;
        for (const Field &field : message.fields) {
            if (field.text != nullptr) {
                *text++ = builder.CreateVector(bytes_of(field.text), field.len);
            }
        }
        fb::RecordBuilder record(builder);
        text = texts;
        for (const Field &field : message.fields) {
            set(record, field, text);
        }
        builder.Finish(record.Finish());
        return builder;
    }

    static void set(fb::RecordBuilder &record, const Field &value,
                    flatbuffers::Offset<flatbuffers::Vector<uint8_t>> *&text) {
        switch (value.type) {
#define PEER_NUMBER(type, field, Field)   \
    case type:                            \
        record.add_##field(value.number); \
        break;
#define PEER_TEXT(type, field, Field) \
    case type:                        \
        record.add_##field(*text++);  \
        break;
#include "fields.def"
        }
    }

    template <typename Number>
    static Value number(const Number &found) {
        return found.has_value() ? Value::of_number(*found) : Value{};
    }
    static Value bytes(const flatbuffers::Vector<uint8_t> *found) {
        return found != nullptr ? Value::of_text(found->data(), found->size()) : Value{};
    }

    static Value find(const fb::Record *record, uint32_t wanted) {
        switch (wanted) {
#define PEER_NUMBER(type, field, Field) \
    case type:                          \
        return number(record->field());
#define PEER_TEXT(type, field, Field) \
    case type:                        \
        return bytes(record->field());
#include "fields.def"
        }
        return {};
    }
};

}  // namespace

void add_flatbuffers() {
    add_rows<FlatBuffersList>();
    add_rows<FlatBuffersRecord>();
}

}  // namespace peers
