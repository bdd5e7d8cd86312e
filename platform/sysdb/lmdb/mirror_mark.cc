// SPDX-License-Identifier: Apache-2.0
//
// The mark is in the table of the file's own properties, so it is in no listing and no dump:
// "<cluster> <revision> <prefix>". So is the identity of the node, which stays when the mark goes.

#include "mirror_mark.hpp"

#include <sys/random.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <new>

namespace sysdb_lmdb {
namespace {

constexpr std::string_view kMarkKey = "mirror";
constexpr std::string_view kIdentityKey = "machine";

constinit std::atomic<bool> g_is_writer{false};

std::string text_of(const MirrorMark &mark) {
    return std::to_string(mark.cluster) + ' ' + std::to_string(mark.revision) + ' ' + mark.prefix;
}

bool take_number(std::string_view &text, std::uint64_t &number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data() + text.size() || *end != ' ') {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return true;
}

// One that cannot be read is a mark all the same: of nothing that the cluster has.
MirrorMark parse_mark(std::string_view text) {
    MirrorMark mark;
    if (!take_number(text, mark.cluster) || !take_number(text, mark.revision)) {
        return {};
    }
    mark.prefix = text;
    return mark;
}

// Exhausted memory must not leave the transaction open: it holds the writer's lock.
Result store_all(const Environment &environment, MDB_txn *txn, const std::vector<MirroredItem> &items,
                 ChangedKeys &changed) try {
    changed.clear();
    for (const MirroredItem &item : items) {
        const Result rc = item.deleted ? delete_in(environment, txn, item.key)
                                       : store_in(environment, txn, item.key, item.datatype, item.value);
        if (rc.is_ok()) {
            changed.push_back(item.key);
        } else if (!rc.is_not_found() && !rc.ok_if_unchanged().is_ok()) {
            return rc;
        }
    }
    return Result::ok();
} catch (const std::bad_alloc &) {
    return Result::of_errno(ENOMEM);
}

std::size_t bytes_of(const std::vector<MirroredItem> &items) {
    std::size_t bytes = 0;
    for (const MirroredItem &item : items) {
        bytes += item.value.size();
    }
    return bytes;
}

bool only_shrinks(const std::vector<MirroredItem> &items) {
    for (const MirroredItem &item : items) {
        if (!item.deleted) {
            return false;
        }
    }
    return true;
}

}  // namespace

void become_the_mirrors_writer() {
    g_is_writer.store(true, std::memory_order_relaxed);
}

bool is_mirror_of_others(MDB_txn *txn, MDB_dbi meta) {
    if (g_is_writer.load(std::memory_order_relaxed)) {
        return false;
    }
    MDB_val key = value_of(kMarkKey);
    MDB_val value;
    return mdb_get(txn, meta, &key, &value) == 0;
}

cerrno read_mirror_mark(std::optional<MirrorMark> &mark) {
    mark.reset();
    return Database::instance().read(Tree::kCfg, [&mark](ReadTxn &txn) {
        MDB_val key = value_of(kMarkKey);
        MDB_val value;
        const Result rc = Result::of_lmdb(mdb_get(txn.get(), txn.environment().meta(), &key, &value));
        if (rc.is_ok()) {
            mark = parse_mark(view_of(value));
        }
        return txn.report(rc.ok_if_not_found());
    });
}

cerrno store_mirrored(const std::vector<MirroredItem> &items, const MirrorMark &mark, ChangedKeys &changed,
                      const std::optional<MirrorMark> *before) {
    const auto growth = only_shrinks(items) ? Environment::Growth::kShrinks : Environment::Growth::kGrows;
    const std::string text = text_of(mark);
    return Database::instance().with(Tree::kCfg, [&](Environment &environment) {
        return environment.write(
            growth,
            [&](MDB_txn *txn) {
                MDB_val key = value_of(kMarkKey);
                MDB_val value;
                std::optional<MirrorMark> found;
                if (mdb_get(txn, environment.meta(), &key, &value) == 0) {
                    found = parse_mark(view_of(value));
                }
                if (before != nullptr && found != *before) {
                    return Result::conflict();
                }
                const Result rc = store_all(environment, txn, items, changed);
                value = value_of(text);
                return rc.is_ok() ? Result::of_lmdb(mdb_put(txn, environment.meta(), &key, &value, 0)) : rc;
            },
            bytes_of(items));
    });
}

cerrno remove_mirror_mark() {
    return Database::instance().with(Tree::kCfg, [](Environment &environment) {
        return environment.write(Environment::Growth::kShrinks, [&environment](MDB_txn *txn) {
            MDB_val key = value_of(kMarkKey);
            return Result::of_lmdb(mdb_del(txn, environment.meta(), &key, nullptr)).ok_if_not_found();
        });
    });
}

cerrno read_identity(std::string &identity) {
    identity.clear();
    return Database::instance().read(Tree::kCfg, [&identity](ReadTxn &txn) {
        MDB_val key = value_of(kIdentityKey);
        MDB_val value;
        const Result rc = Result::of_lmdb(mdb_get(txn.get(), txn.environment().meta(), &key, &value));
        if (rc.is_ok()) {
            identity = view_of(value);
        }
        return txn.report(rc.ok_if_not_found());
    });
}

cerrno have_identity(std::string &identity) {
    if (const cerrno rc = read_identity(identity); rc != 0 || !identity.empty()) {
        return rc;
    }
    std::array<std::uint64_t, 2> random{};
    char text[2 * sizeof random + 1];
    if (getrandom(random.data(), sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
        return SYSDB_ERR_STORAGE;
    }
    std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(random[0]),
                  static_cast<unsigned long long>(random[1]));
    return Database::instance().with(Tree::kCfg, [&](Environment &environment) {
        return environment.write(Environment::Growth::kGrows, [&](MDB_txn *txn) {
            MDB_val key = value_of(kIdentityKey);
            MDB_val value = value_of(std::string_view(text));
            const Result rc =
                Result::of_lmdb(mdb_put(txn, environment.meta(), &key, &value, MDB_NOOVERWRITE));
            const bool is_there = rc.is_lmdb(MDB_KEYEXIST);  // and is in `value`
            if (rc.is_ok() || is_there) {
                identity = view_of(value);
            }
            return is_there ? Result::unchanged() : rc;
        });
    });
}

}  // namespace sysdb_lmdb
