// SPDX-License-Identifier: Apache-2.0
//
// The value of the key that claims an import, and that says later whose configuration was imported. Another
// machine wrote it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sysdb_etcd {

struct ImportRecord {
    std::string node;
    std::string machine;  // its identity
    std::string attempt;  // random: of the process
    std::int64_t time = 0;
    bool complete = false;
};

std::string text_of(const ImportRecord &record);
// False: it is of another form.
bool parse_import_record(std::string_view text, ImportRecord &record);

std::string random_name();

// How long the claim of an import that has ended without a word keeps others from importing.
inline constexpr std::uint32_t kClaimSeconds = 30;

}  // namespace sysdb_etcd
