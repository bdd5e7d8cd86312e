// SPDX-License-Identifier: Apache-2.0

#include "history/text_diff.hpp"

#include <algorithm>
#include <map>
#include <utility>

#include "running_config/shown.hpp"

namespace aaactl {
namespace {

struct Line {
    std::string group;
    std::string text;   // as it is stored, to compare
    std::string shown;  // with secrets masked

    // A group's own line is compared as one of the group.
    std::pair<std::string, std::string> key() const { return {group, text}; }
};
using Lines = std::vector<Line>;

std::string trimmed(std::string text) {
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

Lines lines_of(const Output &out, const Items &items) {
    const Statements statements = statements_of(items);
    Statements masked = statements;
    mask_secrets(out, masked);
    Lines lines;
    std::string group;
    for (size_t i = 0; i < statements.size(); ++i) {
        const std::string text = text_of({statements[i]});
        const std::string shown = trimmed(text_of({masked[i]}));
        if (std::holds_alternative<GroupStatement>(statements[i].what)) {
            group = trimmed(text);
        } else if (!text.starts_with(' ')) {
            group.clear();
        }
        lines.push_back({group, trimmed(text), shown});
    }
    return lines;
}

// Where each line is. Of equal lines, the last.
std::map<std::pair<std::string, std::string>, size_t> places_of(const Lines &lines) {
    std::map<std::pair<std::string, std::string>, size_t> places;
    for (size_t i = 0; i < lines.size(); ++i) {
        places[lines[i].key()] = i;
    }
    return places;
}

// Both texts have the same order of parts. Between two lines that both have, the changes are told group by
// group, the removed lines of each before the added ones.
class Differences {
  public:
    std::vector<LineChange> of(const Lines &before, const Lines &after) {
        const auto old_places = places_of(before);
        const auto new_places = places_of(after);
        size_t at_new = 0;
        const auto take_new = [&](size_t end) {
            for (; at_new < end; ++at_new) {
                if (!old_places.contains(after[at_new].key())) {
                    gap_.push_back({after[at_new].group, after[at_new].shown, true});
                }
            }
        };
        for (const Line &line : before) {
            const auto found = new_places.find(line.key());
            if (found == new_places.end()) {
                gap_.push_back({line.group, line.shown, false});
                continue;
            }
            take_new(found->second);  // nothing if its place has changed
            end_gap();
            group_ = line.group;
        }
        take_new(after.size());
        end_gap();
        return std::move(changes_);
    }

  private:
    void end_gap() {
        std::vector<std::string> groups{group_};
        std::map<std::string, std::vector<const LineChange *>> removed;
        std::map<std::string, std::vector<const LineChange *>> added;
        for (const LineChange &change : gap_) {
            if (change.group != group_ && !removed.contains(change.group) && !added.contains(change.group)) {
                groups.push_back(change.group);
            }
            (change.added ? added : removed)[change.group].push_back(&change);
        }
        for (const std::string &group : groups) {
            for (const auto *lines : {&removed[group], &added[group]}) {
                for (const LineChange *change : *lines) {
                    changes_.push_back(*change);
                }
            }
        }
        gap_.clear();
    }

    std::string group_;  // of the last line that both have
    std::vector<LineChange> gap_;
    std::vector<LineChange> changes_;
};

}  // namespace

std::vector<LineChange> line_changes(const Output &out, const Items &before, const Items &after) {
    return Differences().of(lines_of(out, before), lines_of(out, after));
}

void print_line_changes(Output &out, const std::vector<LineChange> &changes) {
    std::string group;
    for (const LineChange &change : changes) {
        const bool names_group = !change.group.empty() && change.line == change.group;
        if (!change.group.empty() && change.group != group && !names_group) {
            out.line("  " + change.group);
        }
        group = change.group;
        const bool below = !change.group.empty() && !names_group;
        out.line(out.styled(change.added ? Style::good : Style::bad,
                            (change.added ? "+ " : "- ") + std::string(below ? " " : "") + change.line));
    }
}

Json line_changes_json(const std::vector<LineChange> &changes) {
    Json all = Json::array();
    for (const LineChange &change : changes) {
        Json one = {{"change", change.added ? "added" : "removed"}, {"line", change.line}};
        if (!change.group.empty() && change.line != change.group) {
            one["group"] = change.group;
        }
        all.push_back(std::move(one));
    }
    return all;
}

}  // namespace aaactl
