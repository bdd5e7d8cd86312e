// SPDX-License-Identifier: Apache-2.0

#include "history/kept_texts.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "database/sysdb_values.hpp"
#include "history/editor.hpp"

namespace aaactl {
namespace {

constexpr size_t kMostNamed = 3;

}  // namespace

void note_kept_texts(Output &out) {
    const std::vector<std::string> all = kept_texts();
    const size_t named = std::min(all.size(), kMostNamed);
    for (size_t i = 0; i < named; ++i) {
        out.note("aaactl: an earlier text is kept in " + escaped(all[i]) + "; \"aaactl edit " +
                 shell_word(escaped(all[i])) + "\" goes on with it");
    }
    if (named != 0) {
        const std::string more = std::to_string(all.size() - named);
        out.note("aaactl: " + (named < all.size() ? more + " more are kept; " : std::string()) +
                 "\"aaactl edit --discard-kept\" deletes " + (all.size() == 1 ? "it" : "all of them"));
    }
}

ExitCode discard_kept_texts(Output &out) {
    Json discarded = Json::array();
    std::vector<std::string> lines;
    ExitCode code = ExitCode::ok;
    for (const std::string &path : kept_texts()) {
        if (remove_kept_text(path)) {
            discarded.push_back(escaped(path));
            lines.push_back("deleted " + escaped(path));
        } else {
            out.note("aaactl: " + escaped(path) + ": it cannot be deleted: " + std::strerror(errno));
            code = ExitCode::failed;
        }
    }
    out.result({{"changed", false}, {"discarded", discarded}}, [&] {
        for (const std::string &line : lines) {
            out.line(line);
        }
        if (lines.empty() && code == ExitCode::ok) {
            out.line("no text is kept");
        }
    });
    return code;
}

}  // namespace aaactl
