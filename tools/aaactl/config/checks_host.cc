// SPDX-License-Identifier: Apache-2.0
//
// The lists of lines, and server keys.

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <unordered_set>

#include "aaa/names.h"
#include "aaa/server_keys.h"
#include "cli/secret_input.hpp"
#include "config/advice.hpp"
#include "config/checks.hpp"
#include "config/references.hpp"
#include "config/server_keys.hpp"
#include "database/schema.hpp"
#include "database/secret_values.hpp"
#include "platform/cerr.h"
#include "platform/control.h"

namespace aaactl {
namespace {

// ---- lines

struct LineCheck {
    Database &database;
    Findings &findings;
    std::string file;

    void add(uint32_t number, const char *code, const std::string &text, const std::string &remedy) {
        findings.push_back({Severity::error, code, file + ":" + std::to_string(number), text, remedy});
    }
};

// The service that a user of the line will ask for is not known: one service has to have the list.
bool some_service_has(Database &database, uint32_t function, const std::string &list) {
    const std::string word = aaa_function_to_string(function);
    const auto services = service_words(database, word);
    return std::any_of(services.begin(), services.end(), [&](const std::string &service) {
        const auto names = list_names(database, word, service);
        return std::find(names.begin(), names.end(), list) != names.end();
    });
}

void check_row(LineCheck &check, const aaa_platform_line_rule_t &rule) {
    if (rule.defect != nullptr) {
        check.add(rule.number, "malformed-row", std::string(rule.defect) + "; the row is ignored",
                  "correct the row");
        return;
    }
    for (uint32_t function = AAA_FUNC_AUTHEN; function <= AAA_FUNC_ACCT; ++function) {
        // A row for every kind does not concern a function that has no lists.
        const bool concerned = rule.kind == function ||
                               (rule.kind == AAA_PLATFORM_LINE_EVERY_KIND &&
                                !service_words(check.database, aaa_function_to_string(function)).empty());
        if (concerned && !some_service_has(check.database, function, rule.list_name)) {
            check.add(rule.number, "unknown-list",
                      std::string("no service has a list \"") + escaped(rule.list_name) + "\" for " +
                          aaa_function_to_string(function) + ": requests from " + escaped(rule.pattern) +
                          " fail",
                      "create the list, or name another");
        }
    }
}

// Exceptions do not pass through the platform's code.
struct RowVisit {
    LineCheck *check;
    std::exception_ptr failure;

    static int32_t visit(const aaa_platform_line_rule_t *rule, void *context) {
        auto *self = static_cast<RowVisit *>(context);
        try {
            check_row(*self->check, *rule);
            return 0;
        } catch (...) {
            self->failure = std::current_exception();
            return 1;
        }
    }
};

// ---- keys

struct MasterKeys {
    cerrno rc = 0;
    std::vector<uint32_t> generations;
};

MasterKeys master_keys() {
    MasterKeys keys;
    aaa_platform_master_key_t all[AAA_PLATFORM_MASTER_KEYS_MAX];
    uint32_t number = 0;
    keys.rc = aaa_platform_master_keys_list(nullptr, all, AAA_PLATFORM_MASTER_KEYS_MAX, &number);
    for (uint32_t i = 0; keys.rc == 0 && i < std::min(number, AAA_PLATFORM_MASTER_KEYS_MAX); ++i) {
        keys.generations.push_back(all[i].generation);
    }
    return keys;
}

// Why a sealed key cannot be used.
Finding unusable_key(const std::string &path, const std::string &sealed) {
    const MasterKeys keys = master_keys();
    const std::string file = escaped(aaa_platform_master_keys_path());
    if (keys.rc != 0) {
        return {Severity::error, "sealed-key", path,
                "the key cannot be opened: " + file + ": " + escaped(cerr_strerror(keys.rc)),
                "to see why and what to do, say as root: runuser -u aaad -- aaactl key masters; or set the "
                "key again"};
    }
    const auto generation = static_cast<uint32_t>((sealed[0] - '0') * 10 + (sealed[1] - '0'));
    if (std::find(keys.generations.begin(), keys.generations.end(), generation) == keys.generations.end()) {
        return {Severity::error, "sealed-key", path,
                "the key is sealed with master key generation " + sealed.substr(0, 2) + ", which is not in " +
                    file,
                "restore that generation, or set the key again"};
    }
    if (opens(sealed)) {
        return {Severity::error, "sealed-key", path, "the key has characters that are not printable ASCII",
                "set another key, here and at the server"};
    }
    return {Severity::error, "sealed-key", path,
            "the key does not decrypt: it was changed after it was sealed, or sealed with another file of "
            "master keys",
            "set the key again"};
}

void check_key(const std::string &path, std::string text, Findings &findings) {
    if (!looks_sealed(text)) {
        findings.push_back({Severity::warning, "clear-key", path, "a key is stored in clear text",
                            seal_item("seal it", path, text)});
    } else if (validate_encrypted_password(text.data()) != AAA_OK) {
        findings.push_back(unusable_key(path, text));
        forget_log_lines();  // the finding says it
    }
    wipe(text);
}

// What the first line of a file of master keys is.
bool holds_master_keys(const std::filesystem::path &file) {
    std::string line;
    std::ifstream stream(file);
    return std::getline(stream, line) && line == "aaa-master-keys 1";
}

// A change that was killed may have left a file beside the one that is used.
void check_other_master_keys(const std::filesystem::path &used, Findings &findings) {
    std::error_code ignored;
    const std::string prefix = used.filename().string() + ".";
    const std::filesystem::path directory = used.has_parent_path() ? used.parent_path() : ".";
    for (const auto &entry : std::filesystem::directory_iterator(directory, ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(prefix) && entry.is_regular_file(ignored) && holds_master_keys(entry.path())) {
            findings.push_back(
                {Severity::warning, "other-keys", entry.path().string(),
                 "it holds master keys and is not used: a killed change has left it, or it is "
                 "a copy",
                 "keep the copy elsewhere, or remove it: rm " + shell_word(entry.path().string())});
        }
    }
}

// A file that is missing, or that this user may not read, is reported with the keys that need it.
void check_master_keys(Findings &findings) {
    const std::string file = aaa_platform_master_keys_path();
    if (access(file.c_str(), R_OK) != 0) {
        return;
    }
    uint32_t checked = 1;
    const cerrno rc = aaa_platform_master_keys_checked(nullptr, &checked);
    if (rc != 0) {
        findings.push_back({Severity::error, "unusable-file", file,
                            escaped(cerr_strerror(rc)) + ": no key can be sealed or opened",
                            "\"aaactl key masters\" says what is wrong with it"});
    } else if (checked == 0) {
        findings.push_back(
            {Severity::warning, "unchecked-file", file,
             "it does not hold the number of its keys: if it is cut at the end of a line, that "
             "is not noticed",
             "let it be written again: aaactl key rotate"});
    }
    check_other_master_keys(file, findings);
}

// The places that findings name. They are indexed, because the check of the items asks for each item and some
// faults occur once for each of thousands of groups.
class KnownPlaces {
  public:
    explicit KnownPlaces(const Findings &findings) : findings_(findings) {}

