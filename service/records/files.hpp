// SPDX-License-Identifier: Apache-2.0
//
// The system calls on files that can fail on a machine in trouble. Tests derive from this
// to make one of them fail, or the process end in the middle of one.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "net/descriptor.hpp"

namespace accounting {

// Results are those of the system calls, with errno; calls that a signal interrupted are
// repeated. A name is that of a file in the directory `directory`; links are not followed.
class Files {
  public:
    Files() = default;
    virtual ~Files() = default;
    Files(const Files &) = delete;
    Files &operator=(const Files &) = delete;

    virtual net::Descriptor open(int directory, const std::string &name, int flags);
    virtual ssize_t write(int file, std::string_view bytes, off_t at);
    virtual ssize_t read(int file, char *bytes, std::size_t size, off_t at);
    virtual int sync_data(int file);
    virtual int sync(int file);
    virtual int truncate(int file, off_t size);
    virtual int rename(int directory, const std::string &from, const std::string &to);
    virtual int remove(int directory, const std::string &name);

    // Both use the calls above. False with errno: not everything was written or read.
    bool write_all(int file, std::string_view bytes, off_t at);
    // Fewer bytes only where the file ends before.
    bool read_up_to(int file, std::size_t size, off_t at, std::string &bytes);
};

// Whether a call failed because there is no room, which can change by itself.
bool is_no_room(int error);

}  // namespace accounting
