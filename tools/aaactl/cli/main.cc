// SPDX-License-Identifier: Apache-2.0
//
// The program's entry, and where the platform passes its log lines. Tests and fuzz targets link everything
// but this file.

#include "cli/output.hpp"
#include "cli/program.hpp"
#include "platform/control.h"

// A person reads the reasons of failures as a part of the command's message, not in the log of the machine.
extern "C" int32_t aaa_program_take_log(uint32_t severity, const char *line, uint32_t length) {
    return aaactl::take_log_line(severity, {line, length}) ? 1 : 0;
}

int main(int argc, char **argv) {
    return aaactl::run(argc, argv);
}
