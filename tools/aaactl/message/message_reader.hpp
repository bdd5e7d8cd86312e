// SPDX-License-Identifier: Apache-2.0
//
// Parses messages: a cursor that turns each element into a part and stops at the
// first malformed one, and the table of the kinds of messages, each a sequence of
// such elements.

#pragma once

#include <string>
#include <string_view>

#include "aaa/result_codes.h"
#include "message/message.hpp"

namespace aaactl {

inline constexpr uint32_t kSessionMarker = 16;  // first word of a session packet

uint32_t network_word(std::string_view bytes, size_t at);
uint32_t host_word(std::string_view bytes, size_t at);
std::string count_of(size_t n, const char *what);
// Whether all bytes are a well-formed list.
bool is_whole_list(std::string_view bytes);

class Reader {
  public:
    Reader(std::string_view bytes, std::string_view kind) : bytes_(bytes) { message_.kind = kind; }

    Message take() { return std::move(message_); }
    bool ok() const { return !message_.fault; }
    size_t left() const { return bytes_.size() - at_; }
    size_t at() const { return at_; }
    std::string_view rest() const { return bytes_.substr(at_); }

    // Only the first fault counts; later ones often follow from it.
    void fail(size_t offset, std::string what, cerrno rc) {
        if (ok()) {
            message_.fault = Fault{offset, std::move(what), rc};
        }
    }
    const Record *record(const char *name) {
        const RecordLayout *layout = record_layout(name);
        if (!has(layout->size, std::string("the record ") + name)) {
            return nullptr;
        }
        return &std::get<Record>(add(Record{layout, std::string(next(layout->size))}));
    }
    void bytes(const char *name, size_t size) {
        if (has(size, name)) {
            add(Bytes{name, std::string(next(size)), false});
        }
    }
    // Bytes that the sender did not write; no part when there are none.
    void leftover(const char *name, size_t size) {
        if (ok() && size != 0 && has(size, name)) {
            add(Bytes{name, std::string(next(size)), true});
        }
    }
    void remainder(const char *name) {
        if (ok()) {
            add(Bytes{name, std::string(next(left())), false});
        }
    }
    void list();
    void optional_list() {
        if (ok() && left() != 0) {
            list();
        }
    }
    void end();

  private:
    bool has(size_t size, const std::string &what) {
        if (ok() && left() < size) {
            fail(at_, what + " needs " + count_of(size, "byte") + ", there are " + std::to_string(left()),
                 AAA_ERR_INVALID_MSG_SIZE);
        }
        return ok();
    }
    std::string_view next(size_t size) {
        at_ += size;
        return bytes_.substr(at_ - size, size);
    }
    template <typename Content>
    std::variant<Record, Bytes, List> &add(Content content) {
        const size_t size = size_of(content);
        message_.parts.push_back({at_ - size, std::move(content)});
        return message_.parts.back().content;
    }
    static size_t size_of(const Record &record) { return record.bytes.size(); }
    static size_t size_of(const Bytes &bytes) { return bytes.bytes.size(); }
    static size_t size_of(const List &) { return kListHeader; }

    void check_header(size_t begin, uint32_t total);
    void pairs(std::vector<Pair> &pairs, size_t end);
    bool pair(Pair &pair, size_t end);
    void check_count(size_t begin, const List &list);

    std::string_view bytes_;
    size_t at_ = 0;
    Message message_;
};

using ReadFunction = void (*)(Reader &);

struct Kind {
    const char *name;
    ReadFunction read;
    const char *group;  // also tried for this group, in this order
    bool detected;      // replies differ only by their length: rare ones have to be named
};

std::span<const Kind> kinds();

}  // namespace aaactl
