// SPDX-License-Identifier: Apache-2.0
//
// The lists of the lookup rows, and the proof that library and plain loop find
// the same in them.

#include "lookup_rows.hpp"

#include <cstring>
#include <random>

namespace bench {

namespace {

// Places in hundredths of the list.
struct Places {
    std::size_t first;
    std::size_t step;
};

Places places_of(Place place) {
    switch (place) {
        case Place::early:
            return {1, 2};
        case Place::middle:
            return {46, 2};
        case Place::late:
            return {91, 2};
        case Place::spread:
            return {10, 20};
        case Place::absent:
            break;
    }
    return {0, 0};
}

// Each wanted type anywhere in its fifth of the list.
std::vector<Attribute> varied_attributes(std::size_t count, std::mt19937 &random) {
    std::vector<Attribute> result = mixed_attributes(count, static_cast<uint32_t>(random()));
    const std::size_t fifth = count / kWanted.size();
    for (std::size_t i = 0; i < kWanted.size(); i++) {
        result[i * fifth + random() % fifth].type = kWanted[i];
    }
    return result;
}

}  // namespace

std::vector<Attribute> lookup_attributes(Place place, std::size_t count) {
    constexpr std::size_t kHundred = 100;
    std::vector<Attribute> result = mixed_attributes(count);
    const Places places = places_of(place);
    for (std::size_t i = 0; place != Place::absent && i < kWanted.size(); i++) {
        result[(places.first + i * places.step) * count / kHundred].type = kWanted[i];
    }
    return result;
}

void check_lookups(Place place, const Workload &work) {
    for (const uint32_t type : kWanted) {
        void *value = nullptr;
        uint32_t len = 0;
        const bool found = aaa_avpair_find_type(type, nullptr, &value, &len, 0, work.received) == 0;
        const PlainValue expected = plain_find(work.plain, type);
        require(found == (place != Place::absent) && found == (expected.bytes != nullptr), "what is found");
        require(!found || (len == expected.len && std::memcmp(value, expected.bytes, len) == 0),
                "library and plain loop find different values");
    }
}

VariedLists::VariedLists(std::size_t count) {
    std::mt19937 random(1);
    for (std::size_t i = 0; i < kLists; i++) {
        lists_.push_back(std::make_unique<Workload>(varied_attributes(count, random)));
        check_lookups(Place::spread, *lists_.back());
    }
}

}  // namespace bench
