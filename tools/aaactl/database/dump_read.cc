// SPDX-License-Identifier: Apache-2.0
//
// Reads dumps, text or JSON, and names the place of an error.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unordered_set>

#include "cli/suggestion.hpp"
#include "database/dump.hpp"
#include "database/secret_values.hpp"

namespace aaactl {
namespace {

constexpr size_t kMaxDump = size_t{512} * 1024 * 1024;

Failure malformed(const std::string &why) {
    return {ExitCode::bad_input, why};
}

// ---- text

std::string_view take_word(std::string_view &rest) {
    const size_t first = std::min(rest.find_first_not_of(" \t"), rest.size());
    const size_t end = std::min(rest.find_first_of(" \t", first), rest.size());
    const std::string_view word = rest.substr(first, end - first);
    rest.remove_prefix(end);
    return word;
}

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r");
    return first == std::string_view::npos ? ""
                                           : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string take_path(std::string_view &rest) {
    if (!rest.starts_with('"')) {
        return unescaped(take_word(rest));
    }
    size_t end = 1;
    while (end < rest.size() && rest[end] != '"') {
        end += rest[end] == '\\' ? 2 : 1;
    }
    if (end >= rest.size()) {
        throw malformed("a path lacks its closing quotation mark");
    }
    const std::string path = unescaped(rest.substr(1, end - 1));
    rest.remove_prefix(end + 1);
    return path;
}

// An unknown type is malformed input here, not a wrong command line. On a line with a secret the word may be
// the secret itself, if the type was omitted.
uint32_t parse_type(std::string_view path, std::string_view word) {
    try {
        return type_number(word);
    } catch (const Failure &failure) {
        throw malformed(is_secret_path(path)
                            ? "the word after the path is not a type: PATH TYPE VALUE is expected"
                            : failure.what());
    }
}

void check_item(const DumpItem &item, const std::string &directory) {
    if (item.masked && item.item.type == SYSDB_TYPE_DIRECTORY) {
        throw malformed("a directory has no value");
    }
    if (!item.path.starts_with(directory) ||
        item.path.find('\0') != std::string::npos) {  // a NUL would truncate the path
        throw malformed("path " + escaped(item.path) + " is not in " + escaped(directory));
    }
    if (item.path.ends_with('/') != (item.item.type == SYSDB_TYPE_DIRECTORY)) {
        throw malformed(item.path.ends_with('/') ? "a path that ends in '/' is a directory's"
                                                 : "a directory's path ends in '/'");
    }
}

DumpItem parse_line(std::string_view line, std::string &path) {
    DumpItem item;
    item.path = path = take_path(line);
    const std::string_view type = take_word(line);
    if (type.empty()) {
        throw malformed("PATH TYPE VALUE is expected");
    }
    item.item.type = parse_type(item.path, type);
    const std::string_view value = trimmed(line);
    item.masked = value == kMask;
    if (!item.masked) {
        item.item =
            item_for(item.path, item.item.type, [&] { return item_from_text(item.item.type, value); });
    }
    return item;
}

std::string parse_directory(const std::string &path) {
    try {
        return directory_path(path);
    } catch (const Failure &failure) {
        throw malformed(failure.what());
    }
}

std::string parse_head(std::string_view line) {
    if (take_word(line) != kDumpFormat) {
        throw malformed(
            "this is not a dump: the first line of a dump is \"aaactl-dump 1 DIRECTORY\"; configuration "
            "text, as "
            "\"aaactl show running-config\" prints it, is loaded with \"aaactl load\"");
    }
    if (const std::string_view version = take_word(line); version != kDumpVersion) {
        throw malformed("version " + escaped(version) + " of the dump format is not known");
    }
    line = trimmed(line);
    return parse_directory(take_path(line));
}

template <typename Parse>
auto in_place(const std::string &place, Parse parse) {
    try {
        return parse();
    } catch (const Failure &failure) {
        throw Failure(failure.code(), place + ": " + failure.what());
    }
}

class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text) {}
    // The next line that is neither empty nor a comment.
    bool next(std::string_view &line) {
        while (!rest_.empty()) {
            const size_t end = std::min(rest_.find('\n'), rest_.size());
            line = trimmed(rest_.substr(0, end));
            rest_.remove_prefix(std::min(end + 1, rest_.size()));
            ++number_;
            if (line.starts_with(kDumpEnd)) {
                end_ = line;
            }
            if (!line.empty() && !line.starts_with('#')) {
                return true;
            }
        }
        return false;
    }
    size_t number() const { return number_; }
    // The last line that is an end, or "".
    std::string_view end() const { return end_; }
    size_t bytes_left() const { return rest_.size(); }
    std::string place() const { return "line " + std::to_string(number_); }

  private:
    std::string_view rest_;
    std::string_view end_;
    size_t number_ = 0;
};

class Collector {
  public:
    Collector(Output &out, Dump &dump, std::vector<DumpFault> *faults)
        : out_(out), dump_(dump), faults_(faults) {}

