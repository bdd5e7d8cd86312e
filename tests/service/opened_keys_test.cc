// SPDX-License-Identifier: Apache-2.0

#include "config/opened_keys.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/cipher.h"
#include "platform/control.h"
#include "support/temp_dir.hpp"

namespace {

using service::OpenedKeys;
using service::Secret;

class OpenedKeysTest : public testing::Test {
  protected:
    OpenedKeysTest() {
        setenv("AAA_MASTER_KEYS", path_.c_str(), 1);
        EXPECT_EQ(aaa_platform_master_keys_create(path_.c_str()), 0u);
    }
    static std::string seal(const std::string &key) {
        char *sealed = pw_encrypt(key.c_str(), 7);
        EXPECT_NE(sealed, nullptr);
        std::string text = sealed != nullptr ? sealed : "";
        free(sealed);
        return text;
    }
    // The key of a configuration that has one server; "" without a key, "(...)" of one that is kept.
    std::string read(const std::string &place, const std::string &sealed, bool is_whole = true) {
        keys_.begin();
        const auto key = keys_.open(place, Secret(sealed));
        keys_.end(is_whole);
        return !key ? "" : key->is_kept ? "(" + key->text.text() + ")" : key->text.text();
    }
    void lose_master_keys() { std::filesystem::rename(path_, path_ + ".away"); }
    void find_master_keys() { std::filesystem::rename(path_ + ".away", path_); }

    TempDir dir_;
    const std::string path_ = dir_.path("master.keys");
    OpenedKeys keys_;
};

TEST_F(OpenedKeysTest, AreKeptWhileTheMasterKeysAreAway) {
    const std::string sealed = seal("secret");
    EXPECT_EQ(read("a", sealed), "secret");
    lose_master_keys();
    EXPECT_EQ(read("a", sealed), "(secret)");
    EXPECT_EQ(read("a", sealed), "(secret)");
    EXPECT_EQ(read("b", sealed), "(secret)") << "the same text elsewhere";
    find_master_keys();
    EXPECT_EQ(read("b", sealed), "secret");
}

TEST_F(OpenedKeysTest, AreThoseOfThePlaceWhenTheTextChangesMeanwhile) {
    EXPECT_EQ(read("a", seal("secret")), "secret");
    EXPECT_EQ(read("a", "0701nothing"), "(secret)");
    EXPECT_EQ(read("a", seal("another")), "another");
    EXPECT_EQ(read("a", seal("")), "(another)") << "an empty key is not used";
}

TEST_F(OpenedKeysTest, AreForgottenWithTheirServer) {
    const std::string sealed = seal("secret");
    EXPECT_EQ(read("a", sealed), "secret");
    EXPECT_EQ(read("b", seal("another"), false), "another");
    lose_master_keys();
    EXPECT_EQ(read("a", sealed), "(secret)") << "the configuration before could not be read to its end";
    find_master_keys();
    EXPECT_EQ(read("b", seal("another")), "another");
    lose_master_keys();
    EXPECT_EQ(read("a", sealed), "");
    EXPECT_EQ(read("c", "0701nothing"), "");
}

}  // namespace
