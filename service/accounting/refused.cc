// SPDX-License-Identifier: Apache-2.0
//
// Lines of refused records.
#include "accounting/refused.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

namespace accounting {

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

const char *name_of(Kind kind) {
    switch (kind) {
        case Kind::kStart:
            return "start";
        case Kind::kStop:
            return "stop";
        case Kind::kInterim:
            return "interim";
        case Kind::kEvent:
            return "event";
    }
    return "unknown";
}

// Bytes above 0x7e are escaped one by one, as if they were Latin-1: names of sessions
// have no encoding, and a line has to be JSON.
void append_text(std::string &out, std::string_view text) {
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && c != '"' && c != '\\') {
            out += c;
        } else {
            std::array<char, 8> escape;
            std::snprintf(escape.data(), escape.size(), "\\u%04x", byte);
            out += escape.data();
        }
    }
    out += '"';
}

std::string time_text(std::int64_t wall) {
    const time_t seconds = wall / kSecond;
    struct tm parts = {};
    gmtime_r(&seconds, &parts);
    std::array<char, 64> text;
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

}  // namespace

std::string refused_line(const Record &record, std::string_view destination, std::string_view reason) {
    std::string line = "{\"time\":";
    append_text(line, time_text(record.arrival.wall));
    line += ",\"destination\":";
    append_text(line, destination);
    line += ",\"reason\":";
    append_text(line, reason);
    line += ",\"kind\":";
    append_text(line, name_of(record.kind));
    line += ",\"session\":";
    append_text(line, record.session);
    line += ",\"sequence\":" + std::to_string(record.sequence) + ",\"payload\":\"";
    for (const char c : record.payload) {
        constexpr std::string_view kHex = "0123456789abcdef";
        line += kHex[static_cast<unsigned char>(c) >> 4];
        line += kHex[static_cast<unsigned char>(c) & 15];
    }
    return line + "\"}\n";
}

bool RefusedFile::open() {
    file_ = directory_.open_file(kRefusedName, O_RDWR | O_CREAT);
    struct stat status;
    if (!file_ || fstat(file_.get(), &status) != 0) {
        file_.reset();
        return false;
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
    // A line that was not finished when the service ended must not swallow the next one.
    std::string last;
    if (size_ != 0 && directory_.files().read_up_to(file_.get(), 1, status.st_size - 1, last) &&
        last != "\n") {
        if (!directory_.files().write_all(file_.get(), "\n", status.st_size)) {
            file_.reset();
            return false;
        }
        ++size_;
    }
    return true;
}

bool RefusedFile::append(const std::string &line) {
    Files &files = directory_.files();
    if (file_ && size_ >= most_bytes_) {
        file_.reset();
        if (directory_.rename(kRefusedName, kOlderRefusedName)) {
            log_(directory_.path() + "/" + kRefusedName + " has reached its size and is now " +
                 kOlderRefusedName + "; the former " + kOlderRefusedName + " was replaced");
        }
    }
    if (!file_ && !open()) {
        return false;
    }
    if (!files.write_all(file_.get(), line, static_cast<off_t>(size_))) {
        const int error = errno;
        files.truncate(file_.get(), static_cast<off_t>(size_));
        file_.reset();
        errno = error;
        return false;
    }
    size_ += line.size();
    if (files.sync(file_.get()) != 0 || !directory_.sync()) {
        const int error = errno;
        file_.reset();
        errno = error;
        return false;
    }
    return true;
}

}  // namespace accounting
