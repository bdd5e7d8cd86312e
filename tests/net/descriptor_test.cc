// SPDX-License-Identifier: Apache-2.0

#include "net/descriptor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace net {
namespace {

int null_device() {
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

TEST(Descriptor, ClosesWhatItOwns) {
    int fd;
    {
        Descriptor descriptor(null_device());
        fd = descriptor.get();
        EXPECT_TRUE(descriptor);
        EXPECT_TRUE(is_open(fd));
    }
    EXPECT_FALSE(is_open(fd));
}

TEST(Descriptor, Moves) {
    Descriptor first(null_device());
    const int fd = first.get();
    Descriptor second = std::move(first);
    EXPECT_EQ(second.get(), fd);
    Descriptor third(null_device());
    const int closed = third.get();
    third = std::move(second);
    EXPECT_EQ(third.get(), fd);
    EXPECT_FALSE(is_open(closed));
    third = Descriptor();
    EXPECT_FALSE(is_open(fd));
}

TEST(Descriptor, KeepsErrnoAndAFailure) {
    errno = ENFILE;
    Descriptor none(-1);
    EXPECT_FALSE(none);
    EXPECT_EQ(errno, ENFILE);
    Descriptor some(null_device());
    errno = EMFILE;
    some.reset();
    EXPECT_EQ(errno, EMFILE);
}

TEST(Descriptor, IsNeverOneOfTheFirstThree) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        for (int fd = 0; fd < 3; ++fd) {
            close(fd);
        }
        bool right = true;
        for (int i = 0; i < 4; ++i) {
            const Descriptor descriptor(null_device());
            right = right && descriptor.get() >= 3 && (fcntl(descriptor.get(), F_GETFD) & FD_CLOEXEC);
        }
        for (int fd = 0; fd < 3; ++fd) {
            right = right && !is_open(fd);
        }
        _exit(right ? 0 : 1);
    }
    int status;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace net
