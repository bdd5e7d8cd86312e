// SPDX-License-Identifier: Apache-2.0
//
// Dumps: a directory of the system database as text or as JSON, item by item in
// the database's own order. The text form:
//
//     aaactl-dump 1 /cfg/
//     # comments and empty lines are skipped
//     /cfg/gl/aaa/authentication/login/default tuple (10, 4, 0, 0, "corp", "", "", "")
//     /cfg/site/limit u32 15
//     "/cfg/site/with blank" string "text"
//     /cfg/site/key string ********
//     /cfg/site/empty/ directory
//     /cfg/site/other bytes:99 0a0b
//     # end: 6 items
//
// The first line names the version and the directory, which contains every path;
// a dump has one tree. A path with a blank or a quotation mark is quoted. Types,
// values and escapes are those of sysdb_values.hpp. Eight asterisks replace a
// masked value: loading the dump keeps the stored value. Only empty directories
// have a line; others follow from their items. What cannot be read is reported in a
// comment. The last line counts the items: a dump that was cut, by a full disk or a
// lost connection, must not replace what is stored.
//
// JSON: {"format": "aaactl-dump", "version": 1, "directory": PATH, "items":
// [{"path", "type", "value" or "masked": true}]}, and if something cannot be
// read "faults": [{"path", "type", "fault"}].

#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "database/database.hpp"

namespace aaactl {

inline constexpr std::string_view kDumpFormat = "aaactl-dump";
inline constexpr std::string_view kDumpVersion = "1";
inline constexpr std::string_view kDumpEnd = "# end: ";
inline constexpr size_t kDumpProgressStep = 5000;  // items

struct DumpItem {
    std::string path;
    Item item;  // if masked, only the type
    bool masked = false;
    size_t line = 0;    // in the text, or the number in the JSON array
    std::string fault;  // "", or why the stored item cannot be read
};

struct Dump {
    std::string directory;
    std::vector<DumpItem> items;
    bool is_json = false;
    std::string incomplete;  // of a parsed dump: "", or why it may not be all of what was dumped

    // "line 7" or "items[6]", for messages.
    std::string place(const DumpItem &item) const;
};

// Whether the dump is one of everything, with what is hidden.
bool holds_hidden(const Dump &dump);

// "40 %"; 99 % at most, because the next phase follows.
std::string percent_text(size_t done, size_t all);

// Everything that is stored below a directory, unreadable items included; masked unless `secrets`. Shows
// progress: with a percentage if about `expected` items are stored.
Dump read_database(Output &out, Database &database, const std::string &directory, bool secrets,
                   size_t expected = 0);

std::string dump_head(const std::string &directory);
std::string dump_line(const DumpItem &item);
// The last line, with the number of items that can be loaded.
std::string dump_end(const Dump &dump);
Json dump_json(const Dump &dump);
Json dump_item_json(const DumpItem &item);

// One line of the text form, of an item in the directory.
DumpItem parse_dump_line(std::string_view line, const std::string &directory);

// All of a file, or of standard input for "-". Failure without the file's name.
std::string read_whole_file(const std::string &name);

// Why an item of a dump cannot be read.
struct DumpFault {
    size_t line;        // as that of an item
    std::string place;  // "line 7" or "items[6]"
    std::string path;   // "" if it cannot be read either
    std::string text;
};

// Detects text or JSON. Failure(bad_input) names the place of an error; with `faults`, items that cannot be
// read are omitted and reported there.
Dump parse_dump(Output &out, std::string_view text, std::vector<DumpFault> *faults = nullptr);
// The same from a file, or from standard input for "-"; messages name the file.
Dump read_dump(Output &out, const std::string &file, std::vector<DumpFault> *faults = nullptr);

// One difference between a dump and what is stored.
struct Difference {
    const DumpItem *dump;    // null: stored only
    const DumpItem *stored;  // null: in the dump only
};
// In bytewise order of the paths; `directory` bounds what is compared.
std::vector<Difference> compare(const Dump &dump, const Dump &stored, const std::string &directory);

// One item before and after a change; null if it is created or deleted. Secrets are masked unless they are to
// be shown.
struct ItemChange {
    const DumpItem *before;
    const DumpItem *after;
};
// "path", "change" (added, removed, changed), and the two items under the names given.
Json item_change_json(const Output &out, const ItemChange &change, const char *before_name,
                      const char *after_name);
// Lines with '-' for the item before and '+' for the item after the change.
void print_item_change(Output &out, const ItemChange &change);

}  // namespace aaactl
