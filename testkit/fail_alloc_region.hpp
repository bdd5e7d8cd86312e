// SPDX-License-Identifier: Apache-2.0
//
// Allocations that fail on demand: one armed region.
#pragma once

#include "fail_alloc.h"

namespace fake {

class FailAlloc {
  public:
    enum class Mode { once, all_from_there };
    struct Unarmed {};

    // Armed until disarm() or the end of the scope.
    explicit FailAlloc(unsigned k, Mode mode = Mode::once) : k_(k), mode_(mode) { arm(); }
    // Armed only inside run().
    FailAlloc(Unarmed, unsigned k, Mode mode = Mode::once) : k_(k), mode_(mode) {}
    ~FailAlloc() { disarm(); }
    FailAlloc(const FailAlloc &) = delete;
    FailAlloc &operator=(const FailAlloc &) = delete;

    template <typename F>
    auto run(F &&operation) {
        arm();
        struct Disarm {
            FailAlloc &fail;
            ~Disarm() { fail.disarm(); }
        } disarm_at_end{*this};
        return operation();
    }
    void disarm() {
        if (armed_) {
            armed_ = false;
            fail_alloc_disarm();
            fired_ = fail_alloc_fired() != 0;
            counted_ = fail_alloc_counted();
            outstanding_ = fail_alloc_outstanding();
        }
    }
    // An allocation was made to fail.
    bool fired() const { return armed_ ? fail_alloc_fired() != 0 : fired_; }
    // Allocations seen in the armed region.
    unsigned counted() const { return armed_ ? fail_alloc_counted() : counted_; }

    // Blocks that the armed region took and did not free again.
    unsigned outstanding() const { return armed_ ? fail_alloc_outstanding() : outstanding_; }

    static bool available() { return fail_alloc_available() != 0; }

    // Allocations while one is alive neither count nor fail.
    class Pause {
      public:
        Pause() { fail_alloc_pause(); }
        ~Pause() { fail_alloc_resume(); }
        Pause(const Pause &) = delete;
        Pause &operator=(const Pause &) = delete;
    };

  private:
    void arm() {
        armed_ = true;
        fail_alloc_arm(k_, mode_ == Mode::all_from_there ? 1 : 0);
    }

    unsigned k_;
    Mode mode_;
    bool armed_ = false;
    bool fired_ = false;
    unsigned counted_ = 0;
    unsigned outstanding_ = 0;
};

}  // namespace fake
