// SPDX-License-Identifier: Apache-2.0
//
// Text renderings of lists for show output and traces, and hexadecimal dumps
// of raw bytes. The dictionary renders the single pair.

#include "aaa/avpair.h"

#include <cctype>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "aaa/dictionary.h"
#include "internal/avpair_checks.hpp"
#include "internal/avpair_walk.hpp"
#include "internal/trace.hpp"

namespace {

using aaautil::LivePairs;
using aaautil::printable;
using aaautil::tracing;

constexpr int kBytesPerLine = 9;
constexpr uint32_t kPairText = 1024;
constexpr std::size_t kDumpLine = 512;
constexpr std::size_t kLabel = 128;
constexpr uint32_t kIovFlag = AAA_DBG_IOV_DUMP;

void print_pair(const avpair_t &pair, char *dst, uint32_t room) {
    aaa_util_print_attr(pair.av_type, pair.av_len, pair.av_flags, aaautil::aaa_get_avpair_value_ptr(&pair),
                        dst, room);
}

// Text that is appended within the caller's room. Of a text that is cut only the
// written part counts, so the position never leaves the room.
class Text {
  public:
    Text(char *dst, uint32_t size) : dst_(dst), size_(size) { dst_[0] = '\0'; }

    // Room for at least one more character?
    [[nodiscard]] bool has_room() const { return size_ - at_ > 1; }
    [[nodiscard]] char *position() const { return dst_ + at_; }
    [[nodiscard]] uint32_t room() const { return size_ - at_; }

    // Adds the text that was written at the position.
    void advance() { at_ += static_cast<uint32_t>(std::strlen(position())); }

  private:
    char *dst_;
    uint32_t size_;
    uint32_t at_ = 0;
};

void print_header(Text *text, const char *prefix, const avlist *list) {
    std::snprintf(text->position(), text->room(), "[%s] avpair list '%s' count %d\n",
                  prefix != nullptr ? prefix : "", list->av_name, static_cast<int>(list->av_cnt));
    text->advance();
}

void print_line_break(Text *text) {
    std::snprintf(text->position(), text->room(), "\n");
    text->advance();
}

void print_pairs(Text *text, const avlist *list) {
    for (const avpair_t &pair : LivePairs(list)) {
        if (!text->has_room()) {
            return;
        }
        print_line_break(text);
        print_pair(pair, text->position(), text->room());
        text->advance();
    }
}

// One line of a dump: at most nine bytes of three characters each.
class DumpLine {
  public:
    explicit DumpLine(const char *start) : start_(start) { clear(); }

    void clear() {
        used_ = 0;
        text_[0] = '\0';
        for (const char *c = start_; *c != '\0'; c++) {
            put(*c);
        }
    }

    void add_char(unsigned char byte) {
        put(' ');
        put(static_cast<char>(byte));
    }

    // Upper-case hexadecimal, a byte below 16 as one digit.
    void add_hex(unsigned char byte) {
        put(' ');
        if (byte >= 0x10) {
            put(kDigits[byte >> 4]);
        }
        put(kDigits[byte & 0xf]);
    }

    // The same, always two digits.
    void add_hex_pair(unsigned char byte) {
        put(' ');
        put(kDigits[byte >> 4]);
        put(kDigits[byte & 0xf]);
    }

    [[nodiscard]] const char *text() const { return text_; }

  private:
    static constexpr char kDigits[] = "0123456789ABCDEF";

    void put(char c) {
        if (used_ + 1 < sizeof text_) {
            text_[used_++] = c;
            text_[used_] = '\0';
        }
    }

    char text_[kDumpLine];
    std::size_t used_ = 0;
    const char *start_;
};

// Always ends with the line that was begun, even an empty one: a dump of no bytes,
// or of a multiple of nine, ends with an empty line.
void trace_bytes(uint32_t flag, const char *name, const unsigned char *buf, int len, bool ascii) {
    aaa_debug(flag, "Dumping buffer for %s .....", printable(name));
    DumpLine line("");
    for (int i = 0; i < len; i++) {
        if (ascii && std::isprint(buf[i]) != 0) {
            line.add_char(buf[i]);
        } else {
            line.add_hex(buf[i]);
        }
        if ((i + 1) % kBytesPerLine == 0) {
            aaa_debug(flag, "%s", line.text());
            line.clear();
        }
    }
    aaa_debug(flag, "%s", line.text());
}

int readable_length(const void *buf, uint64_t len) {
    if (buf == nullptr) {
        return 0;
    }
    return len > INT_MAX ? INT_MAX : static_cast<int>(len);
}

}  // namespace

extern "C" {

char *aaa_util_print_avlist(char *dst, uint32_t size, const char *prefix, const avlist *list) {
    if (dst == nullptr || list == nullptr || size == 0) {
        return dst;
    }
    Text text(dst, size);
    print_header(&text, prefix, list);
    print_pairs(&text, list);
    return dst;
}

void aaa_avpair_print_list(const avlist *list, uint32_t flag, aaa_line_printer_t printer) {
    if (list == nullptr || printer == nullptr) {
        return;
    }
    printer(flag, list->av_name);
    char text[kPairText];
    for (const avpair_t &pair : LivePairs(list)) {
        text[0] = '\0';
        print_pair(pair, text, sizeof text);
        printer(flag, text);
    }
}

void dump_buffer(uint32_t flag, const char *name, const unsigned char *buf, int len, int ascii) {
    if (!tracing(flag)) {
        return;
    }
    trace_bytes(flag, name, buf, buf != nullptr ? len : 0, ascii != 0);
}

void dump_iovs(const char *name, const iov_t *iov, int count) {
    if (iov == nullptr || count < 1 || !tracing(kIovFlag)) {
        return;
    }
    for (int i = 0; i < count; i++) {
        char label[kLabel];
        std::snprintf(label, sizeof label, "%s (IOV %d)", printable(name), i);
        trace_bytes(kIovFlag, label, static_cast<const unsigned char *>(iov[i].base),
                    readable_length(iov[i].base, iov[i].len), false);
    }
}

// The bytes after the last full line are never printed; dump_buffer prints
// them. Readers of these dumps count lines, so both stay as they are.
void aaa_dump_pkt_buffer(const char *label, uint32_t flag, const unsigned char *buf, int len,
                         aaa_line_printer_t printer) {
    if (printer == nullptr) {
        return;
    }
    printer(flag, printable(label));
    DumpLine line("  ");
    const int readable = buf != nullptr ? len : 0;
    for (int i = 0; i < readable; i++) {
        line.add_hex_pair(buf[i]);
        if ((i + 1) % kBytesPerLine == 0) {
            printer(flag, line.text());
            line.clear();
        }
    }
}

}  // extern "C"
