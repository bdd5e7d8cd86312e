// SPDX-License-Identifier: Apache-2.0
//
// The embedded system database with records that another process has written: the
// input defines records of the items, the change log and the table of watchers, valid
// or not, while this process reads, writes, lists and watches.
//
// A model of the item table predicts the result of every call. After every successful
// dispatch, each change that went through the provider has been reported with its final
// state. No file outside the watcher directory may be touched, for any name of a watcher.
//
// The input is a sequence of steps, an opcode with operands; see step().

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "environment.hpp"
#include "fuzz_input.hpp"
#include "host_process.hpp"
#include "items.hpp"
#include "key.hpp"
#include "platform/sysdb_changes.h"
#include "platform/sysdb_provider.h"
#include "watch_table.hpp"

namespace {

using namespace sysdb_lmdb;

constexpr char kBindPath[] = "/oper/f/";
constexpr uint64_t kLastRevision = ~uint64_t{0};
constexpr unsigned kMostSteps = 200;

const sysdb_provider_t *g_provider = nullptr;

void check_line(uint32_t, const char *, const char *text) {
    REQUIRE(std::strpbrk(text, "\n\r") == nullptr);
}
bool fits(uint32_t datatype, const std::string &value) {
    return (datatype != SYSDB_TYPE_U32 || value.size() == 4) &&
           (datatype != SYSDB_TYPE_STRING || value.ends_with('\0'));
}
int check_value(uint32_t datatype, const void *value, uint32_t length) {
    return fits(datatype, length != 0 ? std::string(static_cast<const char *>(value), length) : "") ? 1 : 0;
}
constexpr sysdb_host_t kHost = {SYSDB_PROVIDER_ABI, sizeof(sysdb_host_t), check_line, check_value};

cerrno in_table(MDB_dbi (Environment::*table)() const, const auto &body) {
    return Database::instance().with(Tree::kOper, [&](Environment &environment) {
        return environment.write(Environment::Growth::kGrows, [&](MDB_txn *txn) {
            return Result::of_lmdb(body(txn, (environment.*table)()));
        });
    });
}

// ---- the model -------------------------------------------------------------------

// An item's stored bytes; the type precedes the value.
struct Record {
    std::string bytes;
    [[nodiscard]] bool has_type() const { return bytes.size() >= 4; }
    [[nodiscard]] uint32_t type() const {
        uint32_t type = 0;
        std::memcpy(&type, bytes.data(), sizeof type);
        return type;
    }
    [[nodiscard]] std::string value() const { return bytes.substr(4); }
};

// A state that was reported to a watcher.
struct Told {
    bool deleted = true;
    uint32_t type = 0;
    std::string value;
};

struct Watcher {
    uint64_t id = 0;
    std::string key;  // of the item, or of the directory with its '/'
    std::map<std::string, Told> told;
    bool read_again = false;

