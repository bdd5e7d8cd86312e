// SPDX-License-Identifier: Apache-2.0

#include "journal/recorder.hpp"

#include <algorithm>
#include <ctime>
#include <utility>

#include "accounting/process.hpp"
#include "base/log.hpp"
#include "journal/forms.hpp"
#include "journal/journal_backend.hpp"

namespace service {

namespace {

constexpr std::uint64_t kMib = 1 << 20;

// A request that waits for the disk. Its function goes with it.
class Recording : public Attempt {
  public:
    explicit Recording(Backend::Done done) : done_(std::make_shared<Backend::Done>(std::move(done))) {}
    std::weak_ptr<Backend::Done> done() const { return done_; }

  private:
    std::shared_ptr<Backend::Done> done_;
};

std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

void add_once(std::vector<std::string> &names, std::string name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(std::move(name));
    }
}

bool is_accounting(const std::string &path) {
    return path.starts_with(std::string(function_word(Function::kAccounting)) + "/");
}

}  // namespace

Recorder::Recorder(net::Loop &loop, Groups &groups) : loop_(loop), groups_(groups), carrier_(loop, groups) {}

Recorder::~Recorder() = default;

void Recorder::add_to(Backends &backends) {
    const auto backend = std::make_shared<JournalBackend>(*this);
    for (const Protocol protocol : {Protocol::kRadius, Protocol::kTacacs}) {
        backend->add(protocol, backends.find(protocol));
        backends.add(protocol, backend);
    }
}

// ---- opening

accounting::Limits Recorder::limits() const {
    accounting::Limits limits;
    limits.most_bytes = present_.limit_mib * kMib;
    limits.alarm_percent = present_.alarm_percent;
    limits.when_full =
        present_.drop_oldest ? accounting::WhenFull::kDropOldest : accounting::WhenFull::kRefuse;
    limits.interim_every = present_.interim_s * net::kSecond;
    return limits;
}

accounting::Settings Recorder::settings() const {
    const accounting::Limits limits = this->limits();
    accounting::Settings settings;
    settings.journal.disk.directory = present_.journal;
    settings.journal.most_bytes = limits.most_bytes;
    settings.journal.alarm_percent = limits.alarm_percent;
    settings.journal.when_full = limits.when_full;
    settings.sessions.interim_every = limits.interim_every;
    return settings;
}

accounting::Events Recorder::events() {
    return {[](const std::string &line) { log(Level::kWarning, "JOURNAL", "%s", line.c_str()); },
            [this](accounting::Alarm alarm, bool raised) {
                counts_.alarms[static_cast<std::size_t>(alarm)] += raised ? 1 : 0;
            }};
}

accounting::SessionCalls Recorder::calls() {
    return {[this](const accounting::Record &opened) {
                return !present_.close_sessions || accounting::is_alive(opened);
            },
            [this](const accounting::RecordPointer &opened) { append_interim(*opened); },
            [this](const accounting::RecordPointer &opened) { append_closing(*opened); }};
}

void Recorder::open() {
    if (is_open() || present_.journal.empty()) {
        return;
    }
    std::string error;
    accounting_ = std::make_unique<accounting::Accounting>(loop_, settings(), events(), calls(), files_);
    if (!accounting_->open(error)) {
        accounting_.reset();
        log(Level::kError, "NO_JOURNAL",
            "accounting records are not kept on disk: %s; they go to their servers at once, and one that no "
            "server takes goes to the next method. SIGHUP tries again",
            error.c_str());
        return;
    }
    open_path_ = present_.journal;
    set_senders();
    log(Level::kInfo, "JOURNAL", "accounting records are kept in %s, %llu bytes now", open_path_.c_str(),
        static_cast<unsigned long long>(accounting_->figures().bytes));
}

void Recorder::use(const SnapshotPtr &snapshot) {
    snapshot_ = snapshot;
    const AccountingSettings before = std::exchange(present_, snapshot->settings->accounting);
    carrier_.use(snapshot);
    if (!is_open()) {
        return;
    }
    if (present_.journal != open_path_ && present_.journal != before.journal) {
        log(Level::kWarning, "JOURNAL",
            "accounting records stay in %s; the directory is changed when the service is started the next "
            "time, and records that wait in the old one are delivered only from there",
            open_path_.c_str());
    }
    if (!(present_ == before)) {
        accounting_->change(limits());
    }
    set_senders();
}

// ---- senders

