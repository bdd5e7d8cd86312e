// SPDX-License-Identifier: Apache-2.0
//
// The checked unpack with bytes of unknown origin. Its verdict is compared with a
// second, independent reading of the format. An accepted list must equal the one that
// the plain function unpacks, must pass every reader, and must pack into the same pairs.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aaa/accessors.h"
#include "aaa/avpair.h"
#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "list_getters.hpp"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using aaatest::ListOrigin;
using aaatest::ListPtr;
using aaatest::make_list;
using aaatest::ModelBuffer;
using aaatest::ModelPair;
using aaatest::read_buffers;
using aaatest::read_pairs;

constexpr std::size_t kHeader = 56;
constexpr uint32_t kDeleted = 2070;
constexpr std::size_t kLookedUp = 64;  // pairs that are looked up one by one

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

uint32_t be32(const uint8_t *p) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}

// ---- the format, read a second time ---------------------------------------------

cerrno expected_pairs(const uint8_t *message, std::size_t total) {
    std::size_t live = 0;
    bool last_live = false;
    std::size_t at = kHeader;
    while (at < total) {
        if (total - at < 16) {
            return AAA_ERR_AVPAIR_PROCESSING;
        }
        const std::size_t length = be32(message + at + 8);
        const std::size_t padded = length + (4 - length % 4) % 4;
        if (padded > total - at - 16) {
            return AAA_ERR_AVPAIR_PROCESSING;
        }
        last_live = be32(message + at) != kDeleted;
        live += last_live ? 1 : 0;
        at += 16 + padded;
    }
    const bool counted = message[6] != 0 || message[7] != 0;
    const bool fits = total == kHeader ? !counted : counted && last_live && live <= 65279;
    return fits ? AAA_OK : AAA_ERR_AVPAIR_PROCESSING;
}

cerrno expected_code(const uint8_t *message, std::size_t avail) {
    if (avail < kHeader || be32(message) < kHeader || be32(message) > avail || be32(message) % 4 != 0) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    const std::string name(reinterpret_cast<const char *>(message) + 24, 31);
    return name.find('\0') == std::string::npos ? AAA_ERR_AVPAIR_PROCESSING
                                                : expected_pairs(message, be32(message));
}

// ---- operations on a list -------------------------------------------------------

void require_sound(const avlist *list) {
    const aaatest::Verdict verdict = aaatest::verify_list(list, ListOrigin::unpacked);
    require(verdict.sound(), verdict.fault);
    require(aaa_avpair_list_is_sane(list) == 1, "aaa_avpair_list_is_sane() rejects the list");
}

void require_same(const avlist *a, const avlist *b, const char *what) {
    require(read_pairs(a) == read_pairs(b), what);
}

std::string without_addresses(const avlist *list) {
    std::string bytes(reinterpret_cast<const char *>(list), sizeof *list);
    bytes.replace(8, 16, 16, '\0');
    return bytes;
}

void compare_with_plain(const avlist *list, const uint8_t *data) {
    const ListPtr plain = make_list("fuzz");
    std::string copy(reinterpret_cast<const char *>(data), be32(data));
    require(aaa_avpair_unpack_msg(plain.get(), copy.data()) == AAA_OK, "the plain form refuses");
    require(without_addresses(list) == without_addresses(plain.get()), "the plain form makes another record");
    require_same(list, plain.get(), "the plain form makes other pairs");
    require(aaa_avpair_compare_lists(list, plain.get()) == 1,
            "the library finds the plain form's list different");
}

void look_up_pairs(const avlist *list) {
    const std::vector<ModelPair> pairs = read_pairs(list);
    for (std::size_t i = 0; i < pairs.size() && i < kLookedUp; ++i) {
        uint32_t instance = 0;
        for (std::size_t j = 0; j < i; ++j) {
            instance += pairs[j].type == pairs[i].type ? 1 : 0;
        }
        const std::string &value = pairs[i].value;
        std::vector<char> room(value.size());
        uint32_t length = 0;
        require(aaa_util_avlist_value_copy(list, pairs[i].type, instance, room.data(), room.size(),
                                           &length) == AAA_OK &&
                    std::string(room.data(), length) == value,
                "a value is copied wrongly");
        if (!value.empty()) {
            require(aaa_util_avlist_value_copy(list, pairs[i].type, instance, room.data(), room.size() - 1,
                                               &length) == AAA_ERR_BUFFER_TOO_SMALL,
                    "a value is copied into a buffer that is too small");
        }
    }
}

