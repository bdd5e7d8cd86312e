// SPDX-License-Identifier: Apache-2.0
//
// agent.conf: a setting on each line, words separated by blanks, '#' begins a comment.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/text_file.hpp"
#include "gateway/client.hpp"

namespace sysdb_etcd {

struct Settings {
    ClusterAddress address;
    std::string password_file;
    std::string prefix = "/aaa";
    std::string node;  // default: the machine's name
};

// Reads the text of a file. Faults are appended.
Settings parse_settings(std::string_view text, std::vector<service::Fault> &faults);

// Reads a file, that of the password, and looks at those of the certificates. Faults are lines
// that name the file, and what to do.
Settings read_settings(const std::string &path, std::vector<std::string> &faults);

}  // namespace sysdb_etcd