    [[nodiscard]] bool concerns(const std::string &changed) const {
        return key.back() == '/' ? changed.starts_with(key) && changed != key : changed == key;
    }
};

// The path that users see for a key: without the count in a component that sorts
// as a number, and cut at a NUL, which a key may contain and a path may not.
std::string shown(const std::string &key) {
    std::string path;
    std::size_t begin = 0;
    while (begin < key.size()) {
        const std::size_t end = std::min(key.find('/', begin), key.size() - 1) + 1;
        std::string component = key.substr(begin, end - begin);
        const unsigned char count = component.size() > 2 ? static_cast<unsigned char>(component[2]) : 'x';
        if (component.starts_with("0x") && (count < 0x20 || count == 0x7f)) {
            component.erase(2, 1);
        }
        path += component;
        begin = end;
    }
    return path.c_str();
}

class Session {
  public:
    Session() {
        prefix_.assign_bind_path(kBindPath);
        clear_tables();
        REQUIRE(g_provider->bind(&conn_, kBindPath, SYSDB_BIND_PRIVATE) == 0);
    }
    ~Session() { REQUIRE(g_provider->unbind(conn_) == 0); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void step(fuzz::Input &input);
    void finish();

  private:
    static void clear_tables() {
        for (const auto table : {&Environment::items, &Environment::log_table, &Environment::watches}) {
            REQUIRE(in_table(table, [](MDB_txn *txn, MDB_dbi dbi) { return mdb_drop(txn, dbi, 0); }) == 0);
        }
    }

    // The stored key of a path; nothing if the text is not a valid path.
    [[nodiscard]] std::optional<std::string> key_of(const std::string &path, bool directory) const {
        Key key = prefix_;
        const cerrno rc = directory ? key.append_directory(path) : key.append_item(path);
        return rc == 0 ? std::optional<std::string>(std::string(key.view())) : std::nullopt;
    }

    void write_raw_item(fuzz::Input &input);
    void write_raw_change(fuzz::Input &input);
    void write_raw_watch(fuzz::Input &input);
    void set(fuzz::Input &input);
    void erase(fuzz::Input &input);
    void apply(fuzz::Input &input);
    void get(const std::string &path);
    void list(const std::string &path);
    void last(const std::string &path);
    void watch(const std::string &path);
    void unwatch(fuzz::Input &input);
    void dispatch();

    void changed(const std::string &key);
    void check_told(const Watcher &watcher, const std::string &key) const;
    [[nodiscard]] std::vector<std::pair<std::string, uint32_t>> entries(const std::string &directory) const;
    static int32_t take(const void *record, void *watcher, void *session);

    Key prefix_;
    sysdb_conn_t conn_ = 0;
    std::map<std::string, Record> items_;
    std::set<std::string> changed_;  // through the provider, since the last dispatch
    std::set<std::string> logged_;   // may be reported too, but not with the model's state
    std::vector<std::unique_ptr<Watcher>> watchers_;
    bool log_damaged_ = false;    // dispatch may fail
    bool log_exhausted_ = false;  // changes may be refused
};

// ---- steps ------------------------------------------------------------------------

std::string any_path(fuzz::Input &input) {
    constexpr const char *kUsual[] = {"a", "b", "dir/x", "dir/y", "dir/sub/z", "0x2/n", "0x10/n", "0xg/n"};
    const uint8_t which = input.byte();
    return which < 0xc0 ? kUsual[which % 8] : input.text(which - 0xc0u).c_str();
}

std::string any_directory(fuzz::Input &input) {
    constexpr const char *kUsual[] = {"", "dir/", "dir/sub/", "0x2/", "none/", "dir", "", "dir/"};
    const uint8_t which = input.byte();
    return which < 0xc0 ? kUsual[which % 8] : input.text(which - 0xc0u).c_str();
}

// Usually a key below the bind point, sometimes any bytes.
std::string any_key(fuzz::Input &input) {
    const uint8_t which = input.byte();
    if (which < 0xe0) {
        return kBindPath + any_path(input);
    }
    return input.text(which % 32 * 8u + 1);
}

int put(MDB_txn *txn, MDB_dbi table, const std::string &key, const std::string &value) {
    MDB_val k = value_of(key);
    MDB_val v = value_of(value);
    return mdb_put(txn, table, &k, &v, 0);
}

void Session::write_raw_item(fuzz::Input &input) {
    const std::string key = any_key(input);
    const Record record{input.text(input.byte())};
    if (in_table(&Environment::items,
                 [&](MDB_txn *txn, MDB_dbi dbi) { return put(txn, dbi, key, record.bytes); }) == 0) {
        items_[key] = record;
        if (changed_.erase(key) != 0) {  // this write is not reported, but the change before it is
            logged_.insert(key);
        }
    }
}

// Writes a change after the newest one, or far from it.
void Session::write_raw_change(fuzz::Input &input) {
    uint64_t revision = input.byte();
    revision = revision >= 0xf0 ? kLastRevision - (revision - 0xf0) : revision * 97;
    uint32_t operation = input.byte();
    std::string value(reinterpret_cast<const char *>(&operation), sizeof operation);
    value += any_key(input);
    value.resize(std::min<std::size_t>(value.size(), input.byte()));
    const std::string number(reinterpret_cast<const char *>(&revision), sizeof revision);
    if (value.size() > sizeof operation) {
        logged_.insert(value.substr(sizeof operation));
    }
    if (in_table(&Environment::log_table,
                 [&](MDB_txn *txn, MDB_dbi dbi) { return put(txn, dbi, number, value); }) == 0) {
        log_damaged_ = log_damaged_ || value.size() < sizeof operation;
        log_exhausted_ = log_exhausted_ || revision >= kLastRevision - kMostSteps;
    }
}

void Session::write_raw_watch(fuzz::Input &input) {
    constexpr const char *kNames[] = {
        "../../precious", "../precious", "precious", "..", ".", "", "../log", "/"};
    const std::string key = any_key(input);
    const uint8_t which = input.byte();
    const std::string name = which < 0x80 ? kNames[which % 8] : input.text(which - 0x80u);
    in_table(&Environment::watches, [&](MDB_txn *txn, MDB_dbi dbi) { return put(txn, dbi, key, name); });
}

// Records that the log holds a change of the key, which every watcher must see.
void Session::changed(const std::string &key) {
    changed_.insert(key);
}

void Session::set(fuzz::Input &input) {
    const std::string path = any_path(input);
    const uint32_t type = input.byte() % 8;
    const std::string value = input.text(input.byte());
    const std::optional<std::string> key = key_of(path, type == SYSDB_TYPE_DIRECTORY);
    const cerrno rc =
        g_provider->item_set(conn_, path.c_str(), type, value.data(), static_cast<uint32_t>(value.size()), 1);
    if (!key) {
        REQUIRE(rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG);
        return;
    }
    REQUIRE(rc == 0 || log_exhausted_);
    if (rc == 0) {
        const Record record{std::string(reinterpret_cast<const char *>(&type), sizeof type) + value};
        const auto [at, is_new] = items_.try_emplace(*key, record);
        if (is_new || at->second.bytes != record.bytes) {
            at->second = record;
            changed(*key);
        }
    }
}

void Session::erase(fuzz::Input &input) {
    const bool tree = input.byte() % 2 != 0;
    const std::string path = tree ? any_directory(input) : any_path(input);
    const std::optional<std::string> key = key_of(path, tree || path.ends_with('/'));
    const cerrno rc = g_provider->item_delete(conn_, path.c_str(), tree ? SYSDB_DELETE_TREE : 0);
    if (!key) {
        REQUIRE(rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG);
        return;
    }
    std::vector<std::string> gone;
    for (const auto &[name, record] : items_) {
        if (tree ? name.starts_with(*key) : name == *key) {
            gone.push_back(name);
        }
    }
    REQUIRE(rc == (gone.empty() ? SYSDB_ERR_NOT_FOUND : 0) || log_exhausted_);
    if (rc == 0) {
        for (const std::string &name : gone) {
            items_.erase(name);
            changed(name);
        }
    }
}

// ---- several changes as one ---------------------------------------------------------

struct Planned {
    uint32_t operation;
    uint32_t type;
    std::string path;
    std::string value;
    std::string key;

