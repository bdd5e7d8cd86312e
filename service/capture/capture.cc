// SPDX-License-Identifier: Apache-2.0

#include "capture/capture.hpp"

#include <string.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <ctime>
#include <utility>

#include "capture/pcapng.hpp"
#include "capture/radius_mask.hpp"

namespace service {

namespace {

constexpr std::uint8_t kPrefixVersion = 1;
constexpr std::size_t kPrefix = 48;
constexpr unsigned kWasMasked = 1;
constexpr char kNameWasMasked[] =
    "The user name was replaced by asterisks, so the authenticators do not fit. aaactl capture --secrets "
    "shows it.";

std::int64_t wall_clock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void put(std::string &out, std::uint64_t value, unsigned bytes) {
    while (bytes > 0) {
        out += static_cast<char>(value >> (8 * --bytes) & 0xff);
    }
}

// docs/capture.md has the table.
std::string frame(const CapturedMessage &message, std::uint32_t run, std::string_view bytes,
                  bool was_masked) {
    std::string out;
    out.reserve(kPrefix + bytes.size());
    put(out, kPrefixVersion, 1);
    put(out, message.is_answer ? 1 : 0, 1);
    put(out, was_masked ? kWasMasked : 0, 1);
    put(out, std::endian::native == std::endian::little ? 1 : 2, 1);
    put(out, kPrefix, 2);
    put(out, 0, 2);
    put(out, static_cast<std::uint32_t>(message.pid), 4);
    put(out, message.uid, 4);
    put(out, message.gid, 4);
    put(out, message.type, 4);
    put(out, message.connection, 8);
    put(out, message.id, 8);
    put(out, message.exchange, 4);
    put(out, run, 4);
    return out.append(bytes);
}

// Not 0, which is that of frames without one.
std::uint32_t new_run() {
    std::uint32_t number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
        // Early in the boot: no secret, it only has to differ from that of the start before.
        number = static_cast<std::uint32_t>(wall_clock() / 1000000) ^ static_cast<std::uint32_t>(getpid());
    }
    return number != 0 ? number : 1;
}

std::string host_of(const net::Address &address) {
    const std::string text = address.text();
    const std::string host = text.substr(0, text.rfind(':'));
    return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
}

// The key of RADIUS over TLS is the same everywhere (RFC 6614, 2.3), and readers of captures do not know it.
constexpr char kRadsecKey[] = "radsec";

// The text of a server's own key; "" where there is none, as for TACACS+ over TLS.
std::string key_of(const Server &server) {
    if (server.transport != "tls") {
        return server.key.text();
    }
    return server.protocol == Protocol::kRadius ? kRadsecKey : "";
}

}  // namespace

CaptureReader::CaptureReader(Capture &capture, CaptureOptions options)
    : capture_(capture), options_(std::move(options)), started_(wall_clock()) {
    push(pcapng::section(capture_.program_));
    push(pcapng::interface(pcapng::kUser0, "clients", "messages of the clients of aaad"));
    if (options_.servers) {
        push(pcapng::interface(pcapng::kRawIp, "servers", "packets to and from RADIUS and TACACS+ servers"));
    }
    capture_.join(this);
}

CaptureReader::~CaptureReader() {
    capture_.leave(this);
}

void CaptureReader::push(std::string block, std::optional<std::uint32_t> interface) {
    queued_ += block.size();
    blocks_.push_back({std::move(block), interface});
}

void CaptureReader::append_to(std::string &out, std::size_t most) {
    while (!blocks_.empty() && out.size() < most) {
        std::string &block = blocks_.front().block;
        out += block;
        queued_ -= block.size();
        explicit_bzero(block.data(), block.size());
        blocks_.pop_front();
    }
}

void CaptureReader::drop_queued() {
    // The beginning of the file and keys stay.
    for (Queued &queued : blocks_) {
        if (queued.interface) {
            ++figures_[*queued.interface].dropped;
            queued_ -= queued.block.size();
            explicit_bzero(queued.block.data(), queued.block.size());
        }
    }
    std::erase_if(blocks_, [](const Queued &queued) { return queued.interface.has_value(); });
}

void CaptureReader::add(std::uint32_t interface, std::int64_t wall, bool is_outbound, std::string_view bytes,
                        std::string_view comment) {
    if (is_finished_) {
        return;
    }
    Figures &figures = figures_[interface];
    ++figures.seen;
    if (queued_ + bytes.size() > Capture::kMostQueued) {
        ++figures.dropped;
        return;
    }
    push(pcapng::packet({interface, wall, is_outbound,
                         figures.dropped - std::exchange(figures.dropped_before, figures.dropped), bytes,
                         comment}),
         interface);
}

// A key is small, there are few of them, and without it nothing that follows can be read.
void CaptureReader::add_secret(std::uint32_t kind, const std::string &text) {
    if (!is_finished_ && queued_ < 2 * Capture::kMostQueued) {
        push(pcapng::secrets(kind, text));
    }
}

void CaptureReader::finish(std::string_view why) {
    if (std::exchange(is_finished_, true)) {
        return;
    }
    for (std::uint32_t i = kMessages; i <= (options_.servers ? kServers : kMessages); ++i) {
        push(pcapng::statistics({i, started_, wall_clock(), figures_[i].seen, figures_[i].dropped, why}));
    }
}

Capture::Capture(net::Loop &loop, const KnownNames &names, std::string program)
    : loop_(loop), names_(names), program_(std::move(program)), run_(new_run()) {}

Capture::~Capture() {
    if (loop_.tap() == this) {
        loop_.set_tap(nullptr);
    }
}

void Capture::join(CaptureReader *reader) {
    readers_.push_back(reader);
    watch_servers();
}

