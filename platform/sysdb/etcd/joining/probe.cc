// SPDX-License-Identifier: Apache-2.0

#include "joining/probe.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

#include <nlohmann/json.hpp>

#include "keys/plan.hpp"
#include "keys/remedy.hpp"
#include "mirror_mark.hpp"

namespace sysdb_etcd {
namespace {

using Json = nlohmann::json;

constexpr net::Time kPause = 200 * net::kMillisecond;
constexpr std::uint32_t kMostKeys = 1024;
constexpr std::uint32_t kLeastKeys = 16;
constexpr std::uint32_t kFew = 8;
// More than a server takes as one transaction by default, 128.
constexpr int kMany = 512;
constexpr unsigned kLeastMinor = 4;

std::string hex(std::uint64_t number) {
    char text[20];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(number));
    return text;
}

// The gateway of older servers has other paths.
bool is_too_old(const std::string &version) {
    unsigned major = 0;
    unsigned minor = 0;
    const char *const end = version.data() + version.size();
    const auto [dot, error] = std::from_chars(version.data(), end, major);
    if (error != std::errc() || dot == end || *dot != '.' ||
        std::from_chars(dot + 1, end, minor).ec != std::errc()) {
        return true;
    }
    return major < 3 || (major == 3 && minor < kLeastMinor);
}

// A revision that no key has: the transaction is checked as a whole, and never made.
constexpr std::uint64_t kNoRevision = std::uint64_t{1} << 62;

}  // namespace

Probe::Probe(net::Loop &loop, Client &client, Names names, std::string machine)
    : loop_(loop),
      client_(client),
      names_(std::move(names)),
      machine_(std::move(machine)),
      pause_(loop, [this] { (this->*next_step_)(); }),
      servers_(client.endpoints().size()),
      limit_(kMostKeys),
      next_(names_.first()) {}

void Probe::start(net::Time until, std::function<void()> done) {
    until_ = until;
    done_ = std::move(done);
    ask_servers();
}

void Probe::end(std::string fault) {
    fault_ = std::move(fault);
    std::exchange(done_, nullptr)();
}

void Probe::again(void (Probe::*step)(), const Reply &reply) {
    if (reply.kind == Reply::Kind::kRefused || net::Loop::clock() >= until_) {
        end(client_.endpoint_name() + ": " + reply.reason);
        return;
    }
    next_step_ = step;
    pause_.set(net::Loop::clock() + kPause);
}

void Probe::ask_servers() {
    open_ = servers_.size();
    for (std::size_t i = 0; i < servers_.size(); ++i) {
        client_.call_at(i, kStatusPath, "{}", [this, i](const Reply &reply) { take_status(i, reply); });
    }
}

void Probe::take_status(std::size_t number, const Reply &reply) {
    Server &server = servers_[number];
    StatusReply status;
    if (reply.kind != Reply::Kind::kOk || !parse_status(reply.body, status)) {
        server.fault = reply.reason.empty() ? "malformed reply" : reply.reason;
    } else {
        server.answers = true;
        server.version = status.version;
        if (is_too_old(status.version)) {
            server.fault = "version " + status.version + " is too old; 3.4 or later is needed";
        }
        if (cluster_ != 0 && status.header.cluster != cluster_) {
            server.fault = "a server of another cluster than the others";
        }
        cluster_ = cluster_ != 0 ? cluster_ : status.header.cluster;
    }
    if (--open_ != 0) {
        return;
    }
    std::size_t answering = 0;
    std::string first;
    std::string wrong;
    for (std::size_t i = 0; i < servers_.size(); ++i) {
        const std::string text = client_.endpoints()[i] + ": " + servers_[i].fault;
        answering += servers_[i].answers ? 1 : 0;
        if (!servers_[i].fault.empty()) {
            std::string &of_kind = servers_[i].answers ? wrong : first;
            of_kind = of_kind.empty() ? text : of_kind;
        }
    }
    if (answering == 0 || !wrong.empty()) {
        end(wrong.empty() ? first : wrong);
        return;
    }
    load_page();
}

