// SPDX-License-Identifier: Apache-2.0

#include "commands.hpp"

int main(int argc, char **argv) {
    return aaactl::run(argc, argv);
}
