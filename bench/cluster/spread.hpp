// SPDX-License-Identifier: Apache-2.0
//
// Times of single calls, also from several processes.
#pragma once

#include <sys/mman.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

namespace cluster_bench {

// Nanoseconds of a clock that all processes of the machine have in common.
std::uint64_t now();

inline double milliseconds_since(std::uint64_t begin) {
    return static_cast<double>(now() - begin) / 1e6;
}

struct Spread {
    double median = 0;
    double high = 0;  // the 99th percentile
    double most = 0;
    std::size_t count = 0;
};
Spread spread_of(std::vector<double> values);
// "median / 99th percentile / most"
std::string text(const Spread &spread);

// An object that processes have in common, which begins as zeros.
template <typename T>
class Shared {
  public:
    Shared() {
        void *memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            std::abort();
        }
        object_ = static_cast<T *>(memory);
    }
    ~Shared() { munmap(static_cast<void *>(object_), sizeof(T)); }
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;

    T *operator->() const { return object_; }
    T &operator*() const { return *object_; }

  private:
    T *object_;
};

}  // namespace cluster_bench
