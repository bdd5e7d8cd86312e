// SPDX-License-Identifier: Apache-2.0

#include "cluster/join_step.hpp"

#include "cli/output.hpp"
#include "service/control_client.hpp"

namespace aaactl {
namespace {

// The mark says that this node had what this cluster has, below this prefix.
bool is_joined_to(const Json &probe) {
    const Json &mark = probe["mark"];
    return mark.is_object() && text_of(mark, "prefix") == text_of(probe, "prefix") &&
           text_of(mark, "cluster") == text_of(probe, "cluster");
}

// The mark of a command that was interrupted has no cluster yet.
bool is_joined_elsewhere(const Json &probe) {
    const Json &mark = probe["mark"];
    return mark.is_object() && text_of(mark, "cluster") != "0" && !is_joined_to(probe);
}

// The node's configuration has been given up, and kept in a file; the agent has not replaced it yet.
bool is_given_up(const Json &probe) {
    const Json &mark = probe["mark"];
    return mark.is_object() && text_of(mark, "cluster") == "0" && !(mark["importing"] == Json(true)) &&
           text_of(mark, "prefix") == text_of(probe, "prefix");
}

// Two configurations below one key would be each other's items, and an import deletes what it finds.
void check_prefix(const Json &probe) {
    const std::string prefix = text_of(probe, "prefix");
    const auto choose = [](const std::string &outer) {
        return "; choose a --prefix beside it, such as " + escaped(outer) + "-2";
    };
    for (const char *word : {"/cfg/", "/nodes/", "/changed/", "/format/", "/import/"}) {
        if (const size_t at = (prefix + '/').find(word); at != std::string::npos && at != 0) {
            throw Failure(ExitCode::negative, escaped(prefix) + " is within what a configuration below " +
                                                  escaped(prefix.substr(0, at)) + " would be" +
                                                  choose(prefix.substr(0, at)));
        }
    }
    const std::string other = text_of(probe, "neighbour");
    if (!other.empty()) {
        throw Failure(ExitCode::negative, prefix.starts_with(other)
                                              ? escaped(prefix) + " is within the configuration below " +
                                                    escaped(other) + choose(other)
                                              : "the configuration below " + escaped(other) + " is within " +
                                                    escaped(prefix) + choose(prefix));
    }
}

void check_name(const JoinOptions &options, const Json &probe) {
    if (!(probe["name_taken"] == Json(true)) || options.take_name) {
        return;
    }
    const std::string node = escaped(text_of(probe, "node"));
    throw Failure(
        ExitCode::negative,
        "another machine is the node " + node + " of this cluster" +
            (number_of(probe, "name_seen") != 0 ? ", seen " + date_and_time(number_of(probe, "name_seen"))
                                                : "") +
            "; give this one another name: --node NAME; when this machine was installed again, or "
            "replaces the other one, which is gone: --take-name");
}

bool is_imported_by_others(const Json &import, bool complete) {
    return import.is_object() && !(import["own"] == Json(true)) &&
           (import["complete"] == Json(true)) == complete;
}

Step step_for_empty_cluster(const JoinOptions &options, const Json &probe) {
    if (is_imported_by_others(probe["import"], false)) {
        throw Failure(
            ExitCode::negative,
            "node " + escaped(text_of(probe["import"], "node")) + " imports its configuration below " +
                escaped(text_of(probe, "prefix")) +
                " at present; when that has ended, join without --import: --replace takes it, and keeps "
                "this node's own in a file; if it was interrupted, repeat the command there, or this "
                "one with --import in 30 seconds");
    }
    if (!options.import) {
        throw Failure(ExitCode::negative, "the cluster has no configuration below " +
                                              escaped(text_of(probe, "prefix")) +
                                              "; --import makes this node's the cluster's (" +
                                              items_text(number_of(probe, "own_items")) +
                                              "); do that on the node whose configuration all are to have");
    }
    return Step::import;
}

}  // namespace

std::string items_text(uint64_t number) {
    return std::to_string(number) + (number == 1 ? " item" : " items");
}

void check_reached(const Json &probe) {
    const std::string fault = text_of(probe, "fault");
    if (!fault.empty()) {
        const std::string remedy = text_of(probe, "remedy");
        throw Failure(ExitCode::unavailable, escaped(fault) + (remedy.empty() ? "" : "; " + escaped(remedy)));
    }
}

Step step_for(const JoinOptions &options, const Json &probe) {
    const std::string prefix = escaped(text_of(probe, "prefix"));
    check_name(options, probe);
    if (text_of(probe, "configuration") == "other") {
        throw Failure(ExitCode::negative, "the cluster's configuration below " + prefix +
                                              " is of another version of the agent; upgrade this node, or "
                                              "choose another --prefix");
    }
    if (is_joined_elsewhere(probe) && !options.replace) {
        throw Failure(ExitCode::negative, "this node has joined another cluster, or below another prefix: " +
                                              escaped(text_of(probe["mark"], "prefix")) +
                                              "; leave that first: aaactl cluster leave");
    }
    if (is_joined_to(probe)) {
        return text_of(probe, "configuration") == "none" ? step_for_empty_cluster(options, probe)
                                                         : Step::none;
    }
    check_prefix(probe);
    if (text_of(probe, "configuration") == "none") {
        return step_for_empty_cluster(options, probe);
    }
    if (is_given_up(probe) && !options.import) {
        return Step::adopt;
    }
    const uint64_t differing = number_of(probe, "differing");
    const std::string by = is_imported_by_others(probe["import"], true)
                               ? ", which node " + escaped(text_of(probe["import"], "node")) + " has imported"
                               : "";
    const std::string both = "the cluster has a configuration below " + prefix + by + " (" +
                             items_text(number_of(probe, "cluster_items")) +
                             "), and this node another one (" + items_text(number_of(probe, "own_items")) +
                             "; " + std::to_string(differing) + (differing == 1 ? " differs" : " differ") +
                             ")";
    if (differing == 0 || number_of(probe, "own_items") == 0) {
        if (options.import && differing != 0) {
            throw Failure(ExitCode::negative, both + "; join without --import");
        }
        return Step::adopt;
    }
    if (!options.replace) {
        throw Failure(ExitCode::negative,
                      both +
                          "; --replace takes the cluster's, and keeps this node's in a file; to share this "
                          "node's apart from the cluster's, choose another --prefix with --import");
    }
    return Step::replace;
}

}  // namespace aaactl
