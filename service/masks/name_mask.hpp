// SPDX-License-Identifier: Apache-2.0
//
// Texts without a user name that may not be shown: it may be a password, typed where the name is asked for,
// and servers repeat it in their texts.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace service {

class NameMask {
  public:
    // Nothing is masked when the name may be shown.
    NameMask(const std::string &name, const std::function<bool(const std::string &)> &may_show);

    bool hides_nothing() const { return forms_.empty(); }
    // The text, `mask` in place of the name, capitals or not, and of its parts without a realm or a domain.
    // Names of less than four characters are replaced as words only: they are within other words by chance.
    // Of a text that was cut, the end may be the beginning of the name.
    std::string shown(std::string_view text, std::string_view mask) const;

  private:
    std::size_t found_at(std::string_view text, std::size_t at) const;

    std::vector<std::string> forms_;  // lower case, longest first
};

}  // namespace service
