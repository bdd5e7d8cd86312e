// SPDX-License-Identifier: Apache-2.0
//
// watch-confirm: reverts commits that are not confirmed in time, where no aaad does it.

#include <memory>

#include "cli/commands.hpp"
#include "cli/end_signals.hpp"
#include "history/watchers.hpp"
#include "store/presence.hpp"
#include "store/watcher.hpp"

namespace aaactl {
namespace {

void tell(Output &out, const char *event, const std::string &text) {
    out.event({{"event", event}, {"text", text}}, [&] { out.line(text); });
}

ExitCode watch(Output &out, bool once) {
    history::Watcher::Reports reports;
    reports.waits = [&](const std::string &text) {
        tell(out, "waits", text.empty() ? "no commit waits for its confirmation" : escaped(text));
    };
    reports.reverted = [&](const history::Reverted &reverted) {
        out.event({{"event", "reverted"},
                   {"reverted", reverted.waited},
                   {"commit", reverted.commit},
                   {"target", reverted.base},
                   {"outside", reverted.outside}},
                  [&] {
                      out.line("commit " + std::to_string(reverted.waited) + " was not confirmed in time: " +
                               (reverted.commit == 0
                                    ? "the state of commit " + std::to_string(reverted.base) +
                                          " is in force again" + history::not_recorded(reverted)
                                    : "commit " + std::to_string(reverted.commit) +
                                          " has the state of commit " + std::to_string(reverted.base)));
                  });
        Database database;  // in aaad the configuration's thread does it
        with_history([&] {
            const history::Store store = store_of(database);
            const uint32_t left = reverted.outside != 0 ? reverted.outside : reverted.waited;
            settle_numbers(out, database, items_of(store.items(store.commit(left))),
                           items_of(store.items(store.commit(reverted.base))));
        });
    };
    reports.fails = [&](const std::string &text, bool /*known*/) {
        if (!text.empty()) {
            out.note("aaactl: " + escaped(text) + "; it is tried again");
        }
    };
    history::Watcher watcher(history::caller(), reports);
    if (once) {
        with_history([&] {
            while (watcher.look() == 1) {
            }
        });
        return ExitCode::ok;
    }
    const EndSignals signals;
    const history::Presence presence("aaactl");
    watcher.run(signals.fd());
    return ExitCode::ok;
}

}  // namespace

void add_watch_confirm(Command root) {
    auto once = std::make_shared<bool>(false);
    Command sub = root.command("watch-confirm",
                               "Go back from commits that are not confirmed in time, until "
                               "Control-C",
                               [once](Output &out) { return watch(out, *once); });
    sub.flag("--once", *once, "Look once: revert a commit whose time is over, and end");
    sub.footer(
        "aaad does the same; this is for machines without it. Several may run: one of them reverts.\n"
        "JSON, one document a line: {event: waits, text} or {event: reverted, reverted, commit, target, "
        "outside: the\ncommit of what was changed meanwhile, or 0}\n"
        "Example: aaactl watch-confirm");
}

}  // namespace aaactl
