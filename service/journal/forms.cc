// SPDX-License-Identifier: Apache-2.0

#include "journal/forms.hpp"

#include <cstdio>
#include <utility>

#include "accounting/process.hpp"

namespace service {

namespace {

using Kind = AccountingRecord::Kind;

accounting::Kind kind_of(const AccountingRecord &record) {
    if (record.session == 0 || record.command) {
        return accounting::Kind::kEvent;
    }
    switch (record.kind) {
        case Kind::kStart:
            return accounting::Kind::kStart;
        case Kind::kStop:
            return accounting::Kind::kStop;
        case Kind::kInterim:
            return accounting::Kind::kInterim;
    }
    return accounting::Kind::kEvent;
}

std::optional<accounting::Record> further_record(const accounting::Record &opened, Kind kind,
                                                 AccountingRecord::End end, const accounting::Moment &now,
                                                 std::time_t wall) {
    auto record = unpack_record(opened.payload);
    if (!record) {
        return std::nullopt;
    }
    complete(*record, opened, now);
    record->kind = kind;
    record->end = end;
    record->time = static_cast<std::uint32_t>(wall);
    record->elapsed = accounting::delay_seconds(opened.arrival, now);
    accounting::Record made;
    made.kind = kind == Kind::kStop ? accounting::Kind::kStop : accounting::Kind::kInterim;
    made.process = opened.process;
    made.arrival = now;
    made.session = opened.session;
    made.destinations = opened.destinations;
    made.payload = pack_record(*record);
    return made;
}

}  // namespace

std::string destination_of(const Group &group) {
    return group.name.empty() ? std::string(protocol_word(group.protocol)) + "/all" : group.name;
}

std::string session_name(const AccountingRecord &record, std::uint32_t client_pid) {
    char number[32];
    if (record.session != 0) {
        std::snprintf(number, sizeof number, "/%08x", record.session);
    } else {
        std::snprintf(number, sizeof number, "/process %u", client_pid);
    }
    return record.user + number;
}

accounting::Record journal_record(const Question &question, const AccountingRecord &record,
                                  std::vector<std::string> destinations) {
    const auto pid = static_cast<std::uint32_t>(question.client_pid);
    accounting::Record made;
    made.kind = kind_of(record);
    made.session = session_name(record, pid);
    made.destinations = std::move(destinations);
    made.payload = pack_record(record);
    if (made.kind == accounting::Kind::kStart) {
        made.process = accounting::process_of(pid);
    }
    return made;
}

void complete(AccountingRecord &record, const accounting::Record &opened, const accounting::Moment &now) {
    const auto start = unpack_record(opened.payload);
    if (!start || record.start != 0) {
        return;
    }
    record.start = start->start != 0 ? start->start : start->time;
    record.classes = start->classes;
    if (!record.elapsed && record.kind != Kind::kStart) {
        record.elapsed = accounting::delay_seconds(opened.arrival, now);
    }
}

std::optional<accounting::Record> interim_record(const accounting::Record &opened,
                                                 const accounting::Moment &now, std::time_t wall) {
    return further_record(opened, Kind::kInterim, AccountingRecord::End::kByProgram, now, wall);
}

std::optional<accounting::Record> closing_record(const accounting::Record &opened,
                                                 const accounting::Moment &now, std::time_t wall) {
    const auto end = opened.arrival.boot == now.boot ? AccountingRecord::End::kProgramGone
                                                     : AccountingRecord::End::kMachineRestarted;
    return further_record(opened, Kind::kStop, end, now, wall);
}

}  // namespace service
