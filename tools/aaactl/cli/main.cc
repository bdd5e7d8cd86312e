// SPDX-License-Identifier: Apache-2.0
//
// The program's entry. Tests and fuzz targets link everything but this file.

#include "cli/program.hpp"

int main(int argc, char **argv) {
    return aaactl::run(argc, argv);
}