void Probe::load_page() {
    client_.call(kRangePath, range_request({next_, names_.end(), revision_, limit_, false}),
                 [this](const Reply &reply) { take_page(reply); });
}

void Probe::take_page(const Reply &reply) {
    if (reply.too_large && limit_ > kLeastKeys) {
        limit_ /= 2;
        load_page();
        return;
    }
    RangeReply page;
    if (reply.kind != Reply::Kind::kOk || !parse_range(reply.body, page)) {
        again(&Probe::load_page, reply);
        return;
    }
    revision_ = revision_ != 0 ? revision_ : page.header.revision;
    for (KeyValue &item : page.items) {
        newest_ = std::max(newest_, item.mod_revision);
        if (item.key == names_.format()) {
            configuration_ = item.value == kFormat ? Configuration::kThere : Configuration::kOther;
        } else if (const std::string_view path = names_.path_of(item.key); !path.empty()) {
            items_.emplace(path, std::move(item.value));
        }
    }
    if (page.more && !page.items.empty()) {
        next_ = page.items.back().key + '\0';
        load_page();
        return;
    }
    if (configuration_ == Configuration::kUnknown) {
        configuration_ = Configuration::kNone;
    }
    if (!compare()) {
        end("the database of this node cannot be read");
        return;
    }
    look_at_node();
}

// ---- who has the name, and who imports

void Probe::look_at_node() {
    client_.call(kRangePath, range_request({names_.own(), end_of_prefix(names_.own()), 0, kMostKeys, false}),
                 [this](const Reply &reply) { take_node(reply); });
}

void Probe::take_node(const Reply &reply) {
    RangeReply range;
    if (reply.kind != Reply::Kind::kOk || !parse_range(reply.body, range)) {
        again(&Probe::look_at_node, reply);
        return;
    }
    for (const KeyValue &item : range.items) {
        if (item.key == names_.machine()) {
            name_taken_ = item.value != machine_;
        } else if (item.key == names_.state()) {
            const Json line = Json::parse(item.value, nullptr, false);
            const bool has_time = line.is_object() && line.contains("time");
            name_seen_ =
                has_time && line["time"].is_number_unsigned() ? line["time"].get<std::uint64_t>() : 0;
        }
    }
    list_around();
    look_around();
}

// ---- configurations around this one

// The prefixes that this one is within, and what is below this one between its own keys.
void Probe::list_around() {
    around_.push_back({names_.import(), {}, 0, 0, false});
    const std::string &prefix = names_.prefix();
    for (std::size_t end = prefix.rfind('/'); end != 0 && end != std::string::npos;
         end = prefix.rfind('/', end - 1)) {
        const Names above(prefix.substr(0, end), {});
        around_.push_back({above.format(), above.import() + '\0', 0, kFew, false, true});
    }
    std::string begin = prefix + '/';
    const std::string tree = names_.item("/cfg/");
    for (const auto &[first, end] :
         {std::pair(tree, end_of_prefix(tree)), std::pair(names_.changed(), names_.changed() + '\0'),
          std::pair(names_.format(), names_.format() + '\0'),
          std::pair(names_.import(), names_.import() + '\0'),
          std::pair(names_.nodes(), end_of_prefix(names_.nodes())),
          std::pair(end_of_prefix(prefix + '/'), std::string())}) {
        around_.push_back({begin, first, 0, kMostKeys, false, true});
        begin = end;
    }
}

void Probe::look_around() {
    if (looked_ == around_.size()) {
        try_write();
        return;
    }
    client_.call(kRangePath, range_request(around_[looked_]),
                 [this](const Reply &reply) { take_around(reply); });
}

