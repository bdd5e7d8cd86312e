// SPDX-License-Identifier: Apache-2.0
//
// aaa-master-key: creates and rotates the master keys that seal server keys,
// and shows their generations. It never shows a key.

#include <stdlib.h>
#include <time.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/cerr.h"
#include "platform/control.h"

namespace {

constexpr char kUsage[] =
    "usage: aaa-master-key [--file PATH] create | rotate | show\n"
    "  create  make a file of master keys with one random key\n"
    "  rotate  add a new key, to seal with from now on; earlier ones stay\n"
    "  show    list the generations, oldest first\n"
    "The file is the one in AAA_MASTER_KEYS, else /etc/aaa/master.keys.\n";

int fail(const char *path, cerrno rc) {
    std::fprintf(stderr, "aaa-master-key: %s: %s\n", path, cerr_strerror(rc));
    return 1;
}

int create(const char *path) {
    const cerrno rc = aaa_platform_master_keys_create(path);
    if (rc != 0) {
        return fail(path, rc);
    }
    std::printf("%s: created, generation 01\n", path);
    return 0;
}

int rotate(const char *path) {
    uint32_t generation = 0;
    const cerrno rc = aaa_platform_master_keys_rotate(path, &generation);
    if (rc != 0) {
        return fail(path, rc);
    }
    std::printf("%s: new keys are sealed with generation %02u\n", path, generation);
    return 0;
}

std::string time_text(int64_t seconds) {
    const auto when = static_cast<time_t>(seconds);
    tm utc{};
    char text[32];
    if (seconds == 0 || gmtime_r(&when, &utc) == nullptr ||
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc) == 0) {
        return "unknown";
    }
    return text;
}

int show(const char *path) {
    std::vector<aaa_platform_master_key_t> keys(AAA_PLATFORM_MASTER_KEYS_MAX);
    uint32_t count = 0;
    const cerrno rc =
        aaa_platform_master_keys_list(path, keys.data(), static_cast<uint32_t>(keys.size()), &count);
    if (rc != 0) {
        return fail(path, rc);
    }
    for (uint32_t i = 0; i < count; ++i) {
        std::printf("%02u  created %s%s\n", keys[i].generation, time_text(keys[i].created).c_str(),
                    keys[i].newest != 0 ? "  in use" : "");
    }
    return 0;
}

struct Command {
    const char *name;
    int (*run)(const char *path);
};

constexpr Command kCommands[] = {{"create", create}, {"rotate", rotate}, {"show", show}};

int usage(std::FILE *out, int rc) {
    std::fputs(kUsage, out);
    return rc;
}

}  // namespace

int main(int argc, char **argv) {
    // What goes wrong is told to whoever runs this, not to the system log.
    setenv("AAA_LOG", "stderr", 0);
    const char *path = aaa_platform_master_keys_path();
    int at = 1;
    if (at + 1 < argc && std::strcmp(argv[at], "--file") == 0) {
        path = argv[at + 1];
        at += 2;
    }
    if (at < argc && std::strcmp(argv[at], "--help") == 0) {
        return usage(stdout, 0);
    }
    if (at + 1 != argc) {
        return usage(stderr, 2);
    }
    for (const Command &command : kCommands) {
        if (std::strcmp(argv[at], command.name) == 0) {
            return command.run(path);
        }
    }
    return usage(stderr, 2);
}
