// SPDX-License-Identifier: Apache-2.0
//
// Shared by the tests of the messages: records filled with a pattern, so that
// a byte that must not be written is seen when it is; io-vectors whose outputs
// show whether they were stored; and the pairs of packed and unpacked lists as
// values that can be compared and printed.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/messages.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "testkit/fake_platform.hpp"

namespace messages {

// ---- Records ---------------------------------------------------------------

// A record of the caller's, larger than any message needs.
class Record {
  public:
    static constexpr std::size_t kSize = sizeof(aaa_sess_request_t) + 64;

    Record() {
        for (std::size_t i = 0; i < kSize; ++i) {
            bytes_[i] = static_cast<uint8_t>(0xA0 + i % 67);
        }
    }

    void *data() { return bytes_.data(); }
    const void *data() const { return bytes_.data(); }
    void *at(std::size_t offset) { return bytes_.data() + offset; }
    uint32_t u32(std::size_t offset) const { return read<uint32_t>(offset); }
    uint64_t u64(std::size_t offset) const { return read<uint64_t>(offset); }
    avlist *list() const { return reinterpret_cast<avlist *>(static_cast<uintptr_t>(u64(64))); }

    Record &host(std::size_t offset, uint32_t value) { return write(offset, &value, sizeof value); }
    Record &net(std::size_t offset, uint32_t value) { return host(offset, __builtin_bswap32(value)); }
    Record &host64(std::size_t offset, uint64_t value) { return write(offset, &value, sizeof value); }
    Record &text(std::size_t offset, std::string_view value) {
        return write(offset, value.data(), value.size());
    }
    Record &zero(std::size_t offset, std::size_t count) {
        std::memset(at(offset), 0, count);
        return *this;
    }
    Record &write(std::size_t offset, const void *value, std::size_t count) {
        std::memcpy(at(offset), value, count);
        return *this;
    }

    bool operator==(const Record &) const = default;

  private:
    template <typename T>
    T read(std::size_t offset) const {
        T value;
        std::memcpy(&value, bytes_.data() + offset, sizeof value);
        return value;
    }

    alignas(8) std::array<uint8_t, kSize> bytes_;

    friend testing::AssertionResult same_bytes(const Record &, const Record &);
};

// Names the first byte that differs.
inline testing::AssertionResult same_bytes(const Record &actual, const Record &expected) {
    for (std::size_t i = 0; i < Record::kSize; ++i) {
        if (actual.bytes_[i] != expected.bytes_[i]) {
            return testing::AssertionFailure() << "byte " << i << " is 0x" << std::hex << +actual.bytes_[i]
                                               << ", expected 0x" << +expected.bytes_[i];
        }
    }
    return testing::AssertionSuccess();
}

// The process id that the expected packets below hold.
inline constexpr int kPid = 1717;

// A request packet as it must be after a fill of the given record's bytes.
inline Record request_packet(const Record &before, uint32_t type, const avlist *list) {
    Record expected = before;
    expected.zero(0, 60).host(0, 16).host(8, type).host(24, kPid).host(32, 4242).host(52, 2);
    const uint16_t magic = 0x414E;
    expected.write(36, &magic, sizeof magic);
    expected.host64(64, reinterpret_cast<uintptr_t>(list));
    return expected;
}

// ---- Io-vectors ------------------------------------------------------------

// Out-pointers of a compose call and, when it stored something, its block.
class Iov {
  public:
    Iov() = default;
    ~Iov() { release(); }
    Iov(const Iov &) = delete;
    Iov &operator=(const Iov &) = delete;

    iov_t **out() { return &vector_; }
    uint32_t *count_out() { return &count_; }
    uint32_t count() const { return count_; }
    const iov_t &operator[](std::size_t i) const { return vector_[i]; }
    iov_t *get() const { return vector_; }
    bool untouched() const { return vector_ == kUntouched && count_ == kUntouchedCount; }
    bool count_untouched() const { return count_ == kUntouchedCount; }
    void release() {
        if (vector_ != kUntouched) {
            std::free(vector_);
        }
        vector_ = kUntouched;
        count_ = kUntouchedCount;
    }

