// SPDX-License-Identifier: Apache-2.0
//
// One pair as a line of text:
//
//     "    NAME (TYPE/LENGTH) [out] = VALUE\n"
//
// The value is rendered by a rule of its type where there is one, else by the
// type's format. Values come from lists that may have been received: text is
// printed up to the stored length, numbers are read from the stored bytes.

#include "aaa/dictionary.h"

#include <cstdarg>
#include <cstdio>

#include "aaa/names.h"
#include "internal/attribute_formats.hpp"
#include "internal/bytes.hpp"
#include "internal/memory.hpp"
#include "internal/trace.hpp"
#include "platform/node.h"

namespace {

// A bounded line: position grows by what each step would have written and
// stays within the room, so that a step after a cut writes nothing.
class Line {
  public:
    Line(char *buffer, uint32_t size) : buffer_(buffer), size_(size) {}

    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...) {
        va_list args;
        va_start(args, format);
        const int n = std::vsnprintf(buffer_ + position_, size_ - position_, format, args);
        va_end(args);
        if (n > 0) {
            const size_t room = size_ - position_;
            position_ += static_cast<size_t>(n) < room ? static_cast<size_t>(n) : room;
        }
    }

  private:
    char *buffer_;
    size_t size_;
    size_t position_ = 0;
};

// A stored value, its bytes bounded by its length.
struct Value {
    const void *bytes;
    uint32_t length;

    [[nodiscard]] uint32_t number() const { return aaautil::load_u32_bounded(bytes, length); }
    [[nodiscard]] const char *text() const { return static_cast<const char *>(bytes); }
    // Precision for "%.*s": the text ends at its NUL or at the stored length.
    [[nodiscard]] int precision() const {
        constexpr uint32_t kMost = 0x7fffffff;
        return static_cast<int>(length < kMost ? length : kMost);
    }
    [[nodiscard]] int signed_byte(uint32_t index) const {
        return index < length ? static_cast<const signed char *>(bytes)[index] : 0;
    }
};

enum class Rendering {
    kStatus,
    kMessageType,
    kMethod,
    kOption,
    kService,
    kDottedQuad,
    kHidden,
    kTextWithLength,
    kInteger,
    kText,
    kHexBytes
};

Rendering by_format(uint32_t type) {
    switch (aaautil::attribute_format(type)) {
        case AAA_FORMAT_STRING:
            return Rendering::kText;
        case AAA_FORMAT_INTEGER:
            return Rendering::kInteger;
        default:
            return Rendering::kHexBytes;
    }
}

// Rules of single types go before the formats, and differ from them deliberately:
// AAA_METHODLIST_ATTR (binary), AAA_FROUTING_ATTR and AAA_FCOMP_ATTR (integers)
// print as text, AAA_CONTEXT_ATTR (a string) as a number, and of the addresses
// only two print dotted. Kept: operators compare these lines.
Rendering rendering_of(uint32_t type) {
    switch (type) {
        case AAA_STATUS_ATTR:
            return Rendering::kStatus;
        case AAA_TYPE_ATTR:
            return Rendering::kMessageType;
        case AAA_AUTHEN_METHOD_ATTR:
            return Rendering::kMethod;
        case AAA_AUTHEN_OPTION_ATTR:
            return Rendering::kOption;
        case AAA_SERVICE_TYPE_ATTR:
            return Rendering::kService;
        case AAA_IPADDR_ATTR:
        case AAA_FMASK_ATTR:
            return Rendering::kDottedQuad;
        case AAA_PASSWORD_ATTR:
        case AAA_VS1_TUNNEL_PASSWORD:
            return Rendering::kHidden;
        case AAA_REPLYQ_ATTR:
        case AAA_REPLY_CHAN_ATTR:
        case AAA_ERRMSG_ATTR:
        case AAA_AUTOCMD_ATTR:
        case AAA_METHODLIST_ATTR:
        case AAA_TTYNAME_ATTR:
        case AAA_REMOTE_ADDR_ATTR:
        case AAA_TIMEZONE_ATTR:
        case AAA_TUNNEL_INACL_ATTR:
        case AAA_USERGROUPS_ATTR:
        case AAA_TASKGROUP_ATTR:
        case AAA_TTY_MNEMONIC_ATTR:
        case AAA_USERNAME_ATTR:
        case AAA_FROUTING_ATTR:
        case AAA_FCOMP_ATTR:
        case AAA_REPLYMSG_ATTR:
        case AAA_RADIUS_STATE_ATTR:
        case AAA_RAD_CLASS_ATTR:
        case AAA_VS1_ADDR_POOL:
        case AAA_VS1_DNS_SERVERS:
        case AAA_VS1_INACL:
        case AAA_VS1_WINS_SERVERS:
        case AAA_VS1_KEY_EXCHANGE:
        case AAA_VS1_DEFAULT_DOMAIN:
        case AAA_VS1_SPLIT_DNS:
        case AAA_VS1_BKP_GW:
            return Rendering::kTextWithLength;
        case AAA_CONTEXT_ATTR:
            return Rendering::kInteger;
        default:
            return by_format(type);
    }
}

