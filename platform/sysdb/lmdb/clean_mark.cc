// SPDX-License-Identifier: Apache-2.0
//
// Reading and writing the clean mark. Its record, in host order:
//
//   8 bytes    "AAAMARK1"
//   48 bytes   FileState
//   36 bytes   the identifier of the machine's start, as text
//   4 bytes    zero
//   8 bytes    checksum of the above: a reader may meet a half-written record

#include "clean_mark.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "host.hpp"

namespace sysdb_lmdb {
namespace {

constexpr char kBootFile[] = "/proc/sys/kernel/random/boot_id";
constexpr std::size_t kBootSize = 36;
constexpr int kTimeProbes = 3;

struct Record {
    std::array<char, 8> magic{'A', 'A', 'A', 'M', 'A', 'R', 'K', '1'};
    FileState state;
    std::array<char, kBootSize + 4> boot{};
    std::uint64_t checksum = 0;
};
static_assert(sizeof(Record) == 104);

std::uint64_t checksum_of(const Record &record) {
    unsigned char bytes[offsetof(Record, checksum)];
    std::memcpy(bytes, &record, sizeof bytes);
    std::uint64_t sum = 0xcbf29ce484222325;  // FNV-1a
    for (const unsigned char byte : bytes) {
        sum = (sum ^ byte) * 0x100000001b3;
    }
    return sum;
}

// False when there is none, or half of one.
bool read_record(const Descriptor &file, Record &record) {
    return file && pread(file.get(), &record, sizeof record, 0) == sizeof record &&
           record.magic == Record{}.magic && record.checksum == checksum_of(record);
}

bool read_boot(std::array<char, kBootSize + 4> &boot) {
    const Descriptor file = open_at(AT_FDCWD, kBootFile, O_RDONLY);
    return file && read(file.get(), boot.data(), kBootSize) == static_cast<ssize_t>(kBootSize);
}

// The same for the life of the process.
const std::array<char, kBootSize + 4> *boot() {
    static const auto known = [] {
        std::array<char, kBootSize + 4> id{};
        return std::pair(read_boot(id), id);
    }();
    return known.first ? &known.second : nullptr;
}

// Whether times of files here are counted in steps of milliseconds, within which a second
// write does not show. It depends on the kernel and on the file system.
bool has_coarse_times(int fd) {
    struct stat before;
    struct stat after;
    for (int i = 0; i < kTimeProbes; ++i) {
        if (futimens(fd, nullptr) != 0 || fstat(fd, &before) != 0 || futimens(fd, nullptr) != 0 ||
            fstat(fd, &after) != 0) {
            return false;
        }
        if (before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
            before.st_mtim.tv_nsec == after.st_mtim.tv_nsec) {
            return true;
        }
    }
    return false;
}

// Gives the data file a time between two steps, which the next write changes. Only its
// owner can do so.
void set_unique_time(int data_fd) {
    timespec times[2] = {{0, UTIME_OMIT}, {}};
    clock_gettime(CLOCK_REALTIME, &times[1]);
    futimens(data_fd, times);
}

}  // namespace

bool state_of(int data_fd, std::uint64_t txnid, FileState &state) {
    struct stat status;
    if (fstat(data_fd, &status) != 0) {
        return false;
    }
    state = {status.st_dev,
             status.st_ino,
             static_cast<std::uint64_t>(status.st_size),
             status.st_mtim.tv_sec,
             static_cast<std::uint64_t>(status.st_mtim.tv_nsec),
             txnid};
    return true;
}

void CleanMark::open_file(const Directory &directory, const CheckedFile &file) {
    file_ = open_checked(directory, name_, file.identity, O_RDWR);
    if (!file_) {  // a process that only reads
        file_ = open_checked(directory, name_, file.identity, O_RDONLY);
    }
}

void CleanMark::remove(const Directory &directory, const std::string &name) {
    if (directory.may_make_files()) {
        unlinkat(directory.get(), name.c_str(), 0);
    }
}

void CleanMark::open(const Directory &directory, const std::string &name, FileRights rights) {
    name_ = name;
    rights_ = rights;
    CheckedFile file;
    if (check_file(directory, name_, file) == 0) {
        repair_rights(directory, name_, rights_, file);
        open_file(directory, file);
    }
}

bool CleanMark::holds(const FileState &state) const {
    Record record;
    const auto *now = boot();
    return now != nullptr && read_record(file_, record) && record.boot == *now && record.state == state;
}

bool CleanMark::tells_of_contents() const {
    Record record;
    return read_record(file_, record) && record.state.size != 0 && record.state.txnid != 0;
}

bool CleanMark::is_open_to_write(const Directory &directory) {
    CheckedFile file;
    if (!file_ && directory.may_make_files() &&
        (check_file(directory, name_, file) == 0 || make_file(directory, name_, rights_, file) == 0)) {
        open_file(directory, file);
    }
    return static_cast<bool>(file_);
}

void CleanMark::write(const Directory &directory, int data_fd, std::uint64_t txnid) {
    const auto *now = boot();
    if (now == nullptr || !is_open_to_write(directory)) {
        return;
    }
    if (!coarse_times_) {  // not at the opening: most processes write nothing
        coarse_times_ = has_coarse_times(file_.get());
    }
    if (*coarse_times_) {
        set_unique_time(data_fd);
    }
    Record record;
    record.boot = *now;
    if (!state_of(data_fd, txnid, record.state)) {
        return;
    }
    record.checksum = checksum_of(record);
    if (pwrite(file_.get(), &record, sizeof record, 0) != static_cast<ssize_t>(sizeof record)) {
        return;  // the next process checks the pages
    }
}

}  // namespace sysdb_lmdb
