// SPDX-License-Identifier: Apache-2.0
//
// The table of protocols.

#include "config/protocols.hpp"

#include "cli/output.hpp"

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

}  // namespace aaactl
