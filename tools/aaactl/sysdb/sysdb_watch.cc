// SPDX-License-Identifier: Apache-2.0
//
// sysdb watch: prints changes as they happen.

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "cli/end_signals.hpp"
#include "sysdb/sysdb.hpp"

namespace aaactl {
namespace {

// "2026-11-22 17:05:03.123", of this machine's time zone.
std::string time_text(const timespec &time) {
    tm parts{};
    char text[64] = "";
    localtime_r(&time.tv_sec, &parts);
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03ld", time.tv_nsec / 1000000);
    return text;
}

class Watch {
  public:
    // With `initial`, what is stored now is printed before the changes; with `since`, the changes after that
    // revision.
    Watch(Output &out, uint64_t limit, bool initial, std::optional<uint64_t> since, bool all)
        : out_(out), limit_(limit), initial_(initial), since_(since), all_(all) {
        if (all) {
            database_.show_hidden();
        }
    }

    void add(const std::string &tree, const std::string &path) {
        const sysdb_conn_t conn = database_.connection(tree);
        sources_.push_back(std::make_unique<Source>(Source{this, tree, path, 0, initial_, std::nullopt}));
        const uint32_t mode =
            SYSDB_NOTIFY_CHANGES | (initial_ ? SYSDB_NOTIFY_INITIAL : 0) | (since_ ? SYSDB_NOTIFY_SINCE : 0);
        const cerrno rc = _sysdb_register_notification(
            conn, path.c_str() + tree.size(), SYSDB_EVENT_SET | SYSDB_EVENT_DELETE, mode, changed,
            sources_.back().get(), since_.value_or(0), nullptr, 0, &sources_.back()->notification);
        if (since_ && rc == SYSDB_ERR_NOT_FOUND) {
            throw Failure(ExitCode::not_found,
                          tree + ": the changes since revision " + std::to_string(*since_) +
                              " are not known: the database has forgotten some of them, or has not reached "
                              "this revision; use --initial instead, which begins with what is stored");
        }
        if (rc != 0) {
            throw database_failure(path, rc);
        }
    }

    uint64_t run(const std::string &what) {
        const EndSignals signals;
        std::vector<pollfd> ready{{signals.fd(), POLLIN, 0}};
        std::vector<sysdb_conn_t> conns{0};
        for (const auto &source : sources_) {
            join(database_.connection(source->tree), conns, ready);
        }
        while (seen_ < limit_ && !out_.is_lost()) {
            out_.progress("Watching " + escaped(what) + ", changes so far: " + std::to_string(seen_) +
                          " (Control-C ends)");
            if (poll(ready.data(), ready.size(), -1) < 0 && errno != EINTR) {
                throw Failure(ExitCode::failed, std::string("waiting failed: ") + std::strerror(errno));
            }
            if (ready[0].revents != 0) {
                break;
            }
            dispatch(conns, ready);
        }
        out_.end_progress();
        return seen_;
    }

  private:
    struct Source {
        Watch *watch;
        std::string tree;
        std::string path;
        uint64_t notification;
        bool awaits_initial;                    // its first notification tells the present state
        std::optional<uint64_t> reads_initial;  // that of a directory has come: at this revision
    };

    static void join(sysdb_conn_t conn, std::vector<sysdb_conn_t> &conns, std::vector<pollfd> &ready) {
        if (std::find(conns.begin(), conns.end(), conn) != conns.end()) {
            return;
        }
        int32_t channel = -1;
        const cerrno rc = sysdb_conn_to_coid(conn, &channel);
        if (rc != 0) {
            throw database_failure("the channel of changes", rc);
        }
        conns.push_back(conn);
        ready.push_back({channel, POLLIN, 0});
    }

    void dispatch(const std::vector<sysdb_conn_t> &conns, const std::vector<pollfd> &ready) {
        for (size_t i = 1; i < conns.size(); ++i) {
            const cerrno rc = ready[i].revents != 0 ? sysdb_dispatch(conns[i]) : 0;
            if (rc != 0) {
                throw database_failure("the channel of changes", rc);
            }
        }
        for (const auto &source : sources_) {
            if (const auto revision = std::exchange(source->reads_initial, std::nullopt)) {
                print_present(*source, *revision);
            }
        }
    }

    // What is read now may be newer than the revision: its changes follow, and are printed again.
    void print_present(const Source &source, uint64_t revision) {
        const auto print = [&](const std::string &path, const Item &item) {
            print_event("present", path, revision, item.type == SYSDB_TYPE_DIRECTORY ? nullptr : &item, "");
        };
        database_.walk(source.path, print, [&](const Unreadable &item) {
            print_event("present", item.path, revision, nullptr, item.fault);
        });
    }

    // Called from C: no exception may leave it. Exhausted memory ends the program.
    static int32_t changed(const void *record, void *source, void * /*context*/) noexcept {
        auto &from = *static_cast<Source *>(source);
        const auto &change = *static_cast<const sysdb_notification_t *>(record);
        const bool initial = std::exchange(from.awaits_initial, false);
        if (initial && from.path.ends_with('/')) {
            from.reads_initial = change.revision;
        } else if (!initial || change.operation != SYSDB_EVENT_DELETE) {  // else it does not exist
            from.watch->print(from, change, initial);
        }
        return 0;
    }

