// SPDX-License-Identifier: Apache-2.0
//
// The interface of a peer, and the rows in which it is timed. A peer is a class with
// static functions for the steps of a message's life:
//
//     Sent build(const Message &)             a list, filled attribute by attribute
//     uint32_t pack(Sent &, Buffer &)         its bytes in the caller's buffer; returns their number
//     uint32_t build_pack(const Message &, Buffer &)   instead of both, if nothing can be built
//     Received unpack(char *, uint32_t)       a readable list, from received bytes
//     Value find(const Received &, uint32_t type)      the first value of a type
//     void release(Sent &), void release(Received &)
//
// Lists that release themselves at the end of their scope have a release() that
// does nothing.
//
// A peer that lacks a function has no rows that need it; kWithout then gives the reason
// to the reader. A peer that does not pack has made_elsewhere() for the bytes that it
// unpacks. kRecord is true for a peer with a field for each type, which carries each
// type once.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "messages.hpp"

namespace peers {

using bench::keep;

// Some peers read whole words: a buffer begins at a multiple of 16, because its
// allocator is malloc's.
using Buffer = std::vector<char>;
inline constexpr uint32_t kBufferSize = 16384;

struct Value {
    const void *text = nullptr;  // null when the value is a number
    uint32_t len = 0;
    uint32_t number = 0;
    bool found = false;

    static Value of_number(uint32_t number) { return {nullptr, 4, number, true}; }
    static Value of_text(const void *text, std::size_t len) {
        return {text, static_cast<uint32_t>(len), 0, true};
    }
};

template <typename Peer>
concept HasList = requires(const Message &message) {
    Peer::build(message);
};

template <typename Peer>
concept Packs = requires(const Message &message, Buffer &out) {
    Peer::build_pack(message, out);
}
|| requires(typename Peer::Sent &sent, Buffer &out) {
    Peer::pack(sent, out);
};

template <typename Peer>
uint32_t make_message(const Message &message, Buffer &out) {
    if constexpr (HasList<Peer>) {
        auto sent = Peer::build(message);
        keep(sent);
        const uint32_t len = Peer::pack(sent, out);
        keep(len);
        Peer::release(sent);
        return len;
    } else {
        const uint32_t len = Peer::build_pack(message, out);
        keep(len);
        return len;
    }
}

[[noreturn]] void fail(const char *peer, const char *set, const char *what);

// The data of the rows of one peer and one set: every message, packed, and unpacked for
// the lookups.
template <typename Peer>
class Work {
  public:
    explicit Work(const MessageSet &set)
        : set_(set), out_(kBufferSize), packed_(set.messages.size()), received_(set.messages.size()) {
        for (std::size_t i = 0; i < set.messages.size(); i++) {
            packed_[i] = packed(set.messages[i]);
            received_[i].emplace(packed_[i]);
            check(set.messages[i], received_[i]->list);
        }
    }
    ~Work() {
        for (auto &received : received_) {
            Peer::release(received->list);
        }
    }
    Work(const Work &) = delete;
    Work &operator=(const Work &) = delete;

    void build() {
        auto sent = Peer::build(next());
        keep(sent);
        Peer::release(sent);
    }
    void build_pack() { make_message<Peer>(next(), out_); }
    void unpack() {
        next();
        unpack(packed_[at_].data(), length(packed_[at_]), false);
    }
    void look_up() {
        next();
        look_up(received_[at_]->list);
    }
    void round_trip() {
        const uint32_t len = make_message<Peer>(next(), out_);
        unpack(out_.data(), len, true);
    }

    // Average size of a message in bytes.
    double bytes() const {
        double sum = 0;
        for (const Buffer &message : packed_) {
            sum += static_cast<double>(message.size());
        }
        return sum / static_cast<double>(packed_.size());
    }

  private:
    // Some lists cannot be moved, so they are constructed in place.
    struct Unpacked {
        explicit Unpacked(Buffer &message) : list(Peer::unpack(message.data(), length(message))) {}
        typename Peer::Received list;
    };

    static uint32_t length(const Buffer &message) { return static_cast<uint32_t>(message.size()); }

