// SPDX-License-Identifier: Apache-2.0
//
//   list   total 4 (network order), ... 56 bytes; then pairs
//   pair   type 4, tag 4, length 4, flags 4 (network order), value, zeros up to a multiple of 4
//
// docs/wire-format.md describes the rest.

#include "capture/mask.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/messages.h"
#include "aaa/names.h"
#include "aaa/session_packets.h"
#include "aaa/transport.h"
#include "masks/masks.hpp"
#include "masks/name_mask.hpp"

namespace service {

namespace {

constexpr std::size_t kListHeader = sizeof(avlist);
constexpr std::size_t kHead = sizeof(avpair_t);
constexpr std::size_t kListName = 24;  // in the header
constexpr std::uint32_t kSessionMarker = 16;
constexpr std::size_t kBlock = 64;  // of asynchronous requests

constexpr std::uint32_t kSecrets[] = {
#define AAA_SECRET_ATTRIBUTE(name) name,
#include "tools/aaactl/dictionary/secret_attributes.def"
};

std::uint32_t word(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

void set_word(std::string &bytes, std::size_t at, std::size_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[at + i] = static_cast<char>(value >> (24 - 8 * i) & 0xff);
    }
}

std::size_t padded(std::size_t length) {
    return (length + 3) / 4 * 4;
}

// A deleted pair holds a value of an attribute that is no longer known. What an attribute outside the
// dictionary holds cannot be known either.
bool is_secret(std::uint32_t type) {
    return type >= AAA_TABLE_ROWS || aaa_table[type].name == nullptr ||
           std::find(std::begin(kSecrets), std::end(kSecrets), type) != std::end(kSecrets);
}

bool is_session(std::string_view bytes) {
    std::uint32_t first = 0;
    std::memcpy(&first, bytes.data(), std::min(bytes.size(), sizeof first));
    return first == kSessionMarker;
}

// Of requests without a list.
bool exists(std::uint32_t type) {
    switch (type) {
        case AAA_REQ_CONNECT:
        case AAA_REQ_DISCONNECT:
        case AAA_REQ_CALLBACK:
        case AAA_REQ_PING:
        case AAA_REQ_TASKMAP:
        case AAA_REQ_USERGROUP:
            return true;
        default:
            return false;
    }
}

class Mask {
  public:
    explicit Mask(const ShownNames &names)
        : may_show_name_(names.may_show), name_(names.user, names.may_show) {}

    bool is_changed() const { return is_changed_; }
    std::string list(std::string_view bytes);
    std::string stars(std::string_view bytes) {
        is_changed_ = is_changed_ || !bytes.empty();
        return std::string(bytes.size(), '*');
    }

    // A request's bytes before its list.
    std::string head(std::string_view bytes, std::uint32_t type);
    // A request without a list.
    std::string plain(std::string_view bytes, std::uint32_t type);

  private:
    // Bytes that belong to no field: zeros, as they should be, or asterisks, so that their number can be
    // seen.
    std::string cover(std::string_view bytes, char with) {
        const bool is_empty = bytes.find_first_not_of('\0') == std::string_view::npos;
        is_changed_ = is_changed_ || !is_empty;
        return std::string(bytes.size(), is_empty ? '\0' : with);
    }
    std::string shown_name(std::string_view name) {
        const bool is_shown = name.empty() || may_show_name_(std::string(name));
        is_changed_ = is_changed_ || !is_shown;
        return std::string(is_shown ? name : kMask);
    }
    std::string list_header(std::string_view header);
    std::string classic_plain(std::string_view bytes, std::uint32_t type);
    std::string session_name(std::string_view bytes);
    // The value to show in place of another one; nullopt: that one.
    std::optional<std::string> other_value(std::uint32_t type, std::string_view value);
    void add_pair(std::string &out, std::string_view pair, std::string_view value);

