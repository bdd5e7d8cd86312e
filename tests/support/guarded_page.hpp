// SPDX-License-Identifier: Apache-2.0
//
// Memory that ends at a page that faults. For tests that a value is not read past
// its last byte.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace aaatest {

class GuardedPage {
  public:
    // At least that many bytes may be touched.
    explicit GuardedPage(std::size_t bytes = 1)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          size_((bytes / page_ + 1) * page_),
          memory_(static_cast<char *>(
              mmap(nullptr, size_ + page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        if (memory_ == MAP_FAILED || mprotect(memory_ + size_, page_, PROT_NONE) != 0) {
            std::abort();
        }
    }
    ~GuardedPage() { munmap(memory_, size_ + page_); }
    GuardedPage(const GuardedPage &) = delete;
    GuardedPage &operator=(const GuardedPage &) = delete;

    // The address after the last byte that may be touched.
    [[nodiscard]] char *end() const { return memory_ + size_; }
    // Puts bytes right before the end.
    char *place(std::string_view bytes) const {
        char *const at = end() - bytes.size();
        std::memcpy(at, bytes.data(), bytes.size());
        return at;
    }

  private:
    std::size_t page_;
    std::size_t size_;
    char *memory_;
};

}  // namespace aaatest
