// SPDX-License-Identifier: Apache-2.0
//
// Exhausted memory: the first allocation of a call fails, then the second, and
// so on. Each time the call must return the code, leave its outputs alone, and
// leak nothing (the leak sanitizer checks).

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "aaa/result_codes.h"
#include "log_socket.hpp"
#include "platform/cerr.h"
#include "platform/cipher.h"
#include "platform/control.h"
#include "platform/node.h"
#include "platform/task_table.h"
#include "platform/terminal.h"
#include "support/fail_alloc.hpp"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr uint32_t kFacility = 0x3000u;
constexpr cerrno kNoMemory = 0xa2580400u;
constexpr cerrno kNoTable = 0xa2580600u;
constexpr cerrno kLineNoMemory = 0xa2571800u;
constexpr cerrno kFirst = 0xb8000200u;

aaa_err_row_t g_rows[2] = {{0, 0, "Success"}, {1, 0, "first"}};

struct MasterKeys {
    TempDir dir;
    ScopedEnv env{"AAA_MASTER_KEYS", dir.path("keys")};
    MasterKeys() { EXPECT_EQ(0u, aaa_platform_master_keys_create(nullptr)); }
};

}  // namespace

extern "C" {
aaa_cerr_data_t test_program_table __asm__("cerr_data")
    __attribute__((visibility("default"), used)) = {2, 0, "Test", kFacility, 2, g_rows, {0, 0}};
}

TEST(MemoryFailure, OfARegistrationKeepsTheOldTexts) {
    ASSERT_EQ(0u, cerr_register_dll(kFacility, "test"));
    unsigned failures = 0;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const std::string before = cerr_strerror(kFirst);
        g_rows[1].text = before == "first" ? "second" : "first";
        const cerrno rc = fail.run([&] { return cerr_register_dll(kFacility, "test"); });
        EXPECT_EQ(rc == 0 ? g_rows[1].text : before, cerr_strerror(kFirst));
        if (rc != 0) {
            // The code depends on whether the loader or the copy failed.
            EXPECT_TRUE(rc == kNoMemory || rc == kNoTable) << std::hex << rc;
            EXPECT_TRUE(fail.fired());
            ++failures;
        }
    });
    EXPECT_TRUE(failures != 0 || !fake::FailAlloc::available());
}

TEST(MemoryFailure, OfSealingIsNullAndALogLine) {
    const MasterKeys keys;
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        char *sealed = fail.run([&] { return pw_encrypt("secret", 7); });
        EXPECT_EQ(fail.fired(), sealed == nullptr);
        if (fail.fired()) {
            EXPECT_EQ("%AAA-PLATFORM-3-ENCRYPT_FAILED : Not enough memory to seal a key", g_log->take_one());
        }
        free(sealed);
    });
}

TEST(MemoryFailure, OfOpeningIsNullAndALogLine) {
    const MasterKeys keys;
    char *sealed = pw_encrypt("secret", 7);
    ASSERT_NE(nullptr, sealed);
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        char *clear = fail.run([&] { return pw_decrypt(sealed, 7); });
        EXPECT_EQ(fail.fired(), clear == nullptr);
        if (fail.fired()) {
            EXPECT_EQ("%AAA-PLATFORM-3-DECRYPT_FAILED : Not enough memory to open a sealed key",
                      g_log->take_one());
        }
        free(clear);
    });
    free(sealed);
}

TEST(MemoryFailure, OfATaskTableIsNull) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        aaa_task_table_t *table = fail.run([] { return aaa_task_table_create(10); });
        EXPECT_EQ(fail.fired(), table == nullptr);
        aaa_destroy_task_table(table);
    });
}

TEST(MemoryFailure, OfAMethodListIsACode) {
    const TempDir dir;
    const ScopedEnv env("AAA_LINES_CONF", dir.write("lines.conf", "* * a-list\n"));
    TerminalProcess child([] {
        std::string failures;
        fake::sweep_allocations([&](fake::FailAlloc &fail) {
            char *list = nullptr;
            const cerrno rc = fail.run([&] { return find_method_for_line(0, &list); });
            failures += fail.fired() == (rc == kLineNoMemory) && (rc == 0) == (list != nullptr) ? "" : "bad ";
            free(list);
        });
        return failures;
    });
    EXPECT_EQ("", child.report());
}

TEST(MemoryFailure, OfALineIsNoLine) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    TerminalProcess child(
        [] {
            int fds[2];
            if (pipe(fds) != 0 || write(fds[1], "one\ntwo\n", 8) != 8) {
                return std::string("no pipe");
            }
            dup2(fds[0], 0);
            void *handle = getline_init();
            int ok = 1;
            fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1, fake::FailAlloc::Mode::all_from_there);
            const char *line = fail.run([&] { return qm_getline(handle, "", "", &ok); });
            std::string result = line == nullptr ? "(null) " : "a line ";
            line = qm_getline(handle, "", "", &ok);
            result += line != nullptr ? line : "(null)";
            getline_free(handle);
            return result;
        },
        false);
    EXPECT_EQ("(null) two\n", child.report());
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
