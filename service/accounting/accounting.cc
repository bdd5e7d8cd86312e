// SPDX-License-Identifier: Apache-2.0
//
// Journal, sessions and destinations together.
#include "accounting/accounting.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace accounting {

Accounting::Accounting(net::Loop &loop, Settings settings, Events events, SessionCalls calls, Files &files)
    : loop_(loop),
      settings_(std::move(settings)),
      events_(std::move(events)),
      journal_(loop, settings_.journal, files, events_),
      sessions_(loop, settings_.sessions, std::move(calls)) {}

Accounting::~Accounting() {
    for (const auto &[name, destination] : destinations_) {
        destination->save(false);
    }
}

Destination &Accounting::destination(const std::string &name, Position position) {
    std::unique_ptr<Destination> &found = destinations_[name];
    if (found == nullptr) {
        found = std::make_unique<Destination>(loop_, journal_, name, std::move(position), settings_.delivery,
                                              events_.log, [this] { release(); });
    }
    return *found;
}

void Accounting::recovered(const Record &record, std::uint64_t sessions_through,
                           const std::map<std::string, Position> &positions) {
    if (record.sequence > sessions_through) {
        sessions_.apply(std::make_shared<const Record>(record));
    }
    for (const std::string &name : record.destinations) {
        const auto position = positions.find(name);
        destination(name, position != positions.end() ? position->second : Position{}).found(record);
    }
}

bool Accounting::open(std::string &error) {
    Journal::Recovered found;
    found.session = [this](const Record &record) { sessions_.apply(std::make_shared<const Record>(record)); };
    found.record = [&](const Record &record) { recovered(record, found.sessions_through, found.positions); };
    offering_ = true;  // what is released cannot be known before everything was read
    const bool opened = journal_.open(found, error);
    offering_ = false;
    if (!opened) {
        destinations_.clear();
        return false;
    }
    for (const auto &[name, position] : found.positions) {
        destination(name, position);
    }
    sessions_saved_through_ = found.sessions_through;
    journal_.on_durable([this](const std::vector<Durable> &records) { durable(records); });
    journal_.on_dropped([this](const std::vector<RecordPointer> &records) {
        for (const auto &[name, destination] : destinations_) {
            destination->drop(records);
        }
        // The records that opened sessions may be among them.
        sessions_saved_through_ = journal_.last_durable();
        journal_.on_disk([through = sessions_saved_through_, list = sessions_.list()](Disk &disk) {
            disk.sessions.save(through, list);
        });
    });
    sessions_.start();
    release();
    return true;
}

void Accounting::record(Record record, Journal::Done done) {
    if (record.arrival.wall == 0 && record.arrival.uptime == 0) {
        record.arrival = Moment::now();
    }
    journal_.append(std::move(record), [this, done = std::move(done)](Result result) {
        ++(result == Result::kOk ? recorded_ : refused_);
        done(result);
    });
}

void Accounting::durable(const std::vector<Durable> &records) {
    // A destination that has not seen all of them yet does not know that it needs them.
    offering_ = true;
    for (const Durable &each : records) {
        sessions_.apply(each.record);
        for (const std::string &name : each.record->destinations) {
            destination(name, {each.record->sequence, {}});
        }
        for (const auto &[name, destination] : destinations_) {
            destination->offer(each);
        }
    }
    offering_ = false;
    release();
}

void Accounting::release() {
    if (offering_) {
        return;
    }
    std::uint64_t lowest = journal_.last_durable() + 1;
    for (const auto &[name, destination] : destinations_) {
        lowest = std::min(lowest, destination->lowest());
    }
    const std::vector<SegmentInfo> segments = journal_.removable(lowest);
    if (segments.empty()) {
        return;
    }
    // The records that opened sessions must not be lost with the segments. Where there is
    // no room for them, removing the segments makes it; a loss of power between the two
    // costs the closing records of sessions, and a journal that stays full costs more.
    const std::uint64_t through = journal_.last_durable();
    const bool needed = segments.back().last > sessions_saved_through_;
    sessions_saved_through_ = needed ? through : sessions_saved_through_;
    const auto list = std::make_shared<const std::vector<RecordPointer>>(
        needed ? sessions_.list() : std::vector<RecordPointer>());
    const auto saved = std::make_shared<bool>(!needed);
    const auto save = [through, list, saved](Disk &disk) {
        *saved = *saved || disk.sessions.save(through, *list);
    };
    journal_.remove(segments, save, [=, this](Disk &disk) {
        save(disk);
        if (!*saved) {
            journal_.tell(std::string("cannot write the open sessions: ") + std::strerror(errno) +
                          "; after a restart, sessions that are open now may get no closing records");
        }
    });
}

void Accounting::set_sender(const std::string &name, std::shared_ptr<Sender> sender) {
    destination(name, {journal_.last_durable() + 1, {}}).set_sender(std::move(sender));
}

bool Accounting::drop_queue(const std::string &name) {
    const auto found = destinations_.find(name);
    if (found == destinations_.end()) {
        return false;
    }
    events_.log("accounting: " + std::to_string(found->second->figures().waiting) + " records for " + name +
                " are dropped on request");
    found->second->drop_all();
    return true;
}

void Accounting::change(const Limits &limits) {
    journal_.set_limits(limits.most_bytes, limits.alarm_percent, limits.when_full);
    sessions_.set_interim(limits.interim_every);
}

Figures Accounting::figures() const {
    Figures figures;
    figures.bytes = journal_.bytes();
    figures.most_bytes = journal_.most_bytes();
    figures.recorded = recorded_;
    figures.refused = refused_;
    figures.waiting = journal_.waiting();
    figures.open_sessions = sessions_.count();
    figures.sessions_not_kept = sessions_.overflowed();
    figures.level_alarm = journal_.raised(Alarm::kLevel);
    figures.full_alarm = journal_.raised(Alarm::kFull);
    figures.failed_alarm = journal_.raised(Alarm::kFailed);
    for (const auto &[name, destination] : destinations_) {
        figures.destinations[name] = destination->figures();
    }
    return figures;
}

}  // namespace accounting
