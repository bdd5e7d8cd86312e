// SPDX-License-Identifier: Apache-2.0
//
// Line kinds and names.

#include "aaa/lines.h"

#include <cstdlib>
#include <cstring>

#include "platform/terminal.h"

namespace {

// The platform's report about a line. Its record may be larger than the part
// that is read, so the area is larger too.
union DetailsArea {
    tty_details_t details;
    unsigned char room[1024];
};

bool is_kind(const char *device, uint32_t kind) {
    if (device == nullptr) {
        return false;
    }
    DetailsArea area{};
    return tty_details_from_device_file(0, device, &area.details) == 0 && area.details.kind == kind;
}

}  // namespace

extern "C" {

char *aaa_util_convert_tty_name(char *device) {
    if (device == nullptr) {
        return nullptr;
    }
    char *name = strdup(*device != '\0' ? device + 1 : device);
    if (name != nullptr) {
        for (char *p = name; *p != '\0'; p++) {
            if (*p == '/') {
                *p = '-';
            }
        }
    }
    return name;
}

int aaa_is_console(const char *device) {
    return is_kind(device, AAA_LINE_CONSOLE) ? 1 : 0;
}

int aaa_is_aux(const char *device) {
    return is_kind(device, AAA_LINE_AUX) ? 1 : 0;
}

int aaa_is_vty(const char *device) {
    return is_kind(device, AAA_LINE_VTY) ? 1 : 0;
}

int aaa_is_tty(const char *device) {
    // Two questions, because a line may be renumbered between them.
    return is_kind(device, AAA_LINE_TTY2) || is_kind(device, AAA_LINE_TTY1) ? 1 : 0;
}

}  // extern "C"