    // A finding of a group or an ordinal that nothing reads is enough for all below it.
    bool contain(const std::string &path) {
        take_new_ones();
        if (places_.contains(path)) {
            return true;
        }
        for (size_t slash = path.find('/'); slash != std::string::npos && !trees_.empty();
             slash = path.find('/', slash + 1)) {
            if (trees_.contains(path.substr(0, slash + 1))) {
                return true;
            }
        }
        return false;
    }

  private:
    void take_new_ones() {
        for (; taken_ < findings_.size(); ++taken_) {
            const Finding &finding = findings_[taken_];
            const bool is_whole = finding.code == "reserved-name" || finding.code == "malformed-server";
            places_.insert(finding.path);
            if (is_whole && finding.path.ends_with('/')) {
                trees_.insert(finding.path);
            }
        }
    }

    const Findings &findings_;
    size_t taken_ = 0;
    std::unordered_set<std::string> places_;
    std::unordered_set<std::string> trees_;
};

// What "sysdb set" refuses, and no finding names yet: an earlier version, --force or another program has
// stored it.
void check_form(const std::string &path, const Item &item, const ConfigPaths &config, KnownPlaces &known,
                Findings &findings) {
    if (known.contain(path)) {
        return;
    }
    const std::string remedy = delete_item("set it again, or delete it", path);
    const std::string fault = schema_fault(path, item);
    if (fault.empty()) {
        const std::string missing = reference_fault(path, item, config);
        if (!missing.empty()) {
            findings.push_back({Severity::warning, "dangling-reference", path, missing, remedy});
        }
    } else if (!is_aaa_tree(path)) {
        findings.push_back({Severity::warning, "unread-item", path, fault, remedy});
    } else {
        const bool is_setting = !setting_fault(path, item).empty();
        findings.push_back(
            {Severity::error, is_setting ? "malformed-setting" : "malformed-item", path, fault, remedy});
    }
}

// Outside of the AAA configuration only sealed keys are checked: texts that look sealed and whose path names
// a secret.
void check_keys_elsewhere(Database &database, Findings &findings) {
    const auto visit = [&](const std::string &path, const Item &item) {
        if (!path.starts_with(kConfigRoot) && item.type == SYSDB_TYPE_STRING && is_secret_path(path) &&
            looks_sealed(text_of(item))) {
            check_key(path, text_of(item), findings);
        }
    };
    for (const char *tree : {"/cfg/", "/oper/"}) {
        database.walk(tree, visit, [](const Unreadable &) {});
    }
}

}  // namespace

void check_lines(Database &database, Findings &findings) {
    LineCheck check{database, findings, aaa_platform_line_rules_path()};
    RowVisit visit{&check, nullptr};
    const cerrno rc = aaa_platform_line_rules(RowVisit::visit, &visit);
    if (visit.failure) {
        std::rethrow_exception(visit.failure);
    }
    if (rc != 0) {
        findings.push_back({Severity::error, "unusable-file", check.file,
                            escaped(cerr_strerror(rc)) + ": requests that name no list fail",
                            "correct its owner, mode and size; look: ls -l " + shell_word(check.file)});
    }
}

void check_key_at(Database &database, const std::string &path, Findings &findings) {
    std::string fault;
    const auto item = database.find(path, fault);
    if (item && item->type == SYSDB_TYPE_STRING) {
        check_key(path, text_of(*item), findings);
    }
}

void check_items(Database &database, Findings &findings) {
    ConfigPaths config = config_paths(database);
    config.checks_names = false;  // a finding of the group
    KnownPlaces known(findings);
    const auto visit = [&](const std::string &path, const Item &item) {
        if (item.type == SYSDB_TYPE_STRING && is_secret(path, item) && !text_of(item).empty()) {
            check_key(path, text_of(item), findings);
        }
        check_form(path, item, config, known, findings);
    };
    const auto unreadable = [&](const Unreadable &item) {
        if (!known.contain(item.path)) {
            findings.push_back({Severity::error, "unreadable-item", item.path,
                                item.fault + ": no program can read it",
                                delete_item("set it again, or delete it", item.path)});
        }
    };
    database.walk(kConfigRoot, visit, unreadable);
    database.walk(
        kGroupMaps, [](const std::string &, const Item &) {}, unreadable);
    check_keys_elsewhere(database, findings);
    check_master_keys(findings);
}

}  // namespace aaactl
