// SPDX-License-Identifier: Apache-2.0
//
// The cursor, and lists. The library decides whether a list is well-formed; the
// place and the reason of a fault are found here.

#include "message/message_reader.hpp"

#include <algorithm>
#include <cstring>
#include <span>

#include "aaa/cpp/list.hpp"
#include "cli/output.hpp"
#include "message/message_value.hpp"

namespace aaactl {
namespace {

constexpr size_t kPairHead = sizeof(avpair_t);

// The library's verdict on the bytes as a packed list.
cerrno verdict(std::string_view bytes) {
    const cerrno rc = aaa::list::unpack(std::as_bytes(std::span(bytes))).code();
    if (rc == AAA_ERR_NOMEM) {
        throw Failure("cannot check the list", rc);
    }
    return rc;
}

}  // namespace

uint32_t network_word(std::string_view bytes, size_t at) {
    return network_number(bytes.substr(at, sizeof(uint32_t)));
}

uint32_t host_word(std::string_view bytes, size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

std::string count_of(size_t n, const char *what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

bool is_whole_list(std::string_view bytes) {
    return bytes.size() >= kListHeader && network_word(bytes, offsetof(avlist, reserved0)) == bytes.size() &&
           verdict(bytes) == AAA_OK;
}

// Only a list has its own length, and readers ignore the bytes after it.
void Reader::end() {
    if (ok() && std::holds_alternative<List>(message_.parts.back().content)) {
        leftover("trailing", left());
    } else if (left() != 0) {
        fail(at_, count_of(left(), "byte") + " too many", AAA_ERR_INVALID_MSG_SIZE);
    }
}

void Reader::check_header(size_t begin, uint32_t total) {
    const size_t available = bytes_.size() - begin;
    if (total < kListHeader || total > available || total % 4 != 0) {
        fail(begin,
             "total length " + std::to_string(total) +
                 (total < kListHeader ? ", at least " + std::to_string(kListHeader) + " is needed"
                  : total % 4 != 0    ? " is not a multiple of 4"
                                      : ", but there are only " + count_of(available, "byte")),
             AAA_ERR_INVALID_MSG_SIZE);
    }
    const size_t name = begin + offsetof(avlist, av_name);
    if (bytes_.substr(name, sizeof(avlist::av_name)).find('\0') == std::string_view::npos) {
        fail(name, "the name of the list is not terminated", AAA_ERR_AVPAIR_PROCESSING);
    }
}

// One pair, which must not extend beyond `end`.
bool Reader::pair(Pair &pair, size_t end) {
    if (end - at_ < kPairHead) {
        fail(
            at_,
            "a pair's head needs " + count_of(kPairHead, "byte") + ", there are " + std::to_string(end - at_),
            AAA_ERR_AVPAIR_PROCESSING);
        return false;
    }
    pair.offset = at_;
    pair.type = network_word(bytes_, at_ + offsetof(avpair_t, av_type));
    pair.tag = network_word(bytes_, at_ + offsetof(avpair_t, av_tag));
    pair.flags = network_word(bytes_, at_ + offsetof(avpair_t, av_flags));
    const size_t length = network_word(bytes_, at_ + offsetof(avpair_t, av_len));
    const size_t padding = padding_of(length);
    if (length + padding > end - at_ - kPairHead) {
        fail(at_ + offsetof(avpair_t, av_len),
             "the value of a pair of type " + std::to_string(pair.type) + " has a length of " +
                 std::to_string(length) + ", but there are only " + count_of(end - at_ - kPairHead, "byte"),
             AAA_ERR_AVPAIR_PROCESSING);
        return false;
    }
    at_ += kPairHead;
    pair.value = next(length);
    pair.padding = next(padding);
    return true;
}

void Reader::pairs(std::vector<Pair> &pairs, size_t end) {
    while (at_ < end) {
        Pair next_pair;
        if (!pair(next_pair, end)) {
            return;
        }
        pairs.push_back(std::move(next_pair));
    }
}

void Reader::check_count(size_t begin, const List &list) {
    const size_t live = list.live();
    const bool counted = list.header.number("count") != 0;
    if (counted != (live != 0)) {
        fail(begin + offsetof(avlist, av_cnt),
             counted ? "the count is not zero, but there is no live pair"
                     : "the count is zero, but not the number of live pairs, " + std::to_string(live),
             AAA_ERR_AVPAIR_PROCESSING);
    } else if (!list.pairs.empty() && list.pairs.back().deleted()) {
        fail(list.pairs.back().offset, "the last pair is a deleted one", AAA_ERR_AVPAIR_PROCESSING);
    } else if (live > AAA_CHECKED_MAX_PAIRS) {
        fail(begin + offsetof(avlist, av_cnt),
             std::to_string(live) + " live pairs, more than the " + std::to_string(AAA_CHECKED_MAX_PAIRS) +
                 " that receivers accept",
             AAA_ERR_AVPAIR_PROCESSING);
    }
}

// After a fault in the header the pairs are still read: they are bounded by the
// bytes that exist, not by the header.
void Reader::list() {
    if (!has(kListHeader, "a list's header")) {
        return;
    }
    const size_t begin = at_;
    List list = empty_list();
    list.header.bytes = next(kListHeader);
    const uint32_t total = static_cast<uint32_t>(list.header.number("total"));
    check_header(begin, total);
    const size_t end = std::min<size_t>(bytes_.size(), begin + std::max<size_t>(total, kListHeader));
    pairs(list.pairs, end);
    if (ok()) {
        check_count(begin, list);
    }
    const cerrno library = verdict(bytes_.substr(begin));
    if (ok() && library != AAA_OK) {
        fail(begin, "the library refuses the list", library);
    }
    message_.parts.push_back({begin, std::move(list)});
}

}  // namespace aaactl