void Capture::leave(CaptureReader *reader) {
    readers_.erase(std::remove(readers_.begin(), readers_.end(), reader), readers_.end());
    watch_servers();
}

void Capture::watch_servers() {
    const bool is_watched = std::any_of(readers_.begin(), readers_.end(),
                                        [](const CaptureReader *reader) { return reader->options_.servers; });
    if (!is_watched) {
        segments_ = {};
        users_.clear();
    }
    loop_.set_tap(is_watched ? this : nullptr);
}

void Capture::add(const CapturedMessage &message) {
    const std::int64_t wall = wall_clock();
    for (CaptureReader *reader : readers_) {
        const CaptureOptions &options = reader->options_;
        if (options.user && !options.is_user(message.user)) {
            continue;
        }
        if (options.secrets) {
            reader->add(CaptureReader::kMessages, wall, message.is_answer,
                        frame(message, run_, message.message.bytes, false));
            continue;
        }
        const Masked shown =
            masked(message.message,
                   {[&](const std::string &name) { return may_show(options, name); }, message.user});
        reader->add(CaptureReader::kMessages, wall, message.is_answer,
                    frame(message, run_, shown.bytes, shown.is_changed));
    }
    if (on_frames_) {
        on_frames_();
    }
}

// ---- the traffic with servers ---------------------------------------------------------------

const Server *Capture::server_at(const net::Address &address, bool is_stream) const {
    if (snapshot_ == nullptr) {
        return nullptr;
    }
    const std::string host = host_of(address);
    for (const auto &group : snapshot_->groups) {
        for (const Server &server : group->servers) {
            const auto configured = net::Address::parse(server.host, server.port);
            const bool is_port = address.port() == server.port || (server.protocol == Protocol::kRadius &&
                                                                   address.port() == server.accounting_port);
            const bool is_tcp = server.protocol == Protocol::kTacacs || server.transport == "tls";
            if (configured && is_port && is_tcp == is_stream && host_of(*configured) == host) {
                return &server;
            }
        }
    }
    return nullptr;
}

void Capture::tell_key(const Path &path, bool is_stream) {
    const std::string place = path.local.text().substr(0, path.local.text().rfind(':')) + " " +
                              path.server.text() + (is_stream ? " tcp " : " udp ") +
                              // A key may have been changed since.
                              std::to_string(snapshot_ != nullptr ? snapshot_->number : 0);
    for (CaptureReader *reader : readers_) {
        if (!reader->options_.keys || !reader->told_.insert(place).second) {
            continue;
        }
        const Server *server = server_at(path.server, is_stream);
        const std::string key = server == nullptr ? "" : key_of(*server);
        if (key.empty()) {
            continue;
        }
        if (server->protocol == Protocol::kTacacs) {
            reader->add_secret(pcapng::kTacacsKey,
                               host_of(path.local) + "\t" + host_of(path.server) + "\t" + key);
        } else {
            reader->add_secret(pcapng::kRadiusKey, path.server.text() + "\t" + key);
        }
    }
}

void Capture::add_packets(const Path &, Way way, const std::vector<std::string> &packets) {
    const std::int64_t wall = wall_clock();
    for (CaptureReader *reader : readers_) {
        for (const std::string &packet : packets) {
            if (reader->options_.servers) {
                reader->add(CaptureReader::kServers, wall, way == Way::kSent, packet);
            }
        }
    }
    if (on_frames_) {
        on_frames_();
    }
}

// Answers do not name the user, and their texts may.
std::string Capture::user_of(const Path &path, Way way, std::string_view packet) {
    constexpr std::size_t kMostUsers = 4096, kIdentifier = 1;
    const std::string place = path.local.text() + " " + path.server.text() + " " +
                              (packet.size() > kIdentifier ? packet[kIdentifier] : '\0');
    if (way == Way::kReceived) {
        const auto found = users_.find(place);
        return found == users_.end() ? "" : found->second;
    }
    if (users_.size() >= kMostUsers) {
        users_.clear();
    }
    return users_[place] = radius_user(packet);
}

void Capture::datagram(const Path &path, Way way, std::string_view bytes) {
    tell_key(path, false);
    const std::string user = user_of(path, way, bytes);
    const std::int64_t wall = wall_clock();
    for (CaptureReader *reader : readers_) {
        const CaptureOptions &options = reader->options_;
        if (!options.servers) {
            continue;
        }
        // People type their password where the name is asked for, and RADIUS does not hide names.
        const Masked shown =
            options.secrets
                ? Masked{std::string(bytes), false}
                : masked_radius(bytes,
                                {[&](const std::string &name) { return may_show(options, name); }, user});
        reader->add(CaptureReader::kServers, wall, way == Way::kSent,
                    Segments::datagram(path, way, shown.bytes), shown.is_changed ? kNameWasMasked : "");
    }
    if (on_frames_) {
        on_frames_();
    }
}

void Capture::opened(const Path &path) {
    tell_key(path, true);
    add_packets(path, Way::kSent, segments_.opened(path));
}

void Capture::bytes(const Path &path, Way way, std::string_view bytes) {
    tell_key(path, true);
    add_packets(path, way, segments_.bytes(path, way, bytes));
}

void Capture::closed(const Path &path, Way way) {
    add_packets(path, way, segments_.closed(path, way));
}

void Capture::tls_key(std::string_view line) {
    for (CaptureReader *reader : readers_) {
        if (reader->options_.keys) {
            reader->add_secret(pcapng::kTlsKeys, std::string(line) + "\n");
        }
    }
    if (on_frames_) {
        on_frames_();
    }
}

}  // namespace service
