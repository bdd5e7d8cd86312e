// SPDX-License-Identifier: Apache-2.0
//
// Reading, checking and writing the file of master keys.

#include "master_keys.hpp"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config_file.hpp"
#include "descriptor.hpp"
#include "log.hpp"

namespace aaaplatform {

namespace {

constexpr char kUsualPath[] = "/etc/aaa/master.keys";
constexpr char kHeader[] = "aaa-master-keys 1";
constexpr std::size_t kMaxFile = 16384;  // a hundred lines of less than 100 characters, with room
constexpr std::size_t kHexSize = 2 * kMasterKeySize;
constexpr char kTimeFormat[] = "%Y-%m-%dT%H:%M:%SZ";

static_assert(kMasterKeySize == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);

// Text that holds keys; wiped on every way out.
struct SecretText {
    char bytes[kMaxFile + 1];
    std::size_t len = 0;
    SecretText() = default;
    ~SecretText() { sodium_memzero(bytes, sizeof bytes); }
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;
};

bool refuse(const char *path, const char *why, const char *advice) {
    log(kLogError, "MASTER_KEYS", "%s: %s; %s", path, why, advice);
    return false;
}

// Only the owner may have any right: a reader of this file can read every server
// key.
bool check_rights(int fd, const char *path) {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return refuse(path, strerrordesc_np(errno), "make the file readable for this process");
    }
    if (!S_ISREG(st.st_mode)) {
        return refuse(path, "it is not a regular file", "name the file of master keys in AAA_MASTER_KEYS");
    }
    if (st.st_uid != 0 && st.st_uid != geteuid()) {
        return refuse(path, "it belongs to another user", "give it to root or to this process's user");
    }
    if ((st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return refuse(path, "users other than its owner have rights on it", "set its mode to 0600");
    }
    return true;
}

bool read_text(int fd, const char *path, SecretText *text) {
    while (text->len <= kMaxFile) {
        const ssize_t n = ::read(fd, text->bytes + text->len, sizeof text->bytes - text->len);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return refuse(path, strerrordesc_np(errno), "make the file readable for this process");
        }
        if (n == 0) {
            text->bytes[text->len] = '\0';
            return true;
        }
        text->len += static_cast<std::size_t>(n);
    }
    return refuse(path, "it is too large", "restore the file from a backup");
}

// The new file was the program's standard error for a moment if that is closed. Text
// that another thread printed into it is overwritten and cut.
bool write_whole(int fd, const char *data, std::size_t len) {
    if (ftruncate(fd, 0) != 0) {
        return false;
    }
    for (off_t at = 0; len > 0;) {
        const ssize_t n = ::pwrite(fd, data, len, at);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += n;
        at += n;
        len -= static_cast<std::size_t>(n);
    }
    return true;
}

// "07 <64 hex digits> <time>\n"
int print_key(const MasterKey &key, char *out, std::size_t size) {
    char hex[kHexSize + 1];
    char created[32] = "-";
    tm utc{};
    if (key.created != 0 && gmtime_r(&key.created, &utc) != nullptr) {
        std::strftime(created, sizeof created, kTimeFormat, &utc);
    }
    sodium_bin2hex(hex, sizeof hex, key.key, kMasterKeySize);
    const int n = std::snprintf(out, size, "%02u %s %s\n", key.generation, hex, created);
    sodium_memzero(hex, sizeof hex);
    return n;
}

// The text has room for all generations.
void print(const MasterKeys &keys, SecretText *text) {
    text->len = static_cast<std::size_t>(std::snprintf(text->bytes, sizeof text->bytes, "%s\n", kHeader));
    for (unsigned i = 0; i < keys.count(); ++i) {
        text->len += static_cast<std::size_t>(
            print_key(keys.at(i), text->bytes + text->len, sizeof text->bytes - text->len));
    }
}

// The name must be on disk too, or a power failure loses a key that has been used
// already.
void sync_directory(const char *path) {
    const int fd = open_directory_of(path);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

// link() refuses an existing name, rename() replaces it; both are atomic.
int put_in_place(const char *temporary, const char *path, bool replace) {
    const int rc = replace ? std::rename(temporary, path) : link(temporary, path);
    const int error = rc == 0 ? 0 : errno;
    if (rc != 0 || !replace) {
        unlink(temporary);
    }
    return error;
}

time_t parse_time(const char *text) {
    tm utc{};
    const char *end = strptime(text, kTimeFormat, &utc);
    return end != nullptr && *end == '\0' ? timegm(&utc) : 0;
}

}  // namespace

int open_directory_of(const char *path) noexcept {
    char directory[PATH_MAX];
    const std::size_t len = strnlen(path, sizeof directory);
    if (len == sizeof directory) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(directory, path, len + 1);
    char *slash = std::strrchr(directory, '/');
    if (slash != nullptr) {
        slash[slash == directory ? 1 : 0] = '\0';
    }
    return above_standard(open(slash != nullptr ? directory : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

const char *master_keys_path() noexcept {
    return config_path("AAA_MASTER_KEYS", kUsualPath);
}

MasterKeys::~MasterKeys() {
    sodium_memzero(keys_, sizeof keys_);
}

bool MasterKeys::read(const char *path) noexcept {
    const Descriptor fd(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!fd) {
        return errno == ENOENT
                   ? refuse(path, "there is no such file", "create it with \"aaactl key new-master\"")
                   : refuse(path, strerrordesc_np(errno), "make the file readable for this process");
    }
    SecretText text;
    return check_rights(fd.get(), path) && read_text(fd.get(), path, &text) && parse(text.bytes, path);
}

bool MasterKeys::parse(char *text, const char *path) noexcept {
    count_ = 0;
    unsigned number = 0;
    char *rest = text;
    for (char *line = strsep(&rest, "\n"); line != nullptr; line = strsep(&rest, "\n")) {
        ++number;
        const bool good =
            number == 1 ? std::strcmp(line, kHeader) == 0 : *line == '\0' || *line == '#' || parse_line(line);
        if (!good) {
            char why[48];
            std::snprintf(why, sizeof why, "line %u is not valid", number);
            return refuse(path, why, "restore the file from a backup");
        }
    }
    return count_ != 0 || refuse(path, "it holds no key", "restore the file from a backup");
}

// "07 <64 hex digits>[ <time>]"
bool MasterKeys::parse_line(char *line) noexcept {
    const auto digit = [line](int i) { return line[i] >= '0' && line[i] <= '9'; };
    if (!digit(0) || !digit(1) || line[2] != ' ') {
        return false;
    }
    const unsigned generation =
        static_cast<unsigned>(line[0] - '0') * 10 + static_cast<unsigned>(line[1] - '0');
    const char *hex = line + 3;
    if (strnlen(hex, kHexSize) != kHexSize || (hex[kHexSize] != '\0' && hex[kHexSize] != ' ') ||
        find(generation) != nullptr) {
        return false;
    }
    MasterKey &key = keys_[count_];
    std::size_t len = 0;
    if (sodium_hex2bin(key.key, sizeof key.key, hex, kHexSize, nullptr, &len, nullptr) != 0 ||
        len != kMasterKeySize) {
        return false;
    }
    key.generation = generation;
    key.created = hex[kHexSize] == ' ' ? parse_time(hex + kHexSize + 1) : 0;
    ++count_;
    return true;
}

const MasterKey *MasterKeys::find(unsigned generation) const noexcept {
    for (unsigned i = 0; i < count_; ++i) {
        if (keys_[i].generation == generation) {
            return &keys_[i];
        }
    }
    return nullptr;
}

bool MasterKeys::add(unsigned generation) noexcept {
    if (count_ == kGenerations || find(generation) != nullptr) {
        return false;
    }
    MasterKey &key = keys_[count_++];
    key.generation = generation;
    key.created = time(nullptr);
    randombytes_buf(key.key, sizeof key.key);
    return true;
}

void MasterKeys::remove(unsigned generation) noexcept {
    const MasterKey *gone = find(generation);
    if (gone == nullptr) {
        return;
    }
    for (auto i = static_cast<unsigned>(gone - keys_); i + 1 < count_; ++i) {
        keys_[i] = keys_[i + 1];
    }
    sodium_memzero(&keys_[--count_], sizeof keys_[0]);
}

int MasterKeys::write(const char *path, bool replace) const noexcept {
    char temporary[PATH_MAX];
    const int n = std::snprintf(temporary, sizeof temporary, "%s.XXXXXX", path);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof temporary) {
        return ENAMETOOLONG;
    }
    // Made with mode 0600 whatever the umask.
    const int made = mkostemp(temporary, O_CLOEXEC);
    if (made < 0) {
        return errno;
    }
    const int fd = above_standard(made);
    SecretText text;
    print(*this, &text);
    int error = fd >= 0 && write_whole(fd, text.bytes, text.len) && fsync(fd) == 0 ? 0 : errno;
    if (fd >= 0) {
        close(fd);
    }
    if (error != 0) {
        unlink(temporary);
        return error;
    }
    error = put_in_place(temporary, path, replace);
    if (error == 0) {
        sync_directory(path);
    }
    return error;
}

}  // namespace aaaplatform
