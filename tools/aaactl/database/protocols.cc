// SPDX-License-Identifier: Apache-2.0
//
// The table of protocols.

#include "database/protocols.hpp"

#include "aaa/server_groups.h"
#include "cli/output.hpp"
#include "platform/sysdb.h"

namespace aaactl {

const std::vector<std::string> &protocol_words() {
    static const std::vector<std::string> words = [] {
        std::vector<std::string> all;
        for (const Protocol &protocol : kProtocols) {
            all.emplace_back(protocol.word);
        }
        return all;
    }();
    return words;
}

const Protocol &protocol_named(std::string_view word) {
    for (const Protocol &protocol : kProtocols) {
        if (protocol.word == word) {
            return protocol;
        }
    }
    throw Failure(ExitCode::usage,
                  "\"" + escaped(word) + "\" is not a protocol; use radius, tacacs or diameter");
}

const Protocol *protocol_of_method(uint32_t method) {
    return method == AAA_METHOD_RADIUS       ? &kProtocols[0]
           : method == AAA_METHOD_TACACSPLUS ? &kProtocols[1]
                                             : nullptr;
}

bool is_keyword(const std::string &name) {
    for (uint32_t keyword = AAA_KW_NONE; keyword <= AAA_KW_DIAMETER; ++keyword) {
        if (name == aaa_util_get_sg_defined_name(keyword)) {
            return true;
        }
    }
    return false;
}

bool is_group_name(const std::string &name) {
    std::string copy = name;  // the library takes it without const
    const bool printable = name.find('\0') == std::string::npos && aaa_is_name_valid(copy.data()) == 1;
    return !name.empty() && printable && name.find('/') == std::string::npos && name.size() < SYSDB_NAME_SIZE;
}

void check_group_name(const std::string &name) {
    if (!is_group_name(name)) {
        throw Failure(
            ExitCode::usage,
            "\"" + escaped(name) + "\" is not a valid name; use 1 to 49 printable characters without '/'");
    }
}

}  // namespace aaactl
