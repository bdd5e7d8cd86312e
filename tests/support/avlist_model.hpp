// SPDX-License-Identifier: Apache-2.0
//
// A list as plain vectors: the expected state of the library's list after the
// same operations, buffers, sizes and deleted pairs included. Also a reader
// that takes a real list apart by its bytes, for tests that look at the
// stored bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/avpair.h"

namespace aaatest {

struct FreeList {
    void operator()(avlist *list) const { aaa_avpair_free_list(list); }
};
using ListPtr = std::unique_ptr<avlist, FreeList>;

// An empty list; null when the library does not make one.
ListPtr make_list(const char *name = nullptr);

struct ModelPair {
    uint32_t type = 0;
    uint32_t tag = 0;
    uint32_t flags = 0;
    std::string value;
    bool deleted = false;

    bool operator==(const ModelPair &) const = default;
};

// Text for test output.
std::string describe(const ModelPair &pair);

struct ModelBuffer {
    uint32_t size = 0;
    std::vector<ModelPair> pairs;

    // Bytes of the pairs.
    [[nodiscard]] uint32_t used() const;
};

// Every buffer and pair of a list, the deleted ones too (their type reads 0).
std::vector<ModelBuffer> read_buffers(const avlist *list);
// The live pairs of a list.
std::vector<ModelPair> read_pairs(const avlist *list);

class ListModel {
  public:
    // Place of a pair.
    struct Place {
        std::size_t buffer;
        std::size_t pair;
    };

    void add(ModelPair pair);
    [[nodiscard]] std::optional<Place> find(uint32_t type, uint32_t instance) const;
    [[nodiscard]] std::optional<Place> find(uint32_t type, std::string_view value) const;
    [[nodiscard]] std::optional<Place> at(std::size_t index) const;
    [[nodiscard]] const ModelPair &pair(Place place) const {
        return buffers_[place.buffer].pairs[place.pair];
    }
    void erase(Place place);
    void update(Place place, uint32_t flags, std::string_view value, uint32_t tag);
    void clear() { buffers_.clear(); }

    // The live pairs, and their number.
    [[nodiscard]] std::vector<ModelPair> pairs() const;
    [[nodiscard]] std::size_t live() const;
    [[nodiscard]] const std::vector<ModelBuffer> &buffers() const { return buffers_; }
    [[nodiscard]] avpair_mem_stats_t mem_usage() const;

    // Whether the list holds the same; copies nothing, so it may follow every change.
    [[nodiscard]] bool equals(const avlist *list) const;
    // Empty when the list holds the same, else what differs first.
    [[nodiscard]] std::string difference_from(const avlist *list) const;

  private:
    std::vector<ModelBuffer> buffers_;
};

}  // namespace aaatest
