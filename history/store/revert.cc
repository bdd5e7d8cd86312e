// SPDX-License-Identifier: Apache-2.0

#include "store/revert.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace history {

namespace {

bool is_full(const Error &error) {
    return error.code() == SYSDB_ERR_FULL;
}

// The room that was kept. What a change deletes cannot be written again by the same one, so it is deleted by
// one of its own.
void free_room(const Store &store) {
    change(store, [&](const Head &head, Changes &changes) {
        if (!read_names(store.connection(), room_directory()).empty()) {
            changes = {{SYSDB_CHANGE_EXPECT, head_path(), head.stored.value_or(Item{SYSDB_TYPE_ANY, {}})},
                       {SYSDB_CHANGE_PRUNE, room_directory(), {}}};
        }
    });
}

// Deletes the oldest commit that a revert does not need; false if there is none.
bool free_oldest(const Store &store) {
    bool any = false;
    change(store, [&](const Head &head, Changes &changes) {
        any = false;
        for (const Commit &commit : store.commits()) {
            if (!is_needed(commit, head)) {
                changes = {{SYSDB_CHANGE_PRUNE, commit_directory(commit.number), {}}};
                any = true;
                return;
            }
        }
    });
    return any;
}

// Adds the commit of what was changed without one. `known`: a state that needs none; may be null.
std::uint32_t add_outside(Writing &writing, const State &present, const Items *known, std::uint32_t waiting,
                          const Author &by, const Now &now) {
    if ((known != nullptr && present.items == *known) || writing.is_recorded(present)) {
        return 0;
    }
    Commit outside;
    outside.kind = Kind::outside;
    outside.time = now.wall;
    outside.author = by;
    outside.message = "changed while commit " + std::to_string(waiting) + " waited";
    return writing.add(outside, present);
}

// Without its base a commit cannot be reverted, however often it is tried.
Items base_items(const Store &store, const Waiting &waiting) {
    try {
        if (waiting.base == waiting.commit) {
            throw Error(Error::Why::damaged, "the state before is not known");
        }
        return store.items(store.commit(waiting.base));
    } catch (const Error &error) {
        if (error.why() == Error::Why::database) {
            throw;
        }
        throw Error(error.why(), "commit " + std::to_string(waiting.commit) +
                                     " cannot be reverted: " + error.what() +
                                     "; \"aaactl confirm\" ends the waiting, and keeps what is in force");
    }
}

enum class Record { whole, none };

std::optional<Reverted> try_revert(const Store &store, std::uint32_t waiting, const Author &by,
                                   const std::string &why, const Now &now, const Items *known = nullptr,
                                   Record record = Record::whole) {
    std::optional<Reverted> done;
    change(store, [&](const Head &head, Changes &changes) {
        done.reset();
        if (!head.waiting || head.waiting->commit != waiting) {
            return;
        }
        Reverted result{waiting, 0, 0, head.waiting->base, 0};
        const State present = read_state(store.connection(), kConfiguration);
        const Items wanted = base_items(store, *head.waiting);
        Writing writing(store, head);
        if (record == Record::whole) {
            result.outside = add_outside(writing, present, known, waiting, by, now);
        }
        writing.end_waiting(Ending::reverted, by.name(), now.wall);
        if (record == Record::whole) {
            Commit commit;
            commit.kind = Kind::revert;
            commit.time = now.wall;
            commit.author = by;
            commit.message = why;
            commit.target = result.base;
            result.commit = writing.add(commit, {wanted, present.unreadable});
        }
        changes = changes_between(present, wanted);
        result.changes = changes.size();
        Changes records = writing.finish();
        // The head first: another process that has done it is noticed before anything is compared.
        changes.insert(changes.begin(), std::make_move_iterator(records.begin()),
                       std::make_move_iterator(records.end()));
        done = result;
    });
    return done;
}

// The first changes, about so many; one that is expected to be made stays with what it expects.
Changes first_of(const Changes &all, std::size_t about) {
    std::size_t count = std::min(std::max<std::size_t>(about, 1), all.size());
    while (count < all.size() && all[count - 1].operation == SYSDB_CHANGE_EXPECT) {
        ++count;
    }
    return {all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count)};
}

// What the items are after the changes.
void make(const Changes &changes, Items &items) {
    for (const Change &change : changes) {
        if (change.operation == SYSDB_CHANGE_SET) {
            items[change.path] = change.item;
        } else if (change.operation == SYSDB_CHANGE_DELETE) {
            items.erase(change.path);
        } else if (change.operation == SYSDB_CHANGE_PRUNE) {
            std::erase_if(items, [&](const auto &item) { return item.first.starts_with(change.path); });
        }
    }
}

