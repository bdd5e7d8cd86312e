// SPDX-License-Identifier: Apache-2.0
//
// The real library on the real platform: the platform gets the registrations of
// the load hook, and does not prevent unloading.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "aaa/avpair.h"
#include "aaa/debug_flags.h"
#include "aaa/dictionary.h"
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

namespace {

// The traces of additions and lookups.
std::string trace_of_a_list(void *library) {
    const auto create =
        reinterpret_cast<decltype(&aaa_avpair_create_list)>(dlsym(library, "aaa_avpair_create_list"));
    const auto add = reinterpret_cast<decltype(&aaa_avpair_add)>(dlsym(library, "aaa_avpair_add"));
    const auto find =
        reinterpret_cast<decltype(&aaa_avpair_find_type)>(dlsym(library, "aaa_avpair_find_type"));
    const auto free_list =
        reinterpret_cast<decltype(&aaa_avpair_free_list)>(dlsym(library, "aaa_avpair_free_list"));
    testing::internal::CaptureStderr();
    avlist *list = nullptr;
    EXPECT_EQ(AAA_OK, create("traced", &list));
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(AAA_OK, add(AAA_USERNAME_ATTR, 0, "alice", 0, 6, list));
    }
    EXPECT_EQ(AAA_OK, find(AAA_USERNAME_ATTR, nullptr, nullptr, nullptr, 0, list));
    EXPECT_EQ(AAA_ERR_AVPAIR_NOT_FOUND, find(AAA_TTYNAME_ATTR, nullptr, nullptr, nullptr, 0, list));
    free_list(list);
    return testing::internal::GetCapturedStderr();
}

std::size_t count_of(const std::string &text, const std::string &part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        count++;
    }
    return count;
}

}  // namespace

TEST(Library, TracesListsWhileTheirFlagIsOn) {
    void *handle = dlopen(AAAUTIL_PATH, RTLD_LAZY | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    EXPECT_EQ("", trace_of_a_list(handle));
    aaa_platform_debug_set(AAA_DBG_AVLIST, 1);
    const std::string traces = trace_of_a_list(handle);
    EXPECT_EQ(2u, count_of(traces, "]: Adding attr ")) << traces;
    EXPECT_EQ(1u, count_of(traces, "]: Found attr ")) << traces;
    EXPECT_EQ(1u, count_of(traces, " not found: ")) << traces;
    EXPECT_EQ(1u, count_of(traces, "]: Freeing AV list at ")) << traces;
    aaa_platform_debug_set(AAA_DBG_AVLIST, 0);
    aaa_platform_debug_set(AAA_DBG_MALLOC, 1);
    EXPECT_EQ("", trace_of_a_list(handle));
    aaa_platform_debug_set(AAA_DBG_MALLOC, 0);
    ASSERT_EQ(0, dlclose(handle));
}

// An operator switches flags while other threads work on lists.
TEST(Library, MayBeToldToTraceWhileListsAreUsed) {
    void *handle = dlopen(AAAUTIL_PATH, RTLD_LAZY | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    std::atomic<bool> done{false};
    std::thread switching([&done] {
        for (int on = 1; !done.load(); on = 1 - on) {
            aaa_platform_debug_set(AAA_DBG_AVLIST, on);
        }
        aaa_platform_debug_set(AAA_DBG_AVLIST, 0);
    });
    for (int i = 0; i < 100; i++) {
        EXPECT_GE(2u, count_of(trace_of_a_list(handle), "]: Adding attr "));
    }
    done.store(true);
    switching.join();
    EXPECT_EQ("", trace_of_a_list(handle));
    ASSERT_EQ(0, dlclose(handle));
}

int main(int argc, char **argv) {
    unsetenv("NO_DLLMAIN");
    return run_with_captured_log(argc, argv);
}