void add_method(Line &line, const Value &value) {
    const aaautil::malloc_ptr<char> name(aaa_print_method(static_cast<int32_t>(value.number())));
    line.add("%s", name != nullptr ? name.get() : "<null>");
}

void add_dotted_quad(Line &line, const Value &value) {
    char quad[16];
    aaa_util_format_ipaddr(value.number(), quad);
    line.add("%s", quad);
}

void add_value(Line &line, Rendering rendering, const Value &value) {
    const auto number = static_cast<int32_t>(value.number());
    switch (rendering) {
        case Rendering::kStatus:
            line.add("%s", aaa_print_status(value.number()));
            break;
        case Rendering::kMessageType:
            line.add("%s", aaa_print_msgtype(value.number()));
            break;
        case Rendering::kMethod:
            add_method(line, value);
            break;
        case Rendering::kOption:
            line.add("%x:%s", value.number(), aaa_util_print_authen_option(value.number()));
            break;
        case Rendering::kService:
            line.add("%x:%s", value.number(), aaa_print_service(number));
            break;
        case Rendering::kDottedQuad:
            add_dotted_quad(line, value);
            break;
        case Rendering::kHidden:
            line.add("*");
            break;
        case Rendering::kTextWithLength:
            line.add("%.*s (length %d)", value.precision(), value.text(), static_cast<int>(value.length));
            break;
        case Rendering::kInteger:
            line.add("%d", number);
            break;
        case Rendering::kText:
            line.add("%.*s", value.precision(), value.text());
            break;
        case Rendering::kHexBytes:
            // Signed bytes, so that 0x80 prints as ffffff80, and three dots after
            // the fourth at every length: kept.
            line.add("%x %x %x %x ...", static_cast<unsigned>(value.signed_byte(0)),
                     static_cast<unsigned>(value.signed_byte(1)), static_cast<unsigned>(value.signed_byte(2)),
                     static_cast<unsigned>(value.signed_byte(3)));
            break;
    }
}

}  // namespace

extern "C" {

char *aaa_util_print_attr(uint32_t type, uint32_t length, avpair_flags_t flags, const void *value,
                          char *buffer, uint32_t size) {
    if (buffer == nullptr) {
        return nullptr;
    }
    Line line(buffer, size);
    line.add("    %s (%d/%d) ", aaautil::printable(aaautil::attribute_name(type)), static_cast<int>(type),
             static_cast<int>(length));
    if ((flags & AAA_AVF_PRINT_OUT) != 0) {
        line.add("[out] ");
    }
    line.add("%c ", (flags & AAA_AVF_PRINT_EQUALS) != 0 ? '=' : '*');
    if (value == nullptr) {
        line.add("<value is NULL>");
    } else {
        add_value(line, rendering_of(type), Value{value, length});
    }
    line.add("\n");
    return buffer;
}

int aaa_util_format_ipaddr(uint32_t address, char *buffer) {
    constexpr size_t kRoom = 16;  // the longest dotted quad and its NUL
    if (buffer == nullptr) {
        return 0;
    }
    return std::snprintf(buffer, kRoom, "%d.%d.%d.%d", static_cast<int>(address >> 24),
                         static_cast<int>(address >> 16 & 0xff), static_cast<int>(address >> 8 & 0xff),
                         static_cast<int>(address & 0xff));
}

const char *aaa_util_format_v4v6_ipaddr(char *buffer, aaa_ip_addr_t address) {
    constexpr int kIpv4 = 2;
    if (buffer == nullptr) {
        return nullptr;
    }
    const size_t room = address.family == kIpv4 ? 16 : 46;
    return qm_inet_ntop(address.family, address.addr.bytes, buffer, room);
}

}  // extern "C"
