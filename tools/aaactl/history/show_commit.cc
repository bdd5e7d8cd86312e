// SPDX-License-Identifier: Apache-2.0
//
// show commit.

#include <memory>

#include "cli/commands.hpp"
#include "history/reference.hpp"
#include "running_config/shown.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

// As comments, so that "load" takes the whole text.
std::string heading(const history::Commit &commit, std::optional<uint32_t> waiting) {
    std::string text = "! " + commit_text(commit) + " of " + history::time_text(commit.time) +
                       (commit.kind == history::Kind::outside ? ", " : " ") + author_text(commit) + ": " +
                       kind_text(commit) + "\n";
    size_t left = kLongestMessage;
    for (size_t at = 0; at < commit.message.size() && left != 0;) {
        const size_t end = std::min(commit.message.find('\n', at), commit.message.size());
        text += "!   " + shown_text(commit.message.substr(at, end - at), left) + "\n";
        left -= std::min(left, end - at + 1);
        at = end + 1;
    }
    if (confirmation_of(commit, waiting) == kUnknown) {
        text += std::string("! ") + kUnknownText + "\n";
    } else if (commit.ending != history::Ending::none) {
        text += std::string("! ") + history::word_of(commit.ending) +
                (commit.ended == 0 ? std::string()
                                   : " by " + shown_text(commit.ended_by, kLongestAuthor) + " at " +
                                         history::time_text(commit.ended)) +
                "\n";
    }
    return text;
}

ExitCode show(Output &out, const std::string &word) {
    Database database(Database::Use::reading);
    check_database_exists(database);
    const history::Store store = store_of(database);
    const history::Commit commit = find_commit(store, word);
    const Items items = with_history([&] { return items_of(store.items(commit)); });
    const ShownConfiguration configuration = shown_configuration(out, items);
    const std::optional<uint32_t> waiting = with_history([&] { return waiting_commit(store); });
    Json document = commit_json(commit, waiting);
    document["lines"] = Json::array(lines_json(configuration.plain + std::string(kEnd) + "\n"));
    document["masked"] = configuration.masked;
    out.result(document,
               [&] { out.line((heading(commit, waiting) + "!\n" + configuration.text).append(kEnd)); });
    note_masked(out, configuration.masked);
    return ExitCode::ok;
}

}  // namespace

void add_show_commit(Command show_group) {
    auto word = std::make_shared<std::string>();
    Command sub = show_group.command("commit", "Print the configuration that a commit recorded, as text",
                                     [word](Output &out) { return show(out, *word); });
    sub.option("REV", *word, kReferenceHelp).required();
    sub.footer(
        "The first lines are comments: who made the commit, when, from where and why. \"aaactl load\" takes "
        "the text.\n"
        "JSON: the members of one commit of \"aaactl history\", and {lines, masked} of \"show "
        "running-config\"\n"
        "Example: aaactl show commit before-upgrade >corp.conf");
}

}  // namespace aaactl
