// SPDX-License-Identifier: Apache-2.0
//
// The buffer of standard input. A password stays in it until later input overwrites it,
// at worst until the process ends, and no function of the C library wipes it. glibc shows
// the buffer's limits in its headers; with another C library nothing is wiped.

#include "internal/input_buffer.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

#include "internal/memory.hpp"

namespace aaautil {
namespace {

#ifdef __GLIBC__

// Of _flags: the buffer was not allocated by the C library.
constexpr int kForeignBuffer = 0x1;

// A file that the program opened with the mode letter m is mapped without the right to
// write.
bool may_be_mapped(FILE *file) noexcept {
    struct stat status = {};
    return (file->_flags & kForeignBuffer) != 0 &&
           (fstat(fileno(file), &status) != 0 || S_ISREG(status.st_mode));
}

// False also while characters are read that the program has pushed back: they are in
// another block, and none of this one has been read since.
bool is_being_read(const FILE *file) noexcept {
    return file->_IO_buf_base != nullptr && file->_IO_buf_base <= file->_IO_read_ptr &&
           file->_IO_read_ptr <= file->_IO_read_end && file->_IO_read_end <= file->_IO_buf_end &&
           file->_IO_write_ptr <= file->_IO_write_base;
}

void wipe_between(char *begin, char *end) noexcept {
    wipe(begin, static_cast<size_t>(end - begin));
}

// The bytes before the next one, and those of earlier, longer contents after the last.
void wipe_consumed(FILE *file) noexcept {
    if (is_being_read(file) && !may_be_mapped(file)) {
        wipe_between(file->_IO_buf_base, file->_IO_read_ptr);
        wipe_between(file->_IO_read_end, file->_IO_buf_end);
    }
}

#else

void wipe_consumed(FILE *) noexcept {}

#endif

}  // namespace

void wipe_consumed_input() noexcept {
    const int saved = errno;
    flockfile(stdin);
    wipe_consumed(stdin);
    funlockfile(stdin);
    errno = saved;
}

}  // namespace aaautil
