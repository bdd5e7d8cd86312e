// SPDX-License-Identifier: Apache-2.0
//
// key masters, new-master, rotate, reseal and retire: from the creation of master keys to their removal.

#include <algorithm>
#include <ctime>
#include <memory>

#include "keys/key.hpp"
#include "keys/sealed_keys.hpp"

namespace aaactl {
namespace {

constexpr cerrno kKeysUnusable = 0xa2581000u;
constexpr cerrno kKeysExist = 0xa2581200u;
constexpr cerrno kNoGeneration = 0xa2581600u;  // as platform/control.h has it

std::string file_name() {
    return escaped(aaa_platform_master_keys_path());
}

std::string time_text(int64_t seconds) {
    const auto when = static_cast<time_t>(seconds);
    tm utc{};
    char text[32];
    const bool told = seconds != 0 && gmtime_r(&when, &utc) != nullptr &&
                      std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) != 0;
    return told ? text : "";
}

// ---- masters

bool is_checked() {
    uint32_t checked = 0;
    const cerrno rc = aaa_platform_master_keys_checked(nullptr, &checked);
    if (rc != 0) {
        throw master_keys_failure(rc);
    }
    return checked != 0;
}

ExitCode masters(Output &out) {
    const bool checked = is_checked();
    Json document = {{"file", file_name()}, {"checked", checked}, {"masters", Json::array()}};
    std::vector<std::vector<std::string>> rows;
    for (const auto &key : master_keys()) {
        const std::string created = time_text(key.created);
        document["masters"].push_back({{"generation", key.generation},
                                       {"created", created.empty() ? Json() : Json(created)},
                                       {"newest", key.newest != 0}});
        rows.push_back({generation_text(key.generation), created.empty() ? "unknown" : created,
                        key.newest != 0 ? "in use" : ""});
    }
    out.result(document, [&] { out.table({"GENERATION", "CREATED", ""}, rows); });
    if (!checked) {
        out.note("aaactl: " + file_name() +
                 ": it does not hold the number of its keys, so a cut is not noticed; \"aaactl key rotate\" "
                 "writes it");
    }
    return ExitCode::ok;
}

void add_masters(Command key) {
    Command sub =
        key_command(key, "masters", "List the generations of the master key, oldest first", masters);
    sub.footer(
        "JSON: {file, checked, masters: [{generation, created, newest}]}; no key is shown\nExample: aaactl "
        "key "
        "masters");
}

// ---- new-master

// The file exists. If it is damaged, no key can be added to it.
Failure existing_failure() {
    aaa_platform_master_key_t keys[AAA_PLATFORM_MASTER_KEYS_MAX];
    uint32_t count = 0;
    const cerrno rc = aaa_platform_master_keys_list(nullptr, keys, AAA_PLATFORM_MASTER_KEYS_MAX, &count);
    if (rc != kKeysUnusable) {
        return master_keys_failure(kKeysExist);
    }
    return {ExitCode::failed, file_name() +
                                  ": it exists already; if no key is sealed with it, move it away, then run "
                                  "\"aaactl key new-master\"; it cannot be used as it is"};
}

ExitCode new_master(Output &out) {
    const cerrno rc = aaa_platform_master_keys_create(nullptr);
    if (rc == kKeysExist) {
        throw existing_failure();
    }
    if (rc != 0) {
        throw master_keys_failure(rc);
    }
    out.result({{"file", file_name()}, {"generation", master_keys().back().generation}}, [&] {
        out.line(file_name() + ": created, generation " + generation_text(master_keys().back().generation));
    });
    return ExitCode::ok;
}

void add_new_master(Command key) {
    Command sub =
        key_command(key, "new-master", "Create a file of master keys with one random key", new_master);
    sub.footer(
        "An existing file is not changed; see \"rotate\".\nJSON: {file, generation}\nExample: "
        "aaactl key new-master");
}

// ---- rotate and reseal

// The members "resealed" and, where there are any, "faults".
void add_resealed(Json &document, const Resealed &result) {
    document["resealed"] = Json::array();
    for (const std::string &path : result.changed) {
        document["resealed"].push_back(escaped(path));
    }
    for (const LeftKey &key : result.left) {
        document["faults"].push_back({{"path", escaped(key.path)}, {"fault", key.fault}});
    }
}

void print_resealed(Output &out, const Resealed &result) {
    for (const std::string &path : result.changed) {
        out.line(escaped(path) + ": sealed again");
    }
}

std::string fault_text(const LeftKey &key) {
    return escaped(key.path) + ": " + key.fault;
}

// An item that cannot be read is worse than one that cannot be opened: it may be anything.
ExitCode worst(const std::vector<LeftKey> &left) {
    ExitCode worst = ExitCode::ok;
    for (const LeftKey &key : left) {
        if (!key.in_history && worst != ExitCode::bad_input) {
            worst = key.code;
        }
    }
    return worst;
}

ExitCode note_left(Output &out, const std::vector<LeftKey> &left) {
    for (const LeftKey &key : left) {
        out.note("aaactl: " + fault_text(key) + "; it is unchanged");
    }
    return worst(left);
}

void add_word(std::string &words, const std::string &word) {
    words += (words.empty() ? "" : ", ") + word;
}

// Called before a new generation is added: keys that cannot be opened suggest the wrong file of master keys.
void refuse_left(const std::vector<LeftKey> &left) {
    std::string faults;
    for (const LeftKey &key : left) {
        if (!key.in_history) {
            add_word(faults, fault_text(key));
        }
    }
    if (!faults.empty()) {
        throw Failure(worst(left), faults +
                                       "; nothing was changed (run \"aaactl key rotate\" without --reseal, "
                                       "then \"aaactl key reseal\")");
    }
}

// A failure that also says what was done before it.
Failure half_done(const Failure &failure, const Json &document, const std::string &rotated,
                  const Resealed &result) {
    std::string done = rotated;
    for (const std::string &path : result.changed) {
        add_word(done, escaped(path) + " was sealed again");
    }
    return done.empty() ? failure
                        : Failure(failure.code(), std::string(failure.what()) + "; before that " + done)
                              .with(document);
}

uint32_t rotate_masters() {
    uint32_t generation = 0;
    const cerrno rc = aaa_platform_master_keys_rotate(nullptr, &generation);
    if (rc != 0) {
        throw master_keys_failure(rc);
    }
    return generation;
}

ExitCode rotate(Output &out, const std::vector<std::string> &paths) {
    Json document = {{"file", file_name()}, {"generation", Json()}};
    Resealed result;
    uint32_t generation = 0;
    std::string rotated;
    const auto add_master = [&](const std::vector<LeftKey> &left) {
        refuse_left(left);
        generation = rotate_masters();
        document["generation"] = generation;
        rotated = "generation " + generation_text(generation) + " was added";
    };
    try {
        paths.empty() ? add_master({}) : reseal(paths, add_master, result);
    } catch (const Failure &failure) {
        add_resealed(document, result);
        throw half_done(failure, document, rotated, result);
    }
    add_resealed(document, result);
    out.result(document, [&] {
        out.line(file_name() + ": new keys are sealed with generation " + generation_text(generation));
        print_resealed(out, result);
    });
    return note_left(out, result.left);  // a key that was changed meanwhile
}

void add_rotate(Command key) {
    auto paths = std::make_shared<std::vector<std::string>>();
    Command sub = key_command(key, "rotate", "Add a random master key, to seal with from now on",
                              [paths](Output &out) { return rotate(out, *paths); });
    sub.option("--reseal", *paths,
               "Also seal the stored keys at or below these paths with it, as one change for each tree")
        .type("PATH...");
    sub.footer(
        "The keys in the history of the configuration are sealed again with \"/cfg/\".\n"
        "With --reseal every key is read and opened first; if one cannot be, nothing is changed and no "
        "master "
        "key is\nadded. Exit status 1: a key cannot be opened; 3: a key cannot be read.\n"
        "JSON: {file, generation, resealed: [path], faults: [{path, fault}] if any}\n"
        "Example: aaactl key rotate --reseal /cfg/");
}

ExitCode reseal_stored(Output &out, const std::vector<std::string> &paths) {
    Json document;
    Resealed result;
    try {
        reseal(
            paths, [](const std::vector<LeftKey> &) {}, result);
    } catch (const Failure &failure) {
        add_resealed(document, result);
        throw half_done(failure, document, "", result);
    }
    add_resealed(document, result);
    out.result(document, [&] { print_resealed(out, result); });
    return note_left(out, result.left);
}

void add_reseal(Command key) {
    auto paths = std::make_shared<std::vector<std::string>>();
    Command sub =
        key_command(key, "reseal", "Seal stored keys of earlier generations with the newest master key",
                    [paths](Output &out) { return reseal_stored(out, *paths); });
    sub.option("PATH", *paths, "Items and directories of the database").required();
    sub.footer(
        "A key that cannot be read or opened is named and not changed; the others are sealed again, those\n"
        "of one tree (/cfg/, /oper/) as one change. Exit status 1: a key cannot be opened; 3: a key cannot "
        "be "
        "read.\n"
        "With \"/cfg/\", those in the history of the configuration too.\n"
        "JSON: {resealed: [path], faults: [{path, fault}] if any}\nExample: aaactl key reseal /cfg/");
}

// ---- retire

struct RetireOptions {
    uint32_t generation = 0;
    bool force = false;
};

// Names all keys of the database that could no longer be opened, and all unreadable items that may be such
// keys.
void check_unused(uint32_t generation) {
    Database database;
    std::string users;
    std::string unreadable;
    for (const char *tree : {"/cfg/", "/oper/"}) {
        const SealedItems found = find_sealed(database, tree);
        for (const SealedItem &item : found.items) {
            if (item.generation == generation) {
                add_word(users, escaped(item.path));
            }
        }
        for (const Unreadable &item : found.unreadable) {
            add_word(unreadable, escaped(item.path) + " (" + item.fault + ")");
        }
    }
    const CommitsWithKeys history = commits_with(database, generation);
    for (const std::string &commit : history.commits) {
        add_word(users, commit + " of the history");
    }
    for (const std::string &commit : history.unreadable) {
        add_word(unreadable, escaped(commit) + " (of the history)");
    }
    const std::string which = "generation " + generation_text(generation);
    const std::string doubt =
        unreadable.empty() ? "" : " may be needed by items that cannot be read: " + unreadable;
    if (!history.commits.empty()) {
        users += " (\"aaactl key reseal /cfg/\" seals their keys again)";
    }
    if (!users.empty()) {
        throw Failure(ExitCode::negative, which + " is needed by " + users + "; see \"aaactl key reseal\"" +
                                              (doubt.empty() ? "" : "; it" + doubt));
    }
    if (!doubt.empty()) {
        throw Failure(ExitCode::bad_input, which + doubt + "; correct or delete them, or use --force");
    }
}

ExitCode retire(Output &out, const RetireOptions &options) {
    if (!options.force) {
        check_unused(options.generation);
    }
    const cerrno rc = aaa_platform_master_keys_retire(nullptr, options.generation);
    if (rc != 0) {
        throw rc == kNoGeneration ? Failure(ExitCode::not_found, file_name() + ": there is no generation " +
                                                                     generation_text(options.generation))
                                  : master_keys_failure(rc);
    }
    out.result({{"file", file_name()}, {"retired", options.generation}}, [&] {
        out.line(file_name() + ": generation " + generation_text(options.generation) + " was removed");
    });
    return ExitCode::ok;
}

void add_retire(Command key) {
    auto options = std::make_shared<RetireOptions>();
    Command sub = key_command(key, "retire", "Remove an earlier master key that no stored key needs",
                              [options](Output &out) { return retire(out, *options); });
    sub.option("GENERATION", options->generation, "Its number, 0 to 99").required().between(0, 99);
    sub.flag("--force", options->force, "Do not search the database for keys that need it");
    sub.footer(
        "Exit status 1: stored keys need it; 3: an item that may be such a key cannot be read. Keys outside "
        "of\n"
        "the database are not found: those sealed with this generation are lost.\n"
        "JSON: {file, retired}\nExample: aaactl key retire 1");
}

}  // namespace

void add_key_masters(Command key) {
    add_masters(key);
    add_new_master(key);
    add_rotate(key);
    add_reseal(key);
    add_retire(key);
}

}  // namespace aaactl
