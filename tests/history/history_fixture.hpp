// SPDX-License-Identifier: Apache-2.0
//
// A test with an empty database: the scripted one, or with HISTORY_ON_LMDB the embedded one.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "store/revert.hpp"
#include "store/snapshot.hpp"
#include "store/store.hpp"
#ifdef HISTORY_ON_LMDB
#include "support/sysdb.hpp"
#endif

namespace history_test {

using history::Head;
using history::Item;
using history::Items;
using history::Now;
using history::State;
using history::Store;

#ifdef HISTORY_ON_LMDB
// A database for one test, where the library's load hook has not opened that of the machine before.
class Sandbox {
  public:
    Sandbox() : checked_(check()) {}

  private:
    static bool check() {
        if (std::getenv("NO_DLLMAIN") == nullptr) {
            std::fprintf(stderr, "run this test with ctest, or with NO_DLLMAIN=1 in the environment\n");
            std::abort();
        }
        return true;
    }

    bool checked_;
    DatabaseSandbox sandbox_;
};
#endif

inline Now at(std::int64_t milliseconds, const std::string &boot = "boot-a",
              const std::string &machine = "machine-a") {
    return {machine, boot, milliseconds, 1'700'000'000 + milliseconds / 1000};
}

class HistoryTest : public ::testing::Test {
  protected:
    HistoryTest() { EXPECT_EQ(_sysdb_bind(&cfg_, "/cfg/", SYSDB_BIND_PRIVATE), 0u); }
    ~HistoryTest() override { _sysdb_unbind(cfg_); }

    sysdb_conn_t cfg() const { return cfg_; }
    Store store() const { return Store(cfg_); }

    void put(const std::string &path, const std::string &text) const {
        const Item item = history::text_item(text);
        ASSERT_EQ(sysdb_item_set(cfg_, path.c_str(), item.type, item.bytes.data(),
                                 static_cast<std::uint32_t>(item.bytes.size()), 0),
                  0u)
            << path;
    }
    void put_number(const std::string &path, std::uint32_t value) const {
        ASSERT_EQ(sysdb_item_set(cfg_, path.c_str(), SYSDB_TYPE_U32, &value, sizeof value, 0), 0u) << path;
    }
    void put_directory(const std::string &path) const {
        ASSERT_EQ(sysdb_item_set(cfg_, path.c_str(), SYSDB_TYPE_DIRECTORY, nullptr, 0, 0), 0u) << path;
    }
    void erase(const std::string &path) const {
        ASSERT_EQ(sysdb_item_delete(cfg_, path.c_str(), path.ends_with('/') ? SYSDB_DELETE_TREE : 0), 0u)
            << path;
    }
    State present() const { return history::read_state(cfg_, history::kConfiguration); }

    // Records the present state.
    std::uint32_t commit(const std::string &label,
                         const std::optional<history::Deadline> &deadline = std::nullopt) const {
        std::uint32_t number = 0;
        history::change(store(), [&](const Head &head, history::Changes &changes) {
            history::Writing writing(store(), head);
            history::Commit commit;
            commit.label = label;
            commit.time = 1'700'000'000;
            commit.ending = deadline ? history::Ending::waiting : history::Ending::none;
            number = writing.add(commit, present());
            if (deadline) {
                writing.wait(number, head.last, *deadline);
            }
            changes = writing.finish();
        });
        return number;
    }
    std::optional<history::Reverted> revert(std::uint32_t number) const {
        return history::revert(store(), number, history::program("test"), "because", at(0));
    }
    std::vector<std::uint32_t> numbers() const {
        std::vector<std::uint32_t> all;
        for (const history::Commit &commit : store().commits()) {
            all.push_back(commit.number);
        }
        return all;
    }

  private:
#ifdef HISTORY_ON_LMDB
    Sandbox sandbox_;
#endif
    sysdb_conn_t cfg_ = 0;
};

}  // namespace history_test
