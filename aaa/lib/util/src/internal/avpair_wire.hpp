// SPDX-License-Identifier: Apache-2.0
//
// Building blocks of the packed forms of a list, shared by packing and by
// list copying: the bounded output and the trace that both write.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "aaa/avpair.h"
#include "aaa/result_codes.h"
#include "internal/assert.hpp"
#include "internal/avpair_walk.hpp"
#include "internal/trace.hpp"

namespace aaautil {

// Size of the list record, which heads both packed forms.
inline constexpr std::size_t kListRecord = sizeof(avlist);
inline constexpr std::size_t kPairHead = sizeof(avpair_t);

[[nodiscard]] inline unsigned char *pairs_of(avpair_buffer_t *buf) noexcept {
    return reinterpret_cast<unsigned char *>(first_pair(buf));
}

// Bytes of a buffer that travel.
[[nodiscard]] inline std::size_t used_bytes(avpair_buffer_t *buf) noexcept {
    return static_cast<std::size_t>(buf->hdr.free_mem - pairs_of(buf));
}

// Output buffer of a message. Elements are appended in order and each goes in
// whole or not at all; the first one that does not fit closes the output, so
// that what is there is always a prefix of the message. Limits are counted in
// int, as message sizes are everywhere outside the library: a limit beyond
// INT_MAX is a negative one and nothing fits.
class MessageOutput {
  public:
    MessageOutput(void *msg, uint32_t limit) noexcept
        : msg_(static_cast<unsigned char *>(msg)), limit_(limit), closed_(limit > INT_MAX) {}

    // Place for an element of n bytes, or null when it does not fit.
    [[nodiscard]] unsigned char *take(std::size_t n) noexcept {
        if (closed_ || n > limit_ - used_) {
            closed_ = true;
            return nullptr;
        }
        unsigned char *at = msg_ + used_;
        used_ += n;
        AAA_ASSERT(used_ <= limit_, "curr_msg_len <= *msg_len");
        return at;
    }

    void append(const void *element, std::size_t n) noexcept {
        unsigned char *at = take(n);
        if (at != nullptr && n != 0) {
            std::memcpy(at, element, n);
        }
    }

    [[nodiscard]] uint32_t used() const noexcept { return static_cast<uint32_t>(used_); }
    // Deliberately not AAA_ERR_BUFFER_TOO_SMALL, which the gather form returns.
    [[nodiscard]] cerrno result() const noexcept { return closed_ ? AAA_ERR_NOMEM : AAA_OK; }

  private:
    unsigned char *msg_;
    std::size_t used_ = 0;
    std::size_t limit_;
    bool closed_;
};

inline void trace_packing(const avlist *list) noexcept {
    if (tracing(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "Packing avlist '%s', count %d", list->av_name,
                  static_cast<int>(list->av_cnt));
    }
}

}  // namespace aaautil
