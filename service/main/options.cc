// SPDX-License-Identifier: Apache-2.0

#include "main/options.hpp"

#include <getopt.h>

#include <cstdio>
#include <iterator>

namespace service {

namespace {

constexpr char kUsage[] =
    "usage: aaad [--foreground] [--debug] [--force] [--config FILE] [--socket PATH] [--check]\n"
    "       aaad [--config FILE] --drop-queue GROUP\n"
    "\n"
    "The AAA service: answers authentication, authorization and accounting requests.\n"
    "\n"
    "  --foreground   write log lines to standard error\n"
    "  --debug        log each step of each request\n"
    "  --force        use a configuration that lets no one log in\n"
    "  --config FILE  settings, default /etc/aaa/aaad.conf\n"
    "  --socket PATH  listen here and not where the settings say\n"
    "  --check        read the whole configuration, say what is wrong with it, and end\n"
    "  --drop-queue GROUP\n"
    "                 while the service is stopped: give up the accounting records that wait\n"
    "                 for a group, and end\n"
    "\n"
    "SIGHUP reads the configuration again. See aaad(8) and aaad.conf(5).\n";

enum : int { kForeground = 1000, kDebug, kForce, kConfig, kSocket, kCheck, kDropQueue, kHelp, kVersion };

constexpr option kOptions[] = {{"foreground", no_argument, nullptr, kForeground},
                               {"debug", no_argument, nullptr, kDebug},
                               {"force", no_argument, nullptr, kForce},
                               {"config", required_argument, nullptr, kConfig},
                               {"socket", required_argument, nullptr, kSocket},
                               {"check", no_argument, nullptr, kCheck},
                               {"drop-queue", required_argument, nullptr, kDropQueue},
                               {"help", no_argument, nullptr, kHelp},
                               {"version", no_argument, nullptr, kVersion},
                               {nullptr, 0, nullptr, 0}};

}  // namespace

std::optional<Options> read_options(int argc, char **argv, int &status) {
    Options options;
    for (int option; (option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (option) {
            case kForeground:
                options.foreground = true;
                break;
            case kDebug:
                options.debug = true;
                break;
            case kForce:
                options.force = true;
                break;
            case kConfig:
                options.config = optarg;
                break;
            case kSocket:
                options.socket = optarg;
                break;
            case kCheck:
                options.check = true;
                break;
            case kDropQueue:
                options.drop_queue = optarg;
                break;
            case kHelp:
                std::fputs(kUsage, stdout);
                status = 0;
                return std::nullopt;
            case kVersion:
                std::puts("aaad " AAA_VERSION);
                status = 0;
                return std::nullopt;
            default:
                std::fputs(kUsage, stderr);
                status = 2;
                return std::nullopt;
        }
    }
    if (optind < argc) {
        std::fprintf(stderr, "aaad: %s is not an option\n%s", argv[optind], kUsage);
        status = 2;
        return std::nullopt;
    }
    return options;
}

}  // namespace service