    [[nodiscard]] std::string bytes() const {
        return std::string(reinterpret_cast<const char *>(&type), sizeof type) + value;
    }
    [[nodiscard]] bool keeps() const {
        return operation == SYSDB_CHANGE_SET || (operation == SYSDB_CHANGE_EXPECT && type != SYSDB_TYPE_ANY);
    }
};

using Items = std::map<std::string, Record>;

cerrno apply_one(const Planned &change, const std::vector<Planned> &all, Items &items) {
    const auto found = items.find(change.key);
    const bool same = found != items.end() && found->second.bytes == change.bytes();
    switch (change.operation) {
        case SYSDB_CHANGE_SET:
            items[change.key] = {change.bytes()};
            return 0;
        case SYSDB_CHANGE_DELETE:
            return items.erase(change.key) != 0 ? 0 : SYSDB_ERR_NOT_FOUND;
        case SYSDB_CHANGE_EXPECT:
            return (change.type == SYSDB_TYPE_ANY ? found == items.end() : same) ? 0 : SYSDB_ERR_CONFLICT;
        default:
            std::erase_if(items, [&](const auto &item) {
                return item.first.starts_with(change.key) &&
                       std::none_of(all.begin(), all.end(), [&](const Planned &other) {
                           return other.keeps() && other.key == item.first;
                       });
            });
            return 0;
    }
}

void Session::apply(fuzz::Input &input) {
    std::vector<Planned> planned;
    std::optional<std::size_t> bad_path;
    for (unsigned left = input.byte() % 4u + 1; left > 0; --left) {
        Planned change{input.byte() % 4u + 1, input.byte() % 8u, "", "", ""};
        const bool prune = change.operation == SYSDB_CHANGE_PRUNE;
        change.path = prune ? any_directory(input) : any_path(input);
        change.value = input.text(input.byte() % 32);
        const bool directory =
            prune || (change.operation == SYSDB_CHANGE_DELETE && change.path.ends_with('/'));
        const std::optional<std::string> key = key_of(change.path, directory);
        if (!key && !bad_path) {
            bad_path = planned.size();
        }
        change.key = key.value_or("");
        planned.push_back(change);
    }
    std::vector<sysdb_change_t> changes;
    for (const Planned &change : planned) {
        changes.push_back({change.operation, change.type, change.path.c_str(), change.value.data(),
                           static_cast<uint32_t>(change.value.size())});
    }
    uint32_t failed = 0;
    const auto count = static_cast<uint32_t>(changes.size());
    const cerrno rc = g_provider->apply(conn_, changes.data(), count, &failed);
    if (bad_path) {
        REQUIRE((rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG) && failed == *bad_path);
        return;
    }
    Items after = items_;
    cerrno expected = 0;
    std::size_t at = 0;
    while (expected == 0 && at < planned.size()) {
        expected = apply_one(planned[at++], planned, after);
    }
    REQUIRE(rc == expected || log_exhausted_);
    REQUIRE(rc == 0 || log_exhausted_ || failed == at - 1);
    if (rc != 0) {
        return;
    }
    for (const auto *one : {&items_, &after}) {
        for (const auto &[key, record] : *one) {
            const auto before = items_.find(key);
            const auto now = after.find(key);
            if (before == items_.end() || now == after.end() || before->second.bytes != now->second.bytes) {
                changed(key);
            }
        }
    }
    items_ = after;
}

void Session::get(const std::string &path) {
    uint32_t type = SYSDB_TYPE_ANY;
    void *value = nullptr;
    uint32_t length = 0;
    const cerrno rc = g_provider->item_get(conn_, path.c_str(), &type, &value, &length, 0);
    const std::unique_ptr<void, void (*)(void *)> owner(value, std::free);
    const std::optional<std::string> key = key_of(path, false);
    if (!key) {
        REQUIRE(rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG);
        return;
    }
    const auto found = items_.find(*key);
    if (found == items_.end()) {
        REQUIRE(rc == SYSDB_ERR_NOT_FOUND);
    } else if (!found->second.has_type()) {
        REQUIRE(rc == SYSDB_ERR_BAD_VALUE);
    } else {
        REQUIRE(rc == 0 && type == found->second.type());
        REQUIRE(std::string(static_cast<const char *>(value), length) == found->second.value());
    }
}

// The sorted names below a directory, each directory once.
std::vector<std::pair<std::string, uint32_t>> Session::entries(const std::string &directory) const {
    std::vector<std::pair<std::string, uint32_t>> result;
    std::string before;
    for (const auto &[key, record] : items_) {
        if (!key.starts_with(directory) || key == directory) {
            continue;
        }
        const std::size_t slash = key.find('/', directory.size());
        const std::string name =
            key.substr(directory.size(), slash == std::string::npos ? slash : slash + 1 - directory.size());
        if (name.ends_with('/') && name == before) {
            continue;
        }
        before = name;
        const uint32_t type = record.has_type() ? record.type() : SYSDB_TYPE_ANY;
        result.emplace_back(shown(name), name.ends_with('/') ? SYSDB_TYPE_DIRECTORY : type);
    }
    return result;
}

void Session::list(const std::string &path) {
    uint32_t count = 0;
    sysdb_list_t list = nullptr;
    const cerrno rc = g_provider->list(conn_, path.c_str(), "", &count, &list, 0);
    const std::optional<std::string> key = key_of(path, true);
    if (!key) {
        REQUIRE(rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG);
        return;
    }
    const auto expected = entries(*key);
    const bool exists = !expected.empty() || items_.count(*key) != 0 || path.empty();
    REQUIRE(rc == (exists ? 0 : SYSDB_ERR_NOT_FOUND));
    if (rc != 0) {
        return;
    }
    REQUIRE(count == expected.size());
    for (const auto &[name, type] : expected) {
        char *got = nullptr;
        uint32_t got_type = 0;
        REQUIRE(g_provider->list_next(list, &got, &got_type, 0) == 0);
        REQUIRE(name == got && type == got_type);
    }
    char *none = nullptr;
    REQUIRE(g_provider->list_next(list, &none, nullptr, 0) == SYSDB_ERR_END_OF_LIST && none == nullptr);
    g_provider->list_free(list);
}

void Session::last(const std::string &path) {
    char *name = nullptr;
    uint32_t type = 0;
    const cerrno rc = g_provider->directory_get_last(conn_, path.c_str(), &name, &type, 0);
    const std::unique_ptr<char, void (*)(void *)> owner(name, std::free);
    const std::optional<std::string> key = key_of(path, true);
    if (!key) {
        REQUIRE(rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG);
        return;
    }
    const auto expected = entries(*key);
    REQUIRE(rc == (expected.empty() ? SYSDB_ERR_NOT_FOUND : 0));
    REQUIRE(rc != 0 || (expected.back().first == name && expected.back().second == type));
}

// ---- watching ---------------------------------------------------------------------

int32_t Session::take(const void *record, void *watcher_address, void *) {
    auto &watcher = *static_cast<Watcher *>(watcher_address);
    const auto &notification = *static_cast<const sysdb_notification_t *>(record);
    if (watcher.key.back() == '/' && notification.datatype == SYSDB_TYPE_DIRECTORY) {
        watcher.read_again = true;
    }
    Told told;
    told.deleted = notification.operation == SYSDB_EVENT_DELETE;
    REQUIRE(told.deleted == ((notification.operation & SYSDB_EVENT_SET) == 0));
    told.type = notification.datatype;
    if (notification.value != nullptr) {
        told.value.assign(static_cast<const char *>(notification.value), notification.length);
    }
    watcher.told[notification.path] = told;
    return 0;
}

void Session::watch(const std::string &path) {
    if (watchers_.size() == 8) {
        return;
    }
    dispatch();  // from now on every change is new to all watchers
    const bool directory = path.empty() || path.ends_with('/');
    auto watcher = std::make_unique<Watcher>();
    const cerrno rc =
        g_provider->register_notification(conn_, path.c_str(), SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                          SYSDB_NOTIFY_CHANGES, take, watcher.get(), this, &watcher->id);
    const std::optional<std::string> key = key_of(path, directory);
    if (!key) {
        REQUIRE(rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG);
        return;
    }
    REQUIRE(rc == 0 || log_damaged_);
    if (rc == 0) {
        watcher->key = *key;
        watchers_.push_back(std::move(watcher));
    }
}

void Session::unwatch(fuzz::Input &input) {
    if (watchers_.empty()) {
        return;
    }
    const auto at = watchers_.begin() + input.byte() % static_cast<int>(watchers_.size());
    REQUIRE(g_provider->notification_unregister(conn_, (*at)->id) == 0);
    REQUIRE(g_provider->notification_unregister(conn_, (*at)->id) == SYSDB_ERR_BAD_HANDLE);
    watchers_.erase(at);
}

void Session::check_told(const Watcher &watcher, const std::string &key) const {
    // The path of a key that the provider does not write may be that of another key.
    const auto shown_alike = [&](const std::string &other) {
        return other != key && shown(other) == shown(key);
    };
    if (watcher.read_again || std::any_of(changed_.begin(), changed_.end(), shown_alike) ||
        std::any_of(logged_.begin(), logged_.end(), shown_alike)) {
        return;
    }
    const auto told = watcher.told.find(shown(key.substr(prefix_.view().size())));
    REQUIRE(told != watcher.told.end());
    const auto item = items_.find(key);
    REQUIRE(told->second.deleted == (item == items_.end()));
    if (item == items_.end()) {
        return;
    }
    const Record &record = item->second;
    if (!record.has_type() || !fits(record.type(), record.value())) {
        REQUIRE(told->second.type == SYSDB_TYPE_ANY && told->second.value.empty());
    } else if (record.type() != SYSDB_TYPE_DIRECTORY) {
        REQUIRE(told->second.type == record.type() && told->second.value == record.value());
    }
}

void Session::dispatch() {
    for (const auto &watcher : watchers_) {
        watcher->told.clear();
        watcher->read_again = false;
    }
    const cerrno rc = g_provider->dispatch(conn_);
    REQUIRE(rc == 0 || log_damaged_);
    if (rc != 0) {
        return;
    }
    for (const std::string &key : changed_) {
        for (const auto &watcher : watchers_) {
            if (watcher->concerns(key) && !log_damaged_) {
                check_told(*watcher, key);
            }
        }
    }
    changed_.clear();
    logged_.clear();
}

// ---- all of it ----------------------------------------------------------------------

void Session::step(fuzz::Input &input) {
    switch (input.byte() % 13) {
        case 0:
            return write_raw_item(input);
        case 1:
            return write_raw_change(input);
        case 2:
            return write_raw_watch(input);
        case 3:
        case 4:
            return set(input);
        case 5:
            return erase(input);
        case 6:
            return get(any_path(input));
        case 7:
            return list(any_directory(input));
        case 8:
            return last(any_directory(input));
        case 9:
            return watch(input.byte() % 2 != 0 ? any_path(input) : any_directory(input));
        case 10:
            return input.byte() % 4 == 0 ? unwatch(input) : dispatch();
        case 11:
            return sweep_watchers();
        default:
            return apply(input);
    }
}

void Session::finish() {
    dispatch();
    list("");
    REQUIRE(access(fuzz::HostProcess::instance().path("precious").c_str(), F_OK) == 0);
    REQUIRE(access(fuzz::HostProcess::instance().path("run/precious").c_str(), F_OK) == 0);
}

void prepare() {
    const auto &process = fuzz::HostProcess::instance();
    g_provider = sysdb_provider_table(SYSDB_PROVIDER_ABI, &kHost);
    sysdb_conn_t conn = 0;
    REQUIRE(g_provider->bind(&conn, kBindPath, SYSDB_BIND_PRIVATE) == 0);
    REQUIRE(g_provider->unbind(conn) == 0);
    fuzz::HostProcess::write(process.path("precious"), "");
    fuzz::HostProcess::write(process.path("run/precious"), "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const bool prepared = (prepare(), true);
    static_cast<void>(prepared);
    fuzz::Input input(data, size);
    Session session;
    for (unsigned steps = 0; steps < kMostSteps && !input.empty(); ++steps) {
        session.step(input);
    }
    session.finish();
    return 0;
}