// Destinations are the groups of the lists for accounting, and those that records wait for.
void Recorder::set_senders() {
    const accounting::Figures figures = accounting_->figures();
    std::set<std::string> wanted;
    for (const auto &[name, destination] : figures.destinations) {
        wanted.insert(name);
    }
    for (const auto &[path, list] : snapshot_->lists) {
        for (const Method &method : list.methods) {
            if (is_accounting(path) && method.group != nullptr &&
                destination_of(*method.group).size() <= accounting::kMaxDestinationName) {
                wanted.insert(destination_of(*method.group));
            }
        }
    }
    for (const std::string &name : wanted) {
        const auto group = carrier_.group(name);
        const auto known = senders_.find(name);
        if (group == nullptr && known != senders_.end()) {
            senders_.erase(known);
            accounting_->set_sender(name, nullptr);
        } else if (group != nullptr && (known == senders_.end() || known->second != group->servers)) {
            // A new sender ends the wait for the old servers.
            senders_[name] = group->servers;
            accounting_->set_sender(name, carrier_.sender(name));
        }
    }
    report_kept(figures.destinations);
}

void Recorder::report_kept(const std::map<std::string, accounting::DestinationFigures> &destinations) {
    for (const auto &[name, destination] : destinations) {
        if (senders_.contains(name) || destination.waiting == 0) {
            reported_.erase(name);
        } else if (!snapshot_->is_fallback && reported_.insert(name).second) {
            log(Level::kWarning, "QUEUE_KEPT",
                "%llu accounting records wait for the group %s, which is not configured, or has no usable "
                "server. They are kept: configure it again, or give them up while the service is stopped, "
                "with: aaad --drop-queue %s",
                static_cast<unsigned long long>(destination.waiting), name.c_str(), name.c_str());
        }
    }
}

// ---- records

bool Recorder::keeps(const Question &question) const {
    return is_open() && question.method.group != nullptr &&
           destination_of(*question.method.group).size() <= accounting::kMaxDestinationName;
}

std::unique_ptr<Attempt> Recorder::account(const Question &question, Backend::Done done) {
    auto record = groups_.record_of(question);
    if (!record) {
        return answer_soon(loop_, Outcome::fail("a record of this kind is not known"), std::move(done));
    }
    const auto pid = static_cast<std::uint32_t>(question.client_pid);
    const auto opened = accounting_->sessions().find(session_name(*record, pid));
    if (opened != nullptr && record->kind != AccountingRecord::Kind::kStart) {
        complete(*record, *opened, accounting::Moment::now());
    }
    std::vector<std::string> destinations;
    add_once(destinations, destination_of(*question.method.group));
    for (const Method &method : question.also) {
        add_once(destinations, destination_of(*method.group));
    }
    const std::string names = joined(destinations);
    auto recording = std::make_unique<Recording>(std::move(done));
    accounting_->record(journal_record(question, *record, std::move(destinations)),
                        [call = recording->done(), names](accounting::Result result) {
                            const auto held = call.lock();
                            if (held == nullptr) {
                                return;  // the client has gone; the record stays
                            }
                            (*held)(result == accounting::Result::kOk
                                        ? Outcome::pass("on disk, for " + names)
                                        : Outcome::unavailable("the record cannot be kept on disk: " +
                                                               std::string(accounting::describe(result))));
                        });
    return recording;
}

void Recorder::append_interim(const accounting::Record &opened) {
    if (auto record = interim_record(opened, accounting::Moment::now(), std::time(nullptr))) {
        ++counts_.interim;
        accounting_->record(*std::move(record), [](accounting::Result) {});
    }
}

void Recorder::append_closing(const accounting::Record &opened) {
    auto record = closing_record(opened, accounting::Moment::now(), std::time(nullptr));
    if (!record) {
        return;
    }
    ++counts_.closing;
    accounting_->record(
        *std::move(record), [name = opened.session, pid = opened.process.pid](accounting::Result result) {
            if (result == accounting::Result::kOk) {
                log(Level::kNotice, "SESSION_CLOSED",
                    "the session %s is closed: its process %u has ended without a closing record",
                    name.c_str(), pid);
            }
        });
}

std::optional<accounting::Figures> Recorder::figures() const {
    return is_open() ? std::optional(accounting_->figures()) : std::nullopt;
}

bool Recorder::drop_queue(const std::string &destination) {
    return is_open() && accounting_->drop_queue(destination);
}

}  // namespace service
