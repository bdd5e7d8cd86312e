// SPDX-License-Identifier: Apache-2.0
//
// cluster join. Everything that can be wrong is found out before anything is changed. The steps that
// follow are in an order in which each can be the last one, and repeated: the name, the import, settings, the
// mark in the database, the agent. Until the mark, the node changes its own configuration; after it,
// the node reads what it has, and the agent makes it equal to the cluster's.

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <thread>

#include "cli/output_file.hpp"
#include "cluster/agent_program.hpp"
#include "cluster/agent_settings.hpp"
#include "cluster/cluster.hpp"
#include "cluster/join_step.hpp"
#include "database/snapshot.hpp"
#include "service/control_client.hpp"

namespace aaactl {
namespace {

// ---- settings

std::string checked_word(const char *option, const std::string &value) {
    if (value.find_first_of(" \t\r\n#") != std::string::npos) {
        throw Failure(ExitCode::usage, std::string(option) + ": " + escaped(value) + " holds a blank or '#'");
    }
    return value;
}

std::vector<std::string> servers_of(const JoinOptions &options) {
    std::vector<std::string> servers;
    for (const std::string &word : options.servers) {
        for (size_t begin = 0; begin <= word.size();) {
            const size_t end = std::min(word.find(',', begin), word.size());
            if (end != begin) {
                std::string server = checked_word("URL", word.substr(begin, end - begin));
                if (server.ends_with('/')) {  // as browsers show it
                    server.pop_back();
                }
                servers.push_back(std::move(server));
            }
            begin = end + 1;
        }
    }
    return servers;
}

void add_given(std::vector<Setting> &settings, const char *key, const char *option,
               const std::string &value) {
    if (!value.empty()) {
        settings.push_back({key, {checked_word(option, value)}});
    }
}

std::string absolute(const std::string &file) {
    return file.empty() ? file : std::filesystem::absolute(file).lexically_normal().string();
}

std::vector<Setting> given_settings(const JoinOptions &options) {
    std::vector<Setting> settings;
    if (std::vector<std::string> servers = servers_of(options); !servers.empty()) {
        settings.emplace_back("endpoint", std::move(servers));
    }
    add_given(settings, "prefix", "--prefix", options.prefix);
    add_given(settings, "node", "--node", options.node);
    add_given(settings, "user", "--user", options.user);
    add_given(settings, "password-file", "--password-file", absolute(options.password_file));
    add_given(settings, "ca-file", "--ca", absolute(options.ca));
    add_given(settings, "certificate-file", "--cert", absolute(options.certificate));
    add_given(settings, "key-file", "--key", absolute(options.key));
    return settings;
}

void check_readable(const std::string &text) {
    for (const char *key : {"ca-file", "certificate-file", "key-file", "password-file"}) {
        for (const std::string &file : values_of(text, key)) {
            if (const std::string fault = unreadable_for_agent(file); !fault.empty()) {
                throw Failure(ExitCode::negative, fault);
            }
        }
    }
}

// ---- changes

std::string keep_configuration(Output &out, const std::string &settings) {
    char when[32] = "";
    const time_t now = std::time(nullptr);
    tm parts{};
    std::strftime(when, sizeof when, "%Y%m%d-%H%M%S", gmtime_r(&now, &parts));
    const std::string file =
        (std::filesystem::path(settings).parent_path() / (std::string("before-cluster-") + when + ".dump"))
            .string();
    Database database(Database::Use::reading);
    database.show_hidden();
    const Dump dump = read_snapshot(out, database, "/cfg/", true);
    std::string text = dump_head("/cfg/") + '\n';
    for (const DumpItem &item : dump.items) {
        text += (item.fault.empty() ? "" : "# ") + dump_line(item) + '\n';
    }
    const mode_t before = umask(0077);
    try {
        write_file(file, text + dump_end(dump) + '\n');
    } catch (...) {
        umask(before);
        throw;
    }
    umask(before);
    return file;
}

void must_run_agent(const std::string &settings, const char *mode) {
    const Ended ended = run_agent(settings, mode);
    if (ended.status != 0) {
        // With the same status as a refusal that is found out before.
        constexpr int kRefused = 3;
        throw Failure(ended.status == kRefused ? ExitCode::negative : ExitCode::failed, messages_of(ended));
    }
}

// The words of `aaactl cluster status` about what keeps the agent from following.
std::string trouble_of(const Json &status) {
    if (!(status["agent"]["running"] == Json(true))) {
        return "its agent does not run";
    }
    std::string text = "its agent is " + text_of(status, "state");
    for (const char *member : {"trouble", "remedy"}) {
        if (const std::string more = text_of(status, member); !more.empty()) {
            text += (std::string(member) == "remedy" ? "; " : ": ") + more;
        }
    }
    return escaped(text);
}

bool is_equal(const Json &status, const Json &probe) {
    return text_of(status, "state") == "following" &&
           number_of(status, "revision") >= number_of(probe, "revision");
}

Json wait_for_mirror(Output &out, const JoinOptions &options, const Json &probe) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    for (;;) {
        const Json status = ask_agent(options.settings, "--status", options.settings);
        if (is_equal(status, probe) || options.no_wait) {
            out.end_progress();
            return status;
        }
        if (std::chrono::steady_clock::now() >= end) {
            out.end_progress();
            throw Failure(ExitCode::unavailable,
                          "the node has joined, but does not follow the cluster yet: " + trouble_of(status) +
                              "; repeat the command to wait again; \"aaactl cluster leave\" undoes it");
        }
        out.progress("waiting for the agent: " + escaped(text_of(status, "state")));
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
}

void start_agent(Output &out, const JoinOptions &options, bool changed) {
    if (is_managed(options.settings)) {
        manage({"enable", "--quiet", kAgentUnit});
        manage({changed ? "restart" : "start", kAgentUnit});
        return;
    }
    const Json status = ask_agent(options.settings, "--status", options.settings);
    const std::string command =
        agent_program() +
        (options.settings == kAgentSettings ? std::string() : " --config " + escaped(options.settings));
    if (!(status["agent"]["running"] == Json(true))) {
        out.note("aaactl: no service manager runs here; start the agent: " + command);
    } else if (changed) {
        out.note("aaactl: the agent runs with the settings from before; " + how_to_end_agent(status) +
                 "; then start it again: " + command);
    }
}

// A provider that does not know of clusters would refuse every change.
void check_provider() {
    const char *named = secure_getenv("AAA_SYSDB_PROVIDER");
    const std::string path = named != nullptr && *named != '\0' ? named : AAACTL_PKG_ROOT "/lib/libsysdb.so";
    std::error_code error;
    const std::filesystem::path file = std::filesystem::canonical(path, error);
    if (error || file.filename() != "libsysdb-etcd.so") {
        throw Failure(ExitCode::unavailable,
                      escaped(path) +
                          ": not the provider for clusters, so that no program could change the "
                          "configuration; install it: apt-get install aaa-sysdb-agent, then: ln "
                          "-sfT libsysdb-etcd.so " +
                          escaped(path));
    }
}

// ---- the command

ExitCode join(Output &out, const JoinOptions &options) {
    check_provider();
    NewSettings settings(options.settings);
    const std::string text = with_settings(settings.before(), given_settings(options));
    if (values_of(text, "endpoint").empty()) {
        throw Failure(ExitCode::usage,
                      "no server of the cluster is named; say: aaactl cluster join https://HOST:2379");
    }
    note_servers_in_clear(out, values_of(text, "endpoint"));
    settings.write(text);
    const Json probe = ask_agent(settings.path(), "--probe", options.settings);
    check_reached(probe);
    if (options.settings == kAgentSettings) {
        check_readable(text);
    }
    const Step step = step_for(options, probe);
    if (!(probe["takes_many_changes"] == Json(true))) {
        out.note(
            "aaactl: the cluster takes 128 changes at once, its default; with etcd --max-txn-ops 10000 "
            "larger "
            "commits and loads work, too");
    }
    const std::string kept = step == Step::replace ? keep_configuration(out, options.settings) : "";

    const bool changed = text != settings.before();
    // With the settings that are put in place when the cluster has agreed.
    must_run_agent(settings.path(), options.take_name ? "--take-name" : "--claim-name");
    if (step == Step::import) {
        must_run_agent(settings.path(), "--import");
    }
    if (changed) {
        settings.put_in_place();
    }
    if (step == Step::adopt || step == Step::replace) {
        must_run_agent(options.settings, "--adopt");
    }
    start_agent(out, options, changed);
    const Json status = wait_for_mirror(out, options, probe);

    const bool follows = is_equal(status, probe);
    Json document = {{"joined", true},
                     {"node", escaped(text_of(status, "node"))},
                     {"prefix", escaped(text_of(probe, "prefix"))},
                     {"imported", step == Step::import},
                     {"following", follows},
                     {"revision", number_of(status, "revision")}};
    if (!kept.empty()) {
        document["kept"] = escaped(kept);
    }
    out.result(document, [&] {
        if (!kept.empty()) {
            out.line("The configuration that this node had is in " + escaped(kept));
        }
        out.line("The node " + escaped(text_of(status, "node")) + " has joined" +
                 (follows ? ", and has revision " + std::to_string(number_of(status, "revision")) +
                                " of the cluster: " + items_text(number_of(status, "items"))
                          : ""));
    });
    return ExitCode::ok;
}

}  // namespace

void add_cluster_join(Command cluster) {
    auto options = std::make_shared<JoinOptions>();
    Command sub = cluster.command("join", "Share the configuration of a cluster, or make this node's one",
                                  [options](Output &out) { return join(out, *options); });
    sub.option("URL", options->servers,
               "The cluster's servers, https://HOST:PORT, also with commas between them (default: those of "
               "the settings)");
    sub.option("--prefix", options->prefix, "What the cluster's keys begin with (default: /aaa)").type("KEY");
    sub.option("--node", options->node, "This node's name in the cluster (default: the machine's)")
        .type("NAME");
    sub.option("--ca", options->ca, "The certificates that the servers' are checked with").type("FILE");
    sub.option("--cert", options->certificate, "This node's certificate").type("FILE");
    sub.option("--key", options->key, "Its private key").type("FILE");
    sub.option("--user", options->user, "The user of the cluster").type("NAME");
    sub.option("--password-file", options->password_file, "A file with the user's password").type("FILE");
    Argument import = sub.flag("--import", options->import,
                               "Make this node's configuration that of a cluster which has none");
    sub.flag("--replace", options->replace,
             "Replace this node's configuration by the cluster's; a dump of it is kept")
        .excludes(import);
    sub.flag("--take-name", options->take_name,
             "Have the node's name also when another machine has it, which is gone");
    sub.flag("--no-wait", options->no_wait, "Do not wait until this node has what the cluster has");
    sub.option("--timeout", options->seconds, "How many seconds to wait").type("SECONDS").shows_default();
    add_settings_option(sub, options->settings);
    sub.footer(
        "First the servers, their certificates, the user's rights and both configurations are checked; "
        "nothing "
        "is\n"
        "changed when something is wrong. The command may be repeated, also after it was interrupted.\n"
        "Exit status: 0 joined, 1 refused, with the choice to make, 3 wrong settings, 5 no server answers, "
        "or "
        "the agent\n"
        "does not follow yet.\n"
        "JSON: {joined, node, prefix, imported, following, revision, kept: the file with what --replace has "
        "replaced}\n"
        "Examples: aaactl cluster join --import https://10.0.0.1:2379,https://10.0.0.2:2379 --ca "
        "/etc/aaa/etcd-ca.pem\n"
        "          aaactl cluster join https://10.0.0.1:2379 --user aaa --password-file "
        "/etc/aaa/etcd.password");
}

}  // namespace aaactl
