// SPDX-License-Identifier: Apache-2.0
//
// Captures: copies of messages and of the traffic with servers, as blocks of pcapng, for programs
// that read them from the control socket (docs/capture.md). No reader can delay the service: each
// has a queue of a limited size, and what does not fit is counted.
//
// For the thread of the loop.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/known_names.hpp"
#include "base/secret.hpp"
#include "base/trace.hpp"
#include "capture/mask.hpp"
#include "capture/segments.hpp"
#include "config/snapshot.hpp"
#include "net/loop.hpp"
#include "net/tap.hpp"

namespace service {

struct CaptureOptions {
    std::optional<std::string> user = {};  // messages of requests that name this user only
    bool secrets = false;                  // nothing is masked
    bool servers = false;                  // also the traffic with servers
    bool keys = false;                     // and what deciphers it
    // How a name is written in `user`; null: as it is.
    std::string (*form_of_names)(std::string_view) = nullptr;

    bool is_user(const std::string &name) const {
        return user && (form_of_names != nullptr ? form_of_names(name) : name) == *user;
    }
};

// A message of a client, or the answer to one.
struct CapturedMessage {
    bool is_answer = false;
    pid_t pid = 0;  // of the client
    uid_t uid = 0;
    gid_t gid = 0;
    std::uint64_t connection = 0;  // counts those of the process
    std::uint32_t exchange = 0;    // number of the request on its connection, from 1
    std::uint32_t type = 0;        // of the request; UINT32_MAX: it cannot be read
    LoginId id = 0;                // of the login, if it is known already
    std::string user;              // that the request names
    WireMessage message;
};

class Capture;

// What one reader gets.
class CaptureReader {
  public:
    CaptureReader(Capture &capture, CaptureOptions options);
    ~CaptureReader();
    CaptureReader(const CaptureReader &) = delete;
    CaptureReader &operator=(const CaptureReader &) = delete;

    const CaptureOptions &options() const { return options_; }
    // Appends whole blocks until the text has so many bytes, or there is none left.
    void append_to(std::string &out, std::size_t most);
    // No further frames; the figures of the interfaces come last, with what ended the capture if its
    // reader did not.
    void finish(std::string_view why = {});
    // Drops and counts the frames that have not been appended.
    void drop_queued();
    // Frames that were dropped, of all interfaces.
    std::uint64_t dropped() const { return figures_[kMessages].dropped + figures_[kServers].dropped; }
    // Whether all has been appended.
    bool has_ended() const { return is_finished_ && blocks_.empty(); }

  private:
    friend class Capture;
    static constexpr std::uint32_t kMessages = 0, kServers = 1;  // interfaces

    void add(std::uint32_t interface, std::int64_t wall, bool is_outbound, std::string_view bytes,
             std::string_view comment = {});
    void add_secret(std::uint32_t kind, const std::string &text);
    void push(std::string block, std::optional<std::uint32_t> interface = std::nullopt);

    struct Figures {
        std::uint64_t seen = 0, dropped = 0;
        std::uint64_t dropped_before = 0;  // already told with an earlier frame
    };

    Capture &capture_;
    const CaptureOptions options_;
    struct Queued {
        std::string block;
        std::optional<std::uint32_t> interface;  // of a frame
    };
    std::deque<Queued> blocks_;
    std::size_t queued_ = 0;  // bytes
    Figures figures_[2];
    std::int64_t started_;
    bool is_finished_ = false;
    std::set<std::string> told_;  // servers whose keys the reader has
};

class Capture : private net::Tap {
  public:
    static constexpr std::size_t kMostReaders = 4;
    static constexpr std::size_t kMostQueued = std::size_t{8} << 20;  // bytes for one reader

    Capture(net::Loop &loop, const KnownNames &names, std::string program);
    ~Capture() override;
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;

    // Whether a message has to be shown to add().
    bool is_on() const { return !readers_.empty(); }
    void add(const CapturedMessage &message);

    // Where the keys of servers are.
    void use(SnapshotPtr snapshot) { snapshot_ = std::move(snapshot); }
    // Is called when there is something to append.
    void on_frames(std::function<void()> call) { on_frames_ = std::move(call); }
    std::size_t readers() const { return readers_.size(); }
    std::uint64_t new_connection() { return ++last_connection_; }

  private:
    friend class CaptureReader;

    void datagram(const Path &path, Way way, std::string_view bytes) override;
    void opened(const Path &path) override;
    void bytes(const Path &path, Way way, std::string_view bytes) override;
    void closed(const Path &path, Way way) override;
    void tls_key(std::string_view line) override;

    void join(CaptureReader *reader);
    void leave(CaptureReader *reader);
    void watch_servers();
    // Who asks for a name knows it.
    bool may_show(const CaptureOptions &options, const std::string &name) const {
        return name.empty() || options.is_user(name) || names_.knows(name);
    }
    void add_packets(const Path &path, Way way, const std::vector<std::string> &packets);
    void tell_key(const Path &path, bool is_stream);
    std::string user_of(const Path &path, Way way, std::string_view packet);
    const Server *server_at(const net::Address &address, bool is_stream) const;

    net::Loop &loop_;
    const KnownNames &names_;
    const std::string program_;
    // Numbers of connections begin again with each start of the service; with this one they do not
    // repeat in captures that are joined.
    const std::uint32_t run_;
    SnapshotPtr snapshot_;
    std::vector<CaptureReader *> readers_;
    std::function<void()> on_frames_;
    Segments segments_;
    std::map<std::string, std::string> users_;  // of requests to RADIUS servers
    std::uint64_t last_connection_ = 0;
};

}  // namespace service
