// SPDX-License-Identifier: Apache-2.0
//
// Limits the size of files, as a full disk does, for this process and those that it starts.

#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace aaactl_test {

class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, handler_);
    }

  private:
    void (*handler_)(int);
    rlimit before_{};
};

}  // namespace aaactl_test
