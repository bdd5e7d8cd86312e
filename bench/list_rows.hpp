// SPDX-License-Identifier: Apache-2.0
//
// The rows of the list benchmarks: each is one step of a list's life, done by the
// library and by the plain loops with the same attributes. The program that measures
// times and the one that counts instructions both use them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "plain_list.hpp"

namespace bench {

inline constexpr std::array<uint32_t, 5> kWanted{AAA_USERNAME_ATTR, AAA_PASSWORD_ATTR, AAA_TYPE_ATTR,
                                                 AAA_SERVICE_TYPE_ATTR, AAA_REMOTE_ADDR_ATTR};

// Description of the attributes for the report.
inline constexpr char kDistribution[] =
    "10 attributes are those of a login: 5 numbers and 5 texts of 6 to 11 bytes. Longer lists are 45 % "
    "numbers of "
    "4 bytes and 55 % texts of 1 to 32 bytes, in an order without a period, with the login's attributes at "
    "the "
    "end. Every iteration works on the same list. lookup5 finds five of the login's types.";

// The data of the rows of one size. The lists received and plain, unpacked from the
// message, are for the lookups.
struct Workload {
    explicit Workload(std::size_t count);
    explicit Workload(std::vector<Attribute> list_attributes);
    ~Workload();
    Workload(const Workload &) = delete;
    Workload &operator=(const Workload &) = delete;

    std::vector<Attribute> attributes;
    uint32_t pair_bytes;
    std::vector<unsigned char> numbers;  // per type, whether a 4-byte value is a number
    std::vector<char> message;           // all of it, packed
    std::vector<char> out;               // as long as the message
    avlist *received = nullptr;
    PlainList plain{};
    PlainList preallocated{};  // memory for one list, without contents
};

// The attributes of a long list: a mix of lengths without a period that a branch
// predictor could learn, of two types that are not in kWanted.
std::vector<Attribute> mixed_attributes(std::size_t count, uint32_t seed = 12345);

// Ends the program with an error unless library and plain loops write the same
// message and find the same values.
void check_rows(Workload &work);

[[noreturn]] void fail(const char *what);

inline void require(bool good, const char *what) {
    if (!good) [[unlikely]] {
        fail(what);
    }
}

// ---- the steps, library

inline avlist *build(const Workload &work) {
    avlist *list = nullptr;
    cerrno rc = aaa_avpair_create_list("bench", &list);
    for (const Attribute &a : work.attributes) {
        rc |= aaa_avpair_add(a.type, 0, a.value, 0, a.len, list);
    }
    require(rc == 0, "build failed");
    return list;
}

inline uint32_t pack(Workload &work, avlist *list) {
    auto len = static_cast<uint32_t>(work.out.size());
    require(aaa_avpair_pack_msg_to_buf(list, work.out.data(), &len) == 0, "pack failed");
    return len;
}

inline avlist *unpack(std::vector<char> &message) {
    avlist *list = nullptr;
    const auto len = static_cast<uint32_t>(message.size());
    require(aaa_avpair_unpack_msg_create(&list, message.data(), len) == 0, "unpack failed");
    return list;
}

inline void look_up(const avlist *list) {
    for (const uint32_t type : kWanted) {
        void *value = nullptr;
        uint32_t len = 0;
        require(aaa_avpair_find_type(type, nullptr, &value, &len, 0, list) == 0, "lookup failed");
        keep(value);
        keep(len);
    }
}

// ---- the steps, plain

inline PlainList plain_build(const Workload &work) {
    return plain_build(work.attributes, work.pair_bytes);
}

inline uint32_t plain_pack(Workload &work, const PlainList &list) {
    return plain_pack(list, reinterpret_cast<unsigned char *>(work.out.data()), work.numbers.data());
}

inline PlainList plain_unpack(const Workload &work, const std::vector<char> &message) {
    return plain_unpack(reinterpret_cast<const unsigned char *>(message.data()),
                        static_cast<uint32_t>(message.size()), work.numbers.data());
}

inline void plain_look_up(const PlainList &list) {
    for (const uint32_t type : kWanted) {
        const PlainValue value = plain_find(list, type);
        require(value.bytes != nullptr, "plain lookup failed");
        keep(value);
    }
}

// ---- the rows: one iteration of each

// Includes freeing, as every row that makes a list.
struct Build {
    static constexpr char kName[] = "build";
    static constexpr char kPlainName[] = "build_plain";
    static void library(Workload &work) {
        avlist *list = build(work);
        keep(*list);
        aaa_avpair_free_list(list);
    }
    static void plain(Workload &work) {
        PlainList list = plain_build(work);
        keep(list);
        plain_free(list);
    }
};

// A packed list cannot be packed again, so each iteration builds one.
struct BuildPack {
    static constexpr char kName[] = "build_pack";
    static constexpr char kPlainName[] = "build_pack_plain";
    static void library(Workload &work) {
        avlist *list = build(work);
        keep(*list);
        const uint32_t len = pack(work, list);
        keep(len);
        aaa_avpair_free_list(list);
    }
    static void plain(Workload &work) {
        PlainList list = plain_build(work);
        keep(list);
        const uint32_t len = plain_pack(work, list);
        keep(len);
        plain_free(list);
    }
};

struct Unpack {
    static constexpr char kName[] = "unpack";
    static constexpr char kPlainName[] = "unpack_plain";
    static void library(Workload &work) {
        avlist *list = unpack(work.message);
        keep(*list);
        aaa_avpair_free_list(list);
    }
    static void plain(Workload &work) {
        PlainList list = plain_unpack(work, work.message);
        keep(list);
        plain_free(list);
    }
};

// In a received list, as in a server.
struct Lookup5 {
    static constexpr char kName[] = "lookup5";
    static constexpr char kPlainName[] = "lookup5_plain";
    static void library(Workload &work) { look_up(work.received); }
    static void plain(Workload &work) { plain_look_up(work.plain); }
};

struct RoundTrip {
    static constexpr char kName[] = "round_trip";
    static constexpr char kPlainName[] = "round_trip_plain";
    static void library(Workload &work) {
        avlist *sent = build(work);
        keep(*sent);
        const uint32_t len = pack(work, sent);
        keep(len);
        aaa_avpair_free_list(sent);
        avlist *received = unpack(work.out);
        keep(*received);
        look_up(received);
        aaa_avpair_free_list(received);
    }
    static void plain(Workload &work) {
        PlainList sent = plain_build(work);
        keep(sent);
        const uint32_t len = plain_pack(work, sent);
        keep(len);
        plain_free(sent);
        PlainList received = plain_unpack(work, work.out);
        keep(received);
        plain_look_up(received);
        plain_free(received);
    }
};

inline constexpr std::array<std::size_t, 4> kSizes{10, 100, 1000, 10000};

// Calls visit.template operator()<Row>() for every row.
template <typename Visitor>
void for_each_row(Visitor visit) {
    visit.template operator()<Build>();
    visit.template operator()<BuildPack>();
    visit.template operator()<Unpack>();
    visit.template operator()<Lookup5>();
    visit.template operator()<RoundTrip>();
}

}  // namespace bench
