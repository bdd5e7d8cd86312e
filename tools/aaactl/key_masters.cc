// SPDX-License-Identifier: Apache-2.0
//
// key masters, new-master, rotate, reseal and retire: the life of master keys.

#include <algorithm>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>

#include "key.hpp"
#include "sealed_keys.hpp"

namespace aaactl {
namespace {

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

ExitCode masters(Output &out) {
    Json document = {{"file", file_name()}, {"masters", Json::array()}};
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
    return ExitCode::ok;
}

void add_masters(Program &program, CLI::App *key) {
    CLI::App *sub =
        key_command(program, key, "masters", "List the generations of the master key, oldest first", masters);
    sub->footer(
        "JSON: {file, masters: [{generation, created, newest}]}; no key is shown\nExample: aaactl key "
        "masters");
}

// ---- new-master

ExitCode new_master(Output &out) {
    const cerrno rc = aaa_platform_master_keys_create(nullptr);
    if (rc != 0) {
        throw master_keys_failure(rc);
    }
    out.result({{"file", file_name()}, {"generation", master_keys().back().generation}}, [&] {
        out.line(file_name() + ": created, generation " + generation_text(master_keys().back().generation));
    });
    return ExitCode::ok;
}

void add_new_master(Program &program, CLI::App *key) {
    CLI::App *sub =
        key_command(program, key, "new-master", "Make a file of master keys with one random key", new_master);
    sub->footer(
        "A file that is there already is left alone; see \"rotate\".\nJSON: {file, generation}\nExample: "
        "aaactl key new-master");
}

// ---- rotate and reseal

Json escaped_paths(const std::vector<std::string> &paths) {
    Json list = Json::array();
    std::transform(paths.begin(), paths.end(), std::back_inserter(list),
                   [](const std::string &path) { return escaped(path); });
    return list;
}

void print_resealed(Output &out, const std::vector<std::string> &paths) {
    for (const std::string &path : paths) {
        out.line(escaped(path) + ": sealed again");
    }
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
    uint32_t generation = 0;
    std::vector<std::string> changed;
    if (paths.empty()) {
        generation = rotate_masters();
    } else {
        changed = reseal(paths, [&] { generation = rotate_masters(); });
    }
    out.result(
        {{"file", file_name()}, {"generation", generation}, {"resealed", escaped_paths(changed)}}, [&] {
            out.line(file_name() + ": new keys are sealed with generation " + generation_text(generation));
            print_resealed(out, changed);
        });
    return ExitCode::ok;
}

void add_rotate(Program &program, CLI::App *key) {
    auto paths = std::make_shared<std::vector<std::string>>();
    CLI::App *sub = key_command(program, key, "rotate", "Add a random master key, to seal with from now on",
                                [paths](Output &out) { return rotate(out, *paths); });
    sub->add_option(
           "--reseal", *paths,
           "Seal the keys that the database has at or below these paths with it, as one change for each tree")
        ->type_name("PATH...");
    sub->footer(
        "With --reseal every key is opened first; if one cannot be, nothing is done.\n"
        "JSON: {file, generation, resealed: [path]}\nExample: aaactl key rotate --reseal /cfg/");
}

ExitCode reseal_stored(Output &out, const std::vector<std::string> &paths) {
    const auto changed = reseal(paths, [] {});
    out.result({{"resealed", escaped_paths(changed)}}, [&] { print_resealed(out, changed); });
    return ExitCode::ok;
}

void add_reseal(Program &program, CLI::App *key) {
    auto paths = std::make_shared<std::vector<std::string>>();
    CLI::App *sub = key_command(program, key, "reseal",
                                "Seal stored keys of earlier generations with the newest master key",
                                [paths](Output &out) { return reseal_stored(out, *paths); });
    sub->add_option("PATH", *paths, "Items and directories of the database")->required();
    sub->footer("JSON: {resealed: [path]}\nExample: aaactl key reseal /cfg/");
}

// ---- retire

struct RetireOptions {
    uint32_t generation = 0;
    bool force = false;
};

// The keys of the database that could no longer be opened.
void check_unused(uint32_t generation) {
    Database database;
    std::string users;
    for (const char *tree : {"/cfg/", "/oper/"}) {
        for (const SealedItem &item : find_sealed(database, tree)) {
            users += item.generation == generation ? (users.empty() ? "" : ", ") + escaped(item.path) : "";
        }
    }
    if (!users.empty()) {
        throw Failure(ExitCode::negative, "generation " + generation_text(generation) + " is needed by " +
                                              users + "; see \"aaactl key reseal\"");
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
        out.line(file_name() + ": generation " + generation_text(options.generation) + " is gone");
    });
    return ExitCode::ok;
}

void add_retire(Program &program, CLI::App *key) {
    auto options = std::make_shared<RetireOptions>();
    CLI::App *sub =
        key_command(program, key, "retire", "Remove an earlier master key that no stored key needs",
                    [options](Output &out) { return retire(out, *options); });
    sub->add_option("GENERATION", options->generation, "Its number, 0 to 99")
        ->required()
        ->check(CLI::Range(0, 99));
    sub->add_flag("--force", options->force, "Do not look for keys in the database that need it");
    sub->footer(
        "Keys that are kept elsewhere are not found: what was sealed with this generation is lost.\n"
        "JSON: {file, retired}\nExample: aaactl key retire 1");
}

}  // namespace

void add_key_masters(Program &program, CLI::App *key) {
    add_masters(program, key);
    add_new_master(program, key);
    add_rotate(program, key);
    add_reseal(program, key);
    add_retire(program, key);
}

}  // namespace aaactl
