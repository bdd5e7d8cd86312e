// SPDX-License-Identifier: Apache-2.0
//
// Cap'n Proto. The built object is the message, except for a table of its segments;
// packing copies both to the common buffer. A received message is read in place, and a
// pointer is checked when it is followed.

#include <capnp/message.h>
#include <capnp/serialize.h>

#include "attributes.capnp.h"
#include "peer.hpp"

namespace peers {

namespace {

using Builder = capnp::MallocMessageBuilder;

// Common parts of a list and a record.
template <typename Struct>
struct CapnProto {
    static constexpr char kWithout[] = "";

    struct Sent {
        Builder builder;

        // Space for the whole message at once; by default 8 KiB are allocated and cleared.
        template <typename Fill>
        Sent(const Message &message, Fill fill) : builder(16 + message.pair_bytes / 4) {
            fill(builder.initRoot<Struct>());
        }
    };

    struct Received {
        capnp::FlatArrayMessageReader message;
        typename Struct::Reader root;

        explicit Received(kj::ArrayPtr<const capnp::word> words)
            : message(words, without_limit()), root(message.getRoot<Struct>()) {}
    };

    static uint32_t pack(Sent &sent, Buffer &out) {
        kj::ArrayOutputStream stream(kj::arrayPtr(reinterpret_cast<kj::byte *>(out.data()), out.size()));
        capnp::writeMessage(stream, sent.builder);
        return static_cast<uint32_t>(stream.getArray().size());
    }

    // By default the words that are read of a message are limited, against small messages
    // that expand; a message that is read for seconds would reach the limit.
    static capnp::ReaderOptions without_limit() {
        capnp::ReaderOptions options;
        options.traversalLimitInWords = UINT64_MAX;
        return options;
    }

    static Received unpack(const char *message, uint32_t len) {
        const void *bytes = message;
        return Received(kj::arrayPtr(static_cast<const capnp::word *>(bytes), len / sizeof(capnp::word)));
    }

    static void release(Sent &) {}
    static void release(Received &) {}
};

kj::ArrayPtr<const kj::byte> bytes_of(const Field &field) {
    return kj::arrayPtr(reinterpret_cast<const kj::byte *>(field.text), field.len);
}

struct CapnProtoList : CapnProto<cp::AttributeList> {
    static constexpr char kName[] = "capnproto";
    static constexpr bool kRecord = false;

    static Sent build(const Message &message) {
        return Sent(message, [&](cp::AttributeList::Builder list) { fill(list, message); });
    }

    static void fill(cp::AttributeList::Builder list, const Message &message) {
        list.setName("bench");
        auto attributes = list.initAttributes(static_cast<unsigned>(message.fields.size()));
        unsigned i = 0;
        for (const Field &field : message.fields) {
            auto attribute = attributes[i++];
            attribute.setType(field.type);
            if (field.text == nullptr) {
                attribute.setNumber(field.number);
            } else {
                attribute.setText(bytes_of(field));
            }
        }
    }

    static Value find(const Received &received, uint32_t type) {
        for (const auto attribute : received.root.getAttributes()) {
            if (attribute.getType() == type) {
                if (attribute.isNumber()) {
                    return Value::of_number(attribute.getNumber());
                }
                const auto text = attribute.getText();
                return Value::of_text(text.begin(), text.size());
            }
        }
        return {};
    }
};

struct CapnProtoRecord : CapnProto<cp::Record> {
    static constexpr char kName[] = "capnproto record";
    static constexpr bool kRecord = true;

    static Sent build(const Message &message) {
        return Sent(message, [&](cp::Record::Builder record) {
            for (const Field &field : message.fields) {
                set(record, field);
            }
        });
    }

    static void set(cp::Record::Builder &record, const Field &value) {
        switch (value.type) {
#define PEER_NUMBER(type, field, Field)  \
    case type:                           \
        record.set##Field(value.number); \
        record.setWith##Field(true);     \
        break;
#define PEER_TEXT(type, field, Field)       \
    case type:                              \
        record.set##Field(bytes_of(value)); \
        break;
#include "fields.def"
        }
    }

    static Value bytes(capnp::Data::Reader found) {
        return Value::of_text(found.begin(), found.size());
    }

    static Value find(const Received &received, uint32_t wanted) {
        const auto &record = received.root;
        switch (wanted) {
#define PEER_NUMBER(type, field, Field) \
    case type:                          \
        return record.getWith##Field() ? Value::of_number(record.get##Field()) : Value{};
#define PEER_TEXT(type, field, Field) \
    case type:                        \
        return record.has##Field() ? bytes(record.get##Field()) : Value{};
#include "fields.def"
        }
        return {};
    }
};

}  // namespace

void add_capnproto() {
    add_rows<CapnProtoList>();
    add_rows<CapnProtoRecord>();
}

}  // namespace peers
