// SPDX-License-Identifier: Apache-2.0

#include "config/text_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "net/descriptor.hpp"

namespace service {

namespace {

constexpr std::string_view kBlanks = " \t\r";

// Why a file is not to be trusted; empty when it is.
std::string defect_of(const struct stat &file, Privacy privacy) {
    if (!S_ISREG(file.st_mode)) {
        return "it is not a regular file";
    }
    if (file.st_uid != 0 && file.st_uid != geteuid()) {
        return "it belongs to the user " + std::to_string(file.st_uid) + "; run: chown root";
    }
    if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "others than its owner may write it; run: chmod go-w";
    }
    if (privacy == Privacy::kSecret && (file.st_mode & S_IRWXO) != 0) {
        return "every user may read the hashes in it; run: chmod o=";
    }
    return "";
}

bool read_all(int fd, std::size_t most, std::string &text) {
    char buffer[16384];
    for (;;) {
        const ssize_t count = read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            explicit_bzero(buffer, sizeof buffer);
            return count == 0;
        }
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > most) {
            errno = EFBIG;
            return false;
        }
    }
}

}  // namespace

std::string fault_text(const std::string &path, const Fault &fault) {
    return path + ":" + (fault.line != 0 ? std::to_string(fault.line) + ":" : "") + " " + fault.text;
}

TextFile read_text_file(const std::string &path, Privacy privacy, std::size_t most) {
    TextFile file;
    // O_NONBLOCK: a FIFO without a writer would stop the service.
    const net::Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!fd || fstat(fd.get(), &status) != 0) {
        file.missing = errno == ENOENT;
        file.faults.push_back({0, std::strerror(errno)});
        return file;
    }
    if (const std::string defect = defect_of(status, privacy); !defect.empty()) {
        file.faults.push_back({0, defect});
    } else if (!read_all(fd.get(), most, file.text)) {
        file.faults.push_back({0, std::strerror(errno)});
    }
    return file;
}

bool control_character(std::string_view line) {
    return std::any_of(line.begin(), line.end(), [](char c) {
        return (static_cast<unsigned char>(c) < ' ' && c != '\t' && c != '\r') || c == '\x7f';
    });
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<std::uint32_t> decimal(std::string_view text, std::uint32_t most) {
    std::uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number <= most ? std::optional(number) : std::nullopt;
}

}  // namespace service
