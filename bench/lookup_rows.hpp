// SPDX-License-Identifier: Apache-2.0
//
// The rows of lookups in long lists: five types, looked up in a received list
// one after the other, by the library and by the plain loop. Each row has the
// five at other places. What a lookup costs depends on where it finds its type:
// both stop there. In the last row the list is another one each time.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "list_rows.hpp"

namespace bench {

enum class Place {
    early,   // in the first tenth
    middle,  // in the tenth in the middle
    late,    // in the last tenth
    absent,  // not in the list
    spread,  // one in the middle of each fifth
};

inline constexpr std::array<std::size_t, 2> kLookupSizes{100, 1000};

// A list of that many attributes with the five of kWanted at the place.
std::vector<Attribute> lookup_attributes(Place place, std::size_t count);

// Ends the program unless library and plain loop give the same answers.
void check_lookups(Place place, const Workload &work);

template <Place kPlace>
struct Lookup {
    static constexpr bool kPresent = kPlace != Place::absent;
    static void library(Workload &work) {
        for (const uint32_t type : kWanted) {
            void *value = nullptr;
            uint32_t len = 0;
            const cerrno rc = aaa_avpair_find_type(type, nullptr, &value, &len, 0, work.received);
            require((rc == 0) == kPresent, "lookup");
            keep(value);
            keep(len);
        }
    }
    static void plain(Workload &work) {
        for (const uint32_t type : kWanted) {
            const PlainValue value = plain_find(work.plain, type);
            require((value.bytes != nullptr) == kPresent, "lookup");
            keep(value);
        }
    }
};

// Lists that differ in all lengths and places, searched in turn, so that a branch
// predictor cannot use for one what it has learned from another.
class VariedLists {
  public:
    static constexpr char kName[] = "lookup_varied";
    static constexpr char kPlainName[] = "lookup_varied_plain";

    explicit VariedLists(std::size_t count);

    static void library(VariedLists &lists) { Lookup<Place::spread>::library(lists.next()); }
    static void plain(VariedLists &lists) { Lookup<Place::spread>::plain(lists.next()); }

  private:
    static constexpr std::size_t kLists = 200;

    Workload &next() { return *lists_[turn_++ % lists_.size()]; }

    std::vector<std::unique_ptr<Workload>> lists_;
    std::size_t turn_ = 0;
};

// Calls visit.template operator()<Place>(name, plain_name) for every row of one list.
template <typename Visitor>
void for_each_lookup_row(Visitor visit) {
    visit.template operator()<Place::early>("lookup_early", "lookup_early_plain");
    visit.template operator()<Place::middle>("lookup_middle", "lookup_middle_plain");
    visit.template operator()<Place::late>("lookup_late", "lookup_late_plain");
    visit.template operator()<Place::absent>("lookup_absent", "lookup_absent_plain");
    visit.template operator()<Place::spread>("lookup_spread", "lookup_spread_plain");
}

}  // namespace bench