    const std::function<bool(const std::string &)> &may_show_name_;
    bool is_changed_ = false;
    TextMask texts_;
    const NameMask name_;
};

std::optional<std::string> Mask::other_value(std::uint32_t type, std::string_view value) {
    if (value.empty()) {
        return std::nullopt;
    }
    if (is_secret(type)) {
        return std::string(kMask);
    }
    const std::string text(value.substr(0, value.find('\0')));
    // What follows the end of a text may be anything from the sender's memory.
    const bool has_rest = value.find_first_not_of('\0', text.size()) != std::string_view::npos;
    const auto if_other = [&](const std::string &shown) {
        return shown == text && !has_rest ? std::nullopt : std::optional(shown + '\0');
    };
    if ((type == AAA_USERNAME_ATTR || type == AAA_ORIG_USERNAME_ATTR) && !may_show_name_(text)) {
        return std::string(kMask) + '\0';
    }
    // What servers say, and what they send for later requests, may repeat the name.
    if (aaa_table[type].format == AAA_FORMAT_STRING) {
        return if_other(name_.shown(texts_.shown(type, text), kMask));
    }
    const bool has_name = aaa_table[type].format == AAA_FORMAT_BINARY && name_.shown(value, "") != value;
    return has_name ? std::optional<std::string>(kMask) : std::nullopt;
}

void Mask::add_pair(std::string &out, std::string_view pair, std::string_view value) {
    const std::uint32_t type = word(pair, offsetof(avpair_t, av_type));
    const auto other = other_value(type, value);
    if (!other) {
        out += pair.substr(0, kHead + value.size());
        out += cover(pair.substr(kHead + value.size()), '\0');
        return;
    }
    is_changed_ = true;
    const std::size_t begin = out.size();
    out += pair.substr(0, kHead);
    set_word(out, begin + offsetof(avpair_t, av_len), other->size());
    out += *other;
    out.resize(begin + kHead + padded(other->size()));
}

// The name of a list is a text.
std::string Mask::list_header(std::string_view header) {
    const std::size_t last = kListHeader - 1;  // the byte after the name
    const std::size_t end = std::min(header.find('\0', kListName), last);
    return std::string(header.substr(0, end)) + cover(header.substr(end), '\0');
}

std::string Mask::head(std::string_view bytes, std::uint32_t type) {
    std::size_t used = bytes.size();
    if (is_session(bytes)) {
        // Type 0 has zeros, the others have one word.
        used = offsetof(aaa_sess_request_t, u) + (type == AAA_REQ_CONNECT ? 0 : sizeof(std::uint32_t));
    }
    used = std::min(used, bytes.size());
    std::string out = std::string(bytes.substr(0, used)) + cover(bytes.substr(used), '\0');
    // The service does not read what clients of asynchronous requests put here for themselves.
    const bool has_block = type == AAA_REQ_AUTHEN_ASYNC || type == AAA_REQ_AUTHOR_ASYNC ||
                           type == AAA_REQ_ACCT_ASYNC || type == AAA_REQ_ACCT_UPDATE;
    if (has_block && !is_session(bytes) && bytes.size() >= sizeof(aaa_req_hdr_t) + kBlock) {
        out.replace(sizeof(aaa_req_hdr_t), kBlock, cover(bytes.substr(sizeof(aaa_req_hdr_t), kBlock), '*'));
    }
    return out;
}

std::string Mask::plain(std::string_view bytes, std::uint32_t type) {
    if (!is_session(bytes)) {
        return classic_plain(bytes, type);
    }
    const std::string_view packet = bytes.substr(0, sizeof(aaa_sess_request_t));
    const bool has_name = type == AAA_REQ_TASKMAP || type == AAA_REQ_USERGROUP;
    return (has_name ? session_name(packet) : head(packet, type)) + cover(bytes.substr(packet.size()), '*');
}

std::string Mask::session_name(std::string_view bytes) {
    constexpr std::size_t kLength = offsetof(aaa_sess_request_t, u) + offsetof(aaa_sess_type_data_t, length);
    constexpr std::size_t kName = offsetof(aaa_sess_request_t, u) + offsetof(aaa_sess_type_data_t, bytes);
    if (bytes.size() < sizeof(aaa_sess_request_t)) {
        const std::size_t header = std::min(sizeof(aaa_sess_hdr_t), bytes.size());
        return std::string(bytes.substr(0, header)) + cover(bytes.substr(header), '*');
    }
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data() + kLength, sizeof length);
    const std::size_t size = std::min<std::size_t>(length, sizeof(aaa_sess_type_data_t::bytes));
    const std::string_view text = bytes.substr(kName, size);
    const std::string name = shown_name(text.substr(0, text.find('\0')));
    std::string out(bytes.substr(0, kName));
    if (name != text) {
        is_changed_ = true;
        length = static_cast<std::uint32_t>(name.size());
        std::memcpy(out.data() + kLength, &length, sizeof length);
    }
    out += name + cover(bytes.substr(kName + size), '\0');
    out.resize(sizeof(aaa_sess_request_t));
    return out;
}

std::string Mask::classic_plain(std::string_view bytes, std::uint32_t type) {
    constexpr std::size_t kHeader = offsetof(aaa_req_hdr_t, param);
    std::size_t used = kHeader;
    std::string out;
    if (type == AAA_REQ_TASKMAP || type == AAA_REQ_USERGROUP) {
        const std::string_view rest = bytes.substr(std::min(kHeader, bytes.size()));
        const std::string_view name = rest.substr(0, rest.find('\0'));
        const std::size_t end = std::min(name.size() + 1, rest.size());
        return std::string(bytes.substr(0, kHeader)) + shown_name(name) +
               std::string(rest.substr(name.size(), end - name.size())) + cover(rest.substr(end), '*');
    }
    if (type == AAA_REQ_CALLBACK) {
        used = kHeader + sizeof(std::uint32_t);
    } else if (type == AAA_REQ_CONNECT && bytes.size() >= sizeof(aaa_conn_msg_t)) {
        // The second string has no length: what it is cannot be known.
        constexpr std::size_t kUnwritten = offsetof(aaa_conn_msg_t, unwritten);
        out = std::string(bytes.substr(0, kUnwritten)) +
              cover(bytes.substr(kUnwritten, sizeof(aaa_conn_msg_t) - kUnwritten), '\0');
        const std::string_view strings = bytes.substr(sizeof(aaa_conn_msg_t));
        const std::string_view first = strings.substr(0, word(bytes, offsetof(aaa_conn_msg_t, str1_len)));
        return out.append(first) + cover(strings.substr(first.size()), '*');
    }
    used = std::min(used, bytes.size());
    return std::string(bytes.substr(0, used)) + cover(bytes.substr(used), '*');
}

// From a pair that does not fit on, nothing is known about the bytes.
std::string Mask::list(std::string_view bytes) {
    if (bytes.size() < kListHeader) {
        return stars(bytes);
    }
    const std::size_t end = std::clamp<std::size_t>(word(bytes, 0), kListHeader, bytes.size());
    std::string out = list_header(bytes.substr(0, kListHeader));
    std::size_t at = kListHeader;
    while (at + kHead <= end) {
        const std::size_t length = word(bytes, at + offsetof(avpair_t, av_len));
        if (length > end - at - kHead || padded(length) > end - at - kHead) {
            break;
        }
        const std::size_t size = kHead + padded(length);
        add_pair(out, bytes.substr(at, size), bytes.substr(at + kHead, length));
        at += size;
    }
    out += stars(bytes.substr(at, end - at));
    if (word(bytes, 0) == end) {
        set_word(out, 0, out.size());
    }
    return out + stars(bytes.substr(end));
}

// What a message begins with, whatever follows.
std::size_t header_of(std::string_view bytes) {
    std::uint32_t first = 0;
    std::memcpy(&first, bytes.data(), std::min(bytes.size(), sizeof first));
    const std::size_t most =
        first == AAA_TRANSPORT_MAGIC ? offsetof(aaa_req_hdr_t, param) : sizeof(aaa_sess_hdr_t);
    if (first != AAA_TRANSPORT_MAGIC && first != kSessionMarker) {
        return 0;
    }
    // Of a header that is cut short, the first two words tell what it was to be.
    return bytes.size() >= most ? most : std::min(bytes.size(), 2 * sizeof first);
}

// The transport's length of a classic message.
void adapt_length(std::string &bytes, std::size_t before) {
    std::uint32_t words[2] = {};
    if (bytes.size() >= sizeof words) {
        std::memcpy(words, bytes.data(), sizeof words);
        if (words[0] == AAA_TRANSPORT_MAGIC && words[1] == before) {
            words[1] = static_cast<std::uint32_t>(bytes.size());
            std::memcpy(bytes.data(), words, sizeof words);
        }
    }
}

}  // namespace

Masked masked(const WireMessage &message, const ShownNames &names) {
    Mask mask(names);
    Masked result;
    const std::optional<std::uint32_t> type = message.request_type;
    const bool is_known = !type || message.list_at != 0 || exists(*type);
    if (!message.is_readable || !is_known || message.list_at > message.bytes.size()) {
        const std::size_t header = header_of(message.bytes);
        result.bytes =
            std::string(message.bytes.substr(0, header)) + mask.stars(message.bytes.substr(header));
    } else if (message.list_at == 0) {
        result.bytes = type ? mask.plain(message.bytes, *type) : std::string(message.bytes);
        adapt_length(result.bytes, message.bytes.size());
    } else {
        const std::string_view head = message.bytes.substr(0, message.list_at);
        result.bytes = (type ? mask.head(head, *type) : std::string(head)) +
                       mask.list(message.bytes.substr(message.list_at));
        adapt_length(result.bytes, message.bytes.size());
    }
    result.is_changed = mask.is_changed();
    return result;
}

}  // namespace service
