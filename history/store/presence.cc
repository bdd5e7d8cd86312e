// SPDX-License-Identifier: Apache-2.0

#include "store/presence.hpp"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>

#include "store/items.hpp"

namespace history {

namespace {

constexpr char kWatchers[] = "aaa/history/watcher/";

// When the process started, in ticks since the machine did: another process may get the same number. Empty
// if there is none.
std::string started(const std::string &pid) {
    std::ifstream in("/proc/" + pid + "/stat");
    std::string line;
    std::getline(in, line);
    const std::size_t name_end = line.rfind(')');  // the name may hold blanks
    if (name_end == std::string::npos) {
        return "";
    }
    constexpr int kFieldsBefore = 20;  // after the name
    std::size_t at = name_end;
    for (int field = 0; field < kFieldsBefore && at != std::string::npos; ++field) {
        at = line.find(' ', at + 1);
    }
    return at == std::string::npos ? "" : line.substr(at + 1, line.find(' ', at + 1) - at - 1);
}

}  // namespace

Presence::Presence(const std::string &program) {
    const std::string pid = std::to_string(getpid());
    if (_sysdb_bind(&oper_, kPresenceTree, SYSDB_BIND_PRIVATE) != 0) {
        oper_ = 0;
        return;
    }
    try {
        for (const std::string &other : read_names(oper_, kWatchers)) {
            if (started(other).empty()) {  // it was killed
                sysdb_item_delete(oper_, (kWatchers + other).c_str(), 0);
            }
        }
    } catch (const Error &) {  // they do no harm
    }
    path_ = kWatchers + pid;
    const Item item = text_item(started(pid) + " " + program);
    sysdb_item_set(oper_, path_.c_str(), item.type, item.bytes.data(),
                   static_cast<std::uint32_t>(item.bytes.size()), 0);
}

Presence::~Presence() {
    if (oper_ != 0) {
        sysdb_item_delete(oper_, path_.c_str(), 0);
        _sysdb_unbind(oper_);
    }
}

bool is_watched(sysdb_conn_t oper) {
    if (oper == 0) {
        return false;
    }
    const std::vector<std::string> pids = read_names(oper, kWatchers);
    return std::any_of(pids.begin(), pids.end(), [&](const std::string &pid) {
        Item item;
        const std::string start = started(pid);
        return !start.empty() && read_item(oper, kWatchers + pid, item) &&
               item.bytes.starts_with(start + " ");
    });
}

}  // namespace history
