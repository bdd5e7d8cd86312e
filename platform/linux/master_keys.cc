// SPDX-License-Identifier: Apache-2.0
//
// Reading and checking the file of master keys.

#include "master_keys.hpp"

#include <fcntl.h>
#include <grp.h>
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
#include "master_keys_text.hpp"

namespace aaaplatform {

namespace {

static_assert(kMasterKeySize == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);

bool refuse(const char *path, const char *why, const char *advice) {
    log(kLogError, "MASTER_KEYS", "%s: %s; %s", path, why, advice);
    return false;
}

// The service runs as a user of its own, and that user's group may read the file. 0: there is
// no such group.
gid_t service_group() {
    group entry{};
    group *found = nullptr;
    char room[4096];
    return getgrnam_r("aaad", &entry, room, sizeof room, &found) == 0 && found != nullptr ? entry.gr_gid : 0;
}

// A word for a shell. False if it does not fit.
bool quote(const char *text, char *out, std::size_t size) {
    static constexpr char kPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./-";
    if (text[std::strspn(text, kPlain)] == '\0') {
        return std::snprintf(out, size, "%s", text) < static_cast<int>(size);
    }
    std::size_t len = 0;
    const auto add = [&](const char *part) {
        const std::size_t more = std::strlen(part);
        if (len + more < size) {
            std::memcpy(out + len, part, more + 1);
        }
        len += more;
    };
    add("'");
    for (; *text != '\0'; ++text) {
        const char one[] = {*text, '\0'};
        add(*text == '\'' ? "'\\''" : one);
    }
    add("'");
    return len < size;
}

// The mode that the file has after it was created: the service reads the one at the usual path.
bool refuse_rights(const char *path, bool service_reads) {
    char word[PATH_MAX];
    char advice[2 * PATH_MAX + 64];
    if (!quote(path, word, sizeof word)) {
        return refuse(path, "users other than its owner have rights on it",
                      "make it readable for its owner only");
    }
    if (service_reads) {
        std::snprintf(advice, sizeof advice, "run: chown root:aaad %s && chmod 0640 %s", word, word);
    } else {
        std::snprintf(advice, sizeof advice, "run: chmod 0600 %s", word);
    }
    return refuse(path, "users other than its owner have rights on it", advice);
}

// Only the owner may have any right, except that the service may read: a reader of this file
// can read every server key. `readers` becomes the group that may read it.
bool check_rights(int fd, const char *path, gid_t *readers) {
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
    const mode_t others = st.st_mode & (S_IRWXG | S_IRWXO);
    const bool service_reads = others == S_IRGRP && st.st_gid != 0 && st.st_gid == service_group();
    *readers = service_reads ? st.st_gid : 0;
    if (others != 0 && !service_reads) {
        const bool is_usual = std::strcmp(path, kUsualMasterKeys) == 0;
        const bool is_for_service = service_group() != 0 && (is_usual || st.st_gid == service_group());
        return refuse_rights(path, is_for_service && st.st_uid == 0);
    }
    return true;
}

bool read_text(int fd, const char *path, SecretText *text) {
    while (text->len <= kKeysMaxFile) {
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

time_t parse_time(const char *text) {
    tm utc{};
    const char *end = strptime(text, kKeyTimeFormat, &utc);
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
    return config_path("AAA_MASTER_KEYS", kUsualMasterKeys);
}

MasterKeys::~MasterKeys() {
    sodium_memzero(keys_, sizeof keys_);
}

bool MasterKeys::read(const char *path) noexcept {
    const Descriptor fd(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!fd) {
        return errno == ENOENT
                   ? refuse(path, "there is no such file",
                            "restore it from a backup, or if no key is sealed yet: aaactl key new-master")
                   : refuse(path, strerrordesc_np(errno), "make the file readable for this process");
    }
    SecretText text;
    return check_rights(fd.get(), path, &readers_) && read_text(fd.get(), path, &text) &&
           parse(text.bytes, path);
}

void MasterKeys::admit_service(const char *path) noexcept {
    readers_ = std::strcmp(path, kUsualMasterKeys) == 0 ? service_group() : 0;
}

// One line after the first. The checksum covers those that hold keys.
bool MasterKeys::parse_any(char *line, KeysChecksum *sum) noexcept {
    if (std::strncmp(line, kKeysCheck, sizeof kKeysCheck - 1) == 0) {
        return parse_check(line + sizeof kKeysCheck - 1);
    }
    if (*line == '\0' || *line == '#') {
        return true;
    }
    sum->add(line, std::strlen(line));
    return parse_line(line);
}

bool MasterKeys::parse(char *text, const char *path) noexcept {
    count_ = 0;
    expected_count_ = 0;
    checked_ = false;
    unsigned number = 0;
    char *rest = text;
    KeysChecksum sum;
    for (char *line = strsep(&rest, "\n"); line != nullptr; line = strsep(&rest, "\n")) {
        ++number;
        const bool good = number == 1 ? std::strcmp(line, kKeysHeader) == 0 : parse_any(line, &sum);
        if (!good) {
            char why[48];
            std::snprintf(why, sizeof why, "line %u is not valid", number);
            return refuse(path, why, "restore the file from a backup");
        }
    }
    if (checked_ && !check(&sum, path)) {
        return false;
    }
    return count_ != 0 || refuse(path, "it holds no key", "restore the file from a backup");
}

// The number of keys and the checksum: "3 <32 hex digits>"
bool MasterKeys::parse_check(const char *text) noexcept {
    char *end = nullptr;
    const unsigned long count = *text >= '1' && *text <= '9' ? std::strtoul(text, &end, 10) : 0;
    if (checked_ || count == 0 || count > kGenerations || *end != ' ' ||
        strnlen(end + 1, sizeof expected_sum_) != sizeof expected_sum_ - 1) {
        return false;
    }
    std::memcpy(expected_sum_, end + 1, sizeof expected_sum_);
    expected_count_ = static_cast<unsigned>(count);
    checked_ = true;
    return true;
}

bool MasterKeys::check(KeysChecksum *sum, const char *path) const noexcept {
    constexpr char advice[] =
        "restore the file from a backup; or, if you have changed it by hand, delete its line \"#check\"";
    char found[KeysChecksum::kHexSize + 1];
    sum->print(found);
    if (count_ != expected_count_) {
        char why[64];
        std::snprintf(why, sizeof why, "it is damaged: it holds %u of its %u keys", count_, expected_count_);
        return refuse(path, why, advice);
    }
    return std::strcmp(found, expected_sum_) == 0 ||
           refuse(path, "it is damaged: its keys do not have the checksum that it holds", advice);
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
    if (strnlen(hex, kKeyHexSize) != kKeyHexSize || (hex[kKeyHexSize] != '\0' && hex[kKeyHexSize] != ' ') ||
        find(generation) != nullptr) {
        return false;
    }
    MasterKey &key = keys_[count_];
    std::size_t len = 0;
    if (sodium_hex2bin(key.key, sizeof key.key, hex, kKeyHexSize, nullptr, &len, nullptr) != 0 ||
        len != kMasterKeySize) {
        return false;
    }
    key.generation = generation;
    key.created = hex[kKeyHexSize] == ' ' ? parse_time(hex + kKeyHexSize + 1) : 0;
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

}  // namespace aaaplatform
