// SPDX-License-Identifier: Apache-2.0
//
// The real library on the real platform: what its load hook registers here,
// and that nothing here keeps it from being unloaded.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "aaa/result_codes.h"
#include "log_socket.hpp"
#include "platform/cerr.h"
#include "platform/control.h"
#include "platform/logging.h"

namespace {

bool is_loaded() {
    void *handle = dlopen(AAAUTIL_PATH, RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) {
        dlclose(handle);
    }
    return handle != nullptr;
}

}  // namespace

TEST(Library, RegistersItsTextsAndUnloads) {
    EXPECT_EQ("Unknown error 0xa2464800", std::string(cerr_strerror(AAA_ERR_AVPAIR_NOT_FOUND)));
    for (int cycle = 0; cycle < 20; ++cycle) {
        void *handle = dlopen(AAAUTIL_PATH, RTLD_LAZY | RTLD_LOCAL);
        ASSERT_NE(nullptr, handle) << dlerror();
        EXPECT_STREQ("Requested AV pair was not found", cerr_strerror(AAA_ERR_AVPAIR_NOT_FOUND));
        EXPECT_STREQ("Reached end of AVPair list", cerr_strerror(AAA_STATUS_END_OF_LIST));
        EXPECT_STREQ("Reached end of AVPair list", cerr_strerror(AAA_ERR_END_OF_LIST));
        EXPECT_STREQ("Unknown error 0xa2466800", cerr_strerror(AAA_ERR_BAD_ENCRYPTED_KEY));
        ASSERT_EQ(0, dlclose(handle));
        ASSERT_FALSE(is_loaded());
        EXPECT_STREQ("Requested AV pair was not found", cerr_strerror(AAA_ERR_AVPAIR_NOT_FOUND));
    }
}

TEST(Library, LendsItsRecordForWrongFlags) {
    void *handle = dlopen(AAAUTIL_PATH, RTLD_LAZY | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    ASSERT_EQ(0, dlclose(handle));
    ASSERT_FALSE(is_loaded());
    g_log->take();
    aaa_debug(77, "x");
    EXPECT_EQ("%AAA-SECURITY-3-INVALID_DEBUG_FLAG : The AAA debug flag 77 does not exist", g_log->take_one());
}

TEST(Library, TracesItsUnloadAndIsQuietAfterwards) {
    void *handle = dlopen(AAAUTIL_PATH, RTLD_LAZY | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    aaa_platform_debug_set(0, 1);
    testing::internal::CaptureStderr();
    ASSERT_EQ(0, dlclose(handle));
    aaa_debug(0, "after the end");
    const std::string traces = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, traces.find("aaa[0 lifecycle]: Unloading libaaautil.dll\n")) << traces;
    EXPECT_NE(std::string::npos, traces.find("aaa[0 lifecycle]: Done with sysdb con close\n")) << traces;
    EXPECT_EQ(std::string::npos, traces.find("after the end")) << traces;
}

int main(int argc, char **argv) {
    unsetenv("NO_DLLMAIN");
    return run_with_captured_log(argc, argv);
}
