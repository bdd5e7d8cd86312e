// SPDX-License-Identifier: Apache-2.0
//
// A file of master keys for a test, and the cipher that uses it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "log_socket.hpp"
#include "open_files.hpp"
#include "platform/cipher.h"
#include "platform/control.h"
#include "support/temp_dir.hpp"

inline std::string text_or_null(char *text) {
    const std::string out = text != nullptr ? text : "(null)";
    free(text);
    return out;
}

inline std::string encrypt(const std::string &clear) {
    return text_or_null(pw_encrypt(clear.c_str(), 7));
}
inline std::string decrypt(const std::string &sealed) {
    return text_or_null(pw_decrypt(sealed.c_str(), 7));
}

struct MasterKeyFile : testing::Test {
    TempDir dir;
    std::string path = dir.path("master.keys");
    void SetUp() override {
        setenv("AAA_MASTER_KEYS", path.c_str(), 1);
        ASSERT_EQ(0u, aaa_platform_master_keys_create(path.c_str()));
        g_log->take();
    }
    void TearDown() override {
        EXPECT_TRUE(g_log->take().empty());
        EXPECT_FALSE(is_open(path));
    }

    uint32_t rotate() const {
        uint32_t generation = 999;
        EXPECT_EQ(0u, aaa_platform_master_keys_rotate(path.c_str(), &generation));
        return generation;
    }
    void replace(const std::string &text, mode_t mode = 0600) const { dir.write("master.keys", text, mode); }
    [[nodiscard]] std::string contents() const { return dir.read("master.keys"); }

    // One failing decryption (or encryption) and its only log line.
    void expect_refused(const std::string &sealed, const std::string &log) const {
        EXPECT_EQ("(null)", decrypt(sealed));
        EXPECT_EQ(log, g_log->take_one());
    }
    void expect_no_keys(const std::string &why) const {
        const std::string log = "%AAA-PLATFORM-3-MASTER_KEYS : " + path + ": " + why;
        EXPECT_EQ("(null)", encrypt("secret"));
        EXPECT_EQ(log, g_log->take_one());
        expect_refused(kWellFormed, log);
    }

    const std::string kWellFormed = "0101" + std::string(2 * (24 + 16), 'a');
};
