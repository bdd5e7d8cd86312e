// SPDX-License-Identifier: Apache-2.0
//
// Lists built from the input go through every operation on a whole list: packing into
// buffers of any size, unpacking, relaying, copying, comparing, printing. The results
// are compared with a message that is composed here, and every list is verified. A
// packed message with one byte changed may give any list, but no access outside the
// message is allowed.
//
// Input: length and bytes of the name, then steps of an opcode and its
// operands until opcode 7 or the end; then the size of the buffer for packing,
// that of the buffer for printing, and the byte to change.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "fuzz_input.hpp"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace aaatest;

void require_sound(const avlist *list, ListOrigin origin = ListOrigin::built) {
    const Verdict verdict = verify_list(list, origin);
    fuzz::require(verdict.sound(), verdict.fault, __FILE__, __LINE__);
}

using fuzz::Input;

uint32_t word(Input &in) {
    return static_cast<uint32_t>(in.number(2));
}

std::string name_from(Input &in) {
    std::string name(in.byte() % 31, 'n');
    for (char &c : name) {
        c = static_cast<char>('a' + in.byte() % 26);
    }
    return name;
}

void add(Input &in, avlist *list, uint32_t type, uint32_t len) {
    std::string value(len, static_cast<char>(in.byte()));
    for (std::size_t i = 0; i < value.size(); i += 7) {
        value[i] = static_cast<char>(in.byte());
    }
    const uint32_t flags = in.byte() * 0x01010101u;
    const uint32_t tag = in.byte() * 0x00ff00ffu;
    REQUIRE(aaa_avpair_add(type == AAA_ATTR_MAX ? 1 : type, flags, value.data(), tag, len, list) == AAA_OK);
}

void erase(Input &in, avlist *list) {
    const std::size_t count = list->av_cnt;
    if (count == 0) {
        return;
    }
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    REQUIRE(aaa_avpair_iterator_init(&it, list, &pair) == AAA_OK);
    for (std::size_t index = in.byte() % count; index > 0; index--) {
        REQUIRE(aaa_avpair_iterator_get_next(&it, &pair) == AAA_OK);
    }
    REQUIRE(aaa_avpair_delete_by_iterator(&it, list) == AAA_OK);
}

ListPtr list_from(Input &in) {
    ListPtr list = make_list(name_from(in).c_str());
    for (int steps = 0; steps < 400 && !in.empty(); steps++) {
        const uint8_t opcode = in.byte();
        switch (opcode % 8) {
            case 0:
            case 1:
                add(in, list.get(), word(in) % 2100, in.byte());
                break;
            case 2:
                add(in, list.get(), word(in) % 2100, 4);
                break;
            case 3:
                add(in, list.get(), in.byte() % 90, opcode / 8);
                break;
            case 4:
                add(in, list.get(), word(in), word(in) % 1500);
                break;
            case 5:
            case 6:
                erase(in, list.get());
                break;
            default:
                return list;
        }
    }
    return list;
}

std::string be32(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
            static_cast<char>(v)};
}

// The message of a list in the documented form.
std::string expected_message(const avlist *list) {
    std::string pairs;
    std::size_t live = 0;
    for (const ModelBuffer &buffer : read_buffers(list)) {
        for (const ModelPair &pair : buffer.pairs) {
            const uint32_t format = aaa_attribute_format(static_cast<int32_t>(pair.type));
            std::string value = pair.value;
            if (!pair.deleted && value.size() == 4 && (format == 1 || format == 3)) {
                value = {value[3], value[2], value[1], value[0]};
            }
            pairs += be32(pair.deleted ? 2070 : pair.type) + be32(pair.tag) +
                     be32(static_cast<uint32_t>(value.size())) + be32(pair.flags) + value;
            pairs.resize((pairs.size() + 3) / 4 * 4, '\0');
            live += pair.deleted ? 0 : 1;
        }
    }
    std::string header = be32(static_cast<uint32_t>(56 + pairs.size())) + std::string(2, '\0');
    header += {static_cast<char>(live >> 8), static_cast<char>(live)};
    header += std::string(16, '\0') + list->av_name;
    header.resize(56, '\0');
    return header + pairs;
}

// A block of exactly n bytes, so that a sanitizer sees every step outside.
std::unique_ptr<char[]> block(std::size_t n) {
    return std::make_unique<char[]>(n);
}

std::string pack(avlist *list, std::size_t room) {
    const auto buf = block(room);
    auto len = static_cast<uint32_t>(room);
    REQUIRE(aaa_avpair_pack_msg_to_buf(list, buf.get(), &len) == AAA_OK);
    return {buf.get(), len};
}

