// SPDX-License-Identifier: Apache-2.0
//
// An event manager with its block context, as the library's worker has it.
#pragma once

#include <gtest/gtest.h>

#include "platform/event_manager.h"

class EventLoop {
  public:
    EventLoop() : manager_(event_manager_create(0, "test", 0, nullptr)) {
        EXPECT_NE(nullptr, manager_);
        context_.evm = manager_;
        context_.buffer = buffer_;
        context_.size = sizeof buffer_;
    }
    ~EventLoop() { event_manager_destroy(manager_); }
    EventLoop(const EventLoop &) = delete;
    EventLoop &operator=(const EventLoop &) = delete;

    event_manager_t handle() const { return manager_; }

    // One round of block and dispatch; what the block returned.
    int32_t step() {
        const int32_t result = event_block(&context_);
        if (result != -1) {
            EXPECT_EQ(0, qm_event_dispatch(&context_, 0));
        }
        return result;
    }

  private:
    event_manager_t manager_;
    event_block_ctx_t context_{};
    char buffer_[256];
};