// Compares the iterators with the stored pairs.
void walk(const avlist *list) {
    const std::vector<ModelPair> pairs = read_pairs(list);
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    cerrno rc = aaa_avpair_iterator_init(&it, list, &pair);
    require(rc == AAA_OK || pairs.empty(), "the iterator does not find the first pair");
    std::size_t count = 0;
    for (; rc == AAA_OK; rc = aaa_avpair_iterator_get_next(&it, &pair), ++count) {
        require(count < pairs.size() && pair != nullptr, "the iterator finds too many pairs");
        const ModelPair &expected = pairs[count];
        require(pair->av_type == expected.type && pair->av_flags == expected.flags &&
                    pair->av_tag == expected.tag && pair->av_len == expected.value.size() &&
                    std::memcmp(pair + 1, expected.value.data(), expected.value.size()) == 0,
                "the iterator finds another pair");
    }
    require(count == pairs.size(), "the iterator leaves pairs out");
}

uint32_t visit(avpair_type_t type, avpair_flags_t flags, void *value, uint32_t len, uint32_t tag, void *ctx) {
    auto &visited = *static_cast<std::vector<ModelPair> *>(ctx);
    visited.push_back({type, tag, flags, std::string(static_cast<const char *>(value), len)});
    return 1;
}

void walk_by_calls(avlist *list) {
    std::vector<ModelPair> visited;
    require(aaa_avpair_list_for_each(list, &visited, visit) == AAA_OK, "no pair is visited");
    require(visited == read_pairs(list), "other pairs are visited");
}

// Walks all pairs in the buffers, including the deleted ones.
void walk_buffers(const avlist *list) {
    const std::vector<ModelBuffer> buffers = read_buffers(list);
    avpair_mem_stats_t expected{};
    const avpair_buffer_t *buf = list->avpair_first_buf;
    for (const ModelBuffer &buffer : buffers) {
        const avpair_t *pair = aaa_avpair_get_first_avpair_in_buf(const_cast<avpair_buffer_t *>(buf));
        for (const ModelPair &model : buffer.pairs) {
            require(aaa_avpair_is_deleted(pair) == (model.deleted ? 1 : 0) &&
                        pair->av_len == model.value.size() &&
                        std::memcmp(pair + 1, model.value.data(), model.value.size()) == 0,
                    "a buffer holds another pair");
            pair = aaa_avpair_get_adjacent(pair);
        }
        require(reinterpret_cast<const unsigned char *>(pair) == buf->hdr.free_mem,
                "a buffer ends at another address");
        expected.buf_cnt += 1;
        expected.total_mem += buffer.size;
        expected.used_mem += buffer.used();
        buf = buf->hdr.next;
    }
    avpair_mem_stats_t stats{};
    require(aaa_avpair_get_mem_usage(list, &stats) == AAA_OK, "no counters");
    require(stats.buf_cnt == expected.buf_cnt && stats.total_mem == expected.total_mem &&
                stats.used_mem == expected.used_mem,
            "other counters");
}

void look_up_places(const avlist *list) {
    const std::vector<ModelPair> pairs = read_pairs(list);
    for (std::size_t i = 0; i <= pairs.size() && i < kLookedUp; ++i) {
        ModelPair found;
        void *value = nullptr;
        uint32_t length = 0;
        const cerrno rc = aaa_avpair_find_index(static_cast<uint32_t>(i), &found.type, &found.flags, &value,
                                                &found.tag, &length, list);
        if (i == pairs.size()) {
            require(rc == AAA_ERR_AVPAIR_NOT_FOUND, "a pair after the last");
            return;
        }
        found.value.assign(static_cast<const char *>(value), length);
        require(rc == AAA_OK && found == pairs[i], "another pair at a position");
    }
}

void print_pairs(const avlist *list) {
    const std::vector<ModelPair> pairs = read_pairs(list);
    for (std::size_t i = 0; i < pairs.size() && i < kLookedUp; ++i) {
        char text[256];
        const ModelPair &pair = pairs[i];
        require(aaa_util_print_attr(pair.type, static_cast<uint32_t>(pair.value.size()), pair.flags,
                                    pair.value.data(), text, sizeof text) == text &&
                    std::memchr(text, '\0', sizeof text) != nullptr,
                "a printed pair is not terminated");
    }
}

std::vector<std::string> g_lines;

int take_line(uint32_t, const char *line) {
    g_lines.emplace_back(line);
    return 0;
}

// The name, then a line for every pair.
void print_lines(const avlist *list) {
    g_lines.clear();
    aaa_avpair_print_list(list, 8, take_line);
    require(g_lines.size() == 1 + read_pairs(list).size() && g_lines[0] == list->av_name,
            "the printed lines are not one for each pair");
    for (std::size_t i = 1; i < g_lines.size(); ++i) {
        require(g_lines[i].size() <= 1023 && g_lines[i].ends_with('\n'),
                "a printed line does not end with a line feed");
    }
}

