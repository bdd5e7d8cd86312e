// SPDX-License-Identifier: Apache-2.0
//
// The plain rows of the list benchmarks without allocations: all lists use memory that
// was allocated before the clock started. The difference to a row of plain_list.hpp is
// the time of malloc and free.
#pragma once

#include "list_rows.hpp"

namespace bench {

inline PlainList build_preallocated(Workload &work) {
    PlainList list = work.preallocated;
    plain_begin(list);
    plain_fill(list, work.attributes);
    return list;
}

inline PlainList unpack_preallocated(Workload &work, const std::vector<char> &message) {
    PlainList list = work.preallocated;
    plain_fill(list, reinterpret_cast<const unsigned char *>(message.data()),
               static_cast<uint32_t>(message.size()), work.numbers.data());
    return list;
}

struct BuildPreallocated {
    static constexpr char kName[] = "build_plain_preallocated";
    static void step(Workload &work) {
        const PlainList list = build_preallocated(work);
        keep(list);
    }
};

struct BuildPackPreallocated {
    static constexpr char kName[] = "build_pack_plain_preallocated";
    static void step(Workload &work) {
        const PlainList list = build_preallocated(work);
        keep(list);
        const uint32_t len = plain_pack(work, list);
        keep(len);
    }
};

struct UnpackPreallocated {
    static constexpr char kName[] = "unpack_plain_preallocated";
    static void step(Workload &work) {
        const PlainList list = unpack_preallocated(work, work.message);
        keep(list);
    }
};

struct RoundTripPreallocated {
    static constexpr char kName[] = "round_trip_plain_preallocated";
    static void step(Workload &work) {
        BuildPackPreallocated::step(work);
        const PlainList received = unpack_preallocated(work, work.out);
        keep(received);
        plain_look_up(received);
    }
};

// Calls visit.template operator()<Row>() for every row.
template <typename Visitor>
void for_each_preallocated_row(Visitor visit) {
    visit.template operator()<BuildPreallocated>();
    visit.template operator()<BuildPackPreallocated>();
    visit.template operator()<UnpackPreallocated>();
    visit.template operator()<RoundTripPreallocated>();
}

}  // namespace bench
