// SPDX-License-Identifier: Apache-2.0
//
// Which attributes of vendors say what, from a file. There is no standard for the privilege
// level or the group of an administrator, so each server sends an attribute of a vendor.
// Nothing is mapped without a file: a number that means a level for one vendor means
// something else for another.
//
// A line of the file has four words; "#" begins a comment:
//
//   # vendor  type  kind             name
//     32473   1     text             group
//     32473   2     number           privilege
//     32473   3     pair:role        group
//
//   vendor  enterprise number, 1 to 16777215
//   type    type of the vendor's attribute, 1 to 255
//   kind    text       the bytes, which must be printable
//           number     four bytes, big-endian
//           pair:KEY   a text KEY=VALUE or KEY*VALUE, of which VALUE is taken; other keys of
//                      the same attribute are other lines
//   name    of what it is called here: letters, digits, "-", "_", "."
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "radius/packet.hpp"

namespace radius {

class VendorMap {
  public:
    enum class Kind { kText, kNumber, kPair };

    // What one line says.
    struct Line {
        std::uint32_t vendor;
        std::uint8_t type;
        Kind kind;
        std::string key;  // of kPair
        std::string name;
        int number;  // of the line
    };

    // What an answer says.
    struct Value {
        std::string name;
        std::string text;  // of a number, its decimal digits
    };
    struct Values {
        std::vector<Value> values;  // in the order of the answer
        // Attributes that are mapped but do not have the form of their kind. A caller that
        // grants rights by a value must not take such an answer for one without the value.
        std::vector<std::string> faults;
    };

    // Nothing is mapped.
    VendorMap() = default;
    // Nothing when a line is wrong; `error` then begins with "NAME:LINE: ".
    static std::optional<VendorMap> parse(std::string_view text, const std::string &name, std::string &error);
    // The same for a file, of at most kMaxFile bytes.
    static std::optional<VendorMap> load(const std::string &path, std::string &error);
    static constexpr std::size_t kMaxFile = 1 << 20;

    const std::vector<Line> &lines() const { return lines_; }
    Values read(const Attributes &attributes) const;

  private:
    std::string add(std::string_view line, int number);
    void read_one(const VendorAttribute &attribute, Values &values) const;

    std::vector<Line> lines_;
};

}  // namespace radius
