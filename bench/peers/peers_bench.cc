// SPDX-License-Identifier: Apache-2.0
//
// The library and its peers on the same messages, in one program:
//
//     aaa_peers [options of the benchmark library]
//
// A row is named STEP/MESSAGES/PEER. Before a peer is timed, all of its packed and
// unpacked values are compared with the originals.

#include <cstdio>

#include "peer.hpp"

namespace peers {

void fail(const char *peer, const char *set, const char *what) {
    std::fprintf(stderr, "%s, messages %s: %s\n", peer, set, what);
    std::exit(1);
}

namespace {

void add_all() {
    for (const MessageSet &set : message_sets()) {
        benchmark::AddCustomContext(std::string("messages ") + set.name, set.describes);
    }
    add_aaautil();
    add_plain();
    add_protobuf();
    add_flatbuffers();
    add_capnproto();
    add_msgpack();
    add_freeradius();
    add_radcli();
}

}  // namespace

}  // namespace peers

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    peers::add_all();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
