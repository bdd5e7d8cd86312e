// SPDX-License-Identifier: Apache-2.0
//
// System calls on files.
#include "records/files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace accounting {

namespace {

// The call's result, without interruptions by signals.
template <typename Call>
auto repeated(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace

net::Descriptor Files::open(int directory, const std::string &name, int flags) {
    return net::Descriptor(repeated([&] {
        // O_NONBLOCK: whoever plants a FIFO must not stop the service.
        return openat(directory, name.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, 0600);
    }));
}

ssize_t Files::write(int file, std::string_view bytes, off_t at) {
    return repeated([&] { return pwrite(file, bytes.data(), bytes.size(), at); });
}

ssize_t Files::read(int file, char *bytes, std::size_t size, off_t at) {
    return repeated([&] { return pread(file, bytes, size, at); });
}

int Files::sync_data(int file) {
    return repeated([&] { return fdatasync(file); });
}

int Files::sync(int file) {
    return repeated([&] { return fsync(file); });
}

int Files::truncate(int file, off_t size) {
    return repeated([&] { return ftruncate(file, size); });
}

int Files::rename(int directory, const std::string &from, const std::string &to) {
    return renameat(directory, from.c_str(), directory, to.c_str());
}

int Files::remove(int directory, const std::string &name) {
    return unlinkat(directory, name.c_str(), 0);
}

bool Files::write_all(int file, std::string_view bytes, off_t at) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes, at);
        if (written <= 0) {
            errno = written == 0 ? ENOSPC : errno;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
        at += written;
    }
    return true;
}

bool Files::read_up_to(int file, std::size_t size, off_t at, std::string &bytes) {
    bytes.resize(size);
    std::size_t have = 0;
    while (have < size) {
        const ssize_t got = read(file, bytes.data() + have, size - have, at + static_cast<off_t>(have));
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            break;
        }
        have += static_cast<std::size_t>(got);
    }
    bytes.resize(have);
    return true;
}

bool is_no_room(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

}  // namespace accounting
