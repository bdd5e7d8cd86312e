// SPDX-License-Identifier: Apache-2.0
//
// Owners, rights and contents of files.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

inline struct stat status_of(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status;
}
inline mode_t mode_of(const std::string &path) {
    return status_of(path).st_mode & 07777;
}
inline gid_t group_of(const std::string &path) {
    return status_of(path).st_gid;
}

inline std::string contents(const std::string &file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

inline void write_file(const std::string &file, const std::string &bytes, mode_t mode) {
    std::ofstream(file, std::ios::binary) << bytes;
    ASSERT_EQ(0, chmod(file.c_str(), mode));
}

inline void make_directory(const std::string &path, mode_t mode, gid_t group) {
    ASSERT_TRUE(std::filesystem::create_directory(path));
    ASSERT_EQ(0, chown(path.c_str(), 0, group));
    ASSERT_EQ(0, chmod(path.c_str(), mode));
}
