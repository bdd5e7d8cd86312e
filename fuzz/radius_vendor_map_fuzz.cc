// SPDX-License-Identifier: Apache-2.0
//
// The file of vendors' attributes, and answers that it is used for. The input is the length
// of the file (2 bytes), the file, and the attributes of an answer.
//
// An accepted file says the same when it is written out and read again, maps no attribute
// twice, and a refused one has a message with a line that exists. Every value and fault of
// an answer is that of a line, texts are printable, and attributes that no line names give
// nothing.

#include <algorithm>
#include <string>

#include "fuzz_input.hpp"
#include "radius/vendor_map.hpp"

namespace {

using radius::VendorMap;

std::string written(const VendorMap &map) {
    std::string text;
    for (const VendorMap::Line &line : map.lines()) {
        text += std::to_string(line.vendor) + " " + std::to_string(line.type) + " ";
        text += line.kind == VendorMap::Kind::kText     ? "text"
                : line.kind == VendorMap::Kind::kNumber ? "number"
                                                        : "pair:" + line.key;
        text += " " + line.name + "\n";
    }
    return text;
}

void check_refusal(const std::string &text, const std::string &error) {
    REQUIRE(error.rfind("map:", 0) == 0);
    const long line = std::strtol(error.c_str() + 4, nullptr, 10);
    REQUIRE(line >= 1 && line <= std::count(text.begin(), text.end(), '\n') + 1);
    for (const char c : error) {
        REQUIRE(static_cast<unsigned char>(c) >= ' ');
    }
}

void check_answer(const VendorMap &map, const std::string &bytes) {
    const radius::Attributes attributes(bytes);
    const VendorMap::Values values = map.read(attributes);
    std::size_t possible = 0;
    for (const radius::Attribute attribute : attributes) {
        if (attribute.type == radius::Type::kVendorSpecific) {
            possible += attribute.value.size();  // each value and fault is of a byte at least
        }
    }
    REQUIRE(values.values.size() + values.faults.size() <= possible * map.lines().size() + possible);
    for (const VendorMap::Value &value : values.values) {
        REQUIRE(std::any_of(map.lines().begin(), map.lines().end(),
                            [&](const VendorMap::Line &line) { return line.name == value.name; }));
        REQUIRE(std::all_of(value.text.begin(), value.text.end(),
                            [](char c) { return static_cast<unsigned char>(c) >= ' ' && c != 0x7f; }));
        REQUIRE(value.text.size() <= radius::kMaxValue);
    }
    REQUIRE(VendorMap().read(attributes).values.empty() && VendorMap().read(attributes).faults.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string text = input.text(input.number(2));
    const std::string attributes = input.rest();
    std::string error;
    const std::optional<VendorMap> map = VendorMap::parse(text, "map", error);
    if (!map) {
        check_refusal(text, error);
        return 0;
    }
    REQUIRE(error.empty());
    const std::optional<VendorMap> again = VendorMap::parse(written(*map), "map", error);
    REQUIRE(again && written(*again) == written(*map));
    if (radius::Attributes::are_whole(attributes)) {
        check_answer(*map, attributes);
    }
    return 0;
}
