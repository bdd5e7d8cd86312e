// SPDX-License-Identifier: Apache-2.0
//
// Text that is wiped before its memory is released: passwords and keys.
#pragma once

#include <string.h>

#include <string>
#include <string_view>
#include <utility>

namespace service {

class Secret {
  public:
    Secret() = default;
    explicit Secret(std::string_view text) : text_(text) {}
    ~Secret() { wipe(); }
    Secret(const Secret &other) : text_(other.text_) {}
    Secret(Secret &&other) noexcept : text_(std::move(other.text_)) { other.wipe(); }
    Secret &operator=(const Secret &other) {
        if (this != &other) {
            wipe();
            text_ = other.text_;
        }
        return *this;
    }
    Secret &operator=(Secret &&other) noexcept {
        if (this != &other) {
            wipe();
            text_ = std::move(other.text_);
            other.wipe();
        }
        return *this;
    }

    const std::string &text() const { return text_; }
    bool empty() const { return text_.empty(); }
    friend bool operator==(const Secret &, const Secret &) = default;

  private:
    // A short text lives in the object itself and stays there when it is moved from.
    void wipe() {
        text_.resize(text_.capacity());
        explicit_bzero(text_.data(), text_.size());
        text_.clear();
    }

    std::string text_;
};

}  // namespace service
