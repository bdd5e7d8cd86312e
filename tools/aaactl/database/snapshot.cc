// SPDX-License-Identifier: Apache-2.0
//
// Watches the directory while it is read, to learn of changes.

#include "database/snapshot.hpp"

#include <utility>

namespace aaactl {
namespace {

constexpr int kAttempts = 20;

class ChangeWatch {
  public:
    ChangeWatch(Database &database, const std::string &directory) : conn_(database.connection(directory)) {
        int32_t channel = -1;  // only connections with a channel are notified of changes
        if (sysdb_conn_to_coid(conn_, &channel) == 0) {
            _sysdb_register_notification(conn_, "", SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                         SYSDB_NOTIFY_CHANGES, note, &changed_, 0, nullptr, 0,
                                         &notification_);
        }
    }
    ~ChangeWatch() { sysdb_notification_unregister(conn_, notification_); }
    ChangeWatch(const ChangeWatch &) = delete;
    ChangeWatch &operator=(const ChangeWatch &) = delete;

    // Whether something has changed since the last call, or may have.
    bool changed() {
        const bool told = notification_ == 0 || sysdb_dispatch(conn_) == 0;
        return std::exchange(changed_, false) || !told;
    }

  private:
    static int32_t note(const void *, void *changed, void *) {
        *static_cast<bool *>(changed) = true;
        return 0;
    }

    sysdb_conn_t conn_;
    uint64_t notification_ = 0;
    bool changed_ = false;
};

}  // namespace

Dump read_snapshot(Output &out, Database &database, const std::string &directory, bool secrets,
                   bool *of_one_moment) {
    ChangeWatch watch(database, directory);
    for (int attempt = 1;; ++attempt) {
        Dump dump = read_database(out, database, directory, secrets);
        const bool changed = watch.changed();
        if (of_one_moment != nullptr) {
            *of_one_moment = !changed;
        }
        if (!changed || (attempt == kAttempts && of_one_moment != nullptr)) {
            return dump;
        }
        if (attempt == kAttempts) {
            out.note("aaactl: " + escaped(directory) +
                     " changed again and again while it was read: the items are not of one time");
            return dump;
        }
    }
}

}  // namespace aaactl
