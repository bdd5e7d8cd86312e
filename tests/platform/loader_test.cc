// SPDX-License-Identifier: Apache-2.0
//
// The platform's support for loading and unloading libraries, tested with a small
// module. library_test.cc tests the real library.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "event_loop.hpp"
#include "platform/node.h"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

std::size_t descriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

int told;  // the module's report at unload; -1 before

void *load_module() {
    void *object = dlopen(LOADER_MODULE, RTLD_NOW);
    EXPECT_NE(nullptr, object) << dlerror();
    told = -1;
    const auto hook = static_cast<void (**)(int)>(dlsym(object, "module_unloading"));
    *hook = [](int in_dlclose) { told = in_dlclose; };
    return object;
}

TEST(Loader, DlcloseIsTold) {
    run_forked([] {
        ASSERT_EQ(0, dlclose(load_module()));
        EXPECT_EQ(1, told);
    });
}

TEST(Loader, ExitIsTold) {
    Pipe result;
    static int end = -1;
    end = result.writing_end();
    ForkedProcess process([] {
        const auto hook = static_cast<void (**)(int)>(dlsym(load_module(), "module_unloading"));
        *hook = [](int in_dlclose) {
            const char answer = in_dlclose == 0 ? '0' : '1';
            EXPECT_EQ(1, write(end, &answer, 1));
        };
        exit(7);
    });
    EXPECT_EQ(7, process.wait());
    char answer = '?';
    ASSERT_EQ(1, read(result.reading_end(), &answer, 1));
    EXPECT_EQ('0', answer);
}

TEST(Loader, EventManagersOfUnloadedLibrariesAreReleased) {
    run_forked([] {
        EventLoop own;
        ASSERT_EQ(0, dlclose(load_module()));
        void *object = load_module();
        const std::size_t with_one = descriptors();
        ASSERT_EQ(0, dlclose(object));
        for (int i = 0; i < 100; ++i) {
            object = load_module();
            ASSERT_EQ(with_one, descriptors()) << i;
            ASSERT_EQ(0, dlclose(object));
        }
        // Event managers of other objects are unaffected.
        const int32_t code = event_async_attach(own.handle(), 128, nullptr, nullptr);
        ASSERT_EQ(0, event_send_async(own.handle(), code, 0));
        EXPECT_EQ(0, own.step());
    });
}

}  // namespace
