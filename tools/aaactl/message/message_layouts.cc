// SPDX-License-Identifier: Apache-2.0
//
// The records at the start of messages, field by field, and the meanings of their
// numbers.

#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "aaa/messages.h"
#include "aaa/session_packets.h"
#include "message/message.hpp"
#include "message/message_meanings.hpp"

namespace aaactl {
namespace {

constexpr auto kNumber = FieldForm::number;
constexpr auto kNetwork = FieldForm::network;
constexpr auto kBytes = FieldForm::bytes;
constexpr auto kText = FieldForm::text;

// Offset and size of a member of a public record. The headers fix both with static assertions.
#define SIZE(record, member) sizeof(std::declval<record &>().member)
#define AT(record, member)   offsetof(record, member), SIZE(record, member)
// A field that covers several members, from the first up to `next`.
#define UP_TO(record, first, next) offsetof(record, first), offsetof(record, next) - offsetof(record, first)
// A member of a packet's payload, whose offsets are counted from its own beginning.
#define PAYLOAD(record, member) offsetof(record, u.member) - offsetof(record, u), SIZE(record, u.member)

// ---- Packed list ----------------------------------------------------------------

constexpr Field kList[] = {
    {"total", AT(avlist, reserved0), kNetwork, nullptr},
    {"marker", AT(avlist, marker), kNumber, nullptr},
    {"reserved5", AT(avlist, reserved5), kNumber, nullptr},
    {"count", AT(avlist, av_cnt), kNetwork, nullptr},
    {"addresses", UP_TO(avlist, avpair_first_buf, av_name), kBytes, nullptr},
    {"name", AT(avlist, av_name), kText, nullptr},
    {"pad55", AT(avlist, pad55), kNumber, nullptr},
};

// ---- Classic requests -----------------------------------------------------------

constexpr Field kTransport0{"transport0", AT(aaa_req_hdr_t, transport0), kBytes, nullptr};
constexpr Field kType{"type", AT(aaa_req_hdr_t, type), kNumber, meaning_of_message_type};
constexpr Field kTransport24{"transport24", AT(aaa_req_hdr_t, transport24), kBytes, nullptr};
constexpr Field kParam{"param", AT(aaa_req_hdr_t, param), kNetwork, meaning_of_parameter};
constexpr Field kHostParam{"param", AT(aaa_req_hdr_t, param), kNumber, nullptr};
constexpr Field kFixed36{"fixed36", AT(aaa_req_hdr_t, fixed36), kBytes, nullptr};

constexpr Field kRequest32[] = {kTransport0, kType, kTransport24};
constexpr Field kRequest36[] = {kTransport0, kType, kTransport24, kParam};
constexpr Field kRequest40[] = {kTransport0, kType, kTransport24, kParam, kFixed36};
constexpr Field kServerDisconnect[] = {kTransport0, kType, kTransport24, kHostParam, kFixed36};
constexpr Field kConnect[] = {
    {"transport0", AT(aaa_conn_msg_t, transport0), kBytes, nullptr},
    {"type", AT(aaa_conn_msg_t, type), kNumber, meaning_of_message_type},
    {"transport24", AT(aaa_conn_msg_t, transport24), kBytes, nullptr},
    {"version", AT(aaa_conn_msg_t, version), kNetwork, nullptr},
    {"zero36", AT(aaa_conn_msg_t, zero36), kNetwork, nullptr},
    {"value1", AT(aaa_conn_msg_t, value[0]), kNetwork, nullptr},
    {"value2", AT(aaa_conn_msg_t, value[1]), kNetwork, nullptr},
    {"value3", AT(aaa_conn_msg_t, value[2]), kNetwork, nullptr},
    {"value4", AT(aaa_conn_msg_t, value[3]), kNetwork, nullptr},
    {"value5", AT(aaa_conn_msg_t, value[4]), kNetwork, nullptr},
    {"value6", AT(aaa_conn_msg_t, value[5]), kNetwork, nullptr},
    {"text1_length", AT(aaa_conn_msg_t, str1_len), kNetwork, nullptr},
    {"unwritten68", AT(aaa_conn_msg_t, unwritten), kBytes, nullptr},
};

// ---- Classic replies ------------------------------------------------------------

constexpr Field kReplyTransport0{"transport0", AT(aaa_reply_hdr_t, transport0), kBytes, nullptr};
constexpr Field kStatus{"status", AT(aaa_reply_hdr_t, status), kNetwork, meaning_of_result};
constexpr Field kHostStatus{"status", AT(aaa_reply_hdr_t, status), kNumber, meaning_of_result};

constexpr Field kReply20[] = {kReplyTransport0};
constexpr Field kReply24[] = {kReplyTransport0, kStatus};
constexpr Field kReplyHost24[] = {kReplyTransport0, kHostStatus};
constexpr Field kReplyCallback[] = {
    kReplyTransport0, kStatus, {"second", AT(aaa_reply_hdr_t, second), kNetwork, nullptr}};
// The value comes first, so each is in the other's member.
constexpr Field kReplyConfig[] = {kReplyTransport0,
                                  {"value", AT(aaa_reply_hdr_t, status), kNetwork, nullptr},
                                  {"status", AT(aaa_reply_hdr_t, second), kNetwork, meaning_of_result}};
constexpr Field kReplyConnect[] = {kReplyTransport0,
                                   kStatus,
                                   {"version", AT(aaa_reply_hdr_t, second), kNetwork, nullptr},
                                   {"unwritten28", AT(aaa_reply_hdr_t, tail28), kBytes, nullptr}};

// ---- Session packets ------------------------------------------------------------

constexpr Field kSession[] = {
    {"marker", AT(aaa_sess_hdr_t, marker), kNumber, nullptr},
    {"key", AT(aaa_sess_hdr_t, key), kNumber, nullptr},
    {"type", AT(aaa_sess_hdr_t, type), kNumber, meaning_of_message_type},
    {"option", AT(aaa_sess_hdr_t, option), kNumber, nullptr},
    {"reserved16", AT(aaa_sess_hdr_t, reserved16), kNumber, nullptr},
    {"connection", AT(aaa_sess_hdr_t, conn_id), kNumber, nullptr},
    {"process", AT(aaa_sess_hdr_t, pid), kNumber, nullptr},
    {"reserved28", AT(aaa_sess_hdr_t, reserved28), kNumber, nullptr},
    {"thread", AT(aaa_sess_hdr_t, tid), kNumber, nullptr},
    {"magic", AT(aaa_sess_hdr_t, magic), kNumber, nullptr},
    {"reserved38", AT(aaa_sess_hdr_t, reserved38), kBytes, nullptr},
    {"version", AT(aaa_sess_hdr_t, version), kNumber, nullptr},
    {"reserved56", AT(aaa_sess_hdr_t, reserved56), kNumber, nullptr},
    {"unwritten60", AT(aaa_sess_hdr_t, unwritten60), kBytes, nullptr},
    {"list", AT(aaa_sess_hdr_t, list), kNumber, nullptr},
};

constexpr Field kZero36[] = {{"zero36", PAYLOAD(aaa_sess_request_t, zero36), kBytes, nullptr}};
constexpr Field kWord[] = {{"value", PAYLOAD(aaa_sess_request_t, word), kNumber, meaning_of_parameter}};
constexpr Field kQuad[] = {{"value", PAYLOAD(aaa_sess_request_t, quad), kNumber, nullptr}};
constexpr Field kTypeData[] = {
    {"value", PAYLOAD(aaa_sess_request_t, type_data.unused0), kNumber, nullptr},
    {"length", PAYLOAD(aaa_sess_request_t, type_data.length), kNumber, nullptr},
};

// A response's payload is words. The type decides which of them is the error.
consteval Field error_in(uint16_t offset, uint16_t size) {
    return {"error", offset, size, kNumber, meaning_of_result};
}
constexpr Field kTypeDataReply[] = {
    error_in(PAYLOAD(aaa_sess_response_t, type_data.unused0)),
    {"length", PAYLOAD(aaa_sess_response_t, type_data.length), kNumber, nullptr},
};
constexpr Field kReplyToConnect[] = {
    {"connection", PAYLOAD(aaa_sess_response_t, word[0]), kNumber, nullptr},
    {"version", PAYLOAD(aaa_sess_response_t, word[1]), kNumber, nullptr},
    {"zero80", PAYLOAD(aaa_sess_response_t, word[2]), kNumber, nullptr},
    error_in(PAYLOAD(aaa_sess_response_t, word[3])),
};
constexpr Field kReplyWithStatus[] = {
    {"status", PAYLOAD(aaa_sess_response_t, word[0]), kNumber, nullptr},
    error_in(PAYLOAD(aaa_sess_response_t, word[1])),
    {"roleover", PAYLOAD(aaa_sess_response_t, word[2]), kNumber, nullptr},
    {"zero84", PAYLOAD(aaa_sess_response_t, word[3]), kNumber, nullptr},
};
constexpr Field kReplyToCallback[] = {
    error_in(PAYLOAD(aaa_sess_response_t, word[0])),
    {"ctype", PAYLOAD(aaa_sess_response_t, word[1]), kNumber, nullptr},
    {"nfnhdl", PAYLOAD(aaa_sess_response_t, word[2]), kNumber, nullptr},
    {"zero84", PAYLOAD(aaa_sess_response_t, word[3]), kNumber, nullptr},
};
constexpr Field kReplyWithError[] = {
    error_in(PAYLOAD(aaa_sess_response_t, word[0])),
    {"zero76", PAYLOAD(aaa_sess_response_t, word[1]), kNumber, nullptr},
};

#undef SIZE
#undef AT
#undef UP_TO
#undef PAYLOAD

// ---- All of them ----------------------------------------------------------------

// A gap or an overlap between fields would lose bytes: it does not compile.
consteval RecordLayout layout(const char *name, std::span<const Field> fields) {
    uint16_t end = 0;
    for (const Field &field : fields) {
        if (field.offset != end) {
            throw "fields do not follow each other";
        }
        end = static_cast<uint16_t>(end + field.size);
    }
    return {name, end, fields};
}

constexpr RecordLayout kLayouts[] = {
    layout("list", kList),
    layout("request-32", kRequest32),
    layout("request-36", kRequest36),
    layout("request-40", kRequest40),
    layout("request-connect", kConnect),
    layout("request-server-disconnect", kServerDisconnect),
    layout("reply-20", kReply20),
    layout("reply-24", kReply24),
    layout("reply-24-host-order", kReplyHost24),
    layout("reply-callback", kReplyCallback),
    layout("reply-config", kReplyConfig),
    layout("reply-connect", kReplyConnect),
    layout("session", kSession),
    layout("session-connect", kZero36),
    layout("session-value", kWord),
    layout("session-large-reply", kQuad),
    layout("session-data", kTypeData),
    layout("session-reply-connect", kReplyToConnect),
    layout("session-reply-status", kReplyWithStatus),
    layout("session-reply-callback", kReplyToCallback),
    layout("session-reply-error", kReplyWithError),
    layout("session-reply-data", kTypeDataReply),
};

constexpr bool kLittle = std::endian::native == std::endian::little;

// Bytes from the most significant one on, in either byte order.
std::string most_significant_first(const Field &field, std::string_view record) {
    std::string bytes(record.substr(field.offset, field.size));
    return field.form == FieldForm::number && kLittle ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
}

}  // namespace

std::span<const RecordLayout *const> record_layouts() {
    static const auto pointers = [] {
        std::array<const RecordLayout *, std::size(kLayouts)> all{};
        for (size_t i = 0; i < all.size(); ++i) {
            all[i] = &kLayouts[i];
        }
        return all;
    }();
    return pointers;
}

const RecordLayout *record_layout(std::string_view name) {
    for (const RecordLayout &layout : kLayouts) {
        if (name == layout.name) {
            return &layout;
        }
    }
    return nullptr;
}

uint64_t load_number(const Field &field, std::string_view record) {
    uint64_t value = 0;
    for (const char c : most_significant_first(field, record)) {
        value = value << 8 | static_cast<unsigned char>(c);
    }
    return value;
}

void store_number(const Field &field, uint64_t value, std::string &record) {
    const bool reversed = field.form == FieldForm::number && kLittle;
    for (size_t i = 0; i < field.size; ++i) {
        const size_t place = reversed ? i : field.size - 1u - i;
        record[field.offset + place] = static_cast<char>(value >> (8 * i) & 0xff);
    }
}

}  // namespace aaactl
