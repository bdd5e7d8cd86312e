// SPDX-License-Identifier: Apache-2.0
//
// A list of one pair without bytes at the end of its buffer. The address of the
// pair's value begins a page that faults.
#pragma once

#include "aaa/avpair.h"
#include "support/guarded_page.hpp"

namespace aaatest {

class PageEndList {
  public:
    PageEndList(uint32_t type, uint32_t flags) {
        char *const head = page_.end() - sizeof(avpair_t);
        *reinterpret_cast<avpair_t *>(head) = {type, 0, 0, flags};
        auto *const buf = reinterpret_cast<avpair_buffer_t *>(head) - 1;
        *buf = {};
        buf->hdr.free_mem = reinterpret_cast<unsigned char *>(page_.end());
        buf->hdr.buf_size = sizeof(avpair_buffer_t) + sizeof(avpair_t);
        list_.av_cnt = 1;
        list_.avpair_first_buf = list_.avpair_last_buf = buf;
    }

    // The list is not from malloc: it must be neither freed nor cleared, and neither
    // must a list that has taken over its buffer.
    [[nodiscard]] avlist *get() { return &list_; }

  private:
    GuardedPage page_;
    avlist list_{};
};

}  // namespace aaatest
