// SPDX-License-Identifier: Apache-2.0
//
// Requests to the agent of a node, and what the agent plans for them. A request that is read is written again
// as the same bytes. The plan of changes that pass the check, applied to the items, has the result of the
// changes made one after the other; or it is refused with the same code and for the same change.

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "call/form.hpp"
#include "fuzz_input.hpp"
#include "keys/plan.hpp"
#include "platform/sysdb.h"

namespace {

using namespace sysdb_etcd;

struct Value {
    std::uint32_t datatype = 0;
    std::string bytes;

    friend bool operator==(const Value &, const Value &) = default;
};
using Items = std::map<std::string, Value>;

// ---- bytes

void read_request(const std::string &bytes, Request &request, bool &read) {
    read = unpack_request(bytes, request);
    if (read) {
        const auto again = pack_request(request);
        REQUIRE(again && again->substr(kLengthSize) == bytes);
        REQUIRE(unpack_length(again->data()) == bytes.size());
    }
    Answer answer;
    if (unpack_answer(bytes, answer)) {
        REQUIRE(pack_answer(answer).substr(kLengthSize) == bytes);
    }
}

// ---- changes, made one after the other

class Model {
  public:
    Model(Items items, const std::vector<ItemChange> &changes) : items_(std::move(items)) {
        for (const ItemChange &change : changes) {
            if (change.operation == SYSDB_CHANGE_SET ||
                (change.operation == SYSDB_CHANGE_EXPECT && change.datatype != SYSDB_TYPE_ANY)) {
                kept_.insert(change.path);
            }
        }
    }

    const Items &items() const { return items_; }

    cerrno make(const ItemChange &change) {
        const auto found = items_.find(change.path);
        switch (change.operation) {
            case SYSDB_CHANGE_SET:
                items_[change.path] = {change.datatype, change.value};
                return 0;
            case SYSDB_CHANGE_DELETE:
                if (found == items_.end()) {
                    return SYSDB_ERR_NOT_FOUND;
                }
                items_.erase(found);
                return 0;
            case SYSDB_CHANGE_PRUNE:
                erase_below(change.path, true);
                return 0;
            case SYSDB_CHANGE_EXPECT:
                return is_met(change) ? 0 : SYSDB_ERR_CONFLICT;
            case kDeleteTree:
                return erase_below(change.path, false) ? 0 : SYSDB_ERR_NOT_FOUND;
            default:
                return SYSDB_ERR_INVALID_ARG;
        }
    }

  private:
    bool is_met(const ItemChange &change) const {
        if (change.datatype == SYSDB_TYPE_ANY && change.path.ends_with('/')) {
            return std::none_of(items_.begin(), items_.end(),
                                [&](const auto &item) { return item.first.starts_with(change.path); });
        }
        const auto found = items_.find(change.path);
        return change.datatype == SYSDB_TYPE_ANY
                   ? found == items_.end()
                   : found != items_.end() && found->second == Value{change.datatype, change.value};
    }
    std::size_t erase_below(const std::string &directory, bool but_kept) {
        return std::erase_if(items_, [&](const auto &item) {
            return item.first.starts_with(directory) && !(but_kept && kept_.contains(item.first));
        });
    }

