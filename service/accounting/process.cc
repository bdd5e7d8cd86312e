// SPDX-License-Identifier: Apache-2.0
//
// Processes, from /proc.
#include "accounting/process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string>
#include <string_view>

#include "net/descriptor.hpp"

namespace accounting {

namespace {

constexpr int kStartField = 22;  // of /proc/PID/stat, counted from 1
constexpr int kFieldAfterName = 3;

// The start time, 0 without one.
std::uint64_t start_of(std::uint32_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/stat";
    const net::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 1024> bytes;
    const ssize_t size = file ? read(file.get(), bytes.data(), bytes.size()) : 0;
    std::string_view text(bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    // The second field, the name, is in parentheses and may hold any characters.
    const std::size_t name_end = text.rfind(')');
    text.remove_prefix(name_end == std::string_view::npos ? text.size() : name_end);
    for (int field = kFieldAfterName; field <= kStartField && !text.empty(); ++field) {
        const std::size_t space = text.find(' ');
        text.remove_prefix(space == std::string_view::npos ? text.size() : space + 1);
    }
    std::uint64_t start = 0;
    std::from_chars(text.data(), text.data() + text.size(), start);
    return start;
}

}  // namespace

Process process_of(std::uint32_t pid) {
    Process process{pid, pid != 0 ? start_of(pid) : 0};
    return process.started != 0 ? process : Process{};
}

bool is_alive(const Record &record) {
    if (record.process.pid == 0) {
        return true;
    }
    if (record.arrival.boot != Moment::now().boot) {
        return false;
    }
    // Where /proc hides processes of others, only the number is known.
    const std::uint64_t started = start_of(record.process.pid);
    if (started == 0 || record.process.started == 0) {
        return kill(static_cast<pid_t>(record.process.pid), 0) == 0 || errno == EPERM;
    }
    return started == record.process.started;
}

}  // namespace accounting
