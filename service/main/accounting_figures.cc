// SPDX-License-Identifier: Apache-2.0

#include "main/accounting_figures.hpp"

namespace service {

namespace {

std::int64_t signed_of(std::uint64_t value) {
    return static_cast<std::int64_t>(value);
}

}  // namespace

void write_accounting(JsonWriter &out, const Recorder &recorder) {
    const std::optional<accounting::Figures> figures = recorder.figures();
    out.truth("journal", figures.has_value());
    if (!figures) {
        return;
    }
    out.number("bytes", signed_of(figures->bytes));
    out.number("most_bytes", signed_of(figures->most_bytes));
    out.number("recorded", signed_of(figures->recorded));
    out.number("refused", signed_of(figures->refused));
    out.number("open_sessions", signed_of(figures->open_sessions));
    out.truth("nearly_full", figures->level_alarm);
    out.truth("full", figures->full_alarm);
    out.truth("failed", figures->failed_alarm);
    out.begin_array("groups");
    for (const auto &[name, destination] : figures->destinations) {
        out.begin();
        out.text("group", name);
        out.truth("configured", destination.configured);
        out.truth("answers", !destination.down);
        out.number("waiting", signed_of(destination.waiting));
        out.number("in_flight", signed_of(destination.in_flight));
        out.number("delivered", signed_of(destination.delivered));
        out.number("unanswered", signed_of(destination.unanswered));
        out.number("refused", signed_of(destination.refused));
        out.number("dropped", signed_of(destination.dropped));
        out.end();
    }
    out.end_array();
}

}  // namespace service
