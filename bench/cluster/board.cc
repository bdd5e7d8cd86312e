// SPDX-License-Identifier: Apache-2.0

#include "cluster/board.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "platform/sysdb_changes.h"

namespace cluster_bench {

namespace {

constexpr std::uint32_t kType = 99;

std::uint32_t microseconds_since(std::uint64_t begun) {
    return static_cast<std::uint32_t>(std::max<std::uint64_t>(1, (now() - begun) / 1000));
}

}  // namespace

struct Board::Watching {
    const Board &board;
    std::uint32_t node;
    bool read_again = false;
};

Board::Board(const Site &site, std::uint32_t items) : site_(site), items_(items) {
    for (std::uint32_t i = 0; i < site_.nodes.size(); ++i) {
        watchers_.emplace_back([this, i] { watch(i); });
    }
    if (!etcd_test::eventually([&] { return state_->watching == site_.nodes.size(); }, 60)) {
        fail("a watcher does not begin");
    }
}

Board::~Board() {
    writers_.clear();
    watchers_.clear();
}

void Board::begin(const Load &load) {
    state_->stop_writing = false;
    for (std::uint32_t i = 0; i < load.writers; ++i) {
        writers_.emplace_back([this, i, load, first = state_->made[i].load()] { write(i, load, first); });
    }
}

void Board::wait_for_writers() {
    for (ForkedProcess &writer : writers_) {
        if (writer.wait() != 0) {
            fail("a writer failed");
        }
    }
    writers_.clear();
}

void Board::stop_writers() {
    state_->stop_writing = true;
    wait_for_writers();
}

void Board::write(std::uint32_t writer, const Load &load, std::uint32_t first) const {
    site_.nodes[writer % site_.nodes.size()]->use();
    const Bound bound("/cfg/scale/");
    std::mt19937 random(writer + 1);
    const std::uint32_t end = std::min(first + load.transactions, kMostChanges - 1);
    for (std::uint32_t number = first + 1; number <= end && !state_->stop_writing; ++number) {
        std::vector<std::uint32_t> items;
        while (items.size() < load.items_at_once) {
            const std::uint32_t item =
                static_cast<std::uint32_t>(random()) % (items_ / kMostWriters) * kMostWriters + writer;
            if (std::find(items.begin(), items.end(), item) == items.end()) {
                items.push_back(item);
            }
        }
        const std::uint64_t begun = now();
        std::vector<Value> values;
        std::vector<std::string> paths;
        for (const std::uint32_t item : items) {
            values.push_back({item, number, begun});
            paths.push_back(path_of(item));
        }
        std::vector<sysdb_change_t> changes;
        for (std::size_t i = 0; i < items.size(); ++i) {
            changes.push_back({SYSDB_CHANGE_SET, kType, paths[i].c_str(), &values[i], sizeof values[i]});
        }
        const cerrno rc =
            sysdb_apply(bound.handle(), changes.data(), static_cast<std::uint32_t>(changes.size()), nullptr);
        if (rc != 0) {
            ++state_->failed;
            usleep(10'000);
            continue;
        }
        state_->answer_us[writer][number] = microseconds_since(begun);
        for (const std::uint32_t item : items) {
            state_->last_acknowledged[item] = number;
        }
        state_->acknowledged[writer] = now();
        state_->begun[writer] = begun;
        state_->made[writer] = number;
        if (load.pause_us != 0) {
            usleep(load.pause_us);
        }
    }
}

std::uint64_t Board::acknowledged_after(std::uint32_t writer, std::uint64_t begun) const {
    return state_->begun[writer] > begun ? state_->acknowledged[writer].load() : 0;
}

void Board::take(std::uint32_t node, const void *bytes, std::uint32_t length, bool is_call) const {
    Value value;
    if (bytes == nullptr || length != sizeof value) {
        return;
    }
    std::memcpy(&value, bytes, sizeof value);
    auto &seen = state_->seen[node][value.item];
    if (value.number < seen) {
        ++state_->out_of_order;
        return;
    }
    seen = value.number;
    if (is_call) {
        state_->callback_us[node][value.item % kMostWriters][value.number] = microseconds_since(value.begun);
    }
}

std::int32_t Board::on_change(const void *record, void *self, void *) {
    const auto &change = *static_cast<const sysdb_notification_t *>(record);
    auto &watching = *static_cast<Watching *>(self);
    if (change.datatype == SYSDB_TYPE_DIRECTORY) {
        watching.read_again = true;
    } else if (change.datatype == kType) {
        watching.board.take(watching.node, change.value, change.length, true);
    }
    return 0;
}

void Board::read_all(sysdb_conn_t conn, std::uint32_t node) const {
    for (std::uint32_t item = 0; item < items_; ++item) {
        std::uint32_t type = SYSDB_TYPE_ANY;
        void *value = nullptr;
        std::uint32_t length = 0;
        if (sysdb_item_get(conn, path_of(item).c_str(), &type, &value, &length, 0) == 0 && type == kType) {
            take(node, value, length, false);
        }
        free(value);
    }
}

void Board::watch(std::uint32_t node) const {
    site_.nodes[node]->use();
    const Bound bound("/cfg/scale/");
    Watching watching{*this, node};
    std::uint64_t notification = 0;
    if (_sysdb_register_notification(bound.handle(), "", SYSDB_EVENT_SET, SYSDB_NOTIFY_CHANGES, on_change,
                                     &watching, 0, nullptr, 0, &notification) != 0) {
        fail("a watch cannot be registered");
    }
    ++state_->watching;
    const int channel = channel_of(bound.handle());
    while (!state_->stop_watching) {
        if (!wait_readable(channel, 200)) {
            continue;
        }
        if (sysdb_dispatch(bound.handle()) != 0) {
            fail("a watcher's dispatch failed");
        }
        if (watching.read_again) {
            watching.read_again = false;
            ++state_->reread;
            read_all(bound.handle(), node);
        }
    }
}

std::uint32_t Board::final_number(sysdb_conn_t conn, std::uint32_t item) const {
    std::uint32_t type = SYSDB_TYPE_ANY;
    void *bytes = nullptr;
    std::uint32_t length = 0;
    Value value{};
    if (sysdb_item_get(conn, path_of(item).c_str(), &type, &bytes, &length, 0) == 0 && type == kType &&
        length == sizeof value) {
        std::memcpy(&value, bytes, sizeof value);
    }
    free(bytes);
    return value.number;
}

std::string Board::finish() {
    std::string wrong;
    for (const auto &node : site_.nodes) {
        // A change whose outcome is not known may still come.
        if (!etcd_test::eventually(
                [&] { return etcd_test::contents(*node) == etcd_test::contents(*site_.nodes[0]); })) {
            wrong += node->name() + " differs from the first node; ";
        }
    }
    struct Counts {
        std::atomic<std::uint32_t> lost;
        std::atomic<std::uint32_t> last[kMostItems];
    };
    Shared<Counts> counts;
    etcd_test::on_node(*site_.nodes[0], [&] {
        const Bound bound("/cfg/scale/");
        for (std::uint32_t item = 0; item < items_; ++item) {
            counts->last[item] = final_number(bound.handle(), item);
            counts->lost += counts->last[item] < state_->last_acknowledged[item] ? 1 : 0;
        }
    });
    if (counts->lost != 0) {
        wrong += std::to_string(counts->lost) + " items have lost an acknowledged change; ";
    }
    const auto behind = [&] {
        std::size_t count = 0;
        for (std::size_t node = 0; node < site_.nodes.size(); ++node) {
            for (std::uint32_t item = 0; item < items_; ++item) {
                count += state_->seen[node][item] != counts->last[item] ? 1 : 0;
            }
        }
        return count;
    };
    if (!etcd_test::eventually([&] { return behind() == 0; })) {
        wrong += "watchers have not seen the last state of " + std::to_string(behind()) + " items; ";
    }
    state_->stop_watching = true;
    for (ForkedProcess &watcher : watchers_) {
        if (watcher.wait() != 0) {
            wrong += "a watcher failed; ";
        }
    }
    watchers_.clear();
    if (state_->out_of_order != 0) {
        wrong += std::to_string(state_->out_of_order) + " changes came in another order; ";
    }
    return wrong;
}

// take(writer, number) for those that were acknowledged.
template <typename Take>
void Board::for_each_transaction(Take take) const {
    for (std::uint32_t writer = 0; writer < kMostWriters; ++writer) {
        for (std::uint32_t number = 1; number <= state_->made[writer]; ++number) {
            if (state_->answer_us[writer][number] != 0) {
                take(writer, number);
            }
        }
    }
}

std::vector<double> Board::acknowledgements() const {
    std::vector<double> result;
    for_each_transaction([&](std::uint32_t writer, std::uint32_t number) {
        result.push_back(state_->answer_us[writer][number] / 1e3);
    });
    return result;
}

std::vector<double> Board::callbacks() const {
    std::vector<double> result;
    const std::size_t nodes = site_.nodes.size();
    for_each_transaction([&](std::uint32_t writer, std::uint32_t number) {
        for (std::size_t node = 0; node < nodes; ++node) {
            const std::uint32_t time = state_->callback_us[node][writer][number];
            if ((nodes == 1 || node != writer % nodes) && time != 0) {
                result.push_back(time / 1e3);
            }
        }
    });
    return result;
}

// A watcher gets only the newest of several changes of an item, so some have no callback everywhere.
std::vector<double> Board::last_callbacks() const {
    std::vector<double> result;
    const std::size_t nodes = site_.nodes.size();
    for_each_transaction([&](std::uint32_t writer, std::uint32_t number) {
        std::uint32_t last = 0;
        for (std::size_t node = 0; node < nodes; ++node) {
            const std::uint32_t time = state_->callback_us[node][writer][number];
            if (nodes == 1 || node != writer % nodes) {
                if (time == 0) {
                    return;
                }
                last = std::max(last, time);
            }
        }
        result.push_back(last / 1e3);
    });
    return result;
}

}  // namespace cluster_bench