    // The path of the directory instead of an item's: the single changes are no longer known.
    static const char *event_name(const Source &source, const sysdb_notification_t &change) {
        if (change.operation != SYSDB_EVENT_DELETE && source.tree + change.path == source.path &&
            source.path.ends_with('/')) {
            return "reread";
        }
        return change.operation == SYSDB_EVENT_CREATE   ? "create"
               : change.operation == SYSDB_EVENT_DELETE ? "delete"
                                                        : "set";
    }

    void print(const Source &source, const sysdb_notification_t &change, bool initial) {
        if (!all_ && !is_hidden(source.path) && is_hidden(source.tree + change.path)) {
            return;
        }
        const bool has_value =
            change.operation != SYSDB_EVENT_DELETE && change.datatype != SYSDB_TYPE_DIRECTORY;
        const Item item =
            has_value
                ? Item{change.datatype, std::string(static_cast<const char *>(change.value), change.length)}
                : Item{};
        print_event(initial ? "present" : event_name(source, change), source.tree + change.path,
                    change.revision, has_value ? &item : nullptr, "");
    }

    // Without an item, or with the reason why it cannot be read.
    void print_event(const char *event, const std::string &path, uint64_t revision, const Item *item,
                     const std::string &fault) {
        if (seen_ == limit_) {
            return;
        }
        ++seen_;
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        Json document = {
            {"event", event},
            {"time", static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000},
            {"path", escaped(path)},
            {"revision", revision}};
        std::string text = out_.styled(Style::dim, time_text(now)) + " " + event + " " + escaped(path);
        if (item != nullptr) {
            add_value(path, *item, document, text);
        } else if (!fault.empty()) {
            document["fault"] = fault;
            text += " " + fault;
        }
        out_.end_progress();
        out_.event(document, [&] { out_.line(text); });
    }

    // Another process may store bytes that do not fit their type.
    void add_value(const std::string &path, const Item &item, Json &document, std::string &text) {
        try {
            document.update(item_json(out_, path, item));
            text += " " + type_name(item.type) + " " + shown_value(out_, path, item);
        } catch (const Failure &failure) {
            document["fault"] = failure.what();
            text += std::string(" ") + failure.what();
        }
    }

    Output &out_;
    uint64_t limit_;
    bool initial_;
    std::optional<uint64_t> since_;
    bool all_;  // also what is hidden
    uint64_t seen_ = 0;
    std::vector<std::unique_ptr<Source>> sources_;
    Database database_;  // unbound first: no callback outlives its source
};

// Without a trailing '/' the path may name an item and a directory.
void add_path(Watch &watch, const std::string &path) {
    const std::string directory = directory_path(path, true);
    for (const char *tree : {"/cfg/", "/oper/"}) {
        if (directory == "/") {
            watch.add(tree, tree);
        } else if (directory.starts_with(tree)) {
            watch.add(tree, directory);
            if (!path.ends_with('/') && directory != tree) {
                watch.add(tree, path);
            }
        }
    }
}

uint64_t revision_in(const std::string &text) {
    uint64_t revision = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, revision);
    if (error != std::errc() || stop != end) {
        throw Failure(ExitCode::usage, "--since: \"" + escaped(text) + "\" is not a revision, a number");
    }
    return revision;
}

struct WatchOptions {
    std::string path = "/";
    uint64_t count = UINT64_MAX;
    bool initial = false;
    std::optional<std::string> since;
    bool all = false;
};

ExitCode watch(Output &out, const WatchOptions &options) {
    if (options.since && directory_path(options.path, true) == "/") {
        throw Failure(ExitCode::usage,
                      "--since: /cfg/ and /oper/ have revisions of their own; name a path in one of them");
    }
    Watch watch(out, options.count, options.initial,
                options.since ? std::optional(revision_in(*options.since)) : std::nullopt, options.all);
    add_path(watch, options.path);
    watch.run(options.path);
    return ExitCode::ok;
}

}  // namespace

void add_sysdb_watch(Command sysdb) {
    auto options = std::make_shared<WatchOptions>();
    Command sub = sysdb.command("watch", "Print changes as they happen, until Control-C",
                                [options](Output &out) { return watch(out, *options); });
    sub.option("PATH", options->path, "An item, or a directory with everything below (default: /)");
    Argument initial =
        sub.flag("--initial", options->initial, "First print what is stored now, as \"present\"");
    sub.option("--since", options->since,
               "First print the changes after this revision of the tree, as JSON tells it")
        .type("REVISION")
        .excludes(initial);
    sub.flag("-a,--all", options->all, kAllHelp);
    sub.option("-n,--count", options->count, "End after this number of changes")
        .type("NUMBER")
        .between(uint64_t{1}, uint64_t{UINT32_MAX});
    sub.footer(
        "Quick changes of one item may be shown as one; the last state is always shown. \"reread\": more has "
        "changed\n"
        "than the database remembers. --since fails (exit status 4) when it has forgotten some of the "
        "changes; "
        "it\nremembers at least the last 256, by default 65536.\n"
        "JSON, one document a line: {event: present|create|set|delete|reread, time in microseconds since "
        "1970, path,\nrevision, type, value, masked or fault}\n"
        "Example: aaactl sysdb watch --json /cfg/gl/aaa/");
}

}  // namespace aaactl