    Items items_;
    std::set<std::string> kept_;
};

// ---- the plan

MirrorView view_of(const Items &items) {
    MirrorView view;
    view.revision = 9;
    view.find = [&items](const std::string &path, std::optional<Stored> &item) {
        const auto found = items.find(path);
        item.reset();
        if (found != items.end()) {
            item = Stored{5, found->second.datatype, found->second.bytes};
        }
        return true;
    };
    view.below = [&items](const std::string &directory,
                          const std::function<void(const std::string &)> &call) {
        for (const auto &[path, item] : items) {
            if (path.starts_with(directory)) {
                call(path);
            }
        }
    };
    return view;
}

// A transaction cannot write a key twice.
Items carried_out(const Plan &plan, Items items) {
    for (const std::string &directory : plan.erased) {
        std::erase_if(items, [&](const auto &item) { return item.first.starts_with(directory); });
        for (const auto &[path, value] : plan.writes) {
            REQUIRE(!path.starts_with(directory));
        }
    }
    for (const auto &[path, value] : plan.writes) {
        if (!value) {
            items.erase(path);
            continue;
        }
        std::uint32_t datatype = 0;
        std::string_view bytes;
        REQUIRE(parse_cluster_value(*value, datatype, bytes));
        items[path] = {datatype, std::string(bytes)};
    }
    return items;
}

void plan_request(const std::vector<ItemChange> &changes, const Items &items) {
    std::uint32_t at = 0;
    if (const cerrno rc = check_changes(changes, at); rc != 0) {
        REQUIRE(at < changes.size());
        return;
    }
    Plan plan;
    MirrorView view = view_of(items);
    plan_changes(changes, view, plan);
    for (const auto &[path, revision] : plan.as_expected) {
        REQUIRE(revision == (items.contains(path) ? 5u : 0u));
    }
    Model model(items, changes);
    for (std::uint32_t i = 0; i < changes.size(); ++i) {
        const cerrno rc = model.make(changes[i]);
        if (rc != 0) {
            REQUIRE(plan.refusal == rc && plan.failed == i);
            return;
        }
    }
    REQUIRE(plan.refusal == 0 && plan.failed == changes.size());
    REQUIRE(carried_out(plan, items) == model.items());
}

// ---- few paths, so that changes meet

const std::vector<std::string> kPaths = {"/cfg/a",     "/cfg/d/",   "/cfg/d/x",   "/cfg/d/y", "/cfg/d/e/",
                                         "/cfg/d/e/z", "/cfg/d-",   "/cfg/",      "/cfg/n",   "/cfg/d/n",
                                         "/cfg/n/",    "/cfg/n/e/", "/cfg/d/e/w", "/oper/a",  ""};

Items items_of(uint8_t choice) {
    Items items;
    std::size_t bit = 0;
    for (const std::size_t path :
         {std::size_t{0}, std::size_t{2}, std::size_t{3}, std::size_t{5}, std::size_t{6}}) {
        if ((choice >> bit++ & 1) != 0) {
            items[kPaths[path]] = {SYSDB_TYPE_U32, std::string(4, static_cast<char>('a' + choice % 2))};
        }
    }
    if ((choice & 0x20) != 0) {
        items["/cfg/d/e/"] = {SYSDB_TYPE_DIRECTORY, ""};
    }
    return items;
}

std::vector<ItemChange> changes_of(fuzz::Input &input) {
    constexpr std::uint32_t kOperations[] = {SYSDB_CHANGE_SET,    SYSDB_CHANGE_DELETE, SYSDB_CHANGE_PRUNE,
                                             SYSDB_CHANGE_EXPECT, kDeleteTree,         77};
    constexpr std::uint32_t kTypes[] = {SYSDB_TYPE_U32, SYSDB_TYPE_ANY, SYSDB_TYPE_DIRECTORY, 99};
    std::vector<ItemChange> changes;
    while (!input.empty() && changes.size() < 16) {
        const uint8_t first = input.byte();
        const uint8_t second = input.byte();
        ItemChange &change = changes.emplace_back();
        change.operation = kOperations[first % 6];
        change.datatype = kTypes[first / 6 % 4];
        change.path = kPaths[second % kPaths.size()];
        change.value = change.datatype == SYSDB_TYPE_DIRECTORY
                           ? ""
                           : std::string(4, static_cast<char>('a' + second / 16 % 3));
    }
    return changes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t choice = input.byte();
    const Items items = items_of(choice);
    if ((choice & 0x80) == 0) {
        plan_request(changes_of(input), items);
        return 0;
    }
    Request request;
    bool read = false;
    read_request(input.rest(), request, read);
    if (read && request.ask == Ask::kChange) {
        plan_request(request.changes, items);
    }
    return 0;
}
