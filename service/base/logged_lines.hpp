// SPDX-License-Identifier: Apache-2.0
//
// Lines that the libraries log while a program does something: the reasons of a failure whose code says less.
// For aaad and aaactl, whose messages then say why.

#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace service {

// The newest lines are left out when 16 KiB are full. Keeping one allocates nothing, and any thread may do
// it. It may be a constinit object: the library's thread logs before main().
class LoggedLines {
  public:
    void keep(std::string_view line) noexcept {
        const Locked lock(busy_);
        if (line.size() < sizeof text_ - size_) {
            std::memcpy(text_ + size_, line.data(), line.size());
            size_ += line.size();
            text_[size_++] = '\n';
        }
    }
    bool empty() {
        const Locked lock(busy_);
        return size_ == 0;
    }
    // All lines so far, which are then no longer kept.
    std::vector<std::string> take() {
        std::string all;
        {
            const Locked lock(busy_);
            all.assign(text_, std::exchange(size_, 0));
        }
        std::vector<std::string> lines;
        for (std::size_t at = 0; at < all.size();) {
            const std::size_t end = all.find('\n', at);
            lines.push_back(all.substr(at, end - at));
            at = end + 1;
        }
        return lines;
    }

  private:
    class Locked {
      public:
        explicit Locked(std::atomic_flag &busy) noexcept : busy_(busy) {
            while (busy_.test_and_set(std::memory_order_acquire)) {
            }
        }
        ~Locked() { busy_.clear(std::memory_order_release); }
        Locked(const Locked &) = delete;
        Locked &operator=(const Locked &) = delete;

      private:
        std::atomic_flag &busy_;
    };

    std::atomic_flag busy_ = ATOMIC_FLAG_INIT;
    char text_[16384] = {};
    std::size_t size_ = 0;
};

// What a logged line says after its "%AAA-PLATFORM-4-SYSDB : "; all of a line without one.
inline std::string_view logged_text(std::string_view line) noexcept {
    const std::size_t text = line.find(" : ");
    return text == std::string_view::npos ? line : line.substr(text + 3);
}

inline void add_once(std::vector<std::string> &texts, std::string_view text) {
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) {
        texts.emplace_back(text);
    }
}

}  // namespace service
