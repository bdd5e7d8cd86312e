// SPDX-License-Identifier: Apache-2.0
//
// The records that open messages, field by field, and what the numbers in them
// stand for.

#include <array>
#include <bit>
#include <cstring>

#include "message/message.hpp"
#include "message/message_meanings.hpp"

namespace aaactl {
namespace {

constexpr auto kNumber = FieldForm::number;
constexpr auto kNetwork = FieldForm::network;
constexpr auto kBytes = FieldForm::bytes;
constexpr auto kText = FieldForm::text;

// ---- Packed list ----------------------------------------------------------------

constexpr Field kList[] = {
    {"total", 0, 4, kNetwork, nullptr},    {"marker", 4, 1, kNumber, nullptr},
    {"reserved5", 5, 1, kNumber, nullptr}, {"count", 6, 2, kNetwork, nullptr},
    {"addresses", 8, 16, kBytes, nullptr}, {"name", 24, 31, kText, nullptr},
    {"pad55", 55, 1, kNumber, nullptr},
};

// ---- Classic messages -----------------------------------------------------------

constexpr Field kTransport0{"transport0", 0, 20, kBytes, nullptr};
constexpr Field kType{"type", 20, 4, kNumber, meaning_of_message_type};
constexpr Field kTransport24{"transport24", 24, 8, kBytes, nullptr};
constexpr Field kParam{"param", 32, 4, kNetwork, meaning_of_parameter};
constexpr Field kFixed36{"fixed36", 36, 4, kBytes, nullptr};

constexpr Field kRequest32[] = {kTransport0, kType, kTransport24};
constexpr Field kRequest36[] = {kTransport0, kType, kTransport24, kParam};
constexpr Field kRequest40[] = {kTransport0, kType, kTransport24, kParam, kFixed36};
constexpr Field kServerDisconnect[] = {
    kTransport0, kType, kTransport24, {"param", 32, 4, kNumber, nullptr}, kFixed36};
constexpr Field kConnect[] = {
    kTransport0,
    kType,
    kTransport24,
    {"version", 32, 4, kNetwork, nullptr},
    {"zero36", 36, 4, kNetwork, nullptr},
    {"value1", 40, 4, kNetwork, nullptr},
    {"value2", 44, 4, kNetwork, nullptr},
    {"value3", 48, 4, kNetwork, nullptr},
    {"value4", 52, 4, kNetwork, nullptr},
    {"value5", 56, 4, kNetwork, nullptr},
    {"value6", 60, 4, kNetwork, nullptr},
    {"text1_length", 64, 4, kNetwork, nullptr},
    {"unwritten68", 68, 4, kBytes, nullptr},
};

constexpr Field kStatus{"status", 20, 4, kNetwork, meaning_of_result};
constexpr Field kReply20[] = {kTransport0};
constexpr Field kReply24[] = {kTransport0, kStatus};
constexpr Field kReplyHost24[] = {kTransport0, {"status", 20, 4, kNumber, meaning_of_result}};
constexpr Field kReplyCallback[] = {kTransport0, kStatus, {"second", 24, 4, kNetwork, nullptr}};
constexpr Field kReplyConfig[] = {
    kTransport0, {"value", 20, 4, kNetwork, nullptr}, {"status", 24, 4, kNetwork, meaning_of_result}};
constexpr Field kReplyConnect[] = {
    kTransport0, kStatus, {"version", 24, 4, kNetwork, nullptr}, {"unwritten28", 28, 4, kBytes, nullptr}};

// ---- Session packets ------------------------------------------------------------

constexpr Field kSession[] = {
    {"marker", 0, 4, kNumber, nullptr},
    {"key", 4, 4, kNumber, nullptr},
    {"type", 8, 4, kNumber, meaning_of_message_type},
    {"option", 12, 4, kNumber, nullptr},
    {"reserved16", 16, 4, kNumber, nullptr},
    {"connection", 20, 4, kNumber, nullptr},
    {"process", 24, 4, kNumber, nullptr},
    {"reserved28", 28, 4, kNumber, nullptr},
    {"thread", 32, 4, kNumber, nullptr},
    {"magic", 36, 2, kNumber, nullptr},
    {"reserved38", 38, 14, kBytes, nullptr},
    {"version", 52, 4, kNumber, nullptr},
    {"reserved56", 56, 4, kNumber, nullptr},
    {"unwritten60", 60, 4, kBytes, nullptr},
    {"list", 64, 8, kNumber, nullptr},
};

// Payloads, counted from their own beginning at 72.
constexpr Field kError{"error", 0, 4, kNumber, meaning_of_result};
constexpr Field kZero36[] = {{"zero36", 0, 36, kBytes, nullptr}};
constexpr Field kWord[] = {{"value", 0, 4, kNumber, meaning_of_parameter}};
constexpr Field kQuad[] = {{"value", 0, 8, kNumber, nullptr}};
constexpr Field kTypeData[] = {{"value", 0, 4, kNumber, nullptr}, {"length", 4, 4, kNumber, nullptr}};
constexpr Field kTypeDataReply[] = {kError, {"length", 4, 4, kNumber, nullptr}};
constexpr Field kReplyToConnect[] = {
    {"connection", 0, 4, kNumber, nullptr},
    {"version", 4, 4, kNumber, nullptr},
    {"zero80", 8, 4, kNumber, nullptr},
    {"error", 12, 4, kNumber, meaning_of_result},
};
constexpr Field kReplyWithStatus[] = {
    {"status", 0, 4, kNumber, nullptr},
    {"error", 4, 4, kNumber, meaning_of_result},
    {"roleover", 8, 4, kNumber, nullptr},
    {"zero84", 12, 4, kNumber, nullptr},
};
constexpr Field kReplyToCallback[] = {kError,
                                      {"ctype", 4, 4, kNumber, nullptr},
                                      {"nfnhdl", 8, 4, kNumber, nullptr},
                                      {"zero84", 12, 4, kNumber, nullptr}};
constexpr Field kReplyWithError[] = {kError, {"zero76", 4, 4, kNumber, nullptr}};

// ---- All of them ----------------------------------------------------------------

// A hole or an overlap between fields would lose bytes: it does not compile.
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

// Bytes from the most significant one on, whatever the order they stand in.
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
