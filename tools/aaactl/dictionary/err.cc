// SPDX-License-Identifier: Apache-2.0
//
// err: what a result code means and what to do about it.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>

#include "aaa/result_codes.h"
#include "cli/commands.hpp"
#include "cli/suggestion.hpp"
#include "dictionary/attributes.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

// The codes of the table of texts have enumerators but for index 0.
constexpr cerrno kEndOfTable = AAA_ERR_END_OF_LIST;

constexpr uint32_t kDatabaseFacility = 0x103;
constexpr uint32_t kEventFacility = 0x240;
constexpr uint32_t kLineFacility = 0x4ae;
constexpr uint32_t kHostFacility = 0x4b0;

struct Advice {
    const char *name;
    cerrno code;
    bool by_library;
    const char *cause;
    const char *remedy;
};

constexpr Advice kAdvice[] = {
#define AAACTL_ADVICE(name, by_library, cause, remedy) {#name, name, by_library != 0, cause, remedy},
#include "dictionary/result_code_advice.def"
#define AAACTL_PLATFORM_ADVICE(name, code, cause, remedy) {#name, code, false, cause, remedy},
#include "dictionary/platform_code_advice.def"
};

static_assert(kAdvice[AAA_ERR_TABLE_ROWS - 1].code == kEndOfTable, "the rows are in the order of the table");

const Advice *advice_for(cerrno code) {
    const auto found = std::find_if(std::begin(kAdvice), std::end(kAdvice),
                                    [&](const Advice &row) { return row.code == code; });
    return found != std::end(kAdvice) ? found : nullptr;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

const Advice *advice_named(const std::string &name) {
    const std::string wanted = upper(name);
    for (const Advice &row : kAdvice) {
        if (wanted == row.name || "AAA_" + wanted == row.name || "AAA_ERR_" + wanted == row.name) {
            return &row;
        }
    }
    return nullptr;
}

// Negative numbers are accepted: programs also print codes with %d.
std::optional<cerrno> code_of(const std::string &text) {
    const bool negative = text.starts_with('-');
    const auto number = number_of(std::string_view(text).substr(negative ? 1 : 0));
    if (!number || *number > (negative ? uint64_t{1} << 31 : uint64_t{UINT32_MAX})) {
        return std::nullopt;
    }
    return static_cast<cerrno>(negative ? 0 - *number : *number);
}

std::string hexadecimal(cerrno code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(code));
    return text;
}

// What the layout of a code says, see aaa/result_codes.h.
std::string severity(cerrno code) {
    const uint32_t severity_class = code >> 30;
    return severity_class == 2   ? "error"
           : severity_class == 0 ? "status"
                                 : "class " + std::to_string(severity_class);
}

uint32_t facility(cerrno code) {
    return code >> 15 & 0x3fffu;
}

uint32_t index_of(cerrno code) {
    return code >> 9 & 0x3fu;
}

// The host knows the texts of every facility. Those of the library come from its
// table, which may not be registered with the host.
std::string text_of(cerrno code) {
    const bool own = facility(code) == AAA_FACILITY && index_of(code) < AAA_ERR_TABLE_ROWS;
    return escaped(own ? cerr_data.table[index_of(code)].text : cerr_strerror(code));
}

Json document_of(cerrno code) {
    const Advice *advice = advice_for(code);
    Json document{{"code", code}, {"hex", hexadecimal(code)}};
    document["name"] = advice != nullptr ? Json(advice->name) : Json();
    document["text"] = text_of(code);
    document["severity"] = severity(code);
    document["facility"] = facility(code);
    document["index"] = index_of(code);
    if (advice != nullptr) {
        document["by_library"] = advice->by_library;
        document["cause"] = advice->cause;
        document["remedy"] = advice->remedy;
    }
    return document;
}

