// SPDX-License-Identifier: Apache-2.0
//
// A commit that waits for its confirmation, in the database of the test.
#pragma once

#include "store/store.hpp"
#include "support/sysdb.hpp"

namespace confirmation_test {

inline history::Now at(std::int64_t milliseconds) {
    history::Now now = history::system_now();
    now.since_boot = milliseconds;
    return now;
}

// Commits the present state; with minutes from `now` on, it waits.
inline std::uint32_t commit(sysdb_conn_t cfg, std::uint32_t minutes, const history::Now &now) {
    const history::Store store(cfg);
    std::uint32_t number = 0;
    history::change(store, [&](const history::Head &head, history::Changes &changes) {
        history::Writing writing(store, head);
        number = writing.add({}, history::read_state(cfg, history::kConfiguration));
        if (minutes != 0) {
            writing.wait(number, head.last, history::deadline_after(minutes, now));
        }
        changes = writing.finish();
    });
    return number;
}

}  // namespace confirmation_test
