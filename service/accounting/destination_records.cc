// SPDX-License-Identifier: Apache-2.0
//
// Which records a destination has before it: those that just arrived, those that are only
// on disk, those that are gone; and the position that is kept on disk.
#include <algorithm>
#include <utility>

#include "accounting/destination.hpp"

namespace accounting {

bool Destination::named_in(const Record &record) const {
    return std::find(record.destinations.begin(), record.destinations.end(), name_) !=
           record.destinations.end();
}

bool Destination::is_done(std::uint64_t sequence) const {
    return loaded_.is_done(sequence) || (sequence < cursor_ && !pending_.contains(sequence));
}

void Destination::found(const Record &record) {
    if (named_in(record) && !loaded_.is_done(record.sequence)) {
        ++figures_.waiting;
        behind_ = true;
    }
}

// Without a name of a session a record waits for no other one.
std::string Destination::key_of(const Record &record) {
    return record.session.empty() ? "n" + std::to_string(record.sequence) : "s" + record.session;
}

// Whether less than 1/part of what may be in memory is there.
bool Destination::has_room(std::size_t part) const {
    return pending_.size() < settings_.read_ahead / part &&
           pending_bytes_ < settings_.read_ahead_bytes / part;
}

bool Destination::forget(std::uint64_t sequence) {
    const auto found = pending_.find(sequence);
    if (found == pending_.end()) {
        return false;
    }
    pending_bytes_ -= found->second.record->payload.size();
    pending_.erase(found);
    return true;
}

void Destination::add(const RecordPointer &record) {
    pending_[record->sequence].record = record;
    pending_bytes_ += record->payload.size();
    const std::string key = key_of(*record);
    Queue &queue = queues_[key];
    queue.key = key;
    queue.waiting.push_back(record->sequence);
    if (queue.waiting.size() == 1) {
        make_ready(queue);
    }
}

void Destination::offer(const Durable &durable) {
    const Record &record = *durable.record;
    const bool named = named_in(record);
    figures_.waiting += named ? 1 : 0;
    if (behind_) {
        return;
    }
    if (named && !has_room(1)) {
        behind_ = true;
        point_ = durable.place;
        return;
    }
    cursor_ = record.sequence + 1;
    if (named) {
        add(durable.record);
        pump();
    }
}

void Destination::refill() {
    if (!behind_ || reading_ || sender_ == nullptr || !has_room(2) || read_again_ != 0) {
        return;
    }
    reading_ = true;
    journal_.read(point_, [this, watch = std::weak_ptr<int>(alive_)](const Segments::Read &read,
                                                                     std::uint64_t through) {
        if (!watch.expired()) {
            reading_ = false;
            take(read, through);
        }
    });
}

void Destination::take(const Segments::Read &read, std::uint64_t through) {
    if (!behind_) {
        return;  // everything was dropped meanwhile
    }
    for (const RecordPointer &record : read.records) {
        if (record->sequence < cursor_) {
            continue;  // dropped
        }
        cursor_ = record->sequence + 1;
        if (named_in(*record) && !loaded_.is_done(record->sequence)) {
            add(record);
        }
    }
    cursor_ = std::max(cursor_, read.next.sequence);
    point_ = read.next;
    if (read.failed) {
        read_again_ = loop_.now() + settings_.first_wait;
    }
    if (read.end && journal_.last_durable() == through) {
        behind_ = false;
        cursor_ = std::max(cursor_, through + 1);
        figures_.waiting = pending_.size();  // without those that damage has taken meanwhile
    }
    progress_();
    pump();
}

bool Destination::drop_one(const Record &record) {
    if (!named_in(record) || is_done(record.sequence)) {
        return false;
    }
    ++figures_.dropped;
    --figures_.waiting;
    cursor_ = std::max(cursor_, record.sequence + 1);
    point_.sequence = std::max(point_.sequence, cursor_);
    if (forget(record.sequence)) {
        Queue &queue = queues_.at(key_of(record));
        if (queue.waiting.front() == record.sequence) {
            queue.attempt = 0;
            in_flight_ -= queue.sending ? 1 : 0;
            queue.sending = false;
        }
        std::erase(queue.waiting, record.sequence);
    }
    return true;
}

std::uint64_t Destination::drop(const std::vector<RecordPointer> &records) {
    const auto count = static_cast<std::uint64_t>(std::count_if(
        records.begin(), records.end(), [this](const auto &record) { return drop_one(*record); }));
    if (count != 0) {
        log_("accounting: " + std::to_string(count) + " records for " + name_ +
             " are dropped, because there is no room for new ones");
        rebuild_ready();
        changed();
        pump();
    }
    return count;
}

void Destination::drop_all() {
    figures_.dropped += figures_.waiting;
    figures_.waiting = 0;
    pending_.clear();
    pending_bytes_ = 0;
    queues_.clear();
    ready_.clear();
    delayed_.clear();
    in_flight_ = 0;
    behind_ = false;
    loaded_ = {};
    cursor_ = journal_.last_durable() + 1;
    save(true);
    progress_();
    set_timer();
}

// After queues have lost records.
void Destination::rebuild_ready() {
    ready_.clear();
    delayed_.clear();
    std::erase_if(queues_, [](const auto &entry) { return entry.second.waiting.empty(); });
    std::vector<Queue *> ready;
    for (auto &[key, queue] : queues_) {
        if (queue.attempt != 0) {
            continue;
        }
        if (queue.not_before != 0) {
            delayed_.insert({queue.not_before, &queue});
        } else {
            ready.push_back(&queue);
        }
    }
    std::sort(ready.begin(), ready.end(),
              [](const Queue *a, const Queue *b) { return a->waiting.front() < b->waiting.front(); });
    ready_.assign(ready.begin(), ready.end());
}

std::uint64_t Destination::lowest() const {
    if (figures_.waiting == 0) {
        return journal_.last_durable() + 1;
    }
    std::uint64_t unread = cursor_;
    if (cursor_ < loaded_.cursor) {
        const auto rest = std::lower_bound(loaded_.undelivered.begin(), loaded_.undelivered.end(), cursor_);
        unread = rest == loaded_.undelivered.end() ? loaded_.cursor : *rest;
    }
    return pending_.empty() ? unread : std::min(pending_.begin()->first, unread);
}

void Destination::changed() {
    if (!save_timer_.is_set()) {
        save_timer_.set(loop_.now() + settings_.save_after);
    }
    progress_();
}

// Until reading has passed what the loaded position says, that is still true.
Position Destination::position() const {
    Position position;
    for (const auto &[sequence, pending] : pending_) {
        position.undelivered.push_back(sequence);
    }
    position.cursor = cursor_;
    if (cursor_ < loaded_.cursor) {
        position.cursor = loaded_.cursor;
        const auto rest = std::lower_bound(loaded_.undelivered.begin(), loaded_.undelivered.end(), cursor_);
        position.undelivered.insert(position.undelivered.end(), rest, loaded_.undelivered.end());
    }
    return limited(std::move(position));
}

void Destination::save(bool durable) {
    save_timer_.cancel();
    journal_.on_disk([name = name_, position = position(), durable](Disk &disk) {
        disk.positions.save(name, position, durable);
    });
}

}  // namespace accounting
