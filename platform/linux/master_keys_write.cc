// SPDX-License-Identifier: Apache-2.0
//
// Writing the file of master keys: its readers see the old file or the new one,
// whole, even when this process is killed.
//
// The new file has no name until it is on disk, so it is gone when the process is
// killed. A rename needs a name for a moment. That name is always the same, and the
// next change of the file removes it: no file with live keys is left. The caller holds
// the lock of the directory.

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "descriptor.hpp"
#include "log.hpp"
#include "master_keys.hpp"
#include "master_keys_text.hpp"

namespace aaaplatform {

namespace {

constexpr char kUnfinished[] = ".unfinished";  // follows the file's name
constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kServiceReads = 0640;

// "07 <64 hex digits> <time>", without a line feed. Returns its length.
std::size_t print_key(const MasterKey &key, char *out, std::size_t size) {
    char hex[kKeyHexSize + 1];
    char created[32] = "-";
    tm utc{};
    if (key.created != 0 && gmtime_r(&key.created, &utc) != nullptr) {
        std::strftime(created, sizeof created, kKeyTimeFormat, &utc);
    }
    sodium_bin2hex(hex, sizeof hex, key.key, kMasterKeySize);
    const int n = std::snprintf(out, size, "%02u %s %s", key.generation, hex, created);
    sodium_memzero(hex, sizeof hex);
    return static_cast<std::size_t>(n);
}

void print_checksum(const MasterKeys &keys, char (&hex)[KeysChecksum::kHexSize + 1]) {
    KeysChecksum sum;
    char line[kKeyHexSize + 64];
    for (unsigned i = 0; i < keys.count(); ++i) {
        sum.add(line, print_key(keys.at(i), line, sizeof line));
    }
    sodium_memzero(line, sizeof line);
    sum.print(hex);
}

// The text has room for all generations.
void print(const MasterKeys &keys, SecretText *text) {
    char checksum[KeysChecksum::kHexSize + 1];
    print_checksum(keys, checksum);
    text->len = static_cast<std::size_t>(std::snprintf(text->bytes, sizeof text->bytes, "%s\n%s%u %s\n",
                                                       kKeysHeader, kKeysCheck, keys.count(), checksum));
    for (unsigned i = 0; i < keys.count(); ++i) {
        text->len += print_key(keys.at(i), text->bytes + text->len, sizeof text->bytes - text->len);
        text->bytes[text->len++] = '\n';
    }
}

// From the beginning: another thread may have printed into the file before it was moved.
bool write_whole(int fd, const char *data, std::size_t len) {
    if (ftruncate(fd, 0) != 0) {
        return false;
    }
    for (off_t at = 0; len > 0;) {
        const ssize_t n = pwrite(fd, data, len, at);
        if (n < 0 && errno != EINTR) {
            return false;
        }
        const ssize_t written = n > 0 ? n : 0;
        data += written;
        at += written;
        len -= static_cast<std::size_t>(written);
    }
    return true;
}

// The directory that holds the file, the file's name in it, and the name that a new file has for a moment.
class Place {
  public:
    explicit Place(const char *path) : directory_(open_directory_of(path)) {
        const char *slash = std::strrchr(path, '/');
        name_ = slash != nullptr ? slash + 1 : path;
        const int n = std::snprintf(unfinished_, sizeof unfinished_, "%s%s", name_, kUnfinished);
        fits_ = n > 0 && static_cast<std::size_t>(n) < sizeof unfinished_;
    }
    ~Place() {
        if (directory_ >= 0) {
            close(directory_);
        }
    }
    Place(const Place &) = delete;
    Place &operator=(const Place &) = delete;

    // 0 or an errno value.
    [[nodiscard]] int open_error() const { return directory_ < 0 ? errno : fits_ ? 0 : ENAMETOOLONG; }
    [[nodiscard]] int directory() const { return directory_; }
    [[nodiscard]] const char *name() const { return name_; }
    [[nodiscard]] const char *unfinished() const { return unfinished_; }

    [[nodiscard]] bool remove_unfinished() const {
        return unlinkat(directory_, unfinished_, 0) == 0 || errno == ENOENT;
    }
    // Some file systems do not sync directories.
    [[nodiscard]] bool sync() const { return fsync(directory_) == 0 || errno == EINVAL; }