    // `read` adds one item, and sets the path as soon as it is known.
    template <typename Read>
    void in_place(size_t line, const std::string &place, Read read) {
        std::string path;
        try {
            read(path);
        } catch (const Failure &failure) {
            if (faults_ == nullptr) {
                throw Failure(failure.code(), place + ": " + failure.what());
            }
            // A line without a path may begin with a secret.
            faults_->push_back({line, place, path.starts_with(dump_.directory) ? path : "", failure.what()});
        }
    }
    // `done` of `all` has been read, in any unit.
    void add(DumpItem item, size_t line, size_t done, size_t all) {
        check_item(item, dump_.directory);
        if (!paths_.insert(item.path).second) {
            throw malformed("path " + escaped(item.path) + " is given twice");
        }
        item.line = line;
        dump_.items.push_back(std::move(item));
        if (dump_.items.size() % kDumpProgressStep == 0) {
            out_.progress(std::to_string(dump_.items.size()) + " items read, " + percent_text(done, all));
        }
    }

  private:
    Output &out_;
    Dump &dump_;
    std::vector<DumpFault> *faults_;
    std::unordered_set<std::string> paths_;
};

std::string why_incomplete(const Dump &dump, std::string_view end) {
    if (end.empty()) {
        return "the last line, \"" + std::string(kDumpEnd) + "N items\", is missing";
    }
    return end == dump_end(dump) ? ""
                                 : "it has " + counted(dump.items.size(), "item") +
                                       ", and its last line says \"" + escaped(end) + "\"";
}

Dump parse_text(Output &out, std::string_view text, std::vector<DumpFault> *faults) {
    Dump dump;
    Lines lines(text);
    std::string_view line;
    if (!lines.next(line)) {
        throw malformed("the dump is empty");
    }
    dump.directory = in_place(lines.place(), [&] { return parse_head(line); });
    Collector collector(out, dump, faults);
    while (lines.next(line)) {
        collector.in_place(lines.number(), lines.place(), [&](std::string &path) {
            collector.add(parse_line(line, path), lines.number(), text.size() - lines.bytes_left(),
                          text.size());
        });
    }
    dump.incomplete = why_incomplete(dump, lines.end());
    return dump;
}

// ---- JSON

const Json &member(const Json &object, const char *name) {
    if (!object.is_object() || !object.contains(name)) {
        throw malformed(std::string("\"") + name + "\" is missing");
    }
    return object[name];
}

std::string text_member(const Json &object, const char *name) {
    const Json &value = member(object, name);
    if (!value.is_string()) {
        throw malformed(std::string("\"") + name + "\" is not a string");
    }
    return value.text();
}

DumpItem parse_object(const Json &object, std::string &path) {
    DumpItem item;
    item.path = path = unescaped(text_member(object, "path"));
    item.item.type = parse_type(item.path, text_member(object, "type"));
    item.masked = object.contains("masked");
    if (item.masked && (object["masked"] != Json(true) || object.contains("value"))) {
        throw malformed("\"masked\" can only be true, and excludes \"value\"");
    }
    if (!item.masked) {
        const bool directory = item.item.type == SYSDB_TYPE_DIRECTORY;
        const Json &value = directory ? object["value"] : member(object, "value");
        item.item =
            item_for(item.path, item.item.type, [&] { return item_from_json(item.item.type, value); });
    }
    return item;
}

Dump parse_json(Output &out, std::string_view text, std::vector<DumpFault> *faults) {
    const Json document = Json::parse(text);
    if (text_member(document, "format") != kDumpFormat || member(document, "version") != Json(1)) {
        throw malformed(
            "this is not a dump: a dump has the \"format\" \"aaactl-dump\" and the \"version\" 1");
    }
    Dump dump;
    dump.is_json = true;
    dump.directory = parse_directory(unescaped(text_member(document, "directory")));
    const Json &list = member(document, "items");
    if (!list.is_array()) {
        throw malformed("\"items\" is not an array");
    }
    const std::vector<Json> &items = list.elements();
    Collector collector(out, dump, faults);
    for (size_t i = 0; i < items.size(); ++i) {
        collector.in_place(i, "items[" + std::to_string(i) + "]", [&](std::string &path) {
            collector.add(parse_object(items[i], path), i, i + 1, items.size());
        });
    }
    return dump;
}

struct Close {
    void operator()(FILE *file) const {
        if (file != stdin) {
            std::fclose(file);
        }
    }
};

std::string whole_file(const std::string &name) {
    const std::unique_ptr<FILE, Close> file(name == "-" ? stdin : std::fopen(name.c_str(), "re"));
    if (file == nullptr) {
        throw Failure(errno == ENOENT ? ExitCode::not_found : ExitCode::bad_input, std::strerror(errno));
    }
    std::string text;
    char block[65536];
    for (size_t n; (n = std::fread(block, 1, sizeof block, file.get())) > 0;) {
        text.append(block, n);
        if (text.size() > kMaxDump) {
            throw malformed("more than 512 MiB");
        }
    }
    if (std::ferror(file.get()) != 0) {
        throw malformed(std::strerror(errno));
    }
    return text;
}

}  // namespace

DumpItem parse_dump_line(std::string_view line, const std::string &directory) {
    std::string path;
    DumpItem item = parse_line(line, path);
    check_item(item, directory);
    return item;
}

std::string read_whole_file(const std::string &name) {
    return whole_file(name);
}

Dump parse_dump(Output &out, std::string_view text, std::vector<DumpFault> *faults) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text[first] == '{' ? parse_json(out, text, faults)
                                                                 : parse_text(out, text, faults);
}

Dump read_dump(Output &out, const std::string &file, std::vector<DumpFault> *faults) {
    const std::string name = file == "-" ? "standard input" : escaped(file);
    return in_place(name, [&] { return parse_dump(out, whole_file(file), faults); });
}

}  // namespace aaactl
