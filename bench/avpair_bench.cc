// SPDX-License-Identifier: Apache-2.0
//
// List benchmarks, every row beside its baseline of the same name with
// "plain" in it. The figure to look at is the ratio of the two in one run.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "plain_list.hpp"

namespace {

using bench::Attribute;
using bench::keep;

// What a login request carries, in its order.
constexpr uint32_t kNumber = 7;
const std::array<Attribute, 10> kLogin{{
    {AAA_SERVICE_TYPE_ATTR, 4, &kNumber, true},
    {AAA_AUTHEN_OPTION_ATTR, 4, &kNumber, true},
    {AAA_METHODLIST_ATTR, 8, "default", false},
    {AAA_USERNAME_ATTR, 6, "alice", false},
    {AAA_AUTHEN_METHOD_ATTR, 4, &kNumber, true},
    {AAA_TTYNAME_ATTR, 10, "/dev/vty0", false},
    {AAA_REMOTE_ADDR_ATTR, 11, "192.0.2.10", false},
    {AAA_PASSWORD_ATTR, 11, "wonderland", false},
    {AAA_USER_DB_FLAG_ATTR, 4, &kNumber, true},
    {AAA_TYPE_ATTR, 4, &kNumber, true},
}};
constexpr std::array<uint32_t, 5> kWanted{AAA_USERNAME_ATTR, AAA_PASSWORD_ATTR, AAA_TYPE_ATTR,
                                          AAA_SERVICE_TYPE_ATTR, AAA_REMOTE_ADDR_ATTR};

// The login's attributes for 10; for more, a mix of lengths without a period
// that a branch predictor could learn.
std::vector<Attribute> attributes_for(size_t count) {
    static const std::string text(200, 'x');
    std::vector<Attribute> result(kLogin.begin(), kLogin.end());
    uint32_t state = 12345;
    while (result.size() < count) {
        state = state * 1664525u + 1013904223u;
        const uint32_t pick = (state >> 16) % 20;
        if (pick < 9) {
            result.push_back({AAA_ACCT_INBYTES_ATTR, 4, &kNumber, true});
        } else {
            result.push_back({AAA_REPLYMSG_ATTR, 1 + (state >> 24) % 32, text.data(), false});
        }
    }
    // What is looked up stands at the end of a long list.
    if (count > kLogin.size()) {
        for (size_t i = 0; i < kLogin.size(); i++) {
            std::swap(result[i], result[count - kLogin.size() + i]);
        }
    }
    return result;
}

uint32_t bytes_for(const std::vector<Attribute> &attributes) {
    uint32_t total = 0;
    for (const Attribute &a : attributes) {
        total += bench::plain_extent(a.len);
    }
    return total;
}

std::vector<unsigned char> swapped_types() {
    std::vector<unsigned char> result(AAA_TABLE_ROWS, 0);
    for (uint32_t type = 1; type < AAA_TABLE_ROWS; type++) {
        result[type] = aaa_table[type].format == 1 || aaa_table[type].format == 3;
    }
    return result;
}

const std::vector<unsigned char> &formats() {
    static const std::vector<unsigned char> table = swapped_types();
    return table;
}

avlist *build(const std::vector<Attribute> &attributes) {
    avlist *list = nullptr;
    aaa_avpair_create_list("bench", &list);
    for (const Attribute &a : attributes) {
        aaa_avpair_add(a.type, 0, a.value, 0, a.len, list);
    }
    return list;
}

void report(benchmark::State &state) {
    state.counters["per_attribute"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_build(benchmark::State &state) {
    const auto attributes = attributes_for(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        avlist *list = build(attributes);
        keep(*list);
        aaa_avpair_free_list(list);
    }
    report(state);
}

void BM_build_plain(benchmark::State &state) {
    const auto attributes = attributes_for(static_cast<size_t>(state.range(0)));
    const uint32_t bytes = bytes_for(attributes);
    for (auto _ : state) {
        bench::PlainList list = bench::plain_build(attributes, bytes);
        keep(list);
        bench::plain_free(list);
    }
    report(state);
}

// Packing turns the list's pairs around, so a list is built for each.
void BM_build_pack(benchmark::State &state) {
    const auto attributes = attributes_for(static_cast<size_t>(state.range(0)));
    std::vector<char> out(bytes_for(attributes) + 56);
    for (auto _ : state) {
        avlist *list = build(attributes);
        auto len = static_cast<uint32_t>(out.size());
        if (aaa_avpair_pack_msg_to_buf(list, out.data(), &len) != 0) {
            state.SkipWithError("pack failed");
        }
        keep(out[0]);
        aaa_avpair_free_list(list);
    }
    report(state);
}

void BM_build_pack_plain(benchmark::State &state) {
    const auto attributes = attributes_for(static_cast<size_t>(state.range(0)));
    const uint32_t bytes = bytes_for(attributes);
    std::vector<unsigned char> out(bytes + 56);
    for (auto _ : state) {
        bench::PlainList list = bench::plain_build(attributes, bytes);
        uint32_t len = bench::plain_pack(list, out.data(), formats());
        keep(len);
        keep(out[0]);
        bench::plain_free(list);
    }
    report(state);
}

std::vector<char> packed(const std::vector<Attribute> &attributes) {
    std::vector<char> out(bytes_for(attributes) + 56);
    avlist *list = build(attributes);
    auto len = static_cast<uint32_t>(out.size());
    aaa_avpair_pack_msg_to_buf(list, out.data(), &len);
    aaa_avpair_free_list(list);
    return out;
}

void BM_unpack(benchmark::State &state) {
    auto msg = packed(attributes_for(static_cast<size_t>(state.range(0))));
    for (auto _ : state) {
        avlist *list = nullptr;
        if (aaa_avpair_unpack_msg_create(&list, msg.data(), static_cast<uint32_t>(msg.size())) != 0) {
            state.SkipWithError("unpack failed");
        }
        keep(*list);
        aaa_avpair_free_list(list);
    }
    report(state);
}

void BM_unpack_plain(benchmark::State &state) {
    auto msg = packed(attributes_for(static_cast<size_t>(state.range(0))));
    const auto *bytes = reinterpret_cast<const unsigned char *>(msg.data());
    for (auto _ : state) {
        bench::PlainList list = bench::plain_unpack(bytes, static_cast<uint32_t>(msg.size()), formats());
        keep(list);
        bench::plain_free(list);
    }
    report(state);
}

void BM_lookup5(benchmark::State &state) {
    avlist *list = build(attributes_for(static_cast<size_t>(state.range(0))));
    for (auto _ : state) {
        for (const uint32_t type : kWanted) {
            void *value = nullptr;
            uint32_t len = 0;
            if (aaa_avpair_find_type(type, nullptr, &value, &len, 0, list) != 0) {
                state.SkipWithError("lookup failed");
            }
            keep(value);
        }
    }
    report(state);
    aaa_avpair_free_list(list);
}

void BM_lookup5_plain(benchmark::State &state) {
    const auto attributes = attributes_for(static_cast<size_t>(state.range(0)));
    bench::PlainList list = bench::plain_build(attributes, bytes_for(attributes));
    for (auto _ : state) {
        for (const uint32_t type : kWanted) {
            const unsigned char *value = bench::plain_find(list, type);
            keep(value);
        }
    }
    report(state);
    bench::plain_free(list);
}

void BM_round_trip(benchmark::State &state) {
    const auto attributes = attributes_for(static_cast<size_t>(state.range(0)));
    std::vector<char> out(bytes_for(attributes) + 56);
    for (auto _ : state) {
        avlist *list = build(attributes);
        auto len = static_cast<uint32_t>(out.size());
        aaa_avpair_pack_msg_to_buf(list, out.data(), &len);
        aaa_avpair_free_list(list);
        avlist *received = nullptr;
        aaa_avpair_unpack_msg_create(&received, out.data(), len);
        for (const uint32_t type : kWanted) {
            void *value = nullptr;
            uint32_t value_len = 0;
            aaa_avpair_find_type(type, nullptr, &value, &value_len, 0, received);
            keep(value);
        }
        aaa_avpair_free_list(received);
    }
    report(state);
}

void BM_round_trip_plain(benchmark::State &state) {
    const auto attributes = attributes_for(static_cast<size_t>(state.range(0)));
    const uint32_t bytes = bytes_for(attributes);
    std::vector<unsigned char> out(bytes + 56);
    for (auto _ : state) {
        bench::PlainList list = bench::plain_build(attributes, bytes);
        const uint32_t len = bench::plain_pack(list, out.data(), formats());
        bench::plain_free(list);
        bench::PlainList received = bench::plain_unpack(out.data(), len, formats());
        for (const uint32_t type : kWanted) {
            const unsigned char *value = bench::plain_find(received, type);
            keep(value);
        }
        bench::plain_free(received);
    }
    report(state);
}

#define AAA_SIZES Arg(10)->Arg(100)->Arg(1000)->Arg(10000)
BENCHMARK(BM_build)->AAA_SIZES;
BENCHMARK(BM_build_plain)->AAA_SIZES;
BENCHMARK(BM_build_pack)->AAA_SIZES;
BENCHMARK(BM_build_pack_plain)->AAA_SIZES;
BENCHMARK(BM_unpack)->AAA_SIZES;
BENCHMARK(BM_unpack_plain)->AAA_SIZES;
BENCHMARK(BM_lookup5)->AAA_SIZES;
BENCHMARK(BM_lookup5_plain)->AAA_SIZES;
BENCHMARK(BM_round_trip)->AAA_SIZES;
BENCHMARK(BM_round_trip_plain)->AAA_SIZES;

}  // namespace
