// SPDX-License-Identifier: Apache-2.0
//
// The reader of aaactl's sysdb load and diff with dumps of the system database, as text
// or as JSON. An accepted dump, written in either form and read again, must give the
// same items. Every other input must throw a Failure, and no other exception.

#include <string>

#include "database/dump.hpp"
#include "fuzz_input.hpp"

namespace {

using aaactl::Dump;
using aaactl::Failure;
using aaactl::Output;

std::string text_of(const Dump &dump) {
    std::string text = aaactl::dump_head(dump.directory) + "\n";
    for (const aaactl::DumpItem &item : dump.items) {
        text += aaactl::dump_line(item) + "\n";
    }
    return text;
}

void require_same(const Dump &a, const Dump &b) {
    REQUIRE(a.directory == b.directory && a.items.size() == b.items.size());
    for (std::size_t i = 0; i < a.items.size(); ++i) {
        REQUIRE(a.items[i].path == b.items[i].path && a.items[i].masked == b.items[i].masked);
        REQUIRE(a.items[i].masked || a.items[i].item == b.items[i].item);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    Output out{aaactl::OutputOptions{}};
    Dump dump;
    try {
        dump = aaactl::parse_dump(out, {reinterpret_cast<const char *>(data), size});
    } catch (const Failure &failure) {
        REQUIRE(failure.code() == aaactl::ExitCode::bad_input);
        return 0;
    }
    require_same(dump, aaactl::parse_dump(out, text_of(dump)));
    require_same(dump, aaactl::parse_dump(out, aaactl::dump_json(dump).dump()));
    REQUIRE(aaactl::compare(dump, dump, dump.directory).empty());
    return 0;
}