// A revert in several transactions, for a cluster that takes only so many changes as one. Going back in
// steps is better than not at all. Each step expects that the commit still waits; the last one ends that, so
// it is one revert, even when several watchers make the steps.
class Steps {
  public:
    Steps(const Store &store, std::uint32_t waiting, const Author &by, const Now &now)
        : store_(store), waiting_(waiting), by_(by), now_(now) {}

    std::optional<Reverted> run(const std::string &why) {
        for (int attempt = 1; attempt <= kAttempts;) {
            const std::uint32_t outside = keep_present();
            outside_ = outside != 0 ? outside : outside_;
            const Head head = store_.head();
            if (!head.waiting || head.waiting->commit != waiting_) {
                return std::nullopt;
            }
            // Not what is in force now: what came after the state that is recorded would be deleted unseen.
            const Changes all = changes_between(present_, base_items(store_, *head.waiting));
            const bool is_last = all.size() <= about_;
            const cerrno rc = is_last ? last(why) : step(head, first_of(all, about_));
            if (rc == 0 && is_last) {
                return done_;
            }
            if (rc == SYSDB_ERR_TOO_MANY_CHANGES && about_ > 1) {
                about_ /= 2;
            } else if (rc == SYSDB_ERR_CONFLICT || rc == SYSDB_ERR_NOT_FOUND) {
                ++attempt;
            } else if (rc != 0) {
                fail("", rc);
            }
        }
        fail("", SYSDB_ERR_CONFLICT);
    }

  private:
    // What others change between two steps is in a commit too.
    std::uint32_t keep_present() {
        std::uint32_t outside = 0;
        change(store_, [&](const Head &head, Changes &changes) {
            outside = 0;
            if (!head.waiting || head.waiting->commit != waiting_) {
                return;
            }
            present_ = read_state(store_.connection(), kConfiguration);
            Writing writing(store_, head);
            outside = add_outside(writing, present_, known_ ? &*known_ : nullptr, waiting_, by_, now_);
            if (outside != 0) {
                changes = writing.finish();
            }
        });
        known_ = present_.items;  // not before it is stored: it may have to be tried again
        return outside;
    }

    cerrno step(const Head &head, const Changes &first) {
        Changes changes = {
            {SYSDB_CHANGE_EXPECT, head_path(), head.stored.value_or(Item{SYSDB_TYPE_ANY, {}})}};
        changes.insert(changes.end(), first.begin(), first.end());
        std::size_t failed = 0;
        const cerrno rc = apply(store_.connection(), changes, failed);
        if (rc == 0) {
            make(first, *known_);
            changed_ += first.size();
        }
        return rc;
    }

    cerrno last(const std::string &why) {
        try {
            done_ = try_revert(store_, waiting_, by_, why, now_, known_ ? &*known_ : nullptr);
        } catch (const Error &error) {
            if (error.code() != SYSDB_ERR_TOO_MANY_CHANGES) {
                throw;
            }
            return error.code();
        }
        if (done_) {
            done_->outside = done_->outside != 0 ? done_->outside : outside_;
            done_->changes += changed_;
        }
        return 0;
    }

    const Store &store_;
    std::uint32_t waiting_;
    const Author &by_;
    const Now &now_;
    std::size_t about_ = 96;
    std::size_t changed_ = 0;
    std::uint32_t outside_ = 0;
    State present_;               // as it was recorded last, or known
    std::optional<Items> known_;  // a state that needs no commit of its own
    std::optional<Reverted> done_;
};

}  // namespace

std::string not_recorded(const Reverted &reverted) {
    return reverted.commit != 0 ? "" : "; the database has no room to record that as a commit: enlarge it";
}

bool can_revert(const Store &store, const Waiting &waiting) {
    try {
        base_items(store, waiting);
        return true;
    } catch (const Error &error) {
        if (error.why() == Error::Why::database) {
            throw;
        }
        return false;
    }
}

std::optional<Reverted> revert(const Store &store, std::uint32_t waiting, const Author &by,
                               const std::string &why, const Now &now) {
    try {
        return try_revert(store, waiting, by, why, now);
    } catch (const Error &error) {
        if (error.code() == SYSDB_ERR_TOO_MANY_CHANGES) {
            return Steps(store, waiting, by, now).run(why);
        }
        if (!is_full(error)) {
            throw;
        }
    }
    try {
        free_room(store);
        make_freed_usable(store);
        return try_revert(store, waiting, by, why, now);
    } catch (const Error &error) {
        if (!is_full(error)) {
            throw;
        }
    }
    for (;;) {
        try {
            return try_revert(store, waiting, by, why, now, nullptr, Record::none);
        } catch (const Error &error) {
            if (!is_full(error) || !free_oldest(store)) {
                throw;
            }
        }
    }
}

}  // namespace history
