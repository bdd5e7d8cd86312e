// SPDX-License-Identifier: Apache-2.0
//
// A text that is overwritten when it goes: a password or a shared secret.
#pragma once

#include <string>
#include <string_view>

#include "radius/digest.hpp"

namespace radius {

class Secret {
  public:
    Secret() = default;
    explicit Secret(std::string_view text) : text_(text) {}
    ~Secret() { clear(); }
    Secret(const Secret &other) = default;
    // A moved std::string may leave its bytes behind, so they are copied and overwritten.
    Secret(Secret &&other) : text_(other.text_) { other.clear(); }
    Secret &operator=(const Secret &other) {
        if (this != &other) {
            clear();
            text_ = other.text_;
        }
        return *this;
    }
    Secret &operator=(Secret &&other) {
        if (this != &other) {
            *this = static_cast<const Secret &>(other);
            other.clear();
        }
        return *this;
    }

    std::string_view view() const { return text_; }
    bool empty() const { return text_.empty(); }
    void clear() {
        text_.resize(text_.capacity());  // bytes of a longer text before may follow
        wipe(text_.data(), text_.size());
        text_.clear();
    }

  private:
    std::string text_;
};

}  // namespace radius
