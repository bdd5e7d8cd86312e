// SPDX-License-Identifier: Apache-2.0
//
// Keys are flat and ordered; the entries of a directory are found by skipping. The
// bytes after the directory's key up to the next '/' are a name. After an entry
// that is a directory the search continues at its key with '0' instead of the
// final '/': '0' is the next byte, so no key of that directory follows.

#include "listing.hpp"

#include "items.hpp"

namespace sysdb_lmdb {
namespace {

constexpr char kAfterSlash = '/' + 1;

// The name of the entry that a key's remainder below a directory belongs to.
std::string_view entry_name(std::string_view rest) {
    const auto slash = rest.find('/');
    return slash == std::string_view::npos ? rest : rest.substr(0, slash + 1);
}

// The type that a listing shows for the key under the cursor.
std::uint32_t entry_type(std::string_view name, const MDB_val &value) {
    Item item;
    if (name.ends_with('/')) {
        return SYSDB_TYPE_DIRECTORY;
    }
    return parse_item(value, item) ? item.datatype : SYSDB_TYPE_ANY;
}

// The first possible key after the directory's range.
std::string end_of(std::string_view directory) {
    std::string key(directory);
    key.back() = kAfterSlash;
    return key;
}

class LevelWalk {
  public:
    LevelWalk(const ReadTxn &txn, std::string_view directory) : directory_(directory) {
        rc_ = cursor_.open(txn.get(), txn.environment().items());
        if (rc_.is_ok()) {
            seek(directory);
        }
        exists_ = rc_.is_ok() && view_of(key_).starts_with(directory_);
        if (exists_ && view_of(key_) == directory_) {
            rc_ = cursor_.get(key_, value_, MDB_NEXT);  // the directory's own marker
        }
    }

    // Something is below the directory, or it has a marker.
    bool exists() const { return exists_; }
    Result result() const { return rc_.ok_if_not_found(); }

    bool next(Entry &entry) {
        if (!rc_.is_ok() || !view_of(key_).starts_with(directory_)) {
            return false;
        }
        const std::string_view key = view_of(key_);
        const std::string_view name = entry_name(key.substr(directory_.size()));
        entry = {decode(name), entry_type(name, value_)};
        if (name.ends_with('/')) {
            seek(end_of(key.substr(0, directory_.size() + name.size())));
        } else {
            rc_ = cursor_.get(key_, value_, MDB_NEXT);
        }
        return true;
    }

  private:
    void seek(std::string_view key) {
        key_ = value_of(key);
        rc_ = cursor_.get(key_, value_, MDB_SET_RANGE);
    }

    const std::string_view directory_;
    Cursor cursor_;
    MDB_val key_{};
    MDB_val value_{};
    Result rc_ = Result::ok();
    bool exists_ = false;
};

// The cursor on the last key below the directory; its marker does not count.
Result seek_last(Cursor &cursor, std::string_view directory, MDB_val &key, MDB_val &value) {
    const std::string end = end_of(directory);
    key = value_of(end);
    Result rc = cursor.get(key, value, MDB_SET_RANGE);
    if (rc.is_ok()) {
        rc = cursor.get(key, value, MDB_PREV);
    } else if (rc.is_not_found()) {
        rc = cursor.get(key, value, MDB_LAST);
    }
    if (rc.is_ok() && (!view_of(key).starts_with(directory) || view_of(key) == directory)) {
        rc = Result::of_lmdb(MDB_NOTFOUND);
    }
    return rc;
}

}  // namespace

bool name_matches(std::string_view pattern, std::string_view name) {
    if (pattern.empty()) {
        return true;
    }
    if (name.ends_with('/')) {
        name.remove_suffix(1);
    }
    std::size_t p = 0;
    std::size_t star = std::string_view::npos;  // the last '*' seen, and where its match began
    std::size_t resume = 0;
    for (std::size_t n = 0; n < name.size();) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = n;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

cerrno list_directory(const Key &directory, bool root, std::string_view pattern, Listing &listing) {
    listing.entries.clear();
    if (root && !Database::instance().exists(directory.tree())) {
        return 0;
    }
    return Database::instance().look(directory.tree(), [&](ReadTxn &txn) -> cerrno {
        listing.entries.clear();
        LevelWalk walk(txn, directory.view());
        if (!walk.exists()) {
            const cerrno rc = txn.report(walk.result());
            return rc == 0 && !root ? SYSDB_ERR_NOT_FOUND : rc;
        }
        for (Entry entry; walk.next(entry);) {
            if (name_matches(pattern, entry.name)) {
                listing.entries.push_back(std::move(entry));
            }
        }
        return txn.report(walk.result());
    });
}

cerrno last_entry(const Key &directory, Entry &entry) {
    return Database::instance().look(directory.tree(), [&](ReadTxn &txn) -> cerrno {
        Cursor cursor;
        MDB_val key;
        MDB_val value;
        Result rc = cursor.open(txn.get(), txn.environment().items());
        if (rc.is_ok()) {
            rc = seek_last(cursor, directory.view(), key, value);
        }
        if (!rc.is_ok()) {
            return txn.report(rc);
        }
        const std::string_view name = entry_name(view_of(key).substr(directory.view().size()));
        entry = {decode(name), entry_type(name, value)};
        return 0;
    });
}

}  // namespace sysdb_lmdb
