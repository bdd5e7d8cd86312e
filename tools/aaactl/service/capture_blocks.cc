// SPDX-License-Identifier: Apache-2.0
//
// The stream comes from a service of the same machine, so numbers are in host order.

#include "service/capture_blocks.hpp"

#include <cstring>

#include "cli/output.hpp"

namespace aaactl {
namespace {

constexpr size_t kFrame = 12;  // type, length and again the length
constexpr size_t kLongest = size_t{1} << 20;

template <typename T>
T load(std::string_view bytes, size_t at) {
    T value{};
    if (at + sizeof value <= bytes.size()) {
        std::memcpy(&value, bytes.data() + at, sizeof value);
    }
    return value;
}

// The number of eight bytes in an option; 0 without one.
uint64_t option(std::string_view bytes, size_t at, uint16_t wanted) {
    while (at + 4 <= bytes.size()) {
        const auto code = load<uint16_t>(bytes, at);
        const size_t length = load<uint16_t>(bytes, at + 2);
        if (code == 0) {
            break;
        }
        if (code == wanted && length == sizeof(uint64_t)) {
            return load<uint64_t>(bytes, at + 4);
        }
        at += 4 + (length + 3) / 4 * 4;
    }
    return 0;
}

}  // namespace

uint64_t CaptureBlock::dropped() const {
    const std::string_view body = std::string_view(bytes).substr(0, bytes.size() - 4);
    if (type == statistics) {
        return option(body, 20, 5);
    }
    return type == packet ? option(body, 28 + (size_t{load<uint32_t>(bytes, 20)} + 3) / 4 * 4, 4) : 0;
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
    if (rest.size() < kFrame) {
        return std::nullopt;
    }
    const size_t length = load<uint32_t>(rest, 4);
    if (length < kFrame || length % 4 != 0 || length > kLongest) {
        throw Failure(ExitCode::bad_input, "the service has sent bytes that are no capture");
    }
    if (rest.size() < length) {
        bytes_.erase(0, at_);
        at_ = 0;
        return std::nullopt;
    }
    at_ += length;
    return CaptureBlock{load<uint32_t>(rest, 0), std::string(rest.substr(0, length))};
}

}  // namespace aaactl
