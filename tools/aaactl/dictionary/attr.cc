// SPDX-License-Identifier: Apache-2.0
//
// attr: the attribute dictionary.

#include <algorithm>
#include <cctype>
#include <memory>

#include "cli/commands.hpp"
#include "dictionary/attributes.hpp"

namespace aaactl {
namespace {

using Rows = std::vector<const aaa_table_row_t *>;

template <typename Wanted>
Rows rows_where(Wanted wanted) {
    Rows rows;
    for (const aaa_table_row_t &row : aaa_table) {
        if (row.name != nullptr && wanted(row)) {
            rows.push_back(&row);
        }
    }
    return rows;
}

Json row_json(const aaa_table_row_t &row) {
    return {{"type", row.type},
            {"name", row.name},
            {"format", format_name(row.format)},
            {"secret", is_secret(row.type)}};
}

Json rows_json(const Rows &rows) {
    Json document{{"attributes", Json::array()}};
    for (const aaa_table_row_t *row : rows) {
        document["attributes"].push_back(row_json(*row));
    }
    return document;
}

void print_rows(Output &out, const Rows &rows) {
    std::vector<std::vector<std::string>> cells;
    for (const aaa_table_row_t *row : rows) {
        cells.push_back({std::to_string(row->type), std::string(format_name(row->format)), row->name,
                         is_secret(row->type) ? "secret" : ""});
    }
    out.table({"TYPE", "FORMAT", "NAME", ""}, cells);
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The byte order of values on the wire.
std::string wire_note(uint32_t type) {
    return travels_as_number(type) ? "4-byte values in network order, others unchanged" : "bytes, unchanged";
}

ExitCode show(const std::string &name, Output &out) {
    const auto type = attribute_type(name);
    if (!type) {
        throw Failure(ExitCode::not_found,
                      "no attribute is called '" + escaped(name) + "'" + meant_attribute(name));
    }
    const aaa_table_row_t *row = attribute_row(*type);
    if (row == nullptr) {
        const char *why = *type == AAA_ATTR_MAX  ? "marks deleted pairs"
                          : *type > AAA_ATTR_MAX ? "is beyond the dictionary"
                                                 : "has no attribute";
        throw Failure(ExitCode::not_found, "type " + std::to_string(*type) + " " + why);
    }
    Json document = row_json(*row);
    document["wire"] = wire_note(*type);
    out.result(document, [&] {
        out.table({}, {{"type", std::to_string(row->type)},
                       {"name", row->name},
                       {"format", std::string(format_name(row->format))},
                       {"wire", wire_note(*type)},
                       {"secret", is_secret(*type) ? "yes, shown only with --show-secrets" : "no"}});
    });
    return ExitCode::ok;
}

ExitCode print(const Rows &rows, Output &out) {
    out.result(rows_json(rows), [&] { print_rows(out, rows); });
    return rows.empty() ? ExitCode::negative : ExitCode::ok;
}

ExitCode search(const std::string &text, Output &out) {
    const Rows rows = rows_where([needle = lower(text)](const aaa_table_row_t &row) {
        return lower(row.name).find(needle) != std::string::npos;
    });
    if (rows.empty() && !out.json()) {
        out.note("aaactl: no attribute's name contains '" + escaped(text) + "'");
        return ExitCode::negative;
    }
    return print(rows, out);
}

ExitCode list(const std::string &format, Output &out) {
    return print(rows_where([&](const aaa_table_row_t &row) {
                     return format.empty() || format_name(row.format) == format;
                 }),
                 out);
}

// ---- Export ---------------------------------------------------------------------

// A field with a comma, a quotation mark or a line break is quoted (RFC 4180).
// The present dictionary has no such name.
std::string csv_field(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

// All rows, also those without an attribute: line N+2 is type N.
void print_csv(Output &out) {
    out.line("type,format,no_entry,name");
    for (const aaa_table_row_t &row : aaa_table) {
        out.line(std::to_string(row.type) + "," + std::to_string(row.format) + "," +
                 std::to_string(row.no_entry) + "," + csv_field(row.name != nullptr ? row.name : ""));
    }
}

ExitCode export_all(const std::string &format, Output &out) {
    const Rows rows = rows_where([](const aaa_table_row_t &) { return true; });
    if (format == "json" || out.json()) {
        out.line(rows_json(rows).dump(2));
    } else if (format == "csv") {
        print_csv(out);
    } else {
        print_rows(out, rows);
    }
    return ExitCode::ok;
}

void add_show(Command parent) {
    auto name = std::make_shared<std::string>();
    Command sub =
        parent.command("show", "Show one attribute", [name](Output &out) { return show(*name, out); });
    sub.option("ATTRIBUTE", *name, "Name or type; AAA_ and _ATTR may be omitted").required();
    sub.footer(
        "JSON: {type, name, format, secret, wire}.\n\n  aaactl attr show username\n  aaactl attr show 257");
}

void add_search(Command parent) {
    auto text = std::make_shared<std::string>();
    Command sub = parent.command("search", "Attributes whose names contain a text",
                                 [text](Output &out) { return search(*text, out); });
    sub.option("TEXT", *text, "Part of a name, in any case").required();
    sub.footer(
        "Exit status 1 when there is none.\nJSON: {attributes: [{type, name, format, secret}]}.\n\n  aaactl "
        "attr search tunnel");
}

void add_list(Command parent) {
    auto format = std::make_shared<std::string>();
    Command sub =
        parent.command("list", "All attributes", [format](Output &out) { return list(*format, out); });
    sub.also({"ls"});
    sub.option("--type", *format, "Only those whose values have this format")
        .one_of(format_names())
        .type("FORMAT");
    sub.footer("JSON: {attributes: [{type, name, format, secret}]}.\n\n  aaactl attr list --type address");
}

void add_export(Command parent) {
    auto format = std::make_shared<std::string>("text");
    Command sub = parent.command("export", "The dictionary for other programs",
                                 [format](Output &out) { return export_all(*format, out); });
    sub.option("--format", *format, "text, json or csv").one_of({"text", "json", "csv"}).type("FORMAT");
    sub.footer(
        "CSV has a line for every type, also for those without an attribute; its formats are\n"
        "0 string, 1 integer, 2 binary, 3 address.\nJSON, also with --format json: {attributes: [{type, "
        "name, format, secret}]}.\n\n  aaactl attr export --format csv > attributes.csv");
}

}  // namespace

void add_attr(Command root) {
    Command parent = root.group("attr", "The attribute dictionary");
    add_show(parent);
    add_search(parent);
    add_list(parent);
    add_export(parent);
}

}  // namespace aaactl
