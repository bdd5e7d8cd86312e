// SPDX-License-Identifier: Apache-2.0
//
// Changes of server groups and their traces, for the tests of verification, of
// application and of the search in method lists.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "platform/cerr.h"
#include "testkit/fake_platform.hpp"

namespace server_groups {

using Texts = std::vector<std::string>;

inline constexpr uint32_t kLevel = 6;
inline constexpr uint32_t kStrange = 0x12345600u;  // a database failure of no known meaning
inline constexpr char kMaps[] = "/oper/aaa/gl/group-server/";
inline constexpr char kConfig[] = "/cfg/gl/aaa/";

inline std::string maps(const std::string &item) {
    return kMaps + item;
}
inline std::string config(const std::string &item) {
    return kConfig + item;
}
inline std::string text_of(uint32_t code) {
    return cerr_strerror(code);
}
inline Texts traces() {
    return fake::traces_of(kLevel);
}

inline bool traced(const std::string &line) {
    for (const std::string &text : traces()) {
        if (text == line) {
            return true;
        }
    }
    return false;
}

struct Verification {
    cerrno rc;
    uint32_t verdict;
    std::string text;  // empty when none was given
};

inline Verification verify(uint32_t operation, const char *name, uint32_t protocol, uint8_t flags = 0) {
    const aaa_cfg_event_t event = {operation, flags, {}};
    char *text = nullptr;
    uint32_t verdict = 99;
    Verification result{aaa_util_svr_grp_verify(&event, &text, &verdict, name, protocol), 0, ""};
    result.verdict = verdict;
    if (text != nullptr) {
        result.text = text;
        free(text);
    }
    return result;
}

}  // namespace server_groups