ListPtr unpack(const std::string &message) {
    const auto msg = block(message.size());
    std::memcpy(msg.get(), message.data(), message.size());
    avlist *list = nullptr;
    REQUIRE(aaa_avpair_unpack_msg_create(&list, msg.get(), static_cast<uint32_t>(message.size())) == AAA_OK);
    return ListPtr(list);
}

ListPtr copy(const avlist *list) {
    avlist *made = nullptr;
    REQUIRE(aaa_avpair_copy_list(list, nullptr, &made) == AAA_OK);
    return ListPtr(made);
}

void check_copy(const avlist *list) {
    const ListPtr made = copy(list);
    require_sound(made.get());
    REQUIRE(aaa_avpair_compare_lists(list, made.get()) == 1);
    REQUIRE(read_buffers(made.get()).size() <= 1);
    REQUIRE(read_pairs(made.get()) == read_pairs(list));
    const ListPtr doubled = copy(list);
    REQUIRE(aaa_avpair_list_concat(doubled.get(), made.get()) == AAA_OK);
    REQUIRE(aaa_avpair_compare_lists(list, doubled.get()) == (list->av_cnt == 0 ? 1 : 0));
    require_sound(doubled.get());
}

void check_gather(const avlist *list, std::size_t total) {
    const std::size_t buffers = read_buffers(list).size();
    std::vector<iov_t> iov(buffers + 1);
    auto count = static_cast<uint32_t>(iov.size());
    REQUIRE(aaa_avpair_pack_msg(list, iov.data(), &count) == AAA_OK);
    REQUIRE(count == iov.size());
    std::size_t sum = 0;
    for (const iov_t &element : iov) {
        sum += element.len;
    }
    REQUIRE(sum == total);
    count = static_cast<uint32_t>(buffers);
    REQUIRE(buffers == 0 || aaa_avpair_pack_msg(list, iov.data(), &count) == AAA_ERR_BUFFER_TOO_SMALL);
}

// In a buffer that is too small: complete parts, then nothing.
void check_cut(const avlist *original, std::size_t total, std::size_t room) {
    const ListPtr list = copy(original);
    const auto buf = block(room);
    auto len = static_cast<uint32_t>(room);
    const cerrno code = aaa_avpair_pack_msg_to_buf(list.get(), buf.get(), &len);
    REQUIRE(code == (room < total ? AAA_ERR_NOMEM : AAA_OK));
    REQUIRE(len == (room >= total ? total : room >= 56 ? 56u : 0u));
}

void check_print(const avlist *list, uint32_t room) {
    const auto text = block(room);
    REQUIRE(aaa_util_print_avlist(text.get(), room, "fuzz", list) == text.get());
    REQUIRE(room == 0 || strnlen(text.get(), room) < room);
}

void check_round_trip(const std::string &message, const std::vector<ModelPair> &pairs) {
    const ListPtr list = unpack(message);
    require_sound(list.get(), ListOrigin::unpacked);
    REQUIRE(read_pairs(list.get()) == pairs);
    std::string relayed = pack(list.get(), message.size());
    std::swap(relayed[6], relayed[7]);
    REQUIRE(relayed == message);
    REQUIRE(aaa_avpair_compare_lists(unpack(message).get(), unpack(message).get()) == 1);
}

void check_changed(std::string message, std::size_t at, uint8_t change) {
    message[at % message.size()] = static_cast<char>(message[at % message.size()] ^ change);
    const ListPtr list = unpack(message);
    REQUIRE(std::memchr(list->av_name, 0, sizeof list->av_name) != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fake::clear_journal();
    fuzz::Sample sample(data, size);
    Input in(data, size);
    const ListPtr list = list_from(in);
    require_sound(list.get());
    const std::vector<ModelPair> pairs = read_pairs(list.get());
    const std::string expected = expected_message(list.get());
    const std::size_t room = word(in) % (2 * expected.size());
    const uint32_t text_room = word(in) % 4096;
    if (sample.one_in(8)) {
        check_copy(list.get());
    }
    if (sample.one_in(4)) {
        check_gather(list.get(), expected.size());
        check_cut(list.get(), expected.size(), room);
    }
    if (sample.one_in(8)) {
        check_print(list.get(), text_room);
    }
    REQUIRE(pack(list.get(), expected.size()) == expected);
    if (sample.one_in(4)) {
        check_round_trip(expected, pairs);
    }
    const std::size_t at = word(in);
    check_changed(expected, at, in.byte());
    return 0;
}
