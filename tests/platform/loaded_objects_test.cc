// SPDX-License-Identifier: Apache-2.0
//
// The search for a symbol in the loaded objects, by the registration of result
// codes: the caller's object first, then all others, and no object is kept loaded.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "aaa/result_codes.h"
#include "platform/cerr.h"

namespace {

constexpr uint32_t kFacility = 0x3001u;       // of the old and the new module
constexpr uint32_t kOtherFacility = 0x3002u;  // of the third one
constexpr char kDll[] = "cerrno/libtest_error.dll";

std::string text(uint32_t facility, uint32_t index) {
    return cerr_strerror(2u << 30 | 1u << 29 | facility << 15 | index << 9);
}

struct Module {
    void *handle;
    explicit Module(const char *path) : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(nullptr, handle) << dlerror();
    }
    ~Module() {
        if (handle != nullptr) {
            dlclose(handle);
        }
    }
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    [[nodiscard]] cerrno register_itself() const {
        const auto function = reinterpret_cast<cerrno (*)()>(dlsym(handle, "module_register"));
        return function();
    }
};

bool is_loaded(const char *path) {
    void *handle = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) {
        dlclose(handle);
    }
    return handle != nullptr;
}

}  // namespace

TEST(LoadedObjects, FindsTheTableInAnyLoadedObject) {
    const Module module(CODE_TABLE_OTHER_PATH);
    EXPECT_EQ(0u, cerr_register_dll(kOtherFacility, kDll));
    EXPECT_EQ("Other text", text(kOtherFacility, 1));
    EXPECT_EQ("Last index", text(kOtherFacility, 63));
}

TEST(LoadedObjects, LeavesTheLibraryFreeToUnload) {
    {
        const Module module(CODE_TABLE_OLD_PATH);
        EXPECT_EQ(0u, module.register_itself());
        EXPECT_TRUE(is_loaded(CODE_TABLE_OLD_PATH));
    }
    EXPECT_FALSE(is_loaded(CODE_TABLE_OLD_PATH));
    EXPECT_EQ("Old text", text(kFacility, 1));
    {
        const Module module(CODE_TABLE_NEW_PATH);
        EXPECT_EQ(0u, module.register_itself());
    }
    EXPECT_FALSE(is_loaded(CODE_TABLE_NEW_PATH));
    EXPECT_EQ("New text", text(kFacility, 1));
}

TEST(LoadedObjects, PrefersTheCallersObject) {
    const Module old_module(CODE_TABLE_OLD_PATH);
    const Module new_module(CODE_TABLE_NEW_PATH);
    EXPECT_EQ(0u, new_module.register_itself());
    EXPECT_EQ("New text", text(kFacility, 1));
    EXPECT_EQ(0u, old_module.register_itself());
    EXPECT_EQ("Old text", text(kFacility, 1));
}
