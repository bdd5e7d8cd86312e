// SPDX-License-Identifier: Apache-2.0
//
// The stream comes from a service of the same machine, so numbers are in host order.

#include "service/capture_blocks.hpp"

#include <cstring>
#include <utility>

#include "cli/output.hpp"

namespace aaactl {
namespace {

constexpr size_t kHead = 8;    // type and length
constexpr size_t kFrame = 12;  // type, length and again the length
constexpr size_t kLongest = size_t{1} << 20;
constexpr uint32_t kByteOrder = 0x1a2b3c4d;

[[noreturn]] void refuse(const std::string &why = "its bytes are no capture") {
    throw Failure(ExitCode::bad_input, "the answer is not one of aaad: " + why +
                                           "; check that --socket names the control-socket of aaad.conf");
}

template <typename T>
T load(std::string_view bytes, size_t at) {
    T value{};
    if (at + sizeof value <= bytes.size()) {
        std::memcpy(&value, bytes.data() + at, sizeof value);
    }
    return value;
}

// The value of an option; empty without one.
std::string_view option(std::string_view bytes, size_t at, uint16_t wanted) {
    while (at + 4 <= bytes.size()) {
        const auto code = load<uint16_t>(bytes, at);
        const size_t length = load<uint16_t>(bytes, at + 2);
        if (code == 0) {
            break;
        }
        if (code == wanted) {
            return bytes.substr(at + 4, length);
        }
        at += 4 + (length + 3) / 4 * 4;
    }
    return {};
}

constexpr size_t kStatisticsOptions = 20;

}  // namespace

uint64_t CaptureBlock::dropped() const {
    const std::string_view body = std::string_view(bytes).substr(0, bytes.size() - 4);
    if (type == statistics) {
        return load<uint64_t>(option(body, kStatisticsOptions, 5), 0);
    }
    if (type != packet) {
        return 0;
    }
    const size_t options = 28 + (size_t{load<uint32_t>(bytes, 20)} + 3) / 4 * 4;
    return load<uint64_t>(option(body, options, 4), 0);
}

std::string CaptureBlock::comment() const {
    return std::string(option(std::string_view(bytes).substr(0, bytes.size() - 4), kStatisticsOptions, 1));
}

uint32_t CaptureBlock::kind() const {
    return load<uint32_t>(bytes, 8);
}

std::string_view CaptureBlock::text() const {
    return bytes.size() < 16 ? std::string_view()
                             : std::string_view(bytes).substr(16, load<uint32_t>(bytes, 12));
}

std::optional<CaptureBlock> CaptureBlocks::next() {
    const std::string_view rest = std::string_view(bytes_).substr(at_);
    if (rest.size() < kHead) {
        return std::nullopt;
    }
    // Before the rest of the block has come, and perhaps never does.
    const size_t length = load<uint32_t>(rest, 4);
    if (length < kFrame || length % 4 != 0) {
        refuse();
    }
    if (length > kLongest) {
        refuse("it announces a block of " + std::to_string(length) + " bytes, and the longest has " +
               std::to_string(kLongest));
    }
    if (rest.size() < kFrame) {
        return std::nullopt;
    }
    // A program that is not aaad must not have a file made that no one can read.
    if (!std::exchange(has_begun_, true) &&
        (load<uint32_t>(rest, 0) != CaptureBlock::section || load<uint32_t>(rest, 8) != kByteOrder)) {
        refuse();
    }
    if (rest.size() < length) {
        bytes_.erase(0, at_);
        at_ = 0;
        return std::nullopt;
    }
    if (load<uint32_t>(rest, length - 4) != length) {
        refuse();
    }
    at_ += length;
    return CaptureBlock{load<uint32_t>(rest, 0), std::string(rest.substr(0, length))};
}

}  // namespace aaactl
