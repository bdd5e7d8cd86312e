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
#include "aaa/session_packets.h"
#include "aaa/transport.h"
#include "base/trace.hpp"

namespace service {

namespace {

constexpr std::size_t kListHeader = sizeof(avlist);
constexpr std::size_t kHead = sizeof(avpair_t);
constexpr std::string_view kMask = "********";

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

// A deleted pair holds a value of an attribute that is no longer known.
bool is_secret(std::uint32_t type) {
    return type == AAA_ATTR_MAX ||
           std::find(std::begin(kSecrets), std::end(kSecrets), type) != std::end(kSecrets);
}

class Mask {
  public:
    explicit Mask(const std::function<bool(const std::string &)> &may_show_name)
        : may_show_name_(may_show_name) {}

    bool is_changed() const { return is_changed_; }
    std::string list(std::string_view bytes);
    std::string stars(std::string_view bytes) {
        is_changed_ = is_changed_ || !bytes.empty();
        return std::string(bytes.size(), '*');
    }

  private:
    // The value to show in place of another one; nullopt: that one.
    std::optional<std::string> other_value(std::uint32_t type, std::string_view value);
    void add_pair(std::string &out, std::string_view pair, std::string_view value);

    std::string command(std::uint32_t type, const std::string &text);

    const std::function<bool(const std::string &)> &may_show_name_;
    bool is_changed_ = false;
    bool is_secret_announced_ = false;  // by an earlier part of the command
};

// A command may be one value or a value for each argument: the secret may be another value than
// the word before it.
std::string Mask::command(std::uint32_t type, const std::string &text) {
    if (type == AAA_AUTOCMD_ATTR || type == AAA_VS1_AUTOCMD) {
        return command_for_trace(text);
    }
    if (is_secret_announced_) {
        return std::string(kMask);
    }
    is_secret_announced_ = command_announces_secret(text);
    return command_for_trace(text);
}

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
    switch (type) {
        case AAA_USERNAME_ATTR:
        case AAA_ORIG_USERNAME_ATTR:
            return if_other(may_show_name_(text) ? text : std::string(kMask));
        case AAA_CMD_ATTR:
        case AAA_AUTOCMD_ATTR:
        case AAA_VS1_AUTOCMD:
        case AAA_VS1_CMD_ARG:
        case AAA_VS1_CMD:
            return if_other(command(type, text));
        default:
            return type < AAA_TABLE_ROWS && aaa_table[type].format == AAA_FORMAT_STRING
                       ? if_other(text_without_credentials(text))
                       : std::nullopt;
    }
}

void Mask::add_pair(std::string &out, std::string_view pair, std::string_view value) {
    const std::uint32_t type = word(pair, offsetof(avpair_t, av_type));
    const auto other = other_value(type, value);
    if (!other) {
        out += pair;
        return;
    }
    is_changed_ = true;
    const std::size_t begin = out.size();
    out += pair.substr(0, kHead);
    set_word(out, begin + offsetof(avpair_t, av_len), other->size());
    out += *other;
    out.resize(begin + kHead + padded(other->size()));
}

// From a pair that does not fit on, nothing is known about the bytes.
std::string Mask::list(std::string_view bytes) {
    if (bytes.size() < kListHeader) {
        return stars(bytes);
    }
    const std::size_t end = std::clamp<std::size_t>(word(bytes, 0), kListHeader, bytes.size());
    std::string out(bytes.substr(0, kListHeader));
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
    return std::min(bytes.size(), first == AAA_TRANSPORT_MAGIC || first == 16 ? most : 0);
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

Masked masked(const WireMessage &message, const std::function<bool(const std::string &)> &may_show_name) {
    Mask mask(may_show_name);
    Masked result;
    if (!message.is_readable || message.list_at > message.bytes.size()) {
        const std::size_t header = header_of(message.bytes);
        result.bytes =
            std::string(message.bytes.substr(0, header)) + mask.stars(message.bytes.substr(header));
    } else if (message.list_at == 0) {
        result.bytes = message.bytes;
    } else {
        result.bytes = std::string(message.bytes.substr(0, message.list_at)) +
                       mask.list(message.bytes.substr(message.list_at));
        adapt_length(result.bytes, message.bytes.size());
    }
    result.is_changed = mask.is_changed();
    return result;
}

}  // namespace service