void print(const avlist *list) {
    for (const uint32_t size : {0u, 1u, 2u, 80u, 4096u}) {
        std::vector<char> text(size);
        require(aaa_util_print_avlist(text.data(), size, "fuzz", list) == text.data(),
                "print returns another buffer");
        require(size == 0 || std::memchr(text.data(), '\0', size) != nullptr,
                "a printed text is not terminated");
    }
    print_lines(list);
}

// A copy of the list must equal it, and changes of the copy must not change the list.
void change_a_copy(const avlist *list) {
    avlist *made = nullptr;
    require(aaa_avpair_copy_list(list, nullptr, &made) == AAA_OK, "no copy");
    const ListPtr copy(made);
    require_same(list, copy.get(), "the copy differs");
    for (unsigned i = 0; i < 8 && copy->av_cnt != 0; ++i) {
        aaa_avpair_iterator_t it{};
        avpair_t *pair = nullptr;
        require(aaa_avpair_iterator_init(&it, copy.get(), &pair) == AAA_OK, "no first pair");
        if (i % 2 != 0 && aaa_avpair_iterator_get_next(&it, &pair) == AAA_STATUS_END_OF_LIST) {
            continue;
        }
        require(aaa_avpair_delete_by_iterator(&it, copy.get()) == AAA_OK, "a pair cannot be deleted");
        require_sound(copy.get());
    }
    require(aaa_avpair_add(257, 0, "user", 0, 4, copy.get()) == AAA_OK, "no pair can be added");
    require_sound(copy.get());
    std::free(aaa_util_avlist_errmsg_get(copy.get()));
    avpair_flags_t flags = 0;
    std::free(aaa_util_avlist_prompt_get(copy.get(), &flags));
    require_sound(copy.get());
}

// Compares pair by pair with the library's own comparison. The lists' counts may differ:
// each is the count of its message.
void require_equal(const avlist *a, const avlist *b) {
    aaa_avpair_iterator_t at_a{};
    aaa_avpair_iterator_t at_b{};
    avpair_t *pair_a = nullptr;
    avpair_t *pair_b = nullptr;
    cerrno rc = aaa_avpair_iterator_init(&at_a, a, &pair_a);
    require(aaa_avpair_iterator_init(&at_b, b, &pair_b) == rc, "one list is empty");
    while (rc == AAA_OK) {
        require(aaa_avpair_compare_avpairs(pair_a, pair_b) == 1, "a pair comes back different");
        rc = aaa_avpair_iterator_get_next(&at_a, &pair_a);
        require(aaa_avpair_iterator_get_next(&at_b, &pair_b) == rc, "one list is longer");
    }
}

// Packs the list, which may only be freed afterwards, and reads the result.
void pack_again(const ListPtr &list, const uint8_t *data) {
    const std::vector<ModelPair> pairs = read_pairs(list.get());
    const ListPtr original = make_list();
    require(aaa_avpair_unpack_msg_checked(original.get(), reinterpret_cast<const char *>(data), be32(data)) ==
                AAA_OK,
            "an accepted message is refused when unpacked again");
    const uint32_t total = be32(data);
    std::vector<char> packed(total);
    uint32_t length = total;
    require(aaa_avpair_pack_msg_to_buf(list.get(), packed.data(), &length) == AAA_OK && length == total,
            "the list does not pack into the size that it reports");
    require(std::memcmp(packed.data() + kHeader, data + kHeader, total - kHeader) == 0,
            "the list packs into other pairs");
    const ListPtr again = make_list();
    require(aaa_avpair_unpack_msg_checked(again.get(), packed.data(), length) == AAA_OK,
            "a packed list is refused");
    require_sound(again.get());
    require(read_pairs(again.get()) == pairs, "the packed list unpacks into other pairs");
    require_equal(again.get(), original.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fake::clear_journal();
    const ListPtr list = make_list("fuzz");
    const std::string before = without_addresses(list.get());
    static const uint8_t kNothing = 0;
    const uint8_t *const message = size != 0 ? data : &kNothing;
    const cerrno rc =
        aaa_avpair_unpack_msg_checked(list.get(), reinterpret_cast<const char *>(message), size);
    require(rc == expected_code(message, size), "the verdict on a message differs from the format's");
    require_sound(list.get());
    if (rc != AAA_OK) {
        require(without_addresses(list.get()) == before && list->avpair_first_buf == nullptr,
                "a refusal changes the list");
        return 0;
    }
    compare_with_plain(list.get(), message);
    walk(list.get());
    walk_by_calls(list.get());
    walk_buffers(list.get());
    look_up_places(list.get());
    look_up_pairs(list.get());
    fuzz::ListGetters(list.get()).check();
    print(list.get());
    print_pairs(list.get());
    change_a_copy(list.get());
    pack_again(list, message);
    return 0;
}