  private:
    int directory_;
    const char *name_;
    char unfinished_[NAME_MAX + 1];
    bool fits_;
};

// A new file of the directory, without a name where the file system has such files. Each step returns false
// with errno set on failure.
class NewFile {
  public:
    explicit NewFile(const Place &place) : place_(place) {
        // A file without a name gets one through /proc.
        if (access("/proc/self/fd", X_OK) == 0) {
            fd_ =
                above_standard(openat(place.directory(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, kOwnerOnly));
        }
        if (fd_ < 0) {
            fd_ = above_standard(openat(place.directory(), place.unfinished(),
                                        O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly));
            named_ = fd_ >= 0;
        }
    }
    ~NewFile() {
        const int error = errno;
        if (fd_ >= 0) {
            close(fd_);
        }
        if (named_) {
            static_cast<void>(place_.remove_unfinished());
        }
        errno = error;
    }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    // The mode first: the umask may have taken rights of the owner.
    bool fill(const SecretText &text) const {
        return fd_ >= 0 && fchmod(fd_, kOwnerOnly) == 0 && write_whole(fd_, text.bytes, text.len) &&
               fsync(fd_) == 0;
    }
    // The group first: another one must never have the right.
    [[nodiscard]] bool admit(gid_t readers) const {
        return fchown(fd_, static_cast<uid_t>(-1), readers) == 0 && fchmod(fd_, kServiceReads) == 0 &&
               fsync(fd_) == 0;
    }
    // Fails with EEXIST when the file is there.
    bool create() {
        if (!named_) {
            return link_as(place_.name());
        }
        int rc = renameat2(place_.directory(), place_.unfinished(), place_.directory(), place_.name(),
                           RENAME_NOREPLACE);
        if (rc == 0) {
            named_ = false;
        } else if (errno == EINVAL || errno == ENOSYS) {  // a file system that only replaces
            rc = linkat(place_.directory(), place_.unfinished(), place_.directory(), place_.name(), 0);
        }
        return rc == 0;
    }
    bool replace() {
        named_ = named_ || link_as(place_.unfinished());
        if (!named_ ||
            renameat(place_.directory(), place_.unfinished(), place_.directory(), place_.name()) != 0) {
            return false;
        }
        named_ = false;
        return true;
    }

  private:
    [[nodiscard]] bool link_as(const char *name) const {
        char self[32];
        std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd_);
        return linkat(AT_FDCWD, self, place_.directory(), name, AT_SYMLINK_FOLLOW) == 0;
    }

    const Place &place_;
    int fd_ = -1;
    bool named_ = false;
};

int not_written(const char *path, int error) {
    log(kLogError, "MASTER_KEYS", "%s: it cannot be written: %s; the keys are unchanged", path,
        strerrordesc_np(error));
    return error;
}

}  // namespace

int MasterKeys::write(const char *path, bool replace) const noexcept {
    const Place place(path);
    if (const int error = place.open_error(); error != 0) {
        return not_written(path, error);
    }
    if (!place.remove_unfinished()) {
        return not_written(path, errno);
    }
    SecretText text;
    print(*this, &text);
    NewFile file(place);
    bool filled = file.fill(text);
    if (filled && readers_ != 0 && !file.admit(readers_)) {
        filled = errno == EPERM;  // this user may not give the group the right: only root may
        if (filled) {
            log(kLogWarning, "MASTER_KEYS",
                "%s: the AAA service can no longer read it; as root: chgrp aaad %s && chmod 640 %s", path,
                path, path);
        }
    }
    if (!filled || !(replace ? file.replace() : file.create())) {
        const int error = errno;
        return error == EEXIST && !replace ? error : not_written(path, error);
    }
    // Otherwise a loss of power might lose a key that has been used.
    if (!place.sync()) {
        const int error = errno;
        log(kLogError, "MASTER_KEYS",
            "%s: it was written, but its directory cannot be synced to the disk: %s; copy the file elsewhere "
            "and check the disk",
            path, strerrordesc_np(error));
        return error;
    }
    return 0;
}

}  // namespace aaaplatform
