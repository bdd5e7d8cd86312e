// SPDX-License-Identifier: Apache-2.0
//
// Opening, checking and splitting the small configuration files.

#include "config_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "descriptor.hpp"
#include "log.hpp"

namespace aaaplatform {

namespace {

constexpr unsigned kMaxComplaints = 5;

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Splits one line in place. A comment ends it.
void split(char *text, ConfigLine *line) {
    line->words = 0;
    while (*text != '\0' && *text != '#' && line->words < ConfigLine::kMaxWords) {
        if (is_blank(*text)) {
            *text++ = '\0';
            continue;
        }
        line->word[line->words++] = text;
        while (*text != '\0' && *text != '#' && !is_blank(*text)) {
            ++text;
        }
    }
    *text = '\0';
}

}  // namespace

const char *config_path(const char *variable, const char *default_path) noexcept {
    const char *path = secure_getenv(variable);
    return path != nullptr && *path != '\0' ? path : default_path;
}

bool ConfigFile::refuse(const char *why) noexcept {
    unusable_ = true;
    log(kLogError, "BAD_FILE", "%s: %s; the file is not used", path_, why);
    return false;
}

bool ConfigFile::load(int fd) noexcept {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return refuse(strerrordesc_np(errno));
    }
    if (!S_ISREG(st.st_mode)) {
        return refuse("it is not a regular file");
    }
    if ((st.st_uid != 0 && st.st_uid != geteuid()) || (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return refuse("users other than its owner (root or this user) may write it; correct owner and mode");
    }
    while (len_ < sizeof text_) {
        const ssize_t n = read(fd, text_ + len_, sizeof text_ - len_);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return refuse(strerrordesc_np(errno));
        }
        if (n == 0) {
            text_[len_] = '\0';
            return true;
        }
        len_ += static_cast<std::size_t>(n);
    }
    return refuse("it is larger than 16 KiB");
}

bool ConfigFile::open(const char *path) noexcept {
    path_ = path;
    // O_NONBLOCK: a fifo of this name must not block a login.
    const Descriptor fd(::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!fd) {
        return errno == ENOENT || errno == ENOTDIR ? false : refuse(strerrordesc_np(errno));
    }
    return load(fd.get());
}

bool ConfigFile::next(ConfigLine *line) noexcept {
    while (at_ < len_) {
        char *start = text_ + at_;
        auto *feed = static_cast<char *>(std::memchr(start, '\n', len_ - at_));
        char *end = feed != nullptr ? feed : text_ + len_;
        *end = '\0';
        at_ = static_cast<std::size_t>(end - text_) + 1;
        line->number = ++number_;
        split(start, line);
        if (line->words != 0) {
            return true;
        }
    }
    return false;
}

void ConfigFile::complain(const char *defect) noexcept {
    if (++complaints_ <= kMaxComplaints) {
        log(kLogWarning, "BAD_FILE", "%s:%u: %s; the line is not used", path_, number_, defect);
    }
}

}  // namespace aaaplatform