// A user who may not read there does not see them.
void Probe::take_around(const Reply &reply) {
    constexpr int kPermissionDenied = 7;
    const bool is_denied = reply.code == kPermissionDenied;
    RangeReply range;
    if (!is_denied && (reply.kind != Reply::Kind::kOk || !parse_range(reply.body, range))) {
        again(&Probe::look_around, reply);
        return;
    }
    ++looked_;
    for (const KeyValue &item : range.items) {
        if (item.key == names_.import()) {
            has_import_ = parse_import_record(item.value, import_);
        } else {
            take_neighbour(item.key);
        }
    }
    look_around();
}

void Probe::take_neighbour(std::string_view key) {
    for (const std::string_view word : {"/cfg/", "/nodes/", "/changed", "/format", "/import"}) {
        const std::size_t at = word.ends_with('/')   ? key.find(word)
                               : key.ends_with(word) ? key.size() - word.size()
                                                     : std::string_view::npos;
        if (at != std::string_view::npos && neighbour_.empty()) {
            neighbour_ = key.substr(0, at);
        }
    }
}

bool Probe::compare() {
    std::size_t shared = 0;
    std::size_t same = 0;
    const cerrno rc =
        sysdb_lmdb::for_each_configured([&](std::string_view key, const sysdb_lmdb::Item &item) {
            if (item.datatype == SYSDB_TYPE_ANY) {
                return;
            }
            ++own_items_;
            const auto found = items_.find(sysdb_lmdb::decode(key));
            if (found != items_.end()) {
                ++shared;
                same += found->second == cluster_value(item.datatype, item.value) ? 1 : 0;
            }
        });
    differing_ = own_items_ + items_.size() - shared - same;
    return rc == 0;
}

void Probe::try_write() {
    TxnRequest txn;
    txn.compare(names_.format(), kNoRevision);
    txn.put(names_.item("/cfg/x"), "");
    txn.put(names_.state(), "");
    txn.erase(names_.item("/cfg/y"));
    client_.call(kTxnPath, txn.text(), [this](const Reply &reply) { take_write(reply); });
}

void Probe::take_write(const Reply &reply) {
    TxnReply result;
    if (reply.kind != Reply::Kind::kOk || !parse_txn(reply.body, result)) {
        again(&Probe::try_write, reply);
        return;
    }
    may_write_ = true;
    try_many();
}

void Probe::try_many() {
    TxnRequest txn;
    txn.compare(names_.format(), kNoRevision);
    for (int i = 0; i < kMany; ++i) {
        txn.put(names_.item("/cfg/x" + std::to_string(i)), "");
    }
    client_.call(kTxnPath, txn.text(), [this](const Reply &reply) {
        TxnReply result;
        takes_many_ = reply.kind == Reply::Kind::kOk && parse_txn(reply.body, result);
        end({});
    });
}

std::string Probe::text() const {
    constexpr const char *kWords[] = {"unknown", "none", "there", "other"};
    Json json = {{"prefix", names_.prefix()},
                 {"node", names_.node()},
                 {"cluster", hex(cluster_)},
                 {"revision", newest_},
                 {"fault", fault_},
                 {"remedy", remedy_of(fault_, names_.prefix())},
                 {"configuration", kWords[static_cast<int>(configuration_)]},
                 {"cluster_items", items_.size()},
                 {"own_items", own_items_},
                 {"differing", differing_},
                 {"import", nullptr},
                 {"name_taken", name_taken_},
                 {"name_seen", name_seen_},
                 {"neighbour", neighbour_},
                 {"may_write", may_write_},
                 {"takes_many_changes", takes_many_}};
    if (has_import_) {
        json["import"] = {{"node", import_.node},
                          {"time", import_.time},
                          {"complete", import_.complete},
                          {"own", !machine_.empty() && import_.machine == machine_}};
    }
    json["servers"] = Json::array();
    for (std::size_t i = 0; i < servers_.size(); ++i) {
        json["servers"].push_back({{"endpoint", client_.endpoints()[i]},
                                   {"answers", servers_[i].answers},
                                   {"version", servers_[i].version},
                                   {"fault", servers_[i].fault},
                                   {"remedy", remedy_of(servers_[i].fault, names_.prefix())}});
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace sysdb_etcd
