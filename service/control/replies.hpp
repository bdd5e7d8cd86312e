// SPDX-License-Identifier: Apache-2.0
//
// What the control socket answers, as lines of JSON.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/trace.hpp"
#include "capture/capture.hpp"
#include "config/alarms.hpp"
#include "config/snapshot.hpp"
#include "control/json.hpp"
#include "control/request.hpp"
#include "groups/groups.hpp"

namespace service {

// Figures of another part: writes the members of an answer.
using ControlFigures = std::function<void(JsonWriter &)>;

// What the answers are made of. All of it outlives the socket.
struct ControlSources {
    net::Loop &loop;
    const Trace &trace;
    const Groups &groups;
    Capture &capture;
    std::function<SnapshotPtr()> snapshot;
    std::function<std::size_t()> clients;
    std::string version;
    std::string socket;        // for requests of clients
    std::int64_t since_s = 0;  // start of the service, in seconds since 1970
    std::function<std::vector<Alarm>()> alarms = {};
    // By request; those without an entry say that there are none.
    std::map<ControlRequest::Kind, ControlFigures> figures = {};
};

std::string status_line(const ControlSources &sources, std::size_t control_clients);
std::string servers_line(const ControlSources &sources);
std::string figures_line(const ControlSources &sources, ControlRequest::Kind kind);

// Of a capture: its beginning. Blocks of pcapng follow.
std::string capture_line(const CaptureOptions &options);

// Of a trace: its beginning, a step, steps that were lost, its end when it is not live.
std::string trace_line(const ControlSources &sources);
// `user` is the name that is shown.
std::string event_line(const TraceEvent &event, std::string_view user);
std::string lost_line(std::uint64_t count);
std::string end_line();

std::string error_line(std::string_view code, std::string_view text);

}  // namespace service
