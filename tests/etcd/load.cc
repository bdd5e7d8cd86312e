// SPDX-License-Identifier: Apache-2.0

#include "etcd/load.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <new>
#include <sstream>

#include "platform/sysdb_changes.h"

namespace etcd_test {

namespace {

constexpr char kBase[] = "/cfg/work/";

void append_contents(sysdb_conn_t conn, const std::string &directory, std::string &text) {
    for (const std::string &name : names_in(conn, directory)) {
        if (name.ends_with('/')) {
            text += directory + name + "\n";
            append_contents(conn, directory + name, text);
            continue;
        }
        uint32_t type = SYSDB_TYPE_ANY;
        void *value = nullptr;
        uint32_t length = 0;
        const cerrno rc = sysdb_item_get(conn, (directory + name).c_str(), &type, &value, &length, 0);
        std::ostringstream line;
        line << directory << name << ' ' << rc << ' ' << type;
        for (uint32_t i = 0; rc == 0 && i < length; ++i) {
            line << ' ' << +static_cast<unsigned char *>(value)[i];
        }
        text += line.str() + "\n";
        free(value);
    }
}

}  // namespace

void on_node(const Node &node, const std::function<void()> &body) {
    run_forked([&] {
        node.use();
        body();
    });
}

std::string contents(const Node &node, const std::string &directory) {
    const std::string file = node.directory() + "contents";
    on_node(node, [&] {
        const Bound bound(directory);
        std::string text;
        append_contents(bound.handle(), "", text);
        std::ofstream(file) << text;
    });
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

Load::Load(const std::vector<std::unique_ptr<Node>> &nodes) : nodes_(nodes) {
    void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(MAP_FAILED, memory);
    shared_ = new (memory) Shared{};
    for (std::size_t i = 0; i < kWatchers; ++i) {
        watchers_.emplace_back([this, i] { watch(i); });
    }
    for (std::size_t i = 0; i < kWriters; ++i) {
        writers_.emplace_back([this, i] { write(i); });
    }
}

Load::~Load() {
    writers_.clear();
    watchers_.clear();
    munmap(shared_, sizeof(Shared));
}

void Load::write(std::size_t writer) const {
    nodes_[writer % nodes_.size()]->use();
    const Bound bound(kBase);
    const std::string order = "order/" + std::to_string(writer);
    for (uint32_t i = 1; i < kMost && !shared_->stop_writing; ++i) {
        const std::string path = "load/" + std::to_string(writer) + "/" + std::to_string(i);
        const sysdb_change_t changes[] = {{SYSDB_CHANGE_SET, SYSDB_TYPE_U32, path.c_str(), &i, sizeof i},
                                          {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, order.c_str(), &i, sizeof i}};
        shared_->tried[writer] = i;
        const cerrno rc = sysdb_apply(bound.handle(), changes, 2, nullptr);
        if (rc == 0) {
            shared_->acknowledged[writer][i] = true;
            ++shared_->made[writer];
            continue;
        }
        ++shared_->failed;
        if (rc != SYSDB_ERR_NO_MAJORITY && rc != SYSDB_ERR_OUTCOME_UNKNOWN && rc != SYSDB_ERR_NO_AGENT) {
            ++shared_->wrong_codes;
            shared_->a_wrong_code = rc;
        }
        usleep(10'000);
    }
}

// The path is "order/W".
std::int32_t Load::on_change(const void *record, void *self, void *context) {
    const auto &change = *static_cast<const sysdb_notification_t *>(record);
    auto *shared = static_cast<Shared *>(self);
    auto *seen = static_cast<std::atomic<std::uint32_t> *>(context);
    const std::string path = change.path;
    std::uint32_t number = 0;
    if (change.operation == SYSDB_EVENT_DELETE || change.value == nullptr || change.length != sizeof number) {
        return 0;
    }
    std::memcpy(&number, change.value, sizeof number);
    auto &last = seen[std::stoul(path.substr(path.rfind('/') + 1))];
    if (number < last) {
        ++shared->out_of_order;
    }
    last = number;
    return 0;
}

void Load::watch(std::size_t watcher) const {
    nodes_[watcher]->use();
    const Bound bound(kBase);
    uint64_t notification = 0;
    EXPECT_EQ(0u, _sysdb_register_notification(bound.handle(), "order/", SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                               SYSDB_NOTIFY_CHANGES, on_change, shared_, 0,
                                               &shared_->seen[watcher], 0, &notification));
    while (!shared_->stop_watching) {
        wait_readable(channel_of(bound.handle()), 100);
        EXPECT_EQ(0u, sysdb_dispatch(bound.handle()));
    }
}

std::size_t Load::acknowledged_by(std::size_t writer) const {
    return shared_->made[writer];
}

std::size_t Load::acknowledged() const {
    std::size_t sum = 0;
    for (std::size_t i = 0; i < kWriters; ++i) {
        sum += acknowledged_by(i);
    }
    return sum;
}

bool Load::wait_for_more(std::size_t changes, const std::vector<std::size_t> &writers) const {
    std::size_t before[kWriters];
    for (std::size_t i = 0; i < kWriters; ++i) {
        before[i] = acknowledged_by(i);
    }
    return eventually(
        [&] {
            for (const std::size_t writer : writers) {
                if (acknowledged_by(writer) < before[writer] + changes) {
                    return false;
                }
            }
            return true;
        },
        60);
}

void Load::finish() {
    shared_->stop_writing = true;
    for (ForkedProcess &writer : writers_) {
        EXPECT_EQ(0, writer.wait());
    }
    EXPECT_EQ(0u, wrong_codes()) << std::hex << a_wrong_code();
    // A change whose outcome is not known may still come.
    EXPECT_TRUE(eventually([this] {
        const std::string first = contents(*nodes_[0]);
        return !first.empty() && first == contents(*nodes_[1]) && first == contents(*nodes_[2]);
    })) << nodes_[0]->log()
        << nodes_[1]->log() << nodes_[2]->log();

    std::uint32_t last[kWriters] = {};
    std::size_t lost = 0;
    const std::string file = nodes_[0]->directory() + "result";
    on_node(*nodes_[0], [&] {
        const Bound bound(kBase);
        for (std::size_t writer = 0; writer < kWriters; ++writer) {
            last[writer] =
                static_cast<std::uint32_t>(get_number(bound.handle(), "order/" + std::to_string(writer)));
            for (std::size_t i = 1; i < kMost; ++i) {
                const std::string path = "load/" + std::to_string(writer) + "/" + std::to_string(i);
                lost += shared_->acknowledged[writer][i] &&
                        get_number(bound.handle(), path) != static_cast<int64_t>(i);
            }
        }
        std::ofstream out(file);
        out << lost;
        for (const std::uint32_t number : last) {
            out << ' ' << number;
        }
    });
    std::ifstream result(file);
    result >> lost;
    EXPECT_EQ(0u, lost) << "acknowledged changes were lost";
    for (std::size_t writer = 0; writer < kWriters; ++writer) {
        result >> last[writer];
        EXPECT_LE(last[writer], shared_->tried[writer]);
        for (std::size_t watcher = 0; watcher < kWatchers; ++watcher) {
            EXPECT_TRUE(eventually([&] { return shared_->seen[watcher][writer] == last[writer]; }))
                << "watcher " << watcher << " of writer " << writer << ": " << shared_->seen[watcher][writer]
                << " and not " << last[writer];
        }
    }
    shared_->stop_watching = true;
    for (ForkedProcess &watcher : watchers_) {
        EXPECT_EQ(0, watcher.wait());
    }
    EXPECT_EQ(0u, shared_->out_of_order);
    EXPECT_GT(acknowledged(), 0u);
}

}  // namespace etcd_test