  private:
    static inline iov_t sentinel_{};
    static constexpr iov_t *kUntouched = &sentinel_;
    static constexpr uint32_t kUntouchedCount = 0xDEADBEEF;
    iov_t *vector_ = kUntouched;
    uint32_t count_ = kUntouchedCount;
};

inline testing::AssertionResult is_element(const iov_t &element, const void *base, uint64_t len) {
    if (element.base == base && element.len == len) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "element {" << element.base << ", " << element.len
                                       << "}, expected {" << base << ", " << len << "}";
}

// ---- Pairs -----------------------------------------------------------------

struct Pair {
    uint32_t type;
    uint32_t flags;
    uint32_t tag;
    std::string value;
    bool operator==(const Pair &) const = default;
};

inline void PrintTo(const Pair &pair, std::ostream *out) {
    *out << pair.type << " flags 0x" << std::hex << pair.flags << " tag " << std::dec << pair.tag << " [";
    for (const char c : pair.value) {
        *out << std::hex << std::setw(2) << std::setfill('0') << +static_cast<uint8_t>(c) << ' ';
    }
    *out << std::dec << "] \"" << pair.value << '"';
}

inline Pair bytes(uint32_t type, std::string_view value, uint32_t flags = 0) {
    return {type, flags, 0, std::string(value)};
}
inline Pair text(uint32_t type, std::string_view value, uint32_t flags = 0) {
    return {type, flags, 0, std::string(value) + '\0'};
}
template <typename T>
std::string raw(T value) {
    std::string result(sizeof value, '\0');
    std::memcpy(result.data(), &value, sizeof value);
    return result;
}
inline Pair u32(uint32_t type, uint32_t value, uint32_t flags = 0) {
    return bytes(type, raw(value), flags);
}
inline Pair u64(uint32_t type, uint64_t value) {
    return bytes(type, raw(value));
}
inline Pair byte(uint32_t type, uint8_t value) {
    return bytes(type, raw(value));
}

using Pairs = std::vector<Pair>;

inline Pairs operator+(Pairs a, const Pairs &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Live pairs of a list in memory, in order.
inline Pairs pairs_of(const avlist *list) {
    Pairs found;
    for (uint32_t i = 0;; ++i) {
        Pair pair{};
        void *value = nullptr;
        uint32_t len = 0;
        if (aaa_avpair_find_index(i, &pair.type, &pair.flags, &value, &pair.tag, &len, list) != AAA_OK) {
            return found;
        }
        pair.value.assign(static_cast<const char *>(value), len);
        found.push_back(std::move(pair));
    }
}

struct ListDeleter {
    void operator()(avlist *list) const { aaa_avpair_free_list(list); }
};
using List = std::unique_ptr<avlist, ListDeleter>;

inline List make_list(const char *name, const Pairs &pairs = {}) {
    avlist *list = nullptr;
    EXPECT_EQ(aaa_avpair_create_list(name, &list), AAA_OK);
    for (const Pair &pair : pairs) {
        // The trace of an add reads four bytes of the value.
        std::string padded = pair.value + std::string(4, '\0');
        EXPECT_EQ(aaa_avpair_add(pair.type, pair.flags, padded.data(), pair.tag,
                                 static_cast<uint32_t>(pair.value.size()), list),
                  AAA_OK);
    }
    return List(list);
}

// A packed list that a receiver has unpacked.
struct Unpacked {
    std::string name;
    uint32_t total = 0;  // as the message states it
    Pairs pairs;
};

inline Unpacked unpack(const iov_t &element) {
    std::string message(static_cast<const char *>(element.base), element.len);
    Unpacked result;
    std::memcpy(&result.total, message.data(), sizeof result.total);
    result.total = __builtin_bswap32(result.total);
    avlist *list = nullptr;
    EXPECT_EQ(aaa_avpair_unpack_msg_create(&list, message.data(), static_cast<uint32_t>(message.size())),
              AAA_OK);
    const List owner(list);
    if (list != nullptr) {
        result.name = list->av_name;
        result.pairs = pairs_of(list);
    }
    return result;
}

// ---- Traces ----------------------------------------------------------------

inline void PrintTraces(const std::vector<fake::Trace> &traces, std::ostream *out) {
    for (const fake::Trace &trace : traces) {
        *out << '\n' << trace.flag << ": " << trace.text;
    }
}

// Traces of the compose routines' own flags, in order.
inline std::vector<fake::Trace> compose_traces(std::initializer_list<uint32_t> flags = {1, 2, 3}) {
    std::vector<fake::Trace> found;
    for (fake::Trace &trace : fake::traces()) {
        for (const uint32_t flag : flags) {
            if (trace.flag == flag) {
                found.push_back(std::move(trace));
                break;
            }
        }
    }
    return found;
}

using Traces = std::vector<fake::Trace>;

}  // namespace messages

namespace fake {
inline void PrintTo(const Trace &trace, std::ostream *out) {
    *out << trace.flag << ": " << trace.text;
}
}  // namespace fake
