// SPDX-License-Identifier: Apache-2.0
//
// Protocol Buffers.

#include "attributes.pb.h"
#include "peer.hpp"

namespace peers {

namespace {

// Common parts of a list and a record. Messages are made on arenas, as the manual
// advises when many small objects are made and released together.
template <typename Proto>
struct Protobuf {
    static constexpr char kWithout[] = "";

    struct Made {
        google::protobuf::Arena arena;
        Proto *message = google::protobuf::Arena::CreateMessage<Proto>(&arena);

        template <typename Fill>
        explicit Made(Fill fill) {
            fill(*message);
        }
    };
    using Sent = Made;
    using Received = Made;

    static uint32_t pack(const Made &sent, Buffer &out) {
        bench::require(sent.message->SerializeToArray(out.data(), static_cast<int>(out.size())),
                       "protobuf: pack");
        return static_cast<uint32_t>(sent.message->GetCachedSize());
    }

    static Made unpack(const char *message, uint32_t len) {
        return Made([&](Proto &received) {
            bench::require(received.ParseFromArray(message, static_cast<int>(len)), "protobuf: unpack");
        });
    }

    static void release(Made &) {}
};

struct ProtobufList : Protobuf<pb::List> {
    static constexpr char kName[] = "protobuf";
    static constexpr bool kRecord = false;

    static Made build(const Message &message) {
        return Made([&](pb::List &list) { fill(list, message); });
    }

    static void fill(pb::List &list, const Message &message) {
        list.set_name("bench");
        list.mutable_attributes()->Reserve(static_cast<int>(message.fields.size()));
        for (const Field &field : message.fields) {
            pb::Attribute *attribute = list.add_attributes();
            attribute->set_type(field.type);
            if (field.text == nullptr) {
                attribute->set_number(field.number);
            } else {
                attribute->set_text(field.text, field.len);
            }
        }
    }

    static Value find(const Received &list, uint32_t type) {
        for (const pb::Attribute &attribute : list.message->attributes()) {
            if (attribute.type() == type) {
                return attribute.has_text() ? Value::of_text(attribute.text().data(), attribute.text().size())
                                            : Value::of_number(attribute.number());
            }
        }
        return {};
    }
};

struct ProtobufRecord : Protobuf<pb::Record> {
    static constexpr char kName[] = "protobuf record";
    static constexpr bool kRecord = true;

    static Made build(const Message &message) {
        return Made([&](pb::Record &record) {
            for (const Field &field : message.fields) {
                set(record, field);
            }
        });
    }

    static void set(pb::Record &record, const Field &value) {
        switch (value.type) {
#define PEER_NUMBER(type, field, Field)   \
    case type:                            \
        record.set_##field(value.number); \
        break;
#define PEER_TEXT(type, field, Field)              \
    case type:                                     \
        record.set_##field(value.text, value.len); \
        break;
#include "fields.def"
        }
    }

    static Value find(const Received &received, uint32_t wanted) {
        const pb::Record &record = *received.message;
        switch (wanted) {
#define PEER_NUMBER(type, field, Field) \
    case type:                          \
        return record.has_##field() ? Value::of_number(record.field()) : Value{};
#define PEER_TEXT(type, field, Field) \
    case type:                        \
        return record.has_##field() ? Value::of_text(record.field().data(), record.field().size()) : Value{};
#include "fields.def"
        }
        return {};
    }
};

}  // namespace

void add_protobuf() {
    add_rows<ProtobufList>();
    add_rows<ProtobufRecord>();
}

}  // namespace peers