    Buffer packed(const Message &message) {
        if constexpr (Packs<Peer>) {
            const uint32_t len = make_message<Peer>(message, out_);
            return {out_.begin(), out_.begin() + len};
        } else {
            return Peer::made_elsewhere(message);
        }
    }

    const Message &next() {
        at_ = at_ + 1 == set_.messages.size() ? 0 : at_ + 1;
        return set_.messages[at_];
    }

    static void unpack(char *message, uint32_t len, bool looked_into) {
        auto list = Peer::unpack(message, len);
        keep(list);
        if (looked_into) {
            look_up(list);
        }
        Peer::release(list);
    }

    // The types are constants, so a peer with a field for each needs no search.
    template <std::size_t... I>
    static void look_up(const typename Peer::Received &list, std::index_sequence<I...>) {
        (keep(Peer::find(list, kWanted[I])), ...);
    }
    static void look_up(const typename Peer::Received &list) {
        look_up(list, std::make_index_sequence<kWanted.size()>());
    }

    // For every type the first value must be found, or none if the message has none.
    void check(const Message &message, const typename Peer::Received &list) const {
        for (const uint32_t type : kTypes) {
            const Field *expected = nullptr;
            for (const Field &field : message.fields) {
                if (expected == nullptr && field.type == type) {
                    expected = &field;
                }
            }
            if (!same(expected, Peer::find(list, type))) {
                fail(Peer::kName, set_.name, "an unpacked value differs from the original");
            }
        }
    }

    static bool same(const Field *expected, const Value &value) {
        if (expected == nullptr || !value.found) {
            return expected == nullptr && !value.found;
        }
        if (value.len != expected->len) {
            return false;
        }
        return expected->text == nullptr
                   ? value.text == nullptr && value.number == expected->number
                   : value.text != nullptr && std::memcmp(value.text, expected->text, value.len) == 0;
    }

    const MessageSet &set_;
    Buffer out_;
    std::vector<Buffer> packed_;
    std::vector<std::optional<Unpacked>> received_;
    std::size_t at_ = 0;
};

// One workload for each peer and set, made and checked by the first row that needs it.
template <typename Peer>
Work<Peer> &work_of(const MessageSet &set) {
    static std::vector<std::pair<const MessageSet *, std::unique_ptr<Work<Peer>>>> made;
    for (auto &[of, work] : made) {
        if (of == &set) {
            return *work;
        }
    }
    made.emplace_back(&set, std::make_unique<Work<Peer>>(set));
    return *made.back().second;
}

template <typename Peer>
void add_row(const MessageSet &set, const char *row, void (Work<Peer>::*step)()) {
    const std::string name = std::string(row) + "/" + set.name + "/" + Peer::kName;
    benchmark::RegisterBenchmark(name.c_str(), [&set, step](benchmark::State &state) {
        Work<Peer> &work = work_of<Peer>(set);
        for (auto _ : state) {
            (work.*step)();
        }
        state.counters["bytes"] = work.bytes();
    });
}

template <typename Peer>
void add_rows() {
    benchmark::AddCustomContext(std::string("peer ") + Peer::kName, Peer::kWithout);
    for (const MessageSet &set : message_sets()) {
        if (!set.each_type_once && Peer::kRecord) {
            continue;
        }
        if constexpr (HasList<Peer>) {
            add_row<Peer>(set, "build", &Work<Peer>::build);
        }
        if constexpr (Packs<Peer>) {
            add_row<Peer>(set, "build_pack", &Work<Peer>::build_pack);
            add_row<Peer>(set, "round_trip", &Work<Peer>::round_trip);
        }
        add_row<Peer>(set, "unpack", &Work<Peer>::unpack);
        add_row<Peer>(set, "lookup5", &Work<Peer>::look_up);
    }
}

// A function in each peer's source adds its rows, because not all headers of peers can
// be included together.
void add_aaautil();
void add_plain();
void add_protobuf();
void add_flatbuffers();
void add_capnproto();
void add_msgpack();
void add_freeradius();
void add_radcli();

}  // namespace peers
