// SPDX-License-Identifier: Apache-2.0
//
// A directory for one test, removed with its contents.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class TempDir {
  public:
    TempDir() {
        char name[] = "/tmp/aaa-platform-test.XXXXXX";
        if (mkdtemp(name) == nullptr) {
            ADD_FAILURE() << "no temporary directory";
        }
        path_ = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    [[nodiscard]] std::string path(const std::string &name) const { return path_ + "/" + name; }

    std::string write(const std::string &name, const std::string &text, mode_t mode = 0600) const {
        const std::string file = path(name);
        std::ofstream(file, std::ios::binary) << text;
        EXPECT_EQ(0, chmod(file.c_str(), mode));
        return file;
    }

    [[nodiscard]] std::string read(const std::string &name) const {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

  private:
    std::string path_;
};

// Sets an environment variable for one scope.
class ScopedEnv {
  public:
    ScopedEnv(const char *name, const std::string &value) : name_(name) { setenv(name, value.c_str(), 1); }
    ~ScopedEnv() { unsetenv(name_); }
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

  private:
    const char *name_;
};
