// SPDX-License-Identifier: Apache-2.0
//
// The model of a list, and the reader of real lists that it is compared with.

#include "support/avlist_model.hpp"

#include <algorithm>
#include <cstring>

namespace aaatest {

namespace {

// The documented layout in numbers, deliberately not taken from the headers.
constexpr uint32_t kDeleted = 2070;
constexpr uint32_t kBufferHead = 32;
constexpr uint32_t kPairHead = 16;
constexpr uint32_t kSmallestBuffer = 512;

template <typename T>
T read(const unsigned char *at, std::size_t offset) {
    T value;
    std::memcpy(&value, at + offset, sizeof value);
    return value;
}

using Bytes = const unsigned char *;

uint32_t taken(std::size_t len) {
    return (kPairHead + static_cast<uint32_t>(len) + 3) / 4 * 4;
}

ModelPair read_pair(Bytes at) {
    ModelPair pair;
    pair.deleted = read<uint32_t>(at, 0) == kDeleted;
    pair.type = pair.deleted ? 0 : read<uint32_t>(at, 0);
    pair.tag = read<uint32_t>(at, 4);
    pair.flags = read<uint32_t>(at, 12);
    pair.value.assign(reinterpret_cast<const char *>(at + kPairHead), read<uint32_t>(at, 8));
    return pair;
}

}  // namespace

ListPtr make_list(const char *name) {
    avlist *list = nullptr;
    static_cast<void>(aaa_avpair_create_list(name, &list));
    return ListPtr(list);
}

std::string describe(const ModelPair &pair) {
    std::string text = "{type " + std::to_string(pair.type) + ", tag " + std::to_string(pair.tag) +
                       ", flags " + std::to_string(pair.flags) + ", " + std::to_string(pair.value.size()) +
                       " bytes";
    constexpr char kDigits[] = "0123456789abcdef";
    for (const char c : pair.value.substr(0, 8)) {
        const auto byte = static_cast<unsigned char>(c);
        text += {' ', kDigits[byte / 16], kDigits[byte % 16]};
    }
    return text + (pair.deleted ? ", deleted}" : "}");
}

uint32_t ModelBuffer::used() const {
    uint32_t sum = 0;
    for (const ModelPair &pair : pairs) {
        sum += taken(pair.value.size());
    }
    return sum;
}

std::vector<ModelBuffer> read_buffers(const avlist *list) {
    std::vector<ModelBuffer> buffers;
    for (Bytes at = read<Bytes>(reinterpret_cast<Bytes>(list), 8); at != nullptr; at = read<Bytes>(at, 8)) {
        ModelBuffer buffer{read<uint32_t>(at, 24), {}};
        const Bytes end = read<Bytes>(at, 16);
        for (Bytes pair = at + kBufferHead; pair < end; pair += taken(buffer.pairs.back().value.size())) {
            buffer.pairs.push_back(read_pair(pair));
        }
        buffers.push_back(std::move(buffer));
    }
    return buffers;
}

namespace {

std::vector<ModelPair> live_pairs(const std::vector<ModelBuffer> &buffers) {
    std::vector<ModelPair> live;
    for (const ModelBuffer &buffer : buffers) {
        std::copy_if(buffer.pairs.begin(), buffer.pairs.end(), std::back_inserter(live),
                     [](const ModelPair &pair) { return !pair.deleted; });
    }
    return live;
}

}  // namespace

std::vector<ModelPair> read_pairs(const avlist *list) {
    return live_pairs(read_buffers(list));
}

void ListModel::add(ModelPair pair) {
    const uint32_t needed = kPairHead + static_cast<uint32_t>(pair.value.size());
    if (buffers_.empty() || buffers_.back().size - kBufferHead - buffers_.back().used() < needed) {
        buffers_.push_back({std::max((needed + kBufferHead + 3) / 4 * 4, kSmallestBuffer), {}});
    }
    buffers_.back().pairs.push_back(std::move(pair));
}

std::optional<ListModel::Place> ListModel::find(uint32_t type, uint32_t instance) const {
    for (std::size_t b = 0; b < buffers_.size(); ++b) {
        for (std::size_t p = 0; p < buffers_[b].pairs.size(); ++p) {
            const ModelPair &pair = buffers_[b].pairs[p];
            if (!pair.deleted && pair.type == type && instance-- == 0) {
                return Place{b, p};
            }
        }
    }
    return std::nullopt;
}

std::optional<ListModel::Place> ListModel::find(uint32_t type, std::string_view value) const {
    for (uint32_t instance = 0;; ++instance) {
        const std::optional<Place> place = find(type, instance);
        if (!place || pair(*place).value == value) {
            return place;
        }
    }
}

std::optional<ListModel::Place> ListModel::at(std::size_t index) const {
    for (std::size_t b = 0; b < buffers_.size(); ++b) {
        for (std::size_t p = 0; p < buffers_[b].pairs.size(); ++p) {
            if (!buffers_[b].pairs[p].deleted && index-- == 0) {
                return Place{b, p};
            }
        }
    }
    return std::nullopt;
}

// A deleted pair stays in its place until all pairs after it in its buffer
// are deleted too.
void ListModel::erase(Place place) {
    std::vector<ModelPair> &pairs = buffers_[place.buffer].pairs;
    pairs[place.pair].deleted = true;
    pairs[place.pair].type = 0;
    while (!pairs.empty() && pairs.back().deleted) {
        pairs.pop_back();
    }
    if (pairs.empty()) {
        buffers_.erase(buffers_.begin() + static_cast<std::ptrdiff_t>(place.buffer));
    }
}

void ListModel::update(Place place, uint32_t flags, std::string_view value, uint32_t tag) {
    ModelPair &old = buffers_[place.buffer].pairs[place.pair];
    if (old.value.size() == value.size()) {
        old.value = value;
        old.flags |= flags;
        old.tag = tag;
        return;
    }
    ModelPair moved{old.type, tag, (old.flags & 0xff) | flags, std::string(value)};
    erase(place);
    add(std::move(moved));
}

std::vector<ModelPair> ListModel::pairs() const {
    return live_pairs(buffers_);
}

avpair_mem_stats_t ListModel::mem_usage() const {
    avpair_mem_stats_t stats{};
    for (const ModelBuffer &buffer : buffers_) {
        stats.buf_cnt++;
        stats.total_mem += buffer.size;
        stats.used_mem += buffer.used();
    }
    return stats;
}

std::size_t ListModel::live() const {
    std::size_t count = 0;
    for (const ModelBuffer &buffer : buffers_) {
        count += static_cast<std::size_t>(std::count_if(buffer.pairs.begin(), buffer.pairs.end(),
                                                        [](const ModelPair &pair) { return !pair.deleted; }));
    }
    return count;
}

namespace {

bool same_pair(Bytes at, const ModelPair &model) {
    const auto type = read<uint32_t>(at, 0);
    return model.deleted == (type == kDeleted) && (model.deleted || model.type == type) &&
           model.tag == read<uint32_t>(at, 4) && model.flags == read<uint32_t>(at, 12) &&
           model.value.size() == read<uint32_t>(at, 8) &&
           std::memcmp(at + kPairHead, model.value.data(), model.value.size()) == 0;
}

bool same_buffer(Bytes at, const ModelBuffer &model) {
    const Bytes end = read<Bytes>(at, 16);
    Bytes pair = at + kBufferHead;
    for (const ModelPair &wanted : model.pairs) {
        if (pair >= end || !same_pair(pair, wanted)) {
            return false;
        }
        pair += taken(wanted.value.size());
    }
    return pair == end && read<uint32_t>(at, 24) == model.size;
}

}  // namespace

bool ListModel::equals(const avlist *list) const {
    auto at = read<Bytes>(reinterpret_cast<Bytes>(list), 8);
    for (const ModelBuffer &buffer : buffers_) {
        if (at == nullptr || !same_buffer(at, buffer)) {
            return false;
        }
        at = read<Bytes>(at, 8);
    }
    return at == nullptr;
}

std::string ListModel::difference_from(const avlist *list) const {
    if (equals(list)) {
        return {};
    }
    const std::vector<ModelBuffer> real = read_buffers(list);
    if (real.size() != buffers_.size()) {
        return std::to_string(real.size()) + " buffers, expected " + std::to_string(buffers_.size());
    }
    for (std::size_t b = 0; b < real.size(); ++b) {
        const std::string where = "buffer " + std::to_string(b) + ": ";
        if (real[b].size != buffers_[b].size) {
            return where + "size " + std::to_string(real[b].size) + ", expected " +
                   std::to_string(buffers_[b].size);
        }
        if (real[b].pairs.size() != buffers_[b].pairs.size()) {
            return where + std::to_string(real[b].pairs.size()) + " pairs, expected " +
                   std::to_string(buffers_[b].pairs.size());
        }
        for (std::size_t p = 0; p < real[b].pairs.size(); ++p) {
            if (real[b].pairs[p] != buffers_[b].pairs[p]) {
                return where + "pair " + std::to_string(p) + " is " + describe(real[b].pairs[p]) +
                       ", expected " + describe(buffers_[b].pairs[p]);
            }
        }
    }
    return "a buffer's end is not that of its last pair";
}

}  // namespace aaatest
