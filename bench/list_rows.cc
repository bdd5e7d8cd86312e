// SPDX-License-Identifier: Apache-2.0
//
// The attributes of the list benchmarks, and the check that library and plain loops
// give the same results for them.

#include "list_rows.hpp"

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "plain_list_preallocated.hpp"

namespace bench {

namespace {

// The attributes of a login request, in its order.
constexpr uint32_t kNumber = 7;
const std::array<Attribute, 10> kLogin{{
    {AAA_SERVICE_TYPE_ATTR, 4, &kNumber},
    {AAA_AUTHEN_OPTION_ATTR, 4, &kNumber},
    {AAA_METHODLIST_ATTR, 8, "default"},
    {AAA_USERNAME_ATTR, 6, "alice"},
    {AAA_AUTHEN_METHOD_ATTR, 4, &kNumber},
    {AAA_TTYNAME_ATTR, 10, "/dev/vty0"},
    {AAA_REMOTE_ADDR_ATTR, 11, "192.0.2.10"},
    {AAA_PASSWORD_ATTR, 11, "wonderland"},
    {AAA_USER_DB_FLAG_ATTR, 4, &kNumber},
    {AAA_TYPE_ATTR, 4, &kNumber},
}};

// For 10, the login's attributes; for more, a mix followed by the login's attributes.
std::vector<Attribute> attributes_for(std::size_t count) {
    std::vector<Attribute> result = mixed_attributes(count - kLogin.size());
    result.insert(result.end(), kLogin.begin(), kLogin.end());
    return result;
}

uint32_t bytes_for(const std::vector<Attribute> &attributes) {
    uint32_t total = 0;
    for (const Attribute &a : attributes) {
        total += plain_extent(a.len);
    }
    return total;
}

std::vector<unsigned char> number_types() {
    std::vector<unsigned char> result(AAA_TABLE_ROWS, 0);
    for (uint32_t type = 1; type < AAA_TABLE_ROWS; type++) {
        result[type] =
            aaa_table[type].format == AAA_FORMAT_INTEGER || aaa_table[type].format == AAA_FORMAT_IPADDR;
    }
    return result;
}

// Keeps freed memory in the process, as in a daemon that has run for a while.
// Otherwise the long rows would measure the kernel's allocation of pages, at random
// in the library's rows or in the plain ones.
void keep_freed_memory() {
    constexpr int kMuch = 256 << 20;
    mallopt(M_TRIM_THRESHOLD, kMuch);
    mallopt(M_MMAP_THRESHOLD, kMuch);
}

bool same_values(const avlist *list, const PlainList &plain) {
    for (const uint32_t type : kWanted) {
        void *value = nullptr;
        uint32_t len = 0;
        const PlainValue expected = plain_find(plain, type);
        if (aaa_avpair_find_type(type, nullptr, &value, &len, 0, list) != 0 || len != expected.len ||
            std::memcmp(value, expected.bytes, len) != 0) {
            return false;
        }
    }
    return true;
}

// Whether the list's buffers hold the bytes of the plain list.
bool same_pairs(avlist *list, const PlainList &plain) {
    uint32_t at = 0;
    for (avpair_buffer_t *buf = list->avpair_first_buf; buf != nullptr; buf = buf->hdr.next) {
        const auto *first = reinterpret_cast<const unsigned char *>(aaa_avpair_get_first_avpair_in_buf(buf));
        const auto n = static_cast<uint32_t>(buf->hdr.free_mem - first);
        if (n > plain.used - at || std::memcmp(first, plain.pairs + at, n) != 0) {
            return false;
        }
        at += n;
    }
    return at == plain.used;
}

}  // namespace

std::vector<Attribute> mixed_attributes(std::size_t count, uint32_t seed) {
    static const std::string text(200, 'x');
    std::vector<Attribute> result;
    uint32_t state = seed;
    while (result.size() < count) {
        state = state * 1664525u + 1013904223u;
        const uint32_t pick = (state >> 16) % 20;
        if (pick < 9) {
            result.push_back({AAA_ACCT_INBYTES_ATTR, 4, &kNumber});
        } else {
            result.push_back({AAA_REPLYMSG_ATTR, 1 + (state >> 24) % 32, text.data()});
        }
    }
    return result;
}

void fail(const char *what) {
    std::fprintf(stderr, "list benchmark: %s\n", what);
    std::exit(1);
}

Workload::Workload(std::size_t count) : Workload(attributes_for(count)) {}

Workload::Workload(std::vector<Attribute> list_attributes)
    : attributes(std::move(list_attributes)),
      pair_bytes(bytes_for(attributes)),
      numbers(number_types()),
      message(pair_bytes + kPlainHeader),
      out(message.size()) {
    keep_freed_memory();
    avlist *list = build(*this);
    require(pack(*this, list) == message.size(), "the packed message has another length than its pairs give");
    aaa_avpair_free_list(list);
    message = out;
    received = unpack(message);
    plain = plain_unpack(*this, message);
    preallocated = plain_obtain(pair_bytes);
}

Workload::~Workload() {
    aaa_avpair_free_list(received);
    plain_free(plain);
    plain_free(preallocated);
}

void check_rows(Workload &work) {
    PlainList built = plain_build(work);
    avlist *list = build(work);
    require(same_pairs(list, built), "library and plain loop build different lists");
    std::memset(work.out.data(), 0xA5, work.out.size());
    pack(work, list);
    require(work.out == work.message, "two packings of one list differ");
    std::memset(work.out.data(), 0x5A, work.out.size());
    plain_pack(work, built);
    require(work.out == work.message, "library and plain loop pack different messages");
    require(same_pairs(work.received, work.plain), "library and plain loop unpack different lists");
    require(same_values(work.received, work.plain), "library and plain loop find different values");
    std::memset(work.out.data(), 0xA5, work.out.size());
    plain_pack(work, build_preallocated(work));
    require(work.out == work.message, "the plain loop packs another message in preallocated memory");
    require(same_pairs(work.received, unpack_preallocated(work, work.message)),
            "the plain loop unpacks another list in preallocated memory");
    aaa_avpair_free_list(list);
    plain_free(built);
}

}  // namespace bench
