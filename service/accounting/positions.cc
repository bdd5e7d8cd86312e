// SPDX-License-Identifier: Apache-2.0
//
// Files of positions.
#include "accounting/positions.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "records/bytes.hpp"
#include "records/crc32c.hpp"
#include "records/record.hpp"

namespace accounting {

namespace {

constexpr std::string_view kMagic = "AAAAPOS1";
constexpr std::string_view kPrefix = "position-";
constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr std::string_view kHex = "0123456789ABCDEF";
constexpr std::size_t kSummedBefore = 28;  // bytes before the checksum

std::optional<std::string> destination_of(std::string_view name) {
    if (!name.starts_with(kPrefix)) {
        return std::nullopt;
    }
    std::string destination;
    for (std::size_t i = kPrefix.size(); i < name.size(); ++i) {
        if (name[i] != '%') {
            destination += name[i];
            continue;
        }
        const std::size_t high = i + 2 < name.size() ? kHex.find(name[i + 1]) : std::string_view::npos;
        const std::size_t low = high != std::string_view::npos ? kHex.find(name[i + 2]) : high;
        if (low == std::string_view::npos) {
            return std::nullopt;
        }
        destination += static_cast<char>(high << 4 | low);
        i += 2;
    }
    return destination;
}

std::uint32_t checksum(std::string_view slot, std::string_view name) {
    return crc32c(slot.substr(kSummedBefore + 4), crc32c(slot.substr(0, kSummedBefore), crc32c(name)));
}

std::string encode(std::uint64_t generation, const Position &position, std::string_view name) {
    std::string slot(kMagic);
    put(slot, generation);
    put(slot, position.cursor);
    put(slot, static_cast<std::uint32_t>(position.undelivered.size()));
    put(slot, std::uint32_t{0});
    for (const std::uint64_t sequence : position.undelivered) {
        put(slot, sequence);
    }
    slot.resize(kPositionSlot);
    std::string sum;
    put(sum, checksum(slot, name));
    return slot.replace(kSummedBefore, sum.size(), sum);
}

std::optional<Position> decode(std::string_view slot, std::string_view name, std::uint64_t &generation) {
    ByteReader in(slot);
    Position position;
    const std::string_view magic = in.text(kMagic.size());
    generation = in.number<std::uint64_t>();
    position.cursor = in.number<std::uint64_t>();
    const auto count = in.number<std::uint32_t>();
    const auto sum = in.number<std::uint32_t>();
    if (!in.fine() || slot.size() != kPositionSlot || magic != kMagic || count > kMaxUndelivered ||
        sum != checksum(slot, name)) {
        return std::nullopt;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        position.undelivered.push_back(in.number<std::uint64_t>());
    }
    return position;
}

}  // namespace

std::string position_file_name(std::string_view destination) {
    std::string name(kPrefix);
    for (const char c : destination) {
        if (kPlain.find(c) != std::string_view::npos) {
            name += c;
        } else {
            name += '%';
            name += kHex[static_cast<unsigned char>(c) >> 4];
            name += kHex[static_cast<unsigned char>(c) & 15];
        }
    }
    return name;
}

bool Position::is_done(std::uint64_t sequence) const {
    return sequence < cursor && !std::binary_search(undelivered.begin(), undelivered.end(), sequence);
}

Position limited(Position position) {
    if (position.undelivered.size() > kMaxUndelivered) {
        position.cursor = position.undelivered[kMaxUndelivered];
        position.undelivered.resize(kMaxUndelivered);
    }
    return position;
}

bool PositionFiles::load_file(const std::string &name, const std::string &destination, Position &position) {
    Open &opened = open_[destination];
    opened.file = directory_.open_file(name, O_RDWR);
    std::string bytes;
    if (!opened.file || !directory_.files().read_up_to(opened.file.get(), 2 * kPositionSlot, 0, bytes)) {
        open_.erase(destination);
        return false;
    }
    std::optional<Position> best;
    for (std::size_t at = 0; at + kPositionSlot <= bytes.size(); at += kPositionSlot) {
        std::uint64_t generation = 0;
        const auto found = decode(std::string_view(bytes).substr(at, kPositionSlot), name, generation);
        if (found && (!best || generation > opened.generation)) {
            best = found;
            opened.generation = generation;
        }
    }
    if (!best && !bytes.empty()) {
        log_(directory_.path() + "/" + name + " is damaged; all records on disk are delivered to " +
             destination + " once more");
    }
    position = best.value_or(Position{});
    return true;
}

bool PositionFiles::load(std::map<std::string, Position> &positions, std::string &error) {
    std::vector<std::string> names;
    if (!directory_.names(names)) {
        error = "cannot list " + directory_.path() + ": " + std::strerror(errno);
        return false;
    }
    for (const std::string &name : names) {
        const auto destination = destination_of(name);
        if (!destination || position_file_name(*destination) != name) {
            continue;
        }
        Position position;
        if (!load_file(name, *destination, position)) {
            error = "cannot read " + directory_.path() + "/" + name + ": " + std::strerror(errno) +
                    "; without it, all records on disk are delivered to " + *destination + " once more";
            return false;
        }
        positions[*destination] = std::move(position);
    }
    return true;
}

PositionFiles::Open *PositionFiles::open(const std::string &destination) {
    const auto found = open_.find(destination);
    if (found != open_.end()) {
        return &found->second;
    }
    Open opened;
    opened.file = directory_.open_file(position_file_name(destination), O_RDWR | O_CREAT);
    // Both slots get their room now, while there is some.
    if (!opened.file ||
        !directory_.files().write_all(opened.file.get(), std::string(2 * kPositionSlot, '\0'), 0)) {
        return nullptr;
    }
    return &(open_[destination] = std::move(opened));
}

bool PositionFiles::save(const std::string &destination, const Position &position, bool durable) {
    const std::string name = position_file_name(destination);
    Open *opened = open(destination);
    bool saved = opened != nullptr;
    if (saved) {
        const std::string slot = encode(++opened->generation, limited(position), name);
        const auto at = static_cast<off_t>(opened->generation % 2 * kPositionSlot);
        Files &files = directory_.files();
        saved = files.write_all(opened->file.get(), slot, at) &&
                (!durable || (files.sync(opened->file.get()) == 0 && directory_.sync()));
    }
    if (!saved && !failing_) {
        log_("cannot write " + directory_.path() + "/" + name + ": " + std::strerror(errno) +
             "; after a restart, records that were delivered since are delivered once more");
    }
    failing_ = !saved;
    return saved;
}

bool PositionFiles::remove(const std::string &destination) {
    open_.erase(destination);
    return directory_.remove(position_file_name(destination)) || errno == ENOENT;
}

}  // namespace accounting