std::string origin(cerrno code, const Advice *advice) {
    if (advice != nullptr && (code == AAA_OK || facility(code) == AAA_FACILITY)) {
        return advice->by_library ? "this library" : "AAA servers and clients; this library never returns it";
    }
    switch (facility(code)) {
        case 0:
            return "the operating system (errno)";
        case kDatabaseFacility:
            return "the system database";
        case kEventFacility:
            return "the event manager";
        case kLineFacility:
            return "lines and terminals of the host platform";
        case kHostFacility:
            return "the host platform";
        default:
            return severity(code) + ", facility " + std::to_string(facility(code));
    }
}

void print(Output &out, cerrno code) {
    const Advice *advice = advice_for(code);
    std::vector<std::vector<std::string>> rows{
        {"code", hexadecimal(code) + " (" + std::to_string(code) + ")"},
        {"name", advice != nullptr ? advice->name : "(none)"},
        {"text", text_of(code)},
        {"from", origin(code, advice)}};
    if (advice != nullptr) {
        rows.push_back({"cause", advice->cause});
        rows.push_back({"remedy", advice->remedy});
    }
    out.table({}, rows);
}

// Names are written with or without their first part, so both forms are compared.
std::string meant_name(const std::string &text) {
    std::vector<std::string> whole;
    std::vector<std::string> bare;
    for (const Advice &row : kAdvice) {
        const std::string name = row.name;
        whole.push_back(name);
        bare.push_back(name.starts_with("AAA_ERR_") ? name.substr(8) : name);
    }
    const std::string meant = did_you_mean(text, whole);
    return meant.empty() ? did_you_mean(text, bare) : meant;
}

cerrno asked_for(const std::string &text) {
    if (const Advice *advice = advice_named(text)) {
        return advice->code;
    }
    if (const auto code = code_of(text)) {
        return *code;
    }
    throw Failure(ExitCode::not_found,
                  "'" + escaped(text) + "' is neither a result code nor the name of one" + meant_name(text));
}

ExitCode explain(const std::vector<std::string> &texts, Output &out) {
    std::vector<cerrno> codes;
    std::transform(texts.begin(), texts.end(), std::back_inserter(codes), asked_for);
    Json document{{"codes", Json::array()}};
    for (const cerrno code : codes) {
        document["codes"].push_back(document_of(code));
    }
    out.result(document, [&] {
        for (size_t i = 0; i < codes.size(); ++i) {
            if (i != 0) {
                out.line("");
            }
            print(out, codes[i]);
        }
    });
    return ExitCode::ok;
}

ExitCode list(Output &out) {
    Json document{{"codes", Json::array()}};
    std::vector<std::vector<std::string>> rows;
    for (const Advice &row : kAdvice) {
        document["codes"].push_back(document_of(row.code));
        rows.push_back({hexadecimal(row.code), row.name, text_of(row.code)});
    }
    out.result(document, [&] { out.table({"CODE", "NAME", "TEXT"}, rows); });
    return ExitCode::ok;
}

}  // namespace

void add_err(Command root) {
    auto texts = std::make_shared<std::vector<std::string>>();
    auto all = std::make_shared<bool>(false);
    Command sub = root.command("err", "Say what a result code means", [texts, all](Output &out) {
        if (*all == !texts->empty()) {
            throw Failure(ExitCode::usage,
                          *all ? "--list takes no codes" : "a code, a name or --list is needed");
        }
        return *all ? list(out) : explain(*texts, out);
    });
    sub.option("CODE", *texts, "Code (decimal, 0x..., also negative) or name; AAA_ERR_ may be omitted");
    sub.flag("--list", *all, "List every code of the library, the platform and the system database");
    sub.footer(
        "Codes of the library, the platform and the system database have names, causes and remedies.\n"
        "JSON: {codes: [{code, hex, name, text, severity, facility, index, by_library, cause, remedy}]};\n"
        "the last three only for codes that have a name.\n\n"
        "  aaactl err 0xa2462e00\n  aaactl err sg_in_use AAA_ERR_TIMEOUT");
}

}  // namespace aaactl
